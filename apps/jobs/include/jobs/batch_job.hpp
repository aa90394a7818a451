/// Runs many jobs, several at once within an amount of memory.
#pragma once

#include <jobs/picture_job.hpp>

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

namespace orvo::jobs {

/// One job of a batch.
struct BatchTask
{
    std::vector<std::filesystem::path> inputs;
    std::filesystem::path output;
    std::uint64_t memoryBytes = 0; ///< what it needs at its peak, as MemoryNeed estimates
    /// Runs the job. Called once at most, on a thread of the batch. The request limits no threads, since the batch
    /// does.
    std::function<PictureJobResult(const JobCallbacks&)> run;
};

enum class BatchState : std::int32_t
{
    NotStarted, ///< the batch was cancelled before
    Skipped,    ///< the output is not older than its inputs
    Done,
    Failed,
    Cancelled,
};

struct BatchItem
{
    std::vector<std::filesystem::path> inputs;
    std::filesystem::path output;
    BatchState state = BatchState::NotStarted;
    PictureJobResult result; ///< of the job, if it was started; else only the message
};

struct BatchSettings
{
    std::uint64_t memoryBytes = 0; ///< for all jobs together; 0: defaultBatchMemory()
    int threads = 0;               ///< for all jobs together; 0: all cores
    std::size_t jobsAtOnce = 0;    ///< at most; 0: as many as threads and memory allow
    bool force = false;            ///< also make results that are there
};

struct BatchResult : JobResult
{
    std::vector<BatchItem> items; ///< as the tasks
    std::size_t mostAtOnce = 0;   ///< jobs that ran at the same time
    double milliseconds = 0.0;
    PeakMemory peak;

    [[nodiscard]] std::size_t count(BatchState state) const;
};

/// Half of the machine's memory.
[[nodiscard]] std::uint64_t defaultBatchMemory();

/// Runs the tasks in their order, but a later one that fits may precede an earlier one that does not fit beside those
/// that run. A task that needs more than all of the memory runs alone, with a warning in its result. At most one job
/// for two threads, but two if there are two; a thread limit covers all jobs together. Each job has a thread of its
/// own, so results are those of the single jobs.
///
/// An output that is there and not older than any input is skipped; an older one is made again. A task whose output is
/// that of an earlier one, or one of the inputs of any task, fails. A failure does not stop the others.
///
/// Done: no task failed. Failed: some did; the message counts them. Cancelled: running jobs have ended without a file.
/// Progress: Batch with the mean of the jobs' fractions, on the threads of the jobs, one call at a time; it must not
/// throw.
[[nodiscard]] BatchResult batchJob(const std::vector<BatchTask>& tasks, const BatchSettings& settings,
                                   const JobCallbacks& callbacks = {});

} // namespace orvo::jobs
