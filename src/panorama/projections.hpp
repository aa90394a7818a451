/// The formulas of the six projections, in single precision. `s` is the scale; the rays have x right, y down, z ahead.
/// Geometry after Snyder, "Map Projections: A Working Manual", USGS Professional Paper 1395, 1987.
#pragma once

#include <cmath>
#include <limits>
#include <numbers>

namespace orvo::projections {

inline constexpr float kPi = std::numbers::pi_v<float>;
// A radius below this is the centre, where no direction can be told.
inline constexpr float kCentre = std::numeric_limits<float>::epsilon();
// A quarter of pi to the digits of the engine's tables.
inline constexpr float kQuarterPi = 0.7853982f;

inline float length(float x, float y, float z) { return std::sqrt(x * x + y * y + z * z); }

struct Plane
{
    static void forward(float s, float x, float y, float z, float& u, float& v)
    {
        u = s * x / z;
        v = s * y / z;
    }
    static void backward(float s, float u, float v, float& x, float& y, float& z)
    {
        x = u / s;
        y = v / s;
        z = 1.0f;
    }
};

struct Cylindrical
{
    static void forward(float s, float x, float y, float z, float& u, float& v)
    {
        u = s * std::atan2(x, z);
        v = s * y / std::sqrt(x * x + z * z);
    }
    static void backward(float s, float u, float v, float& x, float& y, float& z)
    {
        x = std::sin(u / s);
        y = v / s;
        z = std::cos(u / s);
    }
};

struct Spherical
{
    static void forward(float s, float x, float y, float z, float& u, float& v)
    {
        const float cosine = y / length(x, y, z);
        u = s * std::atan2(x, z);
        v = s * (kPi - std::acos(std::isnan(cosine) ? 0.0f : cosine));
    }
    static void backward(float s, float u, float v, float& x, float& y, float& z)
    {
        const float phi = kPi - v / s;
        x = std::sin(u / s) * std::sin(phi);
        y = std::cos(phi);
        z = std::cos(u / s) * std::sin(phi);
    }
};

struct Fisheye
{
    static void forward(float s, float x, float y, float z, float& u, float& v)
    {
        const float r = std::sqrt(x * x + y * y);
        if (r < kCentre) {
            u = 0.0f;
            v = 0.0f;
            return;
        }
        const float t = 2.0f * s * std::tan(std::atan2(r, z) / 2.0f);
        u = t * x / r;
        v = t * y / r;
    }
    static void backward(float s, float u, float v, float& x, float& y, float& z)
    {
        const float r = std::sqrt(u * u + v * v);
        if (r < kCentre) {
            x = 0.0f;
            y = 0.0f;
            z = 1.0f;
            return;
        }
        const float a = std::atan2(r, 2.0f * s);
        x = std::sin(2.0f * a) * u / r;
        y = std::sin(2.0f * a) * v / r;
        z = std::cos(2.0f * a);
    }
};

struct Stereographic
{
    static void forward(float s, float x, float y, float z, float& u, float& v)
    {
        const float azimuth = std::atan2(x, z);
        const float phi = kPi - std::acos(y / length(x, y, z));
        const float t = std::sin(phi) / (1.0f - std::cos(phi));
        u = s * t * std::cos(azimuth);
        v = s * t * std::sin(azimuth);
    }
    static void backward(float s, float u, float v, float& x, float& y, float& z)
    {
        const float a = u / s;
        const float b = v / s;
        const float azimuth = std::atan2(b, a);
        const float phi = kPi - 2.0f * std::atan(1.0f / std::sqrt(a * a + b * b));
        x = std::sin(azimuth) * std::sin(phi);
        y = std::cos(phi);
        z = std::cos(azimuth) * std::sin(phi);
    }
};

struct Mercator
{
    static void forward(float s, float x, float y, float z, float& u, float& v)
    {
        u = s * std::atan2(x, z);
        v = s * std::log(std::tan(std::asin(y / length(x, y, z)) / 2.0f + kQuarterPi));
    }
    static void backward(float s, float u, float v, float& x, float& y, float& z)
    {
        const float latitude = std::atan(std::sinh(v / s));
        const float longitude = u / s;
        x = std::sin(longitude) * std::cos(latitude);
        y = std::sin(latitude);
        z = std::cos(longitude) * std::cos(latitude);
    }
};

} // namespace orvo::projections
