/// The search behind inscribedRectOfMask().
#pragma once

#include <opencv2/core/mat.hpp>

namespace orvo {

/// The largest upright rectangle of `binary` (CV_8UC1) without a zero; empty if everything is zero. Of equal areas the
/// one of least height wins, then the topmost, then the leftmost. Grows a rectangle down from each row along the runs
/// that stay covered: the cost grows with the square of the rows, not with the pixels. Parallel over rows.
[[nodiscard]] cv::Rect largestRectWithoutZero(const cv::Mat& binary);

/// Fills the holes of the largest region in `binary` first.
[[nodiscard]] cv::Rect calculateMaxInscribedRect(cv::Mat& binary);

} // namespace orvo
