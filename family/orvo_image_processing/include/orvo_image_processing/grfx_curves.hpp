/// The family's working curves: from light to encoded samples and back, and the tone curve.
#pragma once

#include <orvo_common/export.hpp>

namespace orvo {

/// A curve of samples: increasing and defined for all numbers, so it has an inverse. Maps 0 and 1 to themselves; NaN
/// stays NaN. Immutable; usable from any thread.
class ORVO_EXPORT grfx_curve_ext_t
{
public:
    using Single = float (*)(float);
    using Many = void (*)(float* samples, int count);
    constexpr grfx_curve_ext_t(Single single_, Many many_) : single(single_), many(many_) {}

    [[nodiscard]] float operator()(float sample) const { return single(sample); }
    /// In place, `count` samples: within 1e-6 of the single-sample results for 0..1, relative beyond, and many times
    /// faster. Equal samples give equal bits at any position.
    void operator()(float* samples, int count) const { many(samples, count); }

private:
    Single single;
    Many many;
};

/// From light to encoded samples by the working spaces' curve, that of sRGB (IEC 61966-2-1), mirrored below 0 and
/// continued beyond 1. grfx_inv_gamma() is its inverse.
[[nodiscard]] ORVO_EXPORT const grfx_curve_ext_t& grfx_gamma();
[[nodiscard]] ORVO_EXPORT const grfx_curve_ext_t& grfx_inv_gamma();

/// Contrast of encoded samples: the gain of Schlick, "Fast Alternatives to Perlin's Bias and Gain Functions", Graphics
/// Gems IV, 1994, which keeps one half and has slope 3/2 there; C1, and linear beyond 0..1. grfx_inv_tone() is its
/// inverse.
[[nodiscard]] ORVO_EXPORT const grfx_curve_ext_t& grfx_tone();
[[nodiscard]] ORVO_EXPORT const grfx_curve_ext_t& grfx_inv_tone();

} // namespace orvo
