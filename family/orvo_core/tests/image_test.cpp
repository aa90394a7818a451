#include "test_pictures.hpp"

#include <orvo_core/image.hpp>

#include <gtest/gtest.h>

#include <stdexcept>

using namespace orvo;
using test::Picture;

namespace {

constexpr _Size<int> kSize{30, 20};

std::shared_ptr<Picture> pixels(unsigned seed = 1)
{
    return test::noise<PixelRGB<float>>(kSize, seed, 0.0f, 1.0f, ColorProfileType::sRGB());
}

} // namespace

TEST(Image, SharedPixelsAreCopiedBeforeTheyAreHandedOut)
{
    const auto shared = pixels();
    const auto image = CreateOrvoImage(shared);
    const auto data = image->imageData({}, {}, true);
    EXPECT_NE(data.get(), shared.get());
    EXPECT_TRUE(test::bytesEqual(*data, *shared));
    data->row(0)[0] = {9.0f, 9.0f, 9.0f};
    EXPECT_NE(shared->row(0)[0].r, 9.0f);
    EXPECT_NE(image->imageData({}, {}, true)->row(0)[0].r, 9.0f);
}

TEST(Image, OwnPixelsAreHandedOutThemselves)
{
    const auto own = pixels();
    const Image image(ImageSource::owning(own, std::make_shared<ImageMetadata>(), nullptr));
    EXPECT_EQ(image.imageData({}, {}, true), own);
    EXPECT_EQ(image.imageData(kSize, {0, 0, 30, 20}, true), own);
    EXPECT_NE(image.imageData({15, 10}, {}, true), own);
    EXPECT_NE(image.imageData({}, {0, 0, 30, 19}, true), own);
}

TEST(Image, TheUneditedPictureIsNotCopiedAtFullSize)
{
    const auto shared = pixels();
    const auto image = CreateOrvoImage(shared);
    EXPECT_EQ(image->developedOriginalImageData({}), shared);
    EXPECT_EQ(image->developedOriginalImageData({kSize, {0, 0, 30, 20}, true}), shared);
}

TEST(Image, PartsAndSizesAreThoseOfTheResize)
{
    const auto shared = pixels();
    const auto image = CreateOrvoImage(shared);
    const _Rect<int> part{3, 4, 20, 10};
    const auto expected = shared->resize({10, 5}, part, true);
    EXPECT_TRUE(test::bytesEqual(*image->imageData({10, 5}, part, true), *expected));
    EXPECT_TRUE(test::bytesEqual(*image->developedOriginalImageData({{10, 5}, part, true}), *expected));
    EXPECT_EQ(image->imageData({}, part, true)->size(), part.size());
    EXPECT_EQ(image->imageData({10, 5}, {}, true)->colorProfile(), ColorProfileType::sRGB());
}

TEST(Image, CreatedFromPixelsHasTheirSizeAndProfile)
{
    const auto image = CreateOrvoImage(pixels());
    EXPECT_EQ(image->size(), kSize);
    EXPECT_EQ(image->rect(), _Rect<int>(0, 0, 30, 20));
    EXPECT_EQ(image->width(), 30);
    EXPECT_EQ(image->height(), 20);
    ASSERT_TRUE(image->metadata());
    EXPECT_EQ(image->metadata()->size, kSize);
    EXPECT_EQ(image->metadata()->fileProfile, ColorProfileType::sRGB());
    EXPECT_FALSE(image->metadata()->hasExposure());
    EXPECT_FALSE(image->getAdditionalRawMetadata());
}

TEST(Image, CreatedWithMetadataKeepsThem)
{
    auto metadata = std::make_shared<ImageMetadata>();
    metadata->isoSpeed = 200.0f;
    metadata->aperture = 8.0f;
    metadata->shutterSeconds = 0.01f;
    const auto image = CreateOrvoImage(pixels(), metadata);
    EXPECT_EQ(image->metadata(), metadata);
    EXPECT_TRUE(image->metadata()->hasExposure());
}

TEST(Image, HasItsOwnId)
{
    const auto shared = pixels();
    const auto a = CreateOrvoImage(shared);
    const auto b = CreateOrvoImage(shared);
    EXPECT_FALSE(a->getGUID().empty());
    EXPECT_EQ(a->getGUID(), a->getGUID());
    EXPECT_NE(a->getGUID(), b->getGUID());
}

TEST(Image, CarriesWhatTheRawReaderFound)
{
    const auto raw = std::make_shared<AdditionalRawMetadataSync>(0.75f);
    const Image image(std::make_shared<ImageSource>(pixels(), std::make_shared<ImageMetadata>(), raw));
    const auto found = image.getAdditionalRawMetadata();
    ASSERT_EQ(found, raw);
    found->wait();
    EXPECT_EQ(found->getAutoDetectedTone(), 0.75f);
    EXPECT_FALSE(found->isLensCorrectionPrepared());
    found->prepareLensCorrection();
    EXPECT_TRUE(found->isLensCorrectionPrepared());
    EXPECT_TRUE(found->hasPendingChromaticAberration());
    found->dismissChromaticAberration();
    EXPECT_FALSE(found->hasPendingChromaticAberration());
}

TEST(Image, EmptySourcesAreRefused)
{
    EXPECT_THROW(Image(nullptr), std::invalid_argument);
    EXPECT_THROW(Image(std::make_shared<ImageSource>(nullptr, nullptr, nullptr)), std::invalid_argument);
    EXPECT_THROW((void)CreateOrvoImage(nullptr), std::invalid_argument);
    EXPECT_THROW((void)CreateOrvoImage(nullptr, std::make_shared<ImageMetadata>()), std::invalid_argument);
}
