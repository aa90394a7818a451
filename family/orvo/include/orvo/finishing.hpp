/// The last touches on a merged picture, in place.
#pragma once

#include <orvo/raw_development.hpp>

namespace orvo {

/// Gently brings black and white points, at robust quantiles of luminance, to the ends of the scale, keeping hue. A
/// picture that is already normal changes by less than one percent.
ORVO_EXPORT void normalize_for_hdr(PixelRGB<float>* pixels, int width, int height);

/// Automatic white balance. `value` above 0..1: the share of the estimated cast that is removed.
ORVO_EXPORT void applyWB(PicturePointer& image, float value);

/// Local contrast of fine structure. `value` above 0..1; edges get no halo, noise in flat areas is not raised.
ORVO_EXPORT void applyDetails(PixelRGB<float>* pixels, int width, int height, float value);

} // namespace orvo
