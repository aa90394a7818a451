// lastFailure() of make_HDR, makeFocusStack, exportAligned and getSortedPathsAndEVsFromPaths.
#include "support/failures.hpp"
#include "support/files.hpp"
#include "support/temporary_folder.hpp"

#include <orvo_core/parallel.hpp>
#include <orvo_extensions/bracket.hpp>
#include <orvo_extensions/focus_stack.hpp>
#include <orvo_extensions/hdr.hpp>
#include <orvo_logger/log_capture.hpp>
#include <scenes/bracket_files.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <iostream>
#include <thread>

using namespace orvo;
using namespace orvo::test;
using testing::HasSubstr;

namespace {

using Paths = std::vector<std::filesystem::path>;

struct Operation
{
    const char* name;
    bool (*gives)(const Paths& paths); ///< true if all paths give a result
};

bool merges(const Paths& paths)
{
    return make_HDR(paths, {}, {}, [](HDRMergingPhaseName) {}).first != nullptr;
}

bool stacks(const Paths& paths)
{
    std::streambuf* const before = std::cerr.rdbuf(nullptr); // unreadable files are also reported there
    const auto image = makeFocusStack(paths, {});
    std::cerr.rdbuf(before);
    return image != nullptr;
}

bool exports(const Paths& paths)
{
    try {
        return exportAligned(paths, {}).size() == paths.size();
    } catch (const std::exception&) {
        return false;
    }
}

bool sorts(const Paths& paths) { return getSortedPathsAndEVsFromPaths(paths).first.size() == paths.size(); }

constexpr Operation kOperations[] = {
    {"make_HDR", merges}, {"makeFocusStack", stacks}, {"exportAligned", exports}, {"sortedPaths", sorts}};

void PrintTo(const Operation& operation, std::ostream* out) { *out << operation.name; }

class BracketFailures : public testing::TestWithParam<Operation>
{
protected:
    TemporaryFolder folder;

    std::filesystem::path frame(const std::string& name, float gain, int width = 64, int height = 48)
    {
        return writtenTo(folder / name, *texturedAt(gain, width, height));
    }
    Paths frames() { return {frame("a.tif", 0.5f), frame("b.tif", 0.8f), frame("c.tif", 1.2f)}; }

    static bool gives(const Paths& paths) { return GetParam().gives(paths); }
};

} // namespace

TEST_P(BracketFailures, ThereIsNoneIfThereIsAResult)
{
    ASSERT_TRUE(gives(frames()));
    EXPECT_FALSE(lastFailure().has_value());
}

TEST_P(BracketFailures, AMissingFile)
{
    Paths paths = frames();
    paths[1] = folder / "nowhere.tif";
    EXPECT_FALSE(gives(paths));
    expectLastFailure(FailureKind::UnreadableFile, paths[1]);
    EXPECT_THAT(lastFailure()->sentence, HasSubstr("No such file"));
}

TEST_P(BracketFailures, ATextInPlaceOfAPicture)
{
    Paths paths = frames();
    paths[2] = textFile(folder / "letter.jpg");
    EXPECT_FALSE(gives(paths));
    expectLastFailure(FailureKind::UnreadableFile, paths[2]);
}

TEST_P(BracketFailures, ADamagedFile)
{
    Paths paths = frames();
    damage(paths[0], 0.01);
    EXPECT_FALSE(gives(paths));
    expectLastFailure(FailureKind::UnreadableFile, paths[0]);
}

TEST_P(BracketFailures, OfSeveralTheFirstFileCountsOnAnyNumberOfThreads)
{
    Paths paths = frames();
    for (const std::size_t i : {1u, 2u})
        textFile(paths[i]);
    for (const int threads : {1, 2, 4}) {
        const WorkerLimit limit(threads);
        for (int attempt = 0; attempt < 10; ++attempt) {
            EXPECT_FALSE(gives(paths));
            expectLastFailure(FailureKind::UnreadableFile, paths[1]);
        }
    }
}

TEST_P(BracketFailures, TheNextCallClearsIt)
{
    EXPECT_FALSE(gives({folder / "nowhere.tif"}));
    ASSERT_TRUE(lastFailure().has_value());
    EXPECT_TRUE(gives(frames()));
    EXPECT_FALSE(lastFailure().has_value());
}

TEST_P(BracketFailures, EachThreadHasItsOwn)
{
    const Paths good = frames(); // writing them is also a call
    const auto letter = textFile(folder / "letter.jpg");
    EXPECT_FALSE(gives({folder / "nowhere.tif"}));
    std::thread([&] {
        EXPECT_FALSE(lastFailure().has_value());
        EXPECT_TRUE(sorts(good));
        EXPECT_FALSE(sorts({letter}));
        expectLastFailure(FailureKind::UnreadableFile, letter);
    }).join();
    expectLastFailure(FailureKind::UnreadableFile, folder / "nowhere.tif");
}

TEST_P(BracketFailures, NotEnoughMemory)
{
    const WorkerLimit limit(1); // so that all allocations are the calling thread's
    const Paths paths = frames();
    expectOutOfMemory([&] { return gives(paths); });
}

INSTANTIATE_TEST_SUITE_P(Operations, BracketFailures, testing::ValuesIn(kOperations),
                         [](const auto& tested) { return tested.param.name; });

class UnfittingFrames : public BracketFailures
{};

TEST_P(UnfittingFrames, AreTheFailureOfTheSmallerOne)
{
    // Sorted by exposure the larger one comes first.
    const Paths paths = {frame("a.tif", 0.4f, 64, 48), frame("b.tif", 1.2f, 32, 24)};
    EXPECT_FALSE(gives(paths));
    expectLastFailure(FailureKind::UnfittingPictures, paths[1]);
}

TEST_P(UnfittingFrames, AreThoseOfAsManyPixelsInAnotherShapeToo)
{
    const Paths paths = {frame("a.tif", 0.4f, 64, 48), frame("b.tif", 1.2f, 48, 64)};
    EXPECT_FALSE(gives(paths));
    expectLastFailure(FailureKind::UnfittingPictures, paths[1]);
}

INSTANTIATE_TEST_SUITE_P(Operations, UnfittingFrames, testing::Values(kOperations[0], kOperations[1]),
                         [](const auto& tested) { return tested.param.name; });

namespace {

class MergeFailures : public testing::Test
{
protected:
    TemporaryFolder folder;
    Paths paths = {writtenTo(folder / "a.tif", *texturedAt(0.5f, 64, 48)),
                   writtenTo(folder / "b.tif", *texturedAt(1.2f, 64, 48))};
    HDRSettings settings;

    MergeFailures() { settings.cancelFlag = std::make_shared<std::atomic<unsigned char>>(0); }

    void expectCancelled(const std::function<void(HDRMergingPhaseName)>& onPhase)
    {
        testing::internal::CaptureStderr();
        EXPECT_FALSE(make_HDR(paths, settings, {}, onPhase).first);
        (void)testing::internal::GetCapturedStderr();
        expectLastFailure(FailureKind::Cancelled);
        *settings.cancelFlag = 0;
    }
};

} // namespace

TEST_F(MergeFailures, CancelledAtTheStart)
{
    *settings.cancelFlag = 1;
    expectCancelled([](HDRMergingPhaseName) {});
}

TEST_F(MergeFailures, CancelledAtAnyPhaseButTheLastOnes)
{
    for (const auto last : {HDRMergingPhaseName::BracketStarted, HDRMergingPhaseName::FramesLoaded,
                            HDRMergingPhaseName::LadderBuilt, HDRMergingPhaseName::FirstFrameBlended})
        for (const bool deghosts : {false, true}) {
            SCOPED_TRACE(static_cast<int>(last));
            settings.ghostReduction = deghosts;
            expectCancelled([&](HDRMergingPhaseName phase) {
                if (phase == last)
                    *settings.cancelFlag = 1;
            });
        }
}

TEST_F(MergeFailures, CancelledTheRawFramesAreNotRead)
{
    scenes::BracketRecipe recipe;
    recipe.scene.size = {96, 64};
    recipe.evs = {-1.0, 1.0};
    paths = scenes::writeBracket(scenes::Bracket(recipe), folder.path(), {.format = scenes::BracketFileFormat::Dng});
    *settings.cancelFlag = 1;
    expectCancelled([](HDRMergingPhaseName) {});
}

TEST_F(MergeFailures, ACancelExplainsAFileThatFailedBesideIt)
{
    paths.push_back(textFile(folder / "letter.jpg"));
    *settings.cancelFlag = 1;
    expectCancelled([](HDRMergingPhaseName) {});
}

TEST_F(MergeFailures, WhatACallbackThrows)
{
    const auto failing = [](HDRMergingPhaseName) { throw std::runtime_error("the window was closed"); };
    const LogCapture log;
    EXPECT_FALSE(make_HDR(paths, settings, {}, failing).first);
    EXPECT_EQ(lastFailure(), (Failure{FailureKind::Internal, {}, "the window was closed"}));
    EXPECT_THAT(log.texts(LogMessageType::Error), testing::ElementsAre("Error in make_HDR: the window was closed"));
}

TEST_F(MergeFailures, NoFiles)
{
    EXPECT_FALSE(make_HDR({}, {}, {}, {}).first);
    expectLastFailure(FailureKind::Internal);
}

TEST_F(MergeFailures, AFrameThatCannotBeAlignedIsNamed)
{
    settings.alignment = true;
    paths = {writtenTo(folder / "a.tif", *plain(64, 48, 0.3f)), writtenTo(folder / "b.tif", *plain(64, 48, 0.6f))};
    for (const AlignmentQuality quality : {AlignmentQuality::Fast, AlignmentQuality::Fine}) {
        settings.alignmentQuality = quality;
        EXPECT_TRUE(make_HDR(paths, settings, {}, {}).first);
        EXPECT_THAT(lastShortfalls(),
                    testing::ElementsAre(Failure{FailureKind::UnfittingPictures, folder / "a.tif",
                                                 "stays where it is, since it cannot be aligned with b.tif"}));
        EXPECT_THAT(lastWarnings(), testing::IsEmpty());
        EXPECT_FALSE(lastFailure().has_value());
    }
    settings.alignment = false;
    EXPECT_TRUE(make_HDR(paths, settings, {}, {}).first);
    EXPECT_THAT(lastShortfalls(), testing::IsEmpty());
}

TEST_F(MergeFailures, FramesThatShareTooLittle)
{
    settings.alignment = true;
    paths = {writtenTo(folder / "a.tif", *textured(320, 240)), writtenTo(folder / "b.tif", *textured(320, 240, 50, 0))};
    for (const AlignmentQuality quality : {AlignmentQuality::Fast, AlignmentQuality::Fine}) {
        settings.alignmentQuality = quality;
        EXPECT_TRUE(make_HDR(paths, settings, {}, {}).first);
        ASSERT_EQ(lastShortfalls().size(), 1u);
        EXPECT_EQ(lastShortfalls()[0].file, folder / "b.tif");
        EXPECT_THAT(lastShortfalls()[0].sentence, HasSubstr("too little would remain"));
    }
}

TEST(ExportAlignedFailures, ARawFileThatDropsOut)
{
    const TemporaryFolder folder;
    scenes::BracketRecipe recipe;
    recipe.scene.size = {96, 64};
    recipe.evs = {-1.0, 0.0, 1.0};
    const auto paths =
        scenes::writeBracket(scenes::Bracket(recipe), folder.path(), {.format = scenes::BracketFileFormat::Dng});
    damage(paths[1]);
    EXPECT_EQ(exportAligned(paths, {}).size(), 2u);
    expectLastFailure(FailureKind::UnreadableFile, paths[1]);
}

TEST(ExportAlignedFailures, TheExceptionIsTheFailure)
{
    const TemporaryFolder folder;
    try {
        (void)exportAligned({textFile(folder / "letter.tif")}, {});
        FAIL();
    } catch (const FailureError& error) {
        EXPECT_EQ(error.failure(), lastFailure());
    }
}
