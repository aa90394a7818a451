// Merges that read their frames while they blend: the same pictures and statements as merges that hold all frames.
#include "support/files.hpp"
#include "support/temporary_folder.hpp"

#include <orvo_common/memory_manager.hpp>
#include <orvo_core/parallel.hpp>
#include <orvo_extensions/requests.hpp>
#include <orvo_io/image_reader.hpp>
#include <scenes/bracket_files.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <utility>

using namespace orvo;
using namespace orvo::test;
using testing::HasSubstr;

namespace {

using Paths = std::vector<std::filesystem::path>;

class LateMerge : public testing::Test
{
protected:
    TemporaryFolder folder;
    std::vector<int> phases;

    /// Frames without exposure data, the middle one first.
    Paths plainFrames(std::size_t count, const std::string& extension, int width = 160, int height = 120)
    {
        Paths files;
        for (std::size_t i = 0; i < count; ++i) {
            const float gain = 0.4f + 1.1f * static_cast<float>((i + count / 2) % count) / static_cast<float>(count);
            files.push_back(
                writtenTo(folder / ("plain" + std::to_string(i) + extension), *texturedAt(gain, width, height)));
        }
        return files;
    }

    HdrResult merged(const Paths& files, bool keepsMiddleFrame, const HDRSettings& settings = {})
    {
        phases.clear();
        HdrRequest request;
        request.pictures = inputsOf(files);
        request.settings = settings;
        request.keepsMiddleFrame = keepsMiddleFrame;
        request.onPhase = [this](HDRMergingPhaseName phase) { phases.push_back(static_cast<int>(phase)); };
        return perform(request);
    }

    void expectSame(const Paths& files, const HDRSettings& settings = {})
    {
        const HdrResult expected = merged(files, true, settings);
        const std::vector<int> expectedPhases = phases;
        const HdrResult found = merged(files, false, settings);
        ASSERT_TRUE(expected.image && found.image) << files[0];
        EXPECT_TRUE(expected.middleFrame);
        EXPECT_FALSE(found.middleFrame);
        EXPECT_EQ(phases, expectedPhases);
        EXPECT_EQ(found.warnings, expected.warnings);
        const auto a = found.image->developedOriginalImageData({});
        const auto b = expected.image->developedOriginalImageData({});
        ASSERT_EQ(a->size(), b->size());
        EXPECT_EQ(std::memcmp(a->data(), b->data(), a->pixelCount() * sizeof(PixelRGB<float>)), 0) << files[0];
        EXPECT_EQ(found.image->metadata()->exposureOffset, expected.image->metadata()->exposureOffset);
        EXPECT_EQ(found.image->metadata()->shutterSeconds, expected.image->metadata()->shutterSeconds);
        EXPECT_EQ(*found.image->metadata()->fileProfile, *expected.image->metadata()->fileProfile);
    }
};

} // namespace

TEST_F(LateMerge, GivesTheSamePictureAndPhases)
{
    for (const std::size_t count : {1U, 2U, 3U, 4U, 5U})
        expectSame(plainFrames(count, ".tif"));
    for (const char* const extension : {".jpg", ".png", ".exr"})
        expectSame(plainFrames(3, extension));
}

TEST_F(LateMerge, OfCameraFilesGivesTheSamePictureWithEachCorrection)
{
    scenes::BracketRecipe recipe;
    recipe.scene.size = {240, 160};
    const Paths files = scenes::writeBracket(scenes::Bracket(recipe), folder.path(), {});
    expectSame(files);
    HDRSettings settings;
    settings.chromaticAberrations = true;
    settings.lensCorrection = true;
    settings.highlightHue = HighlightHue::Kept;
    settings.whiteBalance = 0.5f;
    settings.details = 0.5f;
    expectSame(files, settings);
}

TEST_F(LateMerge, OfAlignedAndDeghostedFramesIsTheSame)
{
    HDRSettings settings;
    settings.alignment = true;
    expectSame(plainFrames(3, ".tif"), settings);
    settings.alignment = false;
    settings.ghostReduction = true;
    expectSame(plainFrames(4, ".tif"), settings);
}

TEST_F(LateMerge, HoldsOneFrameBesidesTheResultAndOfALongBracketTheNext)
{
    constexpr int kWidth = 300;
    constexpr int kHeight = 2400;
    constexpr double kPicture = 12.0 * kWidth * kHeight;
    const WorkerLimit limit(2); // else it is not read ahead
    for (const auto& [count, pictures] : {std::pair{3U, 2.4}, {7U, 3.4}}) {
        const Paths files = plainFrames(count, ".tif", kWidth, kHeight);
        MemoryManager& memory = MemoryManager::instance();
        const std::size_t before = memory.liveBytes();
        memory.resetPeak();
        ASSERT_TRUE(merged(files, false).image);
        EXPECT_LT(static_cast<double>(memory.peakBytes() - before), pictures * kPicture) << count;
    }
}

TEST_F(LateMerge, OfAMissingFileNamesIt)
{
    Paths files = plainFrames(3, ".tif");
    files.push_back(folder / "missing.tif");
    const HdrResult result = merged(files, false);
    EXPECT_FALSE(result.image);
    ASSERT_TRUE(result.failure);
    EXPECT_EQ(result.failure->kind, FailureKind::UnreadableFile);
    EXPECT_EQ(result.failure->file, files.back());
    EXPECT_THAT(result.failure->sentence, HasSubstr("o such file"));
}

TEST_F(LateMerge, OfAFrameThatIsCutOffFailsTheSameWay)
{
    for (const char* const extension : {".jpg", ".tif"}) {
        const Paths files = plainFrames(3, extension);
        std::filesystem::resize_file(files[1], std::filesystem::file_size(files[1]) * 2 / 3);
        const HdrResult expected = merged(files, true);
        const HdrResult found = merged(files, false);
        ASSERT_TRUE(expected.failure && found.failure) << extension;
        EXPECT_EQ(describe(*found.failure), describe(*expected.failure));
        EXPECT_EQ(found.failure->file, files[1]);
    }
}

TEST_F(LateMerge, OfPixelsThatCannotBeReadFailsDuringTheBlend)
{
    scenes::BracketRecipe recipe;
    recipe.scene.size = {240, 160};
    for (const std::size_t broken : {0U, 2U}) { // read last, and first
        const Paths files = scenes::writeBracket(scenes::Bracket(recipe), folder.path(), {});
        std::filesystem::resize_file(files[broken],
                                     std::filesystem::file_size(files[broken]) * 2 / 3); // after its header
        const HdrResult result = merged(files, false);
        ASSERT_TRUE(result.failure);
        EXPECT_EQ(result.failure->kind, FailureKind::UnreadableFile);
        EXPECT_EQ(result.failure->file, files[broken]);
        EXPECT_EQ(describe(*result.failure), describe(*merged(files, true).failure));
    }
}

TEST_F(LateMerge, OfALongBracketIsTheSameForAnyNumberOfThreads)
{
    const Paths files = plainFrames(6, ".jpg");
    for (const int threads : {1, 2, 5}) {
        const WorkerLimit limit(threads);
        expectSame(files);
    }
}

// The next file is read on another thread while a frame is blended; a failure must not depend on which is faster.
TEST_F(LateMerge, OfALongBracketNamesTheSameUnreadableFileForAnyNumberOfThreads)
{
    scenes::BracketRecipe recipe;
    recipe.scene.size = {240, 160};
    recipe.evs = {-3.0, -2.0, -1.0, 0.0, 1.0, 2.0};
    const Paths files = scenes::writeBracket(scenes::Bracket(recipe), folder.path(), {});
    for (const std::size_t broken : {1U, 2U}) // after their headers
        std::filesystem::resize_file(files[broken], std::filesystem::file_size(files[broken]) * 2 / 3);
    for (const int threads : {1, 2, 5}) {
        const WorkerLimit limit(threads);
        const HdrResult result = merged(files, false);
        ASSERT_TRUE(result.failure) << threads;
        EXPECT_EQ(result.failure->kind, FailureKind::UnreadableFile) << threads;
        EXPECT_EQ(result.failure->file, files[2]) << "the brighter of the two is blended first";
        EXPECT_THAT(phases, testing::ElementsAre(0, 1, 2, 3, 4)) << "two frames are blended";
    }
}

TEST_F(LateMerge, OfALongBracketIsCancelledAtEachPoll)
{
    const Paths files = plainFrames(6, ".jpg");
    int polls = 0;
    const auto mergedUntil = [&](int last) {
        polls = 0;
        HdrRequest request;
        request.pictures = inputsOf(files);
        request.keepsMiddleFrame = false;
        request.cancel = [&] { return ++polls >= last; };
        return perform(request);
    };
    ASSERT_TRUE(mergedUntil(1'000'000).image);
    const int all = polls;
    EXPECT_GT(all, 2 * 6) << "frames opened and blended";
    const std::size_t live = MemoryManager::instance().liveBytes();
    for (int last = 1; last <= all; ++last) {
        const HdrResult result = mergedUntil(last);
        EXPECT_FALSE(result.image) << last << " of " << all;
        ASSERT_TRUE(result.failure) << last;
        EXPECT_EQ(result.failure->kind, FailureKind::Cancelled) << last;
        EXPECT_EQ(MemoryManager::instance().liveBytes(), live) << last;
    }
}

TEST_F(LateMerge, RefusesASmallerFrame)
{
    Paths files = plainFrames(3, ".tif");
    writtenTo(files[2], *texturedAt(3.0f, 100, 80)); // the brightest, so that the first one is larger
    const HdrResult result = merged(files, false);
    ASSERT_TRUE(result.failure);
    EXPECT_EQ(result.failure->kind, FailureKind::UnfittingPictures);
    EXPECT_EQ(result.failure->file, files[2]);
    EXPECT_EQ(result.failure->sentence, merged(files, true).failure->sentence);
}

TEST_F(LateMerge, IsCancelledAtEachPhase)
{
    const Paths files = plainFrames(5, ".tif");
    for (const int last : {0, 1, 2, 3, 4}) {
        std::vector<int> reached;
        HdrRequest request;
        request.pictures = inputsOf(files);
        request.keepsMiddleFrame = false;
        request.onPhase = [&](HDRMergingPhaseName phase) { reached.push_back(static_cast<int>(phase)); };
        request.cancel = [&] { return !reached.empty() && reached.back() >= last; };
        const HdrResult result = perform(request);
        ASSERT_TRUE(result.failure) << last;
        EXPECT_EQ(result.failure->kind, FailureKind::Cancelled) << last;
        EXPECT_EQ(reached.back(), last);
    }
}
