/// The box of an area on the plane of a projection, found from a grid of points.
#pragma once

#include "panorama/map_box.hpp"
#include "panorama/projections.hpp"

#include <opencv2/core/types.hpp>

#include <array>
#include <vector>

namespace orvo {

/// Points of an area on a plane, kSide rows of kSide. The box of the points alone is too small where the projection
/// cuts the sphere: the meridian behind the camera is at both ends of the plane, and a pole is a whole row. The points
/// on each side of them can be dozens of pixels away.
class SampledArea
{
public:
    static constexpr int kSide = 100;

    /// `projection` may be empty for a plane without cuts.
    SampledArea(const Projection* planeProjection, float planeScale);

    /// Sets a point; different points may be set on different threads.
    void set(int column, int row, float u, float v);
    /// Adds the pole above (0) or below (1), which the area contains.
    void addPole(std::size_t pole);

    /// The box of the points. Where neighbouring points jump across the meridian, or a pole was added, it has the whole
    /// width of the plane, and with a pole it ends there.
    struct Box
    {
        Span u;
        Span v;
    };
    [[nodiscard]] Box box() const;

    /// The directions of the poles of a projection: above and below.
    static constexpr std::array<float, 2> kPoleHeights = {-1.0f, 1.0f}; // as y of the ray (0, y, 0)

private:
    [[nodiscard]] bool crossesTheMeridian() const;

    const Projection* projection;
    float scale;
    std::vector<cv::Point2f> points;
    std::array<bool, 2> hasPole{};
};

} // namespace orvo
