#include "test_planes.hpp"

#include <orvo_core/image_data.hpp>
#include <orvo_image_processing/highlight_hue.hpp>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

using orvo::ColorProfileType;
using orvo::PixelRGB;

namespace {

using Picture = orvo::_ImageData<PixelRGB<float>>;

// An orange wall with a white glow in its middle, as `profile` stores it.
std::shared_ptr<Picture> glow(int width, int height, const std::shared_ptr<orvo::ColorProfile>& profile)
{
    auto picture = std::make_shared<Picture>(orvo::_Size<int>(width, height), profile);
    const float reach = 0.2f * static_cast<float>(std::min(width, height));
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) {
            const float across = (static_cast<float>(x) - 0.5f * static_cast<float>(width)) / reach;
            const float down = (static_cast<float>(y) - 0.5f * static_cast<float>(height)) / reach;
            const float fall = 1.0f + across * across + down * down;
            const float light = 6.0f / (fall * fall);
            const auto stored = [light](float wall) { return orvo::srgbCurveFromLinear(std::min(1.0f, wall + light)); };
            picture->row(y)[x] = {stored(0.6f), stored(0.3f), stored(0.1f)};
        }
    return picture;
}

std::shared_ptr<Picture> recovered(const Picture& file)
{
    auto picture = file.copy({});
    picture->convertTo(ColorProfileType::melissaRGB());
    orvo::recoverHighlightHue(picture->data(), picture->width(), picture->height(), file.colorProfile());
    picture->convertTo(ColorProfileType::linearSRGB());
    return picture;
}

// Place of green between blue and red: 0.4 on the wall, and wherever the white glow does not hide it.
float place(const PixelRGB<float>& light) { return (light.g - light.b) / (light.r - light.b); }

} // namespace

TEST(HighlightHue, ReturnsThePlaceOfTheMiddleChannel)
{
    for (const auto& [width, height] : {std::pair{300, 200}, {201, 333}, {3000, 2000}}) {
        const auto file = glow(width, height, ColorProfileType::sRGB());
        const auto light = recovered(*file);
        int clipped = 0;
        for (int y = 0; y < height; y += 3)
            for (int x = 0; x < width; x += 3) {
                const PixelRGB<float>& before = file->row(y)[x];
                if (before.r < 1.0f || before.b > 0.95f)
                    continue;
                ++clipped;
                ASSERT_NEAR(place(light->row(y)[x]), 0.4f, 0.02f) << x << ' ' << y << " of " << width;
            }
        EXPECT_GT(clipped, width * height / 9 / 100) << "a hundredth of the picture";
    }
}

TEST(HighlightHue, LeavesUnclippedPixelsAndWhiteBitEqual)
{
    const auto file = glow(400, 300, ColorProfileType::sRGB());
    const auto before = file->copy({});
    before->convertTo(ColorProfileType::melissaRGB());
    const auto after = before->copy({});
    orvo::recoverHighlightHue(after->data(), after->width(), after->height(), ColorProfileType::sRGB());
    std::size_t changed = 0;
    for (std::size_t i = 0; i < file->pixelCount(); ++i) {
        const PixelRGB<float>& stored = file->data()[i];
        if (stored.r < 0.95f || stored.b == 1.0f)
            ASSERT_EQ(after->data()[i], before->data()[i]) << i;
        else
            changed += after->data()[i] == before->data()[i] ? 0 : 1;
    }
    EXPECT_GT(changed, 1000u);
}

// Full scale of another space is another limit.
TEST(HighlightHue, TakesTheLimitOfTheFile)
{
    auto picture = glow(300, 200, ColorProfileType::sRGB());
    picture->convertTo(ColorProfileType::melissaRGB());
    const auto before = picture->copy({});
    orvo::recoverHighlightHue(picture->data(), 300, 200, nullptr);
    EXPECT_TRUE(std::equal(before->data(), before->data() + before->pixelCount(), picture->data()));
    const auto wide = glow(300, 200, ColorProfileType::melissaRGB());
    const auto changed = wide->copy({});
    orvo::recoverHighlightHue(changed->data(), 300, 200, ColorProfileType::melissaRGB());
    EXPECT_FALSE(std::equal(wide->data(), wide->data() + wide->pixelCount(), changed->data()));
}

// A blue lamp on an orange wall has nothing to do with the wall.
TEST(HighlightHue, KeepsALampOfAnotherHue)
{
    const auto file = std::make_shared<Picture>(orvo::_Size<int>(120, 80), PixelRGB<float>{0.8f, 0.6f, 0.3f},
                                                ColorProfileType::sRGB());
    for (int y = 30; y < 50; ++y)
        std::fill_n(file->row(y) + 50, 20, PixelRGB<float>{0.2f, 0.4f, 1.0f});
    const auto light = recovered(*file);
    const PixelRGB<float>& lamp = light->row(40)[60];
    EXPECT_NEAR(lamp.r, orvo::linearFromSRGBCurve(0.2f), 1e-3f);
    EXPECT_NEAR(lamp.b, 1.0f, 1e-3f);
}

TEST(HighlightHue, HandlesEverySizeAndInvalidSamples)
{
    for (const auto& [width, height] : {std::pair{0, 0}, {1, 1}, {1, 700}, {5, 2}}) {
        auto picture = glow(width, height, ColorProfileType::sRGB());
        picture->convertTo(ColorProfileType::melissaRGB());
        orvo::recoverHighlightHue(picture->data(), width, height, ColorProfileType::sRGB());
    }
    auto picture = glow(64, 64, ColorProfileType::sRGB());
    picture->convertTo(ColorProfileType::melissaRGB());
    for (int x = 0; x < 64; ++x) {
        picture->row(3)[x].r = std::nanf("");
        picture->row(9)[x].g = INFINITY;
        picture->row(20)[x].b = -3.0f;
    }
    orvo::recoverHighlightHue(picture->data(), 64, 64, ColorProfileType::sRGB());
    for (int y = 30; y < 64; ++y)
        for (int x = 0; x < 64; ++x)
            ASSERT_TRUE(std::isfinite(picture->row(y)[x].r + picture->row(y)[x].g + picture->row(y)[x].b));
}

TEST(HighlightHue, DoesNotDependOnThreads)
{
    planes::expectSameForAnyWorkers([] {
        auto picture = glow(701, 503, ColorProfileType::sRGB());
        picture->convertTo(ColorProfileType::melissaRGB());
        orvo::recoverHighlightHue(picture->data(), 701, 503, ColorProfileType::sRGB());
        const float* const samples = &picture->data()->r;
        return std::vector<float>(samples, samples + picture->pixelCount() * 3);
    });
}
