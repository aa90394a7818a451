#include <orvo_core/crop_description.hpp>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <numbers>

namespace {

using orvo::_Rect;
using orvo::_Size;
using orvo::CropDescription;

CropDescription cropOf(float angle, _Rect<int> rect)
{
    CropDescription crop;
    crop.angle = angle;
    crop.rect = rect;
    return crop;
}

TEST(CropDescription, TheDefaultValueIsNoCrop)
{
    EXPECT_EQ(CropDescription(), CropDescription());
    EXPECT_FALSE(cropOf(0.1f, {}) == CropDescription());
    EXPECT_FALSE(cropOf(0.0f, {0, 0, 1, 1}) == CropDescription());
    EXPECT_EQ(CropDescription().getCropRect(), _Rect<int>());
}

TEST(CropDescription, FactorsScaleTheRectangleAndTruncate)
{
    CropDescription crop = cropOf(0.0f, {10, 20, 31, 41});
    EXPECT_EQ(crop.getCropRect(), _Rect<int>(10, 20, 31, 41));
    crop.scaleX = 0.5f;
    crop.scaleY = 2.0f;
    EXPECT_EQ(crop.getCropRect(), _Rect<int>(5, 40, 15, 82));
}

TEST(CropDescription, ScaledBeyondAnIntTheRectangleIsLimited)
{
    constexpr int kLeast = std::numeric_limits<int>::min();
    constexpr int kMost = std::numeric_limits<int>::max();
    CropDescription crop = cropOf(0.0f, {kLeast, -3, kMost, 3});
    EXPECT_EQ(crop.getCropRect(), _Rect<int>(kLeast, -3, kMost, 3));
    crop.scaleX = 1e30f;
    crop.scaleY = std::numeric_limits<float>::infinity();
    EXPECT_EQ(crop.getCropRect(), _Rect<int>(kLeast, kLeast, kMost, kMost));
    crop.scaleX = crop.scaleY = std::numeric_limits<float>::quiet_NaN();
    EXPECT_EQ(crop.getCropRect(), _Rect<int>());
}

TEST(CropDescription, WithoutAnAngleTheCanvasIsTheRectangle)
{
    const auto transform = cropOf(0.0f, {7, 9, 30, 21}).getAffineTransformForCanvas({30, 21});
    EXPECT_EQ(transform.map(0.5, 0.5), orvo::_Point<double>(7.5, 9.5));
    EXPECT_EQ(transform.map(29.5, 20.5), orvo::_Point<double>(36.5, 29.5));
}

TEST(CropDescription, ACanvasOfAnotherSizeSpansTheRectangle)
{
    const auto transform = cropOf(0.0f, {7, 9, 30, 21}).getAffineTransformForCanvas({60, 7});
    EXPECT_EQ(transform.map(0, 0), orvo::_Point<double>(7, 9));
    EXPECT_EQ(transform.map(60, 7), orvo::_Point<double>(37, 30));
}

TEST(CropDescription, APositiveAngleTurnsTheRectangleClockwiseAboutItsCentre)
{
    // The corners of the rotated rectangle, with x to the right and y down.
    const double angle = 0.3;
    const auto transform = cropOf(static_cast<float>(angle), {10, 20, 40, 30}).getAffineTransformForCanvas({40, 30});
    const auto centre = transform.map(20, 15);
    EXPECT_NEAR(centre.x, 30, 1e-9);
    EXPECT_NEAR(centre.y, 35, 1e-9);
    const auto right = transform.map(40, 15); // the middle of the right side moved down
    EXPECT_NEAR(right.x, 30 + 20 * std::cos(angle), 1e-6);
    EXPECT_NEAR(right.y, 35 + 20 * std::sin(angle), 1e-6);
    const auto bottom = transform.map(20, 30); // the middle of the lower side moved left
    EXPECT_NEAR(bottom.x, 30 - 15 * std::sin(angle), 1e-6);
    EXPECT_NEAR(bottom.y, 35 + 15 * std::cos(angle), 1e-6);
}

TEST(CropDescription, AQuarterTurnIsExact)
{
    constexpr float kQuarter = std::numbers::pi_v<float> / 2.0f;
    const auto transform = cropOf(kQuarter, {0, 0, 40, 30}).getAffineTransformForCanvas({40, 30});
    EXPECT_EQ(transform.xx, 0.0);
    EXPECT_EQ(transform.xy, -1.0);
    EXPECT_EQ(transform.yx, 1.0);
    EXPECT_EQ(transform.yy, 0.0);
    EXPECT_EQ(transform.map(20, 15), orvo::_Point<double>(20, 15));
}

TEST(AffineTransform, StartsAsTheIdentity)
{
    EXPECT_EQ(orvo::AffineTransform(), orvo::AffineTransform::makeIdentity());
    EXPECT_EQ(orvo::AffineTransform().map(3.25, -7), orvo::_Point<double>(3.25, -7));
}

TEST(ScaleSizeToMax, ShrinksTheLongestSideToTheLimitInProportion)
{
    EXPECT_EQ(orvo::scaleSizeToMax({6000, 2000}, 1500), _Size<int>(1500, 500));
    EXPECT_EQ(orvo::scaleSizeToMax({2000, 6000}, 1500), _Size<int>(500, 1500));
    EXPECT_EQ(orvo::scaleSizeToMax({1500, 500}, 1500), _Size<int>(1500, 500));
    EXPECT_EQ(orvo::scaleSizeToMax({30, 20}, 1500), _Size<int>(30, 20));
    EXPECT_EQ(orvo::scaleSizeToMax({0, 0}, 1500), _Size<int>(0, 0));
}

TEST(ScaleSizeToMax, NeverExceedsTheLimitAndNeverLosesASide)
{
    for (int width = 1; width <= 4000; width += 37)
        for (int height = 1; height <= 4000; height += 41)
            for (const int limit : {1, 2, 500, 1000, 4000}) {
                const auto size = orvo::scaleSizeToMax({width, height}, limit);
                ASSERT_GE(std::min(size.width, size.height), 1);
                ASSERT_EQ(std::max(size.width, size.height), std::min(limit, std::max(width, height)));
            }
}

} // namespace
