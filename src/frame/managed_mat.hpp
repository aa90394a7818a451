/// OpenCV matrices whose samples come from the family's MemoryManager.
#pragma once

#include <opencv2/core/mat.hpp>

namespace orvo {

/// Returns a matrix of `rows` by `cols` with undefined contents. Its plane is kept for reuse when its last header is
/// destroyed: the page faults of a new plane of some megapixels cost more than a conversion that fills it. Otherwise it
/// behaves like any matrix, also as a UMat. Thread-safe. Throws cv::Exception on a negative size, std::bad_alloc.
[[nodiscard]] cv::Mat managedMat(int rows, int cols, int type);

/// The same with zeros, which take memory only where they are overwritten, by the page.
[[nodiscard]] cv::Mat managedZeros(int rows, int cols, int type);

} // namespace orvo
