#include "grouping/framing.hpp"

#include "grouping/tile_sharpness.hpp"
#include "sources/own_random_numbers.hpp"

#include <orvo_common/failure.hpp>
#include <orvo_io/image_reader.hpp>

#include <opencv2/calib3d.hpp>
#include <opencv2/features2d.hpp>
#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <array>
#include <cmath>

namespace orvo {
namespace {

// Pixels. An overlap of a seventh of the picture still has a hundred features, and reduced decoding is fast.
constexpr int kThumbnailSide = 640;
constexpr int kMostFeatures = 800;
// Below it a picture is too dark, too bright or too plain to be compared.
constexpr std::size_t kFewestFeatures = 24;
constexpr double kLongestReprojection = 3.0; // pixels of the thumbnail

cv::Mat grayOf(const _ImageData<PixelRGB<float>>& picture)
{
    cv::Mat gray(picture.height(), picture.width(), CV_8UC1);
    for (int y = 0; y < gray.rows; ++y) {
        const auto* const row = picture.row(y);
        for (int x = 0; x < gray.cols; ++x) {
            // Rec. 709 weights on encoded values: only contrasts matter here.
            const float light = 0.2126f * row[x].r + 0.7152f * row[x].g + 0.0722f * row[x].b;
            gray.at<std::uint8_t>(y, x) = cv::saturate_cast<std::uint8_t>(light * 255.0f);
        }
    }
    return gray;
}

void findFeatures(const cv::Mat& gray, Thumbnail& thumbnail)
{
    constexpr double kClipLimit = 4.0;
    constexpr int kCells = 8;
    cv::Mat equalised;
    cv::createCLAHE(kClipLimit, {kCells, kCells})->apply(gray, equalised);
    const auto sift = cv::SIFT::create(kMostFeatures, 3, 0.04, 10.0, 1.6, CV_8U); // the paper's parameters
    std::vector<cv::KeyPoint> keys;
    sift->detectAndCompute(equalised, cv::noArray(), keys, thumbnail.descriptors);
    // Ties of the response may leave more.
    for (const cv::KeyPoint& key : keys)
        thumbnail.points.push_back(key.pt);
}

struct Matches
{
    std::vector<cv::Point2f> first;
    std::vector<cv::Point2f> second;
};

/// Pairs of features that are each other's nearest, and clearly nearer than the second nearest.
Matches matchesOf(const Thumbnail& first, const Thumbnail& second)
{
    constexpr float kClearlyNearer = 0.8f; // Lowe's ratio
    const cv::BFMatcher matcher(cv::NORM_L2);
    std::vector<std::vector<cv::DMatch>> forward;
    matcher.knnMatch(first.descriptors, second.descriptors, forward, 2);
    std::vector<cv::DMatch> backward;
    matcher.match(second.descriptors, first.descriptors, backward);
    Matches matches;
    for (const auto& candidates : forward) {
        if (candidates.size() < 2 || candidates[0].distance > kClearlyNearer * candidates[1].distance)
            continue;
        const cv::DMatch& match = candidates[0];
        if (backward[static_cast<std::size_t>(match.trainIdx)].trainIdx != match.queryIdx)
            continue;
        matches.first.push_back(first.points[static_cast<std::size_t>(match.queryIdx)]);
        matches.second.push_back(second.points[static_cast<std::size_t>(match.trainIdx)]);
    }
    return matches;
}

std::vector<cv::Point2f> cornersOf(cv::Size size)
{
    const auto width = static_cast<float>(size.width);
    const auto height = static_cast<float>(size.height);
    return {{0.0f, 0.0f}, {width, 0.0f}, {width, height}, {0.0f, height}};
}

/// Where the corners of the second picture lie in the first; empty if the homography is no view of a camera.
std::vector<cv::Point2f> outlineIn(const cv::Mat& firstFromSecond, cv::Size second)
{
    std::vector<cv::Point2f> outline;
    for (const cv::Point2f& corner : cornersOf(second)) {
        const cv::Mat at = firstFromSecond * (cv::Mat_<double>(3, 1) << corner.x, corner.y, 1.0);
        constexpr double kHorizon = 0.1; // of the depth in the middle
        if (at.at<double>(2) < kHorizon)
            return {};
        outline.emplace_back(static_cast<float>(at.at<double>(0) / at.at<double>(2)),
                             static_cast<float>(at.at<double>(1) / at.at<double>(2)));
    }
    const bool isUpright = cv::contourArea(outline, true) > 0.0;
    return cv::isContourConvex(outline) && isUpright ? outline : std::vector<cv::Point2f>();
}

cv::Point2d middleOf(const std::vector<cv::Point2f>& outline)
{
    cv::Point2d sum;
    for (const cv::Point2f& corner : outline)
        sum += cv::Point2d(corner);
    return sum / static_cast<double>(std::max<std::size_t>(outline.size(), 1));
}

/// Length in the second picture by that in the first at a point of the first. Elsewhere perspective stretches one of
/// two views that are turned.
double scaleAt(const cv::Point2d& first, const cv::Mat& firstFromSecond)
{
    const cv::Mat at = firstFromSecond.inv() * (cv::Mat_<double>(3, 1) << first.x, first.y, 1.0);
    const double depth = 1.0 / at.at<double>(2); // of the point in the second picture, seen from the first
    const double areas = cv::determinant(firstFromSecond) / (depth * depth * depth);
    return areas > 0.0 ? 1.0 / std::sqrt(areas) : 0.0;
}

std::size_t countInside(const std::vector<cv::Point2f>& points, const std::vector<cv::Point2f>& outline)
{
    return static_cast<std::size_t>(std::count_if(points.begin(), points.end(), [&](const cv::Point2f& point) {
        return cv::pointPolygonTest(outline, point, false) >= 0.0;
    }));
}

} // namespace

Thumbnail readThumbnail(const std::filesystem::path& path)
{
    const auto picture = ImageReader::instance().getThumbnailBySide(path, kThumbnailSide, true, nullptr, {});
    if (!picture)
        throw FailureError(
            lastFailure().value_or(Failure{FailureKind::UnreadableFile, path, "cannot create a thumbnail"}));
    const cv::Mat gray = grayOf(*picture);
    Thumbnail thumbnail;
    thumbnail.size = gray.size();
    findFeatures(gray, thumbnail);
    thumbnail.tiles = tileMapOf(gray);
    return thumbnail;
}

Framing compareFramings(const Thumbnail& first, const Thumbnail& second)
{
    Framing framing;
    if (first.points.size() < kFewestFeatures || second.points.size() < kFewestFeatures)
        return framing;
    const OwnRandomNumbers reproducible;
    framing.kind = FramingKind::Unrelated;
    const Matches matches = matchesOf(first, second);
    // Brown and Lowe: inliers > alpha + beta * features in the overlap.
    constexpr double kAlpha = 8.0;
    constexpr double kBeta = 0.3;
    if (static_cast<double>(matches.first.size()) <= kAlpha)
        return framing;
    cv::Mat isInlier;
    const cv::Mat firstFromSecond =
        cv::findHomography(matches.second, matches.first, cv::RANSAC, kLongestReprojection, isInlier);
    if (firstFromSecond.empty())
        return framing;
    const auto outline = outlineIn(firstFromSecond, second.size);
    if (outline.empty())
        return framing;
    const double inliers = cv::countNonZero(isInlier);
    if (inliers <= kAlpha + kBeta * static_cast<double>(countInside(matches.first, outline)))
        return framing;
    std::vector<cv::Point2f> common;
    const auto area = static_cast<double>(cv::intersectConvexConvex(outline, cornersOf(first.size), common));
    const double seen = cv::contourArea(outline);
    framing.kind = FramingKind::Related;
    framing.firstFromSecond = cv::Matx33d(firstFromSecond.ptr<double>());
    framing.overlap = std::clamp(area / std::min<double>(seen, first.size.area()), 0.0, 1.0);
    framing.scale = scaleAt(middleOf(common), firstFromSecond);
    return framing;
}

} // namespace orvo
