#include <orvo/finishing.hpp>
#include <orvo_common/scoped_timer.hpp>
#include <orvo_core/parallel.hpp>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <vector>

namespace orvo {
namespace {

constexpr int kBins = 4097;     // of a histogram over 0..kTop: finer than a step of 8 bits, and 1 is one of them
constexpr float kTop = 2.0f;    // brighter pixels count as this bright
constexpr double kTail = 0.001; // share of the pixels beyond each of the two points
constexpr int kBands = 64;      // of rows, with a histogram each: integers, so any order of adding gives the same

constexpr float kNormalBlack = 0.02f; // a black point up to here is normal
constexpr float kNormalWhite = 0.98f; // and a white point from here to 1
constexpr float kMostBlack = 0.05f;   // no more is taken off: haze is part of many pictures
constexpr float kMostGain = 1.2f;     // a quarter of a stop, encoded: gentle
constexpr float kLeastGain = 0.7f;

// White points below these are meant to be dark: brightening fades out between them.
constexpr float kNightWhite = 0.35f;
constexpr float kDayWhite = 0.75f;

// The same for the distance of the points: a wall of fog, or one colour, has no contrast that could be restored.
constexpr float kFlatRange = 0.1f;
constexpr float kFullRange = 0.35f;

using Histogram = std::array<std::uint32_t, kBins>;

struct BandHistograms
{
    Histogram luminance{};
    Histogram strongest{};
};

float luminance(const PixelRGB<float>& p) { return 0.299f * p.r + 0.587f * p.g + 0.114f * p.b; } // as the merge has it

std::size_t binOf(float value)
{
    const float position = std::clamp(value, 0.0f, kTop) * (static_cast<float>(kBins - 1) / kTop);
    return static_cast<std::size_t>(position + 0.5f);
}

float valueOf(std::size_t bin) { return static_cast<float>(bin) * (kTop / static_cast<float>(kBins - 1)); }

float smoothStep(float from, float to, float value)
{
    const float t = std::clamp((value - from) / (to - from), 0.0f, 1.0f);
    return t * t * (3.0f - 2.0f * t);
}

struct Points
{
    float black = 0.0f;
    float white = 1.0f;
};

// Black by luminance; white by the strongest channel, so that no channel is driven into clipping.
Points measure(const PixelRGB<float>* pixels, int width, int height)
{
    std::vector<BandHistograms> bands(kBands);
    forEachRow(kBands, [&](int band) {
        BandHistograms& own = bands[static_cast<std::size_t>(band)];
        const auto edge = [height](int index) { return static_cast<std::int64_t>(height) * index / kBands; };
        const PixelRGB<float>* const end = pixels + edge(band + 1) * width;
        for (const PixelRGB<float>* p = pixels + edge(band) * width; p != end; ++p) {
            const float y = luminance(*p);
            if (!std::isfinite(y))
                continue;
            ++own.luminance[binOf(y)];
            ++own.strongest[binOf(std::max({p->r, p->g, p->b}))];
        }
    });
    std::vector<std::uint64_t> dark(kBins);
    std::vector<std::uint64_t> bright(kBins);
    std::uint64_t total = 0;
    for (const BandHistograms& band : bands) {
        for (std::size_t i = 0; i < kBins; ++i) {
            dark[i] += band.luminance[i];
            bright[i] += band.strongest[i];
            total += band.luminance[i];
        }
    }
    if (total == 0)
        return {};
    const auto beyond = static_cast<std::uint64_t>(kTail * static_cast<double>(total));
    std::size_t low = 0;
    for (std::uint64_t sum = dark[0]; sum <= beyond; sum += dark[low])
        ++low;
    std::size_t high = kBins - 1;
    for (std::uint64_t sum = bright[high]; sum <= beyond; sum += bright[high])
        --high;
    return {valueOf(low), valueOf(high)};
}

} // namespace

void normalize_for_hdr(PixelRGB<float>* pixels, int width, int height)
{
    if (pixels == nullptr || width <= 0 || height <= 0)
        return;
    const ScopedTimer timer("normalize_for_hdr", 0);
    const Points points = measure(pixels, width, height);
    const float contrast = smoothStep(kFlatRange, kFullRange, points.white - points.black);
    const float black = std::clamp(points.black - kNormalBlack, 0.0f, kMostBlack) * contrast;
    float gain = 1.0f;
    if (points.white > 1.0f)
        gain = std::max(1.0f / points.white, kLeastGain);
    else if (points.white - black < kNormalWhite && points.white > black)
        gain = 1.0f + (std::min(kNormalWhite / (points.white - black), kMostGain) - 1.0f) * contrast *
                          smoothStep(kNightWhite, kDayWhite, points.white);
    if (black == 0.0f && gain == 1.0f)
        return;

    // Luminance loses `black`; near it a parabola of the same slope takes over, so that shadows end at 0 without being
    // cut off.
    const auto factorAt = [black, gain](float y) {
        if (black == 0.0f)
            return gain;
        return gain * (y >= 2.0f * black ? 1.0f - black / y : std::max(y, 0.0f) / (4.0f * black));
    };
    const std::size_t count = static_cast<std::size_t>(width) * static_cast<std::size_t>(height);
    forEachRange(count, [&](std::size_t first, std::size_t last) {
        for (std::size_t i = first; i != last; ++i) {
            PixelRGB<float>& p = pixels[i];
            const float y = luminance(p);
            if (!std::isfinite(y))
                continue;
            float factor = factorAt(y);
            // The few beyond the white point are not pushed out of the scale.
            const float strongest = std::max({p.r, p.g, p.b});
            if (factor > 1.0f && strongest * factor > 1.0f)
                factor = std::max(1.0f, 1.0f / strongest);
            p.r *= factor;
            p.g *= factor;
            p.b *= factor;
        }
    });
}

} // namespace orvo
