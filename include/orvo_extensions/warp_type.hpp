/// Projections of a panorama.
#pragma once

#include <cstdint>

namespace orvo {

/// How the sphere of a panorama maps to the plane. The values are part of the interface and of saved settings.
enum class WarpType : std::int32_t
{
    Plane = 0,         ///< straight lines stay straight; for views well below 180 degrees
    Cylindrical = 2,   ///< vertical lines stay straight, the horizon becomes level
    Spherical = 3,     ///< longitude and latitude at equal steps; covers the whole sphere
    Fisheye = 4,       ///< stereographic about the view's axis
    Stereographic = 5, ///< stereographic about the vertical axis: a "little planet"
    Mercator = 14,     ///< like cylindrical, but preserves shapes
};

} // namespace orvo
