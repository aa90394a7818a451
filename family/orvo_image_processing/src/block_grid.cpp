#include "block_grid.hpp"

#include <orvo_common/memory_manager.hpp>
#include <orvo_core/detail/vector_code.hpp>
#include <orvo_core/parallel.hpp>

#include <algorithm>
#include <cstring>
#include <vector>

namespace orvo::detail {

namespace {

// Columns summed together: a cache line of floats.
constexpr int kStrip = 16;

/// The positions of the two ends of a block's window in running sums.
struct Window
{
    int lowBlock, highBlock;
    double lowPart, highPart; // share of these blocks that is before the end
    double scale;             // 1 / pixels of the window
};

std::vector<Window> windowsOf(const BlockAxis& axis, float radius)
{
    const auto partOf = [&](double position, int& block) {
        block = std::clamp(static_cast<int>(position / axis.side), 0, axis.count - 1);
        const int pixels = axis.last(block) - axis.first(block);
        return (position - axis.first(block)) / pixels;
    };
    std::vector<Window> windows(static_cast<std::size_t>(axis.count));
    for (int i = 0; i < axis.count; ++i) {
        // In pixel borders: pixel x extends from x to x + 1.
        const double centre = 0.5 * (axis.first(i) + axis.last(i));
        const double low = std::max(0.0, centre - static_cast<double>(radius) - 0.5);
        const double high = std::min(static_cast<double>(axis.size), centre + static_cast<double>(radius) + 0.5);
        Window& window = windows[static_cast<std::size_t>(i)];
        window.lowPart = partOf(low, window.lowBlock);
        window.highPart = partOf(high, window.highBlock);
        window.scale = 1.0 / (high - low);
    }
    return windows;
}

/// `sums` has count + 1 running sums, the first of them 0.
double meanOf(const Window& w, const double* sums)
{
    const double low = sums[w.lowBlock] + w.lowPart * (sums[w.lowBlock + 1] - sums[w.lowBlock]);
    const double high = sums[w.highBlock] + w.highPart * (sums[w.highBlock + 1] - sums[w.highBlock]);
    return (high - low) * w.scale;
}

void meansAlongRow(float* row, const std::vector<Window>& windows, double* sums)
{
    const std::size_t count = windows.size();
    sums[0] = 0.0;
    for (std::size_t i = 0; i < count; ++i)
        sums[i + 1] = sums[i] + static_cast<double>(row[i]);
    for (std::size_t i = 0; i < count; ++i)
        row[i] = static_cast<float>(meanOf(windows[i], sums));
}

/// `plane` points at the strip's first column; `sums` has (rows + 1) x kStrip values.
ORVO_VECTOR_CLONES void meansDownStrip(float* plane, std::size_t stride, int width, const Window* windows,
                                       std::size_t rows, double* __restrict sums)
{
    for (int x = 0; x < kStrip; ++x)
        sums[x] = 0.0;
    for (std::size_t y = 0; y < rows; ++y) {
        const float* const in = plane + y * stride;
        for (int x = 0; x < width; ++x)
            sums[(y + 1) * kStrip + static_cast<std::size_t>(x)] =
                sums[y * kStrip + static_cast<std::size_t>(x)] + static_cast<double>(in[x]);
    }
    for (std::size_t y = 0; y < rows; ++y) {
        const Window w = windows[y];
        const double* const low = sums + static_cast<std::size_t>(w.lowBlock) * kStrip;
        const double* const high = sums + static_cast<std::size_t>(w.highBlock) * kStrip;
        float* const out = plane + y * stride;
        for (int x = 0; x < width; ++x) {
            const double from = low[x] + w.lowPart * (low[x + kStrip] - low[x]);
            const double to = high[x] + w.highPart * (high[x + kStrip] - high[x]);
            out[x] = static_cast<float>((to - from) * w.scale);
        }
    }
}

} // namespace

int BlockAxis::centresUpTo(int x) const
{
    int block = std::min(count, x / side);
    while (block < count && centre(block) <= static_cast<float>(x))
        ++block;
    return block;
}

void meansOfWindows(float* planes, int planeCount, const BlockAxis& columns, const BlockAxis& rows, float radius)
{
    const auto width = static_cast<std::size_t>(columns.count);
    const auto height = static_cast<std::size_t>(rows.count);
    const std::vector<Window> across = windowsOf(columns, radius);
    const std::vector<Window> down = windowsOf(rows, radius);
    parallelFor(tbb::blocked_range<int>(0, planeCount * rows.count, 16), [&](const tbb::blocked_range<int>& part) {
        const ManagedPlane<double> sums(width + 1);
        for (int row = part.begin(); row != part.end(); ++row)
            meansAlongRow(planes + static_cast<std::size_t>(row) * width, across, sums.data());
    });
    const int strips = (columns.count + kStrip - 1) / kStrip;
    forEachRow(planeCount * strips, [&](int index) {
        const ManagedPlane<double> sums((height + 1) * kStrip);
        const int x = (index % strips) * kStrip;
        float* const plane = planes + static_cast<std::size_t>(index / strips) * width * height;
        meansDownStrip(plane + x, width, std::min(kStrip, columns.count - x), down.data(), height, sums.data());
    });
}

} // namespace orvo::detail
