#include "panorama/panorama_devignette.hpp"

#include "frame/image_bridge.hpp"

#include <orvo_common/memory_manager.hpp>
#include <orvo_common/scoped_timer.hpp>
#include <orvo_core/detail/vector_code.hpp>
#include <orvo_core/parallel.hpp>
#include <orvo_image_processing/grfx_curves.hpp>

#include <opencv2/core.hpp>

#include <algorithm>
#include <array>
#include <cfloat>
#include <cmath>
#include <cstdint>

namespace orvo {
namespace {

// Range and resolution of each coefficient: the gain only brightens outwards, and steps below a thousandth are
// invisible.
constexpr float kLeast = 0.0f;
constexpr float kMost = 5.0f;
constexpr float kTolerance = 0.001f;
constexpr int kMostRounds = 50;

// Samples that pass through all steps at once; their planes stay in the L1 cache. The cost is summed block by block, in
// an order that does not depend on the threads.
constexpr int kBlock = 256;

struct Curves
{
    const grfx_curve_ext_t& inverseTone;
    const grfx_curve_ext_t& inverseGamma;
    const grfx_curve_ext_t& tone;
    const grfx_curve_ext_t& gamma;
};

// Working samples are encoded but have no tone curve, so the two tone curves of the family's four are not used.
const Curves& curves()
{
    static const Curves all = {grfx_inv_tone(), grfx_inv_gamma(), grfx_tone(), grfx_gamma()};
    return all;
}

// Working colour in the scale of the curves: 1.0 is 32767/2.
constexpr float kWorkingRange = 32767.0f;

ORVO_INLINE float floatOf(std::int16_t sample) { return 2.0f * static_cast<float>(sample) / kWorkingRange; }

// Truncated, and limited only by the range of the type. NaN becomes 0.
ORVO_INLINE std::int16_t sampleOf(float value)
{
    const float scaled = value * kWorkingRange * 0.5f;
    const float above = scaled > -32768.0f ? scaled : -32768.0f;
    const float within = above < 32767.0f ? above : 32767.0f;
    return static_cast<std::int16_t>(static_cast<std::int32_t>(scaled == scaled ? within : 0.0f));
}

// -- Fit --

// One side of the pairs: light by channel, and the radius.
struct Side
{
    explicit Side(const std::vector<PixelRGB<float>>& colors, const std::vector<float>& radii)
        : light{ManagedPlane<float>(colors.size()), ManagedPlane<float>(colors.size()),
                ManagedPlane<float>(colors.size())},
          radius(radii)
    {
        forEachRange(colors.size(), [&](std::size_t first, std::size_t last) {
            for (std::size_t i = first; i < last; ++i) {
                light[0][i] = colors[i].r;
                light[1][i] = colors[i].g;
                light[2][i] = colors[i].b;
            }
            for (const auto& plane : light)
                curves().inverseGamma(plane.data() + first, static_cast<int>(last - first));
        });
    }

    std::array<ManagedPlane<float>, 3> light; // linear; constant over all evaluations, so computed once
    const std::vector<float>& radius;
};

ORVO_VECTOR_CLONES void gainRow(const float* __restrict radius, float k1, float k2, float k3, float* __restrict gain,
                                int count)
{
    for (int i = 0; i < count; ++i) {
        const float square = radius[i] * radius[i];
        gain[i] = 1.0f + k1 * square + k2 * square * square + k3 * square * square * square;
    }
}

ORVO_VECTOR_CLONES void multiplyRow(const float* __restrict a, const float* __restrict b, float* __restrict product,
                                    int count)
{
    for (int i = 0; i < count; ++i)
        product[i] = a[i] * b[i];
}

// Eight partial sums, combined in order: a single sum would make each addition wait for the previous one.
ORVO_VECTOR_CLONES double squaredDifference(const float* __restrict a, const float* __restrict b, int count)
{
    constexpr int kLanes = 8;
    double sums[kLanes] = {};
    int i = 0;
    for (; i + kLanes <= count; i += kLanes) {
        for (int lane = 0; lane < kLanes; ++lane) {
            const double difference = static_cast<double>(a[i + lane]) - static_cast<double>(b[i + lane]);
            sums[lane] += difference * difference;
        }
    }
    for (int lane = 0; i < count; ++i, ++lane) {
        const double difference = static_cast<double>(a[i]) - static_cast<double>(b[i]);
        sums[lane] += difference * difference;
    }
    double total = 0.0;
    for (const double sum : sums)
        total += sum;
    return total;
}

class PairCost
{
public:
    PairCost(const Side& a_, const Side& b_, std::size_t count_)
        : a(a_), b(b_), count(count_), sums((count_ + kBlock - 1) / kBlock)
    {}

    // The mean over the pairs; NaN if there are none.
    [[nodiscard]] double operator()(const devignette_t& model)
    {
        forEachRow(static_cast<int>(sums.size()), [&](int block) {
            const auto first = static_cast<std::size_t>(block) * kBlock;
            sums[static_cast<std::size_t>(block)] =
                sumOf(model, first, static_cast<int>(std::min<std::size_t>(kBlock, count - first)));
        });
        double total = 0.0;
        for (const double sum : sums)
            total += sum;
        return total / static_cast<double>(count);
    }

private:
    [[nodiscard]] double sumOf(const devignette_t& model, std::size_t first, int length) const
    {
        float gainA[kBlock];
        float gainB[kBlock];
        float encoded[2 * kBlock]; // a, then b
        gainRow(a.radius.data() + first, model.k1, model.k2, model.k3, gainA, length);
        gainRow(b.radius.data() + first, model.k1, model.k2, model.k3, gainB, length);
        double sum = 0.0;
        for (std::size_t c = 0; c < 3; ++c) {
            multiplyRow(a.light[c].data() + first, gainA, encoded, length);
            multiplyRow(b.light[c].data() + first, gainB, encoded + length, length);
            curves().gamma(encoded, 2 * length);
            sum += squaredDifference(encoded, encoded + length, length);
        }
        return sum;
    }

    const Side& a;
    const Side& b;
    std::size_t count;
    std::vector<double> sums;
};

// Bisection by the sign of the slope. Leaves `coefficient` at the last middle and returns the cost there.
double search(devignette_t& model, float devignette_t::*coefficient, PairCost& cost)
{
    float low = kLeast;
    float high = kMost;
    double middleCost = 0.0;
    while (high - low > kTolerance) {
        const float middle = (low + high) * 0.5f;
        model.*coefficient = middle;
        middleCost = cost(model);
        model.*coefficient = middle + kTolerance;
        const double nextCost = cost(model);
        model.*coefficient = middle;
        if (nextCost < middleCost)
            low = middle;
        else
            high = middle; // also if there are no pairs, where the costs are NaN
    }
    return middleCost;
}

struct Pairs
{
    std::vector<PixelRGB<float>> colorsA, colorsB;
    std::vector<float> radiiA, radiiB;
};

// One picture with its mask, radius map and corner.
struct Placed
{
    const cv::Mat& image;
    const cv::Mat& mask;
    const cv::Mat& radius;
    cv::Point corner;

    [[nodiscard]] bool isInner(int row, int column) const
    {
        return row >= 1 && row < mask.rows - 1 && column >= 1 && column < mask.cols - 1;
    }
    [[nodiscard]] bool isSet(int row, int column) const { return mask.at<std::uint8_t>(row, column) != 0; }
    // True if one of the eight neighbours of an inner pixel is clear.
    [[nodiscard]] bool touchesEdge(int row, int column) const
    {
        for (int r = row - 1; r <= row + 1; ++r) {
            const std::uint8_t* const line = mask.ptr(r) + column;
            if (line[-1] == 0 || line[1] == 0 || (r != row && line[0] == 0))
                return true;
        }
        return false;
    }
    [[nodiscard]] PixelRGB<float> colour(int row, int column) const
    {
        const auto& sample = image.at<cv::Vec3s>(row, column);
        return {floatOf(sample[2]), floatOf(sample[1]), floatOf(sample[0])};
    }
};

void collectPairs(const Placed& current, const Placed& before, Pairs& pairs)
{
    const cv::Point shift = current.corner - before.corner;
    for (int r = 1; r < current.mask.rows - 1; ++r) {
        for (int c = 1; c < current.mask.cols - 1; ++c) {
            const int r2 = shift.y + r;
            const int c2 = shift.x + c;
            if (!current.isSet(r, c) || !before.isInner(r2, c2) || !before.isSet(r2, c2))
                continue;
            // The outline only: within the overlap the radii differ less.
            if (!current.touchesEdge(r, c) && !before.touchesEdge(r2, c2))
                continue;
            pairs.colorsA.push_back(current.colour(r, c));
            pairs.radiiA.push_back(current.radius.at<float>(r, c));
            pairs.colorsB.push_back(before.colour(r2, c2));
            pairs.radiiB.push_back(before.radius.at<float>(r2, c2));
        }
    }
}

// -- Process --

// The light of each 16-bit sample, so that a picture passes through only one curve. 256 KB, of which samples in range
// use a quarter, which stays in the L2 cache.
class LightOfSamples
{
public:
    LightOfSamples()
    {
        for (int i = 0; i < kCount; ++i)
            light[static_cast<std::size_t>(i)] = floatOf(static_cast<std::int16_t>(i - kZero));
        curves().inverseGamma(light.data(), kCount);
    }
    // Points to sample 0; negative ones come before it.
    [[nodiscard]] const float* atZero() const { return light.data() + kZero; }

private:
    static constexpr int kZero = 32768;
    static constexpr int kCount = 2 * kZero;
    std::array<float, kCount> light{};
};

struct Block
{
    float channel[3][kBlock];
    float gain[kBlock];
};

// Light times gain, channel by channel.
ORVO_VECTOR_CLONES void readBlock(const float* __restrict light, const float* __restrict gain,
                                  const std::int16_t* __restrict in, float* __restrict first, float* __restrict second,
                                  float* __restrict third, int count)
{
    for (std::ptrdiff_t i = 0; i < count; ++i) {
        first[i] = light[in[3 * i]] * gain[i];
        second[i] = light[in[3 * i + 1]] * gain[i];
        third[i] = light[in[3 * i + 2]] * gain[i];
    }
}

ORVO_VECTOR_CLONES void writeBlock(const float* __restrict first, const float* __restrict second,
                                   const float* __restrict third, const std::uint8_t* __restrict mask,
                                   std::int16_t* __restrict out, int count)
{
    for (std::ptrdiff_t i = 0; i < count; ++i) {
        out[3 * i] = mask[i] != 0 ? sampleOf(first[i]) : out[3 * i];
        out[3 * i + 1] = mask[i] != 0 ? sampleOf(second[i]) : out[3 * i + 1];
        out[3 * i + 2] = mask[i] != 0 ? sampleOf(third[i]) : out[3 * i + 2];
    }
}

void correctBlock(const devignette_t& model, const float* radius, const std::uint8_t* mask, std::int16_t* samples,
                  int count)
{
    if (std::all_of(mask, mask + count, [](std::uint8_t m) { return m == 0; }))
        return;
    static const LightOfSamples light;
    Block block;
    auto& [first, second, third] = block.channel;
    gainRow(radius, model.k1, model.k2, model.k3, block.gain, count);
    readBlock(light.atZero(), block.gain, samples, first, second, third, count);
    curves().gamma(first, count);
    curves().gamma(second, count);
    curves().gamma(third, count);
    writeBlock(first, second, third, mask, samples, count);
}

} // namespace

void devignette_t::fit(const std::vector<PixelRGB<float>>& colorsA, const std::vector<PixelRGB<float>>& colorsB,
                       const std::vector<float>& radiiA, const std::vector<float>& radiiB)
{
    const ScopedTimer timer("devignette::fit", 0);
    const Side a(colorsA, radiiA);
    const Side b(colorsB, radiiB);
    PairCost cost(a, b, colorsA.size());
    double previous = DBL_MAX;
    for (int round = 0; round < kMostRounds; ++round) {
        double total = 0.0;
        for (const auto coefficient : {&devignette_t::k1, &devignette_t::k2, &devignette_t::k3})
            total += search(*this, coefficient, cost);
        if (!(total < previous))
            break;
        previous = total;
    }
}

void PanoramaDevignette::fit(const std::vector<cv::Mat>& images, const std::vector<cv::Mat>&,
                             const std::vector<cv::Mat>& masks, const std::vector<cv::Point>& corners,
                             const std::vector<cv::Mat>& radiusMaps)
{
    if (devignette.fitted)
        return;
    const auto placed = [&](std::size_t i) { return Placed{images[i], masks[i], radiusMaps[i], corners[i]}; };
    Pairs pairs;
    for (std::size_t i = 1; i < images.size(); ++i)
        collectPairs(placed(i), placed(i - 1), pairs);
    devignette.fit(pairs.colorsA, pairs.colorsB, pairs.radiiA, pairs.radiiB);
    devignette.fitted = true;
}

void PanoramaDevignette::process(std::vector<cv::Mat>& images, const std::vector<cv::Mat>&,
                                 const std::vector<cv::Mat>& masks, const std::vector<cv::Point>&,
                                 const std::vector<cv::Mat>& radiusMaps)
{
    for (std::size_t i = 0; i < images.size(); ++i) {
        cv::Mat& image = images[i];
        forEachRow(image.rows, [&](int y) {
            for (int x = 0; x < image.cols; x += kBlock)
                correctBlock(devignette, radiusMaps[i].ptr<float>(y) + x, masks[i].ptr(y) + x,
                             image.ptr<std::int16_t>(y) + std::ptrdiff_t{3} * x, std::min(kBlock, image.cols - x));
        });
    }
}

} // namespace orvo
