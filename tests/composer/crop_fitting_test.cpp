#include "composer/composer_private.hpp"
#include "composer/crop_fitting.hpp"
#include "composer_sets.hpp"
#include "support/pictures.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>

using namespace orvo;
using namespace orvo::test;

TEST(BlankPreview, IsGrayAndMarked)
{
    const RenderedData blank = blankPreview();
    ASSERT_TRUE(blank.image);
    EXPECT_EQ(blank.image->size(), _Size<int>(100, 100));
    EXPECT_EQ(blank.image->row(99)[99], (PixelRGB<float>{0.5f, 0.5f, 0.5f}));
    EXPECT_EQ(*blank.image->colorProfile(), *ColorProfileType::melissaRGB());
    EXPECT_FALSE(blank.mask);
    EXPECT_EQ(blank.context, PreviewContext());
    EXPECT_EQ(*blank.colorProfile, *ColorProfileType::melissaRGB());
    EXPECT_FALSE(blank.option2);
    EXPECT_TRUE(blank.isPlaceholder);
}

TEST(PlaceholderPreview, HasTheRequestedSizeAndAFullMask)
{
    const RenderedData placeholder = placeholderPreview({30, 20});
    EXPECT_EQ(placeholder.image->size(), _Size<int>(30, 20));
    EXPECT_EQ(placeholder.image->row(19)[29], (PixelRGB<float>{0.5f, 0.5f, 0.5f}));
    EXPECT_EQ(*placeholder.image->colorProfile(), *ColorProfileType::sRGB());
    EXPECT_EQ(placeholder.mask->size(), _Size<int>(30, 20));
    EXPECT_EQ(placeholder.mask->row(19)[29], 1.0f);
    EXPECT_EQ(placeholder.context, (PreviewContext{{30, 20}, {}}));
    EXPECT_FALSE(placeholder.colorProfile);
    EXPECT_TRUE(placeholder.isPlaceholder);
}

TEST(RenderedDataDefaults, AreEmptyInTheWorkingSpace)
{
    const RenderedData data;
    EXPECT_FALSE(data.image || data.mask || data.option0 || data.option1);
    EXPECT_EQ(data.context, PreviewContext());
    EXPECT_EQ(*data.colorProfile, *ColorProfileType::melissaRGB());
    EXPECT_FALSE(data.option2 || data.isPlaceholder);
    EXPECT_EQ(data.option3, "");
}

TEST(FitCropToCanvas, PutsFactorsIntoTheRectangle)
{
    CropDescription crop = cropOf({10, 10, 40, 30}, 0.2f);
    crop.scaleX = 2.0f;
    crop.scaleY = 0.5f;
    const CropDescription fitted = fitCropToCanvas(crop, {200, 100});
    EXPECT_EQ(fitted.rect, _Rect<int>(20, 5, 80, 15));
    EXPECT_EQ(fitted.scaleX, 1.0f);
    EXPECT_EQ(fitted.scaleY, 1.0f);
    EXPECT_EQ(fitted.angle, 0.2f);
}

TEST(FitCropToCanvas, MovesWhatStartsOutsideWithoutChangingItsWidth)
{
    EXPECT_EQ(fitCropToCanvas(cropOf({-25, -5, 40, 30}), {200, 100}).rect, _Rect<int>(0, 0, 40, 30));
    EXPECT_EQ(fitCropToCanvas(cropOf({-25, 0, 400, 30}), {200, 100}).rect, _Rect<int>(0, 0, 200, 30));
    EXPECT_EQ(fitCropToCanvas(cropOf({180, 90, 40, 30}), {200, 100}).rect, _Rect<int>(180, 90, 20, 10));
    EXPECT_EQ(fitCropToCanvas(cropOf({500, 500, 40, 30}), {200, 100}).rect, _Rect<int>(199, 99, 1, 1));
}

TEST(FitCropToCanvas, LeavesOnePixelOfAnEmptyRectangle)
{
    EXPECT_EQ(fitCropToCanvas(cropOf({5, 5, -10, -10}), {200, 100}).rect, _Rect<int>(5, 5, 1, 1));
}

TEST(ProcessCropInfo, NoCropStaysNoCrop)
{
    EXPECT_EQ(processCropInfo({}, {}, {200, 100}), CropDescription());
    EXPECT_EQ(processCropInfo({}, {20, 10}, {200, 100}), CropDescription());
}

TEST(ProcessCropInfo, ScalesFromTheContextToTheTarget)
{
    EXPECT_EQ(processCropInfo(cropOf({10, 10, 40, 30}), {100, 100}, {200, 50}).rect, _Rect<int>(20, 5, 80, 15));
    EXPECT_EQ(processCropInfo(cropOf({10, 10, 40, 30}), {200, 50}, {200, 50}).rect, _Rect<int>(10, 10, 40, 30));
    CropDescription factored = cropOf({10, 10, 40, 30});
    factored.scaleX = 0.5f;
    EXPECT_EQ(processCropInfo(factored, {200, 50}, {200, 50}).rect, _Rect<int>(5, 10, 20, 30)) << "its own factors";
    EXPECT_EQ(processCropInfo(factored, {100, 100}, {200, 50}).rect, _Rect<int>(20, 5, 80, 15)) << "replaced";
}

TEST(BoundsOfCrop, AreThoseOfTheTurnedRectangleWithinTheCanvas)
{
    EXPECT_EQ(boundsOfCrop(cropOf({40, 40, 20, 10}), {200, 100}), cv::Rect(40, 40, 20, 10));
    // Half of 20 cos + 10 sin, and of 20 sin + 10 cos, about (50, 45): 38.97 to 61.03, 37.27 to 52.73.
    EXPECT_EQ(boundsOfCrop(cropOf({40, 40, 20, 10}, 0.3f), {200, 100}), cv::Rect(38, 37, 25, 17));
    EXPECT_EQ(boundsOfCrop(cropOf({40, 40, 20, 10}, 0.3f), {60, 50}), cv::Rect(38, 37, 22, 13));
    EXPECT_EQ(boundsOfCrop(cropOf({-5, 40, 20, 10}, -0.3f), {60, 50}), cv::Rect(0, 37, 18, 13));
    EXPECT_TRUE(boundsOfCrop(cropOf({300, 40, 20, 10}, 0.3f), {200, 100}).empty());
}

TEST(ProcessCropInfo, ACropWithoutAContextIsReportedAndFittedAsItStands)
{
    testing::internal::CaptureStderr();
    const CropDescription crop = processCropInfo(cropOf({10, 10, 400, 30}), {}, {200, 100});
    const std::string said = testing::internal::GetCapturedStderr();
    EXPECT_EQ(crop.rect, _Rect<int>(10, 10, 190, 30));
    EXPECT_THAT(said, testing::HasSubstr("processCropInfo"));
    EXPECT_THAT(said, testing::EndsWith("\nPanoramaPreviewComposer::processCropInfo: if cropDescription is present, "
                                        "context.size must be specified\n"));
}

TEST(ApplyCrop, ReturnsTheDefaultWithoutAPicture)
{
    const RenderedData data = applyCrop(nullptr, nullptr, cropOf({0, 0, 3, 3}));
    EXPECT_FALSE(data.image);
    EXPECT_FALSE(data.isPlaceholder);
}

TEST(ApplyCrop, WithoutACropItKeepsThePicture)
{
    const auto picture = textured(40, 30);
    const auto mask = std::make_shared<MaskImage>(_Size<int>(40, 30), 0.5f);
    const RenderedData data = applyCrop(picture, mask, {});
    EXPECT_EQ(data.image, picture);
    EXPECT_EQ(data.mask, mask);
    EXPECT_EQ(data.context, (PreviewContext{{40, 30}, {0, 0, 40, 30}}));
    EXPECT_EQ(*data.colorProfile, *ColorProfileType::melissaRGB());
}

TEST(ApplyCrop, ReportsTheWorkingSpaceThoughThePixelsAreInTheirOwn)
{
    const auto picture =
        std::make_shared<_ImageData<PixelRGB<float>>>(_Size<int>(9, 9), PixelRGB<float>{}, ColorProfileType::sRGB());
    for (const float angle : {0.0f, 0.2f}) {
        const RenderedData data = applyCrop(picture, nullptr, cropOf({1, 1, 5, 5}, angle));
        EXPECT_EQ(*data.colorProfile, *ColorProfileType::melissaRGB());
        EXPECT_EQ(*data.image->colorProfile(), *ColorProfileType::sRGB());
    }
}

TEST(ApplyCrop, WithoutAnAngleItIsABitExactCopy)
{
    const auto picture = textured(40, 30);
    auto mask = std::make_shared<MaskImage>(_Size<int>(40, 30), 1.0f);
    mask->fillRect(0.25f, {10, 10, 3, 3});
    const RenderedData data = applyCrop(picture, mask, cropOf({7, 5, 21, 13}));
    EXPECT_TRUE(sameBytes(*data.image, *picture->copy({7, 5, 21, 13})));
    EXPECT_EQ(data.mask->row(5)[3], 0.25f);
    EXPECT_EQ(data.context, (PreviewContext{{21, 13}, {7, 5, 21, 13}}));
}

TEST(ApplyCrop, ARectangleOfZeroIsThePicture)
{
    const auto picture = textured(40, 40);
    const RenderedData data = applyCrop(picture, nullptr, cropOf({}, 1.5707964f));
    ASSERT_EQ(data.image->size(), _Size<int>(40, 40));
    EXPECT_EQ(data.image->row(0)[0], picture->row(0)[39]);
    EXPECT_EQ(data.context.roi, _Rect<int>(0, 0, 40, 40));
}

TEST(ApplyCrop, ATurnedCropShowsTheSameColoursAtTheSamePlaces)
{
    const auto picture = textured(160, 120);
    const auto mask = std::make_shared<MaskImage>(_Size<int>(160, 120), 1.0f);
    const CropDescription crop = cropOf({50, 40, 60, 40}, 0.3f);
    const AffineTransform place = crop.getAffineTransformForCanvas({60, 40});
    for (const bool isMasked : {false, true}) {
        const RenderedData data = applyCrop(picture, isMasked ? mask : nullptr, crop);
        ASSERT_EQ(data.image->size(), _Size<int>(60, 40));
        for (int y = 0; y < 40; ++y)
            for (int x = 0; x < 60; ++x) {
                const auto there = place.map(x + 0.5, y + 0.5);
                EXPECT_NEAR(data.image->row(y)[x].r, texture(there.x - 0.5, there.y - 0.5).r, 0.004f);
            }
        EXPECT_EQ(!!data.mask, isMasked);
        if (isMasked) {
            EXPECT_EQ(data.mask->row(20)[30], 1.0f);
        }
    }
}

TEST(ApplyCrop, TheMaskIsLimited)
{
    const auto picture = textured(60, 60);
    auto mask = std::make_shared<MaskImage>(_Size<int>(60, 60), 0.0f);
    mask->fillRect(1.0f, {0, 0, 30, 60});
    const RenderedData data = applyCrop(picture, mask, cropOf({10, 10, 40, 40}, 0.4f));
    for (std::size_t i = 0; i < data.mask->pixelCount(); ++i) {
        ASSERT_GE(data.mask->data()[i], 0.0f);
        ASSERT_LE(data.mask->data()[i], 1.0f);
    }
}

TEST(BlendAlpha, LaysThePictureOverWhite)
{
    Panorama panorama{std::make_shared<_ImageData<PixelRGB<float>>>(
                          _Size<int>(3, 1), PixelRGB<float>{0.25f, 0.5f, 0.75f}, ColorProfileType::sRGB()),
                      std::make_shared<MaskImage>(_Size<int>(3, 1), 1.0f), cv::Rect()};
    panorama.mask->row(0)[0] = 0.0f;
    panorama.mask->row(0)[1] = 0.5f;
    blendAlpha(panorama);
    EXPECT_EQ(panorama.image->row(0)[0], (PixelRGB<float>{1.0f, 1.0f, 1.0f}));
    EXPECT_EQ(panorama.image->row(0)[1], (PixelRGB<float>{0.625f, 0.75f, 0.875f}));
    EXPECT_EQ(panorama.image->row(0)[2], (PixelRGB<float>{0.25f, 0.5f, 0.75f}));
}

TEST(BlendAlpha, DoesNothingWithoutAMask)
{
    Panorama panorama{std::make_shared<_ImageData<PixelRGB<float>>>(
                          _Size<int>(1, 1), PixelRGB<float>{0.25f, 0.5f, 0.75f}, ColorProfileType::sRGB()),
                      nullptr, cv::Rect()};
    blendAlpha(panorama);
    EXPECT_EQ(panorama.image->row(0)[0], (PixelRGB<float>{0.25f, 0.5f, 0.75f}));
    blendAlpha({});
}
