// Radiance merged from rendered brackets, against the light that the scene sends.
#include "support/temporary_folder.hpp"

#include <orvo_core/parallel.hpp>
#include <orvo_extensions/radiance.hpp>
#include <scenes/bracket_files.hpp>

#include <gmock/gmock.h>

#include <algorithm>
#include <cmath>
#include <map>
#include <vector>

namespace orvo {
namespace {

using testing::HasSubstr;
using Picture = _ImageData<PixelRGB<float>>;

class Radiance : public testing::Test
{
protected:
    Radiance()
    {
        recipe.scene.size = {360, 240};
        recipe.evs = {0.0, -2.0, 2.0, -4.0, 4.0, -6.0}; // not sorted; the first is the middle one
        recipe.camera.noise = scenes::SensorNoise{};
        recipe.camera.response = scenes::ResponseCurve::Filmic;
    }

    std::vector<std::filesystem::path> written(const scenes::BracketFileSettings& settings = {}) const
    {
        return scenes::writeBracket(scenes::Bracket(recipe), folder.path(), settings);
    }
    [[nodiscard]] std::shared_ptr<Picture> truth() const { return scenes::Bracket(recipe).radiance(0, true); }

    static std::shared_ptr<const Picture> merged(const std::vector<std::filesystem::path>& paths,
                                                 const RadianceSettings& settings = {})
    {
        const RadianceMap map = mergeRadiance(paths, settings, {}, {});
        EXPECT_TRUE(map.image) << describe(lastFailure().value_or(Failure{}));
        return map.image ? map.image->developedOriginalImageData({}) : nullptr;
    }

    scenes::BracketRecipe recipe;
    test::TemporaryFolder folder;
};

double luminance(const PixelRGB<float>& p)
{
    return 0.2126 * static_cast<double>(p.r) + 0.7152 * static_cast<double>(p.g) + 0.0722 * static_cast<double>(p.b);
}

/// Median of log2(found / true) of the pixels of each stop of true luminance, for stops with many pixels.
std::map<int, double> errorByStop(const Picture& found, const Picture& truth)
{
    EXPECT_EQ(found.size(), truth.size());
    std::map<int, std::vector<double>> errors;
    for (std::size_t i = 0; i < truth.pixelCount(); ++i) {
        const double expected = luminance(truth.data()[i]);
        const double seen = luminance(found.data()[i]);
        if (expected > 0.0 && seen > 0.0)
            errors[static_cast<int>(std::floor(std::log2(expected)))].push_back(std::log2(seen / expected));
    }
    std::map<int, double> medians;
    constexpr std::size_t kMany = 100;
    for (auto& [stop, all] : errors)
        if (all.size() >= kMany) {
            std::nth_element(all.begin(), all.begin() + static_cast<std::ptrdiff_t>(all.size() / 2), all.end());
            medians[stop] = all[all.size() / 2];
        }
    return medians;
}

/// The medians differ by less than `stops` from one another over at least ten stops: the result is proportional to the
/// light.
void expectProportional(const std::map<int, double>& medians, double stops)
{
    ASSERT_GE(medians.size(), 10u);
    const auto [least, most] = std::minmax_element(medians.begin(), medians.end(),
                                                   [](const auto& a, const auto& b) { return a.second < b.second; });
    EXPECT_LT(most->second - least->second, stops) << "from stop " << least->first << " to " << most->first;
}

constexpr double kFourPercent = 0.0566; // log2(1.04)
constexpr double kOnePercent = 0.01436;

TEST_F(Radiance, OfJpegsWithAResponseOfTheirOwnIsProportionalToTheLight)
{
    const auto found = merged(written());
    ASSERT_TRUE(found);
    EXPECT_TRUE(found->colorProfile()->isLinear());
    const auto medians = errorByStop(*found, *truth());
    expectProportional(medians, kFourPercent);
}

TEST_F(Radiance, OfRawFilesHasTheScaleOfTheMiddleFrame)
{
    auto found = merged(written({.format = scenes::BracketFileFormat::Dng}))->copy({});
    found->convertTo(ColorProfileType::linearSRGB());
    const auto medians = errorByStop(*found, *truth());
    expectProportional(medians, kFourPercent);
}

TEST_F(Radiance, OfSixteenBitsWithoutNoiseIsExact)
{
    recipe.camera.noise.reset();
    recipe.camera.response = scenes::ResponseCurve::Srgb;
    const auto medians = errorByStop(*merged(written({.format = scenes::BracketFileFormat::Tiff16})), *truth());
    expectProportional(medians, kOnePercent);
    for (const auto& [stop, error] : medians)
        EXPECT_LT(std::abs(error), kOnePercent) << stop;
}

TEST_F(Radiance, IsLessNoisyThanAnyFrame)
{
    recipe.camera.response = scenes::ResponseCurve::Linear; // known from the profile
    const auto paths = written({.format = scenes::BracketFileFormat::Tiff16});
    const auto light = truth();
    const auto noiseOf = [&](const Picture& found, double scale) {
        double sum = 0.0;
        int count = 0;
        for (std::size_t i = 0; i < light->pixelCount(); ++i) {
            const auto& expected = light->data()[i];
            // Neither clipped in the brightest frame nor black in the others.
            if (std::max({expected.r, expected.g, expected.b}) > 0.05f || expected.g < 0.002f)
                continue;
            const double error = static_cast<double>(found.data()[i].g) * scale / static_cast<double>(expected.g) - 1.0;
            sum += error * error;
            ++count;
        }
        EXPECT_GT(count, 1000);
        return std::sqrt(sum / count);
    };
    const double together = noiseOf(*merged(paths), 1.0);
    const double brightest = noiseOf(*merged({paths[4]}), std::exp2(-4.0));
    const double middle = noiseOf(*merged({paths[0]}), 1.0);
    EXPECT_LT(together, brightest);
    EXPECT_LT(brightest, middle / 3.0);
    EXPECT_NEAR(together, brightest / std::sqrt(1.33), 0.03 * brightest)
        << "photon noise: all have 1.33 times the light of the brightest";
}

TEST_F(Radiance, SaturatedEverywhereIsTheValueOfTheDarkestFrame)
{
    recipe.camera.noise.reset();
    recipe.camera.response = scenes::ResponseCurve::Srgb;
    recipe.evs = {4.0, 6.0};
    const auto paths = written({.format = scenes::BracketFileFormat::Tiff16});
    const RadianceMap map = mergeRadiance(paths, {}, {}, {});
    ASSERT_TRUE(map.image);
    EXPECT_GT(map.clipped, 0.01);
    EXPECT_LT(map.clipped, 0.9);
    const auto light = truth();
    const auto found = map.image->developedOriginalImageData({});
    for (std::size_t i = 0; i < light->pixelCount(); ++i)
        if (light->data()[i].r * 16.0f > 1.01f) {
            ASSERT_NEAR(found->data()[i].r, 4.0f, 1e-3f) << "full scale of a quarter of the light of the middle frame";
        }
}

TEST_F(Radiance, AnyOrderAndAnyNumberOfThreads)
{
    recipe.evs = {-2.0, 0.0, 2.0};
    auto paths = written();
    const auto first = merged(paths);
    std::swap(paths[0], paths[2]);
    const auto second = merged(paths);
    const WorkerLimit limit(1);
    const auto single = merged(paths);
    for (std::size_t i = 0; i < first->pixelCount(); ++i) {
        ASSERT_EQ(first->data()[i], second->data()[i]);
        ASSERT_EQ(first->data()[i], single->data()[i]);
    }
}

TEST_F(Radiance, HandheldFramesAreAligned)
{
    recipe.scene.size = {480, 320};
    recipe.evs = {-2.0, 0.0, 2.0};
    recipe.views = scenes::handShake(3, 1, {.rotationDegrees = 0.2, .shiftX = 6.0, .shiftY = 5.0}, 3);
    const auto paths = written();
    RadianceSettings settings;
    settings.alignment = true;
    const auto aligned = merged(paths, settings);
    ASSERT_TRUE(aligned);
    EXPECT_LT(aligned->width(), 480) << "cropped to what all frames show";
    EXPECT_GT(aligned->width(), 440);
    // Where the middle frame, alone, is neither clipped nor noisy, the same.
    const auto middle = merged({paths[1]});
    const int left = (480 - aligned->width()) / 2;
    EXPECT_NEAR(left, 6, 6);
}

TEST_F(Radiance, ReportsExposuresAndWhite)
{
    const RadianceMap map = mergeRadiance(written(), {}, {}, {});
    EXPECT_THAT(map.evs, testing::Pointwise(testing::FloatNear(0.01f), {0.0f, -2.0f, 2.0f, -4.0f, 4.0f, -6.0f}));
    // 1/60 s at f/8 and ISO 100.
    EXPECT_NEAR(map.whiteLuminance, 120.0f * 64.0f * 60.0f / 100.0f, 50.0f);
}

TEST_F(Radiance, NeedsExposures)
{
    recipe.evs = {-2.0, 0.0, 2.0};
    const auto paths = written({.exif = false});
    EXPECT_FALSE(mergeRadiance(paths, {}, {}, {}).image);
    ASSERT_TRUE(lastFailure());
    EXPECT_EQ(lastFailure()->kind, FailureKind::UnfittingPictures);
    EXPECT_EQ(lastFailure()->file, paths[0]);
    EXPECT_THAT(lastFailure()->sentence, HasSubstr("exposure"));

    RadianceSettings settings;
    settings.evs = {-2.0f, 0.0f, 2.0f};
    const auto given = merged(paths, settings);
    const auto stated = merged(written());
    ASSERT_TRUE(given && stated);
    const auto medians = errorByStop(*given, *stated);
    for (const auto& [stop, error] : medians)
        EXPECT_LT(std::abs(error), kFourPercent) << stop;

    settings.evs = {0.0f, 0.0f, 0.0f};
    EXPECT_FALSE(mergeRadiance(paths, settings, {}, {}).image);
    EXPECT_THAT(lastFailure()->sentence, HasSubstr("same exposure"));
    settings.evs = {0.0f};
    EXPECT_FALSE(mergeRadiance(paths, settings, {}, {}).image);
}

TEST_F(Radiance, RefusesWhatDoesNotFit)
{
    recipe.evs = {-2.0, 0.0};
    auto paths = written();
    recipe.scene.size = {120, 80};
    const auto small = written({.prefix = "small"});
    EXPECT_FALSE(mergeRadiance({paths[0], small[1]}, {}, {}, {}).image);
    EXPECT_EQ(lastFailure()->file, small[1]);
    EXPECT_FALSE(mergeRadiance({paths[0], folder / "missing.jpg"}, {}, {}, {}).image);
    EXPECT_EQ(lastFailure()->kind, FailureKind::UnreadableFile);
    EXPECT_FALSE(mergeRadiance({}, {}, {}, {}).image);
    EXPECT_FALSE(mergeRadiance(paths, {}, [] { return true; }, {}).image);
    EXPECT_EQ(lastFailure()->kind, FailureKind::Cancelled);
}

TEST_F(Radiance, ProgressRises)
{
    recipe.evs = {-2.0, 0.0};
    std::vector<float> shares;
    ASSERT_TRUE(mergeRadiance(written(), {}, {}, [&](float share) { shares.push_back(share); }).image);
    EXPECT_TRUE(std::is_sorted(shares.begin(), shares.end()));
    EXPECT_GT(shares.size(), 5u);
}

} // namespace
} // namespace orvo
