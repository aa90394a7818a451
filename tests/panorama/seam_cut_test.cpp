#include "panorama/seam_cut.hpp"

#include <gtest/gtest.h>
#include <opencv2/stitching/detail/seam_finders.hpp>

using namespace orvo;

namespace {

constexpr float kPenalty = 1000.0f;

struct Pictures
{
    std::vector<cv::UMat> pictures;
    std::vector<cv::UMat> masks;
    std::vector<cv::Point> corners;

    /// Content from a common scene, with individual noise, in these columns of the rectangle.
    void add(const cv::Rect& place, const std::vector<cv::Range>& columns)
    {
        cv::RNG rng(100 + pictures.size());
        cv::Mat scene(200, 2000, CV_32FC3);
        cv::RNG(7).fill(scene, cv::RNG::UNIFORM, 0, 200);
        cv::Mat picture = cv::Mat::zeros(place.size(), CV_32FC3);
        cv::Mat mask = cv::Mat::zeros(place.size(), CV_8UC1);
        for (const cv::Range& range : columns) {
            cv::Mat noise(place.height, range.size(), CV_32FC3);
            rng.fill(noise, cv::RNG::UNIFORM, 0, 50);
            cv::Mat(scene(place).colRange(range) + noise).copyTo(picture.colRange(range));
            mask.colRange(range).setTo(255);
        }
        pictures.push_back(picture.getUMat(cv::ACCESS_READ).clone());
        masks.push_back(mask.getUMat(cv::ACCESS_READ).clone());
        corners.push_back(place.tl());
    }

    [[nodiscard]] std::vector<cv::UMat> cutByFinder() const
    {
        std::vector<cv::UMat> cut;
        for (const cv::UMat& mask : masks)
            cut.push_back(mask.clone());
        cv::detail::GraphCutSeamFinder(cv::detail::GraphCutSeamFinderBase::COST_COLOR, kSeamTerminalCost, kPenalty)
            .find(pictures, corners, cut);
        return cut;
    }
};

int differing(const cv::UMat& a, const cv::UMat& b)
{
    cv::Mat other;
    cv::bitwise_xor(a, b, other);
    return cv::countNonZero(other);
}

} // namespace

TEST(SeamCut, EqualsTheFinderWithoutAVoid)
{
    Pictures row;
    for (int i = 0; i < 5; ++i)
        row.add({i * 60, 5 * (i % 2), 100, 80}, {{3 * (i % 2), 100}});
    const auto expected = row.cutByFinder();
    ASSERT_TRUE(cutSeams(row.pictures, row.corners, row.masks, kPenalty, {}));
    for (std::size_t i = 0; i < expected.size(); ++i)
        EXPECT_EQ(differing(row.masks[i], expected[i]), 0) << i;
    EXPECT_LT(cv::countNonZero(row.masks[1]), 97 * 80) << "nothing was cut";
}

// Two pictures across the back of the sphere: both ends of both rectangles are full, the middle of both is empty.
TEST(SeamCut, CutsBothEndsOfTheSphere)
{
    Pictures back;
    back.add({0, 0, 600, 60}, {{0, 80}, {560, 600}});
    back.add({0, 0, 600, 60}, {{0, 30}, {500, 600}});
    const auto expected = back.cutByFinder();
    ASSERT_TRUE(cutSeams(back.pictures, back.corners, back.masks, kPenalty, {}));
    cv::Mat both;
    cv::bitwise_and(back.masks[0], back.masks[1], both);
    EXPECT_EQ(cv::countNonZero(both), 0);
    EXPECT_EQ(cv::countNonZero(back.masks[0]) + cv::countNonZero(back.masks[1]), (80 + 100) * 60);
    constexpr int kShared = (30 + 40) * 60;
    EXPECT_LT(differing(back.masks[0], expected[0]), kShared / 100);
    EXPECT_LT(differing(back.masks[1], expected[1]), kShared / 100);
}

TEST(SeamCut, SkipsPairsThatShareNothing)
{
    Pictures apart;
    apart.add({0, 0, 400, 60}, {{0, 50}});
    apart.add({0, 0, 400, 60}, {{50, 400}});
    int polls = 0;
    ASSERT_TRUE(
        cutSeams(apart.pictures, apart.corners, apart.masks, kPenalty, RunControl([&] { return ++polls > 0; })));
    EXPECT_EQ(polls, 0) << "there was nothing to cut";
    EXPECT_EQ(cv::countNonZero(apart.masks[0]), 50 * 60);
    EXPECT_EQ(cv::countNonZero(apart.masks[1]), 350 * 60);
}

TEST(SeamCut, IsCancelledBeforeAnyCut)
{
    for (const int last : {1, 2, 3}) {
        Pictures row;
        for (int i = 0; i < 4; ++i)
            row.add({i * 60, 0, 100, 60}, {{0, 100}});
        int polls = 0;
        EXPECT_FALSE(
            cutSeams(row.pictures, row.corners, row.masks, kPenalty, RunControl([&] { return ++polls == last; })));
        EXPECT_EQ(polls, last);
    }
}
