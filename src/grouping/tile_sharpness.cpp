#include "grouping/tile_sharpness.hpp"

#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>

namespace orvo {
namespace {

constexpr int kTilesAcross = 12;
constexpr double kNoise = 1.5;   // amplitude of the Laplacian in 8-bit steps that noise and JPEG leave
constexpr float kDark = 0.004f;  // linear; a step of 8 bits is a large share of less
constexpr float kBright = 0.85f; // linear; more is partly clipped

float quantileOf(std::vector<float> values, double share)
{
    const auto at = values.begin() + static_cast<std::ptrdiff_t>(share * static_cast<double>(values.size() - 1));
    std::nth_element(values.begin(), at, values.end());
    return *at;
}

cv::Mat linearOf(const cv::Mat& gray)
{
    cv::Mat curve(1, 256, CV_32F);
    for (int i = 0; i < 256; ++i) { // IEC 61966-2-1
        const double value = i / 255.0;
        curve.at<float>(i) =
            static_cast<float>(value <= 0.04045 ? value / 12.92 : std::pow((value + 0.055) / 1.055, 2.4));
    }
    cv::Mat linear;
    cv::LUT(gray, curve, linear);
    return linear;
}

struct Sample
{
    float detail = 0.0f;
    float light = 0.0f;
};

/// Between the tiles around a point in pixels; empty outside of their middles.
std::optional<Sample> sampleAt(const TileMap& map, const cv::Point2d& point)
{
    const double x = point.x / map.size.width * kTilesAcross - 0.5;
    const double y = point.y / map.size.height * kTilesAcross - 0.5;
    constexpr double kRim = 0.25; // of a tile; two exposures from the hand lose no more tiles than needed
    if (!(x >= -kRim && y >= -kRim && x <= kTilesAcross - 1 + kRim && y <= kTilesAcross - 1 + kRim))
        return std::nullopt;
    const double insideX = std::clamp(x, 0.0, kTilesAcross - 1.0);
    const double insideY = std::clamp(y, 0.0, kTilesAcross - 1.0);
    const int left = std::min(static_cast<int>(insideX), kTilesAcross - 2);
    const int top = std::min(static_cast<int>(insideY), kTilesAcross - 2);
    Sample sample;
    for (int dy = 0; dy < 2; ++dy)
        for (int dx = 0; dx < 2; ++dx) {
            const double weight = std::abs(1 - dx - (insideX - left)) * std::abs(1 - dy - (insideY - top));
            const auto tile = static_cast<std::size_t>((top + dy) * kTilesAcross + left + dx);
            sample.detail += static_cast<float>(weight) * map.detail[tile];
            sample.light += static_cast<float>(weight) * map.light[tile];
        }
    return sample;
}

struct Pair
{
    Sample first;
    Sample second;
    float ev = 0.0f;
};

std::vector<Pair> pairsOf(const TileMap& first, const TileMap& second, const cv::Matx33d& firstFromSecond)
{
    const cv::Matx33d secondFromFirst = firstFromSecond.inv();
    std::vector<Pair> pairs;
    for (int y = 0; y < kTilesAcross; ++y)
        for (int x = 0; x < kTilesAcross; ++x) {
            const cv::Vec3d at = secondFromFirst * cv::Vec3d((x + 0.5) / kTilesAcross * first.size.width,
                                                             (y + 0.5) / kTilesAcross * first.size.height, 1.0);
            const auto there = sampleAt(second, {at[0] / at[2], at[1] / at[2]});
            if (!there)
                continue;
            const auto tile = static_cast<std::size_t>(y * kTilesAcross + x);
            const Sample here{first.detail[tile], first.light[tile]};
            pairs.push_back({here, *there, std::log2(std::max(there->light, kDark) / std::max(here.light, kDark))});
        }
    return pairs;
}

bool isExposed(const Sample& sample) { return sample.light > kDark && sample.light < kBright; }

/// The median of the change of light where both pictures are well exposed; of all where they nowhere are.
float changeOfLight(const std::vector<Pair>& pairs)
{
    std::vector<float> exposed;
    std::vector<float> all;
    for (const Pair& pair : pairs) {
        all.push_back(pair.ev);
        if (isExposed(pair.first) && isExposed(pair.second))
            exposed.push_back(pair.ev);
    }
    constexpr std::size_t kEnough = 8;
    return quantileOf(exposed.size() >= kEnough ? exposed : all, 0.5);
}

} // namespace

TileMap tileMapOf(const cv::Mat& gray)
{
    constexpr double kSigma = 0.8; // pixels: removes the noise of single pixels
    cv::Mat smooth;
    cv::GaussianBlur(gray, smooth, {}, kSigma);
    cv::Mat detail;
    cv::Laplacian(smooth, detail, CV_32F);
    cv::multiply(detail, detail, detail);
    const cv::Mat linear = linearOf(gray);
    TileMap map;
    map.size = gray.size();
    for (int y = 0; y < kTilesAcross; ++y)
        for (int x = 0; x < kTilesAcross; ++x) {
            const cv::Rect tile(cv::Point(x * gray.cols / kTilesAcross, y * gray.rows / kTilesAcross),
                                cv::Point((x + 1) * gray.cols / kTilesAcross, (y + 1) * gray.rows / kTilesAcross));
            const double power = tile.empty() ? 0.0 : cv::mean(detail(tile))[0];
            map.detail.push_back(static_cast<float>(0.5 * std::log2(power + kNoise * kNoise)));
            map.light.push_back(static_cast<float>(tile.empty() ? 0.0 : cv::mean(linear(tile))[0]));
        }
    return map;
}

std::optional<TileChange> tileChange(const TileMap& first, const TileMap& second, const cv::Matx33d& firstFromSecond)
{
    constexpr std::size_t kFewestTiles = 12;
    constexpr double kRim = 0.15;       // share of tiles that moving subjects may change at either end
    constexpr float kOtherLight = 0.4f; // EV by which blur does not change the mean of a tile
    const std::vector<Pair> pairs = pairsOf(first, second, firstFromSecond);
    if (pairs.size() < kFewestTiles)
        return std::nullopt;
    const auto leastDetail = static_cast<float>(std::log2(2.0 * kNoise)); // twice the noise
    TileChange change;
    change.ev = changeOfLight(pairs);
    std::vector<float> gains;
    for (const Pair& pair : pairs)
        if (std::max(pair.first.detail, pair.second.detail) > leastDetail &&
            std::abs(pair.ev - change.ev) < kOtherLight)
            gains.push_back(pair.second.detail - pair.first.detail);
    if (gains.size() >= kFewestTiles)
        change.sharpness = quantileOf(gains, 1.0 - kRim) - quantileOf(gains, kRim);
    return change;
}

} // namespace orvo
