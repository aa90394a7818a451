#include "pyramid.hpp"

#include <orvo_common/memory_manager.hpp>
#include <orvo_core/detail/vector_code.hpp>
#include <orvo_core/parallel.hpp>
#include <orvo_image_processing/local_laplacian.hpp>

#include <algorithm>
#include <cmath>
#include <vector>

namespace orvo::grfx {

namespace {

using detail::halved;
using detail::kRowPad;

constexpr float kDetailLimit = 6.0f; // log2
constexpr float kEdgeGainLimit = 4.0f;
// Smoothing: the share of the return to the plain difference that grows with the difference itself; the rest grows with
// its square. Less keeps more of the detail's range flat, but overshoots at steps by more than 2 percent.
constexpr float kEarlyShare = 0.25f;
constexpr float kSmallestThreshold = 1.0f / 1024;
constexpr int kMostSamples = 256; // more change the result by less than a step of 16 bits
// Rows of a level per task: five rows of the level below overlap with the neighbour's.
constexpr int kBandRows = 16;

/// The curve around one intensity, and its weight at an intensity.
struct Curve
{
    float intensity;
    float threshold;
    float perThreshold;
    float detailGain; // G
    float smoothing;  // 1 - G when detail is smoothed, else 0
    float amplifying; // G - 1 when it is amplified, else 0
    float edgeGain;
    float noiseFloor; // 0: none
    float perNoiseFloor;
    float perStep; // samples - 1
};

ORVO_INLINE float remapped(float v, const Curve& c)
{
    const float d = v - c.intensity;
    const float size = d < 0.0f ? -d : d;
    const float inside = size < c.threshold ? size : c.threshold;
    const float x = inside * c.perThreshold;
    const float bent = x * (kEarlyShare + (1.0f - kEarlyShare) * x);
    const float gained = inside * (c.detailGain + c.smoothing * bent) / (1.0f + c.amplifying * x);
    const float s = (size - c.noiseFloor) * c.perNoiseFloor;
    const float limited = s < 1.0f ? (s > 0.0f ? s : 0.0f) : 1.0f;
    const float passage = limited * limited * (3.0f - 2.0f * limited);
    const float detail = inside + (gained - inside) * passage;
    const float changed = detail + (size - inside) * c.edgeGain;
    return c.intensity + (d < 0.0f ? -changed : changed);
}

/// Tent over the distance from the sampled intensity: the weights of all samples add up to 1 at any intensity 0..1.
ORVO_INLINE float weightAt(float intensity, const Curve& c)
{
    const float d = (intensity - c.intensity) * c.perStep;
    const float w = 1.0f - (d < 0.0f ? -d : d);
    return w > 0.0f ? w : 0.0f;
}

ORVO_INLINE float fromSample(std::int16_t sample)
{
    const float v = static_cast<float>(sample) * (1.0f / kGray16White);
    return v > 0.0f ? v : 0.0f;
}

ORVO_VECTOR_CLONES void readRow(float* __restrict out, const std::int16_t* __restrict in, int width)
{
    for (int x = 0; x < width; ++x)
        out[x] = fromSample(in[x]);
}

ORVO_VECTOR_CLONES void remapRow(float* __restrict out, const std::int16_t* __restrict in, int width,
                                 const Curve& curve)
{
    const Curve c = curve;
    for (int x = 0; x < width; ++x)
        out[x] = remapped(fromSample(in[x]), c);
}

/// Adds the detail of the finest level; computes its remapped picture again instead of storing it.
ORVO_VECTOR_CLONES void addFinest(float* __restrict sum, const std::int16_t* __restrict in,
                                  const float* __restrict coarse, int width, const Curve& curve)
{
    const Curve c = curve;
    for (int x = 0; x < width; ++x) {
        const float v = fromSample(in[x]);
        sum[x] += weightAt(v, c) * (remapped(v, c) - coarse[x]);
    }
}

ORVO_VECTOR_CLONES void addLevel(float* __restrict sum, const float* __restrict intensity, const float* __restrict fine,
                                 const float* __restrict coarse, int width, const Curve& curve)
{
    const Curve c = curve;
    for (int x = 0; x < width; ++x)
        sum[x] += weightAt(intensity[x], c) * (fine[x] - coarse[x]);
}

ORVO_VECTOR_CLONES void addRow(float* __restrict sum, const float* __restrict more, int width)
{
    for (int x = 0; x < width; ++x)
        sum[x] += more[x];
}

ORVO_VECTOR_CLONES void writeRow(std::int16_t* __restrict out, const float* __restrict detail,
                                 const float* __restrict coarse, int width)
{
    for (int x = 0; x < width; ++x) {
        const float v = (detail[x] + coarse[x]) * kGray16White + 0.5f;
        const float low = v > 0.0f ? v : 0.0f;
        out[x] = static_cast<std::int16_t>(static_cast<std::int32_t>(low < kGray16White ? low : kGray16White));
    }
}

struct Level
{
    int width, height;
    std::size_t offset; // into a plane with all levels from half size down
    [[nodiscard]] std::size_t at(int y) const
    {
        return offset + static_cast<std::size_t>(y) * static_cast<std::size_t>(width);
    }
};

/// A row with padding beyond both ends.
class PaddedRow
{
public:
    explicit PaddedRow(int width) : plane(static_cast<std::size_t>(width) + 2 * kRowPad + 1) {}
    float* data() const { return plane.data() + kRowPad; }

private:
    ManagedPlane<float> plane;
};

class Filter
{
public:
    Filter(std::int16_t* data_, int width_, int height_, int stride_)
        : data(data_), width(width_), height(height_), stride(stride_)
    {
        int w = width;
        int h = height;
        while (std::max(w, h) > 2) {
            w = halved(w);
            h = halved(h);
            levels.push_back({w, h, coarseCount});
            coarseCount += static_cast<std::size_t>(w) * static_cast<std::size_t>(h);
        }
    }

    void run(Curve curve, int samples)
    {
        if (levels.empty())
            return; // one or two pixels a side: no detail
        const ManagedPlane<float> finest(static_cast<std::size_t>(width) * static_cast<std::size_t>(height), true);
        const ManagedPlane<float> result(coarseCount, true);
        {
            const ManagedPlane<float> input(coarseCount);
            const ManagedPlane<float> changed(coarseCount);
            reduceAll(input.data(), [&](float* out, int y) { readRow(out, row(y), width); });
            for (int k = 0; k < samples; ++k) {
                curve.intensity = static_cast<float>(k) / static_cast<float>(samples - 1);
                reduceAll(changed.data(), [&](float* out, int y) { remapRow(out, row(y), width, curve); });
                addSample(finest.data(), result.data(), input.data(), changed.data(), curve);
            }
            const Level& top = levels.back();
            std::copy_n(input.data() + top.offset,
                        static_cast<std::size_t>(top.width) * static_cast<std::size_t>(top.height),
                        result.data() + top.offset);
        }
        collapse(finest.data(), result.data());
    }

private:
    std::int16_t* row(int y) const { return data + static_cast<std::ptrdiff_t>(y) * stride; }

    /// Builds the pyramid from half size down of a picture whose rows come from `makeRow(out, y)`.
    template <typename MakeRow>
    void reduceAll(float* pyramid, const MakeRow& makeRow) const
    {
        reduceFinest(pyramid, makeRow);
        for (std::size_t i = 1; i < levels.size(); ++i) {
            const Level& from = levels[i - 1];
            const auto at = [&](int y) { return pyramid + from.at(std::clamp(y, 0, from.height - 1)); };
            parallelFor(tbb::blocked_range<int>(0, levels[i].height, kBandRows), [&](const auto& rows) {
                const PaddedRow line(from.width);
                for (int y = rows.begin(); y != rows.end(); ++y) {
                    detail::reduceColumns(line.data(), at(2 * y - 2), at(2 * y - 1), at(2 * y), at(2 * y + 1),
                                          at(2 * y + 2), from.width);
                    detail::padRow(line.data(), from.width);
                    detail::narrowRow(pyramid + levels[i].at(y), line.data(), from.width);
                }
            });
        }
    }

    template <typename MakeRow>
    void reduceFinest(float* pyramid, const MakeRow& makeRow) const
    {
        const Level& to = levels.front();
        const int bands = (to.height + kBandRows - 1) / kBandRows;
        forEachRow(bands, [&](int band) {
            constexpr int kRing = 8; // rows 2y - 2 .. 2y + 2 are needed at a time
            const auto columns = static_cast<std::size_t>(width);
            const ManagedPlane<float> ring(kRing * columns);
            const PaddedRow line(width);
            const int first = band * kBandRows;
            const int last = std::min(to.height, first + kBandRows);
            const auto at = [&](int y) {
                return ring.data() + static_cast<std::size_t>(std::clamp(y, 0, height - 1) % kRing) * columns;
            };
            int made = std::max(0, 2 * first - 2);
            for (int y = first; y < last; ++y) {
                for (; made < height && made <= 2 * y + 2; ++made)
                    makeRow(at(made), made);
                detail::reduceColumns(line.data(), at(2 * y - 2), at(2 * y - 1), at(2 * y), at(2 * y + 1),
                                      at(2 * y + 2), width);
                detail::padRow(line.data(), width);
                detail::narrowRow(pyramid + to.at(y), line.data(), width);
            }
        });
    }

    /// Expands row `y`, of `wide` samples, of a level from the level `from` below it.
    static void expandRow(float* out, float* scratch, const float* pyramid, const Level& from, int y, int wide)
    {
        const auto at = [&](int i) { return pyramid + from.at(std::clamp(i, 0, from.height - 1)); };
        const int middle = y / 2;
        detail::expandColumns(scratch, at(middle - 1), at(middle), at(middle + 1), y % 2 == 0, from.width);
        detail::padRow(scratch, from.width);
        detail::widenRow(out, scratch, wide);
    }

    /// Calls `body(y, expanded)` for every row of a level of the given size; `expanded` is the row from the level
    /// below it.
    template <typename Body>
    static void forEachExpandedRow(int wide, int tall, const float* pyramid, const Level& from, const Body& body)
    {
        parallelFor(tbb::blocked_range<int>(0, tall, kBandRows), [&](const tbb::blocked_range<int>& rows) {
            const PaddedRow expanded(wide);
            const PaddedRow scratch(from.width);
            for (int y = rows.begin(); y != rows.end(); ++y) {
                expandRow(expanded.data(), scratch.data(), pyramid, from, y, wide);
                body(y, expanded.data());
            }
        });
    }

    void addSample(float* finest, float* result, const float* input, const float* changed, const Curve& curve) const
    {
        forEachExpandedRow(width, height, changed, levels.front(), [&](int y, const float* coarse) {
            addFinest(finest + static_cast<std::size_t>(y) * static_cast<std::size_t>(width), row(y), coarse, width,
                      curve);
        });
        for (std::size_t i = 0; i + 1 < levels.size(); ++i) {
            const Level& level = levels[i];
            forEachExpandedRow(level.width, level.height, changed, levels[i + 1], [&](int y, const float* coarse) {
                addLevel(result + level.at(y), input + level.at(y), changed + level.at(y), coarse, level.width, curve);
            });
        }
    }

    void collapse(const float* finest, float* result) const
    {
        for (std::size_t i = levels.size() - 1; i-- > 0;) {
            const Level& level = levels[i];
            forEachExpandedRow(level.width, level.height, result, levels[i + 1],
                               [&](int y, const float* coarse) { addRow(result + level.at(y), coarse, level.width); });
        }
        forEachExpandedRow(width, height, result, levels.front(), [&](int y, const float* coarse) {
            writeRow(row(y), finest + static_cast<std::size_t>(y) * static_cast<std::size_t>(width), coarse, width);
        });
    }

    std::int16_t* data;
    int width, height, stride;
    std::vector<Level> levels;
    std::size_t coarseCount = 0;
};

float sane(float value, float neutral, float low, float high)
{
    return std::isnan(value) ? neutral : std::clamp(value, low, high);
}

} // namespace

void local_laplacian_gray16(std::int16_t* data, int width, int height, int stride, float detail, float floor,
                            int samples, float edgeThreshold, float edgeGain)
{
    if (width <= 0 || height <= 0)
        return;
    const float gain = std::exp2(sane(detail, 0.0f, -kDetailLimit, kDetailLimit));
    const float edges = sane(edgeGain, 1.0f, 0.0f, kEdgeGainLimit);
    if (gain == 1.0f && edges == 1.0f)
        return;
    const int count = std::clamp(samples, 2, kMostSamples);
    Curve curve{};
    curve.threshold = sane(edgeThreshold, 0.5f, kSmallestThreshold, 1.0f);
    curve.perThreshold = 1.0f / curve.threshold;
    curve.detailGain = gain;
    curve.smoothing = std::max(0.0f, 1.0f - gain);
    curve.amplifying = std::max(0.0f, gain - 1.0f);
    curve.edgeGain = edges;
    const float noise = gain > 1.0f ? sane(floor, 0.0f, 0.0f, 1.0f) : 0.0f;
    // Without a floor the transition is complete from the first difference on.
    curve.noiseFloor = noise > 0.0f ? noise : -1.0f;
    curve.perNoiseFloor = noise > 0.0f ? 1.0f / noise : 1.0f;
    curve.perStep = static_cast<float>(count - 1);
    Filter(data, width, height, stride).run(curve, count);
}

} // namespace orvo::grfx
