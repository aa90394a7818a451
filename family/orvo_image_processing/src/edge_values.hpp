/// Sums over the edge of a region, for the interpolation from it: near stretches unit by unit, far ones as a whole.
#pragma once

#include "place_tree.hpp"
#include "region_edge.hpp"

#include <orvo_core/pixel.hpp>

#include <vector>

namespace orvo::detail {

/// What is known along the edge of one part. Sums are taken of the differences from `base`, so that a value which is
/// the same all along the edge comes out as it went in.
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

/// Fills edge pixels that have no value from those that have one, weighted with the inverse square of the distance:
/// Shepard, "A two-dimensional interpolation function for irregularly-spaced data", 23rd ACM conference, 1968.
void fillOpenPixels(std::vector<EdgePixel> pixels, const std::vector<PartValues>& values, PixelRGB<float>* plane,
                    int width);

/// Mean value interpolation from the polygon through the edge pixels.
class EdgeSurface
{
public:
    /// Points that are asked for together: one walk through the tree and full vector registers.
    static constexpr int kTogether = 8;

    struct Points
    {
        float x[kTogether];
        float y[kTogether];
        PixelRGB<float> value[kTogether]; ///< the result
    };

    /// `plane` holds a value for each edge pixel of the parts that know any; parts without are left out.
    EdgeSurface(std::vector<EdgeUnit> units, const std::vector<PartValues>& values, const PixelRGB<float>* plane,
                int width);

    /// Values at `count` points, 1 .. kTogether, which lie inside `part` and off its polygon. Unused points repeat a
    /// used one. The nearer they are to each other, the faster.
    void evaluate(Points& points, int count, int part) const;

private:
    /// A unit of the polygon from (x, y) to (x + dx, y + dy), with the differences from the part's base at both ends.
    struct Unit
    {
        float x, y, dx, dy;
        PixelRGB<float> from, to;
    };
    /// What a group of units looks like from afar: the sum of their normals, plain and times the value of each.
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
