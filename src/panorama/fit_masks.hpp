/// Makes masks a partition.
#pragma once

#include <opencv2/core/mat.hpp>

#include <vector>

namespace orvo {

/// Makes the seamed masks `masks` a partition of the union of the whole masks (both CV_8UC1, of equal sizes, placed by
/// `corners` on one canvas). A pixel that two masks claim stays with the first; one that none claims goes to the first
/// picture whose whole mask has it, with the value 1. In place; parallel over rows of the canvas.
void fitMasks(std::vector<cv::Mat>& masks, const std::vector<cv::Mat>& wholeMasks,
              const std::vector<cv::Point>& corners);

} // namespace orvo
