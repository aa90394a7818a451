#include "support/pictures.hpp"

#include <orvo/answers.hpp>
#include <orvo_core/parallel.hpp>

#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <stdexcept>

namespace orvo::test {
namespace {

std::shared_ptr<MaskImage> maskWithHole(_Size<int> size, _Rect<int> hole, float value = 1.0f)
{
    auto mask = std::make_shared<MaskImage>(size, 0.0f);
    mask->fillRect(value, hole);
    return mask;
}

std::shared_ptr<Picture> noisy(const Picture& picture, float deviation, unsigned seed = 5)
{
    std::mt19937 random(seed);
    auto result = picture.copy({});
    for (std::size_t i = 0; i < result->pixelCount(); ++i) {
        // Sum of four uniform values: about normal, the same with every standard library.
        float sum = 0.0f;
        for (int k = 0; k < 4; ++k)
            sum += static_cast<float>(random() % 65536) / 65535.0f - 0.5f;
        const float grain = deviation * sum / 0.57735f;
        auto& p = result->data()[i];
        p = {p.r + grain, p.g + grain, p.b + grain};
    }
    return result;
}

TEST(ProcessingRect, AddsContextAndKeepsToThePicture)
{
    EXPECT_EQ(adjustProcessingRect({400, 400, 200, 100}, {2000, 2000}, {0, 0}), _Rect<int>(300, 350, 400, 200));
    EXPECT_EQ(adjustProcessingRect({500, 500, 1, 1}, {2000, 2000}, {0, 0}), _Rect<int>(468, 468, 65, 65));
    EXPECT_EQ(adjustProcessingRect({0, 0, 0, 0}, {300, 200}, {0, 0}), _Rect<int>(0, 0, 300, 200));
    EXPECT_EQ(adjustProcessingRect({900, 900, 5, 5}, {300, 200}, {0, 0}), _Rect<int>(0, 0, 300, 200));
    EXPECT_EQ(adjustProcessingRect({0, 0, 4000, 1000}, {4000, 1000}, {0, 0}), _Rect<int>(0, 0, 4000, 1000));
    EXPECT_EQ(adjustProcessingRect({500, 500, 10, 10}, {2000, 2000}, {300, 200}).size(), _Size<int>(300, 200));
    std::mt19937 random(1);
    const auto upTo = [&](int n) { return static_cast<int>(random() % static_cast<unsigned>(n)); };
    for (int i = 0; i < 20000; ++i) {
        const _Size<int> size{1 + upTo(4000), 1 + upTo(4000)};
        const int x = upTo(size.width), y = upTo(size.height);
        const _Rect<int> roi{x, y, 1 + upTo(size.width - x), 1 + upTo(size.height - y)};
        const auto rect = adjustProcessingRect(roi, size, {0, 0});
        ASSERT_TRUE(rect.x >= 0 && rect.y >= 0 && rect.x + rect.width <= size.width &&
                    rect.y + rect.height <= size.height);
        ASSERT_TRUE(rect.x <= x && rect.y <= y && rect.x + rect.width >= x + roi.width &&
                    rect.y + rect.height >= y + roi.height);
        // Not narrower than 1:2 if the picture has room.
        ASSERT_TRUE(rect.width * 2 >= rect.height || rect.width == size.width);
        ASSERT_TRUE(rect.height * 2 >= rect.width || rect.height == size.height);
    }
}

TEST(MaskRoi, BoundsWhatIsAboveZero)
{
    EXPECT_EQ(calculateMaskRoi(maskWithHole({50, 40}, {7, 9, 3, 2}, 0.01f)), _Rect<int>(7, 9, 3, 2));
    EXPECT_EQ(calculateMaskRoi(maskWithHole({50, 40}, {0, 0, 50, 40})), _Rect<int>(0, 0, 50, 40));
    EXPECT_EQ(calculateMaskRoi(std::make_shared<MaskImage>(_Size<int>(50, 40), 0.0f)), _Rect<int>());
    EXPECT_EQ(calculateMaskRoi(nullptr), _Rect<int>());
    auto corners = maskWithHole({50, 40}, {49, 0, 1, 1});
    corners->fillRect(1.0f, {0, 39, 1, 1});
    EXPECT_EQ(calculateMaskRoi(corners), _Rect<int>(0, 0, 50, 40));
}

TEST(DownsampledSize, ExceedsNeitherAndKeepsTheAspect)
{
    EXPECT_EQ(calculateDownsampledSize({500, 500}, {1000, 1000}), _Size<int>(500, 500));
    EXPECT_EQ(calculateDownsampledSize({2000, 2000}, {1000, 700}), _Size<int>(1000, 700));
    EXPECT_EQ(calculateDownsampledSize({2450, 1000}, {4000, 1000}), _Size<int>(2450, 613));
    EXPECT_EQ(calculateDownsampledSize({0, 5}, {4, 4}), _Size<int>());
    std::mt19937 random(2);
    const auto side = [&] { return 1 + static_cast<int>(random() % 4000); };
    for (int i = 0; i < 50000; ++i) {
        const _Size<int> request{side(), side()};
        const _Size<int> rect{side(), side()};
        const auto size = calculateDownsampledSize(request, rect);
        ASSERT_TRUE(size.width >= 1 && size.height >= 1);
        ASSERT_TRUE(size.width <= std::min(request.width, rect.width) &&
                    size.height <= std::min(request.height, rect.height));
        const double scale = std::min({1.0, double(request.width) / rect.width, double(request.height) / rect.height});
        ASSERT_NEAR(size.width, std::max(1.0, rect.width * scale), 1.0);
        ASSERT_NEAR(size.height, std::max(1.0, rect.height * scale), 1.0);
    }
}

TEST(UpscaledAnswer, HasExactlyTheSize)
{
    const std::shared_ptr<const _ImageData<float>> mask = maskWithHole({90, 70}, {30, 30, 20, 20});
    for (const _Size<int> from : {_Size<int>(1, 1), {7, 3}, {40, 31}, {45, 35}, {89, 70}, {90, 70}, {200, 150}})
        for (const _Size<int> to : {_Size<int>(90, 70), {1, 1}, {1, 90}, {233, 17}}) {
            auto result = textured(from.width, from.height);
            upscaleToInitialSize(result, to, mask);
            ASSERT_EQ(result->size(), to);
            applyDetailsToResult(result);
            ASSERT_EQ(result->size(), to);
        }
    auto same = textured(90, 70);
    const auto before = same;
    upscaleToInitialSize(same, {90, 70}, mask);
    EXPECT_EQ(same, before);
    AnswerPicture none;
    EXPECT_THROW(upscaleToInitialSize(none, {1, 1}, mask), std::invalid_argument);
    EXPECT_THROW(upscaleToInitialSize(same, {0, 0}, mask), std::invalid_argument);
}

double stepEnergy(const Picture& picture)
{
    double sum = 0.0;
    for (int y = 0; y < picture.height(); ++y)
        for (int x = 1; x < picture.width(); ++x)
            sum += std::pow(picture.row(y)[x].g - picture.row(y)[x - 1].g, 2);
    return sum / static_cast<double>(picture.pixelCount());
}

TEST(AnswerDetails, StrengthenWhatHasGrownAndNothingElse)
{
    auto grown = noisy(*textured(80, 60), 0.1f);
    upscaleToInitialSize(grown, {160, 120}, nullptr);
    const auto soft = grown;
    applyDetailsToResult(grown);
    EXPECT_GT(stepEnergy(*grown), 1.05 * stepEnergy(*soft));
    float least = 1, most = 0, leastBefore = 1, mostBefore = 0;
    for (std::size_t i = 0; i < grown->pixelCount(); ++i) {
        least = std::min(least, grown->data()[i].g);
        most = std::max(most, grown->data()[i].g);
        leastBefore = std::min(leastBefore, soft->data()[i].g);
        mostBefore = std::max(mostBefore, soft->data()[i].g);
    }
    EXPECT_GE(least, leastBefore);
    EXPECT_LE(most, mostBefore);
    auto asItWas = textured(80, 60);
    const auto before = asItWas;
    applyDetailsToResult(asItWas);
    EXPECT_EQ(asItWas, before);
}

TEST(BlendMask, FadesOutwardByTheExactDistance)
{
    const _Rect<int> hole{60, 50, 80, 60};
    const auto mask = maskWithHole({200, 160}, hole);
    prepareBlendMask(mask);
    const double fade = std::max(3.0, 0.03 * std::sqrt(80.0 * 60.0));
    for (int y = 0; y < 160; ++y)
        for (int x = 0; x < 200; ++x) {
            const int dx = std::max({hole.x - x, x - (hole.x + hole.width - 1), 0});
            const int dy = std::max({hole.y - y, y - (hole.y + hole.height - 1), 0});
            const double t = std::clamp(1.0 - std::hypot(dx, dy) / (fade + 1.0), 0.0, 1.0);
            ASSERT_NEAR(mask->row(y)[x], t * t * (3 - 2 * t), 1e-5) << x << "," << y;
        }
}

TEST(BlendMask, AgreesWithADirectSearchOnAnyShape)
{
    std::mt19937 random(4);
    auto mask = std::make_shared<MaskImage>(_Size<int>(61, 47), 0.0f);
    for (int i = 0; i < 12; ++i)
        mask->row(static_cast<int>(random() % 47))[random() % 61] = 1.0f;
    const auto hard = mask->copy({});
    prepareBlendMask(mask);
    for (int y = 0; y < 47; ++y)
        for (int x = 0; x < 61; ++x) {
            double nearest = 1e9;
            for (int v = 0; v < 47; ++v)
                for (int u = 0; u < 61; ++u)
                    if (hard->row(v)[u] >= 0.5f)
                        nearest = std::min(nearest, std::hypot(u - x, v - y));
            const double t = std::clamp(1.0 - nearest / 4.0, 0.0, 1.0);
            ASSERT_NEAR(mask->row(y)[x], t * t * (3 - 2 * t), 1e-5);
        }
}

TEST(BlendMask, SoftRimsStayAndFullAndEmptyOnesToo)
{
    auto soft = maskWithHole({40, 40}, {10, 10, 5, 5});
    soft->fillRect(0.4f, {30, 30, 4, 4});
    prepareBlendMask(soft);
    EXPECT_EQ(soft->row(31)[31], 0.4f);
    EXPECT_EQ(soft->row(12)[12], 1.0f);
    auto empty = std::make_shared<MaskImage>(_Size<int>(9, 9), 0.0f);
    prepareBlendMask(empty);
    EXPECT_EQ(calculateMaskRoi(empty), _Rect<int>());
    auto full = std::make_shared<MaskImage>(_Size<int>(9, 1), 1.0f);
    prepareBlendMask(full);
    EXPECT_EQ(full->row(0)[8], 1.0f);
    EXPECT_THROW(prepareBlendMask(nullptr), std::invalid_argument);
}

TEST(BlendWithSource, AnAnswerEqualToTheSourceStaysTheSame)
{
    const auto source = noisy(*textured(240, 180), 0.02f);
    auto result = source->copy({});
    const auto mask = maskWithHole({240, 180}, {100, 60, 50, 70});
    prepareBlendMask(mask);
    blendWithSource(result, source, mask);
    EXPECT_LT(largestDifference(*result, *source), 1e-4f);
}

TEST(BlendWithSource, EvensOutADifferenceOfColour)
{
    const auto source = textured(240, 180);
    auto result = source->copy({});
    for (int y = 0; y < 180; ++y)
        for (int x = 0; x < 240; ++x) {
            auto& p = result->row(y)[x];
            const float slope = 0.04f + 0.0004f * static_cast<float>(x);
            p = {p.r + slope, p.g - 0.5f * slope, p.b};
        }
    const auto mask = maskWithHole({240, 180}, {90, 60, 60, 60});
    prepareBlendMask(mask);
    blendWithSource(result, source, mask);
    float worst = 0.0f;
    for (int y = 60; y < 120; ++y)
        for (int x = 90; x < 150; ++x)
            worst = std::max({worst, std::abs(result->row(y)[x].r - source->row(y)[x].r),
                              std::abs(result->row(y)[x].g - source->row(y)[x].g)});
    EXPECT_LT(worst, 0.006f); // of 0.11 before
}

// Deviation of the finest structure in a part.
double grainOf(const Picture& picture, _Rect<int> part)
{
    double sum = 0.0;
    int count = 0;
    for (int y = part.y; y + 1 < part.y + part.height; ++y)
        for (int x = part.x; x + 1 < part.x + part.width; ++x) {
            const double d =
                picture.row(y)[x].g - picture.row(y)[x + 1].g - picture.row(y + 1)[x].g + picture.row(y + 1)[x + 1].g;
            sum += d * d;
            ++count;
        }
    return std::sqrt(sum / count) / 2.0;
}

TEST(BlendWithSource, AnAnswerWithoutGrainGetsThatOfItsSurroundings)
{
    const auto smooth = drawn(240, 180, [](int x, int y) {
        const float v = 0.3f + 0.001f * static_cast<float>(x) + 0.0007f * static_cast<float>(y);
        return PixelRGB<float>{v, v, v};
    });
    const auto source = noisy(*smooth, 0.02f);
    auto result = smooth->copy({});
    const auto mask = maskWithHole({240, 180}, {80, 50, 80, 80});
    prepareBlendMask(mask);
    blendWithSource(result, source, mask);
    EXPECT_NEAR(grainOf(*result, {90, 60, 60, 60}), 0.02, 0.004);
    const WorkerLimit one(1);
    auto again = smooth->copy({});
    blendWithSource(again, source, mask);
    EXPECT_TRUE(sameBytes(*again, *result));
}

TEST(BlendWithSource, BringsTheAnswerIntoTheSourcesProfile)
{
    const auto source = textured(120, 90);
    AnswerPicture result;
    source->colorTransform(result, ColorProfileType::sRGB(), true);
    const auto mask = maskWithHole({120, 90}, {40, 30, 30, 30});
    blendWithSource(result, source, mask);
    EXPECT_EQ(*result->colorProfile(), *ColorProfileType::melissaRGB());
    EXPECT_LT(largestDifference(*result, *source), 2e-3f);
}

TEST(BlendWithSource, RefusesSizesThatDiffer)
{
    auto result = textured(10, 10);
    EXPECT_THROW(blendWithSource(result, textured(10, 11), maskWithHole({10, 10}, {})), std::invalid_argument);
    EXPECT_THROW(blendWithSource(result, textured(10, 10), maskWithHole({9, 10}, {})), std::invalid_argument);
    EXPECT_THROW(blendWithSource(result, textured(10, 10), nullptr), std::invalid_argument);
}

TEST(BlendWithSource, AMaskThatIsFullEverywhereKnowsNothingAndChangesNothing)
{
    const auto source = textured(50, 40);
    auto result = plain(50, 40, 0.9f);
    blendWithSource(result, source, std::make_shared<MaskImage>(_Size<int>(50, 40), 1.0f));
    EXPECT_TRUE(sameBytes(*result, *plain(50, 40, 0.9f)));
}

TEST(BlendRoi, LeavesWhatTheMaskDoesNotTouchBitByBit)
{
    const auto before = textured(200, 150);
    auto target = before->copy({});
    const auto mask = maskWithHole({60, 50}, {20, 20, 20, 10});
    mask->row(25)[15] = 0.5f;
    blendRoi(target, plain(60, 50, 0.25f), mask, {70, 40, 60, 50});
    for (int y = 0; y < 150; ++y)
        for (int x = 0; x < 200; ++x) {
            const int mx = x - 70, my = y - 40;
            const bool inside = mx >= 0 && my >= 0 && mx < 60 && my < 50;
            const float w = inside ? mask->row(my)[mx] : 0.0f;
            const auto& p = target->row(y)[x];
            if (w == 0.0f) {
                ASSERT_EQ(std::memcmp(&p, &before->row(y)[x], sizeof(p)), 0);
            } else {
                ASSERT_FLOAT_EQ(p.r, before->row(y)[x].r + (0.25f - before->row(y)[x].r) * w);
            }
        }
}

TEST(BlendRoi, LeavesOutWhatLiesOutside)
{
    for (const _Rect<int> rect :
         {_Rect<int>(-30, -20, 60, 50), {180, 130, 60, 50}, {-100, 0, 60, 50}, {300, 0, 60, 50}}) {
        const auto before = textured(200, 150);
        auto target = before->copy({});
        blendRoi(target, plain(60, 50, 0.25f), std::make_shared<MaskImage>(_Size<int>(60, 50), 1.0f), rect);
        for (int y = 0; y < 150; ++y)
            for (int x = 0; x < 200; ++x) {
                const bool inside = x >= rect.x && y >= rect.y && x < rect.x + 60 && y < rect.y + 50;
                ASSERT_EQ(target->row(y)[x].r, inside ? 0.25f : before->row(y)[x].r);
            }
    }
}

TEST(BlendRoi, BringsTheAnswerIntoTheTargetsProfileAndRefusesOtherSizes)
{
    auto target = textured(40, 30);
    std::shared_ptr<Picture> answer;
    target->copy({5, 5, 20, 20})->colorTransform(answer, ColorProfileType::sRGB(), true);
    const auto before = target->copy({});
    blendRoi(target, answer, std::make_shared<MaskImage>(_Size<int>(20, 20), 1.0f), {5, 5, 20, 20});
    EXPECT_LT(largestDifference(*target, *before), 1e-4f);
    EXPECT_EQ(*answer->colorProfile(), *ColorProfileType::sRGB());
    EXPECT_THROW(blendRoi(target, answer, maskWithHole({20, 20}, {}), {0, 0, 0, 0}), std::invalid_argument);
    EXPECT_THROW(blendRoi(target, nullptr, maskWithHole({20, 20}, {}), {5, 5, 20, 20}), std::invalid_argument);
    EXPECT_THROW(blendRoi(target, answer, nullptr, {5, 5, 20, 20}), std::invalid_argument);
}

} // namespace
} // namespace orvo::test
