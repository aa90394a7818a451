/// The plain gain in linear light on values encoded with the sRGB transfer curve (its variant with a continuous slope,
/// 0.0392857 and 12.9232102). On the power piece of the curve a gain is a straight line, so only values that cross
/// between the pieces need a power.
#pragma once

#include "fast_power.hpp"

namespace orvo::detail {

inline constexpr float kToeEnd = 0.055f / 1.4f; // encoded value where the linear piece ends
inline constexpr float kToeSlope = 12.9232102f; // encoded / linear in that piece
inline constexpr float kOffset = 0.055f;
inline constexpr float kScale = 1.055f;
inline constexpr float kGamma = 2.4f;

/// `gain` of 1 or more, `encodedGain` = gain^(1/2.4), v >= 0.
ORVO_INLINE float plainBrighter(float v, float gain, float encodedGain)
{
    const float toe = v * gain;
    const float bent = kScale * fastPower(toe * (1.0f / kToeSlope), 1.0f / kGamma) - kOffset;
    const float straight = encodedGain * (v + kOffset) - kOffset;
    const float fromToe = toe <= kToeEnd ? toe : bent;
    return v <= kToeEnd ? fromToe : straight;
}

/// `gain` of 1 or less.
ORVO_INLINE float plainDarker(float v, float gain, float encodedGain)
{
    const float toe = v * gain;
    const float bent = kToeSlope * gain * fastPower((v + kOffset) * (1.0f / kScale), kGamma);
    const float straight = encodedGain * (v + kOffset) - kOffset;
    const float fromPower = straight >= kToeEnd ? straight : bent;
    return v <= kToeEnd ? toe : fromPower;
}

} // namespace orvo::detail
