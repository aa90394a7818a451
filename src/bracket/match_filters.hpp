/// Filters of feature matches between two frames.
#pragma once

#include <opencv2/core/types.hpp>

#include <vector>

namespace orvo {

/// Keeps what both directions agree on: the first match of an entry of `matches12` whose query and train indices stand
/// crossed as the first match of an entry of `matches21`. In the order of `matches12`, whatever the number of threads.
void symmetryTest(const std::vector<std::vector<cv::DMatch>>& matches12,
                  const std::vector<std::vector<cv::DMatch>>& matches21, std::vector<cv::DMatch>& out);

/// Cuts off matches whose displacement is out of line: the sorted displacements on x and on y, as shares of `width` and
/// `height`, are scanned by deciles for a sudden jump in their growth, and the matches beyond it are dropped. Fewer
/// than 20 matches stay as they are.
void cutOutliers(std::vector<cv::DMatch>& matches, const std::vector<cv::KeyPoint>& keypoints1,
                 const std::vector<cv::KeyPoint>& keypoints2, float width, float height);

} // namespace orvo
