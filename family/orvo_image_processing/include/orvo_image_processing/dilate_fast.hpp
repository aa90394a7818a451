/// Dilation of one float plane.
#pragma once

#include <orvo_common/export.hpp>
#include <orvo_core/geometry.hpp>

namespace orvo {

/// Replaces each sample of the plane `data` by the largest of the square of 2 radius + 1 samples about it, as far as
/// the plane holds it. Radius 0 or less changes nothing. The time per pixel does not grow with the radius: van Herk, "A
/// fast algorithm for local minimum and maximum filters on rectangular and octagonal kernels", Pattern Recognition
/// Letters 13(7), 1992. `scratch` is a plane of the same size, or null: then one comes from MemoryManager for the time
/// of the call. Samples are numbers, infinite ones included. Any thread; parallel; the same bits for any number of
/// threads. Scratch beside it: a few rows or columns a thread. Throws std::bad_alloc.
ORVO_EXPORT void dilateFast(float* data, const _Size<int>& size, int radius, float* scratch);

} // namespace orvo
