#include "bracket/estimate_pair.hpp"

#include "bracket/match_filters.hpp"

#include <orvo_logger/logstream.hpp>

#include <opencv2/calib3d.hpp>
#include <opencv2/features2d.hpp>
#include <opencv2/xfeatures2d/nonfree.hpp>

#include <algorithm>
#include <random>

namespace orvo {
namespace {

// SURF: a Hessian threshold low enough for dark frames; two octaves of one layer, since neighbours hardly differ in
// scale; 64 values per descriptor, with orientation.
constexpr double kHessianThreshold = 100;
constexpr int kOctaves = 2;
constexpr int kOctaveLayers = 1;

constexpr int kNearestNeighbours = 2;
// The ratio of the nearest to the second nearest distance only has to be below 1: the symmetry test removes the rest.
constexpr float kDistanceRatio = 1.0f;
// Descriptors farther apart than this show different things.
constexpr float kLargestDistance = 0.7f;
constexpr int kFewestMatches = 9;
constexpr int kFewestInliers = 9;
constexpr double kRansacErrorPx = 1.0;
constexpr int kRansacIterations = 2000;
constexpr double kRansacConfidence = 0.995;

using MatchLists = std::vector<std::vector<cv::DMatch>>;

cv::Ptr<cv::Feature2D> surf()
{
    return cv::xfeatures2d::SURF::create(kHessianThreshold, kOctaves, kOctaveLayers, false, false);
}

// Whoever asked for the pair knows the file and what follows, and says so.
void complain(const std::string& text) { LOG(__orvolog() << LogMessageType::Warning << "[Alignment] " << text); }

// Clears entries whose best match is not clearly better than the second best.
void ratioTest(MatchLists& lists)
{
    for (auto& entry : lists) {
        const bool keeps = entry.size() >= 2 && !(entry[0].distance / entry[1].distance >= kDistanceRatio);
        if (!keeps)
            entry.clear();
    }
}

// The way back counts only for points that the way there leads to.
std::vector<int> reachedBy(const MatchLists& matches)
{
    std::vector<int> reached;
    for (const auto& entry : matches)
        if (!entry.empty())
            reached.push_back(entry.front().trainIdx);
    std::sort(reached.begin(), reached.end());
    reached.erase(std::unique(reached.begin(), reached.end()), reached.end());
    return reached;
}

bool matchBothWays(const cv::Mat& descriptors1, const cv::Mat& descriptors2, MatchLists& matches12,
                   MatchLists& matches21)
{
    const cv::BFMatcher matcher(cv::NORM_L2, false);
    try {
        matcher.knnMatch(descriptors1, descriptors2, matches12, kNearestNeighbours);
        ratioTest(matches12);
        const std::vector<int> reached = reachedBy(matches12);
        cv::Mat queries(static_cast<int>(reached.size()), descriptors2.cols, descriptors2.type());
        for (std::size_t i = 0; i < reached.size(); ++i)
            descriptors2.row(reached[i]).copyTo(queries.row(static_cast<int>(i)));
        matcher.knnMatch(queries, descriptors1, matches21, kNearestNeighbours);
        for (auto& entry : matches21)
            for (cv::DMatch& match : entry)
                match.queryIdx = reached[static_cast<std::size_t>(match.queryIdx)];
    } catch (const std::exception& error) {
        complain(error.what());
        return false;
    }
    ratioTest(matches21);
    return true;
}

// Positions of the matches at full scale, one row each. The rows of matches that are too far apart remain in the list
// with random points, which fit no transform, so they cannot become inliers.
void fullScalePoints(const std::vector<cv::DMatch>& matches, const std::vector<cv::KeyPoint>& keypoints1,
                     const std::vector<cv::KeyPoint>& keypoints2, double scale, cv::Mat& points1, cv::Mat& points2)
{
    const auto rows = static_cast<int>(matches.size());
    points1.create(rows, 2, CV_32F);
    points2.create(rows, 2, CV_32F);
    std::minstd_rand scatter(1); // the same in every run
    const auto anywhere = [&scatter] { return static_cast<float>(scatter() % 2000000) - 1000000.0f; };
    const auto inverseScale = static_cast<float>(1.0 / scale);
    for (int row = 0; row < rows; ++row) {
        const cv::DMatch& match = matches[static_cast<std::size_t>(row)];
        auto& p1 = points1.at<cv::Point2f>(row, 0);
        auto& p2 = points2.at<cv::Point2f>(row, 0);
        if (match.distance > kLargestDistance) {
            p1 = {anywhere(), anywhere()};
            p2 = {anywhere(), anywhere()};
        } else {
            p1 = keypoints1[static_cast<std::size_t>(match.queryIdx)].pt * inverseScale;
            p2 = keypoints2[static_cast<std::size_t>(match.trainIdx)].pt * inverseScale;
        }
    }
}

} // namespace

std::vector<cv::KeyPoint> detectKeypoints(const cv::Mat& picture)
{
    std::vector<cv::KeyPoint> keypoints;
    surf()->detect(picture, keypoints);
    return keypoints;
}

bool estimatePair(const cv::Mat& picture1, std::vector<cv::KeyPoint>& keypoints1, const cv::Mat& picture2,
                  std::vector<cv::KeyPoint>& keypoints2, cv::Mat& homography, double scale, int width, int height)
{
    homography = cv::Mat::eye(3, 3, CV_64F);
    const auto extractor = surf();
    cv::Mat descriptors1;
    cv::Mat descriptors2;
    extractor->compute(picture1, keypoints1, descriptors1);
    extractor->compute(picture2, keypoints2, descriptors2);
    // Points found on one side only cannot be matched. Both sides remain without descriptors, so the pair fails below
    // because it has no matches, and the empty side gets the points for the next pair.
    if (keypoints1.empty() != keypoints2.empty()) {
        if (keypoints1.empty()) {
            keypoints1 = keypoints2;
            descriptors2 = descriptors1;
        } else {
            keypoints2 = keypoints1;
            descriptors1 = descriptors2;
        }
    }

    MatchLists matches12;
    MatchLists matches21;
    if (!matchBothWays(descriptors1, descriptors2, matches12, matches21))
        return false;
    std::vector<cv::DMatch> matches;
    symmetryTest(matches12, matches21, matches);
    cutOutliers(matches, keypoints1, keypoints2, static_cast<float>(width), static_cast<float>(height));

    cv::Mat points1;
    cv::Mat points2;
    fullScalePoints(matches, keypoints1, keypoints2, scale, points1, points2);
    if (matches.size() < kFewestMatches) {
        complain("Not enough matches found between a pair of images (found " + std::to_string(matches.size()) + ")");
        return false;
    }
    std::vector<unsigned char> inliers;
    cv::Mat found =
        cv::findHomography(points2, points1, cv::RANSAC, kRansacErrorPx, inliers, kRansacIterations, kRansacConfidence);
    if (!found.empty() && std::count(inliers.begin(), inliers.end(), 1) >= kFewestInliers) {
        homography = found;
        return true;
    }
    complain("Not enough inliners to find a reliable transformation.");
    return false;
}

} // namespace orvo
