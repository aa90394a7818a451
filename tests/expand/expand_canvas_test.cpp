#include "GenProcessorBase/rectangles.hpp"
#include "expand/expand_canvas.hpp"
#include "expand/generative_expand_impl.hpp"
#include "support/pictures.hpp"

#include <gtest/gtest.h>

#include <limits>

namespace orvo::test {
namespace {

constexpr PixelRGB<float> kGray = {0.5f, 0.5f, 0.5f};

/// The picture inside of the crop; gray and mask 1 elsewhere.
void expectCanvas(const ExpandCanvas& canvas, const Picture& picture, const _Rect<int>& crop)
{
    ASSERT_EQ(canvas.picture->size(), crop.size());
    ASSERT_EQ(canvas.mask->size(), crop.size());
    for (int y = 0; y < crop.height; ++y)
        for (int x = 0; x < crop.width; ++x) {
            const int px = x + crop.x, py = y + crop.y;
            const bool known = px >= 0 && py >= 0 && px < picture.width() && py < picture.height();
            ASSERT_EQ(canvas.picture->row(y)[x], known ? picture.row(py)[px] : kGray) << x << ' ' << y;
            ASSERT_EQ(canvas.mask->row(y)[x], known ? 0.0f : 1.0f) << x << ' ' << y;
        }
}

TEST(ExpandCanvas, HoldsThePictureWhereTheCropShowsIt)
{
    const auto picture = textured(40, 30);
    for (const _Rect<int> crop : {_Rect<int>(-5, -7, 60, 50),
                                  {0, 0, 40, 30},
                                  {-9, 0, 49, 30},
                                  {5, 4, 20, 10},
                                  {10, -20, 60, 31},
                                  {40, 0, 10, 10},
                                  {-10, -10, 10, 10},
                                  {200, 300, 7, 9}})
        expectCanvas(makeExpandCanvas(picture, crop), *picture, crop);
}

TEST(ExpandCanvas, HasTheProfileOfThePicture)
{
    const auto picture = textured(8, 8);
    picture->setColorProfile(ColorProfileType::sRGB());
    EXPECT_FALSE(*makeExpandCanvas(picture, {-1, 0, 9, 8}).picture->colorProfile() != *ColorProfileType::sRGB());
}

TEST(ExpandCanvas, ScalesBothAndKeepsTheMaskHard)
{
    const auto picture = textured(61, 43);
    const ExpandCanvas canvas = makeExpandCanvas(picture, {-20, -3, 101, 50});
    const ExpandCanvas scaled = scaledTo(canvas, {37, 19});
    EXPECT_EQ(scaled.picture->size(), _Size<int>(37, 19));
    ASSERT_EQ(scaled.mask->size(), _Size<int>(37, 19));
    int ones = 0, zeros = 0;
    for (std::size_t i = 0; i < scaled.mask->pixelCount(); ++i) {
        ones += scaled.mask->data()[i] == 1.0f;
        zeros += scaled.mask->data()[i] == 0.0f;
    }
    EXPECT_EQ(ones + zeros, 37 * 19);
    EXPECT_GT(ones, 37 * 19 / 4);
    EXPECT_GT(zeros, 37 * 19 / 4);
    EXPECT_NEAR(scaled.picture->row(10)[20].g, picture->row(23)[35].g, 0.1f);
}

TEST(Binarize, AboveNothingIsOne)
{
    _ImageData<float> mask({5, 1}, ColorProfileType::None());
    const float values[] = {-1.0f, 0.0f, 1e-30f, 7.0f, std::numeric_limits<float>::quiet_NaN()};
    std::copy(values, values + 5, mask.data());
    binarize(mask);
    const float expected[] = {0.0f, 0.0f, 1.0f, 1.0f, 0.0f};
    for (int i = 0; i < 5; ++i)
        EXPECT_EQ(mask.data()[i], expected[i]) << i;
}

TEST(CopyRect, WritesItsRowsAndNothingElse)
{
    auto target = plain(10, 8, 0.25f);
    const auto before = target->copy({});
    copyRect(target, textured(3, 0), {2, 2, 3, 0});
    EXPECT_TRUE(sameBytes(*target, *before));
    const auto piece = textured(4, 3);
    copyRect(target, piece, {6, 5, 4, 3});
    for (int y = 0; y < 8; ++y)
        for (int x = 0; x < 10; ++x)
            EXPECT_EQ(target->row(y)[x], x >= 6 && y >= 5 ? piece->row(y - 5)[x - 6] : before->row(y)[x]);
}

TEST(WorkingImageExpand, IsEmptyUntilItIsSet)
{
    WorkingImageExpand working;
    EXPECT_FALSE(working.imageData({{}, {}, true}));
    EXPECT_EQ(working.width(), 0);
    EXPECT_EQ(working.height(), 0);
    EXPECT_EQ(working.rect(), _Rect<int>());
    EXPECT_EQ(working.identifier(), "");
    const auto picture = textured(9, 7);
    working.set(picture);
    EXPECT_EQ(working.rect(), _Rect<int>(0, 0, 9, 7));
    const auto whole = working.imageData({{}, {}, true});
    EXPECT_NE(whole, picture) << "a copy";
    EXPECT_TRUE(sameBytes(*whole, *picture));
    EXPECT_EQ(working.imageData({{3, 2}, {1, 1, 6, 4}, true})->size(), _Size<int>(3, 2));
    const std::string first = working.identifier();
    EXPECT_NE(first, "");
    working.set(picture);
    EXPECT_NE(working.identifier(), first) << "also for the same picture";
}

TEST(Rectangles, IntersectWithoutOverflow)
{
    constexpr int kFar = std::numeric_limits<int>::max();
    EXPECT_EQ(intersected({kFar - 5, 0, 100, 10}, {0, 0, kFar, 10}), _Rect<int>(kFar - 5, 0, 5, 10));
    EXPECT_EQ(intersected({0, 0, 10, 10}, {10, 0, 5, 5}), _Rect<int>());
    EXPECT_EQ(intersected({0, 0, -4, 10}, {-50, -50, 100, 100}), _Rect<int>());
    EXPECT_EQ(inset({10, 20, 40, 50}, 16), _Rect<int>(26, 36, 8, 18));
}

} // namespace
} // namespace orvo::test
