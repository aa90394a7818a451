/// Smooth noise; pictures with no common content.
#pragma once

#include "support/pictures.hpp"

#include <opencv2/imgproc.hpp>

#include <cstdint>
#include <memory>

namespace orvo::test {

/// Registration of the second sky onto the first ends far outside of the frame, for these two also with some noise.
constexpr std::uint64_t kSkyOfReference = 110;
constexpr std::uint64_t kSkyElsewhere = 111;

/// 120 x 90 pixels, gray, 0.1 to 0.9.
inline std::shared_ptr<Picture> clouds(std::uint64_t sky)
{
    constexpr int kWidth = 120;
    constexpr int kHeight = 90;
    constexpr double kSoftness = 16.0; // px
    cv::RNG random(sky);
    cv::Mat noise(kHeight, kWidth, CV_32F);
    random.fill(noise, cv::RNG::UNIFORM, 0, 1);
    cv::GaussianBlur(noise, noise, {}, kSoftness);
    cv::normalize(noise, noise, 0.1, 0.9, cv::NORM_MINMAX);
    return drawn(kWidth, kHeight, [&noise](int x, int y) {
        const float v = noise.at<float>(y, x);
        return PixelRGB<float>{v, v, v};
    });
}

} // namespace orvo::test
