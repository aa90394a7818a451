#include "bracket/late_frames.hpp"
#include "support/files.hpp"
#include "support/temporary_folder.hpp"

#include <orvo_common/memory_manager.hpp>
#include <orvo_core/parallel.hpp>
#include <scenes/bracket_files.hpp>

#include <gtest/gtest.h>

using namespace orvo;
using namespace orvo::test;

namespace {

constexpr int kThreads[] = {1, 2, 5};

// Four camera files.
class LateFramesTest : public testing::Test
{
protected:
    TemporaryFolder folder;
    std::vector<std::filesystem::path> files = written();
    HDRSettings settings;

    std::vector<std::filesystem::path> written()
    {
        scenes::BracketRecipe recipe;
        recipe.scene.size = {240, 160};
        recipe.evs = {-2.0, -1.0, 0.0, 1.0};
        return scenes::writeBracket(scenes::Bracket(recipe), folder.path(), {});
    }
};

} // namespace

TEST_F(LateFramesTest, AFrameReadAheadHasTheSamePixels)
{
    const auto inputs = inputsOf(files);
    LateFrames plainly(inputs, settings, RunControl::none());
    for (const int threads : kThreads) {
        const WorkerLimit limit(threads);
        LateFrames frames(inputs, settings, RunControl::none());
        for (std::size_t i = 0; i < files.size(); ++i) {
            const auto pixels = frames.read(i);
            if (i + 1 < files.size())
                frames.readAhead(i + 1);
            EXPECT_TRUE(sameBytes(*pixels, *plainly.read(i))) << threads;
        }
    }
}

TEST_F(LateFramesTest, AnotherFrameThanTheOneReadAheadCanBeRead)
{
    const auto inputs = inputsOf(files);
    const std::size_t live = MemoryManager::instance().liveBytes();
    for (const int threads : kThreads) {
        const WorkerLimit limit(threads);
        LateFrames frames(inputs, settings, RunControl::none());
        frames.readAhead(1);
        const auto second = frames.read(2);
        frames.readAhead(3); // instead of the first
        const auto third = frames.read(3);
        const auto first = frames.read(1);
        LateFrames plainly(inputs, settings, RunControl::none());
        EXPECT_TRUE(sameBytes(*first, *plainly.read(1)));
        EXPECT_TRUE(sameBytes(*second, *plainly.read(2)));
        EXPECT_TRUE(sameBytes(*third, *plainly.read(3)));
        frames.readAhead(0); // and never read
    }
    EXPECT_EQ(MemoryManager::instance().liveBytes(), live);
}

TEST_F(LateFramesTest, AFailureIsThrownWhereTheFrameIsRead)
{
    std::filesystem::resize_file(files[1], std::filesystem::file_size(files[1]) * 2 / 3);
    const auto inputs = inputsOf(files);
    for (const int threads : kThreads) {
        const WorkerLimit limit(threads);
        details::StatementScope scope;
        LateFrames frames(inputs, settings, RunControl::none());
        frames.readAhead(1);
        EXPECT_TRUE(frames.read(2));
        EXPECT_FALSE(scope.take().failure);
        try {
            (void)frames.read(1);
            FAIL();
        } catch (const FailureError& error) {
            EXPECT_EQ(error.failure().file, files[1]) << threads;
            EXPECT_EQ(scope.take().failure, error.failure());
        }
    }
}
