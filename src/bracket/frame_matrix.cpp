#include "bracket/frame_matrix.hpp"

#include <orvo_core/parallel.hpp>

#include <cstring>

namespace orvo {

cv::Mat cvMatFromFrame(const PixelRGB<float>* pixels, int width, int height)
{
    cv::Mat mat(height, width, CV_32FC3);
    const std::size_t rowBytes = static_cast<std::size_t>(width) * sizeof(PixelRGB<float>);
    forEachRow(height,
               [&](int y) { std::memcpy(mat.ptr(y), pixels + static_cast<std::ptrdiff_t>(y) * width, rowBytes); });
    return mat;
}

void matToFrame(const cv::Mat& mat, PixelRGB<float>* pixels)
{
    const std::size_t rowBytes = static_cast<std::size_t>(mat.cols) * sizeof(PixelRGB<float>);
    forEachRow(mat.rows,
               [&](int y) { std::memcpy(pixels + static_cast<std::ptrdiff_t>(y) * mat.cols, mat.ptr(y), rowBytes); });
}

cv::Mat viewOfFrame(const PixelRGB<float>* pixels, int width, int height)
{
    return {height, width, CV_32FC3, const_cast<PixelRGB<float>*>(pixels)};
}

} // namespace orvo
