// Profiles that files describe by numbers instead of an ICC block.
#pragma once

#include <orvo_core/color_profile.hpp>

#include <memory>

namespace orvo::io {

// CIE xy of the three primaries and of white.
struct Chromaticities
{
    double redX, redY, greenX, greenY, blueX, blueY, whiteX, whiteY;
    bool operator==(const Chromaticities&) const = default;
};

inline constexpr Chromaticities kSRGBChromaticities = {0.64, 0.33, 0.30, 0.60, 0.15, 0.06, 0.3127, 0.3290};
// Display P3 (SMPTE EG 432-1 primaries, white D65).
inline constexpr Chromaticities kP3Chromaticities = {0.680, 0.320, 0.265, 0.690, 0.150, 0.060, 0.3127, 0.3290};
// ITU-R BT.2020.
inline constexpr Chromaticities k2020Chromaticities = {0.708, 0.292, 0.170, 0.797, 0.131, 0.046, 0.3127, 0.3290};
// Adobe RGB (1998).
inline constexpr Chromaticities kAdobeChromaticities = {0.64, 0.33, 0.21, 0.71, 0.15, 0.06, 0.3127, 0.3290};
inline constexpr double kAdobeGamma = 563.0 / 256.0;

// The profile of these primaries, adapted to D50 by the Bradford transform (Lam 1985). `gamma` of 0: the curve of
// sRGB, 1: linear. Empty if the primaries span no space or the numbers are none.
[[nodiscard]] std::shared_ptr<ColorProfile> profileFromChromaticities(const Chromaticities& chromaticities,
                                                                      double gamma);

// Adobe RGB (1998), shared.
[[nodiscard]] std::shared_ptr<ColorProfile> adobeProfile();

} // namespace orvo::io
