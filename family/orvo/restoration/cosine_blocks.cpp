#include "restoration/cosine_blocks.hpp"

#include "restoration/cosines.hpp"

#include <orvo_common/memory_manager.hpp>
#include <orvo_core/detail/vector_code.hpp>
#include <orvo_core/parallel.hpp>

#include <algorithm>
#include <cstddef>

namespace orvo::details {
namespace {

using Picture = _ImageData<PixelRGB<float>>;

constexpr int kSide = kBlockSide;
constexpr int kChannels = 3;
constexpr int kStep = 2;       // pixels between blocks: every pixel is the mean of 16
constexpr int kBandRows = 64;  // rows per task; blocks across its ends are computed twice
constexpr int kBandsAsked = 4; // bands between two checks of cancel
// The first pass drops cosines below this many deviations; Yu and Sapiro use 3, for their single pass.
constexpr float kThreshold = 2.7f;
constexpr float kTiny = 1e-12f;

/// Drops coefficients below the threshold. The weight of the block is 1 / the number of those left: the fewer, the less
/// noise.
ORVO_INLINE float dropSmall(CosineBlock& block, const CosineBlock& noise)
{
    float left = 1.0f;
    for (int y = 0; y < kSide; ++y)
        for (int x = 0; x < kSide; ++x) {
            const float v = block.v[y][x];
            const bool keep = v * v >= kThreshold * kThreshold * noise.v[y][x];
            block.v[y][x] = keep ? v : 0.0f;
            left += keep ? 1.0f : 0.0f;
        }
    return 1.0f / left;
}

/// Weighs each coefficient by the share that is not noise according to the first pass.
ORVO_INLINE float weigh(CosineBlock& block, const CosineBlock& pilot, const CosineBlock& noise)
{
    float squares = 1.0f;
    for (int y = 0; y < kSide; ++y)
        for (int x = 0; x < kSide; ++x) {
            const float power = pilot.v[y][x] * pilot.v[y][x] + kTiny;
            const float share = power / (power + noise.v[y][x]);
            block.v[y][x] *= share;
            squares += share * share;
        }
    return 1.0f / squares;
}

/// Rows from `first` up to but excluding `last` of the result, and the contributions of blocks to them.
class Band
{
public:
    Band(const Picture& picture_, const Picture* pilot_, const NoiseSpectrum& noise_, const Cosines& cosines_,
         int first_, int last_)
        : picture(picture_), pilot(pilot_), noise(noise_), cosines(cosines_), first(first_), last(last_),
          width(picture_.width()), sums(static_cast<std::size_t>(2 * kChannels) * static_cast<std::size_t>(width) *
                                            static_cast<std::size_t>(last_ - first_),
                                        true)
    {}

    void run(Picture& result)
    {
        const int lastRow = picture.height() - kSide;
        for (int y = std::max(0, (first - kSide + 1 + kStep - 1) / kStep * kStep); y < std::min(last, lastRow);
             y += kStep)
            blockRow(y);
        if (lastRow < last && lastRow + kSide > first)
            blockRow(lastRow); // the last one may be off the grid
        for (int y = first; y < last; ++y)
            for (int x = 0; x < width; ++x) {
                const auto value = [&](int channel) {
                    return *sumAt(channel, x, y) / *sumAt(kChannels + channel, x, y);
                };
                result.row(y)[x] = {value(0), value(1), value(2)};
            }
    }

private:
    float* sumAt(int plane, int x, int y) const
    {
        return sums.data() + (static_cast<std::ptrdiff_t>(plane) * (last - first) + (y - first)) * width + x;
    }

    void blockRow(int y)
    {
        const int lastColumn = width - kSide;
        for (int x = 0; x < lastColumn; x += kStep)
            work(x, y);
        work(lastColumn, y);
    }

    ORVO_VECTOR_CLONES void work(int x, int y)
    {
        CosineBlock blocks[kChannels];
        CosineBlock guides[kChannels];
        takeBlocks(picture, x, y, blocks);
        if (pilot != nullptr)
            takeBlocks(*pilot, x, y, guides);
        const int from = std::max(0, first - y);
        const int to = std::min(kSide, last - y);
        const NoiseSpectrum::Power* power = nullptr;
        for (int c = 0; c < kChannels; ++c) {
            cosines.forward(blocks[c]);
            if (c == 0)
                power = &noise.at(blocks[0].v[0][0] * (1.0f / kSide));
            float weight = 1.0f;
            if (pilot != nullptr) {
                cosines.forward(guides[c]);
                weight = weigh(blocks[c], guides[c], power->channel[c]);
            } else {
                weight = dropSmall(blocks[c], power->channel[c]);
            }
            cosines.backward(blocks[c]);
            for (int j = from; j < to; ++j) {
                float* const sum = sumAt(c, x, y + j);
                float* const weights = sumAt(kChannels + c, x, y + j);
                for (int i = 0; i < kSide; ++i) {
                    sum[i] += weight * blocks[c].v[j][i];
                    weights[i] += weight;
                }
            }
        }
    }

    const Picture& picture;
    const Picture* pilot;
    const NoiseSpectrum& noise;
    const Cosines& cosines;
    int first, last, width;
    ManagedPlane<float> sums; ///< weighted sums of the channels, then the weights
};

/// One pass over all blocks; `pilot` is null in the first one.
std::shared_ptr<Picture> pass(const Picture& picture, const Picture* pilot, const NoiseSpectrum& noise,
                              const Step& step)
{
    auto result = std::make_shared<Picture>(picture.size(), picture.colorProfile());
    const Cosines cosines;
    const int bands = (picture.height() + kBandRows - 1) / kBandRows;
    for (int start = 0; start < bands; start += kBandsAsked) {
        step.goOn(static_cast<double>(start) / bands);
        forEachRow(std::min(kBandsAsked, bands - start), [&](int i) {
            const int first = (start + i) * kBandRows;
            Band(picture, pilot, noise, cosines, first, std::min(picture.height(), first + kBandRows)).run(*result);
        });
    }
    return result;
}

} // namespace

std::shared_ptr<Picture> withoutNoise(const Picture& picture, const NoiseSpectrum& noise, const Step& step)
{
    if (picture.width() < kSide || picture.height() < kSide)
        return picture.copy({});
    const std::shared_ptr<Picture> pilot = pass(picture, nullptr, noise, step.part(0.0, 0.4));
    return pass(picture, pilot.get(), noise, step.part(0.4, 1.0));
}

} // namespace orvo::details
