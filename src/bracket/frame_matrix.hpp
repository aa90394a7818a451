/// Pictures of float pixels as OpenCV matrices, values and channel order as they stand.
#pragma once

#include <orvo_core/pixel.hpp>

#include <opencv2/core/mat.hpp>

namespace orvo {

/// A new CV_32FC3 matrix of `width` by `height` with a copy of the pixels.
[[nodiscard]] cv::Mat cvMatFromFrame(const PixelRGB<float>* pixels, int width, int height);

/// The reverse copy. `mat` is CV_32FC3; `pixels` has room for all of it.
void matToFrame(const cv::Mat& mat, PixelRGB<float>* pixels);

/// A matrix that looks at the pixels without copying them. They must outlive it and must not be written through it.
[[nodiscard]] cv::Mat viewOfFrame(const PixelRGB<float>* pixels, int width, int height);

} // namespace orvo
