// Batches of jobs that are none: what runs when, and what comes of it.
#include "support/temporary_folder.hpp"

#include <jobs/batch_job.hpp>
#include <orvo_extensions/failure.hpp>

#include <gmock/gmock.h>

#include <atomic>
#include <chrono>
#include <fstream>
#include <mutex>
#include <thread>

namespace orvo::jobs {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

using State = BatchState;

class BatchJob : public testing::Test
{
protected:
    /// A task that writes its output and takes long enough for others to begin.
    BatchTask task(const std::string& name, std::uint64_t bytes = 1)
    {
        BatchTask task;
        task.inputs = {folder / (name + ".in")};
        std::ofstream(task.inputs[0]) << name;
        task.output = folder / (name + ".out");
        task.memoryBytes = bytes;
        task.run = [this, bytes, output = task.output](const JobCallbacks& callbacks) {
            {
                const std::lock_guard lock(mutex);
                used += bytes;
                mostUsed = std::max(mostUsed, used);
                ++started;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
            PictureJobResult result;
            result.output = output;
            result.outcome = callbacks.cancelled() ? JobOutcome::Cancelled : JobOutcome::Done;
            if (result.done())
                std::ofstream(output) << "result";
            const std::lock_guard lock(mutex);
            used -= bytes;
            return result;
        };
        return task;
    }

    static std::vector<State> statesOf(const BatchResult& result)
    {
        std::vector<State> states;
        for (const BatchItem& item : result.items)
            states.push_back(item.state);
        return states;
    }

    test::TemporaryFolder folder;
    std::mutex mutex;
    std::uint64_t used = 0;
    std::uint64_t mostUsed = 0;
    int started = 0;
};

TEST_F(BatchJob, RunsAllInTheMemoryThatIsAllowed)
{
    std::vector<BatchTask> tasks;
    for (int i = 0; i < 12; ++i)
        tasks.push_back(task(std::to_string(i), i % 3 == 0 ? 60 : 30));
    const BatchResult result = batchJob(tasks, {.memoryBytes = 100, .threads = 16});
    EXPECT_TRUE(result.done());
    EXPECT_EQ(result.count(State::Done), 12u);
    EXPECT_LE(mostUsed, 100u);
    EXPECT_LE(result.mostAtOnce, 3u);
}

TEST_F(BatchJob, WhatNeedsMoreRunsAloneAndIsNoted)
{
    std::vector<BatchTask> tasks{task("a", 30), task("b", 500), task("c", 30)};
    const BatchResult result = batchJob(tasks, {.memoryBytes = 100, .threads = 16});
    EXPECT_THAT(statesOf(result), ElementsAre(State::Done, State::Done, State::Done));
    EXPECT_EQ(mostUsed, 500u) << "nothing beside it";
    EXPECT_THAT(result.items[1].result.warnings, ElementsAre(HasSubstr("ran alone")));
    EXPECT_THAT(result.items[0].result.warnings, testing::IsEmpty());
}

TEST_F(BatchJob, OneThreadRunsOneJobAtATime)
{
    std::vector<BatchTask> tasks{task("a"), task("b"), task("c")};
    EXPECT_EQ(batchJob(tasks, {.memoryBytes = 100, .threads = 1}).mostAtOnce, 1u);
}

TEST_F(BatchJob, NotMoreAtOnceThanAllowed)
{
    std::vector<BatchTask> tasks{task("a"), task("b"), task("c"), task("d")};
    EXPECT_EQ(batchJob(tasks, {.memoryBytes = 100, .threads = 16, .jobsAtOnce = 1}).mostAtOnce, 1u);
}

TEST_F(BatchJob, SkipsResultsThatNoInputIsNewerThan)
{
    std::vector<BatchTask> tasks{task("old"), task("current"), task("none")};
    const auto now = std::filesystem::file_time_type::clock::now();
    for (const auto& each : tasks)
        std::filesystem::last_write_time(each.inputs[0], now - std::chrono::hours(1));
    std::ofstream(tasks[0].output) << "earlier";
    std::filesystem::last_write_time(tasks[0].output, now - std::chrono::hours(2));
    std::ofstream(tasks[1].output) << "earlier";
    EXPECT_THAT(statesOf(batchJob(tasks, {})), ElementsAre(State::Done, State::Skipped, State::Done));
    EXPECT_EQ(started, 2);
    EXPECT_THAT(statesOf(batchJob(tasks, {})), ElementsAre(State::Skipped, State::Skipped, State::Skipped));
    EXPECT_THAT(statesOf(batchJob(tasks, {.force = true})), ElementsAre(State::Done, State::Done, State::Done));
}

TEST_F(BatchJob, AFailureStopsNoOther)
{
    std::vector<BatchTask> tasks{task("a"), task("b"), task("c"), task("d")};
    tasks[0].run = [](const JobCallbacks&) {
        PictureJobResult result;
        result.message = "a.in: it is broken";
        return result;
    };
    tasks[2].run = [](const JobCallbacks&) -> PictureJobResult { throw std::bad_alloc(); };
    const BatchResult result = batchJob(tasks, {});
    EXPECT_THAT(statesOf(result), ElementsAre(State::Failed, State::Done, State::Failed, State::Done));
    EXPECT_EQ(result.outcome, JobOutcome::Failed);
    EXPECT_EQ(result.message, "2 of 4 jobs failed");
    EXPECT_EQ(result.items[0].result.message, "a.in: it is broken");
    EXPECT_FALSE(result.items[2].result.message.empty());
}

TEST_F(BatchJob, TwoJobsDoNotWriteOneFile)
{
    std::vector<BatchTask> tasks{task("a"), task("b"), task("c")};
    tasks[1].output = folder.path() / "." / "a.out";
    tasks[2].output = tasks[0].inputs[0];
    const BatchResult result = batchJob(tasks, {});
    EXPECT_THAT(statesOf(result), ElementsAre(State::Done, State::Failed, State::Failed));
    EXPECT_THAT(result.items[1].result.message, HasSubstr("result of two jobs"));
    EXPECT_THAT(result.items[2].result.message, HasSubstr("would replace an input"));
    EXPECT_EQ(started, 1);
}

TEST_F(BatchJob, ACancelEndsTheRunningAndStartsNoMore)
{
    std::vector<BatchTask> tasks;
    for (int i = 0; i < 8; ++i)
        tasks.push_back(task(std::to_string(i)));
    JobCallbacks callbacks;
    callbacks.cancelFlag = std::make_shared<std::atomic<unsigned char>>(static_cast<unsigned char>(0));
    const auto first = tasks[0].run;
    tasks[0].run = [&, first](const JobCallbacks& given) {
        *callbacks.cancelFlag = 1;
        return first(given);
    };
    const BatchResult result = batchJob(tasks, {.threads = 1}, callbacks);
    EXPECT_EQ(result.outcome, JobOutcome::Cancelled);
    EXPECT_EQ(result.items[0].state, State::Cancelled);
    EXPECT_EQ(result.count(State::NotStarted), 7u);
    EXPECT_FALSE(std::filesystem::exists(tasks[0].output));
}

TEST_F(BatchJob, ProgressNeverDecreasesAndEndsAtOne)
{
    std::vector<BatchTask> tasks{task("a"), task("b"), task("c"), task("d")};
    std::vector<double> fractions;
    JobCallbacks callbacks;
    callbacks.progress = [&](const JobProgress& progress) { fractions.push_back(progress.fraction); };
    EXPECT_TRUE(batchJob(tasks, {}, callbacks).done());
    EXPECT_TRUE(std::is_sorted(fractions.begin(), fractions.end()));
    EXPECT_EQ(fractions.back(), 1.0);
}

TEST_F(BatchJob, NothingIsDoneAtOnce) { EXPECT_TRUE(batchJob({}, {}).done()); }

} // namespace
} // namespace orvo::jobs
