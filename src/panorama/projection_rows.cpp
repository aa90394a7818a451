// The rows of kProjections.
#include "panorama/projections.hpp"

#include <orvo_core/detail/vector_code.hpp>

#include <bit>
#include <cmath>
#include <cstdint>

namespace orvo::projections {
namespace {

// The angle of (x, y) from the axis of x, -pi to pi, within 3e-7. The polynomial minimises the largest error for
// atan(t)/t over t^2 in 0..1, by reweighted least squares: 1.4e-8, less than the rounding of its steps.
ORVO_INLINE float angleOf(float y, float x)
{
    constexpr std::uint32_t kSign = 0x80000000u;
    constexpr float kSmallest = 1e-37f; // keeps the angle of (0, 0) finite
    const float ax = std::bit_cast<float>(std::bit_cast<std::uint32_t>(x) & ~kSign);
    const float ay = std::bit_cast<float>(std::bit_cast<std::uint32_t>(y) & ~kSign);
    const float larger = ax > ay ? ax : ay;
    const float smaller = ax > ay ? ay : ax;
    const float t = smaller / (larger > kSmallest ? larger : kSmallest);
    const float q = t * t;
    float series = 0.00290355249f;
    series = series * q - 0.0162830073f;
    series = series * q + 0.0430393666f;
    series = series * q - 0.0753367618f;
    series = series * q + 0.106546775f;
    series = series * q - 0.142071337f;
    series = series * q + 0.199930534f;
    series = series * q - 0.333330929f;
    series = series * q + 1.0f;
    float angle = series * t;
    angle = ay > ax ? kPi / 2.0f - angle : angle;
    angle = x < 0.0f ? kPi - angle : angle;
    return std::bit_cast<float>(std::bit_cast<std::uint32_t>(angle) | (std::bit_cast<std::uint32_t>(y) & kSign));
}

// Rays of a row of meridians and parallels: the row defines height and radius, the columns the direction.
ORVO_VECTOR_CLONES void meridianRays(const float* __restrict across, const float* __restrict ahead, float radius,
                                     float height, float* __restrict x, float* __restrict y, float* __restrict z,
                                     int count)
{
    for (int i = 0; i < count; ++i) {
        x[i] = across[i] * radius;
        y[i] = height;
        z[i] = ahead[i] * radius;
    }
}

// With r the distance from the centre and t = r/2s, the ray (sin 2a, cos 2a), a = atan t, is (2t, 1 - t^2)/(1 + t^2).
ORVO_VECTOR_CLONES void fisheyeRays(const float* __restrict u, float v, float scale, float* __restrict x,
                                    float* __restrict y, float* __restrict z, int count)
{
    const float diameter = 2.0f * scale;
    const float b = v / diameter;
    for (int i = 0; i < count; ++i) {
        const float a = u[i] / diameter;
        const float square = a * a + b * b;
        const float share = 2.0f / (1.0f + square);
        x[i] = a * share;
        y[i] = b * share;
        z[i] = (1.0f - square) / (1.0f + square);
    }
}

// The same about the vertical axis, scaled by the unit instead of the diameter.
ORVO_VECTOR_CLONES void stereographicRays(const float* __restrict along, float b, float* __restrict x,
                                          float* __restrict y, float* __restrict z, int count)
{
    for (int i = 0; i < count; ++i) {
        const float a = along[i];
        const float square = a * a + b * b;
        const float share = 2.0f / (1.0f + square);
        x[i] = b * share;
        y[i] = (1.0f - square) / (1.0f + square);
        z[i] = a * share;
    }
}

// pi - acos(y/length) is the angle from the axis of -y; computed with a tangent, it stays accurate at the poles. The
// zero ray counts as level.
ORVO_VECTOR_CLONES void projectOnSphere(float scale, const float* __restrict x, const float* __restrict y,
                                        const float* __restrict z, float* __restrict u, float* __restrict v, int count)
{
    for (int i = 0; i < count; ++i) {
        const float radius = std::sqrt(x[i] * x[i] + z[i] * z[i]);
        const float down = angleOf(radius, -y[i]);
        u[i] = scale * angleOf(x[i], z[i]);
        v[i] = scale * (radius == 0.0f && y[i] == 0.0f ? kPi / 2.0f : down);
    }
}

template <typename Formulas>
void projectEach(float scale, const Rays& rays, int count, float* u, float* v)
{
    for (int i = 0; i < count; ++i)
        Formulas::forward(scale, rays.x[i], rays.y[i], rays.z[i], u[i], v[i]);
}

void meridians(const Columns& columns, float radius, float height, const Rays& rays)
{
    meridianRays(columns.across, columns.ahead, radius, height, rays.x, rays.y, rays.z, columns.count);
}

} // namespace

void Plane::raysOfRow(float s, const Columns& columns, float v, const Rays& rays)
{
    meridians(columns, 1.0f, v / s, rays); // `ahead` is 1 everywhere
}

void Plane::projectRow(float s, const Rays& rays, int count, float* u, float* v)
{
    projectEach<Plane>(s, rays, count, u, v);
}

void Cylindrical::raysOfRow(float s, const Columns& columns, float v, const Rays& rays)
{
    meridians(columns, 1.0f, v / s, rays);
}

void Cylindrical::projectRow(float s, const Rays& rays, int count, float* u, float* v)
{
    projectEach<Cylindrical>(s, rays, count, u, v);
}

void Spherical::raysOfRow(float s, const Columns& columns, float v, const Rays& rays)
{
    const float phi = kPi - v / s;
    meridians(columns, std::sin(phi), std::cos(phi), rays);
}

void Spherical::projectRow(float s, const Rays& rays, int count, float* u, float* v)
{
    projectOnSphere(s, rays.x, rays.y, rays.z, u, v, count);
}

void Fisheye::raysOfRow(float s, const Columns& columns, float v, const Rays& rays)
{
    fisheyeRays(columns.u, v, s, rays.x, rays.y, rays.z, columns.count);
}

void Fisheye::projectRow(float s, const Rays& rays, int count, float* u, float* v)
{
    projectEach<Fisheye>(s, rays, count, u, v);
}

void Stereographic::raysOfRow(float s, const Columns& columns, float v, const Rays& rays)
{
    stereographicRays(columns.across, v / s, rays.x, rays.y, rays.z, columns.count);
}

void Stereographic::projectRow(float s, const Rays& rays, int count, float* u, float* v)
{
    projectEach<Stereographic>(s, rays, count, u, v);
}

void Mercator::raysOfRow(float s, const Columns& columns, float v, const Rays& rays)
{
    const float latitude = std::atan(std::sinh(v / s));
    meridians(columns, std::cos(latitude), std::sin(latitude), rays);
}

void Mercator::projectRow(float s, const Rays& rays, int count, float* u, float* v)
{
    projectEach<Mercator>(s, rays, count, u, v);
}

} // namespace orvo::projections
