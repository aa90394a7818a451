/// How the gains of an exposure compensator reach a picture.
#pragma once

#include <opencv2/core/mat.hpp>
#include <opencv2/stitching/detail/exposure_compensate.hpp>

#include <string>

namespace orvo {

/// The gains of picture `index` as CV_32FC3 of `size`, bilinear between the middles of their blocks. Empty for any
/// other compensator than one of blocks, and for an index outside of its list; `caller` starts the log line about it.
[[nodiscard]] cv::Mat blockGains(cv::detail::ExposureCompensator* compensator, int index, const cv::Size& size,
                                 const std::string& caller);

} // namespace orvo
