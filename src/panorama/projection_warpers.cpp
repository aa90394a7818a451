#include "panorama/projection_warpers.hpp"

#include <numbers>

namespace orvo {
namespace {

cv::Rect truncated(float x, float y, float width, float height)
{
    return {static_cast<int>(x), static_cast<int>(y), static_cast<int>(width), static_cast<int>(height)};
}

// Half the way round, rounded once.
float halfTurn(float scale) { return static_cast<float>(std::numbers::pi * static_cast<double>(scale)); }

} // namespace

cv::Rect CylindricalPanoramaWarper::outputBounds() const
{
    const float p = halfTurn(scale);
    return truncated(-p, -p / kAspect, 2.0f * p, 2.0f * p / kAspect);
}

cv::Rect SphericalPanoramaWarper::outputBounds() const
{
    const double p = std::numbers::pi * static_cast<double>(scale); // not rounded to single precision here
    return {static_cast<int>(-p), 0, static_cast<int>(2.0 * p), static_cast<int>(p)};
}

cv::Rect FisheyePanoramaWarper::outputBounds() const
{
    return truncated(-2.0f * scale * kAspect, -2.0f * scale, 4.0f * scale * kAspect, 4.0f * scale);
}

cv::Rect StereographicPanoramaWarper::outputBounds() const
{
    return truncated(-scale * kAspect, scale, 2.0f * scale * kAspect, 2.0f * scale);
}

cv::Rect MercatorPanoramaWarper::outputBounds() const
{
    const float p = halfTurn(scale);
    return truncated(-p, -p, 2.0f * p, 2.0f * p);
}

int warpNumberOf(WarpType type)
{
    switch (type) {
    case WarpType::Plane:
        return 0;
    case WarpType::Cylindrical:
        return 1;
    case WarpType::Spherical:
        return 2;
    case WarpType::Fisheye:
        return 3;
    case WarpType::Stereographic:
        return 4;
    case WarpType::Mercator:
        return 5;
    }
    return 2; // values come from saved settings too
}

std::shared_ptr<PanoramaWarper> makeWarper(float scale, int internalNumber)
{
    switch (internalNumber) {
    case 0:
        return std::make_shared<PlanePanoramaWarper>(scale);
    case 1:
        return std::make_shared<CylindricalPanoramaWarper>(scale);
    case 2:
        return std::make_shared<SphericalPanoramaWarper>(scale);
    case 3:
        return std::make_shared<FisheyePanoramaWarper>(scale);
    case 4:
        return std::make_shared<StereographicPanoramaWarper>(scale);
    case 5:
        return std::make_shared<MercatorPanoramaWarper>(scale);
    default:
        return nullptr;
    }
}

} // namespace orvo
