/// Oklab (Ottosson, "A perceptual color space for image processing", 2020) of linear light with the primaries of sRGB.
#pragma once

#include <orvo_core/pixel.hpp>

#include <array>
#include <cmath>

namespace orvo::scenes {

struct Oklab
{
    double lightness = 0.0;
    double a = 0.0;
    double b = 0.0;
};

inline Oklab oklabOf(const PixelRGB<float>& light)
{
    const double red = static_cast<double>(light.r);
    const double green = static_cast<double>(light.g);
    const double blue = static_cast<double>(light.b);
    const double l = std::cbrt(0.4122214708 * red + 0.5363325363 * green + 0.0514459929 * blue);
    const double m = std::cbrt(0.2119034982 * red + 0.6806995451 * green + 0.1073969566 * blue);
    const double s = std::cbrt(0.0883024619 * red + 0.2817188376 * green + 0.6299787005 * blue);
    return {0.2104542553 * l + 0.7936177850 * m - 0.0040720468 * s,
            1.9779984951 * l - 2.4285922050 * m + 0.4505937099 * s,
            0.0259040371 * l + 0.7827717662 * m - 0.8086757660 * s};
}

inline PixelRGB<float> lightOf(const Oklab& colour)
{
    const auto cubed = [](double v) { return v * v * v; };
    const double l = cubed(colour.lightness + 0.3963377774 * colour.a + 0.2158037573 * colour.b);
    const double m = cubed(colour.lightness - 0.1055613458 * colour.a - 0.0638541728 * colour.b);
    const double s = cubed(colour.lightness - 0.0894841775 * colour.a - 1.2914855480 * colour.b);
    return {static_cast<float>(4.0767416621 * l - 3.3077115913 * m + 0.2309699292 * s),
            static_cast<float>(-1.2684380046 * l + 2.6097574011 * m - 0.3413193965 * s),
            static_cast<float>(-0.0041960863 * l - 0.7034186147 * m + 1.7076147010 * s)};
}

} // namespace orvo::scenes
