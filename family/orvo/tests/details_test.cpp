#include "orvo_test_pictures.hpp"

#include <orvo/finishing.hpp>
#include <orvo_core/parallel.hpp>

#include <gmock/gmock.h>

namespace {

using orvo::ColorProfileType;
using orvo::PicturePointer;
using test::Pixel;

void enhance(const PicturePointer& picture, float value)
{
    orvo::applyDetails(picture->data(), picture->width(), picture->height(), value);
}

PicturePointer grays(orvo::_Size<int> size, const std::function<float(int, int)>& level)
{
    return test::drawn(size, ColorProfileType::melissaRGB(), [&](int x, int y) {
        const float v = level(x, y);
        return Pixel{v, v, v};
    });
}

// Half the range of a row.
float amplitude(const orvo::_ImageData<Pixel>& picture, int y)
{
    float low = 1.0f;
    float high = 0.0f;
    for (int x = picture.width() / 4; x < picture.width() * 3 / 4; ++x) {
        low = std::min(low, picture.row(y)[x].g);
        high = std::max(high, picture.row(y)[x].g);
    }
    return (high - low) / 2.0f;
}

TEST(ApplyDetails, RaisesFineStructureWithTheValue)
{
    const auto texture = [](int x, int) { return 0.5f + 0.04f * std::sin(static_cast<float>(x) * 0.8f); };
    float before = 0.04f * 1.05f;
    for (const float value : {0.25f, 0.5f, 1.0f}) {
        const PicturePointer picture = grays({256, 64}, texture);
        enhance(picture, value);
        const float now = amplitude(*picture, 32);
        EXPECT_GT(now, before) << value;
        before = now;
    }
    EXPECT_GT(before, 0.04f * 1.4f);
    EXPECT_LT(before, 0.04f * 2.0f);
}

TEST(ApplyDetails, GivesEdgesNoHalo)
{
    constexpr float kTwoPercent = 0.02f;
    for (const auto& [low, high] : {std::pair{0.2f, 0.8f}, {0.3f, 0.6f}, {0.05f, 0.95f}}) {
        const PicturePointer picture = grays({256, 64}, [&](int x, int) { return x < 128 ? low : high; });
        enhance(picture, 1.0f);
        for (int x = 0; x < 256; ++x) {
            EXPECT_GT(picture->row(32)[x].g, low - kTwoPercent) << x;
            EXPECT_LT(picture->row(32)[x].g, high + kTwoPercent) << x;
        }
    }
}

TEST(ApplyDetails, DoesNotAmplifyNoise)
{
    std::mt19937 random(3);
    std::normal_distribution<float> noise(0.0f, 0.003f);
    const PicturePointer picture = grays({256, 256}, [&](int, int) { return 0.4f + noise(random); });
    const PicturePointer before = test::copyOf(picture);
    enhance(picture, 1.0f);
    const auto spread = [](const orvo::_ImageData<Pixel>& p) {
        double sum = 0.0;
        for (std::size_t i = 0; i < p.pixelCount(); ++i)
            sum += std::pow(p.data()[i].g - 0.4, 2);
        return std::sqrt(sum / static_cast<double>(p.pixelCount()));
    };
    EXPECT_LT(spread(*picture), 1.05 * spread(*before));
}

TEST(ApplyDetails, KeepsHueAndScale)
{
    const test::Discs discs({300, 200});
    const PicturePointer picture = test::drawn({300, 200}, ColorProfileType::melissaRGB(), [&](int x, int y) {
        const auto v = static_cast<float>(discs.at(x, y));
        return Pixel{v, 0.6f * v, 0.3f * v};
    });
    const PicturePointer before = test::copyOf(picture);
    enhance(picture, 1.0f);
    EXPECT_GT(test::largestChange(*picture, *before), 0.01f);
    for (std::size_t i = 0; i < picture->pixelCount(); ++i) {
        const Pixel& p = picture->data()[i];
        EXPECT_NEAR(p.g, 0.6f * p.r, 1e-5f);
        EXPECT_NEAR(p.b, 0.3f * p.r, 1e-5f);
        EXPECT_LE(p.r, 1.0f + 1e-6f);
        EXPECT_GE(p.r, 0.0f);
    }
}

TEST(ApplyDetails, LeavesOneColourAndValue0Unchanged)
{
    const PicturePointer flat = grays({64, 48}, [](int, int) { return 0.37f; });
    const PicturePointer flatBefore = test::copyOf(flat);
    enhance(flat, 1.0f);
    EXPECT_LT(test::largestChange(*flat, *flatBefore), 1e-4f);
    const PicturePointer picture = test::noise({64, 48}, nullptr, 4);
    const PicturePointer before = test::copyOf(picture);
    for (const float value : {0.0f, -1.0f, test::kNaN}) {
        enhance(picture, value);
        EXPECT_TRUE(test::bytesEqual(*picture, *before));
    }
    orvo::applyDetails(nullptr, 4, 4, 1.0f);
}

TEST(ApplyDetails, TakesAnySizeAndNumberOfThreads)
{
    std::vector<orvo::_Size<int>> sizes = test::kAwkwardSizes;
    sizes.push_back({300, 211});
    for (const orvo::_Size<int>& size : sizes) {
        const PicturePointer one = test::noise(size, nullptr, 8, -0.2f, 1.3f);
        if (one->pixelCount() > 1000)
            one->data()[777] = {test::kNaN, test::kInfinity, 0.0f};
        const PicturePointer two = test::copyOf(one);
        {
            const orvo::WorkerLimit limit(1);
            enhance(one, 0.7f);
        }
        const orvo::WorkerLimit limit(2);
        enhance(two, 0.7f);
        EXPECT_TRUE(test::bytesEqual(*one, *two)) << size.width;
    }
}

} // namespace
