#include "restoration/noise_spectrum.hpp"

#include <orvo_core/parallel.hpp>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <tuple>

namespace orvo::details {
namespace {

using Picture = _ImageData<PixelRGB<float>>;

constexpr int kMostPerSide = 256; // sampled blocks
constexpr int kOffset = 3;        // moves blocks off the grid of JPEG, so that they contain its block edges
// A tenth of the blocks of each brightness counts as flat, but at least enough for a measurement.
constexpr std::size_t kQuietShare = 10;
constexpr std::size_t kFewest = 24;
// The quietest tenth of white noise has 0.69 of its power. If only some blocks are flat, the tenth has more, and also
// includes some texture. A low estimate leaves grain, a high one removes texture, which is worse.
constexpr float kQuietToAll = 1.05f;
// DCT frequencies with a few periods in both directions contain little texture and shading. Even demosaiced noise has
// not much more power at lower frequencies.
constexpr int kFirstSure = 2;
constexpr int kLastSure = 5;
constexpr float kMostOverSure = 1.5f;
// Deviation of a sample below which a block is clipped or synthetic: a fifth of the rounding error of 8 bits.
constexpr float kNothing = 2e-4f;
// Noise changes slowly with brightness; an apparent jump at one brightness is texture.
constexpr float kMostRise = 2.0f;
// Allowed excess of a coarser scale's measurement over the finer one's.
constexpr float kScaleTolerance = 1.5f;
const float kWhite = std::sqrt(3.0f);

std::size_t index(int value) { return static_cast<std::size_t>(value); }

float energyOf(const CosineBlock& block)
{
    float sum = 0.0f;
    for (const auto& row : block.v)
        for (const float v : row)
            sum += v * v;
    return sum - block.v[0][0] * block.v[0][0];
}

float totalOf(const CosineBlock& power)
{
    float sum = 0.0f;
    for (const auto& row : power.v)
        for (const float v : row)
            sum += v;
    return sum;
}

float surePower(const CosineBlock& power)
{
    constexpr int kCount = kLastSure - kFirstSure + 1;
    float sum = 0.0f;
    for (int y = kFirstSure; y <= kLastSure; ++y)
        for (int x = kFirstSure; x <= kLastSure; ++x)
            sum += power.v[y][x];
    return sum / (kCount * kCount);
}

} // namespace

NoiseSpectrum::NoiseSpectrum(const Picture& picture, const NoiseSpectrum* finer)
{
    std::vector<Sample> samples = samplesOf(picture);
    for (int channel = 0; channel < 3; ++channel)
        measure(picture, samples, channel);
    if (finer != nullptr)
        limitBy(*finer);
    interpolate();
}

std::vector<NoiseSpectrum::Sample> NoiseSpectrum::samplesOf(const Picture& picture)
{
    const auto countAlong = [](int length) { return std::clamp((length - kOffset) / kBlockSide, 0, kMostPerSide); };
    const int across = countAlong(picture.width());
    const int down = countAlong(picture.height());
    std::vector<Sample> samples(index(across) * index(down));
    const Cosines cosines;
    forEachRow(down, [&](int j) {
        for (int i = 0; i < across; ++i) {
            Sample& sample = samples[index(j) * index(across) + index(i)];
            sample.x = kOffset + static_cast<int>(std::int64_t{i} * (picture.width() - kOffset - kBlockSide) /
                                                  std::max(1, across - 1));
            sample.y = kOffset + static_cast<int>(std::int64_t{j} * (picture.height() - kOffset - kBlockSide) /
                                                  std::max(1, down - 1));
            CosineBlock blocks[3];
            takeBlocks(picture, sample.x, sample.y, blocks);
            for (int c = 0; c < 3; ++c) {
                cosines.forward(blocks[c]);
                sample.energy[c] = energyOf(blocks[c]);
            }
            const float mean = blocks[0].v[0][0] / kBlockSide / kWhite;
            sample.bin = static_cast<int>(std::clamp(mean * kBins, 0.0f, kBins - 1.0f));
        }
    });
    return samples;
}

void NoiseSpectrum::measure(const Picture& picture, std::vector<Sample>& samples, int channel)
{
    constexpr float kSilent = kNothing * kNothing * (kBlockSamples - 1);
    // Ties are broken by position, so that the choice is deterministic.
    std::sort(samples.begin(), samples.end(), [channel](const Sample& a, const Sample& b) {
        return std::tie(a.bin, a.energy[channel], a.y, a.x) < std::tie(b.bin, b.energy[channel], b.y, b.x);
    });
    const Cosines cosines;
    forEachRow(kBins, [&](int bin) {
        const auto begin =
            std::partition_point(samples.begin(), samples.end(), [bin](const Sample& s) { return s.bin < bin; });
        const auto end = std::partition_point(begin, samples.end(), [bin](const Sample& s) { return s.bin == bin; });
        const auto loud =
            std::partition_point(begin, end, [channel](const Sample& s) { return s.energy[channel] < kSilent; });
        const auto all = static_cast<std::size_t>(end - begin);
        if (all < kFewest)
            return;
        known[index(bin)][index(channel)] = true;
        CosineBlock& power = bins[index(bin)].channel[channel];
        const auto left = static_cast<std::size_t>(end - loud);
        if (2 * left < all || left < kFewest)
            return; // mostly free of noise
        const std::size_t taken = std::max(kFewest, left / kQuietShare);
        for (auto sample = loud; sample != loud + static_cast<std::ptrdiff_t>(taken); ++sample) {
            CosineBlock blocks[3];
            takeBlocks(picture, sample->x, sample->y, blocks);
            cosines.forward(blocks[channel]);
            for (int y = 0; y < kBlockSide; ++y)
                for (int x = 0; x < kBlockSide; ++x)
                    power.v[y][x] += blocks[channel].v[y][x] * blocks[channel].v[y][x];
        }
        const float scale = kQuietToAll / static_cast<float>(taken);
        const float most = kMostOverSure * scale * surePower(power);
        for (auto& row : power.v)
            for (float& v : row)
                v = std::min(v * scale, most);
        power.v[0][0] = 0.0f; // the mean is not noise
    });
}

void NoiseSpectrum::limitBy(const NoiseSpectrum& finer)
{
    for (int bin = 0; bin < kBins; ++bin)
        for (int c = 0; c < 3; ++c)
            for (int y = 0; y < kBlockSide; ++y)
                for (int x = 0; x < kBlockSide; ++x) {
                    // Averaging four pixels leaves a quarter of the power. A frequency of the coarser scale has half
                    // the index in the finer block; the mean there carries no information, so the lowest frequency
                    // replaces it.
                    const int fineY = (y + 1) / 2;
                    const int fineX = (x + 1) / 2;
                    const float most = 0.25f * kScaleTolerance * finer.bins[index(bin)].channel[c].v[fineY][fineX];
                    float& v = bins[index(bin)].channel[c].v[y][x];
                    v = std::min(v, most);
                }
}

void NoiseSpectrum::interpolate()
{
    for (int c = 0; c < 3; ++c) {
        const auto limitAlong = [&](int from, int to, int step) {
            float last = -1.0f;
            for (int bin = from; bin != to; bin += step) {
                if (!known[index(bin)][index(c)])
                    continue;
                CosineBlock& power = bins[index(bin)].channel[c];
                const float total = totalOf(power);
                const float most = kMostRise * last;
                if (last > 0.0f && total > most)
                    for (auto& row : power.v)
                        for (float& v : row)
                            v *= most / total;
                last = last > 0.0f ? std::min(total, most) : total;
            }
        };
        limitAlong(0, kBins, 1);
        limitAlong(kBins - 1, -1, -1);
        // A brightness with too few blocks gets the value of its neighbours.
        for (int bin = 1; bin < kBins; ++bin)
            if (!known[index(bin)][index(c)] && known[index(bin - 1)][index(c)]) {
                bins[index(bin)].channel[c] = bins[index(bin - 1)].channel[c];
                known[index(bin)][index(c)] = true;
            }
        for (int bin = kBins - 1; bin-- > 0;)
            if (!known[index(bin)][index(c)] && known[index(bin + 1)][index(c)]) {
                bins[index(bin)].channel[c] = bins[index(bin + 1)].channel[c];
                known[index(bin)][index(c)] = true;
            }
    }
    steps.resize(index(kSteps));
    for (int step = 0; step < kSteps; ++step) {
        const float place = std::clamp((static_cast<float>(step) + 0.5f) * kBins / kSteps - 0.5f, 0.0f, kBins - 1.0f);
        const int first = std::min(static_cast<int>(place), kBins - 2);
        const float share = place - static_cast<float>(first);
        for (int c = 0; c < 3; ++c)
            for (int y = 0; y < kBlockSide; ++y)
                for (int x = 0; x < kBlockSide; ++x) {
                    const float a = bins[index(first)].channel[c].v[y][x];
                    const float b = bins[index(first + 1)].channel[c].v[y][x];
                    steps[index(step)].channel[c].v[y][x] = a + share * (b - a);
                }
    }
}

const NoiseSpectrum::Power& NoiseSpectrum::at(float mean) const
{
    const float place = std::clamp(mean / kWhite * kSteps, 0.0f, kSteps - 1.0f);
    return steps[static_cast<std::size_t>(place)];
}

} // namespace orvo::details
