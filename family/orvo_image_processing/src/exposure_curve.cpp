#include "encoded_gain.hpp"

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

ORVO_INLINE float brighter(float value, const Constants& c)
{
    const float positive = value > 0.0f ? value : 0.0f; // also for NaN
    const float v = positive < kInputLimit ? positive : kInputLimit;
    const float plain = plainBrighter(v, c.gain, c.encodedGain);
    const float above = plain - c.knee;
    const float rolled = c.knee + above / (1.0f + above * c.bend);
    const float result = above > 0.0f ? rolled : plain;
    return value < 0.0f ? value * c.gain : result;
}

ORVO_INLINE float darker(float value, const Constants& c)
{
    const float positive = value > 0.0f ? value : 0.0f; // also for NaN
    const float v = positive < kInputLimit ? positive : kInputLimit;
    const float plain = plainDarker(v, c.gain, c.encodedGain);
    const float above = (v - c.knee) * c.bend;
    const float t = above > 0.0f ? above : 0.0f;
    const float rise = t < 1.0f ? t * t : 2.0f * t - 1.0f;
    return value < 0.0f ? value * c.gain : plain + c.lift * rise;
}

ORVO_VECTOR_CLONES void brightenRange(float* samples, std::size_t count, const Constants& constants)
{
    const Constants c = constants;
    for (std::size_t i = 0; i < count; ++i)
        samples[i] = brighter(samples[i], c);
}

ORVO_VECTOR_CLONES void darkenRange(float* samples, std::size_t count, const Constants& constants)
{
    const Constants c = constants;
    for (std::size_t i = 0; i < count; ++i)
        samples[i] = darker(samples[i], c);
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
    if (!identity)
        applyInPlace(&value, 1);
    return value;
}

void ExposureCurve::applyInPlace(float* samples, std::size_t count) const
{
    if (identity)
        return;
    const Constants constants{gain, encodedGain, knee, bend, lift};
    const auto apply = brightens ? brightenRange : darkenRange;
    if (count == 1) // one value is not worth starting the pool
        apply(samples, count, constants);
    else
        forEachRange(count,
                     [&](std::size_t first, std::size_t last) { apply(samples + first, last - first, constants); });
}

float apply_exposure(float value, float a, float b, float c) { return ExposureCurve(a, b, c)(value); }

void applyExposureInPlace(float* samples, std::size_t count, float a, float b, float c)
{
    ExposureCurve(a, b, c).applyInPlace(samples, count);
}

} // namespace orvo
