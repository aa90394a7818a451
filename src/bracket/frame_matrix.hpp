/// Pictures of float pixels as OpenCV matrices, with unchanged values and channel order.
#pragma once

#include <orvo_core/pixel.hpp>

#include <opencv2/core/mat.hpp>

namespace orvo {

/// Returns a new CV_32FC3 matrix of `width` by `height` with a copy of the pixels.
[[nodiscard]] cv::Mat cvMatFromFrame(const PixelRGB<float>* pixels, int width, int height);

/// The reverse copy. `mat` is CV_32FC3; `pixels` is large enough for all of it.
void matToFrame(const cv::Mat& mat, PixelRGB<float>* pixels);

/// A matrix that refers to the pixels without copying them. They must outlive it and must not be written through it.
[[nodiscard]] cv::Mat viewOfFrame(const PixelRGB<float>* pixels, int width, int height);

} // namespace orvo
