/// Undoing the mild blur of a whole picture.
#pragma once

#include "restoration/steps.hpp"

#include <orvo_core/image_data.hpp>

namespace orvo::details {

/// Measures the blur of encoded values and takes `amount`, above 0..1, of it away, in place, tile by tile; does nothing
/// where none is measured. All samples are finite. False on cancel; the picture is then half done.
[[nodiscard]] bool reduceBlur(_ImageData<PixelRGB<float>>& picture, float amount, const Step& step);

} // namespace orvo::details
