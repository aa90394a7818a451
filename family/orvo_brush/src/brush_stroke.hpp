// Stamp positions of a stroke, and the effect of a stamp on a mask.
#pragma once

#include <orvo_brush/brush_settings.hpp>
#include <orvo_core/geometry.hpp>
#include <orvo_image_processing/tiled_mask_image.hpp>

#include <functional>
#include <optional>

namespace orvo {

// A round brush with its values clamped to their ranges.
struct Brush
{
    double radius = 0.0;
    double softness = 0.0;
    float opacity = 0.0f;

    // Distance between stamps. A tiny brush stamps no denser than its antialiased rim needs.
    [[nodiscard]] double spacing() const;
    // Radius beyond which a stamp has no effect.
    [[nodiscard]] double reach() const;
};

// Follows the line through the points of a stroke.
class StrokePath
{
public:
    using Stamp = std::function<void(double x, double y)>;

    // Calls `stamp` for every stamp between the last point and this one that touches a mask of `size`.
    void advance(const _Point<float>& point, const Brush& brush, _Size<int> size, const Stamp& stamp);

private:
    std::optional<_Point<double>> last;
    double sinceStamp = 0.0; // distance since the last stamp
};

// Coverage of one stroke over a mask.
class StrokeLayer
{
public:
    explicit StrokeLayer(_Size<int> size) : coverage(size) {}

    // Raises the coverage where the stamp is stronger and updates `mask`: `base`, drawn or erased through the coverage.
    void stamp(double x, double y, const Brush& brush, DrawingMode mode, const TiledMaskImage& base,
               TiledMaskImage& mask);

private:
    TiledMaskImage coverage;
};

} // namespace orvo
