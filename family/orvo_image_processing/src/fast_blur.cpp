#include "mirror.hpp"

#include <orvo_common/memory_manager.hpp>
#include <orvo_core/detail/vector_code.hpp>
#include <orvo_core/parallel.hpp>
#include <orvo_image_processing/fast_blur.hpp>

#include <algorithm>
#include <cstring>

namespace orvo {

namespace {

using detail::mirrored;

// Rows that share one start of their sums. A start costs 2 radius + 1 rows, so a band is at least four times as high as
// the radius; 128 keeps that cost small at the usual radius of 10 and still feeds many workers.
constexpr int kBandRows = 128;
constexpr int kBandRadii = 4;
// Rows whose running sums along the row advance together: the sum of one row waits for its own last addition, those of
// several rows overlap.
constexpr int kTogether = 4;
// Radius in sides of the picture beyond which a triangle over mirror images equals a flat kernel.
constexpr int kFlatSides = 8;

const float* rowAt(const float* plane, int width, int height, int y)
{
    return plane + static_cast<std::ptrdiff_t>(mirrored(y, height)) * width;
}

// ---- radius 1: weights 1 2 1 ----

ORVO_VECTOR_CLONES void column121(float* out, const float* above, const float* middle, const float* below, int width)
{
    for (int x = 0; x < width; ++x)
        out[x] = ((above[x] + below[x]) + 2.0f * middle[x]) * (1.0f / 16);
}

/// `in` has one readable sample more on each side.
ORVO_VECTOR_CLONES void row121(float* __restrict out, const float* __restrict in, int width)
{
    for (int x = 0; x < width; ++x)
        out[x] = (in[x - 1] + in[x + 1]) + 2.0f * in[x];
}

void blurRadiusOne(float* dst, const float* src, int width, int height)
{
    const auto stride = static_cast<std::size_t>(width);
    parallelFor(tbb::blocked_range<int>(0, height, 8), [&](const tbb::blocked_range<int>& rows) {
        const ManagedPlane<float> line(stride + 2);
        float* const middle = line.data() + 1;
        for (int y = rows.begin(); y != rows.end(); ++y) {
            column121(middle, rowAt(src, width, height, y - 1), rowAt(src, width, height, y),
                      rowAt(src, width, height, y + 1), width);
            middle[-1] = middle[0];
            middle[width] = middle[width - 1];
            row121(dst + static_cast<std::ptrdiff_t>(y) * width, middle, width);
        }
    });
}

// ---- any radius ----

// out(y+1) = out(y) + rise(y), rise(y+1) = rise(y) + in(y+r+2) - 2 in(y+1) + in(y-r): the second difference of a
// triangle has only three taps. Sums are in double: over a band their error stays below one rounding of a float.

ORVO_VECTOR_CLONES void addWeighted(double* __restrict sum, const float* __restrict in, double weight, int width)
{
    for (int x = 0; x < width; ++x)
        sum[x] += weight * static_cast<double>(in[x]);
}

/// Writes the current sums and advances by one row.
ORVO_VECTOR_CLONES void advanceColumns(float* __restrict out, double* __restrict sum, double* __restrict rise,
                                       const float* __restrict entering, const float* __restrict turning,
                                       const float* __restrict leaving, double scale, int width)
{
    for (int x = 0; x < width; ++x) {
        out[x] = static_cast<float>(sum[x] * scale);
        sum[x] += rise[x];
        rise[x] += (static_cast<double>(entering[x]) - static_cast<double>(turning[x])) +
                   (static_cast<double>(leaving[x]) - static_cast<double>(turning[x]));
    }
}

/// The same along kTogether rows, each with radius + 2 readable samples on both sides.
ORVO_VECTOR_CLONES void blurRowsAlong(float* const* out, const float* const* in, int width, int radius, double scale)
{
    double sum[kTogether];
    double rise[kTogether];
    const float* from[kTogether];
    float* to[kTogether];
    for (int k = 0; k < kTogether; ++k) {
        from[k] = in[k];
        to[k] = out[k];
        sum[k] = 0.0;
        rise[k] = 0.0;
        for (int i = -radius; i <= radius; ++i)
            sum[k] += static_cast<double>(radius + 1 - std::abs(i)) * static_cast<double>(from[k][i]);
        for (int i = 0; i <= radius; ++i)
            rise[k] += static_cast<double>(from[k][i + 1]) - static_cast<double>(from[k][-i]);
    }
    for (int x = 0; x < width; ++x) {
        for (int k = 0; k < kTogether; ++k) {
            to[k][x] = static_cast<float>(sum[k] * scale);
            sum[k] += rise[k];
            const auto turning = static_cast<double>(from[k][x + 1]);
            rise[k] += (static_cast<double>(from[k][x + radius + 2]) - turning) +
                       (static_cast<double>(from[k][x - radius]) - turning);
        }
    }
}

void mirrorEnds(float* row, int width, int pad)
{
    for (int i = 1; i <= pad; ++i) {
        row[-i] = row[mirrored(-i, width)];
        row[width - 1 + i] = row[mirrored(width - 1 + i, width)];
    }
}

class Blur
{
public:
    Blur(float* dst_, const float* src_, int width_, int height_, int radius)
        : dst(dst_), src(src_), width(width_), height(height_), radiusX(std::min(radius, kFlatSides * width_)),
          radiusY(std::min(radius, kFlatSides * height_)), pad(radiusX + 2)
    {}

    void band(int first, int last) const
    {
        const auto columns = static_cast<std::size_t>(width);
        const std::size_t padded = columns + 2 * static_cast<std::size_t>(pad);
        const ManagedPlane<double> sums(2 * columns, true);
        const ManagedPlane<float> lines(kTogether * padded, true);
        double* const sum = sums.data();
        double* const rise = sum + columns;
        start(sum, rise, first);
        float* line[kTogether];
        for (int k = 0; k < kTogether; ++k)
            line[k] = lines.data() + static_cast<std::size_t>(k) * padded + pad;
        const ManagedPlane<float> unused(columns); // output for the rows past the end of the band
        for (int y = first; y < last; y += kTogether) {
            float* out[kTogether];
            for (int k = 0; k < kTogether; ++k) {
                out[k] = unused.data();
                if (y + k >= last)
                    continue;
                out[k] = dst + static_cast<std::ptrdiff_t>(y + k) * width;
                step(line[k], sum, rise, y + k);
                mirrorEnds(line[k], width, pad);
            }
            blurRowsAlong(out, line, width, radiusX, scaleOf(radiusX));
        }
    }

private:
    static double scaleOf(int radius)
    {
        return 1.0 / (static_cast<double>(radius + 1) * static_cast<double>(radius + 1));
    }
    const float* row(int y) const { return rowAt(src, width, height, y); }

    void start(double* sum, double* rise, int y) const
    {
        for (int i = -radiusY; i <= radiusY; ++i)
            addWeighted(sum, row(y + i), static_cast<double>(radiusY + 1 - std::abs(i)), width);
        for (int i = 0; i <= radiusY; ++i) {
            addWeighted(rise, row(y + i + 1), 1.0, width);
            addWeighted(rise, row(y - i), -1.0, width);
        }
    }

    void step(float* out, double* sum, double* rise, int y) const
    {
        advanceColumns(out, sum, rise, row(y + radiusY + 2), row(y + 1), row(y - radiusY), scaleOf(radiusY), width);
    }

    float* dst;
    const float* src;
    int width, height, radiusX, radiusY, pad;
};

} // namespace

void grfx_fast_blur_gray(float* dst, const float* src, int width, int height, int radius)
{
    if (width <= 0 || height <= 0)
        return;
    const auto count = static_cast<std::size_t>(width) * static_cast<std::size_t>(height);
    if (radius <= 0) {
        forEachRange(count, [&](std::size_t first, std::size_t last) {
            std::memcpy(dst + first, src + first, (last - first) * sizeof(float));
        });
        return;
    }
    if (radius == 1) {
        blurRadiusOne(dst, src, width, height);
        return;
    }
    const Blur blur(dst, src, width, height, radius);
    const int bandRows = std::max(kBandRows, kBandRadii * std::min(radius, height));
    const int bands = (height + bandRows - 1) / bandRows;
    forEachRow(bands, [&](int band) { blur.band(band * bandRows, std::min(height, (band + 1) * bandRows)); });
}

} // namespace orvo
