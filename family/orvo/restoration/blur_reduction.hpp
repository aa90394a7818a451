/// Removes the mild blur of a whole picture.
#pragma once

#include "restoration/steps.hpp"

#include <orvo_core/image_data.hpp>

namespace orvo::details {

/// Measures the blur of encoded values and removes `amount`, above 0 and at most 1, of it in place, tile by tile; does
/// nothing if it finds none. All samples must be finite. Throws FailureError on cancel, with the picture half done.
void reduceBlur(_ImageData<PixelRGB<float>>& picture, float amount, const Step& step);

} // namespace orvo::details
