#include "test_pictures.hpp"

#include <orvo_common/memory_manager.hpp>
#include <orvo_core/parallel.hpp>

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <stdexcept>

using namespace orvo;
using test::Picture;

namespace {

constexpr float kRounding = 2e-6f; // of a weighted sum of values up to 1
constexpr double kMeanKept = 1e-4;

// Red increases to the right and green downwards, both equal to the position of the sample's centre; blue is constant.
std::shared_ptr<Picture> ramp(_Size<int> size)
{
    auto result = std::make_shared<Picture>(size, nullptr);
    for (int y = 0; y < size.height; ++y)
        for (int x = 0; x < size.width; ++x)
            result->row(y)[x] = {(static_cast<float>(x) + 0.5f) / 64.0f, (static_cast<float>(y) + 0.5f) / 64.0f, 0.7f};
    return result;
}

// An average over a part of a sample uses that sample's value, not the ramp inside of it, which is an error of p(1-p)/2
// of a sample's rise at each end, relative to the whole step. Half a pixel would be 1/128.
double rampTolerance(double step)
{
    constexpr double kOfSums = 1e-5;
    return step <= 1.0 || step == std::floor(step) ? kOfSums : 0.25 / step / 64.0 + kOfSums;
}

const std::vector<_Size<int>> kTargets = {{1, 1}, {1, 64}, {64, 1}, {13, 90}, {90, 13}, {63, 65}, {200, 150}, {32, 16}};

} // namespace

TEST(Resize, ConstantStaysConstant)
{
    const PixelRGB<float> value{0.2f, 1.0f, 0.7f};
    for (const auto from :
         {_Size<int>(64, 64), _Size<int>(1, 7), _Size<int>(641, 3), _Size<int>(3, 641), _Size<int>(1, 1)})
        for (const auto to : kTargets) {
            const auto result = Picture(from, value, nullptr).resize(to, {}, true);
            ASSERT_EQ(result->size(), to);
            for (std::size_t i = 0; i < result->pixelCount(); ++i) {
                ASSERT_NEAR(result->data()[i].r, value.r, kRounding);
                ASSERT_NEAR(result->data()[i].g, value.g, kRounding);
                ASSERT_NEAR(result->data()[i].b, value.b, kRounding);
            }
        }
}

TEST(Resize, ShrinkingKeepsTheMean)
{
    const auto source = test::noise<PixelRGB<float>>({640, 333}, 4);
    const auto before = test::means(*source);
    for (const auto to : {_Size<int>(1, 1), _Size<int>(320, 111), _Size<int>(77, 332), _Size<int>(639, 5)}) {
        const auto after = test::means(*source->resize(to, {}, true));
        for (std::size_t c = 0; c < 3; ++c)
            EXPECT_NEAR(after[c], before[c], kMeanKept) << to.width << "x" << to.height;
    }
}

TEST(Resize, GrowingKeepsTheMean)
{
    const auto source = test::noise<PixelRGB<float>>({200, 150}, 5);
    const auto before = test::means(*source);
    for (const auto to : {_Size<int>(400, 300), _Size<int>(777, 333), _Size<int>(1000, 1000)}) {
        const auto after = test::means(*source->resize(to, {}, true));
        for (std::size_t c = 0; c < 3; ++c)
            EXPECT_NEAR(after[c], before[c], kMeanKept) << to.width << "x" << to.height;
    }
}

TEST(Resize, NothingShiftsByHalfAPixel)
{
    const auto source = ramp({64, 64});
    for (const auto to : kTargets) {
        const auto result = source->resize(to, {}, true);
        const double stepX = 64.0 / to.width;
        const double stepY = 64.0 / to.height;
        const double nearX = rampTolerance(stepX);
        const double nearY = rampTolerance(stepY);
        for (int y = 0; y < to.height; ++y)
            for (int x = 0; x < to.width; ++x) {
                const double centreX = (x + 0.5) * stepX;
                const double centreY = (y + 0.5) * stepY;
                // Within two samples of the edge the cubic sees the repeated edge.
                if (centreX > 2.0 && centreX < 62.0) {
                    ASSERT_NEAR(result->row(y)[x].r, centreX / 64.0, nearX) << to.width << " " << x;
                }
                if (centreY > 2.0 && centreY < 62.0) {
                    ASSERT_NEAR(result->row(y)[x].g, centreY / 64.0, nearY) << to.height << " " << y;
                }
            }
    }
}

TEST(Resize, HalvingIsTheMeanOfFour)
{
    const auto source = test::noise<PixelRGBA<float>>({40, 30}, 6);
    const auto half = source->resize({20, 15}, {}, true);
    for (int y = 0; y < 15; ++y)
        for (int x = 0; x < 20; ++x) {
            const auto* const a = source->row(2 * y) + 2 * x;
            const auto* const b = source->row(2 * y + 1) + 2 * x;
            ASSERT_NEAR(half->row(y)[x].a, (a[0].a + a[1].a + b[0].a + b[1].a) / 4.0f, kRounding);
            ASSERT_NEAR(half->row(y)[x].g, (a[0].g + a[1].g + b[0].g + b[1].g) / 4.0f, kRounding);
        }
}

TEST(Resize, DoublingAStepGivesTheCubicsWeights)
{
    MaskImage mask({8, 1}, 0.25f);
    mask.fillRect(0.75f, {4, 0, 4, 1});
    const auto doubled = static_cast<const _ImageData<float>&>(mask).resize({16, 1}, {}, true);
    // The new samples are a quarter of the old distance from the old ones. The cubic's weights at the distances 1/4,
    // 3/4, 5/4, 7/4 are 111, 29, -9, -3 of 128; to the right of the middle one half is added.
    EXPECT_NEAR(doubled->data()[5], 0.25 + 0.5 * -3 / 128, kRounding);
    EXPECT_NEAR(doubled->data()[6], 0.25 + 0.5 * -9 / 128, kRounding);
    EXPECT_NEAR(doubled->data()[7], 0.25 + 0.5 * (29 - 3) / 128, kRounding);
    EXPECT_NEAR(doubled->data()[8], 0.25 + 0.5 * (111 - 9) / 128, kRounding);
    EXPECT_NEAR(doubled->data()[0], 0.25, kRounding);
    EXPECT_NEAR(doubled->data()[15], 0.75, kRounding);
}

TEST(Resize, SameSizeIsACopy)
{
    for (const auto size : test::kAwkwardSizes) {
        const auto source = test::noise<PixelRGB<float>>(size, 7, 0.0f, 1.0f, ColorProfileType::melissaRGB());
        const auto result = source->resize({}, {}, true);
        EXPECT_TRUE(test::bytesEqual(*source, *result));
        EXPECT_NE(source->data(), result->data());
        EXPECT_EQ(result->colorProfile(), source->colorProfile());
    }
}

TEST(Resize, APartAtItsOwnSizeIsACopyOfIt)
{
    const auto source = test::noise<PixelRGB<float>>({64, 48}, 8);
    EXPECT_TRUE(test::bytesEqual(*source->resize({}, {5, 7, 20, 30}, true), *source->copy({5, 7, 20, 30})));
}

TEST(Resize, APartIsThatPartOfTheWhole)
{
    const auto source = test::noise<PixelRGB<float>>({64, 48}, 9);
    struct Case
    {
        int numerator, denominator;
    };
    for (const auto [numerator, denominator] : {Case{3, 1}, Case{1, 4}}) {
        const auto scaled = [&, n = numerator, d = denominator](int v) { return v * n / d; };
        const auto whole = source->resize({scaled(64), scaled(48)}, {}, true);
        const auto part = source->resize({scaled(32), scaled(24)}, {16, 8, 32, 24}, true);
        for (int y = 0; y < part->height(); ++y)
            for (int x = 0; x < part->width(); ++x)
                ASSERT_NEAR(part->row(y)[x].g, whole->row(y + scaled(8))[x + scaled(16)].g, kRounding)
                    << numerator << ": " << x << ", " << y;
    }
}

TEST(Resize, BeyondThePictureTheEdgeIsRepeated)
{
    const auto source = test::noise<PixelRGB<float>>({20, 10}, 10);
    const auto padded = source->resize({}, {-5, -3, 40, 20}, true);
    ASSERT_EQ(padded->size(), _Size<int>(40, 20));
    for (int y = 0; y < 20; ++y)
        for (int x = 0; x < 40; ++x)
            ASSERT_EQ(padded->row(y)[x], source->row(std::clamp(y - 3, 0, 9))[std::clamp(x - 5, 0, 19)]);
    // A part entirely outside, far away, is one colour.
    const auto far = source->resize({3, 3}, {std::numeric_limits<int>::max() - 5, -2000000000, 600, 6}, true);
    for (std::size_t i = 0; i < far->pixelCount(); ++i)
        EXPECT_NEAR(far->data()[i].r, source->row(0)[19].r, kRounding);
}

TEST(Resize, AnyNumberOfWorkersGivesTheSamePixels)
{
    const auto source = test::noise<PixelRGB<float>>({641, 303}, 11);
    for (const auto to : {_Size<int>(200, 100), _Size<int>(1000, 700), _Size<int>(641, 100), _Size<int>(200, 303)}) {
        std::shared_ptr<Picture> single;
        {
            const WorkerLimit limit(1);
            single = source->resize(to, {}, true);
        }
        const WorkerLimit limit(2);
        EXPECT_TRUE(test::bytesEqual(*single, *source->resize(to, {}, true)));
    }
}

TEST(Resize, NotANumberStaysNearItsPosition)
{
    auto source = test::noise<PixelRGB<float>>({64, 64}, 12);
    source->row(32)[32].r = std::numeric_limits<float>::quiet_NaN();
    source->row(10)[10].g = std::numeric_limits<float>::infinity();
    const auto half = source->resize({32, 32}, {}, true);
    EXPECT_TRUE(std::isnan(half->row(16)[16].r));
    EXPECT_FALSE(std::isnan(half->row(16)[15].r));
    EXPECT_FALSE(std::isnan(half->row(15)[16].r));
    const auto large = source->resize({128, 128}, {}, true);
    EXPECT_TRUE(std::isnan(large->row(65)[65].r));
    EXPECT_FALSE(std::isnan(large->row(70)[65].r));
}

TEST(Resize, ImpossibleRequestsAreRefused)
{
    const Picture picture({4, 4}, {}, nullptr);
    EXPECT_THROW((void)picture.resize({-1, 4}, {}, true), std::invalid_argument);
    EXPECT_THROW((void)picture.resize({4, 4}, {0, 0, -1, 4}, true), std::invalid_argument);
    EXPECT_THROW((void)picture.resize({4, 4}, {2, 2, 0, 4}, true), std::invalid_argument);
    EXPECT_THROW((void)Picture({0, 0}, nullptr).resize({4, 4}, {}, true), std::invalid_argument);
    EXPECT_EQ(picture.resize({5, 0}, {}, true)->size(), _Size<int>(5, 0));
}

TEST(Resize, MasksStayWeights)
{
    MaskImage mask({8, 8}, 0.0f);
    mask.fillRect(1.0f, {4, 0, 4, 8});
    const std::shared_ptr<MaskImage> large = mask.resize({64, 64}, {}, true);
    for (std::size_t i = 0; i < large->pixelCount(); ++i) {
        ASSERT_GE(large->data()[i], 0.0f);
        ASSERT_LE(large->data()[i], 1.0f);
    }
    EXPECT_EQ(large->row(30)[0], 0.0f);
    EXPECT_EQ(large->row(30)[63], 1.0f);
    EXPECT_NEAR(large->row(30)[31] + large->row(30)[32], 1.0f, kRounding); // the step stays in the middle
}

TEST(Resize, UsesOnePlaneBesidesTheResult)
{
    const auto source = test::noise<PixelRGB<float>>({1000, 800}, 13);
    auto& memory = MemoryManager::instance();
    const std::size_t before = memory.liveBytes();
    memory.trim(); // a kept plane may be larger than requested
    memory.resetPeak();
    (void)source->resize({500, 400}, {}, true);
    constexpr std::size_t kPlanes = (500 * 400 + 500 * 800) * sizeof(PixelRGB<float>);
    constexpr std::size_t kRoundingOfBlocks = 2 * (64 << 10);
    EXPECT_LE(memory.peakBytes() - before, kPlanes + kRoundingOfBlocks);
    EXPECT_EQ(memory.liveBytes(), before);
}
