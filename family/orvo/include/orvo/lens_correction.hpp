/// Corrects lens faults.
#pragma once

#include <orvo/raw_development.hpp>

namespace orvo {

/// Corrects distortion and vignetting of the camera and lens that `metadata` names, with lensfun's database, which is
/// loaded at first use. Needs the focal length; a camera with a fixed lens need not name the lens. An unknown camera or
/// lens, or no database, returns `image` itself, unchanged; otherwise a new picture of the same size and profile,
/// scaled so that no border is empty. A distance of 0 counts as far away. Resampled by cubic interpolation; vignetting
/// is corrected in linear light (a picture that is not linear is assumed to have the curve of sRGB). Lateral chromatic
/// aberration is left to the functions below. Any thread; parallel. Peak: the result.
[[nodiscard]] ORVO_EXPORT PicturePointer
applyAutoLensCorrection(const PicturePointer& image, const std::shared_ptr<const ImageMetadata>& metadata,
                        const std::shared_ptr<AdditionalRawMetadata>& rawMetadata);

/// Corrects lateral chromatic aberration of a frame that is not a raw file, in place: scales red and blue about the
/// centre to match green. Their radial shifts are measured on a few hundred edges of the picture itself (Lucas, Kanade
/// 1981) and r' = r (1 + k0 + k1 r^2) is fitted robustly (Tukey's biweight). A fit that is not significant, or below
/// 0.12 px at the corners, changes nothing: a picture without aberration stays bit-identical. Linear and encoded
/// pictures. Any thread; parallel; bit-identical for any number of threads. Peak: one plane of floats.
ORVO_EXPORT void applyChromaticAbberationsCorrection(PicturePointer& image);

struct ORVO_EXPORT LensCorrectionUnit
{
    /// Corrects the lateral chromatic aberration of a picture made from a raw file, and marks it as corrected in
    /// `rawMetadata`, so that it is not corrected twice. Does nothing unless `chromatic` is set, so that frames
    /// developed without it can be corrected after the merge; nor if it is already marked, or without `rawMetadata`.
    /// `metadata` is not used: the fit comes from the picture itself.
    static void applyAndDismissRawCA(PicturePointer& image, const std::shared_ptr<const ImageMetadata>& metadata,
                                     const std::shared_ptr<AdditionalRawMetadata>& rawMetadata, bool chromatic);
};

} // namespace orvo
