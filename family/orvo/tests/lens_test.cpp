#include "lens/lens_database.hpp"
#include "orvo_test_pictures.hpp"

#include <orvo/lens_correction.hpp>
#include <orvo_core/parallel.hpp>

#include <gmock/gmock.h>

#include <future>

namespace {

using orvo::ColorProfileType;
using orvo::PicturePointer;
using test::Pixel;

constexpr orvo::_Size<int> kSize{600, 400};

std::shared_ptr<orvo::ImageMetadata> zoomOnFullFrame(float focalLength)
{
    auto metadata = std::make_shared<orvo::ImageMetadata>();
    metadata->cameraMake = "Canon";
    metadata->cameraModel = "Canon EOS 6D";
    metadata->lensModel = "EF24-105mm f/4L IS USM";
    metadata->focalLength = focalLength;
    metadata->aperture = 4.0f;
    return metadata;
}

class Lens : public testing::Test
{
protected:
    void SetUp() override
    {
        if (!orvo::details::findLensModel(*zoomOnFullFrame(24.0f), kSize))
            GTEST_SKIP() << "lensfun's database is not installed, or lacks the lens";
    }
};

PicturePointer gray(float v)
{
    return test::drawn(kSize, ColorProfileType::melissaRGB(), [v](int, int) { return Pixel{v, v, v}; });
}

TEST(UnknownLens, ReturnsThePictureItself)
{
    const PicturePointer picture = test::noise(kSize, ColorProfileType::melissaRGB(), 1);
    const PicturePointer before = test::copyOf(picture);
    std::vector<std::shared_ptr<orvo::ImageMetadata>> unknown(7);
    for (auto& metadata : unknown)
        metadata = zoomOnFullFrame(24.0f);
    unknown[0]->cameraModel = "No such camera 17";
    unknown[1]->lensModel = "No such lens 17-19mm f/1";
    unknown[2]->lensModel.clear();
    unknown[3]->focalLength = 0.0f;
    unknown[4]->focalLength = test::kNaN;
    unknown[5]->focalLength = 400.0f; // outside of this zoom's range
    unknown[6] = std::make_shared<orvo::ImageMetadata>();
    for (std::size_t i = 0; i < unknown.size(); ++i)
        EXPECT_EQ(orvo::applyAutoLensCorrection(picture, unknown[i], nullptr), picture) << i;
    EXPECT_EQ(orvo::applyAutoLensCorrection(picture, nullptr, nullptr), picture);
    EXPECT_EQ(orvo::applyAutoLensCorrection(nullptr, zoomOnFullFrame(24.0f), nullptr), nullptr);
    EXPECT_TRUE(test::bytesEqual(*picture, *before));
}

TEST_F(Lens, BrightensTheCornersInLinearLight)
{
    const PicturePointer picture = gray(0.4f);
    const PicturePointer corrected = orvo::applyAutoLensCorrection(picture, zoomOnFullFrame(24.0f), nullptr);
    ASSERT_NE(corrected, picture);
    ASSERT_EQ(corrected->size(), picture->size());
    EXPECT_EQ(corrected->colorProfile(), picture->colorProfile());
    EXPECT_NEAR(corrected->row(200)[300].g, 0.4f, 2e-3f);
    EXPECT_GT(corrected->row(2)[2].g, 0.45f);
    EXPECT_EQ(corrected->row(2)[2].r, corrected->row(2)[2].b);
    // A gain in light: equal for all tones.
    const auto cornerGain = [](float tone) {
        const PicturePointer result = orvo::applyAutoLensCorrection(gray(tone), zoomOnFullFrame(24.0f), nullptr);
        return orvo::linearFromSRGBCurve(result->row(2)[2].g) / orvo::linearFromSRGBCurve(tone);
    };
    EXPECT_NEAR(cornerGain(0.2f) / cornerGain(0.5f), 1.0f, 1e-3f);
}

// The two directions of the database agree: a picture drawn as the lens would show it becomes straight again.
TEST_F(Lens, StraightensWhatTheModelBends)
{
    const auto model = orvo::details::findLensModel(*zoomOnFullFrame(24.0f), kSize);
    ASSERT_TRUE(model->bends());
    std::vector<float> places(static_cast<std::size_t>(kSize.width) * 2);
    float mostBent = 0.0f;
    const PicturePointer ramp = test::drawn(kSize, nullptr, [](int x, int y) {
        return Pixel{static_cast<float>(x) / 1000.0f, static_cast<float>(y) / 1000.0f, 0.5f};
    });
    auto metadata = zoomOnFullFrame(24.0f);
    metadata->aperture = 16.0f;
    ramp->setColorProfile(ColorProfileType::linearMelissaRGB()); // ratios of channels are then independent of a gain
    const PicturePointer corrected = orvo::applyAutoLensCorrection(ramp, metadata, nullptr);
    ASSERT_NE(corrected, ramp);
    for (const int y : {5, 100, 390}) {
        model->sourcePlaces(y, places.data());
        for (const std::size_t x : {4u, 150u, 590u}) {
            mostBent = std::max(
                mostBent, std::hypot(places[2 * x] - static_cast<float>(x), places[2 * x + 1] - static_cast<float>(y)));
            const Pixel& p = corrected->row(y)[x];
            EXPECT_NEAR(p.r / p.b * 500.0f, places[2 * x], 0.05f);
            EXPECT_NEAR(p.g / p.b * 500.0f, places[2 * x + 1], 0.05f);
        }
    }
    EXPECT_GT(mostBent, 1.0f);
}

TEST_F(Lens, LeavesNoEmptyBorder)
{
    const PicturePointer corrected = orvo::applyAutoLensCorrection(gray(0.4f), zoomOnFullFrame(24.0f), nullptr);
    const auto model = orvo::details::findLensModel(*zoomOnFullFrame(24.0f), kSize);
    std::vector<float> places(static_cast<std::size_t>(kSize.width) * 2);
    constexpr float kSlack = 1.0f; // px: the scale is found by trial
    for (int y = 0; y < kSize.height; ++y) {
        model->sourcePlaces(y, places.data());
        for (std::size_t x = 0; x < static_cast<std::size_t>(kSize.width); ++x) {
            ASSERT_GT(places[2 * x], -kSlack);
            ASSERT_LT(places[2 * x], static_cast<float>(kSize.width - 1) + kSlack);
            ASSERT_GT(places[2 * x + 1], -kSlack);
            ASSERT_LT(places[2 * x + 1], static_cast<float>(kSize.height - 1) + kSlack);
        }
    }
    EXPECT_TRUE(test::finite(*corrected));
}

TEST_F(Lens, IsFoundByTheCameraIfItIsFixed)
{
    orvo::ImageMetadata compact;
    compact.cameraMake = "Canon";
    compact.cameraModel = "Canon PowerShot S95";
    compact.focalLength = 6.0f;
    compact.aperture = 2.0f;
    EXPECT_NE(orvo::details::findLensModel(compact, kSize), nullptr);
}

TEST_F(Lens, TakesAnySizeAndNumberOfThreads)
{
    std::vector<orvo::_Size<int>> sizes = test::kAwkwardSizes;
    sizes.push_back({301, 203});
    for (const orvo::_Size<int>& size : sizes) {
        const PicturePointer picture = test::noise(size, ColorProfileType::melissaRGB(), 1);
        PicturePointer one;
        {
            const orvo::WorkerLimit limit(1);
            one = orvo::applyAutoLensCorrection(picture, zoomOnFullFrame(24.0f), nullptr);
        }
        const orvo::WorkerLimit limit(2);
        const PicturePointer two = orvo::applyAutoLensCorrection(picture, zoomOnFullFrame(24.0f), nullptr);
        EXPECT_TRUE(test::bytesEqual(*one, *two)) << size.width;
        EXPECT_TRUE(test::finite(*one)) << size.width;
    }
}

TEST_F(Lens, IsUsableFromSeveralThreadsAtOnce)
{
    const PicturePointer picture = test::noise({60, 40}, ColorProfileType::melissaRGB(), 1);
    const PicturePointer expected = orvo::applyAutoLensCorrection(picture, zoomOnFullFrame(35.0f), nullptr);
    std::vector<std::future<PicturePointer>> results;
    for (int i = 0; i < 8; ++i)
        results.push_back(std::async(std::launch::async, [&] {
            return orvo::applyAutoLensCorrection(picture, zoomOnFullFrame(35.0f), nullptr);
        }));
    for (auto& result : results)
        EXPECT_TRUE(test::bytesEqual(*result.get(), *expected));
}

} // namespace
