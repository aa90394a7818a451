/// OpenCV matrices whose samples come from the family's MemoryManager.
#pragma once

#include <opencv2/core/mat.hpp>

namespace orvo {

/// A matrix of `rows` by `cols`, contents not set. Its plane is kept for reuse when the last header of it is gone: a
/// fresh one of some megapixels costs more in page faults than a conversion writes into it. Otherwise a matrix like any
/// other, also as a UMat. Usable from any thread. Throws cv::Exception on a negative size, std::bad_alloc.
[[nodiscard]] cv::Mat managedMat(int rows, int cols, int type);

} // namespace orvo
