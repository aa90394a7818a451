/// Loads and saves frames for OpenCV in the benchmark programs.
#pragma once

#include "bench_pictures.hpp"

#include <opencv2/core.hpp>

namespace orvo::bench {

/// The frame in 8 bits, red first. Throws std::runtime_error that names the file.
inline cv::Mat load8(const char* path)
{
    const auto pixels = loadInSRGB(path);
    cv::Mat mat;
    cv::Mat(pixels->height(), pixels->width(), CV_32FC3, pixels->data()).convertTo(mat, CV_8UC3, 255.0);
    return mat;
}

} // namespace orvo::bench
