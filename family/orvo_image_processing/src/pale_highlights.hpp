/// How near to white a highlight is, for operations that must not trust the hue of clipped pixels.
#pragma once

#include <orvo_core/detail/vector_code.hpp>

namespace orvo::detail {

// A clipped channel lost its range above white, so a darker exposure would produce ratios to the others that never
// existed: a pale window turns pink. The paler the pixel (by its weakest channel), the more a clipped colour gives way
// to a neutral one. Smooth in both, since a step would show as a ring. Encoded values.
inline constexpr float kClippedFrom = 0.98f;
inline constexpr float kClippedAt = 1.0f;
inline constexpr float kPaleFrom = 0.85f;
inline constexpr float kPaleAt = 0.97f;

ORVO_INLINE float smoothStep(float v, float from, float to)
{
    const float reach = (v - from) / (to - from);
    const float t = reach > 0.0f ? (reach < 1.0f ? reach : 1.0f) : 0.0f;
    return t * t * (3.0f - 2.0f * t);
}

ORVO_INLINE float paleShare(float weakest) { return smoothStep(weakest, kPaleFrom, kPaleAt); }
ORVO_INLINE float clippedShare(float channel) { return smoothStep(channel, kClippedFrom, kClippedAt); }

} // namespace orvo::detail
