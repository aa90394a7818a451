#include "bracket/compute_mask.hpp"

#include <orvo_core/detail/vector_code.hpp>
#include <orvo_core/luma.hpp>
#include <orvo_core/parallel.hpp>
#include <orvo_image_processing/fast_blur.hpp>
#include <orvo_image_processing/local_laplacian.hpp>

#include <algorithm>
#include <cmath>

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
// Rows on either side of a band that its two blurs read.
constexpr int kHalo = 2 * kSmoothRadius;

// Rows of cells that share the source rows between them: a curve is applied once to each, and they stay in the cache.
constexpr int kRowsTogether = 4;

ORVO_INLINE std::int16_t quantised(float mean)
{
    const float positive = mean > 0.0f ? mean : 0.0f; // also maps NaN to 0
    const float limited = positive < 1.0f ? positive : 1.0f;
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
ORVO_VECTOR_CLONES void halveRow(const PixelRGB<float>* __restrict upper, const PixelRGB<float>* __restrict lower,
                                 std::int16_t* __restrict target, int targetWidth)
{
    constexpr int kCells = 64; // at a time, by steps that vectorise
    float lumaAbove[2 * kCells];
    float lumaBelow[2 * kCells];
    for (int first = 0; first < targetWidth; first += kCells) {
        const int cells = std::min(kCells, targetWidth - first);
        const PixelRGB<float>* const above = upper + std::ptrdiff_t{2} * first;
        const PixelRGB<float>* const below = lower + std::ptrdiff_t{2} * first;
        for (int i = 0; i < 2 * cells; ++i) {
            lumaAbove[i] = luma601(above[i]);
            lumaBelow[i] = luma601(below[i]);
        }
        for (int x = 0; x < cells; ++x) {
            const float sum = lumaAbove[2 * x] + lumaAbove[2 * x + 1] + lumaBelow[2 * x] + lumaBelow[2 * x + 1];
            target[first + x] = quantised(sum * 0.25f);
        }
    }
}

ORVO_VECTOR_CLONES void doubleRow(const float* __restrict source, float* __restrict target, int width)
{
    for (int x = 0; x < width; ++x)
        target[2 * x] = target[2 * x + 1] = source[x];
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

// The highest number of source rows of `count` cells in a row.
int mostRows(const std::vector<Span>& rows, std::size_t count)
{
    int most = 0;
    for (std::size_t first = 0; first < rows.size(); ++first)
        most = std::max(most, rows[std::min(first + count, rows.size()) - 1].end - rows[first].first);
    return most;
}

void downsample(const RungPixels& pixels, std::int16_t* target, int targetWidth, int targetHeight)
{
    const int width = pixels.width();
    const bool isHalf = width == 2 * targetWidth && pixels.height() == 2 * targetHeight;
    const std::vector<Span> rows = spansOf(pixels.height(), targetHeight);
    const std::vector<Span> columns = spansOf(width, targetWidth);
    const auto most = static_cast<std::size_t>(mostRows(rows, static_cast<std::size_t>(kRowsTogether)));
    const auto makeRow = [&](int y, const PixelRGB<float>* source, int firstRow) {
        std::int16_t* const row = target + static_cast<std::ptrdiff_t>(y) * targetWidth;
        if (isHalf) {
            const PixelRGB<float>* const upper = source + static_cast<std::ptrdiff_t>(2 * y - firstRow) * width;
            halveRow(upper, upper + width, row, targetWidth);
        } else {
            averageRow(source, firstRow, width, rows[static_cast<std::size_t>(y)], columns, row);
        }
    };
    const int bands = (targetHeight + kRowsTogether - 1) / kRowsTogether;
    parallelFor(tbb::blocked_range<int>(0, bands), [&](const tbb::blocked_range<int>& range) {
        const ManagedPlane<PixelRGB<float>> scratch(most * static_cast<std::size_t>(width));
        for (int band = range.begin(); band != range.end(); ++band) {
            const int top = band * kRowsTogether;
            const int bottom = std::min(top + kRowsTogether, targetHeight);
            const int firstRow = rows[static_cast<std::size_t>(top)].first;
            const PixelRGB<float>* const source =
                pixels.rows(firstRow, rows[static_cast<std::size_t>(bottom - 1)].end, scratch.data());
            for (int y = top; y < bottom; ++y)
                makeRow(y, source, firstRow);
        }
    });
}

} // namespace

void downsample_area(const PixelRGB<float>* pixels, int width, int height, std::int16_t* target, int targetWidth,
                     int targetHeight)
{
    downsample(RungPixels(pixels, width, height), target, targetWidth, targetHeight);
}

void upsample_near(const float* source, int sourceWidth, int sourceHeight, float* target, int width, int height,
                   int firstRow, int endRow)
{
    std::vector<int> columns(static_cast<std::size_t>(width));
    for (int x = 0; x < width; ++x)
        columns[static_cast<std::size_t>(x)] = static_cast<int>(static_cast<std::int64_t>(x) * sourceWidth / width);
    forEachRow(endRow - firstRow, [&](int i) {
        const auto sourceY =
            static_cast<std::ptrdiff_t>(static_cast<std::int64_t>(firstRow + i) * sourceHeight / height);
        const float* const from = source + sourceY * sourceWidth;
        float* const to = target + static_cast<std::ptrdiff_t>(i) * width;
        if (width == 2 * sourceWidth)
            doubleRow(from, to, sourceWidth);
        else
            for (int x = 0; x < width; ++x)
                to[x] = from[columns[static_cast<std::size_t>(x)]];
    });
}

// A picture one pixel wide or high cannot be halved; it is used as it is.
BlendMask::BlendMask(const RungPixels& pixels, float weight)
    : width(pixels.width()), height(pixels.height()), halfWidth(std::max(width / 2, 1)),
      halfHeight(std::max(height / 2, 1)), half(filtered(pixels, weight)),
      doubled(static_cast<std::size_t>(width) * static_cast<std::size_t>(std::min(kBandRows + 2 * kHalo, height))),
      blurred(static_cast<std::size_t>(width) * static_cast<std::size_t>(std::min(kBandRows + 2 * kHalo, height)))
{}

ManagedPlane<float> BlendMask::filtered(const RungPixels& pixels, float weight) const
{
    const std::size_t count = static_cast<std::size_t>(halfWidth) * static_cast<std::size_t>(halfHeight);
    const ManagedPlane<std::int16_t> gray(count);
    downsample(pixels, gray.data(), halfWidth, halfHeight);
    grfx::local_laplacian_gray16(gray.data(), halfWidth, halfHeight, halfWidth, kDetail, kFloor, kIntensitySamples,
                                 kEdgeThreshold, 1.0f - weight);
    ManagedPlane<float> plane(count); // allocated after the filter has freed its scratch memory
    forEachRange(count, [&](std::size_t first, std::size_t last) {
        for (std::size_t p = first; p < last; ++p)
            plane[p] = static_cast<float>(gray[p]) * kInverseWhite;
    });
    return plane;
}

// The rows at the ends of a band that is not at an end of the picture are wrong after the blurs, which see no row
// beyond it: one after the first blur, two after the second.
const float* BlendMask::rows(int first, int end)
{
    const int top = std::max(first - kHalo, 0);
    const int bottom = std::min(end + kHalo, height);
    upsample_near(half.data(), halfWidth, halfHeight, doubled.data(), width, height, top, bottom);
    grfx_fast_blur_gray(blurred.data(), doubled.data(), width, bottom - top, kSmoothRadius);
    grfx_fast_blur_gray(doubled.data(), blurred.data(), width, bottom - top, kSmoothRadius);
    return doubled.data() + static_cast<std::ptrdiff_t>(first - top) * width;
}

std::vector<float, ManagedAllocator<float>> computeMask(const PixelRGB<float>* pixels, int width, int height,
                                                        float weight)
{
    return computeMask(RungPixels(pixels, width, height), weight);
}

std::vector<float, ManagedAllocator<float>> computeMask(const RungPixels& pixels, float weight)
{
    const auto width = static_cast<std::size_t>(pixels.width());
    const int height = pixels.height();
    std::vector<float, ManagedAllocator<float>> result(width * static_cast<std::size_t>(height));
    if (result.empty())
        return result;
    BlendMask mask(pixels, weight);
    for (int top = 0; top < height; top += BlendMask::kBandRows) {
        const int bottom = std::min(top + BlendMask::kBandRows, height);
        std::copy_n(mask.rows(top, bottom), static_cast<std::size_t>(bottom - top) * width,
                    result.data() + static_cast<std::size_t>(top) * width);
    }
    return result;
}

} // namespace orvo
