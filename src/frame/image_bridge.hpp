/// Conversions between the family's pictures and OpenCV's matrices.
///
/// In OpenCV matrices colour is CV_16SC3, blue first, with full scale kWorkingWhite, or CV_8UC3, blue first, with full
/// scale 255; masks are CV_8UC1 (0..255) or CV_32FC1 (0..1). Colour is always sRGB. In the family's pictures 1.0 is
/// full scale and red comes first.
///
/// All functions may be called from any thread, are parallel over the rows of the result and give the same bytes for
/// any number of threads. They log nothing: a matrix of another type gives an empty result. Exceptions of the
/// allocators reach the caller. Peak: the result alone.
#pragma once

#include <orvo_core/image_data.hpp>

#include <opencv2/core/mat.hpp>

#include <memory>

namespace orvo {

/// Full scale of working colour matrices. Half the range of 16 signed bits, so that sums of two fit during blending.
inline constexpr float kWorkingWhite = 16383.0f;

/// Returns a new CV_16SC3 matrix of the picture's size. Converts profiles other than sRGB; the picture is not changed.
/// A picture without a profile is used without conversion. Samples are limited to 0..1 (NaN becomes 0) and truncated.
/// An empty pointer gives an empty matrix. Throws the exceptions of _ImageData::colorTransform() for profiles that do
/// not describe RGB pixels.
[[nodiscard]] cv::Mat cvMatFromImageData(std::shared_ptr<const _ImageData<PixelRGB<float>>> image);

/// The same for a picture in exactly ColorProfileType::sRGB() as if it had been converted to melissaRGB() before, to
/// the bit. Only pixels near a border between two integers go that way, so it costs a fraction of both conversions.
/// Pictures of other profiles are converted by cvMatFromImageData().
[[nodiscard]] cv::Mat cvMatThroughWorkingSpace(std::shared_ptr<const _ImageData<PixelRGB<float>>> image);

/// Returns a new sRGB picture from a matrix of type CV_8UC1 (gray for all three channels), CV_8UC3 or CV_16SC3;
/// negative samples of the last become 0, those above full scale 1. Empty pointer for any other type.
[[nodiscard]] std::shared_ptr<_ImageData<PixelRGB<float>>> imageDataFromCVMat(const cv::Mat& mat);

/// Returns a new plane, without a profile, from a matrix of type CV_8UC1 (255 becomes 1) or CV_32FC1 (copied unchanged,
/// not limited). Empty pointer for any other type.
[[nodiscard]] std::shared_ptr<_ImageData<float>> ImageDataGrayFromCVMat(const cv::Mat& mat);

/// Resamples the rectangle `rect` of `src` (CV_8UC1 or CV_16SC3) into `dst` of exactly `size`: pixel (x, y) is the
/// bilinear sample at (rect.x + x * rect.width / size.width, rect.y + y * rect.height / size.height), where integers
/// are sample positions, truncated toward zero. The last column and row repeat beyond the border. `rect` must be inside
/// `src`: callers intersect it first. `dst` must not be `src`; it is not changed if `src` is empty or of another type.
void copyPart(cv::InputArray src, cv::OutputArray dst, const cv::Rect_<float>& rect, const cv::Size_<int>& size);

} // namespace orvo
