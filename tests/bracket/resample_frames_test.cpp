#include "bracket/resample_frames.hpp"
#include "support/pictures.hpp"

#include <orvo/raw_development.hpp>
#include <orvo_common/console_trace.hpp>
#include <orvo_image_processing/exposure_curve.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <limits>
#include <stdexcept>

using namespace orvo;
using namespace orvo::test;
using testing::HasSubstr;

namespace {

std::vector<HDRFrame> frames(const std::vector<float>& evs, bool raw = false)
{
    std::vector<HDRFrame> result;
    for (std::size_t i = 0; i < evs.size(); ++i) {
        HDRFrame frame;
        frame.image = plain(8, 6, 0.1f * static_cast<float>(i + 1));
        auto metadata = std::make_shared<ImageMetadata>();
        metadata->isRaw = raw;
        if (raw) {
            frame.image->setColorProfile(ColorProfileType::linearMelissaRGB());
            frame.rawMetadata = std::make_shared<AdditionalRawMetadataSync>();
        }
        frame.metadata = metadata;
        frame.path = "frame" + std::to_string(i);
        frame.ev = evs[i];
        frame.evExtra = 7.0f;
        result.push_back(frame);
    }
    return result;
}

struct Resampled
{
    std::vector<HDRFrame> ladder;
    int ghostIndex = 0;
    float unused = 42.0f;
};

Resampled resample(std::vector<HDRFrame>& input, const HDRSettings& settings = {})
{
    Resampled result;
    std::tie(result.ladder, result.ghostIndex) = resampleFrames(input, settings, result.unused);
    return result;
}

// Counts developments, and cancels during one of them.
class DevelopmentSpy final : public AdditionalRawMetadata
{
public:
    DevelopmentSpy(std::shared_ptr<std::atomic<unsigned char>> cancelFlag, int cancelAt)
        : flag(std::move(cancelFlag)), last(cancelAt)
    {}
    void wait() override
    {
        if (++developments == last)
            *flag = 1;
    }
    [[nodiscard]] float getAutoDetectedTone() override { return 0.0f; }
    void prepareLensCorrection() override {}
    [[nodiscard]] bool isLensCorrectionPrepared() const override { return false; }
    [[nodiscard]] bool hasPendingChromaticAberration() const override { return true; }
    void dismissChromaticAberration() override {}

    int developments = 0;

private:
    std::shared_ptr<std::atomic<unsigned char>> flag;
    int last;
};

std::string traceOf(const std::function<void()>& call)
{
    grfx::cout.quiet = 0;
    testing::internal::CaptureStdout();
    call();
    grfx::cout.quiet = 1;
    return testing::internal::GetCapturedStdout();
}

std::size_t timesIn(const std::string& trace, const std::string& text)
{
    std::size_t times = 0;
    for (std::size_t at = trace.find(text); at != std::string::npos; at = trace.find(text, at + 1))
        ++times;
    return times;
}

void expectRungs(const std::vector<HDRFrame>& ladder, float low, float high, float step, std::size_t count)
{
    ASSERT_EQ(ladder.size(), count);
    for (std::size_t i = 0; i < count; ++i)
        EXPECT_NEAR(ladder[i].ev, low + step * static_cast<float>(i), 1e-5f);
    EXPECT_NEAR(ladder.back().ev, high, 1e-5f);
}

} // namespace

struct LadderCase
{
    std::vector<float> evs;
    bool raw;
    float low;
    float high;
    float step;
    std::size_t rungs;
};

class Ladders : public testing::TestWithParam<LadderCase>
{};

TEST_P(Ladders, AreRegular)
{
    const LadderCase& expected = GetParam();
    auto input = frames(expected.evs, expected.raw);
    const auto result = resample(input);
    expectRungs(result.ladder, expected.low, expected.high, expected.step, expected.rungs);
    EXPECT_EQ(result.ghostIndex, -1);
    EXPECT_EQ(result.unused, 42.0f);
}

INSTANTIATE_TEST_SUITE_P(ResampleFrames, Ladders,
                         testing::Values(LadderCase{{0}, false, -2, 2, 1, 5}, LadderCase{{0}, true, -3, 3, 1.5f, 5},
                                         LadderCase{{-1, 1}, false, -2, 2, 4.0f / 3, 4},
                                         LadderCase{{-2, 0, 2}, true, -2.5f, 2.5f, 1.25f, 5},
                                         LadderCase{{-4, 0, 4}, true, -4, 4, 8.0f / 6, 7},
                                         // Nearly equal exposures are widened, and keep at least four rungs.
                                         LadderCase{{-0.01f, 0, 0.01f}, false, -2, 2, 4.0f / 3, 4},
                                         LadderCase{{-1, 1}, true, -2.5f, 2.5f, 1.25f, 5},
                                         // Steps of one and a half EV at the most.
                                         LadderCase{{0, 6}, false, 0, 6, 1.5f, 5},
                                         LadderCase{{0, 7}, false, 0, 7, 1.4f, 6},
                                         // The centre stays where it is.
                                         LadderCase{{0, 1}, false, -1.5f, 2.5f, 4.0f / 3, 4},
                                         // More than six steps are never made.
                                         LadderCase{{-9, 0, 9}, false, -9, 9, 3, 7}));

TEST(ResampleFrames, ARungComesFromTheNearestFrameThroughTheCurve)
{
    auto input = frames({-2, 0, 2});
    const auto result = resample(input);
    expectRungs(result.ladder, -2, 2, 4.0f / 3, 4);
    const float sources[] = {0.1f, 0.2f, 0.2f, 0.3f};
    const float centres[] = {-2, 0, 0, 2};
    for (std::size_t i = 0; i < 4; ++i) {
        const float delta = result.ladder[i].ev - centres[i];
        EXPECT_EQ(result.ladder[i].image->data()[0].g, apply_exposure(sources[i], delta * 0.1f + 1.0f, 0.9f, 0.5f))
            << i;
    }
}

TEST(ResampleFrames, ARungIsACopyOfItsFrame)
{
    auto input = frames({-2, 0, 2});
    const auto result = resample(input);
    EXPECT_EQ(result.ladder[0].path, "frame0");
    EXPECT_EQ(result.ladder[0].evExtra, 7.0f);
    EXPECT_EQ(result.ladder[0].metadata, input[0].metadata);
    EXPECT_NE(result.ladder[0].image, input[0].image) << "copied even where nothing has to be shifted";
    EXPECT_TRUE(sameBytes(*result.ladder[0].image, *input[0].image));
}

TEST(ResampleFrames, AtEqualDistanceTheDarkerFrameIsTaken)
{
    // An odd ladder has a rung in the very middle: five rungs of raw frames.
    auto raw = frames({-2, 2}, true);
    const auto middle = resample(raw);
    ASSERT_EQ(middle.ladder.size(), 5u);
    EXPECT_EQ(middle.ladder[2].ev, 0.0f);
    EXPECT_EQ(middle.ladder[2].path, "frame0");
}

TEST(ResampleFrames, TheLastRungOfTheGhostReferenceCounts)
{
    HDRSettings settings;
    settings.ghostReduction = true;
    auto input = frames({-2, 0, 2}); // rungs 1 and 2 come from the middle frame
    EXPECT_EQ(resample(input, settings).ghostIndex, 2);
    input[0].isGhostReference = true;
    EXPECT_EQ(resample(input, settings).ghostIndex, 0);
    input[0].isGhostReference = false;
    input[2].isGhostReference = true;
    EXPECT_EQ(resample(input, settings).ghostIndex, 3);
}

TEST(ResampleFrames, FourFramesAreTheLadder)
{
    auto input = frames({-3, -1, 0, 2});
    const auto result = resample(input);
    ASSERT_EQ(result.ladder.size(), 4u);
    EXPECT_EQ(result.ghostIndex, -1);
    for (std::size_t i = 0; i < 4; ++i) {
        EXPECT_EQ(result.ladder[i].image, input[i].image) << "shared, not copied";
        EXPECT_TRUE(result.ladder[i].path.empty());
        EXPECT_FALSE(result.ladder[i].metadata);
        EXPECT_FALSE(result.ladder[i].rawMetadata);
        EXPECT_FALSE(result.ladder[i].developed);
        EXPECT_EQ(result.ladder[i].ev, 0.0f);
    }
    HDRSettings settings;
    settings.ghostReduction = true;
    input[1].isGhostReference = true;
    EXPECT_EQ(resample(input, settings).ghostIndex, 1);
}

TEST(ResampleFrames, FourRawFramesAreDevelopedInPlace)
{
    auto input = frames({-3, -1, 0, 2}, true);
    const auto metadata = input[2].metadata;
    const auto result = resample(input);
    for (const HDRFrame& frame : input) {
        EXPECT_TRUE(frame.developed);
        EXPECT_TRUE(frame.metadata->isDeveloped);
        EXPECT_TRUE(*frame.image->colorProfile() == *ColorProfileType::melissaRGB());
    }
    EXPECT_FALSE(metadata->isDeveloped) << "other holders of the metadata see no change";
    EXPECT_EQ(result.ladder[2].image, input[2].image);
}

TEST(ResampleFrames, RawRungsAreDevelopedToTheirExposure)
{
    auto input = frames({0}, true);
    const auto result = resample(input);
    ASSERT_EQ(result.ladder.size(), 5u);
    for (std::size_t i = 1; i < 5; ++i)
        EXPECT_GT(result.ladder[i].image->data()[0].g, result.ladder[i - 1].image->data()[0].g);
    EXPECT_TRUE(*result.ladder[0].image->colorProfile() == *ColorProfileType::melissaRGB());
    EXPECT_TRUE(*input[0].image->colorProfile() == *ColorProfileType::linearMelissaRGB()) << "the frame stays raw";
    EXPECT_FALSE(input[0].developed);
}

TEST(ResampleFrames, EachFrameUsesItsOwnRawMark)
{
    auto input = frames({-2, 2});
    auto rawInput = frames({2}, true);
    input[1] = rawInput[0];
    input[1].ev = 2;
    const auto result = resample(input);
    for (const HDRFrame& rung : result.ladder)
        EXPECT_TRUE(*rung.image->colorProfile() == *ColorProfileType::melissaRGB());
}

TEST(ResampleFrames, ACancelGivesAnEmptyLadderAndZero)
{
    HDRSettings settings;
    settings.cancelFlag = std::make_shared<std::atomic<unsigned char>>(1);
    settings.ghostReduction = true;
    auto input = frames({-2, 0, 2});
    const auto result = resample(input, settings);
    EXPECT_TRUE(result.ladder.empty());
    EXPECT_EQ(result.ghostIndex, 0);
}

TEST(ResampleFrames, TracesTheLadder)
{
    grfx::cout.quiet = 0;
    testing::internal::CaptureStdout();
    auto input = frames({-2, 0, 2});
    (void)resample(input);
    const std::string trace = testing::internal::GetCapturedStdout();
    grfx::cout.quiet = 1;
    EXPECT_THAT(trace, testing::StartsWith("Framees EV resampling from -2 to 2 step 1.33333\nFrame inserted: -2\n"));
    EXPECT_THAT(trace, HasSubstr("Frame inserted: 2\n"));
}

TEST(ResampleFrames, UnusableExposuresAreRefused)
{
    const float infinity = std::numeric_limits<float>::infinity();
    for (const auto& evs : {std::vector<float>{0, 0, infinity}, std::vector<float>{-infinity, 0},
                            std::vector<float>{0, std::numeric_limits<float>::quiet_NaN()},
                            std::vector<float>{1e9f, 1e9f}}) { // four EV are lost in 1e9
        auto input = frames(evs);
        EXPECT_THROW(resample(input), std::runtime_error) << testing::PrintToString(evs);
    }
}

TEST(ResampleFrames, ACancelDuringARungEndsTheLadderThere)
{
    HDRSettings settings;
    settings.cancelFlag = std::make_shared<std::atomic<unsigned char>>(0);
    settings.ghostReduction = true;
    const auto spy = std::make_shared<DevelopmentSpy>(settings.cancelFlag, 3);
    auto input = frames({-2, 0, 2}, true);
    for (HDRFrame& frame : input)
        frame.rawMetadata = spy;
    const auto result = resample(input, settings);
    EXPECT_TRUE(result.ladder.empty());
    EXPECT_EQ(result.ghostIndex, 0);
    EXPECT_EQ(spy->developments, 3) << "of five rungs";
}

TEST(ResampleFrames, RawRungsAreDevelopedByTheirDistanceFromTheFrame)
{
    auto input = frames({-2, 0, 2}, true);
    const auto result = resample(input);
    ASSERT_EQ(result.ladder.size(), 5u);
    const std::size_t nearest[] = {0, 0, 1, 2, 2};
    for (std::size_t i = 0; i < 5; ++i) {
        const HDRFrame& frame = input[nearest[i]];
        auto expected = frame.image->copy({});
        develop_for_hdr(expected, frame.metadata, frame.rawMetadata, result.ladder[i].ev - frame.ev, false);
        EXPECT_TRUE(sameBytes(*result.ladder[i].image, *expected)) << i;
        EXPECT_EQ(result.ladder[i].path, frame.path) << i;
    }
}

TEST(ResampleFrames, RawRungsAreCorrectedForChromaticAberrationIfEnabled)
{
    const std::string corrected = "applyChromaticAbberationsCorrection: ";
    for (const auto& evs : {std::vector<float>{-2, 0, 2}, std::vector<float>{-3, -1, 0, 1, 2}})
        for (const bool enabled : {false, true}) {
            HDRSettings settings;
            settings.chromaticAberrations = enabled;
            auto input = frames(evs, true);
            const std::string trace = traceOf([&] { (void)resample(input, settings); });
            EXPECT_EQ(timesIn(trace, corrected), enabled ? 5u : 0u) << evs.size();
        }
}

TEST(ResampleFrames, EachOfFourFramesUsesItsOwnRawMark)
{
    auto input = frames({-3, -1, 0, 2});
    const auto raw = frames({-3, -1, 0, 2}, true);
    input[1] = raw[1];
    input[3] = raw[3];
    const auto finished = input[0].image->copy({});
    auto expected = input[3].image->copy({});
    develop_for_hdr(expected, input[3].metadata, input[3].rawMetadata, 0.0f, false);
    const auto result = resample(input);
    ASSERT_EQ(result.ladder.size(), 4u);
    for (std::size_t i = 0; i < 4; ++i) {
        EXPECT_EQ(input[i].developed, i % 2 == 1) << i;
        EXPECT_EQ(result.ladder[i].image, input[i].image) << i;
    }
    EXPECT_TRUE(sameBytes(*result.ladder[0].image, *finished));
    EXPECT_TRUE(sameBytes(*result.ladder[3].image, *expected)) << "at its own exposure";
}

TEST(ResampleFrames, TheFirstFrameDecidesTheRangeOfALadder)
{
    const auto finished = frames({0, 1});
    const auto raw = frames({0, 1}, true);
    std::vector<HDRFrame> finishedFirst = {finished[0], raw[1]};
    std::vector<HDRFrame> rawFirst = {raw[0], finished[1]};
    expectRungs(resample(finishedFirst).ladder, -1.5f, 2.5f, 4.0f / 3, 4);
    expectRungs(resample(rawFirst).ladder, -2.0f, 3.0f, 5.0f / 4, 5);
}

TEST(ResampleFrames, AGhostReferenceWithoutARungIsNotFixed)
{
    // Equal exposures: every rung comes from the first frame.
    HDRSettings settings;
    settings.ghostReduction = true;
    auto input = frames({0, 0, 0});
    EXPECT_EQ(resample(input, settings).ghostIndex, -1) << "the middle frame replaces the reference";
    input[0].isGhostReference = true;
    EXPECT_EQ(resample(input, settings).ghostIndex, 3);
    settings.ghostReduction = false;
    EXPECT_EQ(resample(input, settings).ghostIndex, -1);
}
