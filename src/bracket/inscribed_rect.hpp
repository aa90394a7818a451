/// The upright rectangle inside a projected frame.
#pragma once

#include <opencv2/core/types.hpp>

#include <vector>

namespace orvo {

/// Corners (0, 0), (width, 0), (width, height), (0, height) as `transform` (CV_64F 3x3) maps them.
[[nodiscard]] std::vector<cv::Point2f> projectedCorners(const cv::Mat& transform, int width, int height);

/// An upright rectangle about the centre of the four projected corners, in the frame's own proportions, that reaches
/// to the nearest of the first two sides, those through corner 1. The other two are not looked at: for the small
/// rotations of a handheld series the figure is nearly symmetric. Empty if no side is met.
[[nodiscard]] cv::Rect inscribedRect(const std::vector<cv::Point2f>& corners, float width, float height);

} // namespace orvo
