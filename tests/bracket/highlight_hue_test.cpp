// The hue of clipped highlights in re-exposed pictures, against rendered lights whose true hue is known.
#include "bracket/deghosting.hpp"
#include "bracket/resample_frames.hpp"
#include "support/temporary_folder.hpp"

#include <orvo_core/parallel.hpp>
#include <orvo_image_processing/auto_exposure.hpp>
#include <orvo_image_processing/highlight_hue.hpp>
#include <orvo_io/image_writer.hpp>
#include <scenes/bright_light.hpp>
#include <scenes/exif.hpp>
#include <scenes/metrics.hpp>

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <optional>

using namespace orvo;
using scenes::BrightLightSettings;
using scenes::Picture;

namespace {

constexpr double kWorstDegrees = 5.0;
constexpr double kVisibleChroma = 0.02; // below it a tint is hardly seen beside white

std::shared_ptr<Picture> asLight(const Picture& picture)
{
    auto light = picture.copy({});
    light->convertTo(ColorProfileType::linearSRGB());
    return light;
}

double hueErrorOf(const Picture& picture, const Picture& truth)
{
    return scenes::hueError(*asLight(picture), truth, kVisibleChroma);
}

std::shared_ptr<Picture> brighter(const Picture& light, float ev)
{
    auto result = light.copy({});
    const float gain = std::exp2(ev);
    for (std::size_t i = 0; i < result->pixelCount(); ++i) {
        PixelRGB<float>& pixel = result->data()[i];
        pixel = {pixel.r * gain, pixel.g * gain, pixel.b * gain};
    }
    return result;
}

HDRFrame frameOf(const Picture& light, const std::shared_ptr<ColorProfile>& profile = ColorProfileType::sRGB())
{
    HDRFrame frame;
    frame.image = scenes::clippedPicture(light);
    frame.image->convertTo(ColorProfileType::melissaRGB());
    auto metadata = std::make_shared<ImageMetadata>();
    metadata->fileProfile = profile;
    frame.metadata = metadata;
    return frame;
}

std::vector<HDRFrame> ladderOf(const HDRFrame& frame, HighlightHue hue)
{
    HDRSettings settings;
    settings.highlightHue = hue;
    std::vector<HDRFrame> frames{frame};
    float unused = 0.0f;
    return std::get<0>(resampleFrames(frames, settings, unused));
}

// What a raw reader gives: each channel clips at its own level after white balance, and is then raised to the
// brightest.
HDRFrame rawFrameOf(const Picture& light)
{
    constexpr std::array<float, 3> kSaturation = {2.0f, 1.0f, 1.54f};
    constexpr float kFrom = 0.92f;
    constexpr float kReach = 0.07f;
    HDRFrame frame;
    frame.image = light.copy({});
    for (std::size_t i = 0; i < light.pixelCount(); ++i) {
        PixelRGB<float>& pixel = frame.image->data()[i];
        std::array<float, 3> sensor = {std::min(pixel.r, kSaturation[0]), std::min(pixel.g, kSaturation[1]),
                                       std::min(pixel.b, kSaturation[2])};
        const float brightest = *std::max_element(sensor.begin(), sensor.end());
        for (std::size_t c = 0; c < 3; ++c) {
            const float t = std::clamp((sensor[c] / kSaturation[c] - kFrom) / kReach, 0.0f, 1.0f);
            sensor[c] += t * t * (3.0f - 2.0f * t) * (brightest - sensor[c]);
        }
        pixel = {sensor[0], sensor[1], sensor[2]};
    }
    frame.image->convertTo(ColorProfileType::linearMelissaRGB());
    auto metadata = std::make_shared<ImageMetadata>();
    metadata->isRaw = true;
    frame.metadata = metadata;
    frame.rawMetadata = std::make_shared<AdditionalRawMetadataSync>();
    return frame;
}

} // namespace

class LightOnHue : public testing::TestWithParam<int>
{
protected:
    [[nodiscard]] static std::shared_ptr<Picture> lightOf(double chroma, _Size<int> size = {240, 160})
    {
        BrightLightSettings settings;
        settings.size = size;
        settings.hueDegrees = GetParam();
        settings.chroma = chroma;
        return scenes::brightLight(settings);
    }
};

TEST_P(LightOnHue, KeepsItsHueAtEveryRung)
{
    for (const double chroma : {0.05, 0.09, 0.13}) {
        const auto truth = lightOf(chroma);
        double perChannel = 0.0;
        for (const HDRFrame& rung : ladderOf(frameOf(*truth), HighlightHue::PerChannel))
            perChannel = std::max(perChannel, hueErrorOf(*rung.image, *truth));
        EXPECT_GT(perChannel, kWorstDegrees) << "the scene clips nothing";
        for (const HDRFrame& rung : ladderOf(frameOf(*truth), HighlightHue::Kept))
            EXPECT_LT(hueErrorOf(*rung.image, *truth), kWorstDegrees) << "chroma " << chroma << " at " << rung.ev;
    }
}

// From the rim of the glow to its middle, in the darkest rung: to white, without a step.
TEST_P(LightOnHue, GoesToWhiteSmoothly)
{
    const auto truth = lightOf(0.09, {960, 640});
    const auto rung = asLight(*ladderOf(frameOf(*truth), HighlightHue::Kept).front().image);
    const auto chroma = scenes::chromaOf(*rung);
    const float* const row = chroma->row(320);
    constexpr float kStep = 0.01f; // two steps of 8 bits in the file, between channels that are close together
    for (int x = 240; x < 479; ++x) {
        EXPECT_NEAR(row[x + 1], row[x], kStep) << x;
        EXPECT_LT(row[x + 1], row[x] + 0.5f * kStep) << x;
    }
    EXPECT_LT(row[479], 0.002f);
}

TEST_P(LightOnHue, AMapToADarkerFrameKeepsPaleHues)
{
    const auto truth = lightOf(0.05);
    const HDRFrame frame = frameOf(*truth);
    const auto recorded = asLight(*frame.image);
    for (const float ev : {-3.0f, -2.0f, -1.0f}) {
        const auto darker = frameOf(*brighter(*truth, ev)).image;
        const auto mapped = frame.image->copy({});
        autoExposureAdjustRGB(darker->data(), mapped->data(), mapped->width(), mapped->height());
        EXPECT_LT(hueErrorOf(*mapped, *recorded), kWorstDegrees) << ev;
    }
}

TEST_P(LightOnHue, AMapToADarkerFrameTakesRecoveredHues)
{
    for (const double chroma : {0.05, 0.09, 0.13}) {
        const auto truth = lightOf(chroma);
        const HDRFrame frame = frameOf(*truth);
        const auto recovered = frame.image->copy({});
        const int width = recovered->width();
        const int height = recovered->height();
        recoverHighlightHue(recovered->data(), width, height, ColorProfileType::sRGB());
        for (const float ev : {-3.0f, -2.0f, -1.0f}) {
            const auto darker = frameOf(*brighter(*truth, ev)).image;
            auto_exposure_data_t data;
            autoExposureEstimateRGB(darker->data(), frame.image->data(), width, height, data, 7);
            const ReexposedFrame map(nullptr, frame.image->data(), width, height, data);
            const auto mapped = frame.image->copy({});
            for (int y = 0; y < height; ++y)
                map.row(y, 0, width, nullptr, frame.image->row(y), mapped->row(y), recovered->row(y));
            EXPECT_LT(hueErrorOf(*mapped, *truth), kWorstDegrees) << "chroma " << chroma << " at " << ev;
        }
    }
}

TEST_P(LightOnHue, KeepsItsHueInRawDevelopment)
{
    for (const double chroma : {0.05, 0.09, 0.13}) {
        const auto truth = lightOf(chroma);
        const auto ladder = ladderOf(rawFrameOf(*truth), HighlightHue::PerChannel);
        for (std::size_t i = 0; i < ladder.size(); ++i)
            EXPECT_LT(hueErrorOf(*ladder[i].image, *truth), kWorstDegrees) << "chroma " << chroma << ", rung " << i;
    }
}

INSTANTIATE_TEST_SUITE_P(HighlightHue, LightOnHue, testing::Range(0, 360, 15));

// A pale wall, a window and a gray card: what is neutral or not clipped stays as it is.
TEST(HighlightHueOfLadders, LeavesTheMiddleRungOfOtherPicturesAlone)
{
    BrightLightSettings settings;
    settings.peak = 0.2; // clips nothing
    const HDRFrame dim = frameOf(*scenes::brightLight(settings));
    EXPECT_TRUE(std::equal(dim.image->data(), dim.image->data() + dim.image->pixelCount(),
                           ladderOf(dim, HighlightHue::Kept)[2].image->data()));
    settings.peak = 8.0;
    settings.chroma = 0.0;
    const HDRFrame gray = frameOf(*scenes::brightLight(settings));
    const auto kept = ladderOf(gray, HighlightHue::Kept);
    const auto plain = ladderOf(gray, HighlightHue::PerChannel);
    for (std::size_t i = 0; i < kept.size(); ++i)
        for (std::size_t p = 0; p < gray.image->pixelCount(); p += 7)
            ASSERT_NEAR(kept[i].image->data()[p].g, plain[i].image->data()[p].g, 2e-3f) << kept[i].ev;
}

TEST(HighlightHueOfLadders, TheFrameKeepsItsPixels)
{
    const auto truth = scenes::brightLight({});
    const HDRFrame frame = frameOf(*truth);
    const auto before = frame.image->copy({});
    const auto ladder = ladderOf(frame, HighlightHue::Kept);
    EXPECT_TRUE(std::equal(before->data(), before->data() + before->pixelCount(), frame.image->data()));
    EXPECT_FALSE(std::equal(before->data(), before->data() + before->pixelCount(), ladder[2].image->data()));
    EXPECT_NE(ladder[0].image, ladder[1].image);
}

namespace {

// A bracket of `light` with a black subject in front of the glow, which only the darkest frame shows.
std::vector<std::filesystem::path> bracketOf(const Picture& light, const std::vector<float>& evs,
                                             const std::filesystem::path& folder)
{
    std::vector<std::filesystem::path> paths;
    for (const float ev : evs) {
        const auto frame = scenes::clippedPicture(*brighter(light, ev));
        if (paths.empty())
            for (int y = 100; y < 150; ++y)
                std::fill_n(frame->row(y) + 60, 120, PixelRGB<float>{});
        scenes::ExifValues exif;
        exif.exposure = scenes::exposedBy({}, ev);
        auto settings = writeSettingsForPath("a.png");
        settings.bits = 8;
        settings.metadata = scenes::metadataWith(exif, frame->size());
        paths.push_back(folder / ("frame" + std::to_string(paths.size()) + ".png"));
        writeImage(paths.back(), *frame, settings);
    }
    return paths;
}

} // namespace

// Through the ladder of three frames, whose rungs are made late, and that of five. The merge mixes frames that clip, so
// its hue is off without deghosting too.
TEST(HueOfMerges, DeghostingDoesNotTurnIt)
{
    const test::TemporaryFolder folder;
    for (const auto& evs : {std::vector{-2.0f, -1.0f, 0.0f}, {-2.0f, -1.0f, 0.0f, 1.0f}})
        for (int hue = 0; hue < 360; hue += 30) {
            BrightLightSettings light;
            light.hueDegrees = hue;
            light.chroma = 0.13;
            const auto truth = scenes::brightLight(light);
            const auto paths = bracketOf(*truth, evs, folder.path());
            const auto errorOf = [&](bool deghosts) {
                HDRSettings settings;
                settings.highlightHue = HighlightHue::Kept;
                settings.ghostReduction = deghosts;
                settings.deghostAmount = DeghostAmount{2};
                settings.ghostRefImageIdx = 2; // the glow is blown out in it
                const auto merged = make_HDR(paths, settings, {}, nullptr).first;
                return merged ? hueErrorOf(*merged->developedOriginalImageData({}), *truth) : 360.0;
            };
            EXPECT_LT(errorOf(true), std::max(errorOf(false), kWorstDegrees))
                << hue << " degrees, " << evs.size() << " frames";
        }
}

// A black subject in a darker frame gives way to the reference, whose glow is blown out there.
TEST_P(LightOnHue, StaysWhereDeghostingTakesTheReference)
{
    for (const double chroma : {0.05, 0.09, 0.13}) {
        const auto truth = lightOf(chroma);
        const HDRFrame reference = frameOf(*truth);
        const HighlightHueRecovery recovery(reference.image->data(), reference.image->width(),
                                            reference.image->height(), ColorProfileType::sRGB());
        for (const float ev : {-2.0f, -1.0f}) { // darker ones are off by 5 degrees for their steps of 8 bits alone
            const HDRFrame darker = frameOf(*brighter(*truth, ev));
            for (int y = 100; y < 150; ++y)
                std::fill_n(darker.image->row(y) + 60, 120, PixelRGB<float>{});
            for (const int amount : {0, 2, 4}) {
                std::vector<HDRFrame> frames{darker, reference};
                frames[0].image = darker.image->copy({});
                processDeghosting<HDRFrame>(frames, DeghostAmount{amount}, 1, &recovery);
                int replaced = 0;
                for (std::size_t i = 0; i < darker.image->pixelCount(); ++i) {
                    PixelRGB<float>& pixel = frames[0].image->data()[i];
                    if (pixel == darker.image->data()[i])
                        pixel = {};
                    else
                        ++replaced;
                }
                EXPECT_GT(replaced, 50 * 120);
                EXPECT_LT(hueErrorOf(*frames[0].image, *truth), kWorstDegrees)
                    << "chroma " << chroma << " at " << ev << ", amount " << amount;
            }
        }
    }
}

// A subject in the darker frame gives way to the reference, which clips the glow there; recovered hues change only
// that.
TEST(HighlightHueOfLadders, DeghostingTakesTheHuesGivenForTheReference)
{
    const auto truth = scenes::brightLight({});
    const HDRFrame reference = frameOf(*truth);
    const HDRFrame darker = frameOf(*brighter(*truth, -2.0f));
    for (int y = 100; y < 150; ++y)
        std::fill_n(darker.image->row(y) + 60, 120, PixelRGB<float>{});
    const HighlightHueRecovery recovery(reference.image->data(), reference.image->width(), reference.image->height(),
                                        ColorProfileType::sRGB());
    const auto deghosted = [&](const HighlightHueRecovery* hues) {
        std::vector<HDRFrame> frames{darker, reference};
        frames[0].image = darker.image->copy({});
        processDeghosting<HDRFrame>(frames, DeghostAmount{2}, 1, hues);
        return frames[0].image;
    };
    const auto plain = deghosted(nullptr);
    const auto recovered = deghosted(&recovery);
    std::size_t changed = 0;
    for (std::size_t i = 0; i < plain->pixelCount(); ++i) {
        if (plain->data()[i] == recovered->data()[i])
            continue;
        ++changed;
        const PixelRGB<float>& shown = reference.image->data()[i];
        EXPECT_GT(std::max({shown.r, shown.g, shown.b}), 0.7f) << i;
    }
    EXPECT_GT(changed, 500u);
}
