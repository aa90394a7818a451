/// Blur of one float plane.
#pragma once

#include <orvo_common/export.hpp>

namespace orvo {

/// Writes into `dst` the `width` x `height` plane `src`, blurred with the separable kernel of weights
/// radius + 1 - |i|, |i| <= radius (a triangle: two boxes of radius + 1 in a row), over the sum of the weights.
/// The border is mirrored with its edge sample repeated, so that the sum of all samples is kept. Radius 0 or less
/// copies. The time per pixel does not grow with the radius: running sums, in double and started anew every few rows,
/// so that they do not drift; radius 1 takes a direct path. A radius beyond eight sides is cut to that: the result is
/// then the mean to within a percent of the contrast. A sample that is not finite spoils samples beside it, further
/// than the radius, but never those of other bands of rows. `dst` and `src` do not overlap. Any thread; parallel; the
/// same bits for any number of threads. Scratch: some rows per thread. Throws std::bad_alloc.
ORVO_EXPORT void grfx_fast_blur_gray(float* dst, const float* src, int width, int height, int radius);

} // namespace orvo
