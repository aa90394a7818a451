/// Blur of one float plane.
#pragma once

#include <orvo_common/export.hpp>

namespace orvo {

/// Writes into `dst` the `width` x `height` plane `src`, blurred with the separable kernel of weights
/// radius + 1 - |i|, |i| <= radius (a triangle: two boxes of radius + 1 in a row), divided by the sum of the weights.
/// The border is mirrored with its edge sample repeated, which preserves the sum of all samples. A radius of 0 or less
/// copies. Time per pixel does not grow with the radius: running sums in double, restarted every few rows so that
/// they do not drift; radius 1 takes a direct path. A radius beyond eight sides is reduced to that: the result is
/// then the mean to within a percent of the contrast. A non-finite sample spoils samples near it, further than the
/// radius, but never those of other bands of rows. `dst` and `src` must not overlap. Any thread; parallel;
/// bit-identical for any number of threads. Scratch: some rows per thread. Throws std::bad_alloc.
ORVO_EXPORT void grfx_fast_blur_gray(float* dst, const float* src, int width, int height, int radius);

} // namespace orvo
