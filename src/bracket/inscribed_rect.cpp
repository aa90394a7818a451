#include "bracket/inscribed_rect.hpp"

#include <opencv2/calib3d.hpp>

#include <algorithm>
#include <cmath>
#include <optional>

namespace orvo {
namespace {

// Squared pixels; farther intersections come from a wrong transform.
constexpr float kFarthest = 1e10f;

// Pixels; corners are limited to it, so that they and the width between two of them fit an int.
constexpr float kOutermost = 1e9f;

// The intersection of the line through `origin` along `direction` with the line through a and b; empty if they are
// parallel.
std::optional<cv::Point2f> intersection(cv::Point2f origin, cv::Point2f direction, cv::Point2f a, cv::Point2f b)
{
    const cv::Point2f side = b - a;
    const float determinant = direction.x * side.y - direction.y * side.x;
    if (determinant == 0.0f)
        return std::nullopt;
    const cv::Point2f offset = a - origin;
    const float t = (offset.x * side.y - offset.y * side.x) / determinant;
    return origin + direction * t;
}

} // namespace

std::vector<cv::Point2f> projectedCorners(const cv::Mat& transform, int width, int height)
{
    const double w = width;
    const double h = height;
    const cv::Mat corners = (cv::Mat_<double>(4, 3) << 0, 0, 1, w, 0, 1, w, h, 1, 0, h, 1);
    cv::Mat projected = transform * corners.t();
    projected.convertTo(projected, CV_32F);
    std::vector<cv::Point2f> points;
    cv::convertPointsFromHomogeneous(projected.t(), points);
    return points;
}

cv::Rect inscribedRect(const std::vector<cv::Point2f>& corners, float width, float height)
{
    const cv::Point2f centre = (corners[0] + corners[1] + corners[2] + corners[3]) * 0.25f;
    float nearest = kFarthest;
    cv::Point2f found = centre;
    for (const cv::Point2f direction : {cv::Point2f(-width / 2, -height / 2), cv::Point2f(width / 2, -height / 2)}) {
        for (const std::size_t side : {std::size_t{0}, std::size_t{1}}) {
            const auto point = intersection(centre, direction, corners[side], corners[side + 1]);
            if (!point)
                continue;
            const cv::Point2f away = *point - centre;
            const float distance = away.dot(away);
            if (distance < nearest) {
                nearest = distance;
                found = *point;
            }
        }
    }
    const float dx = std::abs(found.x - centre.x);
    const float dy = std::abs(found.y - centre.y);
    const auto rounded = [](float v) { // NaN counts as outermost
        return static_cast<int>(std::rint(v > -kOutermost ? std::min(v, kOutermost) : -kOutermost));
    };
    return {cv::Point(rounded(centre.x + dx), rounded(centre.y + dy)),
            cv::Point(rounded(centre.x - dx), rounded(centre.y - dy))};
}

} // namespace orvo
