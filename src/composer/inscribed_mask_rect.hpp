/// The search behind inscribedRectOfMask().
#pragma once

#include <opencv2/core/mat.hpp>

namespace orvo {

/// The largest upright rectangle without a zero in `binary` (CV_8UC1), after the holes of its largest region have been
/// filled in it. Of equal areas the one of least height wins, then the topmost, then the leftmost; zero if all is zero.
/// Grows a rectangle down from each row, by the runs that stay covered: the cost goes with the square of the rows, not
/// with the pixels. Parallel over rows.
[[nodiscard]] cv::Rect calculateMaxInscribedRect(cv::Mat& binary);

} // namespace orvo
