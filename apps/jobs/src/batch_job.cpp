#include "measures.hpp"
#include "run_job.hpp"

#include <jobs/batch_job.hpp>
#include <orvo_common/memory_manager.hpp>
#include <orvo_common/wide_path.hpp>
#include <orvo_core/parallel.hpp>

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <system_error>
#include <thread>

#if defined(__GLIBC__)
#include <malloc.h>
#endif

namespace orvo::jobs {
namespace {

namespace fs = std::filesystem;

/// Returns what a job has freed to the system: kept planes and free blocks of its thread. Else the process would grow
/// from job to job, since the next one begins on another thread.
void returnFreedMemory()
{
    MemoryManager::instance().trim();
#if defined(__GLIBC__)
    ::malloc_trim(0);
#endif
}

/// The same for all paths to a file, which need not exist.
fs::path placeOf(const fs::path& path)
{
    std::error_code error;
    const fs::path whole = fs::absolute(path, error);
    const fs::path real = fs::weakly_canonical(error ? path : whole, error);
    return error ? path.lexically_normal() : real;
}

/// Whether the output is there and no input is newer. False where a time cannot be read.
bool isUpToDate(const BatchTask& task)
{
    std::error_code error;
    if (!fs::is_regular_file(task.output, error) || fs::file_size(task.output, error) == 0 || error)
        return false;
    const auto made = fs::last_write_time(task.output, error);
    return !error && std::all_of(task.inputs.begin(), task.inputs.end(), [&](const fs::path& input) {
        std::error_code missing;
        const auto changed = fs::last_write_time(input, missing);
        return !missing && changed <= made;
    });
}

void fail(BatchItem& item, const fs::path& file, const std::string& sentence)
{
    item.state = BatchState::Failed;
    item.result.failure = Failure{FailureKind::Internal, file, sentence};
    item.result.message = describe(*item.result.failure);
}

/// Runs the tasks of a batch. Its threads live as long as run().
class Scheduler
{
public:
    Scheduler(const std::vector<BatchTask>& tasks_, const BatchSettings& settings_, const JobCallbacks& callbacks_,
              std::vector<BatchItem>& items_)
        : tasks(tasks_), settings(settings_), callbacks(callbacks_), items(items_), fractions(tasks_.size(), 0.0),
          memory(settings_.memoryBytes > 0 ? settings_.memoryBytes : defaultBatchMemory()),
          threads(settings_.threads > 0 ? settings_.threads
                                        : std::max(1, static_cast<int>(std::thread::hardware_concurrency())))
    {}

    void run()
    {
        report();
        plan();
        std::unique_lock lock(mutex);
        while (!pending.empty() || running > 0) {
            while (const auto next = isCancelled() ? std::nullopt : nextTask())
                start(*next);
            if (running == 0)
                break; // cancelled
            changed.wait(lock);
            joinFinished(lock);
        }
    }

    [[nodiscard]] std::size_t mostAtOnce() const { return most; }

private:
    [[nodiscard]] bool isCancelled() const { return callbacks.cancelled(); }

    /// Jobs at once: each has serial stretches, which another one fills, but more only cost memory.
    [[nodiscard]] std::size_t mostJobs() const
    {
        constexpr int kThreadsPerJob = 2;
        const auto byThreads = static_cast<std::size_t>(std::max(std::min(threads, 2), threads / kThreadsPerJob));
        return settings.jobsAtOnce > 0 ? std::min(byThreads, settings.jobsAtOnce) : byThreads;
    }

    void plan()
    {
        std::set<fs::path> inputs;
        for (const BatchTask& task : tasks)
            for (const fs::path& input : task.inputs)
                inputs.insert(placeOf(input));
        std::map<fs::path, std::size_t> outputs;
        for (std::size_t i = 0; i < tasks.size(); ++i) {
            BatchItem& item = items[i];
            const fs::path place = placeOf(tasks[i].output);
            const auto [earlier, isNew] = outputs.try_emplace(place, i);
            if (!isNew)
                fail(item, tasks[i].output,
                     "this would be the result of two jobs; the other one begins with " +
                         pathText(tasks[earlier->second].inputs.front()));
            else if (inputs.contains(place))
                fail(item, tasks[i].output, "the result would replace an input");
            else if (!settings.force && isUpToDate(tasks[i]))
                item.state = BatchState::Skipped;
            else
                pending.push_back(i);
            if (item.state != BatchState::NotStarted)
                end(i);
        }
    }

    /// The first task that fits beside those that run, removed from the pending ones.
    [[nodiscard]] std::optional<std::size_t> nextTask()
    {
        if (running >= mostJobs())
            return std::nullopt;
        const auto fits = [&](std::size_t task) {
            return running == 0 || tasks[task].memoryBytes <= memory - std::min(memory, used);
        };
        const auto found = std::find_if(pending.begin(), pending.end(), fits);
        if (found == pending.end())
            return std::nullopt;
        const std::size_t task = *found;
        pending.erase(found);
        return task;
    }

    void start(std::size_t task)
    {
        ++running;
        most = std::max(most, running);
        used += tasks[task].memoryBytes;
        shareThreads();
        workers.emplace(task, std::thread([this, task] { runTask(task); }));
    }

    /// Workers of the loops beside the threads of the jobs. The new limit begins before the old one ends.
    void shareThreads()
    {
        const int limit = std::max(1, threads - static_cast<int>(running) + 1);
        auto next = std::make_unique<WorkerLimit>(limit);
        share = std::move(next);
    }

    void runTask(std::size_t task)
    {
        const auto follow = [this, task](const JobProgress& progress) {
            const std::lock_guard lock(mutex);
            fractions[task] = progress.fraction;
            report();
        };
        PictureJobResult result;
        std::string unexpected;
        try {
            result = tasks[task].run({follow, callbacks.cancelFlag});
        } catch (...) { // a job throws nothing, but what makes its request may
            result.failure = FailureError(failureOfException()).failure(); // which completes its sentence
            result.message = describe(*result.failure);
        }
        if (result.done() && tasks[task].memoryBytes > memory)
            result.warnings.push_back(pathText(tasks[task].output) + ": ran alone, since it needs about " +
                                      std::to_string(tasks[task].memoryBytes >> 20) + " MiB and " +
                                      std::to_string(memory >> 20) + " MiB were allowed");
        const std::lock_guard lock(mutex);
        items[task].state = result.done()                             ? BatchState::Done
                            : result.outcome == JobOutcome::Cancelled ? BatchState::Cancelled
                                                                      : BatchState::Failed;
        items[task].result = std::move(result);
        end(task);
        finished.push_back(task);
        changed.notify_one();
    }

    /// With the lock, which is released while a thread ends.
    void joinFinished(std::unique_lock<std::mutex>& lock)
    {
        while (!finished.empty()) {
            const std::size_t task = finished.back();
            finished.pop_back();
            std::thread worker = std::move(workers.at(task));
            workers.erase(task);
            lock.unlock();
            worker.join();
            returnFreedMemory();
            lock.lock();
            --running;
            used -= tasks[task].memoryBytes;
        }
        if (running > 0)
            shareThreads();
        else
            share.reset();
    }

    void end(std::size_t task)
    {
        fractions[task] = 1.0;
        report();
    }

    void report()
    {
        double sum = 0.0;
        for (const double fraction : fractions)
            sum += fraction;
        if (callbacks.progress)
            callbacks.progress({JobStep::Batch, tasks.empty() ? 1.0 : sum / static_cast<double>(tasks.size())});
    }

    const std::vector<BatchTask>& tasks;
    const BatchSettings& settings;
    const JobCallbacks& callbacks;
    std::vector<BatchItem>& items;
    std::vector<double> fractions;
    const std::uint64_t memory;
    const int threads;

    std::mutex mutex; // for all members below, items and fractions while threads run
    std::condition_variable changed;
    std::vector<std::size_t> pending;
    std::vector<std::size_t> finished; ///< threads that wait to be joined
    std::map<std::size_t, std::thread> workers;
    std::size_t running = 0;
    std::size_t most = 0;
    std::uint64_t used = 0;
    std::unique_ptr<WorkerLimit> share;
};

} // namespace

std::size_t BatchResult::count(BatchState state) const
{
    return static_cast<std::size_t>(
        std::count_if(items.begin(), items.end(), [&](const BatchItem& item) { return item.state == state; }));
}

std::uint64_t defaultBatchMemory()
{
    constexpr std::uint64_t kUnknown = std::uint64_t{4} << 30; // bytes
    const long pages = ::sysconf(_SC_PHYS_PAGES);
    const long pageBytes = ::sysconf(_SC_PAGESIZE);
    return pages > 0 && pageBytes > 0 ? static_cast<std::uint64_t>(pages) * static_cast<std::uint64_t>(pageBytes) / 2
                                      : kUnknown;
}

BatchResult batchJob(const std::vector<BatchTask>& tasks, const BatchSettings& settings, const JobCallbacks& callbacks)
{
    BatchResult result;
    const auto begun = std::chrono::steady_clock::now();
    for (const BatchTask& task : tasks)
        result.items.push_back({task.inputs, task.output, BatchState::NotStarted, {}});
    runJob(result, callbacks, [&] {
        Scheduler scheduler(tasks, settings, callbacks, result.items);
        scheduler.run();
        result.mostAtOnce = scheduler.mostAtOnce();
        throwIfCancelled(callbacks);
        if (const std::size_t failed = result.count(BatchState::Failed); failed > 0)
            throw FailureError({FailureKind::Internal,
                                {},
                                std::to_string(failed) + " of " + std::to_string(tasks.size()) + " jobs failed"});
    });
    result.milliseconds = std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - begun).count();
    result.peak = peakMemory();
    return result;
}

} // namespace orvo::jobs
