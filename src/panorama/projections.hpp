/// All differences between projections, in one table: kProjections.
///
/// Formulas are in single precision; `s` is the scale; the rays have x right, y down, z ahead. Geometry after Snyder,
/// "Map Projections: A Working Manual", USGS Professional Paper 1395, 1987.
#pragma once

#include <orvo_extensions/warp_type.hpp>

#include <opencv2/core/types.hpp>

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <numbers>

namespace orvo::projections {

inline constexpr float kPi = std::numbers::pi_v<float>;
// Radii below this count as the centre, which has no direction.
inline constexpr float kCentre = std::numeric_limits<float>::epsilon();
// A quarter of pi with the digits of the engine's tables.
inline constexpr float kQuarterPi = 0.7853982f;

inline constexpr float kInfinity = std::numeric_limits<float>::infinity();

// Width over height of the bounds of projections that have none of their own.
inline constexpr float kAspect = 2.0454545f;

inline float length(float x, float y, float z) { return std::sqrt(x * x + y * y + z * z); }

inline cv::Rect truncated(float x, float y, float width, float height)
{
    return {static_cast<int>(x), static_cast<int>(y), static_cast<int>(width), static_cast<int>(height)};
}

// Half a turn, rounded once.
inline float halfTurn(float s) { return static_cast<float>(std::numbers::pi * static_cast<double>(s)); }

/// Columns of one row of a plane: their coordinate, and the part of the ray that depends only on the column. With
/// `kHasLongitude` this is sine and cosine of the longitude, else the coordinate in units of the scale, and 1.
struct Columns
{
    const float* u;
    const float* across;
    const float* ahead;
    int count;
};

/// The same number of rays, with the coordinates in three arrays.
struct Rays
{
    float* x;
    float* y;
    float* z;
};

/// Members of all projections. forward() and backward() take single points; bounds() is the outer rectangle of the
/// plane, each value truncated; stretch() is the largest number of pixels of the plane that a pixel of the sphere
/// covers, at a position in units of the sphere's radius (the derivative along its steepest direction), 0 if nothing is
/// resampled. `poles` are the rows of the poles above and below in the same units, for projections with longitude.
/// raysOfRow() is backward() for a row of points, projectRow() forward() for a row of rays; they are vector
/// code with the accuracy that WarpRows documents.
struct Projection
{
    WarpType type;
    bool hasLongitude;
    std::array<float, 2> poles;
    void (*forward)(float s, float x, float y, float z, float& u, float& v);
    void (*backward)(float s, float u, float v, float& x, float& y, float& z);
    cv::Rect (*bounds)(float s);
    double (*stretch)(double u, double v);
    void (*raysOfRow)(float s, const Columns& columns, float v, const Rays& rays);
    void (*projectRow)(float s, const Rays& rays, int count, float* u, float* v);
};

struct Plane
{
    static constexpr WarpType kType = WarpType::Plane;
    static constexpr bool kHasLongitude = false;
    static constexpr std::array<float, 2> kPoles = {0.0f, 0.0f};

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
    static cv::Rect bounds(float s) { return truncated(-s * kAspect, -s, 2.0f * s * kAspect, 2.0f * s); }
    static double stretch(double u, double v) { return 1.0 + u * u + v * v; }
    static void raysOfRow(float s, const Columns& columns, float v, const Rays& rays);
    static void projectRow(float s, const Rays& rays, int count, float* u, float* v);
};

struct Cylindrical
{
    static constexpr WarpType kType = WarpType::Cylindrical;
    static constexpr bool kHasLongitude = true;
    static constexpr std::array<float, 2> kPoles = {-kInfinity, kInfinity};

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
    static cv::Rect bounds(float s)
    {
        const float p = halfTurn(s);
        return truncated(-p, -p / kAspect, 2.0f * p, 2.0f * p / kAspect);
    }
    static double stretch(double, double v) { return 1.0 + v * v; }
    static void raysOfRow(float s, const Columns& columns, float v, const Rays& rays);
    static void projectRow(float s, const Rays& rays, int count, float* u, float* v);
};

/// u runs from -pi to pi times the scale, v from 0 above to pi times the scale below.
struct Spherical
{
    static constexpr WarpType kType = WarpType::Spherical;
    static constexpr bool kHasLongitude = true;
    static constexpr std::array<float, 2> kPoles = {0.0f, kPi};

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
    static cv::Rect bounds(float s)
    {
        const double p = std::numbers::pi * static_cast<double>(s); // not rounded to single precision here
        return {static_cast<int>(-p), 0, static_cast<int>(2.0 * p), static_cast<int>(p)};
    }
    static double stretch(double, double) { return 0.0; }
    static void raysOfRow(float s, const Columns& columns, float v, const Rays& rays);
    static void projectRow(float s, const Rays& rays, int count, float* u, float* v);
};

struct Fisheye
{
    static constexpr WarpType kType = WarpType::Fisheye;
    static constexpr bool kHasLongitude = false;
    static constexpr std::array<float, 2> kPoles = {0.0f, 0.0f};

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
    static cv::Rect bounds(float s) { return truncated(-2.0f * s * kAspect, -2.0f * s, 4.0f * s * kAspect, 4.0f * s); }
    static double stretch(double u, double v) { return 1.0 + (u * u + v * v) / 4.0; }
    static void raysOfRow(float s, const Columns& columns, float v, const Rays& rays);
    static void projectRow(float s, const Rays& rays, int count, float* u, float* v);
};

/// The planet. Its bounds begin at v = +scale, not -scale, so they are on one side of the pole. All callers use them.
struct Stereographic
{
    static constexpr WarpType kType = WarpType::Stereographic;
    static constexpr bool kHasLongitude = false;
    static constexpr std::array<float, 2> kPoles = {0.0f, 0.0f};

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
    static cv::Rect bounds(float s) { return truncated(-s * kAspect, s, 2.0f * s * kAspect, 2.0f * s); }
    static double stretch(double u, double v) { return std::max(1.0, (1.0 + u * u + v * v) / 2.0); }
    static void raysOfRow(float s, const Columns& columns, float v, const Rays& rays);
    static void projectRow(float s, const Rays& rays, int count, float* u, float* v);
};

struct Mercator
{
    static constexpr WarpType kType = WarpType::Mercator;
    static constexpr bool kHasLongitude = true;
    static constexpr std::array<float, 2> kPoles = {-kInfinity, kInfinity};

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
    static cv::Rect bounds(float s)
    {
        const float p = halfTurn(s);
        return truncated(-p, -p, 2.0f * p, 2.0f * p);
    }
    static double stretch(double, double v) { return std::cosh(v); }
    static void raysOfRow(float s, const Columns& columns, float v, const Rays& rays);
    static void projectRow(float s, const Rays& rays, int count, float* u, float* v);
};

template <typename Formulas>
constexpr Projection entry()
{
    return {Formulas::kType,  Formulas::kHasLongitude, Formulas::kPoles,    Formulas::forward,   Formulas::backward,
            Formulas::bounds, Formulas::stretch,       Formulas::raysOfRow, Formulas::projectRow};
}

} // namespace orvo::projections

namespace orvo {

using projections::Projection;

/// The table. The index is the stitcher's number of a projection.
inline constexpr std::array<Projection, 6> kProjections = {
    projections::entry<projections::Plane>(),         projections::entry<projections::Cylindrical>(),
    projections::entry<projections::Spherical>(),     projections::entry<projections::Fisheye>(),
    projections::entry<projections::Stereographic>(), projections::entry<projections::Mercator>()};

} // namespace orvo
