/// The range of map values, and the bounding box of the pixels that map into a picture.
#pragma once

#include <opencv2/core/types.hpp>

#include <algorithm>
#include <limits>
#include <vector>

namespace orvo {

/// Least and greatest value, ignoring NaN.
struct Span
{
    float low = std::numeric_limits<float>::max();
    float high = std::numeric_limits<float>::lowest();

    void take(float value)
    {
        low = value < low ? value : low;
        high = value > high ? value : high;
    }
    void take(const Span& other)
    {
        low = std::min(low, other.low);
        high = std::max(high, other.high);
    }
    [[nodiscard]] bool isEmpty() const { return low > high; }
};

/// The first and the last column of a row of maps that map into the picture; first above last if none does.
struct ColumnRange
{
    int first = std::numeric_limits<int>::max();
    int last = std::numeric_limits<int>::min();
};

/// The columns whose point (x, y) is inside a picture of `size`.
[[nodiscard]] inline ColumnRange columnsInside(const float* x, const float* y, int count, const cv::Size& size)
{
    const auto width = static_cast<float>(size.width);
    const auto height = static_cast<float>(size.height);
    const auto isInside = [&](int i) { return x[i] >= 0.0f && x[i] < width && y[i] >= 0.0f && y[i] < height; };
    int first = 0;
    while (first < count && !isInside(first))
        ++first;
    if (first == count)
        return {};
    int last = count - 1;
    while (!isInside(last))
        --last;
    return {first, last};
}

/// The box of all rows; empty if none maps into the picture.
[[nodiscard]] inline cv::Rect boxOf(const std::vector<ColumnRange>& rows)
{
    ColumnRange columns;
    int top = -1;
    int bottom = -1;
    for (int r = 0; r < static_cast<int>(rows.size()); ++r) {
        const ColumnRange& row = rows[static_cast<std::size_t>(r)];
        if (row.first > row.last)
            continue;
        columns.first = std::min(columns.first, row.first);
        columns.last = std::max(columns.last, row.last);
        top = top < 0 ? r : top;
        bottom = r;
    }
    if (top < 0)
        return {};
    return {columns.first, top, columns.last - columns.first + 1, bottom - top + 1};
}

} // namespace orvo
