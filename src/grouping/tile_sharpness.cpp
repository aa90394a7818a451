#include "grouping/tile_sharpness.hpp"

#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <cmath>
#include <cstddef>

namespace orvo {
namespace {

constexpr int kTilesAcross = 12;
constexpr double kNoise = 1.5; // amplitude of the Laplacian in 8-bit steps that noise and JPEG leave

float quantileOf(std::vector<float>& values, double share)
{
    const auto at = values.begin() + static_cast<std::ptrdiff_t>(share * static_cast<double>(values.size() - 1));
    std::nth_element(values.begin(), at, values.end());
    return *at;
}

} // namespace

std::vector<float> tileSharpness(const cv::Mat& gray)
{
    constexpr double kSigma = 0.8; // pixels: removes the noise of single pixels
    cv::Mat smooth;
    cv::GaussianBlur(gray, smooth, {}, kSigma);
    cv::Mat detail;
    cv::Laplacian(smooth, detail, CV_32F);
    cv::multiply(detail, detail, detail);
    std::vector<float> tiles;
    for (int y = 0; y < kTilesAcross; ++y)
        for (int x = 0; x < kTilesAcross; ++x) {
            const cv::Rect tile(cv::Point(x * gray.cols / kTilesAcross, y * gray.rows / kTilesAcross),
                                cv::Point((x + 1) * gray.cols / kTilesAcross, (y + 1) * gray.rows / kTilesAcross));
            const double power = tile.empty() ? 0.0 : cv::mean(detail(tile))[0];
            tiles.push_back(static_cast<float>(0.5 * std::log2(power + kNoise * kNoise)));
        }
    return tiles;
}

float sharpnessChange(const std::vector<float>& before, const std::vector<float>& after)
{
    constexpr double kRim = 0.15; // share of tiles that moving subjects may change at either end
    constexpr std::size_t kFewestTiles = 12;
    const auto leastDetail = static_cast<float>(std::log2(2.0 * kNoise)); // twice the noise
    std::vector<float> changes;
    for (std::size_t i = 0; i < before.size() && i < after.size(); ++i)
        if (std::max(before[i], after[i]) > leastDetail)
            changes.push_back(after[i] - before[i]);
    if (changes.size() < kFewestTiles)
        return 0.0f;
    const float high = quantileOf(changes, 1.0 - kRim);
    return high - quantileOf(changes, kRim);
}

} // namespace orvo
