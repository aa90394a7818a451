/// Computes rows of a warper's maps: the results of mapPlaneToImage() and mapToIntermediate(), for the loops that fill
/// the maps of a picture.
#pragma once

#include "panorama/panorama_warper.hpp"
#include "panorama/projections.hpp"

#include <vector>

namespace orvo {

/// The points u(c) = (firstColumn + c) * step + start, 0 <= c < count, of any row of a plane. Everything that depends
/// only on the column is computed once, here; sphere, cylinder and Mercator then cost a few products per point.
/// Immutable: rows may be computed on many threads at once. The warper must outlive it and keep its camera and
/// rotation.
///
/// To an image, plane, cylinder, sphere and Mercator give the same bits as single points, and the two stereographic
/// ones directions within 1e-6. On the sphere points are within 1e-6 radian of the truth everywhere; single points are
/// off by up to 5e-4 near its poles, where the inverse cosine of a float is inaccurate.
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
    const PanoramaWarper& target; ///< the target of toIntermediate()
    const Projection* projection; ///< empty for a class that is not in the table: it is computed point by point
    const Projection* targetProjection;
    std::vector<float> u;
    // For each column: as in projections::Columns.
    std::vector<float> across;
    std::vector<float> ahead;
};

} // namespace orvo
