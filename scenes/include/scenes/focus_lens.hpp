/// How a focused lens blurs nearer and farther points.
#pragma once

namespace orvo::scenes {

/// A thin lens in front of a sensor. The defaults are a moderate wide angle on a sensor of 36 mm across 1500 pixels;
/// larger pictures have a larger sensor, not finer pixels, so blur in pixels does not depend on the size of a picture.
struct FocusLens
{
    double focalLength = 35.0; ///< mm, above 0
    double aperture = 5.6;     ///< f-number, above 0
    double pixelPitch = 0.024; ///< mm from pixel to pixel, above 0
};

/// Diameter in pixels of the disc that a point at `distance` m makes when the lens is focused at `focus` m:
/// (f/N) * f / (s - f) * |1 - s/d|, from the lens formula 1/f = 1/s + 1/image distance. It is linear in 1/d on both
/// sides of the focus. Throws std::invalid_argument if a field of the lens or the distance is not above 0, or the focus
/// is not beyond the focal length.
[[nodiscard]] double circleOfConfusion(const FocusLens& lens, double focus, double distance);

} // namespace orvo::scenes
