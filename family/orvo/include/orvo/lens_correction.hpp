/// Corrections of what the lens did.
#pragma once

#include <orvo/raw_development.hpp>

namespace orvo {

/// Distortion and vignetting by the camera and lens that `metadata` names, from lensfun's database. An unknown lens
/// gives `image` itself, unchanged; otherwise a new picture of the same size.
[[nodiscard]] ORVO_EXPORT PicturePointer
applyAutoLensCorrection(const PicturePointer& image, const std::shared_ptr<const ImageMetadata>& metadata,
                        const std::shared_ptr<AdditionalRawMetadata>& rawMetadata);

/// Lateral chromatic aberration of a frame that is no raw file, in place: red and blue are scaled about the centre to
/// fit green, by a fit on the picture's own edges. A picture without it stays as it is, bit for bit.
ORVO_EXPORT void applyChromaticAbberationsCorrection(PicturePointer& image);

struct ORVO_EXPORT LensCorrectionUnit
{
    /// Corrects the lateral chromatic aberration of a picture made from a raw file if `chromatic` asks for it, and in
    /// any case marks it as dealt with in `rawMetadata`, so that it is not corrected twice. Does nothing if it is
    /// marked already, or if there is no `rawMetadata`.
    static void applyAndDismissRawCA(PicturePointer& image, const std::shared_ptr<const ImageMetadata>& metadata,
                                     const std::shared_ptr<AdditionalRawMetadata>& rawMetadata, bool chromatic);
};

} // namespace orvo
