#include <orvo/image_detection.hpp>

#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <numbers>
#include <vector>

namespace orvo {
namespace {

// Longest side of the searched picture: above it noise breaks long lines, below it directions are coarse.
constexpr int kSearchSide = 1200;
// Lines farther from level or plumb do not indicate the horizon.
constexpr double kReachDegrees = 20.0;
constexpr double kBlurSigma = 1.0; // pixels
// Shorter segments, as a share of the picture's longer side, are texture.
constexpr double kShortest = 0.02;
// Step of the vote, and tolerance of a segment's direction.
constexpr double kStepDegrees = 0.05;
constexpr double kSpreadDegrees = 0.35;
// The result is the weighted mean direction within this distance of the winner.
constexpr double kRefineDegrees = 0.8;
// Least total length of the winner's segments, in longer sides of the picture.
constexpr double kFewest = 0.15;
// Uprights converge and facades recede to both sides; distant level lines, such as shores, do not.
constexpr double kUprightWeight = 0.8;

struct Vote
{
    double degrees = 0.0;
    double weight = 0.0; // grows faster than the length, since long lines have more accurate directions
    double length = 0.0; // in longer sides of the picture
};

cv::Mat grayOf(const Image& image)
{
    const auto small = image.imageData(scaleSizeToMax(image.size(), kSearchSide), {}, true);
    cv::Mat gray(small->height(), small->width(), CV_8UC1);
    for (int y = 0; y < gray.rows; ++y) {
        const PixelRGB<float>* const pixels = small->row(y);
        for (int x = 0; x < gray.cols; ++x) {
            const PixelRGB<float> pixel = clampValue(pixels[x]);
            gray.at<std::uint8_t>(y, x) =
                static_cast<std::uint8_t>(255.0f * (0.25f * pixel.r + 0.6f * pixel.g + 0.15f * pixel.b));
        }
    }
    // Hard edges would give the direction of pixel steps, not of the line.
    cv::GaussianBlur(gray, gray, cv::Size(), kBlurSigma);
    return gray;
}

std::vector<Vote> votesOf(const cv::Mat& gray)
{
    std::vector<cv::Vec4f> segments;
    // Not LSD_REFINE_ADV: its false alarm test rejects the longest slanted lines.
    cv::createLineSegmentDetector(cv::LSD_REFINE_STD)->detect(gray, segments);
    const double side = std::max(gray.cols, gray.rows);
    std::vector<Vote> votes;
    for (const cv::Vec4f& segment : segments) {
        const auto dx = static_cast<double>(segment[2] - segment[0]);
        const auto dy = static_cast<double>(segment[3] - segment[1]);
        const double length = std::hypot(dx, dy) / side;
        if (length < kShortest)
            continue;
        double degrees = std::atan2(dy, dx) * 180.0 / std::numbers::pi; // y points down, so clockwise
        degrees -= 90.0 * std::round(degrees / 90.0);                   // relative to the nearer of level and plumb
        const bool isUpright = std::abs(dy) > std::abs(dx);
        if (std::abs(degrees) <= kReachDegrees)
            votes.push_back({degrees, length * std::sqrt(length) * (isUpright ? kUprightWeight : 1.0), length});
    }
    return votes;
}

double scoreAt(const std::vector<Vote>& votes, double degrees)
{
    double score = 0.0;
    for (const Vote& vote : votes) {
        const double distance = (vote.degrees - degrees) / kSpreadDegrees;
        score += vote.weight * std::exp(-0.5 * distance * distance);
    }
    return score;
}

} // namespace

float ImageDetection::getAutoHorizonAngle(const Image* image) const
{
    if (!image || image->width() < 2 || image->height() < 2)
        return 0.0f;
    const std::vector<Vote> votes = votesOf(grayOf(*image));
    double best = 0.0;
    double bestScore = 0.0;
    const int steps = static_cast<int>(kReachDegrees / kStepDegrees);
    for (int step = -steps; step <= steps; ++step) {
        const double score = scoreAt(votes, step * kStepDegrees);
        if (score > bestScore) {
            bestScore = score;
            best = step * kStepDegrees;
        }
    }
    double sum = 0.0;
    double weights = 0.0;
    double lengths = 0.0;
    for (const Vote& vote : votes) {
        if (std::abs(vote.degrees - best) > kRefineDegrees)
            continue;
        sum += vote.weight * vote.degrees;
        weights += vote.weight;
        lengths += vote.length;
    }
    if (lengths < kFewest)
        return 0.0f;
    return static_cast<float>(sum / weights * std::numbers::pi / 180.0);
}

} // namespace orvo
