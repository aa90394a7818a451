/// Where a picture is sharp.
#pragma once

#include <opencv2/core.hpp>

#include <vector>

namespace orvo {

/// Fine detail of each of kTilesAcross x kTilesAcross tiles of a gray picture: half the log2 of the mean square of its
/// Laplacian, in octaves of amplitude, not below that of the noise.
[[nodiscard]] std::vector<float> tileSharpness(const cv::Mat& gray);

/// How differently the tiles of two pictures of one view changed from `before` to `after`, in octaves: the difference
/// of high and low quantiles over the tiles with detail. A change of the whole picture, by a shaking hand or another
/// exposure, does not count; a moved plane of focus makes some tiles sharper and others softer.
[[nodiscard]] float sharpnessChange(const std::vector<float>& before, const std::vector<float>& after);

} // namespace orvo
