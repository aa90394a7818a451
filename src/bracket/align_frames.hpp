/// Registers the frames of a handheld bracket and brings them to one common rectangle.
#pragma once

#include "bracket/frames.hpp"

#include <vector>

namespace orvo {

/// Each frame is registered against its neighbour at a shorter side of at most 1024 pixels, the homographies are
/// chained to frame `referenceIndex`, and every frame is warped once, at full size. With `crop` the result is the
/// rectangle that all warped frames cover, otherwise the one around them all.
///
/// Each frame's `image` is replaced by a new one, all of one size. If less than nine tenths of a side would be left,
/// the whole alignment is given up: the frames keep their pixels, in a new copy, and the log tells it for each.
/// A pair that cannot be registered counts as standing still.
///
/// All frames have the size of the first; larger ones are read as if they had it, smaller ones throw
/// std::invalid_argument. Peak: one picture beside the frames, and a small one for each frame.
void alignFrames(std::vector<HDRFrame>& frames, int referenceIndex, bool crop);

/// Throws std::invalid_argument if a frame has fewer pixels than the first, whose size all loops take.
void requireSizeOfFirst(const std::vector<HDRFrame>& frames);

} // namespace orvo
