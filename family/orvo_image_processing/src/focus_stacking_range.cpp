#include "focus_stacking_range.hpp"

#include <atomic>
#include <cmath>
#include <limits>

namespace orvo::detail {

namespace {

// Codes of 1/8192: this loses the step of a sixteen-bit picture, keeps an eighth of the step of an eight-bit one, and
// covers four times full scale. The outermost codes mean no limit.
constexpr float kCodesPerUnit = 8192.0f;
constexpr int kCodeOffset = 32768;
constexpr std::int16_t kNoLow = std::numeric_limits<std::int16_t>::min();
constexpr std::int16_t kNoHigh = std::numeric_limits<std::int16_t>::max();

ORVO_VECTOR_CLONES bool allPresent(const float* samples, int count)
{
    int absent = 0;
    for (int i = 0; i < count; ++i)
        absent += std::abs(samples[i]) <= kLargestSample ? 0 : 1; // NaN compares false
    return absent == 0;
}

bool present(const PixelRGB<float>& pixel) { return allPresent(&pixel.r, kChannels); }

/// The code at or below a sample. The next one is above it.
ORVO_INLINE int codeBelow(float sample)
{
    float code = sample * kCodesPerUnit + static_cast<float>(kCodeOffset);
    code = code > 0.0f ? code : 0.0f;
    code = code < 65534.0f ? code : 65534.0f;
    return static_cast<int>(code) - kCodeOffset;
}

ORVO_VECTOR_CLONES void includeSamples(std::int16_t* __restrict low, std::int16_t* __restrict high,
                                       const float* __restrict samples, int count)
{
    for (int i = 0; i < count; ++i) {
        const int code = codeBelow(samples[i]);
        low[i] = static_cast<std::int16_t>(code < low[i] ? code : low[i]);
        high[i] = static_cast<std::int16_t>(code + 1 > high[i] ? code + 1 : high[i]);
    }
}

ORVO_INLINE float limited(float value, std::int16_t low, std::int16_t high)
{
    const float least = low == kNoLow ? -kLargestSample : static_cast<float>(low) * (1.0f / kCodesPerUnit);
    const float most = high == kNoHigh ? kLargestSample : static_cast<float>(high) * (1.0f / kCodesPerUnit);
    // Where nothing was included the range is empty, and the value is kept.
    const float inside = value > most ? most : (value < least ? least : value);
    return low < high ? inside : value;
}

ORVO_VECTOR_CLONES void limitSamples(float* __restrict out, const float* __restrict r, const float* __restrict g,
                                     const float* __restrict b, const std::int16_t* __restrict low,
                                     const std::int16_t* __restrict high, int width)
{
    for (int x = 0; x < width; ++x) {
        out[3 * x] = limited(r[x], low[3 * x], high[3 * x]);
        out[3 * x + 1] = limited(g[x], low[3 * x + 1], high[3 * x + 1]);
        out[3 * x + 2] = limited(b[x], low[3 * x + 2], high[3 * x + 2]);
    }
}

void fillRow(PixelRGB<float>* out, float* absent, const PixelRGB<float>* in, int width)
{
    PixelRGB<float> last{};
    for (int x = 0; x < width; ++x)
        if (present(in[x])) {
            last = in[x];
            break;
        }
    for (int x = 0; x < width; ++x) {
        const bool here = present(in[x]);
        absent[x] = here ? 0.0f : 1.0f;
        if (here)
            last = in[x];
        out[x] = last;
    }
}

std::size_t at(int y, int width) { return static_cast<std::size_t>(y) * static_cast<std::size_t>(width); }

} // namespace

FilledFrame fillAbsent(const PixelRGB<float>* pixels, LevelExtent extent)
{
    FilledFrame filled{ManagedPlane<PixelRGB<float>>(extent.pixels()), Level(extent, 1)};
    forEachRow(extent.height, [&](int y) {
        fillRow(&filled.pixels[at(y, extent.width)], filled.absent.row(0, y), &pixels[at(y, extent.width)],
                extent.width);
    });
    return filled;
}

SampleRange::SampleRange(LevelExtent extent_)
    : extent(extent_), low(kChannels * extent_.pixels()), high(kChannels * extent_.pixels())
{
    forEachRange(kChannels * extent.pixels(), [&](std::size_t first, std::size_t last) {
        std::fill(low.data() + first, low.data() + last, kNoHigh);
        std::fill(high.data() + first, high.data() + last, kNoLow);
    });
}

bool SampleRange::include(const PixelRGB<float>* pixels)
{
    std::atomic<bool> complete = true;
    forEachRow(extent.height, [&](int y) {
        const std::size_t start = at(y, extent.width);
        if (allPresent(&pixels[start].r, kChannels * extent.width)) {
            includeSamples(&low[kChannels * start], &high[kChannels * start], &pixels[start].r,
                           kChannels * extent.width);
            return;
        }
        complete = false;
        for (std::size_t i = start; i < start + static_cast<std::size_t>(extent.width); ++i)
            if (present(pixels[i]))
                includeSamples(&low[kChannels * i], &high[kChannels * i], &pixels[i].r, kChannels);
    });
    return complete;
}

void SampleRange::limitRow(PixelRGB<float>* out, const float* r, const float* g, const float* b, int y) const
{
    const std::size_t start = kChannels * at(y, extent.width);
    limitSamples(&out->r, r, g, b, &low[start], &high[start], extent.width);
}

} // namespace orvo::detail
