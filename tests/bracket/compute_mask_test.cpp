#include "bracket/compute_mask.hpp"
#include "support/pictures.hpp"

#include <orvo_core/parallel.hpp>
#include <orvo_image_processing/fast_blur.hpp>
#include <orvo_image_processing/local_laplacian.hpp>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <numeric>

using namespace orvo;
using namespace orvo::test;

namespace {

// The half-size plane has 15 bits, and the filter rounds once more.
constexpr float kTwoSteps = 2.0f / 32767.0f;

// The definition, cell by cell in double.
std::vector<double> slowDownsample(const Picture& picture, int targetWidth, int targetHeight)
{
    std::vector<double> result;
    const double rx = static_cast<double>(picture.width()) / targetWidth;
    const double ry = static_cast<double>(picture.height()) / targetHeight;
    for (int y = 0; y < targetHeight; ++y) {
        for (int x = 0; x < targetWidth; ++x) {
            double sum = 0;
            double area = 0;
            for (int sy = 0; sy < picture.height(); ++sy) {
                for (int sx = 0; sx < picture.width(); ++sx) {
                    const double w = std::max(0.0, std::min((x + 1) * rx, sx + 1.0) - std::max(x * rx, sx + 0.0));
                    const double h = std::max(0.0, std::min((y + 1) * ry, sy + 1.0) - std::max(y * ry, sy + 0.0));
                    const auto& p = picture.row(sy)[sx];
                    const double luminance = 0.299 * static_cast<double>(p.r) + 0.587 * static_cast<double>(p.g) +
                                             0.114 * static_cast<double>(p.b);
                    sum += w * h * luminance;
                    area += w * h;
                }
            }
            result.push_back(std::clamp(sum / area, 0.0, 1.0) * 32767);
        }
    }
    return result;
}

} // namespace

TEST(DownsampleArea, IsTheMeanOfTheCoveredArea)
{
    for (const _Size<int> size : {_Size<int>(16, 12), _Size<int>(17, 13), _Size<int>(5, 3), _Size<int>(1, 7)}) {
        const auto picture = textured(size.width, size.height);
        const int w = std::max(1, size.width / 2);
        const int h = std::max(1, size.height / 2);
        std::vector<std::int16_t> half(static_cast<std::size_t>(w * h));
        downsample_area(picture->data(), size.width, size.height, half.data(), w, h);
        const auto expected = slowDownsample(*picture, w, h);
        for (std::size_t i = 0; i < half.size(); ++i)
            EXPECT_NEAR(half[i], expected[i], 1.0) << size.width << "x" << size.height << " cell " << i;
    }
}

TEST(DownsampleArea, TheLastColumnAndRowCountInFull)
{
    // At these sizes the computed ends of the last cell are slightly outside the picture.
    const auto picture = drawn(55, 55, [](int x, int y) {
        const float v = x == 54 || y == 54 ? 1.0f : 0.0f;
        return PixelRGB<float>{v, v, v};
    });
    std::vector<std::int16_t> half(27 * 27);
    downsample_area(picture->data(), 55, 55, half.data(), 27, 27);
    const auto expected = slowDownsample(*picture, 27, 27);
    for (std::size_t i = 0; i < half.size(); ++i)
        EXPECT_NEAR(half[i], expected[i], 2.0) << "cell " << i;
}

TEST(DownsampleArea, LimitsAndTruncates)
{
    std::int16_t cell = -1;
    downsample_area(plain(2, 2, 3.0f)->data(), 2, 2, &cell, 1, 1);
    EXPECT_EQ(cell, 32767);
    downsample_area(plain(2, 2, -1.0f)->data(), 2, 2, &cell, 1, 1);
    EXPECT_EQ(cell, 0);
    downsample_area(plain(2, 2, std::numeric_limits<float>::quiet_NaN())->data(), 2, 2, &cell, 1, 1);
    EXPECT_EQ(cell, 0);
    downsample_area(plain(2, 2, 0.99999f)->data(), 2, 2, &cell, 1, 1);
    EXPECT_EQ(cell, 32766) << "truncated, not rounded";
}

TEST(UpsampleNear, TakesColumnAndRowByIntegerDivision)
{
    const std::vector<float> source = {1, 2, 3, 4};
    std::vector<float> target(25);
    upsample_near(source.data(), 2, 2, target.data(), 5, 5, 0, 5);
    const std::vector<float> row0 = {1, 1, 1, 2, 2};
    EXPECT_TRUE(std::equal(row0.begin(), row0.end(), target.begin()));
    EXPECT_EQ(target[2 * 5], 1) << "row 2 of 5 is row 0 of 2";
    EXPECT_EQ(target[3 * 5], 3);
}

TEST(ComputeMask, AConstantPictureIsItsOwnLuminance)
{
    for (const float weight : {0.0f, 0.6f})
        for (const float m : computeMask(plain(40, 30, 0.25f)->data(), 40, 30, weight))
            ASSERT_NEAR(m, 0.25f, 2 * kTwoSteps) << weight;
}

TEST(ComputeMask, IsHighWhereTheFrameIsBright)
{
    const auto picture = drawn(200, 100, [](int x, int) {
        return x < 100 ? PixelRGB<float>{0.1f, 0.1f, 0.1f} : PixelRGB<float>{0.9f, 0.9f, 0.9f};
    });
    const auto mask = computeMask(picture->data(), 200, 100, 0.0f);
    EXPECT_NEAR(mask[50 * 200 + 40], 0.1f, 0.02f);
    EXPECT_NEAR(mask[50 * 200 + 160], 0.9f, 0.02f);
}

TEST(ComputeMask, AGreaterWeightFlattensLargeEdges)
{
    const auto picture = drawn(200, 100, [](int x, int) {
        return x < 100 ? PixelRGB<float>{0.05f, 0.05f, 0.05f} : PixelRGB<float>{0.95f, 0.95f, 0.95f};
    });
    const auto contrast = [&](float weight) {
        const auto mask = computeMask(picture->data(), 200, 100, weight);
        return mask[50 * 200 + 110] - mask[50 * 200 + 90];
    };
    EXPECT_LT(contrast(0.75f), contrast(0.4f));
    EXPECT_LT(contrast(0.4f), contrast(0.0f));
    EXPECT_GT(contrast(0.75f), 0.0f);
}

TEST(ComputeMask, SmoothsDetailMoreThanEdges)
{
    const auto picture = drawn(256, 128, [](int x, int y) {
        const float detail = ((x / 4 + y / 4) % 2 == 0) ? 0.05f : -0.05f;
        const float v = (x < 128 ? 0.15f : 0.85f) + detail;
        return PixelRGB<float>{v, v, v};
    });
    const auto mask = computeMask(picture->data(), 256, 128, 0.0f);
    float low = 1;
    float high = 0;
    for (int x = 40; x < 90; ++x) {
        low = std::min(low, mask[static_cast<std::size_t>(64 * 256 + x)]);
        high = std::max(high, mask[static_cast<std::size_t>(64 * 256 + x)]);
    }
    EXPECT_LT(high - low, 0.05f) << "detail of 0.1 is at most half as strong";
    EXPECT_GT(mask[64 * 256 + 200] - mask[64 * 256 + 60], 0.6f);
}

TEST(ComputeMask, IsItsStepsInOrder)
{
    for (const _Size<int> size : {_Size<int>(200, 120), _Size<int>(131, 77), _Size<int>(62, 300)})
        for (const float weight : {0.0f, 0.4f, 0.75f}) {
            // Large edges and texture, so that every argument of the filter has an effect.
            const auto picture = drawn(size.width, size.height, [](int x, int y) {
                const auto p = texture(x, y);
                const float light = (x / 40 + y / 30) % 2 == 0 ? 0.15f : 1.6f;
                return PixelRGB<float>{p.r * light, p.g * light, p.b * light};
            });
            const int w = size.width / 2;
            const int h = size.height / 2;
            std::vector<std::int16_t> gray(static_cast<std::size_t>(w * h));
            downsample_area(picture->data(), size.width, size.height, gray.data(), w, h);
            grfx::local_laplacian_gray16(gray.data(), w, h, w, -2.0f, 0.0f, 9, 0.5f, 1.0f - weight);
            std::vector<float> half;
            for (const std::int16_t v : gray)
                half.push_back(static_cast<float>(v) * 3.0518509e-05f);
            std::vector<float> expected(picture->pixelCount());
            std::vector<float> between(picture->pixelCount());
            upsample_near(half.data(), w, h, expected.data(), size.width, size.height, 0, size.height);
            grfx_fast_blur_gray(between.data(), expected.data(), size.width, size.height, 1);
            grfx_fast_blur_gray(expected.data(), between.data(), size.width, size.height, 1);
            const auto mask = computeMask(picture->data(), size.width, size.height, weight);
            EXPECT_TRUE(std::equal(mask.begin(), mask.end(), expected.begin(), expected.end()))
                << size.width << " at " << weight;
        }
}

TEST(ComputeMask, AwkwardSizesAndValues)
{
    for (const _Size<int> size :
         {_Size<int>(1, 1), _Size<int>(1, 7), _Size<int>(7, 1), _Size<int>(2, 2), _Size<int>(641, 3)}) {
        auto picture = textured(size.width, size.height);
        picture->data()[0] = {std::numeric_limits<float>::quiet_NaN(), std::numeric_limits<float>::infinity(), -1.0f};
        const auto mask = computeMask(picture->data(), size.width, size.height, 0.3f);
        ASSERT_EQ(mask.size(), picture->pixelCount());
        for (const float m : mask)
            ASSERT_TRUE(std::isfinite(m)) << size.width << "x" << size.height;
    }
    EXPECT_TRUE(computeMask(nullptr, 0, 0, 0.3f).empty());
}

// More rows than a band holds; odd sides, so that cells straddle the bands.
TEST(ComputeMask, OfPixelsMadeAsTheyAreNeededIsThatOfAShiftedCopy)
{
    for (const _Size<int> size : {_Size<int>(90, 700), _Size<int>(91, 701), _Size<int>(33, 129)})
        for (const float a : {0.9f, 1.0f, 1.2f}) {
            const ExposureCurve curve(a, 0.9f, 0.5f);
            const auto picture = textured(size.width, size.height);
            const auto shifted = picture->copy({});
            curve.applyInPlace(&shifted->data()->r, shifted->pixelCount() * 3);
            const RungPixels pixels(picture->data(), size.width, size.height, {curve, HighlightHue::PerChannel});
            EXPECT_TRUE(computeMask(pixels, 0.4f) == computeMask(shifted->data(), size.width, size.height, 0.4f))
                << size.width << "x" << size.height << " by " << a;
        }
}

TEST(RungPixels, GivesAnyRowsAsTheCurveShowsThem)
{
    const ExposureCurve curve(1.1f, 0.9f, 0.5f);
    const auto picture = textured(37, 50);
    const auto untouched = picture->copy({});
    const RungPixels pixels(picture->data(), 37, 50, {curve, HighlightHue::PerChannel});
    std::vector<PixelRGB<float>> scratch(picture->pixelCount());
    for (const auto& [first, end] : {std::pair{10, 12}, {0, 50}, {49, 50}, {3, 20}}) {
        const PixelRGB<float>* const rows = pixels.rows(first, end, scratch.data());
        const PixelRGB<float>* const source = untouched->row(first);
        for (int i = 0; i < (end - first) * 37; ++i) {
            ASSERT_EQ(rows[i].r, curve(source[i].r)) << first;
            ASSERT_EQ(rows[i].g, curve(source[i].g)) << first;
            ASSERT_EQ(rows[i].b, curve(source[i].b)) << first;
        }
    }
    EXPECT_EQ(std::memcmp(picture->data(), untouched->data(), picture->pixelCount() * sizeof(PixelRGB<float>)), 0);
}

TEST(ComputeMask, DoesNotDependOnThreadsAndGivesItsMemoryBack)
{
    const auto picture = textured(333, 222);
    const std::size_t before = MemoryManager::instance().liveBytes();
    {
        const auto many = computeMask(picture->data(), 333, 222, 0.5f);
        const WorkerLimit limit(1);
        EXPECT_TRUE(many == computeMask(picture->data(), 333, 222, 0.5f));
    }
    EXPECT_EQ(MemoryManager::instance().liveBytes(), before);
}
