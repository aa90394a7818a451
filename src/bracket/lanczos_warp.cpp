#include "bracket/lanczos_warp.hpp"

#include "frame/sample_vectors.hpp"

#include <orvo_core/detail/vector_code.hpp>
#include <orvo_core/parallel.hpp>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstring>
#include <numbers>

namespace orvo {
namespace {

using Picture = _ImageData<PixelRGB<float>>;

// Five lobes keep the detail up to nine tenths of what the pixels can hold; three, as usual, lose a visible part.
constexpr int kLobes = 5;
constexpr int kTaps = 2 * kLobes;
constexpr int kBefore = kLobes - 1; // taps before the pixel at the left of the position
constexpr int kChannels = 3;

// Samples of one row under the kernel, and as many as fill whole vectors: one pixel more is read than is used.
constexpr int kRowSamples = kTaps * kChannels;
constexpr int kLanes = 32;
constexpr int kReadPixels = 11;
static_assert(kReadPixels * kChannels >= kLanes && kLanes >= kRowSamples);

// Positions between two pixels for which there are weights: an error of 1/2048 pixel, below a step of 16 bits in all
// but the hardest texture.
constexpr int kPhases = 1024;

// How far a value between two samples may exceed both, as a share of how far they exceed their outer neighbours: a line
// of one pixel that lies between two rows is a good third brighter than either.
constexpr float kPeak = 0.5f;

// Positions are limited to it, so that they fit an int; NaN counts as this far.
constexpr double kFarthest = 1e6;

using Weights = std::array<float, kTaps>;

double sinc(double x)
{
    const double angle = std::numbers::pi * x;
    return x == 0.0 ? 1.0 : std::sin(angle) / angle;
}

// Exactly 0 at the other pixels, so that a shift by whole pixels is a copy.
double lanczos(double x)
{
    if (x == std::rint(x))
        return x == 0.0 ? 1.0 : 0.0;
    return std::abs(x) < kLobes ? sinc(x) * sinc(x / kLobes) : 0.0;
}

class LanczosTable
{
public:
    LanczosTable()
    {
        for (int phase = 0; phase <= kPhases; ++phase) {
            std::array<double, kTaps> exact{};
            double sum = 0.0;
            for (int tap = 0; tap < kTaps; ++tap)
                sum += exact[static_cast<std::size_t>(tap)] =
                    lanczos(static_cast<double>(phase) / kPhases - (tap - kBefore));
            for (std::size_t tap = 0; tap < exact.size(); ++tap)
                weights[static_cast<std::size_t>(phase)][tap] = static_cast<float>(exact[tap] / sum);
        }
    }
    /// `fraction`: 0..1 from the pixel before the position.
    [[nodiscard]] static ORVO_INLINE int phaseOf(double fraction) { return static_cast<int>(fraction * kPhases + 0.5); }
    [[nodiscard]] const Weights& at(int phase) const { return weights[static_cast<std::size_t>(phase)]; }

private:
    std::array<Weights, kPhases + 1> weights{};
};

// The picture repeated as its mirror image.
int mirrored(int index, int count)
{
    const int period = 2 * count;
    const int within = (index % period + period) % period;
    return within < count ? within : period - 1 - within;
}

// As std::max() and std::min(), also for NaN.
template <typename Value>
ORVO_INLINE Value greater(Value a, Value b)
{
    return a < b ? b : a;
}
template <typename Value>
ORVO_INLINE Value smaller(Value a, Value b)
{
    return b < a ? b : a;
}

// The range for a value between b and c, with outer neighbours a and d. A monotonous run or a step stays within its
// samples, so it does not ring; a peak or a valley may be more pronounced than its samples.
template <typename Value>
ORVO_INLINE Value limited(Value value, Value a, Value b, Value c, Value d)
{
    const Value outerHigh = greater(a, d);
    const Value outerLow = smaller(a, d);
    const Value innerHigh = greater(b, c);
    const Value innerLow = smaller(b, c);
    const Value high = greater(outerHigh, innerHigh + kPeak * (innerHigh - outerHigh));
    const Value low = smaller(outerLow, innerLow - kPeak * (outerLow - innerLow));
    return smaller(greater(value, low), high);
}

struct RowTask
{
    const Picture& source;
    const cv::Matx33d& sourceFromTarget;
    const LanczosTable& table;
    int y;
    int width; // of the target
    PixelRGB<float>* target;
};

// Pixels whose positions are computed together, and which share the mix of rows where the map does not turn them.
constexpr int kChunk = 128;
// Fewer pixels on one line of the source are not worth mixing its rows for all of them.
constexpr int kFewestShared = 4;

// Where pixels lie in the source: the first sample under the kernel, and the phases of the weights.
struct Places
{
    std::array<int, kChunk> left, top, across, down;
};

ORVO_VECTOR_CLONES void placePixels(const cv::Matx33d& h, int y, int firstX, int count, Places& places)
{
    const double startX = h.val[1] * y + h.val[2];
    const double startY = h.val[4] * y + h.val[5];
    const double startW = h.val[7] * y + h.val[8];
    for (int i = 0; i < count; ++i) {
        const int x = firstX + i;
        const double scale = 1.0 / (h.val[6] * x + startW);
        const double reachedU = (h.val[0] * x + startX) * scale;
        const double reachedV = (h.val[3] * x + startY) * scale;
        const double cappedU = reachedU < kFarthest ? reachedU : kFarthest; // also for NaN
        const double cappedV = reachedV < kFarthest ? reachedV : kFarthest;
        const double u = cappedU > -kFarthest ? cappedU : -kFarthest;
        const double v = cappedV > -kFarthest ? cappedV : -kFarthest;
        const double column = std::floor(u);
        const double line = std::floor(v);
        const auto n = static_cast<std::size_t>(i);
        places.left[n] = static_cast<int>(column) - kBefore;
        places.top[n] = static_cast<int>(line) - kBefore;
        places.across[n] = LanczosTable::phaseOf(u - column);
        places.down[n] = LanczosTable::phaseOf(v - line);
    }
}

// The samples around a position near the edge.
void gather(const Picture& source, int left, int top, float* samples)
{
    for (int j = 0; j < kTaps; ++j) {
        const PixelRGB<float>* const row = source.row(mirrored(top + j, source.height()));
        for (int k = 0; k < kReadPixels; ++k, samples += kChannels) {
            const PixelRGB<float>& pixel = row[mirrored(left + k, source.width())];
            samples[0] = pixel.r;
            samples[1] = pixel.g;
            samples[2] = pixel.b;
        }
    }
}

// Mixes the rows under the kernel into one. `samples`: the first of them.
ORVO_INLINE void mixDown(const float* samples, std::ptrdiff_t stride, const float* weights, float* mixed, int count)
{
    const float* const inner = samples + kBefore * stride;
    for (int i = 0; i < count; ++i) {
        float sum = 0.0f;
        for (int j = 0; j < kTaps; ++j)
            sum += weights[j] * samples[j * stride + i];
        mixed[i] = limited(sum, inner[i - stride], inner[i], inner[i + stride], inner[i + 2 * stride]);
    }
}

// One pixel from the row mixed for it.
ORVO_INLINE PixelRGB<float> mixAcross(const float* mixed, const float* weights)
{
    Floats4 sum{};
    for (int k = 0; k < kTaps; ++k)
        sum += weights[k] * floatsAt(mixed + k * kChannels);
    const float* const middle = mixed + kBefore * kChannels;
    sum = limited(sum, floatsAt(middle - kChannels), floatsAt(middle), floatsAt(middle + kChannels),
                  floatsAt(middle + 2 * kChannels));
    return {sum[0], sum[1], sum[2]};
}

// Pixels one beside the other with the same weights.
ORVO_INLINE void mixRunAcross(const float* mixed, const float* weights, float* target, int count)
{
    const float* const middle = mixed + kBefore * kChannels;
    for (int i = 0; i < count; ++i) {
        float sum = 0.0f;
        for (int k = 0; k < kTaps; ++k)
            sum += weights[k] * mixed[k * kChannels + i];
        target[i] = limited(sum, middle[i - kChannels], middle[i], middle[i + kChannels], middle[i + 2 * kChannels]);
    }
}

ORVO_VECTOR_CLONES void warpPixel(const Picture& source, int left, int top, const Weights& across, const Weights& down,
                                  PixelRGB<float>& target)
{
    std::array<float, static_cast<std::size_t>(kTaps * kReadPixels * kChannels)> edge;
    const float* samples = edge.data();
    std::ptrdiff_t stride = kReadPixels * kChannels;
    if (left >= 0 && top >= 0 && left + kReadPixels <= source.width() && top + kTaps <= source.height()) {
        samples = &source.row(top)[left].r;
        stride = static_cast<std::ptrdiff_t>(source.width()) * kChannels;
    } else {
        gather(source, left, top, edge.data());
    }
    float mixed[kLanes];
    mixDown(samples, stride, down.data(), mixed, kLanes);
    target = mixAcross(mixed, across.data());
}

// Pixels first..end-1 of a chunk, on one line of the source and inside it, from left to right without gaps.
ORVO_VECTOR_CLONES void warpShared(const RowTask& task, const Places& places, int first, int end,
                                   PixelRGB<float>* target)
{
    const auto at = [](int i) { return static_cast<std::size_t>(i); };
    const int origin = places.left[at(first)];
    const int columns = places.left[at(end - 1)] - origin + kReadPixels;
    const std::ptrdiff_t stride = static_cast<std::ptrdiff_t>(task.source.width()) * kChannels;
    const float* const samples = &task.source.row(places.top[at(first)])[origin].r;
    // A pixel of the target advances by at most two of the source.
    std::array<float, static_cast<std::size_t>((2 * kChunk + kReadPixels) * kChannels)> buffer;
    const float* mixed = buffer.data();
    const int down = places.down[at(first)];
    if (down == 0) // the row itself
        mixed = samples + kBefore * stride;
    else
        mixDown(samples, stride, task.table.at(down).data(), buffer.data(), columns * kChannels);
    for (int i = first; i < end;) {
        const int left = places.left[at(i)];
        const int phase = places.across[at(i)];
        int last = i + 1;
        while (last < end && places.across[at(last)] == phase && places.left[at(last)] == left + (last - i))
            ++last;
        const float* const from = mixed + static_cast<std::ptrdiff_t>(left - origin) * kChannels;
        const Weights& weights = task.table.at(phase);
        if (phase == 0)
            std::memcpy(&target[i].r, from + kBefore * kChannels,
                        static_cast<std::size_t>(last - i) * sizeof(PixelRGB<float>));
        else if (last - i < kFewestShared)
            for (int k = i; k < last; ++k)
                target[k] = mixAcross(from + static_cast<std::ptrdiff_t>(k - i) * kChannels, weights.data());
        else
            mixRunAcross(from, weights.data(), &target[i].r, (last - i) * kChannels);
        i = last;
    }
}

void warpChunk(const RowTask& task, const Places& places, int count, PixelRGB<float>* target)
{
    const Picture& source = task.source;
    const auto isInside = [&](std::size_t i) {
        return places.left[i] >= 0 && places.top[i] >= 0 && places.left[i] + kReadPixels <= source.width() &&
               places.top[i] + kTaps <= source.height();
    };
    for (int first = 0; first < count;) {
        const auto f = static_cast<std::size_t>(first);
        int end = first + 1;
        if (isInside(f))
            for (; end < count; ++end) {
                const auto e = static_cast<std::size_t>(end);
                const int advance = places.left[e] - places.left[e - 1];
                if (places.top[e] != places.top[f] || places.down[e] != places.down[f] || advance < 0 || advance > 2 ||
                    !isInside(e))
                    break;
            }
        if (end - first >= kFewestShared) {
            warpShared(task, places, first, end, target);
        } else {
            for (int i = first; i < end; ++i) {
                const auto n = static_cast<std::size_t>(i);
                warpPixel(source, places.left[n], places.top[n], task.table.at(places.across[n]),
                          task.table.at(places.down[n]), target[i]);
            }
        }
        first = end;
    }
}

void warpRow(const RowTask& task)
{
    Places places;
    for (int x = 0; x < task.width; x += kChunk) {
        const int count = std::min(kChunk, task.width - x);
        placePixels(task.sourceFromTarget, task.y, x, count, places);
        warpChunk(task, places, count, task.target + x);
    }
}

} // namespace

std::shared_ptr<Picture> lanczosWarp(const Picture& source, const cv::Matx33d& sourceFromTarget, _Size<int> size)
{
    static const LanczosTable table;
    auto result = std::make_shared<Picture>(size, source.colorProfile());
    forEachRow(size.height, [&](int y) { warpRow({source, sourceFromTarget, table, y, size.width, result->row(y)}); });
    return result;
}

} // namespace orvo
