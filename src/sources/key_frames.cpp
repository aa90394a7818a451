#include "sources/key_frames.hpp"

#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <numbers>
#include <vector>

namespace orvo {
namespace {

// Shares of the frame that may be lost.
constexpr double kLargestLoss = 0.67;
constexpr double kLargestLossTurningBack = 0.2;
// Without a homography: the largest trusted displacement, as a share of the picture's sides.
constexpr double kTrustedDisplacement = 0.1;

bool isNear(const cv::detail::MatchesInfo& matches, cv::Size size, const cv::detail::ImageFeatures& keyFeatures,
            const cv::detail::ImageFeatures& candidateFeatures)
{
    if (matches.matches.empty())
        return false;
    cv::Point2f sum(0.0f, 0.0f);
    for (const cv::DMatch& match : matches.matches)
        sum += keyFeatures.keypoints[static_cast<std::size_t>(match.queryIdx)].pt -
               candidateFeatures.keypoints[static_cast<std::size_t>(match.trainIdx)].pt;
    const auto count = static_cast<float>(matches.matches.size());
    const cv::Point2f mean(sum.x / count, sum.y / count);
    const double length = std::sqrt(static_cast<double>(mean.x) * mean.x + static_cast<double>(mean.y) * mean.y);
    // Rows weight the horizontal part and columns the vertical one: a pan along the long side of the picture is trusted
    // less far than one along its short side. A displacement of zero has no direction and is not trusted.
    const double trusted =
        (std::abs(mean.x / length) * size.height + std::abs(mean.y / length) * size.width) * kTrustedDisplacement;
    return trusted > length;
}

} // namespace

KeyFrameOverlap overlapWithKeyFrame(const cv::Mat& homography, int width, int height)
{
    if (homography.empty() || homography.rows != 3 || homography.cols != 3)
        return {};
    const auto right = static_cast<float>(width);
    const auto bottom = static_cast<float>(height);
    const std::vector<cv::Point2f> corners = {{0.0f, 0.0f}, {0.0f, bottom}, {right, bottom}, {right, 0.0f}};
    std::vector<cv::Point2f> moved;
    cv::perspectiveTransform(corners, moved, homography);
    const cv::Rect common = cv::boundingRect(moved) & cv::Rect(0, 0, width, height);
    return {static_cast<double>(common.area()) / (width * height), cv::Point2f(0.0f, 0.0f) - moved.front()};
}

bool KeyFrameJudge::acceptCandidate(const cv::detail::MatchesInfo& matches, cv::Size size,
                                    const cv::detail::ImageFeatures& keyFeatures,
                                    const cv::detail::ImageFeatures& candidateFeatures)
{
    if (matches.H.empty())
        return isNear(matches, size, keyFeatures, candidateFeatures);
    const auto [overlap, shift] = overlapWithKeyFrame(matches.H, size.width, size.height);
    const double loss = 1.0 - overlap;
    const cv::Point rounded(cvRound(shift.x), cvRound(shift.y));
    // In 32 bits, which a wild homography may overflow; multiplied in 64 bits to avoid undefined behaviour.
    const auto dot = static_cast<std::int32_t>(static_cast<std::int64_t>(lastDirection.x) * rounded.x +
                                               static_cast<std::int64_t>(lastDirection.y) * rounded.y);
    double norm = cv::norm(lastDirection) * cv::norm(shift);
    if (norm == 0.0)
        norm = 1.0;
    const auto cosine = static_cast<float>(dot / norm);
    const float angle = std::acos(cosine > 0.0f ? std::min(cosine, 1.0f) : 0.0f);
    // The more the camera changes direction, the more of the frame may be lost; at right angles there is no limit.
    const float fromRightAngle = std::abs(angle - std::numbers::pi_v<float> / 2.0f);
    if (loss > 1.0 / static_cast<double>(fromRightAngle))
        return false;
    lastDirection = rounded;
    return loss < (dot < 0 ? kLargestLossTurningBack : kLargestLoss);
}

} // namespace orvo
