// Where the stamps of a stroke fall, and what one does to a mask.
#pragma once

#include <orvo_brush/brush_settings.hpp>
#include <orvo_core/geometry.hpp>
#include <orvo_image_processing/tiled_mask_image.hpp>

#include <functional>
#include <optional>

namespace orvo {

// A round brush with its values within their ranges.
struct Brush
{
    double radius = 0.0;
    double softness = 0.0;
    float opacity = 0.0f;

    // Distance between stamps. A tiny brush does not stamp more often than its antialiased rim needs.
    [[nodiscard]] double spacing() const;
    // Beyond this distance from its centre a stamp is nothing.
    [[nodiscard]] double reach() const;
};

// Walks along the line through a stroke's points.
class StrokePath
{
public:
    using Stamp = std::function<void(double x, double y)>;

    // Calls `stamp` for every place from the last point to this one that touches a mask of `size`.
    void advance(const _Point<float>& point, const Brush& brush, _Size<int> size, const Stamp& stamp);

private:
    std::optional<_Point<double>> last;
    double sinceStamp = 0.0; // length of the line behind the last stamp
};

// Coverage of one stroke over a mask.
class StrokeLayer
{
public:
    explicit StrokeLayer(_Size<int> size) : coverage(size) {}

    // Raises the coverage where the stamp is stronger and puts what follows from it into `mask`: `base`, drawn or
    // erased through the coverage.
    void stamp(double x, double y, const Brush& brush, DrawingMode mode, const TiledMaskImage& base,
               TiledMaskImage& mask);

private:
    TiledMaskImage coverage;
};

} // namespace orvo
