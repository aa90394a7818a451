#include "noise_level.hpp"

#include <orvo_core/parallel.hpp>

#include <algorithm>
#include <array>
#include <cmath>
#include <vector>

namespace orvo::details {
namespace {

constexpr int kBlock = 16;          // pixels: enough for a deviation within a tenth, small enough for smooth places
constexpr int kMostPerSide = 64;    // blocks looked at along each side
constexpr int kLeastBlocks = 4;     // fewer are chance
constexpr int kBareShare = 200;     // one in so many blocks must be bare
constexpr float kBareExcess = 1.5f; // of variance over the estimate; both have an error of about a tenth
// A fifth of what rounding to 8 bits leaves: a block below it is clipped or drawn, and tells nothing of the camera.
constexpr float kNothing = 2e-4f;
// The quietest blocks are the first twentieth; their estimates lie so much below the noise by chance.
constexpr std::size_t kQuietShare = 20;
constexpr float kQuietExcess = 1.1f;

struct BlockNoise
{
    float deviation = 0.0f; // 0 of a flat block
    bool bare = false;
};

float luma(const PixelRGB<float>& p)
{
    const float y = kLumaRed * p.r + kLumaGreen * p.g + kLumaBlue * p.b;
    return std::isfinite(y) ? y : 0.0f;
}

BlockNoise blockNoise(const _ImageData<PixelRGB<float>>& picture, int left, int top)
{
    std::array<std::array<float, kBlock>, kBlock> values;
    double sum = 0.0;
    double acrossSum = 0.0;
    double downSum = 0.0;
    double squares = 0.0;
    constexpr double kMiddle = (kBlock - 1) / 2.0;
    const float base = luma(picture.row(top)[left]); // taken off, so that squares of differences keep their digits
    for (std::size_t y = 0; y < kBlock; ++y)
        for (std::size_t x = 0; x < kBlock; ++x) {
            const float v = luma(picture.row(top + static_cast<int>(y))[left + static_cast<int>(x)]) - base;
            values[y][x] = v;
            sum += v;
            acrossSum += v * (static_cast<double>(x) - kMiddle);
            downSum += v * (static_cast<double>(y) - kMiddle);
            squares += static_cast<double>(v) * v;
        }
    constexpr double kCount = kBlock * kBlock;
    constexpr double kSlopeSquares = kCount * (kBlock * kBlock - 1) / 12.0; // sum of squared places along one axis
    const double variance =
        (squares - sum * sum / kCount - (acrossSum * acrossSum + downSum * downSum) / kSlopeSquares) / (kCount - 3.0);
    double bends = 0.0;
    for (std::size_t y = 1; y + 1 < kBlock; ++y)
        for (std::size_t x = 1; x + 1 < kBlock; ++x) {
            const auto row = [&](std::size_t r) { return values[r][x - 1] - 2.0f * values[r][x] + values[r][x + 1]; };
            const float bend = row(y - 1) - 2.0f * row(y) + row(y + 1);
            bends += static_cast<double>(bend) * bend;
        }
    // The squares of the operator's nine weights add up to 36.
    const double estimate = bends / (36.0 * (kBlock - 2) * (kBlock - 2));
    if (estimate < static_cast<double>(kNothing) * kNothing)
        return {};
    return {static_cast<float>(std::sqrt(estimate)), variance <= kBareExcess * estimate};
}

// The value with `before` values below it.
float ranked(std::vector<float>& values, std::size_t before)
{
    const auto place = values.begin() + static_cast<std::ptrdiff_t>(before);
    std::nth_element(values.begin(), place, values.end());
    return *place;
}

} // namespace

float noiseLevel(const _ImageData<PixelRGB<float>>& picture)
{
    const int across = std::min(picture.width() / kBlock, kMostPerSide);
    const int down = std::min(picture.height() / kBlock, kMostPerSide);
    if (across < 1 || down < 1)
        return 0.0f;
    std::vector<BlockNoise> blocks(static_cast<std::size_t>(across) * static_cast<std::size_t>(down));
    const auto place = [](int index, int count, int length) {
        return static_cast<int>(static_cast<std::int64_t>(length - kBlock) * index / std::max(1, count - 1));
    };
    forEachRow(down, [&](int j) {
        for (int i = 0; i < across; ++i)
            blocks[static_cast<std::size_t>(j) * static_cast<std::size_t>(across) + static_cast<std::size_t>(i)] =
                blockNoise(picture, place(i, across, picture.width()), place(j, down, picture.height()));
    });
    std::vector<float> all;
    std::vector<float> bare;
    for (const BlockNoise& block : blocks) {
        if (block.deviation > 0.0f)
            all.push_back(block.deviation);
        if (block.bare)
            bare.push_back(block.deviation);
    }
    const std::size_t least = std::min(blocks.size(), std::max<std::size_t>(kLeastBlocks, blocks.size() / kBareShare));
    if (bare.size() < least)
        return 0.0f;
    return std::min(ranked(bare, bare.size() / 2), kQuietExcess * ranked(all, all.size() / kQuietShare));
}

} // namespace orvo::details
