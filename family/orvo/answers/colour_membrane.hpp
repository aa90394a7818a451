// Differences of colour, spread smoothly.
#pragma once

#include <orvo_core/image_data.hpp>

namespace orvo {

// Adds to `result` what brings it to `source` where `mask` is 0, and inside what follows smoothly from there. All have
// one size. Nothing is added where nothing is known (the mask is above 0 everywhere).
void addMembrane(_ImageData<PixelRGB<float>>& result, const _ImageData<PixelRGB<float>>& source,
                 const _ImageData<float>& mask);

} // namespace orvo
