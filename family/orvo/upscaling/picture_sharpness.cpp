#include "upscaling/picture_sharpness.hpp"

#include "upscaling/noise_level.hpp"

#include <orvo_core/parallel.hpp>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <vector>

namespace orvo::details {
namespace {

// As in scripts/train_upscaler/sharpness.py.
constexpr int kBlock = 16;
constexpr int kReach = 2;           // of the differences beyond a block
constexpr int kMostPerSide = 64;    // measured blocks along each side
constexpr float kStructure = 0.03f; // least deviation of differences in a block with structure
constexpr float kNoiseExcess = 4.0f;
constexpr std::size_t kLeastBlocks = 4;
constexpr double kLeastRatio = 1e-3; // in case the noise was more than everything
constexpr float kUnknown = 0.5f;     // costs little, whatever the picture is

// Mean squares in a block, across and down together.
struct Energies
{
    double wide = 0.0;   // of differences over four pixels
    double narrow = 0.0; // over two
    double bend = 0.0;   // of second differences
};

Energies energiesOf(const _ImageData<PixelRGB<float>>& picture, int left, int top)
{
    constexpr std::size_t kSide = kBlock + 2 * kReach;
    std::array<std::array<float, kSide>, kSide> values;
    for (std::size_t y = 0; y < kSide; ++y)
        for (std::size_t x = 0; x < kSide; ++x) {
            const float v = luma(picture.row(top + static_cast<int>(y))[left + static_cast<int>(x)]);
            values[y][x] = std::isfinite(v) ? v : 0.0f;
        }
    Energies sum;
    const auto add = [&sum](float a, float b, float c, float d, float e) {
        const auto square = [](float v) { return static_cast<double>(v) * v; };
        sum.wide += square(e - a);
        sum.narrow += square(d - b);
        sum.bend += square(b + d - 2.0f * c);
    };
    for (std::size_t y = kReach; y < kReach + kBlock; ++y)
        for (std::size_t x = kReach; x < kReach + kBlock; ++x) {
            add(values[y][x - 2], values[y][x - 1], values[y][x], values[y][x + 1], values[y][x + 2]);
            add(values[y - 2][x], values[y - 1][x], values[y][x], values[y + 1][x], values[y + 2][x]);
        }
    constexpr double kShare = 1.0 / (kBlock * kBlock);
    return {sum.wide * kShare, sum.narrow * kShare, sum.bend * kShare};
}

} // namespace

float pictureSharpness(const _ImageData<PixelRGB<float>>& picture, float noise, const SharpnessModel& model)
{
    const int innerWidth = picture.width() - 2 * kReach;
    const int innerHeight = picture.height() - 2 * kReach;
    const int across = std::min(innerWidth / kBlock, kMostPerSide);
    const int down = std::min(innerHeight / kBlock, kMostPerSide);
    if (across < 1 || down < 1)
        return kUnknown;
    std::vector<Energies> blocks(static_cast<std::size_t>(across) * static_cast<std::size_t>(down));
    const auto place = [](int index, int count, int length) {
        return static_cast<int>(static_cast<std::int64_t>(length - kBlock) * index / std::max(1, count - 1));
    };
    forEachRow(down, [&](int j) {
        for (int i = 0; i < across; ++i)
            blocks[static_cast<std::size_t>(j) * static_cast<std::size_t>(across) + static_cast<std::size_t>(i)] =
                energiesOf(picture, place(i, across, innerWidth), place(j, down, innerHeight));
    });
    const double variance = static_cast<double>(noise) * noise;
    std::vector<double> ratios;
    double bends = 0.0;
    double narrows = 0.0;
    for (const Energies& block : blocks) {
        // White noise has twice the sum of the squared weights in the energy of a filter on both axes.
        const double wide = block.wide - 4.0 * variance;
        const double narrow = block.narrow - 4.0 * variance;
        if (wide <= kStructure * kStructure || wide <= 4.0 * kNoiseExcess * variance)
            continue;
        ratios.push_back(narrow / wide);
        narrows += narrow;
        bends += block.bend - 12.0 * variance;
    }
    if (ratios.size() < kLeastBlocks)
        return kUnknown;
    const auto middle = ratios.begin() + static_cast<std::ptrdiff_t>(ratios.size() / 2);
    std::nth_element(ratios.begin(), middle, ratios.end());
    const auto logOf = [](double ratio) { return static_cast<float>(std::log(std::max(ratio, kLeastRatio))); };
    const float a = logOf(*middle);
    const float b = logOf(bends / std::max(narrows, 1e-9));
    const float score = model[0] + model[1] * a + model[2] * b + model[3] * a * a + model[4] * a * b + model[5] * b * b;
    return 1.0f / (1.0f + std::exp(-score));
}

} // namespace orvo::details
