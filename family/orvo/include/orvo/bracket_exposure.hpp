/// Exposure values of the frames of a bracket.
#pragma once

#include <orvo_common/export.hpp>
#include <orvo_core/image_metadata.hpp>

#include <algorithm>
#include <cstddef>
#include <vector>

namespace orvo {

/// EV of one frame from its metadata: log2(time * ISO / 100 / aperture^2) + exposure offset. The camera's bias is
/// already part of time, aperture and ISO. Without exposure data it is the exposure offset alone, which the reader
/// derives from the brightness of the picture. Without metadata 0.
[[nodiscard]] ORVO_EXPORT float exposureValue(const ImageMetadata* metadata);

/// Fills `ev` of each frame, shifted so that the middle frame has 0, and sorts by increasing `ev`; frames of equal EV
/// keep their order. Frame: a record with `ev` and `metadata`, such as HDRFrame.
template <typename Frame>
void fillEVsAndSort(std::vector<Frame>& frames)
{
    for (Frame& frame : frames)
        frame.ev = exposureValue(frame.metadata.get());
    std::stable_sort(frames.begin(), frames.end(), [](const Frame& a, const Frame& b) { return a.ev < b.ev; });
    if (frames.empty())
        return;
    const float middle = frames[frames.size() / 2].ev;
    for (Frame& frame : frames)
        frame.ev -= middle;
}

/// Index of the frame marked as ghost reference; the middle frame if none is.
template <typename Frame>
[[nodiscard]] int getGhostReductionIndex(const std::vector<Frame>& frames)
{
    const auto marked =
        std::find_if(frames.begin(), frames.end(), [](const Frame& frame) { return frame.isGhostReference; });
    return static_cast<int>(marked == frames.end() ? frames.size() / 2
                                                   : static_cast<std::size_t>(marked - frames.begin()));
}

} // namespace orvo
