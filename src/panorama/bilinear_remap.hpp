/// Bilinear resampling of pictures by maps.
#pragma once

#include <opencv2/core.hpp>

namespace orvo {

/// The same bits as cv::remap() with cv::INTER_LINEAR and cv::BORDER_REFLECT, which computes pictures of 16 bits
/// without vectors. `x` and `y`: places in the source as floats, of the size of `target`. Places beyond 2^26, for which
/// OpenCV's result depends on the column, and NaN give some pixel of the source. The target has the type of the source,
/// must not share its memory, and no side of the two has more than 32766 pixels. Rows run in parallel.
void remapBilinear(const cv::Mat& source, cv::Mat target, const cv::Mat& x, const cv::Mat& y);

} // namespace orvo
