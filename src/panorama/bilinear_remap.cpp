#include "panorama/bilinear_remap.hpp"

#include "frame/sample_vectors.hpp"

#include <orvo_core/detail/vector_code.hpp>
#include <orvo_core/parallel.hpp>

#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>

namespace orvo {
namespace {

constexpr int kChannels = 3;

// Places between two pixels, as in OpenCV's tables.
constexpr int kPhaseBits = 5;
constexpr int kPhases = 1 << kPhaseBits;

// Pixels whose places are computed together.
constexpr int kBlock = 256;

struct Places
{
    std::array<int, kBlock> column, row;    // limited to 16 bits, as OpenCV holds them
    std::array<float, kBlock> across, down; // shares of the next column and row
};

// Rounded to even in steps of a phase. Places whose steps no int holds, and NaN, count as the lowest int.
ORVO_INLINE int stepOf(float place)
{
    constexpr float kRange = 2147483648.0f;
    const float steps = std::rint(place * kPhases);
    return steps >= -kRange && steps < kRange ? static_cast<int>(steps) : std::numeric_limits<int>::min();
}

ORVO_INLINE int limited(int place)
{
    const int low = place > std::numeric_limits<std::int16_t>::min() ? place : std::numeric_limits<std::int16_t>::min();
    return low < std::numeric_limits<std::int16_t>::max() ? low : std::numeric_limits<std::int16_t>::max();
}

ORVO_VECTOR_CLONES void findPlaces(const float* __restrict x, const float* __restrict y, int count,
                                   Places& __restrict places)
{
    constexpr float kStep = 1.0f / kPhases;
    for (int i = 0; i < count; ++i) {
        const auto n = static_cast<std::size_t>(i);
        const int column = stepOf(x[i]);
        const int row = stepOf(y[i]);
        places.column[n] = limited(column >> kPhaseBits);
        places.row[n] = limited(row >> kPhaseBits);
        places.across[n] = static_cast<float>(column & (kPhases - 1)) * kStep;
        places.down[n] = static_cast<float>(row & (kPhases - 1)) * kStep;
    }
}

constexpr float kRounder = 12582912.0f; // 1.5 * 2^23: adding it rounds to an integer, to even

ORVO_INLINE Samples4 mixed(const std::int16_t* upper, const std::int16_t* lower, std::ptrdiff_t next, float across,
                           float down)
{
    // All four are multiples of 2^-10, hence exact.
    const float upperRight = (1.0f - down) * across;
    const float upperLeft = (1.0f - down) * (1.0f - across);
    const float lowerLeft = down * (1.0f - across);
    const float lowerRight = down * across;
    const Floats4 sum = floatsAt(upper) * upperLeft + floatsAt(upper + next) * upperRight +
                        floatsAt(lower) * lowerLeft + floatsAt(lower + next) * lowerRight;
    return __builtin_convertvector(__builtin_convertvector((sum + kRounder) - kRounder, Integers4), Samples4);
}

// Any pixel, at the edge too: the samples are copied so that four can be read.
void mixAtEdge(const cv::Mat& source, const Places& places, std::size_t i, std::int16_t* target)
{
    const auto inside = [](int place, int count) { return cv::borderInterpolate(place, count, cv::BORDER_REFLECT); };
    const int left = inside(places.column[i], source.cols);
    const int right = inside(places.column[i] + 1, source.cols);
    std::array<std::array<std::int16_t, 2 * kChannels + 1>, 2> samples{};
    for (int j = 0; j < 2; ++j) {
        const auto* const row = source.ptr<std::int16_t>(inside(places.row[i] + j, source.rows));
        auto& pair = samples[static_cast<std::size_t>(j)];
        std::copy_n(row + kChannels * left, kChannels, pair.begin());
        std::copy_n(row + kChannels * right, kChannels, pair.begin() + kChannels);
    }
    const Samples4 pixel = mixed(samples[0].data(), samples[1].data(), kChannels, places.across[i], places.down[i]);
    std::memcpy(target, &pixel, kChannels * sizeof(std::int16_t));
}

ORVO_VECTOR_CLONES void mixBlock(const cv::Mat& source, const Places& places, int count, std::int16_t* target)
{
    const auto* const samples = source.ptr<std::int16_t>();
    const auto stride = static_cast<std::ptrdiff_t>(source.step1());
    // One column less than has a neighbour: four samples are read from that.
    const auto columns = static_cast<unsigned>(std::max(0, source.cols - 2));
    const auto rows = static_cast<unsigned>(std::max(0, source.rows - 1));
    for (int i = 0; i < count; ++i, target += kChannels) {
        const auto n = static_cast<std::size_t>(i);
        if (i + 1 == count || static_cast<unsigned>(places.column[n]) >= columns ||
            static_cast<unsigned>(places.row[n]) >= rows) {
            mixAtEdge(source, places, n, target);
            continue;
        }
        const std::int16_t* const upper = samples + places.row[n] * stride + kChannels * places.column[n];
        const Samples4 pixel = mixed(upper, upper + stride, kChannels, places.across[n], places.down[n]);
        std::memcpy(target, &pixel, sizeof pixel); // the next pixel overwrites the fourth sample
    }
}

} // namespace

void remapBilinear(const cv::Mat& source, cv::Mat target, const cv::Mat& x, const cv::Mat& y)
{
    if (source.type() != CV_16SC3) {
        cv::remap(source, target, x, y, cv::INTER_LINEAR, cv::BORDER_REFLECT);
        return;
    }
    forEachRow(target.rows, [&](int row) {
        Places places;
        for (int first = 0; first < target.cols; first += kBlock) {
            const int count = std::min(kBlock, target.cols - first);
            findPlaces(x.ptr<float>(row) + first, y.ptr<float>(row) + first, count, places);
            mixBlock(source, places, count, target.ptr<std::int16_t>(row) + std::ptrdiff_t{kChannels} * first);
        }
    });
}

} // namespace orvo
