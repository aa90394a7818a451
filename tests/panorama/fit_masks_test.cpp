#include "panorama/fit_masks.hpp"
#include "support/matrices.hpp"

#include <orvo_core/parallel.hpp>

#include <gtest/gtest.h>
#include <opencv2/core.hpp>

using namespace orvo;
using orvo::test::sameBytes;

namespace {

cv::Mat full(int width, int height) { return {height, width, CV_8UC1, cv::Scalar(255)}; }
cv::Mat none(int width, int height) { return cv::Mat::zeros(height, width, CV_8UC1); }

} // namespace

TEST(FitMasks, APixelClaimedByTwoGoesToTheFirst)
{
    std::vector<cv::Mat> masks = {full(6, 4), full(6, 4)};
    const std::vector<cv::Mat> whole = {full(6, 4), full(6, 4)};
    fitMasks(masks, whole, {{0, 0}, {3, 0}});
    EXPECT_TRUE(sameBytes(masks[0], full(6, 4)));
    EXPECT_EQ(cv::countNonZero(masks[1].colRange(0, 3)), 0);
    EXPECT_EQ(cv::countNonZero(masks[1].colRange(3, 6)), 12);
}

TEST(FitMasks, AHoleGoesToTheFirstPictureThatHasDataThere)
{
    std::vector<cv::Mat> masks = {none(4, 2), none(4, 2), none(4, 2)};
    const std::vector<cv::Mat> whole = {none(4, 2), full(4, 2), full(4, 2)};
    fitMasks(masks, whole, {{0, 0}, {0, 0}, {0, 0}});
    EXPECT_EQ(cv::countNonZero(masks[0]), 0);
    EXPECT_EQ(cv::countNonZero(masks[1] == 1), 8) << "a filled pixel is 1";
    EXPECT_EQ(cv::countNonZero(masks[2]), 0);
}

TEST(FitMasks, AClaimBehindAHoleWins)
{
    std::vector<cv::Mat> masks = {none(4, 2), full(4, 2)};
    const std::vector<cv::Mat> whole = {full(4, 2), full(4, 2)};
    fitMasks(masks, whole, {{0, 0}, {0, 0}});
    EXPECT_EQ(cv::countNonZero(masks[0]), 0);
    EXPECT_TRUE(sameBytes(masks[1], full(4, 2)));
}

TEST(FitMasks, APixelWithoutDataHasNoOwner)
{
    std::vector<cv::Mat> masks = {none(4, 2), none(4, 2)};
    fitMasks(masks, {none(4, 2), none(4, 2)}, {{0, 0}, {10, -3}});
    EXPECT_EQ(cv::countNonZero(masks[0]) + cv::countNonZero(masks[1]), 0);
}

TEST(FitMasks, IsAPartitionForAnyMasksAndAnyNumberOfThreads)
{
    cv::RNG random(7);
    std::vector<cv::Mat> masks;
    std::vector<cv::Mat> whole;
    std::vector<cv::Point> corners;
    for (int i = 0; i < 5; ++i) {
        const cv::Size size(random.uniform(20, 60), random.uniform(20, 60));
        cv::Mat noise(size, CV_8UC1);
        random.fill(noise, cv::RNG::UNIFORM, 0, 4);
        whole.push_back(noise > 0);
        cv::Mat claim(size, CV_8UC1);
        random.fill(claim, cv::RNG::UNIFORM, 0, 2);
        masks.push_back((claim > 0) & whole.back());
        corners.emplace_back(random.uniform(-30, 30), random.uniform(-30, 30));
    }
    const auto copies = [&] {
        std::vector<cv::Mat> out;
        for (const auto& mask : masks)
            out.push_back(mask.clone());
        return out;
    };
    auto fitted = copies();
    {
        const WorkerLimit limit(1);
        fitMasks(fitted, whole, corners);
    }
    auto fittedByTwo = copies();
    {
        const WorkerLimit limit(2);
        fitMasks(fittedByTwo, whole, corners);
    }
    cv::Mat owners = cv::Mat::zeros(200, 200, CV_8UC1);
    cv::Mat covered = cv::Mat::zeros(200, 200, CV_8UC1);
    for (std::size_t i = 0; i < masks.size(); ++i) {
        EXPECT_TRUE(sameBytes(fitted[i], fittedByTwo[i]));
        const cv::Rect place(corners[i] + cv::Point(70, 70), fitted[i].size());
        cv::Mat there = owners(place);
        there += cv::Mat((fitted[i] > 0) / 255);
        cv::Mat coveredThere = covered(place);
        coveredThere |= whole[i];
    }
    EXPECT_EQ(cv::countNonZero(owners > 1), 0);
    EXPECT_EQ(cv::countNonZero(owners), cv::countNonZero(covered));
}

TEST(FitMasks, TakesMorePicturesThanAByteCounts)
{
    constexpr int kPictures = 300;
    std::vector<cv::Mat> masks;
    std::vector<cv::Mat> whole;
    std::vector<cv::Point> corners;
    for (int i = 0; i < kPictures; ++i) {
        masks.push_back(i % 2 == 0 ? full(3, 2) : none(3, 2));
        whole.push_back(full(3, 2));
        corners.emplace_back(3 * i, 0);
    }
    masks.push_back(full(3 * kPictures, 2));
    whole.push_back(full(3 * kPictures, 2));
    corners.emplace_back(0, 0);
    fitMasks(masks, whole, corners);
    for (int i = 0; i < kPictures; ++i)
        EXPECT_EQ(cv::countNonZero(masks[static_cast<std::size_t>(i)]), i % 2 == 0 ? 6 : 0) << i;
    EXPECT_EQ(cv::countNonZero(masks.back()), 3 * kPictures) << "the remaining pixels";
    masks.back().setTo(0);
    fitMasks(masks, whole, corners);
    EXPECT_TRUE(sameBytes(masks[299], cv::Mat(2, 3, CV_8UC1, cv::Scalar(1)))) << "the first that has data there";
}

TEST(FitMasks, NoMasksAreNoError)
{
    std::vector<cv::Mat> masks;
    EXPECT_NO_THROW(fitMasks(masks, {}, {}));
}
