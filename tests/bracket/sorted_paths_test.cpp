// Exceptions while sorting paths. Nothing there fails by itself, so each allocation in turn fails.
#include "support/failing_memory.hpp"
#include "support/files.hpp"
#include "support/temporary_folder.hpp"

#include <orvo_core/parallel.hpp>
#include <orvo_extensions/bracket.hpp>
#include <orvo_logger/log_capture.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>

using namespace orvo;
using namespace orvo::test;

TEST(SortedPaths, AnExceptionInsideIsLoggedAndGivesNothing)
{
    if (!kAllocationsCanFail)
        GTEST_SKIP() << "allocations cannot fail under the thread sanitizer";
    const WorkerLimit limit(1); // allocations of this thread are counted
    const TemporaryFolder folder;
    const std::vector<std::filesystem::path> paths = {writtenTo(folder / "bright.tif", *texturedAt(1.1f, 24, 16)),
                                                      writtenTo(folder / "dark.tif", *texturedAt(0.4f, 24, 16))};
    ASSERT_EQ(getSortedPathsAndEVsFromPaths(paths).first.size(), 2u); // one-time allocations are done now
    constexpr long kEnough = 1'000'000'000;
    allocationsLeft = kEnough;
    const bool sortedBoth = getSortedPathsAndEVsFromPaths(paths).first.size() == 2;
    const long total = kEnough - allocationsLeft;
    allocationsLeft = -1;
    ASSERT_TRUE(sortedBoth);
    ASSERT_GT(total, 0);
    // Some inside the reader, and the last ones, which fill the result.
    std::vector<long> failing;
    for (long i = 0; i < 12; ++i)
        failing.push_back(total * i / 12);
    for (long i = std::max(total - 4, 0L); i < total; ++i)
        failing.push_back(i);
    int caught = 0;
    for (const long allocations : failing) {
        const LogCapture capture;
        allocationsLeft = allocations;
        const auto [sorted, evs] = getSortedPathsAndEVsFromPaths(paths);
        allocationsLeft = -1;
        const auto errors = capture.texts(LogMessageType::Error);
        ASSERT_EQ(sorted.size(), evs.size()) << allocations;
        if (errors.empty())
            continue; // a caller on the way handled it
        EXPECT_THAT(errors, testing::ElementsAre("Error in getSortedPathsAndEVsFromPaths: std::bad_alloc"));
        EXPECT_TRUE(sorted.empty()) << allocations;
        ++caught;
    }
    EXPECT_GT(caught, 0);
}
