/// Places all frames of a bracket or a focus series in the geometry of one of them.
#pragma once

#include "bracket/fine_registration.hpp"

#include <orvo_common/run_control.hpp>

#include <cstddef>
#include <functional>
#include <vector>

namespace orvo {

/// Returns for each frame the map from pixels of the reference to its own; the reference counts as found. From the
/// reference outwards each frame is registered against the reference and against the last one placed on its side at
/// once, so that errors do not add up along the series, and frames that show nothing in common with the reference still
/// find their place.
///
/// `structure(i)` is called once for each frame. `starts`: one for each frame, or empty, in which case a frame starts
/// where its neighbour lies. A frame that is not found is logged and keeps its start, the identity without `starts`.
/// Empty if cancelled. Peak: the structures of three frames and as in registerFinely().
[[nodiscard]] std::vector<FineRegistration> placeFrames(std::size_t count, std::size_t reference,
                                                        const std::function<FrameStructure(std::size_t)>& structure,
                                                        const std::vector<cv::Matx33d>& starts, FrameMovement movement,
                                                        const RunControl& run);

} // namespace orvo
