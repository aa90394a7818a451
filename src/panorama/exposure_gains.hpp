/// Applies the gains of an exposure compensator to a picture.
#pragma once

#include <opencv2/core/mat.hpp>
#include <opencv2/stitching/detail/exposure_compensate.hpp>

#include <string>

namespace orvo {

/// The gains of picture `index` as CV_32FC3 of `size`, bilinear between the centres of their blocks. Empty for
/// compensators without blocks and for an index out of range; `caller` starts the log line about it.
[[nodiscard]] cv::Mat blockGains(cv::detail::ExposureCompensator* compensator, int index, const cv::Size& size,
                                 const std::string& caller);

/// Multiplies `picture` (CV_16SC3) in place by `gains` (CV_32FC3), resized bilinearly: bit-identical to cv::resize and
/// cv::multiply, parallel over rows and without a matrix of gains of the picture's size, which would be twice as large
/// as the picture. The picture is at least as large as the gains in both directions. Peak: some rows per thread.
void multiplyByGains(cv::Mat& picture, const cv::Mat& gains);

} // namespace orvo
