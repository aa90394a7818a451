/// The upright rectangle inside a projected frame.
#pragma once

#include <opencv2/core/types.hpp>

#include <vector>

namespace orvo {

/// Corners (0, 0), (width, 0), (width, height), (0, height) mapped by `transform` (CV_64F 3x3).
[[nodiscard]] std::vector<cv::Point2f> projectedCorners(const cv::Mat& transform, int width, int height);

/// An upright rectangle around the centre of the four projected corners, with the frame's proportions, that extends to
/// the nearer of the first two sides, those through corner 1. The other two are ignored: for the small rotations of a
/// handheld series the figure is nearly symmetric. Empty if neither side is hit.
[[nodiscard]] cv::Rect inscribedRect(const std::vector<cv::Point2f>& corners, float width, float height);

} // namespace orvo
