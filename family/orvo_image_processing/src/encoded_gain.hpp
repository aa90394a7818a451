/// The plain gain in linear light on values encoded with the sRGB transfer curve (its variant with a continuous slope,
/// 0.0392857 and 12.9232102). On the power piece of the curve a gain is a straight line, so only values that cross
/// between the pieces need a power.
#pragma once

#include "fast_power.hpp"

#include <array>

namespace orvo::detail {

inline constexpr float kToeEnd = 0.055f / 1.4f; // encoded value where the linear piece ends
inline constexpr float kToeSlope = 12.9232102f; // encoded / linear in that piece
inline constexpr float kOffset = 0.055f;
inline constexpr float kScale = 1.055f;
inline constexpr float kGamma = 2.4f;

/// Light of an encoded value. Negative values and NaN give 0.
ORVO_INLINE float fastLinear(float encoded)
{
    const float v = encoded > 0.0f ? encoded : 0.0f;
    return v <= kToeEnd ? v / kToeSlope : fastPower((v + kOffset) * (1.0f / kScale), kGamma);
}

ORVO_INLINE float fastEncoded(float light)
{
    const float v = light > 0.0f ? light : 0.0f;
    return v * kToeSlope <= kToeEnd ? v * kToeSlope : kScale * fastPower(v, 1.0f / kGamma) - kOffset;
}

/// Luminance of the working space's linear light (ISO 22028-2).
inline constexpr std::array<float, 3> kLuminance = {0.2880402f, 0.7118741f, 0.0000857f};

/// `gain` of 1 or more, `encodedGain` = gain^(1/2.4), v >= 0. Without power: for values of which brighterCrosses() is
/// false, with the same bits.
template <bool kWithPower = true>
ORVO_INLINE float plainBrighter(float v, float gain, float encodedGain)
{
    const float toe = v * gain;
    const float straight = encodedGain * (v + kOffset) - kOffset;
    if constexpr (!kWithPower)
        return v <= kToeEnd ? toe : straight;
    const float bent = kScale * fastPower(toe * (1.0f / kToeSlope), 1.0f / kGamma) - kOffset;
    const float fromToe = toe <= kToeEnd ? toe : bent;
    return v <= kToeEnd ? fromToe : straight;
}

/// Whether one of the values from `smallest` to `largest` may cross from the linear piece to the other.
inline bool brighterCrosses(float smallest, float largest, float gain)
{
    return smallest <= kToeEnd && largest * gain > kToeEnd;
}

/// `gain` of 1 or less. Without power as above.
template <bool kWithPower = true>
ORVO_INLINE float plainDarker(float v, float gain, float encodedGain)
{
    const float toe = v * gain;
    const float straight = encodedGain * (v + kOffset) - kOffset;
    if constexpr (!kWithPower)
        return v <= kToeEnd ? toe : straight;
    const float bent = kToeSlope * gain * fastPower((v + kOffset) * (1.0f / kScale), kGamma);
    const float fromPower = straight >= kToeEnd ? straight : bent;
    return v <= kToeEnd ? toe : fromPower;
}

inline bool darkerCrosses(float smallest, float largest, float encodedGain)
{
    return largest > kToeEnd && encodedGain * (smallest + kOffset) - kOffset < kToeEnd;
}

} // namespace orvo::detail
