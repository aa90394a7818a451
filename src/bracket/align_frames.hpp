/// Aligns the frames of a handheld bracket to one common rectangle.
#pragma once

#include "bracket/frames.hpp"

#include <orvo_common/run_control.hpp>
#include <orvo_extensions/bracket.hpp>

#include <vector>

namespace orvo {

/// Registers each frame against its neighbour at a shorter side of at most 1024 pixels, chains the homographies to
/// frame `referenceIndex`, and warps each frame once, at full size. With `crop` the result is the rectangle that all
/// warped frames cover, otherwise the one that contains them all.
///
/// Replaces each frame's `image` by a new one, all of one size. If less than nine tenths of a side would remain, the
/// whole alignment is abandoned: the frames keep their pixels, in a new copy, and this is logged for each. A pair that
/// cannot be registered counts as unmoved.
///
/// With fine quality the homographies are the start of placeFrames(), and lanczosWarp() is the kernel; the rest is the
/// same. Only then a run can be cancelled inside, which leaves the frames as they are, and frames of another size than
/// the first throw FailureError.
///
/// All frames should have the size of the first; larger ones are read as if they had it, smaller ones throw
/// std::invalid_argument. Peak: one picture in addition to the frames, and a small one for each frame.
void alignFrames(std::vector<HDRFrame>& frames, int referenceIndex, bool crop,
                 AlignmentQuality quality = AlignmentQuality::Fast, const RunControl& run = RunControl::none());

/// Throws FailureError if a frame of this path and size has fewer pixels than the first, whose size all loops use, or
/// as many in another shape.
void requireFitsFirst(const std::filesystem::path& path, _Size<int> size, _Size<int> sizeOfFirst);
/// The same for all frames of a bracket.
void requireSizeOfFirst(const std::vector<HDRFrame>& frames);

} // namespace orvo
