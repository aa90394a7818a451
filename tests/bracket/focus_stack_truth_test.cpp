#include "support/compare.hpp"
#include "support/temporary_folder.hpp"

#include <orvo_extensions/focus_stack.hpp>
#include <orvo_io/image_reader.hpp>
#include <scenes/focus_series_files.hpp>
#include <scenes/metrics.hpp>
#include <scenes/sharpness.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <optional>

using namespace orvo;
using namespace orvo::test;

namespace {

using Picture = _ImageData<PixelRGB<float>>;
using Settings = BracketSettings::FocusStacking;

constexpr double kFewestDecibels = 38.0;
constexpr double kLeastSharpness = 0.97; // of the best of the aligned inputs, pixel by pixel

std::shared_ptr<const Picture> stacked(const scenes::FocusSeries& series, bool align,
                                       std::optional<AlignmentQuality> quality = std::nullopt)
{
    const TemporaryFolder folder;
    scenes::FocusFileSettings files;
    files.format = scenes::FocusFileFormat::Tiff16;
    const auto paths = scenes::writeFocusSeries(series, folder.path(), files);
    Settings settings;
    settings.adjust.enabled = align;
    settings.adjust.referenceIndex = series.reference();
    if (quality)
        settings.adjust.quality = *quality;
    const auto image = makeFocusStack(paths, settings);
    return image ? image->developedOriginalImageData({}) : nullptr;
}

// The truth at the position of the stack: the crop is centred up to a few pixels, so the best of these positions
// counts.
struct Comparison
{
    double decibels = 0.0;
    std::shared_ptr<Picture> truth;
    _Point<int> place;
};

Comparison compared(const scenes::FocusSeries& series, const Picture& result)
{
    const auto truth = series.truth();
    const int freeX = truth->width() - result.width();
    const int freeY = truth->height() - result.height();
    Comparison best;
    best.decibels = -1.0;
    for (int y = 0; y <= freeY; ++y)
        for (int x = 0; x <= freeX; ++x) {
            const auto part = truth->copy({x, y, result.width(), result.height()});
            const double decibels = scenes::psnr(result, *part);
            if (decibels > best.decibels)
                best = {decibels, part, {x, y}};
        }
    return best;
}

} // namespace

TEST(FocusStackTruth, AStillSeries)
{
    const scenes::FocusSeries series{scenes::FocusSeriesSettings()};
    const auto result = stacked(series, false);
    ASSERT_TRUE(result);
    const double decibels = scenes::psnr(*result, *series.truth());
    std::cout << "still: " << decibels << " dB\n";
    EXPECT_GT(decibels, kFewestDecibels);

    const auto frames = series.frames();
    const std::vector<std::shared_ptr<const Picture>> inputs(frames.begin(), frames.end());
    const double sharpness = scenes::sharpnessRatio(*result, inputs, {});
    std::cout << "sharpness: " << sharpness << " of the best input\n";
    EXPECT_GT(sharpness, kLeastSharpness);
}

TEST(FocusStackTruth, ASeriesThatBreathesAndShifts)
{
    scenes::FocusSeriesSettings settings;
    settings.breathing = 0.02;
    settings.drift.shiftX = 0.9;
    settings.drift.shiftY = -0.6;
    const scenes::FocusSeries series(settings);
    const auto result = stacked(series, true);
    ASSERT_TRUE(result);
    const auto comparison = compared(series, *result);
    std::cout << "breathing and shifting: " << comparison.decibels << " dB, " << result->width() << " x "
              << result->height() << "\n";
    EXPECT_GT(comparison.decibels, kFewestDecibels);
    EXPECT_LT(result->width(), settings.size.width) << "borders missing in a frame are cropped";
    EXPECT_GT(result->width(), settings.size.width * 9 / 10);
}

TEST(FocusStackTruth, FineAlignmentKeepsTextureDownToThePixel)
{
    scenes::FocusSeriesSettings settings;
    settings.size = {768, 576};
    settings.breathing = 0.014;
    settings.texture = 0.6;
    settings.noise = scenes::SensorNoise{};
    const scenes::FocusSeries series(settings);
    const auto fine = stacked(series, true, AlignmentQuality::Fine);
    const auto fast = stacked(series, true, AlignmentQuality::Fast);
    ASSERT_TRUE(fine && fast);
    const auto comparison = compared(series, *fine);
    const double decibelsFast = compared(series, *fast).decibels;
    settings.breathing = 0.0;
    const auto still = stacked(scenes::FocusSeries(settings), false);
    const auto part = still->copy({comparison.place.x, comparison.place.y, fine->width(), fine->height()});
    const double sharpness = scenes::sharpnessRatio(*fine, {part}, {});
    std::cout << "fine: " << comparison.decibels << " dB, fast: " << decibelsFast << " dB; sharpness " << sharpness
              << " of that without breathing\n";
    EXPECT_GT(comparison.decibels, decibelsFast + 3.0);
    EXPECT_GT(comparison.decibels, 46.0);
    EXPECT_GT(sharpness, 0.98);
    EXPECT_LT(sharpness, 1.02) << "more would be ringing";
    EXPECT_GT(fine->width(), settings.size.width * 9 / 10);

    const auto byDefault = stacked(series, true);
    ASSERT_TRUE(byDefault);
    EXPECT_TRUE(sameBytes(*byDefault, *fast)) << "nobody gets other pixels unasked";
}

TEST(FocusStackTruth, NoiseDoesNotAccumulateFromAllFrames)
{
    scenes::FocusSeriesSettings settings;
    settings.noise = scenes::SensorNoise{};
    settings.isoSpeed = 400.0;
    const scenes::FocusSeries series(settings);
    const auto result = stacked(series, false);
    ASSERT_TRUE(result);
    settings.noise.reset();
    const double ofStack = scenes::psnr(*result, *series.truth());
    const double ofNoiseAlone = scenes::psnr(*series.frame(3), *scenes::FocusSeries(settings).frame(3));
    std::cout << "noisy: " << ofStack << " dB, the noise of one frame " << ofNoiseAlone << " dB\n";
    EXPECT_GT(ofStack, ofNoiseAlone - 1.5) << "a stacker that takes the largest detail everywhere loses more";
}
