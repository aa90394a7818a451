/// log2 and exp2 as short polynomials without branches, so that loops over them vectorise. Both return the same bits in
/// a vector body and in the tail of a loop.
#pragma once

#include <orvo_core/detail/vector_code.hpp>

#include <bit>
#include <cstdint>

namespace orvo::detail {

/// Binary logarithm of a positive normal number; absolute error below 2e-6 (tested). Any other input gives a finite but
/// meaningless number.
ORVO_INLINE float fastLog2(float x)
{
    // x = 2^e * m with m in [sqrt(1/2), sqrt(2)), so that both sides of 1 are equally exact.
    constexpr std::int32_t kSqrtHalfBits = 0x3f3504f3;
    const auto bits = std::bit_cast<std::int32_t>(x);
    const std::int32_t exponent = (bits - kSqrtHalfBits) >> 23;
    const float m = std::bit_cast<float>(bits - (exponent << 23));
    // log2(m) = 2/ln 2 * artanh(s), s = (m - 1)/(m + 1), |s| < 0.1716: the series ends after s^9.
    const float s = (m - 1.0f) / (m + 1.0f);
    const float q = s * s;
    const float series = 2.8853901f + q * (0.96179669f + q * (0.57707802f + q * (0.41219859f + q * 0.32059890f)));
    return static_cast<float>(exponent) + s * series;
}

/// 2^x for -126 <= x <= 126, clamped to that range; relative error below 3e-7 (tested).
ORVO_INLINE float fastExp2(float x)
{
    x = x > -126.0f ? x : -126.0f; // also for NaN
    x = x < 126.0f ? x : 126.0f;
    // Nearest integer without a call: adding 127.5 makes the truncation a floor.
    const auto whole = static_cast<std::int32_t>(x + 127.5f) - 127;
    const float f = x - static_cast<float>(whole); // -0.5 .. 0.5
    // Taylor series of 2^f; the first omitted term is below 1.3e-7.
    const float series =
        1.0f +
        f * (0.69314718f +
             f * (0.24022651f + f * (0.055504109f + f * (0.0096181291f + f * (0.0013333558f + f * 0.00015403530f)))));
    return series * std::bit_cast<float>((whole + 127) << 23);
}

/// x to the power p, for positive normal x.
ORVO_INLINE float fastPower(float x, float p) { return fastExp2(p * fastLog2(x)); }

} // namespace orvo::detail
