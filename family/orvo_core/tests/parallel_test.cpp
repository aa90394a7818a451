#include <orvo_core/parallel.hpp>

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <set>
#include <thread>
#include <vector>

using namespace orvo;

namespace {

// The number of threads that ran a loop. Its rows wait until `expected` of them have started, so that one thread cannot
// run all rows before others wake; with a timeout, since they may never come.
std::size_t threadsOfALoop(std::size_t expected)
{
    constexpr std::chrono::seconds kPatience(20);
    const auto end = std::chrono::steady_clock::now() + kPatience;
    std::mutex mutex;
    std::condition_variable came;
    std::set<std::thread::id> threads;
    forEachRow(200, [&](int) {
        std::unique_lock lock(mutex);
        threads.insert(std::this_thread::get_id());
        came.notify_all();
        came.wait_until(lock, end, [&] { return threads.size() >= expected; });
    });
    return threads.size();
}

} // namespace

TEST(WorkerLimit, AppliesDuringItsLifetime)
{
    {
        const WorkerLimit limit(1);
        EXPECT_EQ(threadsOfALoop(1), 1u);
        {
            const WorkerLimit looser(4); // the strictest limit applies
            EXPECT_EQ(threadsOfALoop(1), 1u);
        }
        const WorkerLimit none(0);
        EXPECT_EQ(threadsOfALoop(1), 1u);
    }
    if (std::thread::hardware_concurrency() > 1) {
        EXPECT_GT(threadsOfALoop(2), 1u);
    }
}

TEST(ForEachRow, VisitsEachRowOnce)
{
    for (const int height : {-1, 0, 1, 7, 1000}) {
        std::vector<std::atomic<int>> visits(static_cast<std::size_t>(std::max(0, height)));
        forEachRow(height, [&](int y) { ++visits[static_cast<std::size_t>(y)]; });
        for (const auto& count : visits)
            EXPECT_EQ(count, 1);
    }
}

TEST(ForEachRange, CoversEachSampleOnce)
{
    for (const std::size_t count : {std::size_t{0}, std::size_t{1}, std::size_t{4097}, std::size_t{100000}}) {
        std::vector<std::atomic<int>> visits(count);
        forEachRange(count, [&](std::size_t first, std::size_t last) {
            for (std::size_t i = first; i < last; ++i)
                ++visits[i];
        });
        for (const auto& visit : visits)
            ASSERT_EQ(visit, 1);
    }
}

namespace {

int rowOfException(int threads)
{
    const WorkerLimit limit(threads);
    try {
        forEachRow(2000, [](int y) {
            if (y % 97 == 60)
                throw y;
        });
    } catch (int row) {
        return row;
    }
    return -1;
}

} // namespace

TEST(ForEachRow, TheLowestExceptionReachesTheCaller)
{
    for (int attempt = 0; attempt < 50; ++attempt)
        for (const int threads : {1, 2, 4})
            ASSERT_EQ(rowOfException(threads), 60);
}

TEST(ForEachRange, TheLowestExceptionReachesTheCaller)
{
    for (int attempt = 0; attempt < 50; ++attempt) {
        try {
            forEachRange(100'000, [](std::size_t first, std::size_t last) {
                for (std::size_t i = first; i < last; ++i)
                    if (i % 10'000 == 7'000)
                        throw i;
            });
            FAIL();
        } catch (std::size_t index) {
            ASSERT_EQ(index, 7'000u);
        }
    }
}

TEST(ForEachItem, StatementsReachTheCallerInOrder)
{
    for (int attempt = 0; attempt < 50; ++attempt) {
        {
            const details::CallScope call;
            forEachItem(200, [](std::size_t i) {
                if (i % 50 == 20)
                    details::stateFailure({FailureKind::UnreadableFile, {}, std::to_string(i)});
                if (i % 50 == 10)
                    details::keepWarning(std::to_string(i));
            });
        }
        ASSERT_EQ(lastFailure()->sentence, "20");
        ASSERT_EQ(lastWarnings(), (std::vector<std::string>{"10", "60", "110", "160"}));
    }
}
