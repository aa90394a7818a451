/// Loops over rows and pixels on the oneTBB pool.
#pragma once

#include <orvo_common/export.hpp>

#include <tbb/blocked_range.h>
#include <tbb/parallel_for.h>

#include <cstddef>
#include <memory>

namespace orvo {

/// Calls `body(y)` once for each row, 0 <= y < height, in any order and on any thread, and waits for all. Each call
/// writes only its own row, so results do not depend on the number of threads.
template <typename Body>
void forEachRow(int height, const Body& body)
{
    tbb::parallel_for(
        tbb::blocked_range<int>(0, height < 0 ? 0 : height),
        [&body](const tbb::blocked_range<int>& rows) {
            for (int y = rows.begin(); y != rows.end(); ++y)
                body(y);
        },
        tbb::auto_partitioner());
}

/// The same for pixels or samples: `body(first, last)` for ranges that together cover 0..count-1. Ranges give the
/// compiler a plain inner loop that it can vectorise.
template <typename Body>
void forEachRange(std::size_t count, const Body& body)
{
    constexpr std::size_t kGrain = 4096; // samples; with less the scheduling costs more than the work
    tbb::parallel_for(
        tbb::blocked_range<std::size_t>(0, count, kGrain),
        [&body](const tbb::blocked_range<std::size_t>& range) { body(range.begin(), range.end()); },
        tbb::auto_partitioner());
}

/// Limits all loops of the process to `threads` worker threads, including the caller, during its lifetime.
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
