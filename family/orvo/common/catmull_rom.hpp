// The cubic convolution kernel of Keys (1981) with a = -0.5, also known as Catmull-Rom.
#pragma once

#include <array>

namespace orvo::details {

/// Weights of the samples at -1, 0, 1, 2 for a position `t` (0..1) after the sample at 0. Their sum is 1.
[[nodiscard]] inline std::array<float, 4> catmullRom(float t)
{
    const float t2 = t * t;
    const float t3 = t2 * t;
    return {0.5f * (-t3 + 2.0f * t2 - t), 0.5f * (3.0f * t3 - 5.0f * t2 + 2.0f), 0.5f * (-3.0f * t3 + 4.0f * t2 + t),
            0.5f * (t3 - t2)};
}

} // namespace orvo::details
