#include <orvo_core/made_ahead.hpp>
#include <orvo_core/parallel.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <future>
#include <memory>
#include <stdexcept>
#include <vector>

using namespace orvo;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr int kThreads[] = {1, 2, 5};

Failure unreadable(const char* file) { return {FailureKind::UnreadableFile, file, "it ends early"}; }

} // namespace

TEST(MadeAhead, GivesTheValueForAnyNumberOfThreads)
{
    for (const int threads : kThreads) {
        const WorkerLimit limit(threads);
        MadeAhead<std::unique_ptr<int>> ahead([] { return std::make_unique<int>(7); });
        EXPECT_EQ(*ahead.take(), 7) << threads;
    }
}

TEST(MadeAhead, MakesItWhileTheCallingThreadDoesSomethingElse)
{
    const WorkerLimit limit(2); // on one processor too
    std::promise<int> here;
    MadeAhead<int> ahead([&] { return here.get_future().get() + 1; }); // would wait for ever on this thread
    here.set_value(41);
    EXPECT_EQ(ahead.take(), 42);
}

TEST(MadeAhead, MakesItWhereItIsTakenIfLoopsRunOnOneThread)
{
    const WorkerLimit limit(1);
    std::vector<std::thread::id> makers;
    const auto make = [&] {
        makers.push_back(std::this_thread::get_id());
        return 1;
    };
    {
        MadeAhead<int> ahead(make);
        EXPECT_THAT(makers, IsEmpty());
        EXPECT_EQ(ahead.take(), 1);
        const MadeAhead<int> dropped(make);
    }
    EXPECT_THAT(makers, ElementsAre(std::this_thread::get_id()));
}

TEST(MadeAhead, RunsParallelLoops)
{
    const WorkerLimit limit(4);
    std::vector<int> squares(3000);
    MadeAhead<int> ahead([&] {
        forEachRow(3000, [&](int y) { squares[static_cast<std::size_t>(y)] = y * y; });
        return 1;
    });
    std::vector<int> here(3000);
    forEachRow(3000, [&](int y) { here[static_cast<std::size_t>(y)] = y * y; });
    EXPECT_EQ(ahead.take(), 1);
    EXPECT_EQ(squares, here);
}

TEST(MadeAhead, ItsExceptionIsThrownWhereItIsTaken)
{
    for (const int threads : kThreads) {
        const WorkerLimit limit(threads);
        MadeAhead<int> ahead([]() -> int { throw FailureError(unreadable("b.jpg")); });
        try {
            (void)ahead.take();
            FAIL();
        } catch (const FailureError& error) {
            EXPECT_EQ(error.failure(), unreadable("b.jpg")) << threads;
        }
    }
}

TEST(MadeAhead, WhatItStatesBelongsToTheThreadThatTakesItInTheOrderOfTaking)
{
    for (const int threads : kThreads) {
        const WorkerLimit limit(threads);
        details::StatementScope scope;
        MadeAhead<int> ahead([] {
            details::keepWarning("second");
            details::stateFailure(unreadable("b.jpg"));
            details::keepShortfall(unreadable("c.jpg"));
            return 0;
        });
        details::keepWarning("first");
        EXPECT_EQ(ahead.take(), 0);
        const details::Statements said = scope.take();
        EXPECT_THAT(said.warnings, ElementsAre("first", "second")) << threads;
        EXPECT_EQ(said.failure, unreadable("b.jpg"));
        EXPECT_THAT(said.shortfalls, ElementsAre(unreadable("c.jpg")));
    }
}

TEST(MadeAhead, AnEarlierFailureOfTheCallingThreadCounts)
{
    for (const int threads : kThreads) {
        const WorkerLimit limit(threads);
        details::StatementScope scope;
        MadeAhead<int> ahead([] {
            details::stateFailure(unreadable("b.jpg"));
            return 0;
        });
        details::stateFailure(unreadable("a.jpg"));
        EXPECT_EQ(ahead.take(), 0);
        EXPECT_EQ(scope.take().failure, unreadable("a.jpg")) << threads;
    }
}

TEST(MadeAhead, OneThatIsNotTakenEndsBeforeItGoesAndLeavesNothing)
{
    for (const int threads : kThreads) {
        const WorkerLimit limit(threads);
        details::StatementScope scope;
        const auto held = std::make_shared<int>(1);
        {
            const MadeAhead<std::shared_ptr<int>> ahead([&]() -> std::shared_ptr<int> {
                details::keepWarning("never heard");
                if (threads == 5)
                    throw std::runtime_error("never seen");
                return held;
            });
        }
        EXPECT_EQ(held.use_count(), 1);
        const details::Statements said = scope.take();
        EXPECT_THAT(said.warnings, IsEmpty());
        EXPECT_FALSE(said.failure);
    }
}
