/// Affine maps of the plane.
#pragma once

#include <orvo_core/geometry.hpp>

namespace orvo {

/// (x, y) -> (xx x + xy y + x0, yx x + yy y + y0), in pixels; (0, 0) is the upper left corner of the first pixel, whose
/// centre is (0.5, 0.5). The identity by default.
struct AffineTransform
{
    double xx = 1.0;
    double xy = 0.0;
    double x0 = 0.0;
    double yx = 0.0;
    double yy = 1.0;
    double y0 = 0.0;

    [[nodiscard]] static constexpr AffineTransform makeIdentity() { return {}; }
    [[nodiscard]] constexpr _Point<double> map(double x, double y) const
    {
        return {xx * x + xy * y + x0, yx * x + yy * y + y0};
    }
    constexpr bool operator==(const AffineTransform&) const = default;
};

} // namespace orvo
