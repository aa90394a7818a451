#include "upscaling/noise_level.hpp"

#include "upscaling/block_noise.hpp"

#include <orvo_core/parallel.hpp>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <vector>

namespace orvo::details {
namespace {

constexpr int kBlock = kNoiseBlock;
constexpr int kMostPerSide = 64;    // measured blocks along each side
constexpr int kLeastBlocks = 4;     // fewer are not reliable
constexpr int kBareShare = 200;     // one in so many blocks must be bare
constexpr double kBareExcess = 1.5; // of variance over the noise; both have an error of about a tenth
// The quietest blocks are the first twentieth; by chance their estimates are below the noise by this much.
constexpr std::size_t kQuietShare = 20;
constexpr float kQuietExcess = 1.1f;

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
                blockNoise(picture, place(i, across, picture.width()), place(j, down, picture.height()), luma);
    });
    std::vector<float> all;
    std::vector<float> bare;
    for (const BlockNoise& block : blocks) {
        if (block.noise == 0.0)
            continue;
        const auto deviation = static_cast<float>(std::sqrt(block.noise));
        all.push_back(deviation);
        if (block.variance <= kBareExcess * block.noise)
            bare.push_back(deviation);
    }
    const std::size_t least = std::min(blocks.size(), std::max<std::size_t>(kLeastBlocks, blocks.size() / kBareShare));
    if (bare.size() < least)
        return 0.0f;
    return std::min(ranked(bare, bare.size() / 2), kQuietExcess * ranked(all, all.size() / kQuietShare));
}

} // namespace orvo::details
