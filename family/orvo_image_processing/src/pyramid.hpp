/// Rows of Gaussian and Laplacian pyramids (Burt, Adelson, 1983): reduction by two with the weights 1 4 6 4 1, and the
/// matching expansion. Edge samples are repeated. Level sizes are halved, rounded up.
#pragma once

#include <orvo_core/detail/vector_code.hpp>

namespace orvo::detail {

[[nodiscard]] constexpr int halved(int size) { return (size + 1) / 2; }

/// Number of samples that a row passed to narrowRow or widenRow must have readable beyond each end.
constexpr int kRowPad = 4;

/// out[x] = (a + 4 b + 6 c + 4 d + e) / 16, down five rows.
void reduceColumns(float* out, const float* a, const float* b, const float* c, const float* d, const float* e,
                   int width);

/// Repeats the first and the last of `width` samples kRowPad times beyond each end.
void padRow(float* row, int width);

/// Reduces a padded row of `width` samples to halved(width).
void narrowRow(float* out, const float* in, int width);

/// Column part of the expansion at row `y` of the larger level, from the adjacent rows of the smaller one.
void expandColumns(float* out, const float* above, const float* middle, const float* below, bool evenRow, int width);

/// Expands a padded row to `width` samples; `width` is that of the larger level. Writes up to halved(width) * 2
/// samples.
void widenRow(float* out, const float* in, int width);

} // namespace orvo::detail
