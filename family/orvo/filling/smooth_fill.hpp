/// Filling without texture.
#pragma once

#include "filling/hole.hpp"

#include <orvo_core/image_data.hpp>

namespace orvo::details {

/// Paints the hole of `picture` smoothly from its rim: known pixels are averaged in ever larger blocks, and what a
/// block lacks comes from the next larger one (Gortler, Grzeszczuk, Szeliski, Cohen, SIGGRAPH 1996, section 3.4: pull
/// and push). Known pixels are left alone; what is not a finite number among them counts as 0.
void fillSmoothly(_ImageData<PixelRGB<float>>& picture, const Hole& hole);

} // namespace orvo::details
