/// Warps a picture once, to a fraction of a pixel.
#pragma once

#include <orvo_core/image_data.hpp>

#include <opencv2/core/matx.hpp>

#include <memory>

namespace orvo {

/// `source` seen through the homography `sourceFromTarget`: pixel centres are at integers in both. A new picture of
/// `size` with the source's profile.
[[nodiscard]] std::shared_ptr<_ImageData<PixelRGB<float>>>
lanczosWarp(const _ImageData<PixelRGB<float>>& source, const cv::Matx33d& sourceFromTarget, _Size<int> size);

} // namespace orvo
