/// Filling without texture.
#pragma once

#include "filling/hole.hpp"

#include <orvo_core/image_data.hpp>

namespace orvo::details {

/// Paints the hole of `picture` smoothly from its rim: averages known pixels in ever larger blocks, and completes each
/// block from the next larger one (Gortler, Grzeszczuk, Szeliski, Cohen, SIGGRAPH 1996, section 3.4: pull and push).
/// Known pixels stay unchanged; values that are not finite count as 0.
void fillSmoothly(_ImageData<PixelRGB<float>>& picture, const Hole& hole);

} // namespace orvo::details
