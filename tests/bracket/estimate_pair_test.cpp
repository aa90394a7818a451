#include "bracket/estimate_pair.hpp"
#include "support/pictures.hpp"

#include <orvo_core/parallel.hpp>
#include <orvo_logger/log_capture.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <opencv2/imgproc.hpp>
#include <opencv2/xfeatures2d/nonfree.hpp>

#include <algorithm>
#include <cstdint>
#include <functional>

using namespace orvo;
using namespace orvo::test;
using testing::ElementsAre;

namespace {

constexpr int kWidth = 400;
constexpr int kHeight = 300;

cv::Mat picture8(double shiftX, double shiftY)
{
    cv::Mat mat(kHeight, kWidth, CV_8UC3);
    for (int y = 0; y < kHeight; ++y)
        for (int x = 0; x < kWidth; ++x) {
            const auto p = texture(x + shiftX, y + shiftY);
            mat.at<cv::Vec3b>(y, x) = {cv::saturate_cast<uchar>(p.r * 255), cv::saturate_cast<uchar>(p.g * 255),
                                       cv::saturate_cast<uchar>(p.b * 255)};
        }
    return mat;
}

struct Pair
{
    cv::Mat first;
    cv::Mat second;
    std::vector<cv::KeyPoint> keypoints1;
    std::vector<cv::KeyPoint> keypoints2;
    cv::Mat homography;

    Pair(const cv::Mat& a, const cv::Mat& b)
        : first(a), second(b), keypoints1(detectKeypoints(a)), keypoints2(detectKeypoints(b))
    {}
    bool estimate(double scale = 1.0)
    {
        return estimatePair(first, keypoints1, second, keypoints2, homography, scale, kWidth, kHeight);
    }
    [[nodiscard]] bool isIdentity() const
    {
        return cv::norm(homography, cv::Mat::eye(3, 3, CV_64F), cv::NORM_INF) == 0;
    }
};

} // namespace

namespace {

constexpr std::size_t kChosen = 10;

cv::Mat noisePicture(std::uint64_t seed)
{
    cv::RNG random(seed);
    cv::Mat noise(kHeight, kWidth, CV_8UC1);
    random.fill(noise, cv::RNG::UNIFORM, 0, 255);
    cv::GaussianBlur(noise, noise, {}, 3);
    cv::normalize(noise, noise, 0, 255, cv::NORM_MINMAX);
    cv::cvtColor(noise, noise, cv::COLOR_GRAY2BGR);
    return noise;
}

cv::Mat descriptorsAt(const cv::Mat& picture, std::vector<cv::KeyPoint> points)
{
    cv::Mat descriptors;
    cv::xfeatures2d::SURF::create(100, 2, 1, false, false)->compute(picture, points, descriptors);
    return descriptors;
}

// Two pictures of noise and ten places that are the same in both, where the descriptors of the two pictures are
// mutually nearest although the pictures have nothing in common: at distances of `low` to `high`.
Pair pairAtDistances(double low, double high)
{
    constexpr int kCandidates = 20000;
    constexpr double kClearly = 0.003; // nearer than any other
    cv::RNG random(11);
    std::vector<cv::KeyPoint> points;
    for (int i = 0; i < kCandidates; ++i)
        points.emplace_back(random.uniform(30.0f, kWidth - 30.0f), random.uniform(30.0f, kHeight - 30.0f), 9.0f);
    Pair pair(noisePicture(3), noisePicture(4));
    const cv::Mat first = descriptorsAt(pair.first, points);
    const cv::Mat second = descriptorsAt(pair.second, points);
    const auto apart = [&](int i, int j) { return cv::norm(first.row(i), second.row(j)); };
    std::vector<std::pair<double, int>> nearestFirst;
    for (int i = 0; i < first.rows; ++i)
        nearestFirst.emplace_back(apart(i, i), i);
    std::sort(nearestFirst.begin(), nearestFirst.end());
    std::vector<int> chosen;
    for (const auto& [distance, i] : nearestFirst) {
        const double nearest = distance + kClearly; // those chosen before are nearer
        if (distance > low && distance < high && chosen.size() < kChosen &&
            std::all_of(chosen.begin(), chosen.end(),
                        [&, own = i](int other) { return apart(own, other) > nearest && apart(other, own) > nearest; }))
            chosen.push_back(i);
    }
    pair.keypoints1.clear();
    for (const int i : chosen)
        pair.keypoints1.push_back(points[static_cast<std::size_t>(i)]);
    pair.keypoints2 = pair.keypoints1;
    return pair;
}

} // namespace

namespace {

constexpr int kTiles = 15; // below the number of matches at which outliers are cut off

// Two pictures of tiles on gray, each unlike the others, with a key point in its middle. In the second picture each
// tile is displaced.
Pair tiles(const std::function<cv::Point(int)>& displacement)
{
    constexpr int kSide = 44; // covers the window of a descriptor
    constexpr int kPitch = 78;
    constexpr int kColumns = 5;
    const cv::Mat gray(kHeight, kWidth, CV_8UC3, cv::Scalar::all(128));
    Pair pair(gray.clone(), gray.clone());
    for (int i = 0; i < kTiles; ++i) {
        const cv::Point corner(24 + i % kColumns * kPitch, 30 + i / kColumns * kPitch);
        const cv::Point moved = corner + displacement(i);
        const cv::Mat tile = noisePicture(20 + static_cast<std::uint64_t>(i))(cv::Rect(100, 100, kSide, kSide));
        tile.copyTo(pair.first(cv::Rect(corner.x, corner.y, kSide, kSide)));
        tile.copyTo(pair.second(cv::Rect(moved.x, moved.y, kSide, kSide)));
        const auto middle = [](const cv::Point& p) {
            return cv::KeyPoint(static_cast<float>(p.x + kSide / 2), static_cast<float>(p.y + kSide / 2), 9.0f);
        };
        pair.keypoints1.push_back(middle(corner));
        pair.keypoints2.push_back(middle(moved));
    }
    return pair;
}

const char* const kTooFewInliers = "[Alignment] Not enough inliners to find a reliable transformation.";

} // namespace

TEST(EstimatePair, NineInliersAreEnough)
{
    // The rest is displaced in ways that have nothing in common.
    const cv::Point elsewhere[] = {{9, -4}, {-7, 12}, {3, 15}, {-14, -6}, {12, 8}, {-5, -13}, {16, -11}};
    for (const int still : {8, 9}) {
        Pair pair = tiles([&](int i) { return i < still ? cv::Point() : elsewhere[i - still]; });
        const LogCapture capture;
        EXPECT_EQ(pair.estimate(), still == 9);
        EXPECT_EQ(pair.isIdentity(), still == 8) << "exactly";
        EXPECT_LT(cv::norm(pair.homography, cv::Mat::eye(3, 3, CV_64F), cv::NORM_INF), 1e-3);
        EXPECT_EQ(capture.texts(LogMessageType::Warning),
                  still == 9 ? std::vector<std::string>() : std::vector<std::string>{kTooFewInliers});
    }
}

TEST(EstimatePair, AnInlierIsWithinOnePixelOfTheFullPicture)
{
    // Every tile is two pixels off, this way or that: half a pixel of a full picture a quarter the size.
    const cv::Point aside[] = {{2, 0}, {-2, 0}, {0, -2}, {0, 2}};
    for (const double scale : {4.0, 1.6}) {
        Pair pair = tiles([&](int i) { return aside[(i * 7 + i / 5) % 4]; });
        const LogCapture capture;
        EXPECT_EQ(pair.estimate(scale), scale == 4.0) << scale;
        EXPECT_EQ(capture.texts(LogMessageType::Warning),
                  scale == 4.0 ? std::vector<std::string>() : std::vector<std::string>{kTooFewInliers});
    }
}

TEST(EstimatePair, MatchesOfADistanceAboveTheLimitCarryNoTransform)
{
    for (const auto& [low, high] : {std::pair(0.6, 0.695), std::pair(0.705, 0.85)}) {
        Pair pair = pairAtDistances(low, high);
        ASSERT_EQ(pair.keypoints1.size(), kChosen);
        const LogCapture capture;
        const bool isNear = high < 0.7;
        EXPECT_EQ(pair.estimate(), isNear);
        EXPECT_LT(cv::norm(pair.homography, cv::Mat::eye(3, 3, CV_64F), cv::NORM_INF), 1e-3) << "nothing moved";
        // They still count as matches.
        const std::vector<std::string> complaints = {
            "[Alignment] Not enough inliners to find a reliable transformation."};
        EXPECT_EQ(capture.texts(LogMessageType::Warning), isNear ? std::vector<std::string>() : complaints);
    }
}

TEST(EstimatePair, MapsTheSecondFrameOntoTheFirst)
{
    Pair pair(picture8(0, 0), picture8(7, -4));
    ASSERT_TRUE(pair.estimate());
    EXPECT_NEAR(pair.homography.at<double>(0, 2), 7, 0.2);
    EXPECT_NEAR(pair.homography.at<double>(1, 2), -4, 0.2);
}

TEST(EstimatePair, GivesTheHomographyAtFullScale)
{
    Pair pair(picture8(0, 0), picture8(7, -4));
    ASSERT_TRUE(pair.estimate(0.5));
    EXPECT_NEAR(pair.homography.at<double>(0, 2), 14, 0.4);
    EXPECT_NEAR(pair.homography.at<double>(1, 2), -8, 0.4);
}

TEST(EstimatePair, IsTheSameInEveryRunAndForAnyThreads)
{
    Pair a(picture8(0, 0), picture8(3.3, 2.1));
    Pair b(picture8(0, 0), picture8(3.3, 2.1));
    ASSERT_TRUE(a.estimate());
    {
        const WorkerLimit limit(1);
        ASSERT_TRUE(b.estimate());
    }
    EXPECT_EQ(cv::norm(a.homography, b.homography, cv::NORM_INF), 0);
}

TEST(EstimatePair, OneEmptySideFailsWithACountOfZeroAndSharesThePoints)
{
    const cv::Mat blank(kHeight, kWidth, CV_8UC3, cv::Scalar(90, 90, 90));
    for (const bool firstIsBlank : {true, false}) {
        Pair pair(firstIsBlank ? blank : picture8(0, 0), firstIsBlank ? picture8(0, 0) : blank);
        const LogCapture capture;
        EXPECT_FALSE(pair.estimate());
        EXPECT_TRUE(pair.isIdentity());
        EXPECT_THAT(capture.texts(LogMessageType::Warning),
                    ElementsAre("[Alignment] Not enough matches found between a pair of images (found 0)"));
        EXPECT_FALSE(pair.keypoints1.empty());
        EXPECT_EQ(pair.keypoints1.size(), pair.keypoints2.size());
    }
}

TEST(EstimatePair, TwoBlankFramesFail)
{
    const cv::Mat blank(kHeight, kWidth, CV_8UC3, cv::Scalar(90, 90, 90));
    Pair pair(blank, blank);
    const LogCapture capture;
    EXPECT_FALSE(pair.estimate());
    EXPECT_TRUE(pair.isIdentity());
    EXPECT_EQ(capture.texts(LogMessageType::Warning).size(), 1u);
}

TEST(EstimatePair, FewerThanNineMatchesFail)
{
    Pair pair(picture8(0, 0), picture8(2, 1));
    pair.keypoints1.resize(8);
    const LogCapture capture;
    EXPECT_FALSE(pair.estimate());
    EXPECT_TRUE(pair.isIdentity());
    EXPECT_THAT(
        capture.texts(LogMessageType::Warning),
        ElementsAre(testing::StartsWith("[Alignment] Not enough matches found between a pair of images (found ")));
}

TEST(EstimatePair, FramesThatShowDifferentThingsFailOnInliers)
{
    cv::Mat noise1(kHeight, kWidth, CV_8UC3);
    cv::Mat noise2(kHeight, kWidth, CV_8UC3);
    cv::RNG rng(5);
    rng.fill(noise1, cv::RNG::UNIFORM, 0, 255);
    rng.fill(noise2, cv::RNG::UNIFORM, 0, 255);
    cv::GaussianBlur(noise1, noise1, {}, 3);
    cv::GaussianBlur(noise2, noise2, {}, 3);
    cv::normalize(noise1, noise1, 0, 255, cv::NORM_MINMAX);
    cv::normalize(noise2, noise2, 0, 255, cv::NORM_MINMAX);
    Pair pair(noise1, noise2);
    const LogCapture capture;
    EXPECT_FALSE(pair.estimate());
    EXPECT_TRUE(pair.isIdentity());
    EXPECT_THAT(capture.texts(LogMessageType::Warning),
                ElementsAre("[Alignment] Not enough inliners to find a reliable transformation."));
}

TEST(EstimatePair, AMatcherThatThrowsIsLoggedAndFails)
{
    // One key point too few descriptors on neither side: a picture of a type that SURF takes but the matcher cannot
    // compare does not exist, so the failure is made by more descriptors than the matcher indexes.
    Pair pair(picture8(0, 0), picture8(2, 1));
    cv::KeyPoint quick = pair.keypoints2.front(); // the smaller, the sooner described
    quick.size = 1.0f;
    const std::vector<cv::KeyPoint> many((1u << 18) + 1, quick);
    pair.keypoints2 = many;
    const LogCapture capture;
    EXPECT_FALSE(pair.estimate());
    EXPECT_TRUE(pair.isIdentity());
    EXPECT_THAT(capture.texts(LogMessageType::Warning), ElementsAre(testing::StartsWith("[Alignment] ")));
}

TEST(EstimatePair, AMatchAsGoodAsTheNextIsDropped)
{
    // Every point of the second frame occurs twice, so that the nearest and the second nearest are equally far.
    Pair pair(picture8(0, 0), picture8(3.3, 2.1));
    const auto once = pair.keypoints2;
    pair.keypoints2.insert(pair.keypoints2.end(), once.begin(), once.end());
    const LogCapture capture;
    EXPECT_FALSE(pair.estimate());
    EXPECT_TRUE(pair.isIdentity());
    EXPECT_THAT(capture.texts(LogMessageType::Warning),
                ElementsAre("[Alignment] Not enough matches found between a pair of images (found 0)"));
}

TEST(EstimatePair, TheCountOfMatchesIsLogged)
{
    Pair pair(picture8(0, 0), picture8(0, 0));
    pair.keypoints1.resize(5);
    pair.keypoints2.resize(5);
    const LogCapture capture;
    EXPECT_FALSE(pair.estimate());
    EXPECT_THAT(capture.texts(LogMessageType::Warning),
                ElementsAre("[Alignment] Not enough matches found between a pair of images (found 5)"));
}

TEST(EstimatePair, NineMatchesAreEnough)
{
    for (const std::size_t count : {std::size_t{8}, std::size_t{9}}) {
        Pair pair(picture8(0, 0), picture8(0, 0));
        pair.keypoints1.resize(count);
        pair.keypoints2.resize(count);
        const LogCapture capture;
        EXPECT_EQ(pair.estimate(), count == 9) << count;
        const auto complaints = capture.texts(LogMessageType::Warning);
        EXPECT_EQ(complaints.empty(), count == 9);
        for (const std::string& complaint : complaints)
            EXPECT_THAT(complaint, testing::EndsWith("(found 8)"));
    }
}
