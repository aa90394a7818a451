#include "encoded_gain.hpp"
#include "pale_highlights.hpp"

#include <orvo_core/parallel.hpp>
#include <orvo_image_processing/exposure_curve.hpp>

#include <algorithm>
#include <cmath>
#include <limits>

namespace orvo {

namespace {

using detail::kGamma;
using detail::plainBrighter;
using detail::plainDarker;

// --- The shape; tune here. ---

// Share of the plain values above the knee that white keeps above it when the knee leaves no room below 1. Strong
// brightening puts even the pivot above 1; without this share everything above it would become one tone.
constexpr float kHeadroom = 0.1f;
// How much of the distance from its plain darkened value back to 1 white keeps: 0 plain gain, 1 white stays white.
constexpr float kWhiteKept = 0.4f;
// Range of the exposure in EV: beyond it every tone is black or far above white.
constexpr float kEvLimit = 20.0f;
// EV of one unit of the parameter a.
constexpr float kEvPerUnit = 10.0f;

// Pixels that are either all left unbent or all treated as pixels, and that need a power or not: a few cache lines.
constexpr std::size_t kBlockPixels = 64;

constexpr float kInputLimit = 1e6f;           // keeps the arithmetic finite
constexpr float kParameterLimit = 4.0f;       // encoded; far above any tone of a picture
constexpr float kNoRoom = 1.0f - 1.0f / 1024; // a darkening knee above this leaves nothing to bend

struct Constants
{
    float gain;
    float encodedGain;
    float knee;
    float bend;
    float lift;
};

template <bool kWithPower>
ORVO_INLINE float brighter(float value, const Constants& c)
{
    const float positive = value > 0.0f ? value : 0.0f; // also for NaN
    const float v = positive < kInputLimit ? positive : kInputLimit;
    const float plain = plainBrighter<kWithPower>(v, c.gain, c.encodedGain);
    const float above = plain - c.knee;
    const float rolled = c.knee + above / (1.0f + above * c.bend);
    const float result = above > 0.0f ? rolled : plain;
    return value < 0.0f ? value * c.gain : result;
}

template <bool kWithPower>
ORVO_INLINE float darker(float value, const Constants& c)
{
    const float positive = value > 0.0f ? value : 0.0f; // also for NaN
    const float v = positive < kInputLimit ? positive : kInputLimit;
    const float plain = plainDarker<kWithPower>(v, c.gain, c.encodedGain);
    const float above = (v - c.knee) * c.bend;
    const float t = above > 0.0f ? above : 0.0f;
    const float rise = t < 1.0f ? t * t : 2.0f * t - 1.0f;
    return value < 0.0f ? value * c.gain : plain + c.lift * rise;
}

ORVO_INLINE float limited(float value)
{
    const float positive = value > 0.0f ? value : 0.0f; // also for NaN
    return positive < kInputLimit ? positive : kInputLimit;
}

/// A second gain, without another power: exact on both pieces of the transfer curve, and where a value crosses between
/// them, so dark that it does not matter, the lower one.
ORVO_INLINE float lowered(float v, float gain, float encodedGain)
{
    const float straight = encodedGain * (v + detail::kOffset) - detail::kOffset;
    const float toe = v * gain;
    return straight > toe ? straight : toe;
}

ORVO_INLINE float raised(float v, float gain, float encodedGain)
{
    const float straight = encodedGain * (v + detail::kOffset) - detail::kOffset;
    const float toe = v * gain;
    return straight < toe ? straight : toe;
}

/// A block of pixels by channel, so that the loops over it vectorise. Pixels that are missing at its end are black.
struct Block
{
    float channels[3][kBlockPixels];
    float strongest[kBlockPixels];
    float weakest[kBlockPixels];
    float plain[kBlockPixels];       // of the strongest channel, after the plain gain
    float level[kBlockPixels];       // of the strongest channel, after the curve
    float encodedGain[kBlockPixels]; // by which it departs from the plain gain, for the power piece of the curve
    float gain[kBlockPixels];        // the same in linear light
    float white[kBlockPixels];       // share of the way to white
};

ORVO_INLINE void readBlock(Block& block, const float* samples, std::size_t pixels)
{
    if (pixels < kBlockPixels)
        for (auto& channel : block.channels)
            std::fill_n(channel, kBlockPixels, 0.0f);
    for (std::size_t i = 0; i < pixels; ++i) {
        block.channels[0][i] = samples[3 * i];
        block.channels[1][i] = samples[3 * i + 1];
        block.channels[2][i] = samples[3 * i + 2];
    }
    for (std::size_t i = 0; i < kBlockPixels; ++i) {
        const float r = block.channels[0][i];
        const float g = block.channels[1][i];
        const float b = block.channels[2][i];
        const float rg = r > g ? r : g;
        const float lower = r < g ? r : g;
        block.strongest[i] = limited(rg > b ? rg : b);
        block.weakest[i] = lower < b ? lower : b;
    }
}

ORVO_INLINE void writeBlock(float* samples, const Block& block, std::size_t pixels)
{
    for (std::size_t i = 0; i < pixels; ++i)
        for (std::size_t c = 0; c < 3; ++c)
            samples[3 * i + c] = block.channels[c][i];
}

/// Of values limited().
struct Range
{
    float smallest, largest;
};

/// In lanes, since the compiler keeps the order of a plain minimum.
ORVO_INLINE Range rangeOf(const float* samples, std::size_t count)
{
    constexpr std::size_t kLanes = 16;
    float smallest[kLanes];
    float largest[kLanes] = {};
    std::fill_n(smallest, kLanes, kInputLimit);
    std::size_t i = 0;
    for (; i + kLanes <= count; i += kLanes)
        for (std::size_t lane = 0; lane < kLanes; ++lane) {
            const float v = limited(samples[i + lane]);
            smallest[lane] = v < smallest[lane] ? v : smallest[lane];
            largest[lane] = v > largest[lane] ? v : largest[lane];
        }
    Range range{kInputLimit, 0.0f};
    const auto include = [&range](float low, float high) {
        range.smallest = low < range.smallest ? low : range.smallest;
        range.largest = high > range.largest ? high : range.largest;
    };
    for (; i < count; ++i)
        include(limited(samples[i]), limited(samples[i]));
    for (std::size_t half = kLanes / 2; half > 0; half /= 2)
        for (std::size_t lane = 0; lane < half; ++lane) {
            smallest[lane] = smallest[lane + half] < smallest[lane] ? smallest[lane + half] : smallest[lane];
            largest[lane] = largest[lane + half] > largest[lane] ? largest[lane + half] : largest[lane];
        }
    include(smallest[0], largest[0]);
    return range;
}

template <bool kWithPower>
ORVO_INLINE void brightenSamples(float* samples, std::size_t count, const Constants& c)
{
    for (std::size_t i = 0; i < count; ++i)
        samples[i] = brighter<kWithPower>(samples[i], c);
}

template <bool kWithPower>
ORVO_INLINE void darkenSamples(float* samples, std::size_t count, const Constants& c)
{
    for (std::size_t i = 0; i < count; ++i)
        samples[i] = darker<kWithPower>(samples[i], c);
}

/// The curve bends the strongest channel; the gain in linear light by which it departs from the plain gain goes to the
/// others too. As an encoded gain it is a ratio, since both tones are on the power piece of the transfer curve.
template <bool kWithPower>
ORVO_INLINE void bendBrightened(float* samples, std::size_t pixels, const Constants& c)
{
    Block block;
    readBlock(block, samples, pixels);
    for (std::size_t i = 0; i < kBlockPixels; ++i) {
        const float plain = plainBrighter<kWithPower>(block.strongest[i], c.gain, c.encodedGain);
        block.level[i] = brighter<kWithPower>(block.strongest[i], c);
        block.encodedGain[i] = (block.level[i] + detail::kOffset) / (plain + detail::kOffset);
        block.gain[i] = detail::fastPower(block.encodedGain[i], kGamma);
        const float taken = 1.0f - block.gain[i];
        block.white[i] = taken * taken * taken;
        block.plain[i] = plain;
    }
    for (auto& channel : block.channels)
        for (std::size_t i = 0; i < kBlockPixels; ++i) {
            const float v = channel[i];
            const float plain = plainBrighter<kWithPower>(limited(v), c.gain, c.encodedGain);
            const float own = lowered(plain, block.gain[i], block.encodedGain[i]);
            const float bent = own + (block.level[i] - own) * block.white[i];
            const float result = v < block.strongest[i] ? bent : block.level[i];
            const float signedResult = v < 0.0f ? v * c.gain : result;
            const float unbent = brighter<kWithPower>(v, c);
            channel[i] = block.plain[i] > c.knee ? signedResult : unbent;
        }
    writeBlock(samples, block, pixels);
}

template <bool kWithPower>
ORVO_INLINE void bendDarkened(float* samples, std::size_t pixels, const Constants& c)
{
    Block block;
    readBlock(block, samples, pixels);
    for (std::size_t i = 0; i < kBlockPixels; ++i) {
        const float strongest = block.strongest[i];
        const float plain = plainDarker<kWithPower>(strongest, c.gain, c.encodedGain);
        // Above white the tangent would raise a colour far beyond its exposure.
        const float lifted = plain + c.lift;
        const float onCurve = darker<kWithPower>(strongest, c);
        block.level[i] = strongest < 1.0f ? onCurve : lifted;
        block.encodedGain[i] = (block.level[i] + detail::kOffset) / (plain + detail::kOffset);
        block.gain[i] = detail::fastPower(block.encodedGain[i], kGamma);
        block.white[i] = detail::paleShare(block.weakest[i]) * detail::clippedShare(strongest);
    }
    for (auto& channel : block.channels)
        for (std::size_t i = 0; i < kBlockPixels; ++i) {
            const float v = channel[i];
            const float plain = plainDarker<kWithPower>(limited(v), c.gain, c.encodedGain);
            const float own = raised(plain, block.gain[i], block.encodedGain[i]);
            const float bent = own + (block.level[i] - own) * block.white[i];
            const float result = v < block.strongest[i] ? bent : block.level[i];
            const float signedResult = v < 0.0f ? v * c.gain : result;
            const float unbent = darker<kWithPower>(v, c);
            channel[i] = block.strongest[i] > c.knee ? signedResult : unbent;
        }
    writeBlock(samples, block, pixels);
}

/// Up to kBlockPixels pixels, each channel by itself.
ORVO_VECTOR_CLONES void brightenRange(float* samples, std::size_t count, const Constants& constants)
{
    const Constants c = constants;
    const Range range = rangeOf(samples, count);
    if (detail::brighterCrosses(range.smallest, range.largest, c.gain))
        brightenSamples<true>(samples, count, c);
    else
        brightenSamples<false>(samples, count, c);
}

ORVO_VECTOR_CLONES void darkenRange(float* samples, std::size_t count, const Constants& constants)
{
    const Constants c = constants;
    const Range range = rangeOf(samples, count);
    if (detail::darkerCrosses(range.smallest, range.largest, c.encodedGain))
        darkenSamples<true>(samples, count, c);
    else
        darkenSamples<false>(samples, count, c);
}

/// The same with the hue kept.
ORVO_VECTOR_CLONES void brightenBlock(float* samples, std::size_t pixels, const Constants& constants)
{
    const Constants c = constants;
    const Range range = rangeOf(samples, 3 * pixels);
    const bool crosses = detail::brighterCrosses(range.smallest, range.largest, c.gain);
    if (plainBrighter(range.largest, c.gain, c.encodedGain) > c.knee)
        crosses ? bendBrightened<true>(samples, pixels, c) : bendBrightened<false>(samples, pixels, c);
    else
        crosses ? brightenSamples<true>(samples, 3 * pixels, c) : brightenSamples<false>(samples, 3 * pixels, c);
}

ORVO_VECTOR_CLONES void darkenBlock(float* samples, std::size_t pixels, const Constants& constants)
{
    const Constants c = constants;
    const Range range = rangeOf(samples, 3 * pixels);
    const bool crosses = detail::darkerCrosses(range.smallest, range.largest, c.encodedGain);
    if (range.largest > c.knee)
        crosses ? bendDarkened<true>(samples, pixels, c) : bendDarkened<false>(samples, pixels, c);
    else
        crosses ? darkenSamples<true>(samples, 3 * pixels, c) : darkenSamples<false>(samples, 3 * pixels, c);
}

float sane(float value, float neutral, float low, float high)
{
    return std::isnan(value) ? neutral : std::clamp(value, low, high);
}

} // namespace

ExposureCurve::ExposureCurve(float a, float b, float c)
{
    const float ev = sane((a - 1.0f) * kEvPerUnit, 0.0f, -kEvLimit, kEvLimit);
    const float start = sane(b, 0.9f, 0.0f, kParameterLimit);
    const float pivot = sane(c, 0.5f, 0.0f, kParameterLimit);
    identity = ev == 0.0f;
    brightens = ev > 0.0f;
    gain = std::exp2(ev);
    encodedGain = std::exp2(ev / kGamma);
    if (brightens) {
        const float white = plainBrighter(1.0f, gain, encodedGain);
        knee = std::max(start, plainBrighter(pivot, gain, encodedGain));
        const float span = white - knee;
        const float room = std::max(1.0f, knee + kHeadroom * span) - knee;
        if (span > room)
            bend = (span / room - 1.0f) / span;
        else
            knee = std::numeric_limits<float>::max(); // nothing exceeds white: the plain gain throughout
    } else {
        knee = std::max(start, pivot);
        if (knee < kNoRoom) {
            bend = 1.0f / (1.0f - knee);
            lift = kWhiteKept * (1.0f - plainDarker(1.0f, gain, encodedGain));
        }
    }
}

float ExposureCurve::operator()(float value) const
{
    applySerially(&value, 1); // one value is not worth starting the pool
    return value;
}

void ExposureCurve::applyInPlace(float* samples, std::size_t count) const
{
    if (identity)
        return;
    forEachRange(count, [&](std::size_t first, std::size_t last) { applySerially(samples + first, last - first); });
}

void ExposureCurve::applySerially(float* samples, std::size_t count) const
{
    if (identity)
        return;
    constexpr std::size_t kBlockSamples = 3 * kBlockPixels;
    const Constants constants{gain, encodedGain, knee, bend, lift};
    const auto apply = brightens ? brightenRange : darkenRange;
    for (std::size_t i = 0; i < count; i += kBlockSamples)
        apply(samples + i, std::min(kBlockSamples, count - i), constants);
}

void ExposureCurve::applyToPixels(PixelRGB<float>* pixels, std::size_t count) const
{
    if (identity)
        return;
    forEachRange(count,
                 [&](std::size_t first, std::size_t last) { applyToPixelsSerially(pixels + first, last - first); });
}

void ExposureCurve::applyToPixelsSerially(PixelRGB<float>* pixels, std::size_t count) const
{
    if (identity)
        return;
    const Constants constants{gain, encodedGain, knee, bend, lift};
    const auto apply = brightens ? brightenBlock : darkenBlock;
    for (std::size_t p = 0; p < count; p += kBlockPixels)
        apply(&pixels[p].r, std::min(kBlockPixels, count - p), constants);
}

float apply_exposure(float value, float a, float b, float c) { return ExposureCurve(a, b, c)(value); }

void applyExposureInPlace(float* samples, std::size_t count, float a, float b, float c)
{
    ExposureCurve(a, b, c).applyInPlace(samples, count);
}

} // namespace orvo
