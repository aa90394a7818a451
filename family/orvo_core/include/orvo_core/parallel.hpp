/// Loops over rows and pixels on the oneTBB pool.
#pragma once

#include <orvo_common/export.hpp>
#include <orvo_common/failure.hpp>

#include <tbb/blocked_range.h>
#include <tbb/parallel_for.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <limits>
#include <memory>
#include <mutex>
#include <utility>
#include <vector>

namespace orvo {
namespace details {

/// Keeps the exception of the lowest index in a parallel loop. Indices below the lowest failed one still run, so the
/// choice does not depend on the threads.
class ORVO_EXPORT LowestException
{
public:
    /// Runs `part`, which begins at `index`, unless a lower one has failed, and keeps its exception.
    template <typename Part>
    void guard(std::int64_t index, const Part& part)
    {
        if (index > lowest.load(std::memory_order_relaxed))
            return;
        try {
            part();
        } catch (...) {
            keep(index);
        }
    }
    /// Throws the kept exception, if any.
    void rethrow() const;

private:
    void keep(std::int64_t index) noexcept; // keeps the exception being handled

    std::atomic<std::int64_t> lowest = std::numeric_limits<std::int64_t>::max();
    std::mutex mutex;
    std::exception_ptr exception;
};

} // namespace details

/// tbb::parallel_for over a blocked range. Of several exceptions rethrows that of the lowest index. `more`: partitioner
/// and context.
template <typename Index, typename Body, typename... More>
void parallelFor(const tbb::blocked_range<Index>& range, const Body& body, More&&... more)
{
    details::LowestException failed;
    tbb::parallel_for(
        range,
        [&](const tbb::blocked_range<Index>& part) {
            failed.guard(static_cast<std::int64_t>(part.begin()), [&] { body(part); });
        },
        std::forward<More>(more)...);
    failed.rethrow();
}

/// Runs `body(i)` once for each item, 0 <= i < count, in any order and on any thread; waits for all. Forwards the
/// failures and warnings of the items (failure.hpp) to the calling thread in item order, so that the lowest failure
/// counts.
template <typename Body>
void forEachItem(std::size_t count, const Body& body)
{
    std::vector<details::Statements> statements(count);
    const auto runOne = [&](const tbb::blocked_range<std::size_t>& items) {
        for (std::size_t i = items.begin(); i != items.end(); ++i) {
            details::StatementScope scope;
            body(i);
            statements[i] = scope.take();
        }
    };
    parallelFor(tbb::blocked_range<std::size_t>(0, count), runOne, tbb::auto_partitioner());
    for (details::Statements& each : statements)
        details::addStatements(std::move(each));
}

/// Calls `body(y)` once for each row, 0 <= y < height, in any order and on any thread, and waits for all. Each call
/// writes only its own row, so results do not depend on the number of threads. Of several exceptions rethrows that of
/// the lowest row.
template <typename Body>
void forEachRow(int height, const Body& body)
{
    parallelFor(
        tbb::blocked_range<int>(0, height < 0 ? 0 : height),
        [&body](const tbb::blocked_range<int>& rows) {
            for (int y = rows.begin(); y != rows.end(); ++y)
                body(y);
        },
        tbb::auto_partitioner());
}

/// The same for pixels or samples: `body(first, last)` for ranges that together cover 0..count-1. Ranges give the
/// compiler a plain inner loop to vectorise.
template <typename Body>
void forEachRange(std::size_t count, const Body& body)
{
    constexpr std::size_t kGrain = 4096; // samples; below it scheduling costs more than the work
    parallelFor(
        tbb::blocked_range<std::size_t>(0, count, kGrain),
        [&body](const tbb::blocked_range<std::size_t>& range) { body(range.begin(), range.end()); },
        tbb::auto_partitioner());
}

/// Limits all loops of the process to `threads` threads, including the caller, during its lifetime.
class ORVO_EXPORT WorkerLimit
{
public:
    /// `threads` of 0 or less: no limit.
    explicit WorkerLimit(int threads);
    ~WorkerLimit();
    WorkerLimit(const WorkerLimit&) = delete;
    WorkerLimit& operator=(const WorkerLimit&) = delete;

private:
    struct Control;
    std::unique_ptr<Control> control;
};

} // namespace orvo
