#include "orvo_test_pictures.hpp"

#include <orvo/finishing.hpp>
#include <orvo_core/parallel.hpp>

#include <gmock/gmock.h>

#include <algorithm>
#include <cmath>

namespace {

using orvo::ColorProfileType;
using orvo::PicturePointer;
using test::Pixel;

void normalize(const PicturePointer& picture)
{
    orvo::normalize_for_hdr(picture->data(), picture->width(), picture->height());
}

// Coloured noise between two levels.
PicturePointer between(float low, float high, orvo::_Size<int> size = {320, 200})
{
    return test::noise(size, ColorProfileType::melissaRGB(), 9, low, high);
}

PicturePointer grays(float low, float high)
{
    return test::drawn({400, 50}, ColorProfileType::melissaRGB(), [&](int x, int) {
        const float v = low + (high - low) * static_cast<float>(x) / 399.0f;
        return Pixel{v, v, v};
    });
}

float luminance(const Pixel& p) { return 0.299f * p.r + 0.587f * p.g + 0.114f * p.b; }

TEST(NormalizeForHdr, LeavesANormalPictureWithinOnePercent)
{
    for (const auto& [low, high] : {std::pair{0.0f, 1.0f}, {0.01f, 0.985f}, {0.012f, 0.988f}, {0.0f, 1.008f}}) {
        const PicturePointer picture = grays(low, high);
        const PicturePointer before = test::copyOf(picture);
        normalize(picture);
        EXPECT_LT(test::largestChange(*picture, *before), 0.01f) << low << " to " << high;
    }
}

TEST(NormalizeForHdr, BringsTheEndsNearTheEndsOfTheScale)
{
    const PicturePointer picture = grays(0.06f, 0.88f);
    normalize(picture);
    EXPECT_LT(picture->data()[0].g, 0.03f);
    EXPECT_NEAR(picture->data()[399].g, 0.98f, 0.01f);
}

TEST(NormalizeForHdr, DarkensOverbrightPictures)
{
    const PicturePointer picture = grays(0.0f, 1.25f);
    normalize(picture);
    EXPECT_NEAR(picture->data()[399].g, 1.0f, 0.01f);
}

TEST(NormalizeForHdr, KeepsHueAndPushesNoChannelIntoClipping)
{
    const PicturePointer picture = between(0.05f, 0.85f);
    const PicturePointer before = test::copyOf(picture);
    normalize(picture);
    EXPECT_GT(test::largestChange(*picture, *before), 0.02f);
    for (std::size_t i = 0; i < picture->pixelCount(); ++i) {
        const Pixel& p = picture->data()[i];
        const Pixel& q = before->data()[i];
        EXPECT_NEAR(p.r * q.g, p.g * q.r, 1e-6f);
        EXPECT_NEAR(p.b * q.g, p.g * q.b, 1e-6f);
        EXPECT_LE(std::max({p.r, p.g, p.b}), 1.0f + 1e-6f);
    }
}

TEST(NormalizeForHdr, RisesWithLuminance)
{
    const PicturePointer picture = grays(0.04f, 0.9f);
    normalize(picture);
    for (int x = 1; x < 400; ++x)
        EXPECT_GE(picture->data()[x].g, picture->data()[x - 1].g) << x;
}

TEST(NormalizeForHdr, IsGentle)
{
    // Low contrast on purpose, and the darkest lamp-lit night: neither is stretched to the whole scale.
    for (const auto& [low, high] : {std::pair{0.4f, 0.6f}, {0.0f, 0.3f}, {0.3f, 0.7f}, {0.1f, 0.5f}}) {
        const PicturePointer picture = grays(low, high);
        const PicturePointer before = test::copyOf(picture);
        normalize(picture);
        for (std::size_t i = 0; i < picture->pixelCount(); ++i) {
            EXPECT_LE(luminance(picture->data()[i]), 2.0f * luminance(before->data()[i]) + 1e-6f);
            EXPECT_GE(luminance(picture->data()[i]), luminance(before->data()[i]) - 0.101f);
        }
    }
    const PicturePointer night = grays(0.0f, 0.3f);
    const PicturePointer before = test::copyOf(night);
    normalize(night);
    EXPECT_TRUE(test::bytesEqual(*night, *before));
}

// Waves of two sizes, so that there is local contrast to raise.
PicturePointer waves(float low, float high)
{
    return test::drawn({400, 200}, ColorProfileType::melissaRGB(), [&](int x, int y) {
        const float coarse = 0.5f + 0.44f * std::sin(static_cast<float>(x) * 0.016f);
        const float fine = 0.05f * std::sin(static_cast<float>(x) * 0.4f) * std::sin(static_cast<float>(y) * 0.3f);
        const float v = low + (high - low) * std::clamp(coarse + fine, 0.0f, 1.0f);
        return Pixel{v, v, v};
    });
}

// Mean difference of neighbours.
double localContrast(const PicturePointer& picture)
{
    double sum = 0;
    for (int y = 0; y < picture->height(); ++y)
        for (int x = 1; x < picture->width(); ++x)
            sum += static_cast<double>(std::abs(picture->row(y)[x].g - picture->row(y)[x - 1].g));
    return sum;
}

TEST(NormalizeForHdr, RaisesLocalContrastOfAFlattenedBlendOnly)
{
    const PicturePointer flattened = waves(0.08f, 0.9f);
    const double before = localContrast(flattened);
    normalize(flattened);
    const double stretch = (0.985 - 0.01) / (0.9 - 0.08);
    EXPECT_GT(localContrast(flattened), 1.1 * stretch * before) << "more than the stretch alone";
    const PicturePointer normal = waves(0.0f, 1.0f);
    const PicturePointer copy = test::copyOf(normal);
    normalize(normal);
    EXPECT_LT(test::largestChange(*normal, *copy), 0.01f);
}

TEST(NormalizeForHdr, LiftsTheMiddleOfADarkBlendButNotOfANight)
{
    const auto dark = [](float high) {
        return test::drawn({400, 50}, ColorProfileType::melissaRGB(), [high](int x, int) {
            const float t = static_cast<float>(x) / 399.0f;
            const float v = 0.06f + (high - 0.06f) * t * t * t;
            return Pixel{v, v, v};
        });
    };
    const PicturePointer room = dark(0.85f);
    const float middle = room->data()[200].g;
    normalize(room);
    EXPECT_GT(room->data()[200].g, middle);
    const PicturePointer night = dark(0.28f);
    const float nightMiddle = night->data()[200].g;
    normalize(night);
    EXPECT_LE(night->data()[200].g, nightMiddle + 1e-6f);
}

TEST(NormalizeForHdr, LeavesOneColourUnchanged)
{
    for (const float v : {0.0f, 0.1f, 0.5f, 0.9f, 1.0f}) {
        const PicturePointer picture = test::drawn({40, 30}, nullptr, [v](int, int) { return Pixel{v, v, v * 0.9f}; });
        const PicturePointer before = test::copyOf(picture);
        normalize(picture);
        EXPECT_TRUE(test::bytesEqual(*picture, *before)) << v;
    }
}

TEST(NormalizeForHdr, IsRobustToAFewPixels)
{
    const PicturePointer clean = grays(0.06f, 0.88f);
    const PicturePointer spoilt = test::copyOf(clean);
    const std::vector<Pixel> bad{
        {test::kNaN, 0.5f, 0.5f}, {test::kInfinity, 0.0f, 0.0f}, {50.0f, 50.0f, 50.0f}, {-3.0f, -3.0f, -3.0f}};
    std::copy(bad.begin(), bad.end(), spoilt->row(20));
    normalize(clean);
    normalize(spoilt);
    for (int x = 4; x < 400; ++x)
        EXPECT_NEAR(spoilt->row(20)[x].g, clean->row(20)[x].g, 2e-3f) << x;
}

TEST(NormalizeForHdr, TakesAnySizeAndNumberOfThreads)
{
    std::vector<orvo::_Size<int>> sizes = test::kAwkwardSizes;
    sizes.push_back({301, 203});
    for (const orvo::_Size<int>& size : sizes) {
        const PicturePointer one = between(0.06f, 0.85f, size);
        const PicturePointer two = test::copyOf(one);
        {
            const orvo::WorkerLimit limit(1);
            normalize(one);
        }
        const orvo::WorkerLimit limit(2);
        normalize(two);
        EXPECT_TRUE(test::bytesEqual(*one, *two)) << size.width;
    }
    orvo::normalize_for_hdr(nullptr, 0, 0);
    orvo::normalize_for_hdr(nullptr, 5, 5);
}

} // namespace
