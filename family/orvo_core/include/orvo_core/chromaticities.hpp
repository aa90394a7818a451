/// Colour spaces described by chromaticities instead of an ICC file.
#pragma once

#include <orvo_common/export.hpp>

#include <memory>

namespace orvo {

class ColorProfile;

/// CIE xy of the primaries and of the white of a colour space.
struct Chromaticities
{
    double redX, redY, greenX, greenY, blueX, blueY, whiteX, whiteY;
    bool operator==(const Chromaticities&) const = default;
};

/// IEC 61966-2-1.
inline constexpr Chromaticities kSRGBChromaticities = {0.64, 0.33, 0.30, 0.60, 0.15, 0.06, 0.3127, 0.3290};
/// Display P3: the primaries of SMPTE EG 432-1, white D65.
inline constexpr Chromaticities kP3Chromaticities = {0.680, 0.320, 0.265, 0.690, 0.150, 0.060, 0.3127, 0.3290};
/// ITU-R BT.2020.
inline constexpr Chromaticities k2020Chromaticities = {0.708, 0.292, 0.170, 0.797, 0.131, 0.046, 0.3127, 0.3290};
/// Adobe RGB (1998), whose gamma is kAdobeGamma.
inline constexpr Chromaticities kAdobeChromaticities = {0.64, 0.33, 0.21, 0.71, 0.15, 0.06, 0.3127, 0.3290};
inline constexpr double kAdobeGamma = 563.0 / 256.0;
/// ProPhoto RGB (ISO 22028-2), white D50.
inline constexpr Chromaticities kRommChromaticities = {0.7347, 0.2653, 0.1596, 0.8404, 0.0366, 0.0001, 0.3457, 0.3585};

/// The profile of these primaries, adapted to D50 by the Bradford transform (Lam 1985). `gamma` of 0: the curve of
/// sRGB, 1: linear. Empty if the primaries span no space, or if a number is NaN or exceeds the range of an ICC file.
[[nodiscard]] ORVO_EXPORT std::shared_ptr<ColorProfile> profileFromChromaticities(const Chromaticities& chromaticities,
                                                                                  double gamma);

/// Adobe RGB (1998), shared.
[[nodiscard]] ORVO_EXPORT std::shared_ptr<ColorProfile> adobeRGB();

} // namespace orvo
