/// Runs of pictures that show the same view.
#pragma once

#include "grouping/shots.hpp"

#include <cstddef>
#include <vector>

namespace orvo {

/// Neighbours [begin, end) of Shots.
struct Run
{
    std::size_t begin = 0;
    std::size_t end = 0;

    [[nodiscard]] std::size_t size() const { return end - begin; }
    bool operator==(const Run&) const = default;
};

/// All shots in order, cut wherever the view, the size, the focal length or the sequence changes, or a long time
/// passes.
[[nodiscard]] std::vector<Run> runsOfSameFraming(Shots& shots);

/// Whether two focal lengths are one, as far as they are known.
[[nodiscard]] bool isSameFocalLength(const PictureFacts& a, const PictureFacts& b);

} // namespace orvo
