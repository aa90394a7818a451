/// Noise reduction based on the noise measured in the picture.
#pragma once

#include "restoration/steps.hpp"

#include <orvo_core/image_data.hpp>

namespace orvo::details {

/// Reduces the noise of encoded values in place by `amount`, above 0 and at most 1. All samples must be finite. Throws
/// FailureError on cancel; the picture is then unchanged. Peak: four pictures.
void reduceNoise(_ImageData<PixelRGB<float>>& picture, float amount, const Step& step);

} // namespace orvo::details
