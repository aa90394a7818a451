// Spreads colour differences smoothly.
#pragma once

#include <orvo_core/image_data.hpp>

namespace orvo {

// Adds to `result` its difference to `source` where `mask` is 0, and a smooth continuation of it elsewhere. The sizes
// must be equal. Adds nothing if the mask is above 0 everywhere.
void addMembrane(_ImageData<PixelRGB<float>>& result, const _ImageData<PixelRGB<float>>& source,
                 const _ImageData<float>& mask);

} // namespace orvo
