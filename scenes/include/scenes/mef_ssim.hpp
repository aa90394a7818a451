/// Measures how well one picture preserves the content of a bracket.
#pragma once

#include <scenes/metrics.hpp>

#include <memory>
#include <vector>

namespace orvo::scenes {

/// MEF-SSIM: quality of a picture fused from frames of several exposures, at most 1, higher is better (Ma, Zeng, Wang,
/// "Perceptual quality assessment for multi-exposure image fusion", IEEE TIP 24(11), 2015). In each window the
/// strongest contrast of the frames and their weighted structure form the desired signal, which is compared with the
/// fused one; C = (0.03)^2 of full scale 1, Gaussian windows of 11x11 with deviation 1.5, three scales with the
/// exponents 0.0448, 0.2856 and 0.3001 normalised to sum to 1, each scale half the size by the mean of 2x2 pixels.
///
/// Uses luma (Rec. 601) of the encoded values, 0..1; all pictures must be aligned and in one colour space. The order of
/// the frames does not matter. Throws std::invalid_argument without frames, if sizes differ, or if a side is below 44
/// pixels (11 at the coarsest scale). Peak: (frames + 1) * 4/3 planes of one channel. Usable from any thread; the
/// result does not depend on the number of threads.
[[nodiscard]] double mefSsim(const std::vector<std::shared_ptr<const Picture>>& frames, const Picture& fused);

} // namespace orvo::scenes
