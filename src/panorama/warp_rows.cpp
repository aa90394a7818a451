#include "panorama/warp_rows.hpp"

#include "panorama/projection_warpers.hpp"

#include <orvo_core/detail/vector_code.hpp>

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdint>

namespace orvo {
namespace {

// Points that go through all steps at once; their rays stay in the first cache.
constexpr int kBlock = 256;

struct Point3
{
    float x, y, z;
};

ORVO_INLINE Point3 turned(const float* m, float x, float y, float z)
{
    return {m[0] * x + m[1] * y + m[2] * z, m[3] * x + m[4] * y + m[5] * z, m[6] * x + m[7] * y + m[8] * z};
}

// The angle of (x, y) from the axis of x, -pi to pi, within 3e-7. The polynomial is that of least greatest error for
// atan(t)/t over t^2 in 0..1, by reweighted least squares: 1.4e-8, less than the rounding of its steps.
ORVO_INLINE float angleOf(float y, float x)
{
    constexpr std::uint32_t kSign = 0x80000000u;
    constexpr float kSmallest = 1e-37f; // keeps the angle of nothing at all a number
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
    angle = ay > ax ? projections::kPi / 2.0f - angle : angle;
    angle = x < 0.0f ? projections::kPi - angle : angle;
    return std::bit_cast<float>(std::bit_cast<std::uint32_t>(angle) | (std::bit_cast<std::uint32_t>(y) & kSign));
}

// Rays of a row of meridians and parallels: the row gives height and radius, the columns the direction.
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

// The same about the vertical axis, by the unit instead of by the diameter.
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

ORVO_VECTOR_CLONES void turnToImage(const float* __restrict m, const float* __restrict x, const float* __restrict y,
                                    const float* __restrict z, float* __restrict toX, float* __restrict toY, int count)
{
    for (int i = 0; i < count; ++i) {
        const Point3 point = turned(m, x[i], y[i], z[i]);
        const float column = point.x / point.z;
        const float row = point.y / point.z;
        toX[i] = point.z > 0.0f ? column : -1.0f;
        toY[i] = point.z > 0.0f ? row : -1.0f;
    }
}

ORVO_VECTOR_CLONES void turn(const float* __restrict m, float* __restrict x, float* __restrict y, float* __restrict z,
                             int count)
{
    for (int i = 0; i < count; ++i) {
        const Point3 point = turned(m, x[i], y[i], z[i]);
        x[i] = point.x;
        y[i] = point.y;
        z[i] = point.z;
    }
}

// pi - acos(y/length) is the angle from the axis of -y; told by a tangent, it keeps its digits at the poles. The ray of
// no length counts as level.
ORVO_VECTOR_CLONES void projectOnSphere(float scale, const float* __restrict x, const float* __restrict y,
                                        const float* __restrict z, float* __restrict u, float* __restrict v, int count)
{
    for (int i = 0; i < count; ++i) {
        const float radius = std::sqrt(x[i] * x[i] + z[i] * z[i]);
        const float down = angleOf(radius, -y[i]);
        u[i] = scale * angleOf(x[i], z[i]);
        v[i] = scale * (radius == 0.0f && y[i] == 0.0f ? projections::kPi / 2.0f : down);
    }
}

template <typename Projection>
void projectEach(float scale, const float* x, const float* y, const float* z, float* u, float* v, int count)
{
    for (int i = 0; i < count; ++i)
        Projection::forward(scale, x[i], y[i], z[i], u[i], v[i]);
}

} // namespace

struct WarpRows::Rays
{
    alignas(64) float x[kBlock];
    alignas(64) float y[kBlock];
    alignas(64) float z[kBlock];
};

WarpRows::Kind WarpRows::kindOf(const PanoramaWarper& warper)
{
    if (dynamic_cast<const SphericalPanoramaWarper*>(&warper) != nullptr)
        return Kind::kSpherical;
    if (dynamic_cast<const PlanePanoramaWarper*>(&warper) != nullptr)
        return Kind::kPlane;
    if (dynamic_cast<const CylindricalPanoramaWarper*>(&warper) != nullptr)
        return Kind::kCylindrical;
    if (dynamic_cast<const FisheyePanoramaWarper*>(&warper) != nullptr)
        return Kind::kFisheye;
    if (dynamic_cast<const StereographicPanoramaWarper*>(&warper) != nullptr)
        return Kind::kStereographic;
    if (dynamic_cast<const MercatorPanoramaWarper*>(&warper) != nullptr)
        return Kind::kMercator;
    return Kind::kOther;
}

WarpRows::WarpRows(const PanoramaWarper& warper_, int firstColumn, int count, float step, float start)
    : warper(warper_), target(warper_.intermediate ? *warper_.intermediate : warper_), kind(kindOf(warper)),
      targetKind(kindOf(target)), u(static_cast<std::size_t>(std::max(0, count)))
{
    for (std::size_t c = 0; c < u.size(); ++c)
        u[c] = static_cast<float>(firstColumn + static_cast<int>(c)) * step + start;
    if (kind == Kind::kFisheye || kind == Kind::kOther)
        return;
    across.resize(u.size());
    ahead.resize(u.size(), 1.0f);
    const bool hasLongitude = kind != Kind::kPlane && kind != Kind::kStereographic;
    for (std::size_t c = 0; c < u.size(); ++c) {
        const float along = u[c] / warper.scale;
        across[c] = hasLongitude ? std::sin(along) : along;
        if (hasLongitude)
            ahead[c] = std::cos(along);
    }
}

void WarpRows::raysOf(float v, int first, int length, Rays& rays) const
{
    const float scale = warper.scale;
    const auto meridians = [&](float radius, float height) {
        meridianRays(across.data() + first, ahead.data() + first, radius, height, rays.x, rays.y, rays.z, length);
    };
    switch (kind) {
    case Kind::kPlane: // `ahead` is 1 everywhere
    case Kind::kCylindrical:
        return meridians(1.0f, v / scale);
    case Kind::kSpherical: {
        const float phi = projections::kPi - v / scale;
        return meridians(std::sin(phi), std::cos(phi));
    }
    case Kind::kMercator: {
        const float latitude = std::atan(std::sinh(v / scale));
        return meridians(std::cos(latitude), std::sin(latitude));
    }
    case Kind::kFisheye:
        return fisheyeRays(u.data() + first, v, scale, rays.x, rays.y, rays.z, length);
    case Kind::kStereographic:
        return stereographicRays(across.data() + first, v / scale, rays.x, rays.y, rays.z, length);
    case Kind::kOther:
        for (int i = 0; i < length; ++i)
            warper.mapBackward(u.data()[first + i], v, rays.x[i], rays.y[i], rays.z[i]);
    }
}

void WarpRows::project(const Rays& rays, int length, float* x, float* y) const
{
    const float scale = target.scale;
    switch (targetKind) {
    case Kind::kPlane:
        return projectEach<projections::Plane>(scale, rays.x, rays.y, rays.z, x, y, length);
    case Kind::kCylindrical:
        return projectEach<projections::Cylindrical>(scale, rays.x, rays.y, rays.z, x, y, length);
    case Kind::kSpherical:
        return projectOnSphere(scale, rays.x, rays.y, rays.z, x, y, length);
    case Kind::kFisheye:
        return projectEach<projections::Fisheye>(scale, rays.x, rays.y, rays.z, x, y, length);
    case Kind::kStereographic:
        return projectEach<projections::Stereographic>(scale, rays.x, rays.y, rays.z, x, y, length);
    case Kind::kMercator:
        return projectEach<projections::Mercator>(scale, rays.x, rays.y, rays.z, x, y, length);
    case Kind::kOther:
        for (int i = 0; i < length; ++i)
            target.mapForward(rays.x[i], rays.y[i], rays.z[i], x[i], y[i]);
    }
}

void WarpRows::toImage(float v, float* x, float* y) const
{
    Rays rays;
    for (int first = 0; first < static_cast<int>(u.size()); first += kBlock) {
        const int length = std::min(kBlock, static_cast<int>(u.size()) - first);
        raysOf(v, first, length, rays);
        turnToImage(warper.k_rinv.data(), rays.x, rays.y, rays.z, x + first, y + first, length);
    }
}

void WarpRows::toIntermediate(float v, float* x, float* y) const
{
    Rays rays;
    for (int first = 0; first < static_cast<int>(u.size()); first += kBlock) {
        const int length = std::min(kBlock, static_cast<int>(u.size()) - first);
        raysOf(v, first, length, rays);
        turn(warper.midRotationInv.data(), rays.x, rays.y, rays.z, length);
        project(rays, length, x + first, y + first);
    }
}

} // namespace orvo
