/// Mirrored coordinates.
#pragma once

namespace orvo::detail {

/// The sample of 0..size-1 at `position` when the row continues with mirror images of itself, the edge sample repeated
/// (c b a | a b c | c b a). `size` is at least 1; any position.
[[nodiscard]] constexpr int mirrored(int position, int size)
{
    const int period = 2 * size;
    int inside = position % period;
    inside = inside < 0 ? inside + period : inside;
    return inside < size ? inside : period - 1 - inside;
}

} // namespace orvo::detail
