/// Rotations from their axis.
#pragma once

#include <opencv2/calib3d.hpp>

namespace orvo {

/// The rotation about the axis (x, y, z) by its length in radians: 3x3, CV_32F.
[[nodiscard]] inline cv::Mat rotationOf(float x, float y, float z)
{
    const cv::Mat vector = (cv::Mat_<float>(3, 1) << x, y, z);
    cv::Mat rotation;
    cv::Rodrigues(vector, rotation);
    return rotation;
}

} // namespace orvo
