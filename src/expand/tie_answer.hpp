/// Hides the seam between the known picture and what a service painted around it.
#pragma once

#include "GenProcessorBase/generative_processor_base_impl.hpp"

namespace orvo {

/// Ties `generated`, the answer to the request of `parameters`, to the known picture of the canvas, in place and at its
/// own resolution: the difference in colour along a joint 16 pixels within the known picture is carried into all that
/// lies outside of it. `generated` has the profile of the canvas. Throws what PanoramaMBlender::blend() throws. Peak:
/// 41 bytes a pixel of the canvas at the scale of the answer, and that canvas itself in 16 bits.
void tieAnswer(_ImageData<PixelRGB<float>>& generated,
               const GenerativeProcessorBaseImpl::RequestParameters& parameters);

} // namespace orvo
