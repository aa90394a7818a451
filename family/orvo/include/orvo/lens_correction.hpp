/// Corrections of what the lens did.
#pragma once

#include <orvo/raw_development.hpp>

namespace orvo {

/// Distortion and vignetting by the camera and lens that `metadata` names, from lensfun's database, which is loaded at
/// the first use. Needs the focal length; a camera whose lens cannot be changed need not name it. An unknown camera or
/// lens, or no database, gives `image` itself, unchanged; otherwise a new picture of the same size and profile, scaled
/// so that no border is empty. Distances of 0 count as far away. Resampled by cubic interpolation; vignetting is
/// corrected in linear light (the curve of sRGB is assumed for a picture that is not linear). Lateral chromatic
/// aberration is left to the functions below. Any thread; parallel. Peak: the result.
[[nodiscard]] ORVO_EXPORT PicturePointer
applyAutoLensCorrection(const PicturePointer& image, const std::shared_ptr<const ImageMetadata>& metadata,
                        const std::shared_ptr<AdditionalRawMetadata>& rawMetadata);

/// Lateral chromatic aberration of a frame that is no raw file, in place: red and blue are scaled about the centre to
/// fit green. Their radial shifts are measured on some hundred edges of the picture itself (Lucas, Kanade 1981) and
/// r' = r (1 + k0 + k1 r^2) is fitted robustly (Tukey's biweight). A fit that is not significant, or stays below 0.12
/// px at the corners, changes nothing: a picture without aberration stays as it is, bit for bit. Linear and encoded
/// pictures. Any thread; parallel; the same bits for any number of threads. Peak: one plane of floats.
ORVO_EXPORT void applyChromaticAbberationsCorrection(PicturePointer& image);

struct ORVO_EXPORT LensCorrectionUnit
{
    /// Corrects the lateral chromatic aberration of a picture made from a raw file, and marks it as dealt with in
    /// `rawMetadata`, so that it is not corrected twice. Does nothing unless `chromatic` asks for it, so that frames
    /// developed without it can be corrected once they are merged; nor if it is marked already, or if there is no
    /// `rawMetadata`. `metadata` is not needed: the fit is the picture's own.
    static void applyAndDismissRawCA(PicturePointer& image, const std::shared_ptr<const ImageMetadata>& metadata,
                                     const std::shared_ptr<AdditionalRawMetadata>& rawMetadata, bool chromatic);
};

} // namespace orvo
