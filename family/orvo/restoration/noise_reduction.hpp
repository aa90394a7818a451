/// Noise reduction based on the noise measured in the picture.
#pragma once

#include "restoration/steps.hpp"

#include <orvo_core/image_data.hpp>

namespace orvo::details {

/// Reduces the noise of encoded values in place by `amount`, above 0 and at most 1. All samples must be finite. Returns
/// false on cancel, with the picture half done. Peak: four pictures.
[[nodiscard]] bool reduceNoise(_ImageData<PixelRGB<float>>& picture, float amount, const Step& step);

} // namespace orvo::details
