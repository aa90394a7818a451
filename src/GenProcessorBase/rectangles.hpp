/// Rectangles on a canvas.
#pragma once

#include <orvo_core/geometry.hpp>

#include <algorithm>
#include <cstdint>

namespace orvo {

/// The intersection; (0, 0, 0, 0) if it is less than a pixel wide or high. Handles any values without overflow.
[[nodiscard]] inline _Rect<int> intersected(const _Rect<int>& a, const _Rect<int>& b)
{
    const auto end = [](int start, int length) { return std::int64_t{start} + length; };
    const int left = std::max(a.x, b.x);
    const int top = std::max(a.y, b.y);
    const std::int64_t width = std::min(end(a.x, a.width), end(b.x, b.width)) - left;
    const std::int64_t height = std::min(end(a.y, a.height), end(b.y, b.height)) - top;
    if (width < 1 || height < 1)
        return {};
    return {left, top, static_cast<int>(width), static_cast<int>(height)};
}

[[nodiscard]] inline _Rect<int> inset(const _Rect<int>& rect, int margin)
{
    return {rect.x + margin, rect.y + margin, rect.width - 2 * margin, rect.height - 2 * margin};
}

} // namespace orvo
