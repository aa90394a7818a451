#include "bracket/frame_structure.hpp"

#include <orvo_core/detail/vector_code.hpp>
#include <orvo_core/luma.hpp>
#include <orvo_core/parallel.hpp>

#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <cmath>
#include <cstddef>

namespace orvo {
namespace {

// Millions of pixels determine a few unknowns to less than a hundredth of a pixel; more would only cost time.
constexpr double kMostPixels = 2.0e6;

// Shorter side of the coarsest level, at least: a movement of a tenth of the picture is five pixels there.
constexpr int kSmallestSide = 48;

// Standard deviation in pixels of the surroundings that mean and contrast are measured in: well above the detail of a
// level, well below its size.
constexpr double kSurroundings = 3.0;

// Contrast below a few times the noise is not raised to that of real structure. The noise is that of the flattest
// fifth, which is out of focus or plain; rounding to 8 bits is the least that pictures from files have.
constexpr double kFlatShare = 0.2;
constexpr float kNoiseMargin = 3.0f;
constexpr float kLeastNoise = 0.5f / 255.0f;

// Every so many pixels in both directions are enough to find the noise.
constexpr int kNoiseStep = 5;

bool isTooLarge(cv::Size size)
{
    return static_cast<double>(size.width) * static_cast<double>(size.height) > kMostPixels &&
           std::min(size.width, size.height) > 1;
}

// NaN stays NaN.
ORVO_VECTOR_CLONES void lumaOfRow(const PixelRGB<float>* __restrict pixels, float* __restrict out, int width)
{
    for (int x = 0; x < width; ++x) {
        const float luma = luma601(pixels[x].r, pixels[x].g, pixels[x].b);
        const float positive = luma < 0.0f ? 0.0f : luma;
        out[x] = positive > 1.0f ? 1.0f : positive;
    }
}

cv::Mat lumaOf(const _ImageData<PixelRGB<float>>& picture)
{
    cv::Mat luma(picture.height(), picture.width(), CV_32F);
    forEachRow(picture.height(), [&](int y) { lumaOfRow(picture.row(y), luma.ptr<float>(y), picture.width()); });
    return luma;
}

ORVO_VECTOR_CLONES void meansOfFour(const float* __restrict a, const float* __restrict b, float* __restrict out,
                                    int width)
{
    for (int x = 0; x < width; ++x)
        out[x] = 0.25f * ((a[2 * x] + a[2 * x + 1]) + (b[2 * x] + b[2 * x + 1]));
}

// Each pixel the mean of four; an odd last row or column is left out.
cv::Mat halved(const cv::Mat& luma)
{
    cv::Mat half(luma.rows / 2, luma.cols / 2, CV_32F);
    forEachRow(half.rows, [&](int y) {
        meansOfFour(luma.ptr<float>(2 * y), luma.ptr<float>(2 * y + 1), half.ptr<float>(y), half.cols);
    });
    return half;
}

// Square of the smallest contrast that counts as structure.
float leastEnergy(const cv::Mat& energy)
{
    std::vector<float> some;
    for (int y = 0; y < energy.rows; y += kNoiseStep)
        for (int x = 0; x < energy.cols; x += kNoiseStep)
            some.push_back(energy.at<float>(y, x));
    const auto place = some.begin() + static_cast<std::ptrdiff_t>(kFlatShare * static_cast<double>(some.size()));
    std::nth_element(some.begin(), place, some.end());
    return kNoiseMargin * kNoiseMargin * std::max(*place, kLeastNoise * kLeastNoise);
}

cv::Mat structureAt(const cv::Mat& luma)
{
    cv::Mat mean;
    cv::GaussianBlur(luma, mean, {}, kSurroundings, kSurroundings, cv::BORDER_REFLECT);
    cv::Mat structure(luma.size(), CV_32F);
    cv::Mat energy(luma.size(), CV_32F);
    forEachRow(luma.rows, [&](int y) {
        const auto* const value = luma.ptr<float>(y);
        const auto* const around = mean.ptr<float>(y);
        auto* const difference = structure.ptr<float>(y);
        auto* const square = energy.ptr<float>(y);
        for (int x = 0; x < luma.cols; ++x) {
            difference[x] = value[x] - around[x];
            square[x] = difference[x] * difference[x];
        }
    });
    cv::GaussianBlur(energy, mean, {}, kSurroundings, kSurroundings, cv::BORDER_REFLECT);
    const float least = leastEnergy(mean);
    forEachRow(luma.rows, [&](int y) {
        const auto* const around = mean.ptr<float>(y);
        auto* const value = structure.ptr<float>(y);
        for (int x = 0; x < luma.cols; ++x)
            value[x] /= std::sqrt(around[x] + least);
    });
    return structure;
}

} // namespace

FrameStructure structureOf(const _ImageData<PixelRGB<float>>& picture)
{
    FrameStructure result;
    cv::Mat luma = lumaOf(picture);
    while (isTooLarge(luma.size())) {
        luma = halved(luma);
        result.reduction *= 2;
    }
    for (;;) {
        result.levels.push_back(structureAt(luma));
        if (std::min(luma.rows, luma.cols) < 2 * kSmallestSide)
            return result;
        luma = halved(luma);
    }
}

bool isStructureReduced(_Size<int> size) { return isTooLarge({size.width, size.height}); }

} // namespace orvo
