/// The six projections as warpers.
#pragma once

#include "panorama/panorama_warper.hpp"
#include "panorama/projections.hpp"

#include <cstddef>

namespace orvo {

/// A warper for an entry of kProjections.
template <std::size_t kNumber>
class ProjectionWarper final : public PanoramaWarper
{
public:
    using PanoramaWarper::PanoramaWarper;

    [[nodiscard]] cv::Rect outputBounds() const override { return kProjections[kNumber].bounds(scale); }
    void mapForward(float x, float y, float z, float& u, float& v) const override
    {
        kProjections[kNumber].forward(scale, x, y, z, u, v);
    }
    void mapBackward(float u, float v, float& x, float& y, float& z) const override
    {
        kProjections[kNumber].backward(scale, u, v, x, y, z);
    }
};

using PlanePanoramaWarper = ProjectionWarper<0>;
using CylindricalPanoramaWarper = ProjectionWarper<1>;
using SphericalPanoramaWarper = ProjectionWarper<2>;
using FisheyePanoramaWarper = ProjectionWarper<3>;
using StereographicPanoramaWarper = ProjectionWarper<4>;
using MercatorPanoramaWarper = ProjectionWarper<5>;

/// The entry of a warper; empty for other classes.
[[nodiscard]] const Projection* projectionOf(const PanoramaWarper& warper);

} // namespace orvo
