#include "test_pictures.hpp"

#include <orvo_common/memory_manager.hpp>

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <limits>
#include <stdexcept>

using namespace orvo;
using test::Picture;
using test::PictureRGBA;

namespace {

std::size_t live() { return MemoryManager::instance().liveBytes(); }

template <typename T>
class ImageDataOf : public testing::Test
{};

using Samples = testing::Types<PixelRGB<float>, PixelRGBA<float>, float>;
TYPED_TEST_SUITE(ImageDataOf, Samples);

} // namespace

TYPED_TEST(ImageDataOf, PlanesComeFromTheManagerAndAreReturned)
{
    const std::size_t before = live();
    for (const auto size : test::kAwkwardSizes) {
        const _ImageData<TypeParam> picture(size, TypeParam{}, nullptr);
        EXPECT_EQ(picture.size(), size);
        EXPECT_EQ(picture.pixelCount(), static_cast<std::size_t>(size.width * size.height));
        EXPECT_GE(live(), before + picture.pixelCount() * sizeof(TypeParam));
        EXPECT_EQ(reinterpret_cast<std::uintptr_t>(picture.data()) % MemoryManager::kAlignment, 0u);
    }
    EXPECT_EQ(live(), before);
}

TYPED_TEST(ImageDataOf, CopyOfTheZeroRectangleIsDeepAndWhole)
{
    for (const auto size : test::kAwkwardSizes) {
        const auto source = test::noise<TypeParam>(size, 1, 0.0f, 1.0f, ColorProfileType::sRGB());
        const auto untouched = source->copy({0, 0, size.width, size.height});
        const auto copied = source->copy({});
        EXPECT_TRUE(test::bytesEqual(*source, *copied));
        EXPECT_EQ(copied->colorProfile(), source->colorProfile());
        for (std::size_t i = 0; i < copied->pixelCount(); ++i)
            copied->data()[i] = TypeParam{};
        EXPECT_TRUE(test::bytesEqual(*source, *untouched));
    }
}

TYPED_TEST(ImageDataOf, CopyOfAPartLeavesOutWhatIsOutside)
{
    const auto source = test::noise<TypeParam>({641, 3}, 2);
    const auto part = source->copy({-2, 1, 10, 100});
    ASSERT_EQ(part->size(), _Size<int>(8, 2));
    for (int y = 0; y < 2; ++y)
        for (int x = 0; x < 8; ++x)
            EXPECT_EQ(part->row(y)[x], source->row(y + 1)[x]);
    EXPECT_EQ(source->copy({700, 0, 5, 5})->pixelCount(), 0u);
    constexpr int kFar = std::numeric_limits<int>::max();
    EXPECT_EQ(source->copy({640, 2, kFar, kFar})->size(), _Size<int>(1, 1));
}

TYPED_TEST(ImageDataOf, NegativeSizesAreRefused)
{
    const std::size_t before = live();
    using Data = _ImageData<TypeParam>;
    EXPECT_THROW(Data({-1, 5}, nullptr), std::invalid_argument);
    EXPECT_THROW(Data({5, -1}, TypeParam{}, nullptr), std::invalid_argument);
    EXPECT_EQ(live(), before);
}

TEST(ImageData, FillReachesEverySample)
{
    const PixelRGBA<float> fill{0.1f, 0.2f, 0.3f, 0.4f};
    const PictureRGBA picture({641, 3}, fill, nullptr);
    for (std::size_t i = 0; i < picture.pixelCount(); ++i)
        ASSERT_EQ(picture.data()[i], fill) << i;
}

TEST(ImageData, RowsFollowEachOtherWithoutGaps)
{
    Picture picture({7, 5}, nullptr);
    EXPECT_EQ(reinterpret_cast<char*>(picture.row(4)) - reinterpret_cast<char*>(picture.data()), 4 * 7 * 12);
}

TEST(ImageData, AnImpossibleSizeIsBadAlloc)
{
    constexpr int kMost = std::numeric_limits<int>::max();
    EXPECT_THROW(PictureRGBA({kMost, kMost}, nullptr), std::bad_alloc);
}

TEST(Mask, FillRectIsClipped)
{
    MaskImage mask({10, 6}, 0.25f);
    mask.fillRect(1.0f, {7, -3, 100, 5});
    mask.fillRect(0.5f, {20, 20, 4, 4});
    mask.fillRect(0.5f, {});
    for (int y = 0; y < 6; ++y)
        for (int x = 0; x < 10; ++x)
            EXPECT_EQ(mask.row(y)[x], x >= 7 && y < 2 ? 1.0f : 0.25f) << x << ", " << y;
}

TEST(Mask, FillRectTakesOneOfItsOwnSamples)
{
    MaskImage mask({4, 4}, 0.25f);
    mask.row(0)[0] = 0.75f;
    mask.fillRect(mask.row(0)[0], {0, 0, 4, 4});
    EXPECT_EQ(mask.row(3)[3], 0.75f);
}

TEST(Mask, ClampLimitsAndReplacesNotANumber)
{
    constexpr float kInfinity = std::numeric_limits<float>::infinity();
    MaskImage mask({6, 1});
    const float values[] = {-1.0f, 0.5f, 2.0f, kInfinity, -kInfinity, std::numeric_limits<float>::quiet_NaN()};
    const float limited[] = {0.0f, 0.5f, 1.0f, 1.0f, 0.0f, 0.0f};
    std::copy(std::begin(values), std::end(values), mask.data());
    mask.clamp();
    for (int x = 0; x < 6; ++x)
        EXPECT_EQ(mask.data()[x], limited[x]) << x;
}

TEST(Mask, HasNoProfile) { EXPECT_EQ(MaskImage({1, 1}).colorProfile(), ColorProfileType::None()); }
