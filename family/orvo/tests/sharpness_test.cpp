// Rendered scenes that other programs reduced: what the upscaler takes them for, and what it gains.
#include "orvo_test_pictures.hpp"
#include "upscaling/filter_bank.hpp"
#include "upscaling/noise_level.hpp"
#include "upscaling/picture_sharpness.hpp"

#include <orvo/upscaling.hpp>
#include <scenes/halving.hpp>
#include <scenes/homography.hpp>
#include <scenes/metrics.hpp>
#include <scenes/radiance_scene.hpp>

#include <gtest/gtest.h>

#include <algorithm>
#include <random>

namespace {

using orvo::PicturePointer;
using orvo::scenes::Halving;
using test::Picture;
using test::Pixel;

float encoded(float linear)
{
    const float v = std::clamp(linear, 0.0f, 1.0f);
    return v <= 0.0031308f ? 12.92f * v : 1.055f * std::pow(v, 1.0f / 2.4f) - 0.055f;
}

// A photograph of the room, bright enough to show its inside, and as crisp as a picture that was reduced well.
PicturePointer photograph(std::uint64_t seed)
{
    constexpr float kBrightness = 16.0f; // 4 EV
    const orvo::_Size<int> size(1280, 864);
    const orvo::scenes::RadianceScene scene({.size = size, .seed = seed});
    Picture picture(size, orvo::ColorProfileType::sRGB());
    for (int y = 0; y < size.height; ++y) {
        scene.radianceRow(orvo::scenes::kIdentity, y, size.width, picture.row(y));
        for (int x = 0; x < size.width; ++x) {
            Pixel& p = picture.row(y)[x];
            p = {encoded(kBrightness * p.r), encoded(kBrightness * p.g), encoded(kBrightness * p.b)};
        }
    }
    return orvo::scenes::halved(picture, orvo::scenes::halvings().front());
}

PicturePointer inWorkingSpace(const Picture& picture)
{
    PicturePointer result;
    picture.colorTransform(result, orvo::ColorProfileType::melissaRGB(), true);
    return result;
}

float sharpnessOf(const Picture& picture)
{
    return orvo::details::pictureSharpness(picture, orvo::details::noiseLevel(picture),
                                           orvo::details::FilterBanks::builtIn().sharpnessModel());
}

PicturePointer doubled(const PicturePointer& small)
{
    orvo::UpscaleAISettings settings;
    settings.builtIn = true;
    return orvo::upscaleX(small, settings, nullptr, nullptr, {});
}

class PictureReducedBy : public testing::TestWithParam<Halving>
{
protected:
    const Halving& halving = GetParam();
    const PicturePointer truth = photograph(/*seed=*/1);
    const PicturePointer small = inWorkingSpace(*orvo::scenes::halved(*truth, halving));
    const PicturePointer cubic = small->resize(truth->size(), {}, true);
};

TEST_P(PictureReducedBy, IsRecognised)
{
    if (halving.aliases) {
        EXPECT_GT(sharpnessOf(*small), 0.57f);
    } else {
        EXPECT_LT(sharpnessOf(*small), 0.5f);
    }
}

TEST_P(PictureReducedBy, GainsOverCubic)
{
    const PicturePointer reference = inWorkingSpace(*truth);
    const double gain = orvo::scenes::psnr(*doubled(small), *reference) - orvo::scenes::psnr(*cubic, *reference);
    // With the filters for soft pictures the aliased ones gain nothing or lose a quarter of a decibel.
    EXPECT_GT(gain, halving.aliases ? 0.4 : 1.2);
}

// The mean of what exceeds the range of the 3 x 3 samples of `small` around, which is what shows as ringing.
double overshoot(const Picture& large, const Picture& small)
{
    double sum = 0.0;
    for (int y = 2; y + 2 < large.height(); ++y)
        for (int x = 2; x + 2 < large.width(); ++x) {
            float low = small.row(y / 2)[x / 2].g;
            float high = low;
            for (int dy = -1; dy <= 1; ++dy)
                for (int dx = -1; dx <= 1; ++dx) {
                    const float v = small.row(y / 2 + dy)[x / 2 + dx].g;
                    low = std::min(low, v);
                    high = std::max(high, v);
                }
            const float v = large.row(y)[x].g;
            sum += static_cast<double>(std::max({v - high, low - v, 0.0f}));
        }
    return sum / static_cast<double>(large.pixelCount());
}

TEST_P(PictureReducedBy, RingsLittle)
{
    // With the filters for soft pictures the aliased ones have 2.3 times the overshoot of the cubic. What is less sharp
    // than the truth is made sharper, which takes some overshoot.
    EXPECT_LT(overshoot(*doubled(small), *small), (halving.aliases ? 1.2 : 1.7) * overshoot(*cubic, *small));
}

TEST_P(PictureReducedBy, LooksAsSharpWithNoise)
{
    const float clean = sharpnessOf(*small);
    for (const float sigma : {0.004f, 0.01f, 0.02f}) {
        std::mt19937 random(3);
        std::normal_distribution<float> values(0.0f, sigma);
        const auto noisy = small->copy({});
        for (std::size_t i = 0; i < noisy->pixelCount(); ++i)
            for (float* const v : {&noisy->data()[i].r, &noisy->data()[i].g, &noisy->data()[i].b})
                *v += values(random);
        EXPECT_NEAR(sharpnessOf(*noisy), clean, 0.05f) << sigma;
    }
}

std::string nameOf(const testing::TestParamInfo<Halving>& info)
{
    std::string name = info.param.name;
    std::erase(name, ' ');
    return name;
}

INSTANTIATE_TEST_SUITE_P(Each, PictureReducedBy, testing::ValuesIn(orvo::scenes::halvings()), nameOf);

TEST(PictureSharpness, IsInTheMiddleWithoutStructure)
{
    const auto sharpness = [](orvo::_Size<int> size, float deviation) {
        std::mt19937 random(3);
        std::normal_distribution<float> values(0.5f, deviation);
        return sharpnessOf(*test::drawn(size, orvo::ColorProfileType::melissaRGB(), [&](int, int) {
            const float v = values(random);
            return Pixel{v, v, v};
        }));
    };
    EXPECT_EQ(sharpness({320, 240}, 1e-6f), 0.5f);
    EXPECT_EQ(sharpness({320, 240}, 0.05f), 0.5f) << "noise";
    EXPECT_EQ(sharpness({1, 1}, 0.1f), 0.5f);
    EXPECT_EQ(sharpness({19, 400}, 0.1f), 0.5f);
}

} // namespace
