#include "grouping/framing.hpp"
#include "grouping/tile_sharpness.hpp"
#include "support/cards.hpp"

#include <gmock/gmock.h>
#include <opencv2/imgproc.hpp>

#include <cmath>
#include <numbers>

namespace orvo::test {
namespace {

/// Share of a view that one turned by `degrees` shows too, in the middle row.
double sharedAfterTurn(double degrees, double focalByWidth)
{
    const double half = std::atan(0.5 / focalByWidth);
    const double turn = degrees * std::numbers::pi / 180.0;
    return focalByWidth * (std::tan(half) - std::tan(turn - half));
}

TEST(CompareFramings, FindsTheOverlapOfTurnedViews)
{
    for (const double step : {15.0, 25.0, 38.0}) {
        const TemporaryFolder folder;
        const Paths views = Card(folder).panorama(2, step);
        const Framing framing = compareFramings(readThumbnail(views[0]), readThumbnail(views[1]));
        ASSERT_EQ(framing.kind, FramingKind::Related) << step;
        constexpr double kByShakeAndCorners = 0.06;
        EXPECT_NEAR(framing.overlap, sharedAfterTurn(step, 1.0), kByShakeAndCorners) << step;
        EXPECT_NEAR(framing.scale, 1.0, 0.05) << step;
    }
}

TEST(CompareFramings, ExposuresOfOneViewHaveTheSameFraming)
{
    const TemporaryFolder folder;
    const Paths frames = Card(folder).bracket({-2.0, 0.0, 2.0}, 1, 12.0);
    for (const std::size_t other : {std::size_t{0}, std::size_t{2}}) {
        const Framing framing = compareFramings(readThumbnail(frames[1]), readThumbnail(frames[other]));
        EXPECT_EQ(framing.kind, FramingKind::Related);
        EXPECT_GT(framing.overlap, 0.9);
        EXPECT_NEAR(framing.scale, 1.0, 0.02);
    }
}

TEST(CompareFramings, PlacesAreUnrelated)
{
    const TemporaryFolder folder;
    Card card(folder);
    const Thumbnail first = readThumbnail(card.single(1));
    for (std::uint64_t scene = 2; scene < 6; ++scene)
        EXPECT_EQ(compareFramings(first, readThumbnail(card.single(scene))).kind, FramingKind::Unrelated) << scene;
}

TEST(CompareFramings, APlainPictureIsUnknown)
{
    const TemporaryFolder folder;
    Card card(folder);
    const scenes::Picture plain({240, 160}, PixelRGB<float>{0.5f, 0.5f, 0.5f}, ColorProfileType::sRGB());
    const Thumbnail gray = readThumbnail(card.shoot(plain, card.values()));
    EXPECT_EQ(compareFramings(gray, gray).kind, FramingKind::Unknown);
    EXPECT_EQ(compareFramings(readThumbnail(card.single(1)), gray).kind, FramingKind::Unknown);
}

TEST(SharpnessChange, IsThatOfHalvesBlurredInTurn)
{
    cv::Mat sharp(320, 480, CV_8UC1);
    cv::RNG random(7);
    random.fill(sharp, cv::RNG::UNIFORM, 0, 256);
    cv::GaussianBlur(sharp, sharp, {}, 1.0);
    cv::Mat soft;
    cv::GaussianBlur(sharp, soft, {}, 3.0);
    cv::Mat left = sharp.clone();
    soft.colRange(240, 480).copyTo(left.colRange(240, 480));
    cv::Mat right = soft.clone();
    sharp.colRange(240, 480).copyTo(right.colRange(240, 480));
    const auto change = [](const cv::Mat& first, const cv::Mat& second) {
        return tileChange(tileMapOf(first), tileMapOf(second), cv::Matx33d::eye()).value().sharpness;
    };
    EXPECT_GT(change(left, right), 3.0f);
    EXPECT_LT(change(sharp, soft), 0.5f) << "the whole picture is softer";
    EXPECT_EQ(change(sharp, sharp), 0.0f);
    // What moves through a part of the picture changes its light.
    cv::Mat passed = sharp.clone();
    passed.colRange(100, 260) = 40;
    EXPECT_LT(change(sharp, passed), 0.5f);
}

TEST(TileChange, FollowsAMovedView)
{
    cv::Mat wide(320, 720, CV_8UC1);
    cv::RNG random(7);
    random.fill(wide, cv::RNG::UNIFORM, 40, 200);
    cv::GaussianBlur(wide, wide, {}, 1.0);
    cv::Mat soft;
    cv::GaussianBlur(wide, soft, {}, 3.0);
    soft.colRange(360, 720).copyTo(wide.colRange(360, 720)); // sharp to the left
    cv::Mat first = wide.colRange(0, 480).clone();
    cv::Mat second = wide.colRange(120, 600).clone() * 0.75;
    const cv::Matx33d firstFromSecond(1, 0, 120, 0, 1, 0, 0, 0, 1);
    const auto change = tileChange(tileMapOf(first), tileMapOf(second), firstFromSecond);
    ASSERT_TRUE(change);
    EXPECT_LT(change->sharpness, 0.6f);
    EXPECT_NEAR(change->ev, 2.2 * std::log2(0.75), 0.1);
    EXPECT_GT(tileChange(tileMapOf(first), tileMapOf(second), cv::Matx33d::eye())->sharpness, 1.5f);
    EXPECT_FALSE(tileChange(tileMapOf(first), tileMapOf(second), cv::Matx33d(1, 0, 470, 0, 1, 0, 0, 0, 1)));
}

} // namespace
} // namespace orvo::test
