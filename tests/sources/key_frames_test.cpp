// Which candidates still overlap their key frame.
#include "sources/key_frames.hpp"

#include <gtest/gtest.h>
#include <opencv2/core.hpp>

using namespace orvo;

namespace {

constexpr int kWidth = 800;
constexpr int kHeight = 600;
const cv::Size kSize(kWidth, kHeight);

cv::Mat shiftBy(double x, double y) { return (cv::Mat_<double>(3, 3) << 1, 0, x, 0, 1, y, 0, 0, 1); }

cv::detail::MatchesInfo seen(const cv::Mat& homography)
{
    cv::detail::MatchesInfo matches;
    matches.H = homography;
    return matches;
}

bool accepts(KeyFrameJudge& judge, double x, double y)
{
    return judge.acceptCandidate(seen(shiftBy(x, y)), kSize, {}, {});
}

// Matches without a homography, with the given displacements from candidate to key frame.
struct Loose
{
    cv::detail::MatchesInfo matches;
    cv::detail::ImageFeatures key;
    cv::detail::ImageFeatures candidate;

    explicit Loose(const std::vector<cv::Point2f>& displacements)
    {
        for (const cv::Point2f& by : displacements) {
            const int index = static_cast<int>(key.keypoints.size());
            const cv::Point2f at(100.0f + 20.0f * static_cast<float>(index), 200.0f);
            candidate.keypoints.emplace_back(at, 1.0f);
            key.keypoints.emplace_back(at + by, 1.0f);
            matches.matches.emplace_back(index, index, 0.0f);
        }
    }
    [[nodiscard]] bool accepted(cv::Size size) const
    {
        return KeyFrameJudge().acceptCandidate(matches, size, key, candidate);
    }
};

} // namespace

TEST(OverlapWithKeyFrame, OfAShiftIsTheCommonArea)
{
    const auto right = overlapWithKeyFrame(shiftBy(200, 0), kWidth, kHeight);
    EXPECT_NEAR(right.overlap, 0.75, 0.01);
    EXPECT_FLOAT_EQ(right.shift.x, -200.0f);
    EXPECT_FLOAT_EQ(right.shift.y, 0.0f);
    const auto both = overlapWithKeyFrame(shiftBy(-200, 150), kWidth, kHeight);
    EXPECT_NEAR(both.overlap, 0.75 * 0.75, 0.01);
    EXPECT_FLOAT_EQ(both.shift.x, 200.0f);
    EXPECT_FLOAT_EQ(both.shift.y, -150.0f);
}

TEST(OverlapWithKeyFrame, OfTheSameViewIsWhole)
{
    const auto same = overlapWithKeyFrame(cv::Mat::eye(3, 3, CV_64F), kWidth, kHeight);
    EXPECT_EQ(same.overlap, 1.0);
    EXPECT_EQ(same.shift, cv::Point2f(0, 0));
}

TEST(OverlapWithKeyFrame, IsNothingElsewhereOrWithoutAHomography)
{
    EXPECT_EQ(overlapWithKeyFrame(shiftBy(900, 0), kWidth, kHeight).overlap, 0.0);
    EXPECT_EQ(overlapWithKeyFrame(cv::Mat(), kWidth, kHeight).overlap, 0.0);
    EXPECT_EQ(overlapWithKeyFrame(cv::Mat::eye(2, 3, CV_64F), kWidth, kHeight).overlap, 0.0);
    EXPECT_EQ(overlapWithKeyFrame(cv::Mat::eye(2, 3, CV_64F), kWidth, kHeight).shift, cv::Point2f(0, 0));
}

TEST(OverlapWithKeyFrame, IsTakenFromTheBoxOfATurnedFrame)
{
    // Rotated by 90 degrees about its middle: a box of 600 by 800 around the middle of 800 by 600.
    const cv::Mat turned = (cv::Mat_<double>(3, 3) << 0, -1, 700, 1, 0, -100, 0, 0, 1);
    EXPECT_NEAR(overlapWithKeyFrame(turned, kWidth, kHeight).overlap, 0.75, 0.01);
}

TEST(KeyFrameJudge, AcceptsUntilTwoThirdsAreLost)
{
    for (const double lost : {0.05, 0.3, 0.6, 0.65}) {
        KeyFrameJudge judge; // no direction yet, so the angle sets no limit
        EXPECT_TRUE(accepts(judge, -lost * kWidth, 0)) << lost;
    }
    for (const double lost : {0.69, 0.8, 1.2}) {
        KeyFrameJudge judge;
        EXPECT_FALSE(accepts(judge, -lost * kWidth, 0)) << lost;
    }
}

TEST(KeyFrameJudge, StraightOnTheLimitIsTheInverseOfAQuarterTurn)
{
    KeyFrameJudge judge;
    EXPECT_TRUE(accepts(judge, -0.1 * kWidth, 0));
    EXPECT_FALSE(accepts(judge, -0.645 * kWidth, 0)); // beyond 2 / pi = 0.6366, though below 0.67
    EXPECT_TRUE(accepts(judge, -0.625 * kWidth, 0));
}

TEST(KeyFrameJudge, TheDirectionIsKeptInWholePixels)
{
    KeyFrameJudge still; // less than half a pixel is no direction, so no way is straight on
    EXPECT_TRUE(accepts(still, -0.4, 0));
    EXPECT_TRUE(accepts(still, -0.645 * kWidth, 0));
    KeyFrameJudge moving;
    EXPECT_TRUE(accepts(moving, -0.6, 0));
    EXPECT_FALSE(accepts(moving, -0.645 * kWidth, 0));
}

TEST(KeyFrameJudge, SidewaysMoreMayBeLost)
{
    KeyFrameJudge judge;
    EXPECT_TRUE(accepts(judge, -0.1 * kWidth, 0));
    EXPECT_TRUE(accepts(judge, 0, -0.655 * kHeight));
}

TEST(KeyFrameJudge, ACameraThatTurnsBackMayLoseAFifth)
{
    KeyFrameJudge judge;
    EXPECT_TRUE(accepts(judge, -0.3 * kWidth, 0));
    EXPECT_FALSE(accepts(judge, 0.25 * kWidth, 0));
    // The rejected one set the direction, so moving on that way is straight on.
    EXPECT_TRUE(accepts(judge, 0.25 * kWidth, 0));
    EXPECT_TRUE(accepts(judge, -0.15 * kWidth, 0));
}

TEST(KeyFrameJudge, BeyondTheLimitTheDirectionStays)
{
    KeyFrameJudge judge;
    EXPECT_TRUE(accepts(judge, -0.3 * kWidth, 0));
    EXPECT_FALSE(accepts(judge, -0.9 * kWidth, 0.4 * kHeight)); // far beyond the limit of its angle
    EXPECT_FALSE(accepts(judge, 0.25 * kWidth, 0));             // so this one still counts as turning back
}

TEST(KeyFrameJudge, AWildHomographyDoesNotCrash)
{
    KeyFrameJudge judge;
    EXPECT_TRUE(accepts(judge, -0.3 * kWidth, 0));
    EXPECT_FALSE(accepts(judge, 2e9, -2e9));
    EXPECT_FALSE(accepts(judge, -2e9, 2e9));
    KeyFrameJudge other;
    (void)other.acceptCandidate(seen(cv::Mat(3, 3, CV_64F, cv::Scalar(std::nan("")))), kSize, {}, {});
    (void)other.acceptCandidate(seen(cv::Mat::zeros(3, 3, CV_64F)), kSize, {}, {});
}

TEST(KeyFrameJudge, WithoutAHomographyAcrossGoesByTheHeight)
{
    // A tenth of the rows for a sideways displacement: 60 of 600.
    EXPECT_TRUE(Loose({{58, 0}, {58, 0}}).accepted(kSize));
    EXPECT_FALSE(Loose({{62, 0}, {62, 0}}).accepted(kSize));
    EXPECT_TRUE(Loose({{-58, 0}}).accepted(kSize));
}

TEST(KeyFrameJudge, WithoutAHomographyDownGoesByTheWidth)
{
    EXPECT_TRUE(Loose({{0, 78}}).accepted(kSize));
    EXPECT_FALSE(Loose({{0, 82}}).accepted(kSize));
}

TEST(KeyFrameJudge, WithoutAHomographyTheMeanCounts)
{
    EXPECT_TRUE(Loose({{0, 0}, {100, 0}}).accepted(kSize));
    EXPECT_FALSE(Loose({{30, 0}, {100, 0}}).accepted(kSize));
}

TEST(KeyFrameJudge, RejectsWithoutAHomographyAndADisplacement)
{
    EXPECT_FALSE(Loose({}).accepted(kSize));
    EXPECT_FALSE(Loose({{0, 0}}).accepted(kSize));
    EXPECT_FALSE(Loose({{50, 0}, {-50, 0}}).accepted(kSize));
}
