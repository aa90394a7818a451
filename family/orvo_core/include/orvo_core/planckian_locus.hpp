/// Colours of black bodies.
#pragma once

#include <array>

namespace orvo {

/// CIE 1960 u and v of a black body of `kelvin` (exact from 1000 to 15000, smooth beyond; Krystek, "An algorithm to
/// calculate correlated colour temperature", Color Research and Application 10(1), 1985).
[[nodiscard]] inline std::array<double, 2> planckianLocus(double kelvin)
{
    const double t = kelvin;
    return {
        (0.860117757 + 1.54118254e-4 * t + 1.28641212e-7 * t * t) / (1.0 + 8.42420235e-4 * t + 7.08145163e-7 * t * t),
        (0.317398726 + 4.22806245e-5 * t + 4.20481691e-8 * t * t) / (1.0 - 2.89741816e-5 * t + 1.61456053e-7 * t * t)};
}

} // namespace orvo
