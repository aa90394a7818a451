/// Takes moving subjects out of a bracket.
#pragma once

#include "bracket/frames.hpp"

#include <orvo_extensions/hdr.hpp>

#include <vector>

namespace orvo {

/// Finds where any frame differs from frame `referenceIndex` in its fine structure, grows that into one soft mask, and
/// replaces those areas of every other frame by the reference brought to that frame's exposure. Areas blown out in the
/// reference are left alone. The pixels of the frames are written in place, all of them limited to 0..2; a frame that
/// shares its pixels with another shares the change. The reference is never written.
///
/// Frame: HDRFrame or FocusStackerFrame, all of one size. Peak: two pictures and three planes beside the frames.
template <typename Frame>
void processDeghosting(std::vector<Frame>& frames, DeghostAmount amount, int referenceIndex);

extern template void processDeghosting<HDRFrame>(std::vector<HDRFrame>&, DeghostAmount, int);
extern template void processDeghosting<FocusStackerFrame>(std::vector<FocusStackerFrame>&, DeghostAmount, int);

} // namespace orvo
