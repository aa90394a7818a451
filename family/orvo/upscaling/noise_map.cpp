#include "upscaling/noise_map.hpp"

#include "upscaling/block_noise.hpp"

#include <orvo_core/parallel.hpp>

#include <algorithm>
#include <cmath>
#include <cstdint>

namespace orvo::details {
namespace {

constexpr int kMostPerSide = 512;   // blocks; larger pictures are sampled
constexpr int kSamplesPerSide = 32; // of a block of the enlarged picture: two to a pixel of the source
constexpr double kChannels = 3.0;
// Ratio of the variance of a block to that of its noise. For a block of noise alone it has a deviation of 0.14 in one
// channel, and one misjudged block in a hundred already shows in the noise of the result.
constexpr double kBareExcess = 1.7;
constexpr int kAround = 2; // blocks on each side whose noise a busy block uses
// Catmull-Rom leaves 0.80 to 0.82 of the deviation of white noise, whatever the scale above 1.
constexpr float kCubicNoise = 0.8f;
constexpr float kWeaker = 0.9f * kCubicNoise; // below it the enlargement itself smooths, and stays unchanged
// Busy blocks far from any other use the quietest quarter's: too low a value leaves them as crisp as they would be.
constexpr std::size_t kQuietShare = 4;

float finite(float value) { return std::isfinite(value) ? value : 0.0f; }

float meanSquareRoot(const PixelRGB<float>& p)
{
    return std::sqrt((p.r * p.r + p.g * p.g + p.b * p.b) * (1.0f / 3.0f));
}

PixelRGB<float> scaled(const PixelRGB<float>& p, float factor) { return {p.r * factor, p.g * factor, p.b * factor}; }

PixelRGB<float> mixed(const PixelRGB<float>& p, const PixelRGB<float>& q, float share)
{
    return {p.r + (q.r - p.r) * share, p.g + (q.g - p.g) * share, p.b + (q.b - p.b) * share};
}

int placeOfBlock(int index, int count, int length)
{
    return static_cast<int>(static_cast<std::int64_t>(length - kNoiseBlock) * index / std::max(1, count - 1));
}

} // namespace

NoiseMap::NoiseMap(const _ImageData<PixelRGB<float>>& source)
    : size(source.size()), across(std::min(size.width / kNoiseBlock, kMostPerSide)),
      down(std::min(size.height / kNoiseBlock, kMostPerSide))
{
    if (across < 1 || down < 1)
        across = down = 0;
    blocks.resize(static_cast<std::size_t>(across) * static_cast<std::size_t>(down));
    forEachRow(down, [&](int j) {
        for (int i = 0; i < across; ++i) {
            const auto noise = [&](float PixelRGB<float>::*channel) {
                return blockNoise(source, leftOf(i), topOf(j), [&](const PixelRGB<float>& p) { return p.*channel; });
            };
            const BlockNoise red = noise(&PixelRGB<float>::r);
            const BlockNoise green = noise(&PixelRGB<float>::g);
            const BlockNoise blue = noise(&PixelRGB<float>::b);
            const double sum = red.noise + green.noise + blue.noise;
            Block& block = at(i, j);
            block.before = static_cast<float>(std::sqrt(sum / kChannels));
            if (sum > 0.0)
                block.kind =
                    red.variance + green.variance + blue.variance <= kBareExcess * sum ? Kind::Bare : Kind::Busy;
        }
    });
}

void NoiseMap::measure(const _ImageData<PixelRGB<float>>& enlarged, int scale_)
{
    scale = scale_;
    forEachRow(down, [&](int j) {
        for (int i = 0; i < across; ++i) {
            Block& block = at(i, j);
            if (block.kind != Kind::Bare)
                continue;
            const auto deviation = [&](float PixelRGB<float>::*channel) {
                const auto value = [&](int x, int y) {
                    const int column = leftOf(i) * scale + x * kNoiseBlock * scale / kSamplesPerSide;
                    const int row = topOf(j) * scale + y * kNoiseBlock * scale / kSamplesPerSide;
                    return finite(enlarged.row(row)[column].*channel);
                };
                return static_cast<float>(std::sqrt(std::max(0.0, varianceAboutPlane(kSamplesPerSide, value))));
            };
            block.after = {deviation(&PixelRGB<float>::r), deviation(&PixelRGB<float>::g),
                           deviation(&PixelRGB<float>::b)};
        }
    });
    fillBusyBlocks();
}

void NoiseMap::fillBusyBlocks()
{
    std::vector<PixelRGB<float>> quiet;
    for (const Block& block : blocks)
        if (block.kind != Kind::Busy)
            quiet.push_back(block.after);
    PixelRGB<float> usual = {};
    if (!quiet.empty()) {
        const auto place = quiet.begin() + static_cast<std::ptrdiff_t>(quiet.size() / kQuietShare);
        std::nth_element(quiet.begin(), place, quiet.end(), [](const PixelRGB<float>& a, const PixelRGB<float>& b) {
            return meanSquareRoot(a) < meanSquareRoot(b);
        });
        usual = scaled({1.0f, 1.0f, 1.0f}, meanSquareRoot(*place)); // blocks of one noise may differ in colour
    }
    forEachRow(down, [&](int j) {
        for (int i = 0; i < across; ++i) {
            Block& block = at(i, j);
            if (block.kind != Kind::Busy)
                continue;
            PixelRGB<float> sum = {};
            int count = 0;
            for (int y = std::max(0, j - kAround); y <= std::min(down - 1, j + kAround); ++y)
                for (int x = std::max(0, i - kAround); x <= std::min(across - 1, i + kAround); ++x)
                    if (const Block& other = at(x, y); other.kind != Kind::Busy) {
                        sum = {sum.r + other.after.r, sum.g + other.after.g, sum.b + other.after.b};
                        ++count;
                    }
            block.after = count > 0 ? scaled(sum, 1.0f / static_cast<float>(count)) : usual;
        }
    });
}

std::shared_ptr<_ImageData<float>> NoiseMap::calmingMask()
{
    std::vector<float> shares(blocks.size(), 1.0f); // of the method
    bool calms = false;
    for (std::size_t i = 0; i < blocks.size(); ++i) {
        Block& block = blocks[i];
        if (block.kind != Kind::Bare)
            continue;
        const float most = kCubicNoise * block.before;
        const float found = meanSquareRoot(block.after);
        const float share = std::clamp((most - found) / (most - kWeaker * block.before), 0.0f, 1.0f);
        if (share == 1.0f)
            continue;
        calms = true;
        shares[i] = share;
        block.after = scaled(block.after, share + (1.0f - share) * most / found);
    }
    if (!calms)
        return nullptr;
    fillBusyBlocks();
    auto mask = std::make_shared<MaskImage>(size, 1.0f);
    forEachRow(size.height, [&](int y) {
        const Place vertical = placeOf(static_cast<float>(y) + 0.5f, size.height, down);
        const auto column = [&](int i) {
            const float* const upper = shares.data() + static_cast<std::ptrdiff_t>(vertical.first) * across + i;
            return vertical.second > 0.0f ? upper[0] + (upper[across] - upper[0]) * vertical.second : upper[0];
        };
        for (int x = 0; x < size.width; ++x) {
            const Place place = placeOf(static_cast<float>(x) + 0.5f, size.width, across);
            const float left = column(place.first);
            mask->row(y)[x] = place.second > 0.0f ? left + (column(place.first + 1) - left) * place.second : left;
        }
    });
    return mask;
}

void NoiseMap::row(int y, int width, PixelRGB<float>* deviations) const
{
    if (blocks.empty()) {
        std::fill_n(deviations, width, PixelRGB<float>{});
        return;
    }
    const float step = 1.0f / static_cast<float>(scale);
    const Place vertical = placeOf((static_cast<float>(y) + 0.5f) * step, size.height, down);
    const auto column = [&](int i) {
        const PixelRGB<float>& upper = at(i, vertical.first).after;
        return vertical.second > 0.0f ? mixed(upper, at(i, vertical.first + 1).after, vertical.second) : upper;
    };
    for (int x = 0; x < width; ++x) {
        const Place place = placeOf((static_cast<float>(x) + 0.5f) * step, size.width, across);
        const PixelRGB<float> left = column(place.first);
        deviations[x] = place.second > 0.0f ? mixed(left, column(place.first + 1), place.second) : left;
    }
}

NoiseMap::Block& NoiseMap::at(int i, int j)
{
    return blocks[static_cast<std::size_t>(j) * static_cast<std::size_t>(across) + static_cast<std::size_t>(i)];
}

const NoiseMap::Block& NoiseMap::at(int i, int j) const
{
    return blocks[static_cast<std::size_t>(j) * static_cast<std::size_t>(across) + static_cast<std::size_t>(i)];
}

int NoiseMap::leftOf(int i) const { return placeOfBlock(i, across, size.width); }

int NoiseMap::topOf(int j) const { return placeOfBlock(j, down, size.height); }

NoiseMap::Place NoiseMap::placeOf(float position, int length, int count)
{
    if (count < 2)
        return {0, 0.0f};
    const float spacing = static_cast<float>(length - kNoiseBlock) / static_cast<float>(count - 1);
    const float index = (position - 0.5f * kNoiseBlock) / spacing;
    const int first = std::clamp(static_cast<int>(index), 0, count - 2);
    return {first, std::clamp(index - static_cast<float>(first), 0.0f, 1.0f)};
}

} // namespace orvo::details
