#include "bracket/load_frames.hpp"
#include "support/files.hpp"
#include "support/temporary_folder.hpp"

#include <orvo_common/console_trace.hpp>
#include <orvo_common/memory_manager.hpp>
#include <orvo_logger/log_capture.hpp>
#include <scenes/bracket_files.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <iterator>

using namespace orvo;
using namespace orvo::test;
using testing::Contains;
using testing::ElementsAre;

namespace {

class LoadFrames : public testing::Test
{
protected:
    TemporaryFolder folder;
    std::vector<std::filesystem::path> paths = {
        writtenTo(folder / "mid.tif", *texturedAt(0.8f)),
        writtenTo(folder / "dark.tif", *texturedAt(0.4f)),
        writtenTo(folder / "bright.tif", *texturedAt(1.2f)),
    };

    std::filesystem::path textFile()
    {
        std::ofstream(folder / "text.jpg") << "this is no picture";
        return folder / "text.jpg";
    }
};

std::vector<std::filesystem::path> rawFiles(const TemporaryFolder& folder, std::vector<double> evs = {-2.0, 0.0, 2.0})
{
    scenes::BracketRecipe recipe;
    recipe.scene.size = {96, 64};
    recipe.evs = std::move(evs);
    return scenes::writeBracket(scenes::Bracket(recipe), folder.path(), {.format = scenes::BracketFileFormat::Dng});
}

HDRSettings cancelled()
{
    HDRSettings settings;
    settings.cancelFlag = std::make_shared<std::atomic<unsigned char>>(1);
    return settings;
}

constexpr auto kFlags = ImageReaderOpenFlag::Bracket;

} // namespace

TEST_F(LoadFrames, FlagsKeepTheirValue) { EXPECT_EQ(static_cast<int>(kFlags), 4126); }

TEST_F(LoadFrames, FillsTheRecord)
{
    const auto frame = loadFrame<HDRFrame>(paths[0], 4126, {}, false);
    ASSERT_TRUE(frame.image);
    EXPECT_EQ(frame.path, paths[0]);
    EXPECT_EQ(frame.image->size(), _Size<int>(160, 120));
    EXPECT_THAT(*frame.image, PixelsNear(*texturedAt(0.8f), 1e-4f));
    ASSERT_TRUE(frame.metadata);
    EXPECT_FALSE(hasRawMark(frame));
    EXPECT_FALSE(frame.developed);
    EXPECT_FALSE(frame.isGhostReference);
    EXPECT_EQ(frame.ev, 0.0f);
}

// LibRaw takes the picture of a file with such a tag for one of another size or layout and fills the rest with noise.
TEST_F(LoadFrames, ARawFileWhoseTagsContradictItsPictureIsRefused)
{
    const auto path = rawFiles(folder, {0.0})[0];
    ASSERT_TRUE(loadFrame<HDRFrame>(path, 4126, {}, false).image);
    std::ifstream in(path, std::ios::binary);
    std::string bytes{std::istreambuf_iterator<char>(in), {}};
    const auto at = bytes.find(std::string("\x8d\x82\x03\0\x02\0\0\0", 8)); // CFARepeatPatternDim, two SHORTs
    ASSERT_NE(at, std::string::npos);
    bytes[at] = '\x44'; // TileOffsets
    bytes[at + 1] = '\x01';
    std::ofstream(path, std::ios::binary) << bytes;
    EXPECT_FALSE(loadFrame<HDRFrame>(path, 4126, {}, false).image);
    EXPECT_FALSE(ImageReader::instance().getThumbnailBySide(path, 64, true, nullptr, {}));
}

TEST_F(LoadFrames, ASizeCanBeRequested)
{
    const auto frame = loadFrame<FocusStackerFrame>(paths[0], 4126, {80, 60}, false);
    EXPECT_EQ(frame.image->size(), _Size<int>(80, 60));
}

TEST_F(LoadFrames, AFileThatCannotBeOpenedGivesAnEmptyFrameAndALine)
{
    const LogCapture capture;
    const auto frame = loadFrame<HDRFrame>(folder / "none.jpg", 4126, {}, true);
    EXPECT_FALSE(frame.image);
    EXPECT_FALSE(frame.metadata);
    EXPECT_TRUE(frame.path.empty());
    EXPECT_THAT(capture.texts(LogMessageType::Warning),
                Contains("Can't open image at path: " + (folder / "none.jpg").string()));
}

TEST_F(LoadFrames, AnEmptyListGivesAnEmptyVector)
{
    EXPECT_TRUE(loadFrames({}, HDRSettings(), kFlags, false).empty());
    EXPECT_TRUE(loadFrames({}, HDRSettings(), kFlags, true).empty());
    EXPECT_TRUE(loadFrames({}, BracketSettings::FocusStacking(), kFlags, true).empty());
}

TEST_F(LoadFrames, ParallelAndSequentialGiveTheSame)
{
    const auto parallel = loadFrames(paths, HDRSettings(), kFlags, false);
    const auto sequential = loadFrames(paths, HDRSettings(), kFlags, true);
    ASSERT_EQ(parallel.size(), 3u);
    ASSERT_EQ(sequential.size(), 3u);
    for (std::size_t i = 0; i < 3; ++i) {
        EXPECT_EQ(parallel[i].path, paths[i]);
        EXPECT_TRUE(sameBytes(*parallel[i].image, *sequential[i].image));
    }
}

TEST_F(LoadFrames, AFailedLoadDropsOutOfASequenceButLeavesItsSlotInParallel)
{
    paths[1] = textFile();
    const auto sequential = loadFrames(paths, HDRSettings(), kFlags, true);
    ASSERT_EQ(sequential.size(), 2u);
    EXPECT_EQ(sequential[1].path, paths[2]);
    const auto parallel = loadFrames(paths, HDRSettings(), kFlags, false);
    ASSERT_EQ(parallel.size(), 3u);
    EXPECT_FALSE(parallel[1].image);
    EXPECT_TRUE(parallel[2].image);
}

TEST_F(LoadFrames, ACancelBeforeTheCallGivesAnEmptyVector)
{
    const LogCapture capture;
    EXPECT_TRUE(loadFrames(paths, cancelled(), kFlags, true).empty());
    EXPECT_TRUE(loadFrames(paths, cancelled(), kFlags, false).empty());
    EXPECT_TRUE(capture.lines().empty()) << "nothing was opened";
}

TEST_F(LoadFrames, MarksTheGhostReferenceByPath)
{
    HDRSettings settings;
    settings.ghostRefImageIdx = 2;
    for (const bool sequential : {true, false}) {
        const auto frames = loadFrames(paths, settings, kFlags, sequential);
        EXPECT_FALSE(frames[0].isGhostReference);
        EXPECT_TRUE(frames[2].isGhostReference);
    }
    BracketSettings::FocusStacking stacking;
    stacking.ghostReduction.referenceIndex = 1;
    EXPECT_TRUE(loadFrames(paths, stacking, kFlags, false)[1].isGhostReference);
}

TEST_F(LoadFrames, AGhostReferenceOutOfRangeMarksNothing)
{
    for (const int index : {-1, 3, 1000}) {
        HDRSettings settings;
        settings.ghostRefImageIdx = index;
        for (const auto& frame : loadFrames(paths, settings, kFlags, false))
            EXPECT_FALSE(frame.isGhostReference) << index;
    }
}

TEST_F(LoadFrames, AGhostReferenceBeyondTheFramesLeftMarksNothing)
{
    paths[0] = textFile();
    HDRSettings settings;
    settings.ghostRefImageIdx = 2; // a path, but only two frames are left
    for (const auto& frame : loadFrames(paths, settings, kFlags, true))
        EXPECT_FALSE(frame.isGhostReference);
}

TEST_F(LoadFrames, PathsSortByRisingExposure)
{
    const auto [sorted, evs] = getSortedPathsAndEVsFromPaths(paths);
    EXPECT_THAT(sorted, ElementsAre(paths[1], paths[0], paths[2]));
    ASSERT_EQ(evs.size(), 3u);
    EXPECT_LT(evs[0], 0.0f);
    EXPECT_EQ(evs[1], 0.0f);
    EXPECT_GT(evs[2], 0.0f);
}

TEST_F(LoadFrames, AnUnreadableFileDropsOutOfTheSortedPaths)
{
    paths.push_back(textFile());
    const auto [sorted, evs] = getSortedPathsAndEVsFromPaths(paths);
    EXPECT_EQ(sorted.size(), 3u);
    EXPECT_EQ(evs.size(), 3u);
    EXPECT_THAT(sorted, testing::Not(Contains(paths[3])));
}

TEST_F(LoadFrames, NoPathsSortToNothing)
{
    const auto [sorted, evs] = getSortedPathsAndEVsFromPaths({});
    EXPECT_TRUE(sorted.empty());
    EXPECT_TRUE(evs.empty());
}

TEST_F(LoadFrames, OrdinaryFilesAreNotRaw)
{
    EXPECT_FALSE(areAllRaw(paths));
    EXPECT_TRUE(areAllRaw({}));
}

TEST_F(LoadFrames, DevelopConvertsARawFrameToTheWorkingSpace)
{
    auto image = drawn(700, 300, [](int x, int) {
        const float v = static_cast<float>(x) / 700;
        return PixelRGB<float>{v, v, v};
    });
    image->setColorProfile(ColorProfileType::linearMelissaRGB());
    auto metadata = std::make_shared<ImageMetadata>();
    metadata->isRaw = true;
    develop(image, metadata, std::make_shared<AdditionalRawMetadataSync>(), false);
    EXPECT_EQ(image->size(), _Size<int>(700, 300));
    EXPECT_TRUE(*image->colorProfile() == *ColorProfileType::melissaRGB());
    EXPECT_GT(image->row(100)[350].g, 0.5f) << "encoded, so a linear middle is brighter";
    for (int x = 1; x < 700; ++x)
        ASSERT_GE(image->row(100)[x].g, image->row(100)[x - 1].g);
}

TEST_F(LoadFrames, ACancelBetweenTwoFilesEndsTheLoad)
{
    // Cancels when the log line about the first file, which is not a picture, appears.
    const std::vector<std::filesystem::path> files = {textFile(), folder / "missing.jpg", paths[0], paths[1]};
    for (const bool sequential : {true, false}) {
        HDRSettings settings;
        settings.cancelFlag = std::make_shared<std::atomic<unsigned char>>(0);
        const auto sink = addLogSink([&settings](const logstream&) { *settings.cancelFlag = 1; });
        const LogCapture capture;
        EXPECT_TRUE(loadFrames(files, settings, kFlags, sequential).empty());
        if (sequential) {
            for (const std::string& line : capture.texts(LogMessageType::Warning))
                EXPECT_THAT(line, testing::Not(testing::HasSubstr("missing.jpg"))) << "not opened any more";
        }
    }
}

TEST_F(LoadFrames, AFocusSeriesDropsFilesLikeABracket)
{
    paths[1] = textFile();
    BracketSettings::FocusStacking settings;
    settings.ghostReduction.referenceIndex = 1;
    const auto sequential = loadFrames(paths, settings, kFlags, true);
    ASSERT_EQ(sequential.size(), 2u);
    EXPECT_EQ(sequential[1].path, paths[2]);
    EXPECT_TRUE(sequential[1].isGhostReference) << "the index counts paths, whatever frame is at that position now";
    const auto parallel = loadFrames(paths, settings, kFlags, false);
    ASSERT_EQ(parallel.size(), 3u);
    EXPECT_FALSE(parallel[1].image);
    EXPECT_TRUE(parallel[1].isGhostReference);
    for (const int index : {-1, 3}) {
        settings.ghostReduction.referenceIndex = index;
        for (const auto& frame : loadFrames(paths, settings, kFlags, false))
            EXPECT_FALSE(frame.isGhostReference) << index;
    }
}

TEST_F(LoadFrames, ARawFileComesUndevelopedWithItsRawMetadata)
{
    const auto files = rawFiles(folder);
    EXPECT_TRUE(areAllRaw(files));
    EXPECT_FALSE(areAllRaw({files[0], paths[0]}));
    const auto frame = loadFrame<HDRFrame>(files[0], 4126, {}, false);
    ASSERT_TRUE(frame.image);
    EXPECT_TRUE(hasRawMark(frame));
    EXPECT_FALSE(frame.developed);
    EXPECT_TRUE(frame.rawMetadata);
    EXPECT_TRUE(frame.image->colorProfile()->isLinear());
}

TEST_F(LoadFrames, LensCorrectionIsPreparedIfEnabled)
{
    const auto files = rawFiles(folder);
    for (const bool enabled : {false, true}) {
        EXPECT_EQ(loadFrame<HDRFrame>(files[0], 4126, {}, enabled).rawMetadata->isLensCorrectionPrepared(), enabled);
        HDRSettings merge;
        merge.lensCorrection = enabled;
        BracketSettings::FocusStacking stack;
        stack.rawAutoCorrection.lensCorrection = enabled;
        for (const bool sequential : {true, false}) {
            for (const auto& frame : loadFrames(files, merge, kFlags, sequential))
                EXPECT_EQ(frame.rawMetadata->isLensCorrectionPrepared(), enabled);
            for (const auto& frame : loadFrames(files, stack, kFlags, sequential))
                EXPECT_EQ(frame.rawMetadata->isLensCorrectionPrepared(), enabled);
        }
    }
    EXPECT_TRUE(loadFrame<HDRFrame>(paths[0], 4126, {}, true).image) << "a file without raw metadata loads as usual";
}

TEST_F(LoadFrames, SortingReadsNoPictureInFull)
{
    constexpr int kWidth = 3000;
    constexpr int kHeight = 2000;
    constexpr std::size_t kPictureBytes = sizeof(PixelRGB<float>) * kWidth * kHeight;
    std::vector<std::filesystem::path> large;
    for (const float gray : {0.6f, 0.3f})
        large.push_back(writtenTo(folder / ("large" + std::to_string(gray) + ".jpg"), *plain(kWidth, kHeight, gray)));
    MemoryManager& memory = MemoryManager::instance();
    memory.resetPeak();
    const std::size_t before = memory.liveBytes();
    const auto [sorted, evs] = getSortedPathsAndEVsFromPaths(large);
    EXPECT_THAT(sorted, ElementsAre(large[1], large[0]));
    EXPECT_LT(memory.peakBytes() - before, kPictureBytes / 10);
}

TEST_F(LoadFrames, PathsOfEqualExposureKeepTheirOrder)
{
    const std::vector<std::filesystem::path> equal = {writtenTo(folder / "z.tif", *texturedAt(0.8f)), paths[1],
                                                      writtenTo(folder / "a.tif", *texturedAt(0.8f)), paths[0]};
    const auto [sorted, evs] = getSortedPathsAndEVsFromPaths(equal);
    EXPECT_THAT(sorted, ElementsAre(paths[1], equal[0], equal[2], paths[0]));
    EXPECT_EQ(evs[1], evs[2]);
}

TEST_F(LoadFrames, DevelopCorrectsAndDismissesChromaticAberrationIfEnabled)
{
    for (const bool enabled : {false, true}) {
        auto image = plain(64, 48, 0.2f);
        image->setColorProfile(ColorProfileType::linearMelissaRGB());
        auto metadata = std::make_shared<ImageMetadata>();
        metadata->isRaw = true;
        const auto rawMetadata = std::make_shared<AdditionalRawMetadataSync>();
        grfx::cout.quiet = 0;
        testing::internal::CaptureStdout();
        develop(image, metadata, rawMetadata, enabled);
        const std::string trace = testing::internal::GetCapturedStdout();
        grfx::cout.quiet = 1;
        EXPECT_EQ(trace.find("applyChromaticAbberationsCorrection: ") != std::string::npos, enabled);
        EXPECT_EQ(rawMetadata->hasPendingChromaticAberration(), !enabled) << "else left for the merged picture";
    }
}

TEST_F(LoadFrames, DevelopAppliesTheToneThatTheRawReaderSuggests)
{
    const auto developed = [](float tone) {
        auto image = plain(64, 48, 0.05f);
        image->setColorProfile(ColorProfileType::linearMelissaRGB());
        auto metadata = std::make_shared<ImageMetadata>();
        metadata->isRaw = true;
        develop(image, metadata, std::make_shared<AdditionalRawMetadataSync>(tone), false);
        return image->row(20)[30].g;
    };
    EXPECT_GT(developed(1.0f), developed(0.0f) * 1.2f);
}

TEST_F(LoadFrames, AMissingFileOfAnyNameIsLoggedInAnyLocale)
{
    // The C locale, in which programs start, has no umlauts.
    const auto path = folder / "fl\xc3\xb6te.jpg";
    const LogCapture capture;
    EXPECT_FALSE(loadFrame<HDRFrame>(path, static_cast<int>(ImageReaderOpenFlag::Bracket), {}, false).image);
    EXPECT_THAT(capture.texts(LogMessageType::Warning),
                testing::Contains("Can't open image at path: " + path.string()));
}
