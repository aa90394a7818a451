/// Whole rows of a warper's maps at once: what mapPlaneToImage() and mapToIntermediate() give point by point, for the
/// loops that fill the maps of a picture.
#pragma once

#include "panorama/panorama_warper.hpp"
#include "panorama/projections.hpp"

#include <vector>

namespace orvo {

/// The points u(c) = (firstColumn + c) * step + start, 0 <= c < count, of any row of a plane. What depends on the
/// column alone is computed once, here; sphere, cylinder and Mercator then cost a few products a point. Immutable: the
/// rows may be asked for from many threads at once. The warper must outlive it and keep its camera and rotation.
///
/// To an image, plane, cylinder, sphere and Mercator give the bits of the single points, and the two stereographic ones
/// directions within 1e-6. On the sphere points are within 1e-6 radian of the truth everywhere; the single ones lose up
/// to 5e-4 near its poles, where the inverse cosine of a float says little.
class WarpRows
{
public:
    WarpRows(const PanoramaWarper& warper, int firstColumn, int count, float step, float start);

    /// mapPlaneToImage() of the points of row `v`: `count` values of x and of y.
    void toImage(float v, float* x, float* y) const;
    /// mapToIntermediate() of the points of row `v`.
    void toIntermediate(float v, float* x, float* y) const;

private:
    void raysOf(float v, int first, int length, const projections::Rays& rays) const;
    void project(const projections::Rays& rays, int length, float* x, float* y) const;

    const PanoramaWarper& warper;
    const PanoramaWarper& target; ///< the other side of toIntermediate()
    const Projection* projection; ///< empty for a class that is not in the table: it goes point by point
    const Projection* targetProjection;
    std::vector<float> u;
    // Of each column: as projections::Columns has it.
    std::vector<float> across;
    std::vector<float> ahead;
};

} // namespace orvo
