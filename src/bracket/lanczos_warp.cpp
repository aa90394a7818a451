#include "bracket/lanczos_warp.hpp"

#include <orvo_core/detail/vector_code.hpp>
#include <orvo_core/parallel.hpp>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
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
    [[nodiscard]] const Weights& at(double fraction) const
    {
        return weights[static_cast<std::size_t>(fraction * kPhases + 0.5)];
    }

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

// The range for a value between b and c, with outer neighbours a and d. A monotonous run or a step stays within its
// samples, so it does not ring; a peak or a valley may be more pronounced than its samples.
ORVO_INLINE float limited(float value, float a, float b, float c, float d)
{
    const float outerHigh = std::max(a, d);
    const float outerLow = std::min(a, d);
    const float innerHigh = std::max(b, c);
    const float innerLow = std::min(b, c);
    const float high = std::max(outerHigh, innerHigh + kPeak * (innerHigh - outerHigh));
    const float low = std::min(outerLow, innerLow - kPeak * (outerLow - innerLow));
    return std::min(std::max(value, low), high);
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

ORVO_VECTOR_CLONES void warpRow(const RowTask& task)
{
    const Picture& source = task.source;
    const cv::Matx33d& h = task.sourceFromTarget;
    const double startX = h.val[1] * task.y + h.val[2];
    const double startY = h.val[4] * task.y + h.val[5];
    const double startW = h.val[7] * task.y + h.val[8];
    std::array<float, static_cast<std::size_t>(kTaps * kReadPixels * kChannels)> edge;
    for (int x = 0; x < task.width; ++x) {
        const double scale = 1.0 / (h.val[6] * x + startW);
        const double u = std::max(-kFarthest, std::min(kFarthest, (h.val[0] * x + startX) * scale));
        const double v = std::max(-kFarthest, std::min(kFarthest, (h.val[3] * x + startY) * scale));
        const double column = std::floor(u);
        const double line = std::floor(v);
        const int left = static_cast<int>(column) - kBefore;
        const int top = static_cast<int>(line) - kBefore;
        const float* samples = edge.data();
        std::ptrdiff_t stride = kReadPixels * kChannels;
        if (left >= 0 && top >= 0 && left + kReadPixels <= source.width() && top + kTaps <= source.height()) {
            samples = &source.row(top)[left].r;
            stride = static_cast<std::ptrdiff_t>(source.width()) * kChannels;
        } else {
            gather(source, left, top, edge.data());
        }

        const float* const down = task.table.at(v - line).data();
        float mixed[kLanes] = {};
        for (int j = 0; j < kTaps; ++j)
            for (int i = 0; i < kLanes; ++i)
                mixed[i] += down[j] * samples[j * stride + i];
        const float* const inner = samples + kBefore * stride;
        for (int i = 0; i < kLanes; ++i)
            mixed[i] = limited(mixed[i], inner[i - stride], inner[i], inner[i + stride], inner[i + 2 * stride]);

        const float* const across = task.table.at(u - column).data();
        float sum[kChannels] = {};
        for (int k = 0; k < kTaps; ++k)
            for (int c = 0; c < kChannels; ++c)
                sum[c] += across[k] * mixed[k * kChannels + c];
        const float* const middle = mixed + kBefore * kChannels;
        for (int c = 0; c < kChannels; ++c)
            sum[c] =
                limited(sum[c], middle[c - kChannels], middle[c], middle[c + kChannels], middle[c + 2 * kChannels]);
        task.target[x] = {sum[0], sum[1], sum[2]};
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
