/// Turns masks into a partition.
#pragma once

#include <opencv2/core/mat.hpp>

#include <vector>

namespace orvo {

/// Turns the seam masks `masks` into a partition of the union of the whole masks (both CV_8UC1, of equal sizes, at
/// `corners` on one canvas). A pixel that two masks claim goes to the first; a pixel that none claims goes to the first
/// picture whose whole mask covers it, with the value 1. In place; parallel over rows of the canvas.
void fitMasks(std::vector<cv::Mat>& masks, const std::vector<cv::Mat>& wholeMasks,
              const std::vector<cv::Point>& corners);

} // namespace orvo
