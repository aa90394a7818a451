/// The six projections as warpers.
#pragma once

#include "panorama/panorama_warper.hpp"
#include "panorama/projections.hpp"

namespace orvo {

/// A warper with the formulas of one projection.
template <typename Projection>
class ProjectionWarper : public PanoramaWarper
{
public:
    using PanoramaWarper::PanoramaWarper;

    void mapForward(float x, float y, float z, float& u, float& v) const final
    {
        Projection::forward(scale, x, y, z, u, v);
    }
    void mapBackward(float u, float v, float& x, float& y, float& z) const final
    {
        Projection::backward(scale, u, v, x, y, z);
    }
};

class PlanePanoramaWarper final : public ProjectionWarper<projections::Plane>
{
public:
    using ProjectionWarper::ProjectionWarper;
};

class CylindricalPanoramaWarper final : public ProjectionWarper<projections::Cylindrical>
{
public:
    using ProjectionWarper::ProjectionWarper;
    [[nodiscard]] cv::Rect outputBounds() const override;
};

/// The plane's u runs from -pi to pi times the scale, v from 0 above to pi times the scale below.
class SphericalPanoramaWarper final : public ProjectionWarper<projections::Spherical>
{
public:
    using ProjectionWarper::ProjectionWarper;
    [[nodiscard]] cv::Rect outputBounds() const override;
};

class FisheyePanoramaWarper final : public ProjectionWarper<projections::Fisheye>
{
public:
    using ProjectionWarper::ProjectionWarper;
    [[nodiscard]] cv::Rect outputBounds() const override;
};

/// Its bounds begin at v = +scale, not -scale, and so lie to one side of the pole. All callers work through them.
class StereographicPanoramaWarper final : public ProjectionWarper<projections::Stereographic>
{
public:
    using ProjectionWarper::ProjectionWarper;
    [[nodiscard]] cv::Rect outputBounds() const override;
};

class MercatorPanoramaWarper final : public ProjectionWarper<projections::Mercator>
{
public:
    using ProjectionWarper::ProjectionWarper;
    [[nodiscard]] cv::Rect outputBounds() const override;
};

} // namespace orvo
