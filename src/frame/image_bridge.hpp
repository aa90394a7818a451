/// The border between the family's pictures and OpenCV's matrices.
///
/// On the side of OpenCV colour is CV_16SC3, blue first, with full scale kWorkingWhite, or CV_8UC3, blue first, with
/// full scale 255; masks are CV_8UC1 (0..255) or CV_32FC1 (0..1). Colour there is always sRGB. On the family's side
/// 1.0 is full scale and red comes first.
///
/// All functions may be called from any thread, are parallel over the rows of the result and give the same bytes for
/// any number of threads. They report nothing: a matrix of another type gives an empty result. Exceptions of the
/// allocators pass through. Peak: the result alone.
#pragma once

#include <orvo_core/image_data.hpp>

#include <opencv2/core/mat.hpp>

#include <memory>

namespace orvo {

/// Full scale of working colour matrices. Half of what 16 signed bits hold, so that sums of two fit while pictures are
/// blended.
inline constexpr float kWorkingWhite = 16383.0f;

/// A new CV_16SC3 matrix of the picture's size. Another profile than sRGB is converted on the way, the picture itself
/// stays as it is; a picture without a profile is taken as it stands. Samples are limited to 0..1 (what is not a number
/// becomes 0) and truncated. An empty pointer gives an empty matrix. Throws what _ImageData::colorTransform() throws
/// for profiles that do not describe RGB pixels.
[[nodiscard]] cv::Mat cvMatFromImageData(std::shared_ptr<const _ImageData<PixelRGB<float>>> image);

/// A new sRGB picture of a matrix of type CV_8UC1 (gray for all three channels), CV_8UC3 or CV_16SC3; negative samples
/// of the last become 0, those beyond full scale 1. Empty pointer for any other type.
[[nodiscard]] std::shared_ptr<_ImageData<PixelRGB<float>>> imageDataFromCVMat(const cv::Mat& mat);

/// A new plane, without a profile, of a matrix of type CV_8UC1 (255 becomes 1) or CV_32FC1 (copied as it stands, not
/// limited). Empty pointer for any other type.
[[nodiscard]] std::shared_ptr<_ImageData<float>> ImageDataGrayFromCVMat(const cv::Mat& mat);

/// Resamples the rectangle `rect` of `src` (CV_8UC1 or CV_16SC3) into `dst` of exactly `size`: pixel (x, y) is the
/// bilinear sample at (rect.x + x * rect.width / size.width, rect.y + y * rect.height / size.height), where whole
/// numbers are samples, truncated toward zero. Beyond the last column and row these repeat. `rect` must lie in `src`:
/// callers intersect it before. `dst` must not be `src`; it stays as it was where `src` is empty or of another type.
void copyPart(cv::InputArray src, cv::OutputArray dst, const cv::Rect_<float>& rect, const cv::Size_<int>& size);

} // namespace orvo
