/// Dilation of one float plane.
#pragma once

#include <orvo_common/export.hpp>
#include <orvo_core/geometry.hpp>

namespace orvo {

/// Replaces each sample of the plane `data` by the maximum of the square of 2 radius + 1 samples around it, clipped to
/// the plane. A radius of 0 or less changes nothing. The time per pixel does not depend on the radius: van Herk, "A
/// fast algorithm for local minimum and maximum filters on rectangular and octagonal kernels", Pattern Recognition
/// Letters 13(7), 1992. `scratch` is a plane of the same size, or null: the call then allocates one from MemoryManager.
/// Samples may be infinite, but not NaN. Any thread; parallel; the same bits for any number of threads. Further
/// scratch: a few rows or columns per thread. Throws std::bad_alloc.
ORVO_EXPORT void dilateFast(float* data, const _Size<int>& size, int radius, float* scratch);

} // namespace orvo
