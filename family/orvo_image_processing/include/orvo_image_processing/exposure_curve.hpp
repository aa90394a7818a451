/// Exposure of finished pictures: a gain in linear light with a roll-off of the highlights, on values encoded with the
/// sRGB transfer curve, 1.0 full scale.
#pragma once

#include <orvo_common/export.hpp>
#include <orvo_core/pixel.hpp>

#include <cstddef>

namespace orvo {

/// The curve for one setting. This comment defines its shape; the constants are at the top of exposure_curve.cpp.
///
/// The exposure is EV = (a - 1) * 10, clamped to -20..20, the gain 2^EV in linear light. P(v) is the encoded value
/// after the plain gain, k the input tone up to which P applies exactly.
///
/// Brightening. P applies until its result reaches the knee K = max(b, P(c)), so the tone c keeps its exact value.
/// Above, with white W = max(1, K + 0.1 (P(1) - K)), the plain values K..P(1) are compressed into K..W by
/// m t / (1 + (m - 1) t), t = (P - K) / (P(1) - K), m = (P(1) - K) / (W - K): full white goes to W exactly (to 1 unless
/// the knee is above it), tones stay distinct up to there and beyond, and the slope is continuous at the knee. Where
/// P(1) <= W nothing needs compressing and P applies throughout.
///
/// Darkening. P applies for v up to k = max(b, c), clamped to 1. Clipped highlights have no more light than white, but
/// the scene had more; so white goes only 60 percent of the way from 1 down to P(1), and the values between k and
/// white bend up to it along a parabola, then follow its tangent. Clipped white darkened by 2 EV is thus 0.72
/// (a light grey), where the plain gain gives 0.54. The effect is small because the curve acts on each channel
/// separately, and a steeper one shifts the hue of nearly white colours more.
///
/// Pixels. applyInPlace() bends each channel by itself, which turns an orange glow yellow or green. applyToPixels()
/// keeps the hue: the strongest channel follows the curve, and the others keep their ratio to it in linear light. The
/// more the roll-off takes away, the nearer a brightened pixel comes to white. A darkened pixel comes nearer to white
/// the paler it is, since a clipped channel of a pale colour says nothing about the hue that was there; above 1 it
/// gets no more lift than white. Grays, and colours that the curve does not bend, are bit-equal to applyInPlace().
///
/// Guarantees: monotone in v, and up to white in a (white itself stays at 1 where possible); continuous with continuous
/// slope, 0 stays 0, negative values stay negative (plain factor), NaN becomes 0, inputs above 1 give finite results
/// (inputs are clamped to 1e6), a == 1 is the exact identity for every input. The transfer curve is the variant of
/// sRGB whose two pieces join with a continuous slope (0.0392857, 12.9232102); it differs from the standard's rounded
/// standard's rounded constants by less than 1e-4.
class ORVO_EXPORT ExposureCurve
{
public:
    /// `a` as above; `b` roll-off start, `c` pivot, both encoded and clamped to 0..4. NaN counts as neutral (1, 0.9,
    /// 0.5).
    ExposureCurve(float a, float b, float c);

    [[nodiscard]] bool isIdentity() const { return identity; }

    /// One value. Bit-equal to applyInPlace().
    [[nodiscard]] float operator()(float value) const;

    /// `count` samples, in parallel; the same bits for any number of threads. No scratch.
    void applyInPlace(float* samples, std::size_t count) const;

    /// `count` pixels, their hue kept; otherwise the same.
    void applyToPixels(PixelRGB<float>* pixels, std::size_t count) const;

    /// Both for callers that are parallel themselves.
    void applySerially(float* samples, std::size_t count) const;
    void applyToPixelsSerially(PixelRGB<float>* pixels, std::size_t count) const;

private:
    bool identity = false;
    bool brightens = false;
    float gain = 1.0f;        // in linear light
    float encodedGain = 1.0f; // the same on the power piece of the transfer curve
    float knee = 0.0f;        // brightening: plain value where the roll-off starts; darkening: input where it starts
    float bend = 0.0f;        // brightening: strength of the roll-off; darkening: 1 / (1 - knee)
    float lift = 0.0f;        // darkening: how far white is kept above its plain value
};

/// ExposureCurve(a, b, c) of one value. Constructing the curve costs far more than evaluating it: use
/// applyExposureInPlace for loops over pixels.
[[nodiscard]] ORVO_EXPORT float apply_exposure(float value, float a, float b, float c);

/// The same for `count` samples (for RGB rows three times the pixels), in parallel.
ORVO_EXPORT void applyExposureInPlace(float* samples, std::size_t count, float a, float b, float c);

} // namespace orvo
