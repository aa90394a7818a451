/// The number of bands in which the pictures of a panorama are blended.
#pragma once

#include <algorithm>
#include <cmath>
#include <optional>

namespace orvo {

/// For pictures blended over `width` output pixels; empty below 1: the pictures are then cut without blending.
[[nodiscard]] inline std::optional<int> blendBands(double width)
{
    constexpr int kMost = 9;
    if (!(width >= 1.0))
        return std::nullopt;
    // A width of exactly 1 would give -1 bands, which the blender does not expect.
    return std::clamp(static_cast<int>(std::ceil(std::log(width) / std::log(2.0)) - 1.0), 0, kMost);
}

} // namespace orvo
