/// Matches the colours of an answer to those of the known picture next to it.
#pragma once

#include "GenProcessorBase/generative_processor_base_impl.hpp"

namespace orvo {

/// Adjusts `generated`, the answer to the request of `parameters`, in place and at its own resolution: a membrane
/// spreads the colour difference along a joint 16 pixels inside the known picture over the whole area outside of it.
/// `generated` has the profile of the canvas. Throws what PanoramaMBlender::blend() throws. Peak: 41 bytes per pixel of
/// the canvas at the scale of the answer, and that canvas itself in 16 bits.
void tieAnswer(_ImageData<PixelRGB<float>>& generated,
               const GenerativeProcessorBaseImpl::RequestParameters& parameters);

} // namespace orvo
