/// Sums over the edge of a region, for its interpolation: unit by unit nearby, in groups far away.
#pragma once

#include "place_tree.hpp"
#include "region_edge.hpp"

#include <orvo_core/pixel.hpp>

#include <vector>

namespace orvo::detail {

/// The known values along the edge of one part. Sums use the differences from `base`, so that a value constant along
/// the edge is reproduced exactly.
struct PartValues
{
    bool any = false;         ///< has a known edge pixel
    PixelRGB<float> base;     ///< the first known value
    PixelRGB<float> smallest; ///< bounds of the known differences from `base`
    PixelRGB<float> largest;
};

/// The range of each part's known values.
[[nodiscard]] std::vector<PartValues> knownValues(const std::vector<EdgePixel>& pixels, int parts,
                                                  const PixelRGB<float>* plane, int width);

/// Fills edge pixels without a value from those with one, weighted with the inverse square of the distance: Shepard, "A
/// two-dimensional interpolation function for irregularly-spaced data", 23rd ACM conference, 1968.
void fillOpenPixels(std::vector<EdgePixel> pixels, const std::vector<PartValues>& values, PixelRGB<float>* plane,
                    int width);

/// Mean value interpolation from the polygon through the edge pixels.
class EdgeSurface
{
public:
    /// Points evaluated together: one walk through the tree and full vector registers.
    static constexpr int kTogether = 8;

    struct Points
    {
        float x[kTogether];
        float y[kTogether];
        PixelRGB<float> value[kTogether]; ///< the result
    };

    /// `plane` has a value for each edge pixel of the parts with known values; other parts are skipped.
    EdgeSurface(std::vector<EdgeUnit> units, const std::vector<PartValues>& values, const PixelRGB<float>* plane,
                int width);

    /// Values at `count` points, 1 .. kTogether, inside of `part` and not on its polygon. Unused points repeat a used
    /// one. Fastest for points close to each other.
    void evaluate(Points& points, int count, int part) const;

private:
    /// A unit of the polygon from (x, y) to (x + dx, y + dy), with the differences from the part's base at both ends.
    struct Unit
    {
        float x, y, dx, dy;
        PixelRGB<float> from, to;
    };
    /// Far-field sums of a group of units: the sum of their normals, plain and times the value of each.
    struct Moments
    {
        float nx = 0.0f, ny = 0.0f;
        PixelRGB<float> vx, vy;
    };
    struct Sums;
    struct Walk;

    [[nodiscard]] Moments momentsOf(const PlaceNode& node) const;

    const std::vector<PartValues>& known;
    std::vector<Unit> units;
    std::vector<PlaceNode> nodes;
    std::vector<Moments> moments;
    std::vector<int> partStart; ///< first node of each part, and the end
};

} // namespace orvo::detail
