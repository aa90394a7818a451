#include "orvo_test_pictures.hpp"

#include <orvo/finishing.hpp>
#include <orvo_core/parallel.hpp>

#include <gmock/gmock.h>

namespace {

using orvo::ColorProfileType;
using orvo::PicturePointer;
using test::Pixel;

constexpr orvo::_Size<int> kSize{480, 320};

float light(float encoded) { return orvo::linearFromSRGBCurve(encoded); }

// Gray discs on gray with some coloured ones, under a light of the given colour (linear); the last rows are pure gray.
PicturePointer scene(const Pixel& lamp, bool linear = false)
{
    const test::Discs discs(kSize);
    const test::Discs red(kSize, 21);
    const test::Discs blue(kSize, 22);
    return test::drawn(kSize, linear ? ColorProfileType::linearMelissaRGB() : ColorProfileType::melissaRGB(),
                       [&](int x, int y) {
                           const auto gray = static_cast<float>(discs.at(x, y)) * 0.55f;
                           const bool plain = y > kSize.height - 20;
                           const float r = plain ? 1.0f : 0.7f + 0.75f * static_cast<float>(red.at(x, y));
                           const float b = plain ? 1.0f : 0.7f + 0.75f * static_cast<float>(blue.at(x, y));
                           const Pixel p{gray * gray * r * lamp.r, gray * gray * lamp.g, gray * gray * b * lamp.b};
                           return linear ? p
                                         : Pixel{orvo::srgbCurveFromLinear(p.r), orvo::srgbCurveFromLinear(p.g),
                                                 orvo::srgbCurveFromLinear(p.b)};
                       });
}

// log2 of red and blue over green of a gray in the last rows.
std::pair<float, float> cast(const orvo::_ImageData<Pixel>& picture)
{
    const bool linear = picture.colorProfile()->isLinear();
    const Pixel& p = picture.row(kSize.height - 3)[200];
    const auto decoded = [&](float v) { return linear ? v : light(v); };
    return {std::log2(decoded(p.r) / decoded(p.g)), std::log2(decoded(p.b) / decoded(p.g))};
}

const std::vector<Pixel> kLamps = {{1.4f, 1.0f, 0.6f}, {0.8f, 1.0f, 1.3f}, {1.1f, 0.95f, 1.1f}, {1.6f, 1.0f, 0.45f}};
constexpr float kTenthOfAStop = 0.12f; // visible tolerance of a gray

TEST(ApplyWB, RemovesAKnownCast)
{
    for (const bool linear : {false, true}) {
        for (const Pixel& lamp : kLamps) {
            PicturePointer picture = scene(lamp, linear);
            orvo::applyWB(picture, 1.0f);
            const auto [red, blue] = cast(*picture);
            EXPECT_NEAR(red, 0.0f, kTenthOfAStop) << lamp.r;
            EXPECT_NEAR(blue, 0.0f, kTenthOfAStop) << lamp.r;
        }
    }
}

TEST(ApplyWB, RemovesTheRequestedShare)
{
    const auto temperature = [](float value) {
        PicturePointer picture = scene(kLamps[0]);
        orvo::applyWB(picture, value);
        const auto [red, blue] = cast(*picture);
        return red - blue;
    };
    const float none = temperature(0.0f);
    const float half = temperature(0.5f);
    const float whole = temperature(1.0f);
    EXPECT_NEAR(half, (none + whole) / 2.0f, 0.02f);
    EXPECT_EQ(temperature(3.0f), whole);
}

TEST(ApplyWB, KeepsTheBrightnessOfGrays)
{
    PicturePointer picture = scene(kLamps[0]);
    const auto level = [&] {
        const Pixel& p = picture->row(kSize.height - 3)[200];
        return 0.299f * light(p.r) + 0.587f * light(p.g) + 0.114f * light(p.b);
    };
    const float before = level();
    orvo::applyWB(picture, 1.0f);
    EXPECT_NEAR(level() / before, 1.0f, 0.02f);
}

TEST(ApplyWB, LeavesNeutralPicturesUnchanged)
{
    PicturePointer gray = test::drawn(kSize, ColorProfileType::melissaRGB(), [](int x, int y) {
        const float v = 0.1f + 0.7f * static_cast<float>((x / 7 + y / 5) % 10) / 10.0f;
        return Pixel{v, v, v};
    });
    const PicturePointer before = test::copyOf(gray);
    orvo::applyWB(gray, 1.0f);
    EXPECT_TRUE(test::bytesEqual(*gray, *before));
    PicturePointer balanced = scene({1.0f, 1.0f, 1.0f});
    orvo::applyWB(balanced, 1.0f);
    EXPECT_NEAR(cast(*balanced).first, 0.0f, kTenthOfAStop);
    EXPECT_NEAR(cast(*balanced).second, 0.0f, kTenthOfAStop);
}

TEST(ApplyWB, IsRobustToALargeColouredArea)
{
    PicturePointer picture = scene({1.0f, 1.0f, 1.0f});
    for (int y = 0; y < 190; ++y) // a lawn over more than half of the picture
        for (int x = 0; x < kSize.width; ++x) {
            const float shade = 0.8f + 0.2f * std::sin(static_cast<float>(x * y) * 0.01f);
            picture->row(y)[x] = {0.28f * shade, 0.45f * shade, 0.15f * shade};
        }
    orvo::applyWB(picture, 1.0f);
    EXPECT_NEAR(cast(*picture).first, 0.0f, 0.25f);
    EXPECT_NEAR(cast(*picture).second, 0.0f, 0.25f);
}

TEST(ApplyWB, KeepsClippedWhitesWhite)
{
    PicturePointer picture = scene(kLamps[0]);
    picture->row(5)[5] = {1.0f, 1.0f, 1.0f};
    orvo::applyWB(picture, 1.0f);
    EXPECT_NEAR(picture->row(5)[5].r, 1.0f, 1e-5f);
    EXPECT_NEAR(picture->row(5)[5].b, 1.0f, 1e-5f);
}

TEST(ApplyWB, TakesAnyPictureAndAnyNumberOfThreads)
{
    std::vector<PicturePointer> pictures;
    for (const orvo::_Size<int>& size : test::kAwkwardSizes)
        pictures.push_back(test::noise(size, ColorProfileType::melissaRGB(), 2));
    pictures.push_back(scene(kLamps[0]));
    pictures.push_back(test::noise({900, 700}, nullptr, 6, -0.2f, 1.5f));
    for (const float v : {0.0f, 1.0f, test::kNaN})
        pictures.push_back(test::drawn({50, 40}, ColorProfileType::melissaRGB(), [v](int x, int) {
            return x < 45 ? Pixel{v, v, v} : Pixel{0.5f, 0.2f, 0.1f};
        }));
    for (PicturePointer& one : pictures) {
        PicturePointer two = test::copyOf(one);
        const bool wasFinite = test::finite(*one);
        {
            const orvo::WorkerLimit limit(1);
            orvo::applyWB(one, 0.8f);
        }
        const orvo::WorkerLimit limit(2);
        orvo::applyWB(two, 0.8f);
        EXPECT_TRUE(test::bytesEqual(*one, *two)) << one->width();
        EXPECT_EQ(test::finite(*one), wasFinite);
    }
    PicturePointer none;
    orvo::applyWB(none, 1.0f);
    EXPECT_EQ(none, nullptr);
    PicturePointer untouched = scene(kLamps[0]);
    const PicturePointer before = test::copyOf(untouched);
    for (const float value : {0.0f, -1.0f, test::kNaN}) {
        orvo::applyWB(untouched, value);
        EXPECT_TRUE(test::bytesEqual(*untouched, *before));
    }
}

} // namespace
