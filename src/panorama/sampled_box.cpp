#include "panorama/sampled_box.hpp"

#include <cmath>

namespace orvo {
namespace {

constexpr auto kRow = static_cast<std::size_t>(SampledArea::kSide);

} // namespace

SampledArea::SampledArea(const Projection* planeProjection, float planeScale)
    : projection(planeProjection), scale(planeScale), points(kRow * kRow)
{}

void SampledArea::set(int column, int row, float u, float v)
{
    points[static_cast<std::size_t>(row) * kRow + static_cast<std::size_t>(column)] = {u, v};
}

void SampledArea::addPole(std::size_t pole) { hasPole[pole] = true; }

// A cell of the grid is much narrower than half a turn, unless a pole is in it or beside it.
bool SampledArea::crossesTheMeridian() const
{
    const float half = projections::halfTurn(scale);
    const auto isJump = [&](const cv::Point2f& a, const cv::Point2f& b) { return std::abs(a.x - b.x) > half; };
    for (std::size_t i = 0; i < points.size(); ++i)
        if ((i % kRow != 0 && isJump(points[i], points[i - 1])) || (i >= kRow && isJump(points[i], points[i - kRow])))
            return true;
    return false;
}

SampledArea::Box SampledArea::box() const
{
    Box found;
    for (const cv::Point2f& point : points) {
        found.u.take(point.x);
        found.v.take(point.y);
    }
    if (projection == nullptr || !projection->hasLongitude)
        return found;
    if (hasPole[0] || hasPole[1] || crossesTheMeridian()) {
        found.u.take(-projections::halfTurn(scale));
        found.u.take(projections::halfTurn(scale));
    }
    for (std::size_t pole = 0; pole < hasPole.size(); ++pole)
        if (hasPole[pole])
            found.v.take(scale * projection->poles[pole]);
    return found;
}

} // namespace orvo
