#include "bracket/compute_mask.hpp"

#include <orvo_core/luma.hpp>
#include <orvo_core/parallel.hpp>
#include <orvo_image_processing/fast_blur.hpp>
#include <orvo_image_processing/local_laplacian.hpp>

#include <algorithm>
#include <cmath>
#include <cstring>

namespace orvo {
namespace {

constexpr float kInverseWhite = 3.0518509e-05f; // 1 / grfx::kGray16White

// The local Laplacian filter: detail reduced to a quarter, no floor, nine intensity samples, and edges above half of
// the scale.
constexpr float kDetail = -2.0f;
constexpr float kFloor = 0.0f;
constexpr int kIntensitySamples = 9;
constexpr float kEdgeThreshold = 0.5f;

// Hides the steps of the doubled plane.
constexpr int kSmoothRadius = 1;

std::int16_t quantised(float mean)
{
    const float limited = mean > 0.0f ? std::min(mean, 1.0f) : 0.0f; // also maps NaN to 0
    return static_cast<std::int16_t>(limited * grfx::kGray16White);
}

// The source positions that a target cell covers, and the covered shares of the first and the last.
struct Span
{
    int first;
    int end; // one past the last
    float firstShare;
    float lastShare;

    [[nodiscard]] float share(int i) const
    {
        if (i == first)
            return firstShare;
        return i == end - 1 ? lastShare : 1.0f;
    }
};

Span spanOf(int cell, int sourceSize, int targetSize)
{
    const float ratio = static_cast<float>(sourceSize) / static_cast<float>(targetSize);
    const float start = static_cast<float>(cell) * ratio;
    const float stop = static_cast<float>(cell + 1) * ratio;
    Span span{};
    span.first = static_cast<int>(std::floor(start));
    span.end = std::min(static_cast<int>(std::ceil(stop)), sourceSize);
    span.firstShare = std::floor(start) + 1.0f - start;
    // A cell that ends on a border covers its last pixel in full, and so does the last cell, whose computed end may be
    // slightly outside the picture.
    const float lastShare = stop - std::floor(stop);
    span.lastShare = lastShare > 0.0f && stop < static_cast<float>(sourceSize) ? lastShare : 1.0f;
    return span;
}

std::vector<Span> spansOf(int sourceSize, int targetSize)
{
    std::vector<Span> spans(static_cast<std::size_t>(targetSize));
    for (int cell = 0; cell < targetSize; ++cell)
        spans[static_cast<std::size_t>(cell)] = spanOf(cell, sourceSize, targetSize);
    return spans;
}

// Exactly twice the size in both directions: each cell is the mean of four pixels.
void halveRow(const PixelRGB<float>* upper, const PixelRGB<float>* lower, std::int16_t* target, int targetWidth)
{
    for (int x = 0; x < targetWidth; ++x) {
        const std::ptrdiff_t left = std::ptrdiff_t{2} * x;
        const float sum =
            luma601(upper[left]) + luma601(upper[left + 1]) + luma601(lower[left]) + luma601(lower[left + 1]);
        target[x] = quantised(sum * 0.25f);
    }
}

// `pixels` begins at row `firstRow` of the picture.
void averageRow(const PixelRGB<float>* pixels, int firstRow, int width, const Span& rows,
                const std::vector<Span>& columns, std::int16_t* target)
{
    for (std::size_t x = 0; x < columns.size(); ++x) {
        float sum = 0.0f;
        float weights = 0.0f;
        for (int sy = rows.first; sy < rows.end; ++sy) {
            const PixelRGB<float>* const row = pixels + static_cast<std::ptrdiff_t>(sy - firstRow) * width;
            for (int sx = columns[x].first; sx < columns[x].end; ++sx) {
                const float weight = rows.share(sy) * columns[x].share(sx);
                sum += weight * luma601(row[sx]);
                weights += weight;
            }
        }
        target[x] = quantised(sum / weights);
    }
}

void downsample(RungPixels& pixels, std::int16_t* target, int targetWidth, int targetHeight)
{
    const int width = pixels.width();
    const bool isHalf = width == 2 * targetWidth && pixels.height() == 2 * targetHeight;
    const std::vector<Span> rows = spansOf(pixels.height(), targetHeight);
    const std::vector<Span> columns = spansOf(width, targetWidth);
    const int band = pixels.bandRows();
    for (int top = 0; top < targetHeight; top += band) {
        const int bottom = std::min(top + band, targetHeight);
        const int firstRow = rows[static_cast<std::size_t>(top)].first;
        const PixelRGB<float>* const source = pixels.rows(firstRow, rows[static_cast<std::size_t>(bottom - 1)].end);
        forEachRow(bottom - top, [&](int i) {
            const int y = top + i;
            std::int16_t* const row = target + static_cast<std::ptrdiff_t>(y) * targetWidth;
            if (isHalf) {
                const PixelRGB<float>* const upper = source + static_cast<std::ptrdiff_t>(2 * y - firstRow) * width;
                halveRow(upper, upper + width, row, targetWidth);
            } else {
                averageRow(source, firstRow, width, rows[static_cast<std::size_t>(y)], columns, row);
            }
        });
    }
}

} // namespace

void downsample_area(const PixelRGB<float>* pixels, int width, int height, std::int16_t* target, int targetWidth,
                     int targetHeight)
{
    RungPixels plain(pixels, width, height);
    downsample(plain, target, targetWidth, targetHeight);
}

void upsample_near(const float* source, int sourceWidth, int sourceHeight, float* target, int width, int height)
{
    std::vector<int> columns(static_cast<std::size_t>(width));
    for (int x = 0; x < width; ++x)
        columns[static_cast<std::size_t>(x)] = static_cast<int>(static_cast<std::int64_t>(x) * sourceWidth / width);
    forEachRow(height, [&](int y) {
        const auto sourceY = static_cast<std::ptrdiff_t>(static_cast<std::int64_t>(y) * sourceHeight / height);
        const float* const from = source + sourceY * sourceWidth;
        float* const to = target + static_cast<std::ptrdiff_t>(y) * width;
        for (int x = 0; x < width; ++x)
            to[x] = from[columns[static_cast<std::size_t>(x)]];
    });
}

std::vector<float, ManagedAllocator<float>> computeMask(const PixelRGB<float>* pixels, int width, int height,
                                                        float weight)
{
    RungPixels plain(pixels, width, height);
    return computeMask(plain, weight);
}

std::vector<float, ManagedAllocator<float>> computeMask(RungPixels& pixels, float weight)
{
    const int width = pixels.width();
    const int height = pixels.height();
    const std::size_t count = static_cast<std::size_t>(width) * static_cast<std::size_t>(height);
    if (count == 0)
        return {};
    // A picture one pixel wide or high cannot be halved; it is used as it is.
    const int halfWidth = std::max(width / 2, 1);
    const int halfHeight = std::max(height / 2, 1);
    const std::size_t halfCount = static_cast<std::size_t>(halfWidth) * static_cast<std::size_t>(halfHeight);
    const ManagedPlane<float> plane(count, true);
    {
        const ManagedPlane<std::int16_t> gray(halfCount, true);
        downsample(pixels, gray.data(), halfWidth, halfHeight);
        grfx::local_laplacian_gray16(gray.data(), halfWidth, halfHeight, halfWidth, kDetail, kFloor, kIntensitySamples,
                                     kEdgeThreshold, 1.0f - weight);
        forEachRange(halfCount, [&](std::size_t first, std::size_t last) {
            for (std::size_t p = first; p < last; ++p)
                plane[p] = static_cast<float>(gray[p]) * kInverseWhite;
        });
    }
    std::vector<float, ManagedAllocator<float>> result(
        count); // allocated after the filter has freed its scratch memory
    upsample_near(plane.data(), halfWidth, halfHeight, result.data(), width, height);
    grfx_fast_blur_gray(plane.data(), result.data(), width, height, kSmoothRadius);
    grfx_fast_blur_gray(result.data(), plane.data(), width, height, kSmoothRadius);
    return result;
}

} // namespace orvo
