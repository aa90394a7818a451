/// Noise reduction led by what is measured in the picture.
#pragma once

#include "restoration/steps.hpp"

#include <orvo_core/image_data.hpp>

namespace orvo::details {

/// Reduces the noise of encoded values, in place; `amount`, above 0..1, of what is found is taken away. All samples are
/// finite. False on cancel; the picture is then half done. Peak: four pictures.
[[nodiscard]] bool reduceNoise(_ImageData<PixelRGB<float>>& picture, float amount, const Step& step);

} // namespace orvo::details
