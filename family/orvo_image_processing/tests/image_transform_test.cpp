#include <orvo_core/parallel.hpp>
#include <orvo_core/rgba.hpp>
#include <orvo_image_processing/image_transform.hpp>

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <memory>
#include <numbers>
#include <random>
#include <stdexcept>

namespace {

using orvo::_Rect;
using orvo::_Size;
using orvo::CropDescription;
using Picture = orvo::_ImageData<orvo::PixelRGB<float>>;
using PictureRGBA = orvo::_ImageData<orvo::PixelRGBA<float>>;

std::shared_ptr<Picture> noise(_Size<int> size)
{
    auto picture = std::make_shared<Picture>(size, orvo::ColorProfileType::sRGB());
    std::mt19937 random(5);
    std::uniform_real_distribution<float> values(0.0f, 1.0f);
    for (std::size_t i = 0; i < picture->pixelCount(); ++i)
        picture->data()[i] = {values(random), values(random), values(random)};
    return picture;
}

// A smooth scene defined between pixels too; its finest waves are nine pixels long.
orvo::PixelRGB<float> sceneAt(double x, double y)
{
    const auto wave = [](double phase) { return static_cast<float>(0.5 + 0.4 * std::sin(phase)); };
    return {wave(x * 0.31 + y * 0.2), wave(x * 0.1 - y * 0.4), wave(std::hypot(x - 40.0, y - 30.0) * 0.7)};
}

std::shared_ptr<Picture> sceneOf(_Size<int> size)
{
    auto picture = std::make_shared<Picture>(size, orvo::ColorProfileType::sRGB());
    for (int y = 0; y < size.height; ++y)
        for (int x = 0; x < size.width; ++x)
            picture->row(y)[x] = sceneAt(x + 0.5, y + 0.5);
    return picture;
}

CropDescription cropOf(double angle, _Rect<int> rect)
{
    CropDescription crop;
    crop.angle = static_cast<float>(angle);
    crop.rect = rect;
    return crop;
}

orvo::TransformComputer computerOf(const CropDescription& crop, _Size<int> target)
{
    const auto size = crop.getCropRect().size();
    return orvo::TransformComputer({size,
                                    {0.0f, 0.0f, static_cast<float>(size.width), static_cast<float>(size.height)},
                                    target,
                                    orvo::ImageTransformType::Affine,
                                    crop.getAffineTransformForCanvas(size),
                                    crop,
                                    0});
}

template <typename Pixels>
auto cropped(const Pixels& picture, const CropDescription& crop, _Size<int> target = {})
{
    const auto computer = computerOf(crop, target == _Size<int>() ? crop.getCropRect().size() : target);
    return computer.createTransformedRoi(picture, computer.getWorkingResizeParameters());
}

TEST(CreateTransformedRoi, WithoutAnAngleItIsABitExactCopy)
{
    const auto picture = noise({61, 47});
    for (const _Rect<int> rect : {_Rect<int>(0, 0, 61, 47), _Rect<int>(3, 5, 20, 31), _Rect<int>(60, 46, 1, 1)}) {
        const auto result = cropped(*picture, cropOf(0.0, rect));
        const auto truth = picture->copy(rect);
        ASSERT_EQ(result->size(), truth->size());
        EXPECT_EQ(std::memcmp(result->data(), truth->data(), truth->pixelCount() * sizeof(*truth->data())), 0);
        EXPECT_EQ(result->colorProfile(), picture->colorProfile());
    }
}

TEST(CreateTransformedRoi, QuarterTurnsAreExact)
{
    const auto picture = noise({40, 30});
    const auto quarter = cropped(*picture, cropOf(std::numbers::pi / 2, {0, 0, 40, 30}));
    // The rectangle rotates clockwise, so its right side was below.
    for (int y = 0; y < 30; ++y)
        for (int x = 5; x < 35; ++x)
            ASSERT_EQ(quarter->row(y)[x], picture->row(x - 5)[34 - y]) << x << ", " << y;
    const auto half = cropped(*picture, cropOf(std::numbers::pi, {0, 0, 40, 30}));
    for (int y = 0; y < 30; ++y)
        for (int x = 0; x < 40; ++x)
            ASSERT_EQ(half->row(y)[x], picture->row(29 - y)[39 - x]);
}

TEST(CreateTransformedRoi, ATurnedPictureIsWithinATenthOfAPixelOfTheTruth)
{
    const auto picture = sceneOf({160, 120});
    for (const double angle : {-0.5, -0.05, 0.01, 0.3, 1.2}) {
        const CropDescription crop = cropOf(angle, {45, 35, 60, 44});
        const auto result = cropped(*picture, crop);
        const auto transform = crop.getAffineTransformForCanvas({60, 44});
        // The displacement that explains the differences best, by the gradients of the truth.
        double axx = 0, axy = 0, ayy = 0, bx = 0, by = 0;
        for (int y = 0; y < 44; ++y)
            for (int x = 0; x < 60; ++x) {
                const auto place = transform.map(x + 0.5, y + 0.5);
                const double truth = static_cast<double>(sceneAt(place.x, place.y).b);
                const double gx =
                    static_cast<double>(sceneAt(place.x + 0.5, place.y).b - sceneAt(place.x - 0.5, place.y).b);
                const double gy =
                    static_cast<double>(sceneAt(place.x, place.y + 0.5).b - sceneAt(place.x, place.y - 0.5).b);
                const double difference = static_cast<double>(result->row(y)[x].b) - truth;
                EXPECT_NEAR(difference, 0.0, 0.015);
                axx += gx * gx;
                axy += gx * gy;
                ayy += gy * gy;
                bx += gx * difference;
                by += gy * difference;
            }
        const double scale = axx * ayy - axy * axy;
        ASSERT_GT(std::abs(scale), 0.0);
        EXPECT_LT(std::hypot(bx * ayy - by * axy, by * axx - bx * axy) / std::abs(scale), 0.1) << angle;
    }
}

TEST(CreateTransformedRoi, ShrinkingTakesTheMeanOverThePixelsArea)
{
    // Stripes of one pixel, which point sampling would turn black or white.
    auto stripes = std::make_shared<Picture>(_Size<int>(96, 96), nullptr);
    for (int y = 0; y < 96; ++y)
        for (int x = 0; x < 96; ++x) {
            const auto value = static_cast<float>((x + y) % 2);
            stripes->row(y)[x] = {value, value, value};
        }
    const auto small = cropped(*stripes, cropOf(0.2, {24, 24, 48, 48}), {8, 8});
    for (std::size_t i = 0; i < small->pixelCount(); ++i)
        EXPECT_NEAR(small->data()[i].r, 0.5f, 0.05f);
}

TEST(CreateTransformedRoi, WithoutAnAngleItEqualsTheLimitOfSmallAngles)
{
    const auto picture = noise({90, 70});
    auto mask = std::make_shared<orvo::MaskImage>(_Size<int>(90, 70), 1.0f);
    mask->fillRect(0.0f, {0, 0, 45, 20});
    const auto joined = orvo::joinToRGBA(picture, mask, false);
    constexpr double kAlmostNone = 1e-9; // shifts no sample by more than a ten-millionth of a pixel
    for (const _Rect<int> rect : {_Rect<int>(0, 0, 90, 70), _Rect<int>(7, 11, 61, 43), _Rect<int>(-6, 3, 99, 50)})
        for (const _Size<int> target :
             {_Size<int>(17, 9), _Size<int>(50, 68), _Size<int>(89, 1), _Size<int>(211, 150)}) {
            const auto straight = cropped(*joined, cropOf(0.0, rect), target);
            const auto turned = cropped(*joined, cropOf(kAlmostNone, rect), target);
            for (std::size_t i = 0; i < straight->pixelCount(); ++i) {
                const auto &a = straight->data()[i], &b = turned->data()[i];
                ASSERT_NEAR(a.r, b.r, 2e-5f) << i << " of " << target.width << " x " << target.height;
                ASSERT_NEAR(a.b, b.b, 2e-5f) << i << " of " << target.width << " x " << target.height;
                ASSERT_NEAR(a.a, b.a, 2e-5f) << i << " of " << target.width << " x " << target.height;
            }
        }
}

TEST(CreateTransformedRoi, AConstantStaysConstant)
{
    const Picture picture({50, 50}, {0.25f, 0.5f, 0.75f}, nullptr);
    for (const double angle : {0.0, 0.1, 0.7}) {
        const auto result = cropped(picture, cropOf(angle, {15, 15, 20, 20}), {13, 7});
        for (std::size_t i = 0; i < result->pixelCount(); ++i)
            EXPECT_NEAR(result->data()[i].g, 0.5f, 1e-6f);
    }
}

TEST(CreateTransformedRoi, WhatLiesOutsideIsTransparentNotBlack)
{
    const PictureRGBA picture({20, 20}, {0.3f, 0.3f, 0.3f, 1.0f}, nullptr);
    const auto result = cropped(picture, cropOf(0.6, {0, 0, 20, 20}));
    const auto corner = result->row(0)[0];
    EXPECT_EQ(corner.a, 0.0f);
    EXPECT_EQ(corner.r, 1.0f);
    EXPECT_NEAR(result->row(10)[10].a, 1.0f, 1e-6f);
    for (std::size_t i = 0; i < result->pixelCount(); ++i) {
        const auto pixel = result->data()[i];
        EXPECT_GE(pixel.r, 0.29f); // no black is mixed in at the rim
        EXPECT_TRUE(pixel.a < 0.01f || std::abs(pixel.r - 0.3f) < 1e-5f) << pixel.r;
    }
    const auto opaque = cropped(Picture({20, 20}, {0.3f, 0.3f, 0.3f}, nullptr), cropOf(0.6, {0, 0, 20, 20}));
    EXPECT_EQ(opaque->row(0)[0].r, 1.0f);
}

TEST(CreateTransformedRoi, AlphaDoesNotChangeColours)
{
    const auto picture = sceneOf({80, 60});
    auto mask = std::make_shared<orvo::MaskImage>(_Size<int>(80, 60), 1.0f);
    mask->fillRect(0.0f, {0, 0, 40, 60});
    const CropDescription crop = cropOf(0.25, {20, 15, 40, 30});
    const auto split = orvo::splitRGBA(cropped(*orvo::joinToRGBA(picture, mask, false), crop));
    const auto colours = cropped(*picture, crop);
    EXPECT_EQ(std::memcmp(split.image->data(), colours->data(), colours->pixelCount() * sizeof(*colours->data())), 0);
}

TEST(CreateTransformedRoi, APartIsThatPartOfTheWhole)
{
    const auto picture = sceneOf({80, 60});
    const auto computer = computerOf(cropOf(0.4, {20, 15, 40, 30}), {40, 30});
    const auto whole = computer.createTransformedRoi(*picture, computer.getWorkingResizeParameters());
    const auto part = computer.createTransformedRoi(*picture, {{}, {10, 5, 20, 12}, true});
    ASSERT_EQ(part->size(), _Size<int>(20, 12));
    for (int y = 0; y < 12; ++y)
        for (int x = 0; x < 20; ++x)
            EXPECT_NEAR(part->row(y)[x].g, whole->row(y + 5)[x + 10].g, 1e-5f);
}

TEST(CreateTransformedRoi, TypeNoneShowsTheCanvasItself)
{
    const auto picture = noise({30, 20});
    orvo::AffineTransform shifted;
    shifted.x0 = 5.0;
    const orvo::TransformComputer computer(
        {{30, 20}, {}, {30, 20}, orvo::ImageTransformType::None, shifted, CropDescription(), 0});
    const auto result = computer.createTransformedRoi(*picture, computer.getWorkingResizeParameters());
    EXPECT_EQ(std::memcmp(result->data(), picture->data(), picture->pixelCount() * sizeof(*picture->data())), 0);
}

TEST(CreateTransformedRoi, OneThreadAndManyGiveTheSameBytes)
{
    const auto picture = noise({200, 150});
    const auto many = cropped(*picture, cropOf(0.3, {20, 20, 160, 110}), {90, 70});
    const orvo::WorkerLimit limit(1);
    const auto one = cropped(*picture, cropOf(0.3, {20, 20, 160, 110}), {90, 70});
    EXPECT_EQ(std::memcmp(one->data(), many->data(), one->pixelCount() * sizeof(*one->data())), 0);
}

TEST(CreateTransformedRoi, APictureWithoutPixelsIsRefused)
{
    const Picture picture({0, 0}, nullptr);
    EXPECT_THROW((void)cropped(picture, cropOf(0.1, {0, 0, 4, 4})), std::invalid_argument);
}

} // namespace
