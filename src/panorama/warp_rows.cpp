#include "panorama/warp_rows.hpp"

#include "panorama/projection_warpers.hpp"
#include "panorama/ray.hpp"

#include <algorithm>
#include <cmath>

namespace orvo {
namespace {

// Points that pass through all steps at once; their rays stay in the L1 cache.
constexpr int kBlock = 256;

struct RayBlock
{
    alignas(64) float x[kBlock];
    alignas(64) float y[kBlock];
    alignas(64) float z[kBlock];
};

ORVO_VECTOR_CLONES void turnToImage(const float* __restrict m, const float* __restrict x, const float* __restrict y,
                                    const float* __restrict z, float* __restrict toX, float* __restrict toY, int count)
{
    for (int i = 0; i < count; ++i) {
        const Ray point = turned(m, x[i], y[i], z[i]);
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
        const Ray point = turned(m, x[i], y[i], z[i]);
        x[i] = point.x;
        y[i] = point.y;
        z[i] = point.z;
    }
}

} // namespace

WarpRows::WarpRows(const PanoramaWarper& warper_, int firstColumn, int count, float step, float start)
    : warper(warper_), target(warper_.intermediate ? *warper_.intermediate : warper_), projection(projectionOf(warper)),
      targetProjection(projectionOf(target)), u(static_cast<std::size_t>(std::max(0, count)))
{
    for (std::size_t c = 0; c < u.size(); ++c)
        u[c] = static_cast<float>(firstColumn + static_cast<int>(c)) * step + start;
    if (projection == nullptr)
        return;
    across.resize(u.size());
    ahead.resize(u.size(), 1.0f);
    for (std::size_t c = 0; c < u.size(); ++c) {
        const float along = u[c] / warper.scale;
        across[c] = projection->hasLongitude ? std::sin(along) : along;
        if (projection->hasLongitude)
            ahead[c] = std::cos(along);
    }
}

void WarpRows::raysOf(float v, int first, int length, const projections::Rays& rays) const
{
    if (projection != nullptr)
        return projection->raysOfRow(warper.scale,
                                     {u.data() + first, across.data() + first, ahead.data() + first, length}, v, rays);
    for (int i = 0; i < length; ++i)
        warper.mapBackward(u.data()[first + i], v, rays.x[i], rays.y[i], rays.z[i]);
}

void WarpRows::project(const projections::Rays& rays, int length, float* x, float* y) const
{
    if (targetProjection != nullptr)
        return targetProjection->projectRow(target.scale, rays, length, x, y);
    for (int i = 0; i < length; ++i)
        target.mapForward(rays.x[i], rays.y[i], rays.z[i], x[i], y[i]);
}

void WarpRows::toImage(float v, float* x, float* y) const
{
    RayBlock rays;
    for (int first = 0; first < static_cast<int>(u.size()); first += kBlock) {
        const int length = std::min(kBlock, static_cast<int>(u.size()) - first);
        raysOf(v, first, length, {rays.x, rays.y, rays.z});
        turnToImage(warper.k_rinv.val, rays.x, rays.y, rays.z, x + first, y + first, length);
    }
}

void WarpRows::toIntermediate(float v, float* x, float* y) const
{
    RayBlock rays;
    for (int first = 0; first < static_cast<int>(u.size()); first += kBlock) {
        const int length = std::min(kBlock, static_cast<int>(u.size()) - first);
        raysOf(v, first, length, {rays.x, rays.y, rays.z});
        turn(warper.midRotationInv.val, rays.x, rays.y, rays.z, length);
        project({rays.x, rays.y, rays.z}, length, x + first, y + first);
    }
}

} // namespace orvo
