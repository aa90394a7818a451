/// Filters of feature matches between two frames.
#pragma once

#include <opencv2/core/types.hpp>

#include <vector>

namespace orvo {

/// Keeps matches that both directions agree on: the first match of an entry of `matches12` whose query and train
/// indices are, swapped, the first match of an entry of `matches21`. In the order of `matches12`, for any number of
/// threads.
void symmetryTest(const std::vector<std::vector<cv::DMatch>>& matches12,
                  const std::vector<std::vector<cv::DMatch>>& matches21, std::vector<cv::DMatch>& out);

/// Removes matches with outlying displacements: scans the sorted displacements on x and on y, as shares of `width` and
/// `height`, by deciles for a sudden jump in their growth, and drops the matches beyond it. Fewer than 20 matches are
/// kept unchanged.
void cutOutliers(std::vector<cv::DMatch>& matches, const std::vector<cv::KeyPoint>& keypoints1,
                 const std::vector<cv::KeyPoint>& keypoints2, float width, float height);

} // namespace orvo
