#include "bracket/compute_mask.hpp"
#include "bracket/load_frames.hpp"
#include "bracket/make_efll.hpp"
#include "bracket/resample_frames.hpp"
#include "frame/call_frame.hpp"
#include "support/files.hpp"
#include "support/raw_discs.hpp"
#include "support/temporary_folder.hpp"

#include <orvo/bracket_exposure.hpp>
#include <orvo/finishing.hpp>
#include <orvo/lens_correction.hpp>
#include <orvo/raw_development.hpp>
#include <orvo_common/console_trace.hpp>
#include <orvo_common/memory_manager.hpp>
#include <orvo_core/parallel.hpp>
#include <orvo_extensions/hdr.hpp>
#include <orvo_image_processing/debug_drawer.hpp>
#include <orvo_io/settings.hpp>
#include <orvo_logger/log_capture.hpp>
#include <scenes/bracket_files.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <limits>

using namespace orvo;
using namespace orvo::test;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;

namespace {

using Paths = std::vector<std::filesystem::path>;

class MakeHdr : public testing::Test
{
protected:
    TemporaryFolder folder;
    std::vector<int> phases;

    std::function<void(HDRMergingPhaseName)> record()
    {
        return [this](HDRMergingPhaseName phase) { phases.push_back(static_cast<int>(phase)); };
    }

    Paths bracket(std::size_t count)
    {
        Paths paths;
        for (std::size_t i = 0; i < count; ++i) {
            const float gain =
                0.35f + 1.1f * static_cast<float>(i) / static_cast<float>(std::max<std::size_t>(count - 1, 1));
            paths.push_back(writtenTo(folder / ("frame" + std::to_string(i) + ".tif"), *texturedAt(gain)));
        }
        return paths;
    }

    Paths rawBracket(std::size_t count)
    {
        scenes::BracketRecipe recipe;
        recipe.scene.size = {192, 128};
        recipe.evs.clear();
        for (std::size_t i = 0; i < count; ++i)
            recipe.evs.push_back(-2.0 + 4.0 * static_cast<double>(i) / static_cast<double>(count - 1));
        return scenes::writeBracket(scenes::Bracket(recipe), folder.path(), {.format = scenes::BracketFileFormat::Dng});
    }

    // Three frames of one scene, of which the one at `rawIndex` is a raw file; in order of rising exposure.
    Paths mixedBracket(std::size_t rawIndex)
    {
        scenes::BracketRecipe recipe;
        recipe.scene.size = {192, 128};
        const scenes::Bracket scene(recipe);
        Paths paths = scenes::writeBracket(scene, folder.path(), {.format = scenes::BracketFileFormat::Tiff16});
        paths[rawIndex] =
            scenes::writeFrame(scene, rawIndex, folder.path(), {.format = scenes::BracketFileFormat::Dng});
        return paths;
    }

    // Raw files with coloured fringes, of a camera that lensfun knows.
    Paths fringedBracket(std::size_t count)
    {
        Paths paths;
        for (std::size_t i = 0; i < count; ++i) {
            const double ev = -1.0 + 2.0 * static_cast<double>(i) / static_cast<double>(count - 1);
            paths.push_back(rawOfDiscs(folder / ("discs" + std::to_string(i) + ".dng"), 1.003, ev));
        }
        return paths;
    }

    static auto merge(const Paths& paths, const HDRSettings& settings, std::function<void(HDRMergingPhaseName)> onPhase)
    {
        return make_HDR(paths, settings, {}, std::move(onPhase));
    }
};

template <typename Merged>
bool isEmpty(const Merged& merged)
{
    return !merged.first && !merged.second;
}

// The blend by its definition, step by step.
std::shared_ptr<Picture> folded(const Paths& paths, float maskScale, const HDRSettings& settings = {})
{
    auto frames = loadFrames(paths, settings, ImageReaderOpenFlag::Bracket, false);
    fillEVsAndSort(frames);
    float unused = 0;
    const auto ladder = std::get<0>(resampleFrames(frames, settings, unused));
    const std::size_t n = ladder.size();
    const auto result = ladder[n - 1].image->copy({});
    for (std::size_t i = n - 1; i-- > 0;) {
        const float weight = static_cast<float>(i) / static_cast<float>(n - 1) * 0.75f * maskScale;
        const auto& rung = *ladder[i].image;
        const auto mask = computeMask(rung.data(), rung.width(), rung.height(), weight);
        for (std::size_t p = 0; p < rung.pixelCount(); ++p) {
            const float m = std::clamp(mask[p], 0.0f, 1.0f);
            auto& to = result->data()[p];
            const auto& from = rung.data()[p];
            to = {to.r + (from.r - to.r) * m, to.g + (from.g - to.g) * m, to.b + (from.b - to.b) * m};
        }
    }
    normalize_for_hdr(result->data(), result->width(), result->height());
    return result;
}

std::shared_ptr<const Picture> pixelsOf(const Image& image) { return image.developedOriginalImageData({}); }

HDRSettings withFlag(const std::shared_ptr<std::atomic<unsigned char>>& flag)
{
    HDRSettings settings;
    settings.cancelFlag = flag;
    return settings;
}

// The number of corrections of chromatic aberration while frames are loaded and while the merged picture is finished.
struct Corrections
{
    std::size_t whileLoading = 0;
    std::size_t whileFinishing = 0;
};

Corrections correctionsOf(const Paths& paths, bool enabled)
{
    HDRSettings settings;
    settings.chromaticAberrations = enabled;
    Corrections corrections;
    const auto countSoFar = [] {
        const std::string marker = "applyChromaticAbberationsCorrection: ";
        const std::string trace = testing::internal::GetCapturedStdout();
        testing::internal::CaptureStdout();
        std::size_t times = 0;
        for (std::size_t at = trace.find(marker); at != std::string::npos; at = trace.find(marker, at + 1))
            ++times;
        return times;
    };
    const auto onPhase = [&](HDRMergingPhaseName phase) {
        const std::size_t since = countSoFar();
        if (phase == HDRMergingPhaseName::FramesLoaded)
            corrections.whileLoading = since;
    };
    grfx::cout.quiet = 0;
    testing::internal::CaptureStdout();
    EXPECT_TRUE(make_HDR(paths, settings, {}, onPhase).first);
    corrections.whileFinishing = countSoFar();
    (void)testing::internal::GetCapturedStdout();
    grfx::cout.quiet = 1;
    return corrections;
}

std::filesystem::path textFile(const std::filesystem::path& path)
{
    std::ofstream(path) << "no picture";
    return path;
}

} // namespace

TEST_F(MakeHdr, ABracketReportsItsPhasesInOrder)
{
    for (const std::size_t count : {2u, 3u, 4u, 6u}) {
        phases.clear();
        const auto merged = merge(bracket(count), {}, record());
        ASSERT_TRUE(merged.first) << count;
        EXPECT_THAT(phases, ElementsAre(0, 1, 2, 3, 4, 5, 6)) << count;
    }
}

TEST_F(MakeHdr, ASingleFrameReportsItsOwnPhases)
{
    const auto merged = merge(bracket(1), {}, record());
    ASSERT_TRUE(merged.first);
    EXPECT_THAT(phases, ElementsAre(200, 1, 2, 3, 5, 6));
}

TEST_F(MakeHdr, NoPathsGiveNothingAndReportNothing)
{
    EXPECT_TRUE(isEmpty(merge({}, {}, record())));
    EXPECT_TRUE(phases.empty());
}

TEST_F(MakeHdr, WithoutACallbackThePhasesAreLogged)
{
    const LogCapture capture;
    ASSERT_TRUE(merge(bracket(2), {}, nullptr).first);
    EXPECT_THAT(capture.texts(LogMessageType::Trace),
                ElementsAre("Merging phase: 0", "Merging phase: 1", "Merging phase: 2", "Merging phase: 3",
                            "Merging phase: 4", "Merging phase: 5", "Merging phase: 6"));
}

TEST_F(MakeHdr, LogsWhetherTheFramesAreRaw)
{
    const LogCapture capture;
    ASSERT_TRUE(merge(bracket(2), {}, record()).first);
    EXPECT_THAT(capture.lines(), Contains(LogCapture::Line{LogMessageType::Diagnostic, "isRaw 0\n", 16}));
}

TEST_F(MakeHdr, ReturnsAFinishedPictureAndTheMiddleFrame)
{
    const auto paths = bracket(3);
    const auto merged = merge(paths, {}, record());
    ASSERT_TRUE(merged.first);
    EXPECT_EQ(merged.first->size(), _Size<int>(160, 120));
    const auto metadata = merged.first->metadata();
    EXPECT_TRUE(metadata->isFinished);
    EXPECT_FALSE(metadata->isRaw);
    EXPECT_EQ(metadata->size, _Size<int>(160, 120));
    EXPECT_THAT(*merged.second, PixelsNear(*texturedAt(0.9f), 1e-3f)) << "frame 1 of 0.35, 0.9, 1.45";
}

TEST_F(MakeHdr, AShuffledBracketGivesTheSameBytes)
{
    auto paths = bracket(3);
    const auto sorted = merge(paths, {}, record());
    std::swap(paths[0], paths[2]);
    std::swap(paths[0], paths[1]);
    const auto shuffled = merge(paths, {}, record());
    EXPECT_TRUE(sameBytes(*pixelsOf(*sorted.first), *pixelsOf(*shuffled.first)));
}

TEST_F(MakeHdr, ASingleFrameStaysNearItself)
{
    const auto merged = merge({writtenTo(folder / "one.tif", *texturedAt(0.8f))}, {}, record());
    ASSERT_TRUE(merged.first);
    double mean = 0;
    double expected = 0;
    const auto pixels = pixelsOf(*merged.first);
    for (std::size_t i = 0; i < pixels->pixelCount(); ++i) {
        mean += static_cast<double>(pixels->data()[i].g);
        expected += static_cast<double>(merged.second->data()[i].g);
    }
    EXPECT_NEAR(mean / expected, 1.0, 0.1) << "automatic exposure compensates";
}

TEST_F(MakeHdr, ASingleFrameTracesItsAutomaticExposure)
{
    grfx::cout.quiet = 0;
    testing::internal::CaptureStdout();
    (void)merge(bracket(1), {}, record());
    const std::string trace = testing::internal::GetCapturedStdout();
    grfx::cout.quiet = 1;
    EXPECT_THAT(
        trace, testing::ContainsRegex("Auto exposure: expV [-0-9.e]+ expM [-0-9.e]+ expR [-0-9.e]+ contr [-0-9.e]+\n"));
}

TEST_F(MakeHdr, ASingleFrameSkipsAlignmentAndDeghosting)
{
    HDRSettings settings;
    settings.alignment = true;
    settings.ghostReduction = true;
    const LogCapture capture;
    ASSERT_TRUE(merge(bracket(1), settings, record()).first);
    for (const auto& line : capture.lines()) {
        EXPECT_THAT(line.text, testing::Not(HasSubstr("[Alignment]")));
        EXPECT_THAT(line.text, testing::Not(HasSubstr("[Deghosting]")));
    }
}

TEST_F(MakeHdr, AlignsAndDeghostsABracketIfEnabled)
{
    HDRSettings settings;
    settings.alignment = true;
    settings.ghostReduction = true;
    settings.ghostRefImageIdx = 1;
    settings.deghostAmount = DeghostAmount::Medium;
    const LogCapture capture;
    ASSERT_TRUE(merge(bracket(3), settings, record()).first);
    EXPECT_THAT(capture.texts(LogMessageType::Progress), Contains("[Alignment] Alignment scale: 1"));
    EXPECT_THAT(capture.texts(LogMessageType::Progress), Contains(testing::StartsWith("[Deghosting] ")));
}

TEST_F(MakeHdr, TheGhostReferenceIsFoundAgainOnTheLadder)
{
    // Three equal files: every rung comes from the first of them, so another reference has no rung, and its position is
    // found by proportion.
    Paths paths;
    for (const char* name : {"a.tif", "b.tif", "c.tif"})
        paths.push_back(writtenTo(folder / name, *texturedAt(0.8f)));
    HDRSettings settings;
    settings.ghostReduction = true;
    const char* const expected[] = {"refIdx: 3deghost", "refIdx: 1deghost", "refIdx: 3deghost"};
    for (const int reference : {0, 1, 2}) {
        settings.ghostRefImageIdx = reference;
        const LogCapture capture;
        ASSERT_TRUE(merge(paths, settings, record()).first);
        EXPECT_THAT(capture.texts(LogMessageType::Progress), ElementsAre(HasSubstr(expected[reference])));
    }
}

TEST_F(MakeHdr, TheBlendFoldsTheLadderFromItsLastRung)
{
    // A resampled ladder of finished pictures is blended softer than a long bracket.
    constexpr float kRoundings = 1e-5f;
    for (const std::size_t count : {2u, 3u, 4u, 5u}) {
        // A dark and a bright half: the weight of a rung acts on large edges alone.
        Paths paths;
        for (std::size_t i = 0; i < count; ++i) {
            const float gain = 0.4f + 0.7f * static_cast<float>(i) / static_cast<float>(count - 1);
            const auto picture = drawn(160, 120, [gain](int x, int y) {
                const auto p = texture(x, y);
                const float light = gain * (x < 80 ? 0.05f : 1.7f);
                return PixelRGB<float>{p.r * light, p.g * light, p.b * light};
            });
            paths.push_back(writtenTo(folder / ("halves" + std::to_string(i) + ".tif"), *picture));
        }
        const auto merged = merge(paths, {}, record());
        ASSERT_TRUE(merged.first);
        const float maskScale = count > 3 ? 1.0f : 0.8f;
        EXPECT_THAT(*pixelsOf(*merged.first), PixelsNear(*folded(paths, maskScale), kRoundings)) << count;
        EXPECT_GT(largestDifference(*folded(paths, 0.8f), *folded(paths, 1.0f)), 10 * kRoundings) << count;
    }
}

TEST_F(MakeHdr, TheSizeArgumentHasNoEffect)
{
    const auto paths = bracket(2);
    const auto plainMerge = make_HDR(paths, {}, {}, record());
    const auto sized = make_HDR(paths, {}, {17, 3}, record());
    EXPECT_TRUE(sameBytes(*pixelsOf(*plainMerge.first), *pixelsOf(*sized.first)));
}

TEST_F(MakeHdr, WhiteBalanceAndDetailsAtZeroAreSkipped)
{
    const auto paths = bracket(2);
    const auto base = merge(paths, {}, record());
    HDRSettings settings;
    settings.details = 0.8f;
    const auto detailed = merge(paths, settings, record());
    EXPECT_FALSE(sameBytes(*pixelsOf(*base.first), *pixelsOf(*detailed.first)));
    settings.details = -1.0f;
    settings.whiteBalance = -1.0f;
    const auto negative = merge(paths, settings, record());
    EXPECT_TRUE(sameBytes(*pixelsOf(*base.first), *pixelsOf(*negative.first)));
    settings.whiteBalance = 1.0f;
    const auto balanced = merge(paths, settings, record());
    EXPECT_FALSE(sameBytes(*pixelsOf(*base.first), *pixelsOf(*balanced.first)));
}

TEST_F(MakeHdr, ACancelBeforeTheStartGivesNothing)
{
    const auto flag = std::make_shared<std::atomic<unsigned char>>(1);
    for (const Paths& paths : {bracket(3), rawBracket(3), bracket(1)}) { // in parallel, in order, alone
        phases.clear();
        testing::internal::CaptureStderr();
        EXPECT_TRUE(isEmpty(merge(paths, withFlag(flag), record())));
        EXPECT_THAT(testing::internal::GetCapturedStderr(),
                    testing::EndsWith(" make_EFLL: not all images were loaded\n"));
        EXPECT_THAT(phases, ElementsAre(paths.size() == 1 ? 200 : 0));
    }
}

TEST_F(MakeHdr, ACancelAtEachPhaseGivesNothingAndNoFurtherPhase)
{
    const auto paths = bracket(3);
    // If set in the callback of a phase, the flag is seen at the next check: after the fourth phase of a ladder of four
    // rungs there is only the last blend.
    for (const int stopAt : {0, 1, 2, 3, 4}) {
        phases.clear();
        const auto flag = std::make_shared<std::atomic<unsigned char>>(0);
        const auto merged = merge(paths, withFlag(flag), [&](HDRMergingPhaseName phase) {
            phases.push_back(static_cast<int>(phase));
            if (static_cast<int>(phase) == stopAt)
                *flag = 1;
        });
        EXPECT_TRUE(isEmpty(merged)) << stopAt;
        ASSERT_FALSE(phases.empty());
        EXPECT_EQ(phases.back(), stopAt);
    }
}

TEST_F(MakeHdr, ACancelledSettingsRecordCanBeUsedAgain)
{
    const auto flag = std::make_shared<std::atomic<unsigned char>>(1);
    const HDRSettings settings = withFlag(flag);
    const auto paths = bracket(2);
    EXPECT_TRUE(isEmpty(merge(paths, settings, record())));
    *flag = 0;
    EXPECT_TRUE(merge(paths, settings, record()).first);
}

TEST_F(MakeHdr, AnUnreadableFileFailsWithALineThatNamesIt)
{
    auto paths = bracket(2);
    paths.push_back(textFile(folder / "notes.jpg"));
    const LogCapture capture;
    EXPECT_TRUE(isEmpty(merge(paths, {}, record())));
    EXPECT_THAT(capture.texts(LogMessageType::Error),
                ElementsAre(testing::AllOf(testing::StartsWith("Error in make_HDR: "), HasSubstr("notes.jpg"))));
}

TEST_F(MakeHdr, AnExceptionOfTheCallbackStopsAtTheBoundary)
{
    const LogCapture capture;
    EXPECT_TRUE(
        isEmpty(merge(bracket(2), {}, [](HDRMergingPhaseName) { throw std::runtime_error("no more phases"); })));
    EXPECT_TRUE(isEmpty(merge(bracket(2), {}, [](HDRMergingPhaseName) { throw 7; })));
    EXPECT_THAT(capture.texts(LogMessageType::Error),
                ElementsAre("Error in make_HDR: no more phases", "Unknown error in make_HDR."));
}

TEST_F(MakeHdr, FramesLargerThanTheFirstAreNotDetected)
{
    // Every frame is read as if it had the size of the first, on a resampled ladder and on one of the frames
    // themselves.
    for (const std::size_t count : {2u, 4u}) {
        Paths paths;
        for (std::size_t i = 0; i < count; ++i) {
            const float gain = 0.3f + 0.9f * static_cast<float>(i) / static_cast<float>(count - 1);
            const bool isFirst = i == 0;
            paths.push_back(writtenTo(folder / ("size" + std::to_string(i) + ".tif"),
                                      isFirst ? *texturedAt(gain, 100, 80) : *texturedAt(gain, 120, 90)));
        }
        const auto merged = merge(paths, {}, record());
        ASSERT_TRUE(merged.first) << count;
        EXPECT_EQ(merged.first->size(), _Size<int>(100, 80)) << count;
        EXPECT_EQ(pixelsOf(*merged.first)->size(), _Size<int>(100, 80)) << count;
    }
}

TEST_F(MakeHdr, FramesSmallerThanTheFirstAreRefused)
{
    Paths paths = {writtenTo(folder / "large.tif", *texturedAt(0.3f, 120, 90)),
                   writtenTo(folder / "small.tif", *texturedAt(1.2f, 100, 80))};
    const LogCapture capture;
    EXPECT_TRUE(isEmpty(merge(paths, {}, record())));
    EXPECT_THAT(capture.texts(LogMessageType::Error), ElementsAre(HasSubstr("small.tif")));
}

TEST_F(MakeHdr, DrawsItsSettingsIfEnabled)
{
    const auto paths = bracket(2);
    const auto base = merge(paths, {}, record());
    orvosettings().set("DebugDrawer.enable", true);
    const auto drawn = merge(paths, {}, record());
    orvosettings().remove("DebugDrawer.enable");
    ASSERT_TRUE(drawn.first);
    const auto a = pixelsOf(*base.first);
    const auto b = pixelsOf(*drawn.first);
    EXPECT_FALSE(sameBytes(*a, *b));
    const std::size_t upperRows = static_cast<std::size_t>(a->width()) * 50 * sizeof(PixelRGB<float>);
    EXPECT_EQ(std::memcmp(a->data(), b->data(), upperRows), 0) << "the text starts at half the height";
}

TEST_F(MakeHdr, DoesNotDependOnThreads)
{
    HDRSettings settings;
    settings.alignment = true;
    settings.ghostReduction = true;
    settings.deghostAmount = DeghostAmount::High;
    settings.details = 0.5f;
    settings.whiteBalance = 0.5f;
    const auto paths = bracket(3);
    const auto many = merge(paths, settings, record());
    const WorkerLimit limit(1);
    const auto single = merge(paths, settings, record());
    EXPECT_TRUE(sameBytes(*pixelsOf(*many.first), *pixelsOf(*single.first)));
    EXPECT_TRUE(sameBytes(*many.second, *single.second));
}

TEST_F(MakeHdr, GivesItsMemoryBack)
{
    const auto paths = bracket(3);
    const std::size_t before = MemoryManager::instance().liveBytes();
    {
        const auto merged = merge(paths, {}, record());
        EXPECT_GT(MemoryManager::instance().liveBytes(), before);
    }
    EXPECT_EQ(MemoryManager::instance().liveBytes(), before);
}

// Three frames make four rungs, but no separate rungs are kept: only the frames, a mask and its scratch memory.
TEST_F(MakeHdr, KeepsNoPictureForARungOfAShortBracket)
{
    constexpr int kWidth = 300;
    constexpr int kHeight = 2400; // many bands
    constexpr double kPicture = 12.0 * kWidth * kHeight;
    Paths paths;
    for (int i = 0; i < 3; ++i)
        paths.push_back(writtenTo(folder / ("tall" + std::to_string(i) + ".tif"),
                                  *texturedAt(0.4f + 0.5f * static_cast<float>(i), kWidth, kHeight)));
    MemoryManager& memory = MemoryManager::instance();
    const std::size_t before = memory.liveBytes();
    const auto afterLoading = [&](HDRMergingPhaseName phase) {
        if (phase == HDRMergingPhaseName::LadderBuilt)
            memory.resetPeak();
    };
    ASSERT_TRUE(merge(paths, {}, afterLoading).first);
    EXPECT_LT(static_cast<double>(memory.peakBytes() - before), 3.4 * kPicture);
}

TEST_F(MakeHdr, ARawBracketIsBlendedAtFullStrength)
{
    constexpr float kRoundings = 1e-5f;
    const auto paths = rawBracket(3);
    const auto merged = merge(paths, {}, record());
    ASSERT_TRUE(merged.first);
    EXPECT_THAT(*pixelsOf(*merged.first), PixelsNear(*folded(paths, 1.0f), kRoundings));
    EXPECT_GT(largestDifference(*folded(paths, 0.8f), *folded(paths, 1.0f)), 10 * kRoundings);
}

TEST_F(MakeHdr, TheMiddleRawFrameIsDevelopedAtItsOwnExposure)
{
    for (const std::size_t count : {2u, 3u, 4u, 5u}) { // a resampled ladder leaves it undeveloped, a long one does not
        const auto paths = rawBracket(count);
        const auto merged = merge(paths, {}, record());
        ASSERT_TRUE(merged.second) << count;
        auto frames = loadFrames(paths, HDRSettings(), ImageReaderOpenFlag::Bracket, true);
        fillEVsAndSort(frames);
        HDRFrame& middle = frames[count / 2];
        develop_for_hdr(middle.image, middle.metadata, middle.rawMetadata, 0.0f, false);
        EXPECT_TRUE(sameBytes(*merged.second, *middle.image)) << count;
        EXPECT_FALSE(merged.first->metadata()->isRaw) << count;
        EXPECT_TRUE(merged.first->metadata()->isDeveloped) << count;
        EXPECT_TRUE(merged.first->metadata()->isFinished) << count;
    }
}

TEST_F(MakeHdr, FringesOfARawBracketAreCorrectedInBothPictures)
{
    constexpr float kRoundings = 1e-5f;
    for (const std::size_t count : {3u, 4u}) { // a resampled ladder leaves the middle frame undeveloped
        const auto paths = fringedBracket(count);
        HDRSettings settings;
        settings.chromaticAberrations = true;
        const auto plainly = merge(paths, {}, record());
        const auto merged = merge(paths, settings, record());
        ASSERT_TRUE(merged.first && plainly.first) << count;
        EXPECT_LT(fringes(*pixelsOf(*merged.first)), 0.7 * fringes(*pixelsOf(*plainly.first))) << count;
        EXPECT_LT(fringes(*merged.second), 0.7 * fringes(*plainly.second)) << count;

        auto frames = loadFrames(paths, settings, ImageReaderOpenFlag::Bracket, true);
        fillEVsAndSort(frames);
        HDRFrame& middle = frames[count / 2];
        develop_for_hdr(middle.image, middle.metadata, middle.rawMetadata, 0.0f, true);
        EXPECT_TRUE(sameBytes(*merged.second, *middle.image)) << count;
        EXPECT_THAT(*pixelsOf(*merged.first), PixelsNear(*folded(paths, 1.0f, settings), kRoundings)) << count;
        // The merged picture of corrected rungs has no fringes left to show that it is corrected as well.
        EXPECT_EQ(correctionsOf(paths, true).whileFinishing, count == 3 ? 2u : 0u) << "the middle frame and the result";
        EXPECT_EQ(correctionsOf(paths, false).whileFinishing, 0u);
    }
}

TEST_F(MakeHdr, TheLensOfARawBracketIsCorrectedInBothPictures)
{
    for (const std::size_t count : {3u, 4u}) {
        const auto paths = fringedBracket(count);
        const auto plainly = merge(paths, {}, record());
        ASSERT_TRUE(plainly.first) << count;
        HDRSettings settings;
        settings.lensCorrection = true;
        const auto straight = merge(paths, settings, record());
        ASSERT_TRUE(straight.first) << count;
        auto frames = loadFrames(paths, settings, ImageReaderOpenFlag::Bracket, true);
        fillEVsAndSort(frames);
        HDRFrame& middle = frames[count / 2];
        const std::shared_ptr<Picture> before = pixelsOf(*plainly.first)->copy({});
        const auto expected = applyAutoLensCorrection(before, middle.metadata, nullptr);
        if (expected == before)
            GTEST_SKIP() << "lensfun's database is not installed, or does not know the camera";
        EXPECT_TRUE(sameBytes(*pixelsOf(*straight.first), *expected)) << count;

        const auto develop = [&middle] {
            develop_for_hdr(middle.image, middle.metadata, middle.rawMetadata, 0.0f, false);
        };
        if (count == 4) // developed for the ladder, before the lens
            develop();
        middle.image = applyAutoLensCorrection(middle.image, middle.metadata, middle.rawMetadata);
        if (count == 3)
            develop();
        EXPECT_TRUE(sameBytes(*straight.second, *middle.image)) << count;
        EXPECT_FALSE(sameBytes(*straight.second, *plainly.second)) << count;
    }
}

TEST_F(MakeHdr, ASingleRawFrameMerges)
{
    const LogCapture capture;
    const auto merged = merge({rawBracket(2)[0]}, {}, record());
    ASSERT_TRUE(merged.first);
    EXPECT_THAT(phases, ElementsAre(200, 1, 2, 3, 5, 6));
    EXPECT_THAT(capture.lines(), Contains(LogCapture::Line{LogMessageType::Diagnostic, "isRaw 1\n", 16}));
}

TEST_F(MakeHdr, OfAMixedBracketEveryFrameIsCorrectedForChromaticAberration)
{
    const auto mixed = mixedBracket(1);
    EXPECT_EQ(correctionsOf(mixed, true).whileLoading, 3u) << "the raw one too";
    EXPECT_EQ(correctionsOf(mixed, false).whileLoading, 0u);
    EXPECT_EQ(correctionsOf(bracket(2), true).whileLoading, 2u);
    EXPECT_EQ(correctionsOf(rawBracket(3), true).whileLoading, 0u)
        << "raw frames are corrected when they are developed";
}

TEST_F(MakeHdr, AMixedBracketCountsAsRawByItsFirstFrameInOrderOfExposure)
{
    for (const std::size_t rawIndex : {0u, 1u, 2u}) {
        auto paths = mixedBracket(rawIndex);
        std::reverse(paths.begin(), paths.end()); // the given order has no effect
        const LogCapture capture;
        const auto merged = merge(paths, {}, record());
        ASSERT_TRUE(merged.first);
        const bool isRaw = rawIndex == 0;
        EXPECT_THAT(capture.lines(),
                    Contains(LogCapture::Line{LogMessageType::Diagnostic, isRaw ? "isRaw 1\n" : "isRaw 0\n", 16}))
            << rawIndex;
        EXPECT_THAT(*pixelsOf(*merged.first), PixelsNear(*folded(paths, isRaw ? 1.0f : 0.8f), 1e-5f)) << rawIndex;
        EXPECT_FALSE(merged.first->metadata()->isRaw);
        EXPECT_EQ(merged.first->metadata()->isDeveloped, rawIndex == 1) << "the middle frame's mark";
    }
}

TEST_F(MakeHdr, TheSummaryListsPathsAndSettings)
{
    // High enough for all of its lines below the middle.
    const Paths paths = {writtenTo(folder / "a.tif", *texturedAt(0.5f, 480, 360)),
                         writtenTo(folder / "b.tif", *texturedAt(1.1f, 480, 360))};
    HDRSettings settings;
    settings.ghostReduction = true;
    settings.ghostRefImageIdx = 1;
    settings.deghostAmount = DeghostAmount::High;
    const auto base = merge(paths, settings, record());
    orvosettings().set("DebugDrawer.enable", true);
    const auto drawnOver = merge(paths, settings, record());
    orvosettings().remove("DebugDrawer.enable");
    ASSERT_TRUE(base.first && drawnOver.first);
    std::shared_ptr<Picture> expected = pixelsOf(*base.first)->copy({});
    DebugDrawer::draw(expected,
                      "HDR was created for settings:\n" + paths[0].string() + "\n" + paths[1].string() +
                          "\n"
                          "alingment....................false\n"
                          "chromaticAberrations..false\n"
                          "ghostReduction...........true\n"
                          "ghostRefImageIdx.......1\n"
                          "deghostAmount...........3\n",
                      _Point<int>(0, expected->height() / 2));
    EXPECT_TRUE(sameBytes(*pixelsOf(*drawnOver.first), *expected));
}

TEST_F(MakeHdr, WhiteBalanceComesBeforeDetails)
{
    const auto paths = bracket(3);
    HDRSettings settings;
    auto expected = pixelsOf(*merge(paths, settings, record()).first)->copy({});
    settings.whiteBalance = 0.6f;
    settings.details = 0.7f;
    const auto merged = merge(paths, settings, record());
    auto otherWayRound = expected->copy({});
    applyWB(expected, 0.6f);
    applyDetails(expected->data(), expected->width(), expected->height(), 0.7f);
    EXPECT_TRUE(sameBytes(*pixelsOf(*merged.first), *expected));
    applyDetails(otherWayRound->data(), otherWayRound->width(), otherWayRound->height(), 0.7f);
    applyWB(otherWayRound, 0.6f);
    ASSERT_FALSE(sameBytes(*otherWayRound, *expected)) << "the order makes a difference";
}

TEST_F(MakeHdr, ACancelAtEachPhaseOfASingleFrameGivesNothing)
{
    const auto paths = bracket(1);
    for (const int stopAt : {200, 1, 2, 3, 5}) {
        phases.clear();
        const auto flag = std::make_shared<std::atomic<unsigned char>>(0);
        const auto merged = merge(paths, withFlag(flag), [&](HDRMergingPhaseName phase) {
            phases.push_back(static_cast<int>(phase));
            *flag = static_cast<int>(phase) == stopAt ? 1 : 0;
        });
        EXPECT_TRUE(isEmpty(merged)) << stopAt;
        EXPECT_EQ(phases.back(), stopAt);
    }
}

TEST_F(MakeHdr, ACancelAfterTheLastBlendComesTooLate)
{
    for (const std::size_t count : {1u, 3u, 4u})
        for (const int stopAt : {5, 6}) {
            if (count == 1 && stopAt == 5)
                continue; // a single frame reports its fifth phase between two blends
            const auto flag = std::make_shared<std::atomic<unsigned char>>(0);
            const auto merged = merge(bracket(count), withFlag(flag), [&](HDRMergingPhaseName phase) {
                if (static_cast<int>(phase) == stopAt)
                    *flag = 1;
            });
            EXPECT_TRUE(merged.first && merged.second) << count << " at " << stopAt;
        }
}

TEST_F(MakeHdr, ACancelDuringAStepIsSeenAtItsEnd)
{
    HDRSettings settings;
    settings.alignment = true;
    settings.ghostReduction = true;
    settings.deghostAmount = DeghostAmount::Medium;
    struct Case
    {
        const char* step;
        Paths paths;
        bool chromatic;
        std::vector<int> phases;
    };
    const Case cases[] = {{"[Alignment]", bracket(3), false, {0, 1}},
                          {"[Deghosting]", bracket(3), false, {0, 1, 2}},
                          {"[Deghosting]", bracket(4), false, {0, 1, 2}},
                          // Raw frames are aligned after the ladder and then deghosted, which runs to its end.
                          {"[Alignment]", rawBracket(3), true, {0, 1, 2}}};
    for (const Case& c : cases) {
        phases.clear();
        settings.chromaticAberrations = c.chromatic;
        settings.cancelFlag = std::make_shared<std::atomic<unsigned char>>(0);
        const auto sink = addLogSink([&](const logstream& line) {
            if (line.text().rfind(c.step, 0) == 0)
                *settings.cancelFlag = 1;
        });
        EXPECT_TRUE(isEmpty(merge(c.paths, settings, record()))) << c.step;
        EXPECT_EQ(*settings.cancelFlag, 1) << "the step was reached";
        EXPECT_EQ(phases, c.phases) << c.step;
    }
}

TEST_F(MakeHdr, ACancelWhileFramesAreReadGivesNothingAndNoFurtherPhase)
{
    auto paths = bracket(2);
    paths.push_back(textFile(folder / "notes.jpg"));
    const auto flag = std::make_shared<std::atomic<unsigned char>>(0);
    const auto sink = addLogSink([&flag](const logstream& line) {
        if (line.text().find("notes.jpg") != std::string::npos)
            *flag = 1;
    });
    const LogCapture capture;
    testing::internal::CaptureStderr();
    EXPECT_TRUE(isEmpty(merge(paths, withFlag(flag), record())));
    const std::string errorOutput = testing::internal::GetCapturedStderr();
    EXPECT_THAT(phases, ElementsAre(0));
    EXPECT_THAT(capture.texts(LogMessageType::Error), testing::IsEmpty()) << "a cancel is not a failure";
    EXPECT_THAT(errorOutput, testing::EndsWith(" make_EFLL: not all images were loaded\n"));
}

TEST_F(MakeHdr, AGhostReferenceOutOfRangeIsTheMiddleFrame)
{
    const auto paths = bracket(3);
    HDRSettings settings;
    settings.ghostReduction = true;
    const auto resultFor = [&](int index) {
        settings.ghostRefImageIdx = index;
        const LogCapture capture;
        EXPECT_TRUE(merge(paths, settings, record()).first) << index;
        const auto lines = capture.texts(LogMessageType::Progress);
        return lines.empty() ? std::string() : lines.front();
    };
    const std::string middle = resultFor(1);
    EXPECT_THAT(middle, HasSubstr("[Deghosting] "));
    EXPECT_NE(resultFor(0), middle);
    for (const int index : {-1, 3, 1000, std::numeric_limits<int>::min(), std::numeric_limits<int>::max()})
        EXPECT_EQ(resultFor(index), middle) << index;
}

TEST(CallFrame, ReturnsTheEmptyResultAndLogs)
{
    const LogCapture capture;
    const auto failing = runInCallFrame("make_HDR", []() -> std::shared_ptr<int> { throw std::runtime_error("why"); });
    EXPECT_FALSE(failing);
    const auto unknown = runInCallFrame("make_HDR", []() -> std::shared_ptr<int> { throw 1; });
    EXPECT_FALSE(unknown);
    EXPECT_EQ(*runInCallFrame("make_HDR", [] { return std::make_shared<int>(3); }), 3);
    EXPECT_THAT(capture.lines(), ElementsAre(LogCapture::Line{LogMessageType::Error, "Error in make_HDR: why", 0},
                                             LogCapture::Line{LogMessageType::Error, "Unknown error in make_HDR.", 0}));
}
