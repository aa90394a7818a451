/// The homography between two neighbouring frames.
#pragma once

#include <opencv2/core.hpp>

#include <vector>

namespace orvo {

/// Key points of an 8-bit picture, for estimatePair().
/// SURF: Bay, Ess, Tuytelaars, Van Gool, CVIU 110(3), 2008.
[[nodiscard]] std::vector<cv::KeyPoint> detectKeypoints(const cv::Mat& picture);

/// Matches two 8-bit pictures of similar exposure, which have `scale` times the frames' size, by their key points; key
/// points without a descriptor are removed. `homography` (CV_64F 3x3) maps the second frame onto the first at full
/// scale; identity if there is none. `width` and `height` are the frames' size. Returns whether it can be trusted; a
/// failure is logged. For a single pair results do not depend on the number of threads.
[[nodiscard]] bool estimatePair(const cv::Mat& picture1, std::vector<cv::KeyPoint>& keypoints1, const cv::Mat& picture2,
                                std::vector<cv::KeyPoint>& keypoints2, cv::Mat& homography, double scale, int width,
                                int height);

} // namespace orvo
