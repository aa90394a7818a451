/// Batches: a job for each group of a card, for each line of a list, or for each picture.
#pragma once

#include "picture_command.hpp"

#include <jobs/batch_job.hpp>
#include <jobs/memory_need.hpp>
#include <orvo_extensions/picture_groups.hpp>

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace orvo::cli {

struct BatchOptions
{
    const CLI::Option* option = nullptr;
    std::string value; ///< of --batch: a list, or the first of the files
    std::string memory;

    [[nodiscard]] bool isGiven() const { return option != nullptr && option->count() > 0; }
};

/// --batch and --memory. `what`: what a group is, such as "bracket".
void bindBatch(Options& app, BatchOptions& options, const std::string& what);

/// --batch and --memory of a command that makes a result of each picture.
void bindEachPicture(Options& app, BatchOptions& options);
/// Whether such a command runs as a batch: asked for, or given several files or a folder.
[[nodiscard]] bool isEachPicture(const std::vector<std::string>& files, const BatchOptions& options);
/// The one file of such a command otherwise. Empty after an error message about wrong usage.
[[nodiscard]] std::optional<std::string> onlyFile(const std::string& command, const std::vector<std::string>& files,
                                                  const BatchOptions& options);

/// Files of one job.
struct BatchFiles
{
    std::vector<std::filesystem::path> files;
    std::size_t bracketSize = 0; ///< above 0: every so many are a bracket, as grouping found
};

/// A command that runs as a batch.
struct BatchCommand
{
    std::string name;
    RunOptions run;
    const BatchOptions& options;
    std::vector<std::string> files;      ///< as given besides the list
    OutputOptions output;                ///< a folder for the results; empty: beside the first file of each
    std::string done;                    ///< what a result is called after its input
    std::vector<PictureGroupKind> kinds; ///< of the groups to make something of; empty: each picture is a job
    int threads = 0;
    std::size_t jobsAtOnce = 0; ///< at most; 0: as many as threads and memory allow
    /// The job of some files with this output.
    std::function<jobs::BatchTask(const BatchFiles&, const std::filesystem::path&)> task;
};

/// What the options of a command say; without kinds and task.
template <typename CommandOptions>
[[nodiscard]] BatchCommand batchCommandOf(const std::string& name, const CommandOptions& options,
                                          const std::string& done, int threads)
{
    return {.name = name,
            .run = options.run,
            .options = options.batch,
            .files = options.files,
            .output = options.output,
            .done = done,
            .kinds = {},
            .threads = threads,
            .jobsAtOnce = 0,
            .task = {}};
}

/// Runs `job` on `request`, whose files are `files`. The batch limits the threads of all jobs together.
template <typename Request, typename Result>
[[nodiscard]] jobs::BatchTask batchTaskOf(Request request, const std::vector<std::filesystem::path>& files,
                                          const std::filesystem::path& output,
                                          Result (*job)(const Request&, const jobs::JobCallbacks&))
{
    request.output = output;
    request.threads = 0;
    return {files, output, jobs::memoryNeed(request),
            [request, job](const jobs::JobCallbacks& callbacks) -> jobs::PictureJobResult {
                return job(request, callbacks);
            }};
}

/// Groups or reads the list, runs the jobs, prints the summary and returns the exit code.
[[nodiscard]] int runBatchCommand(const BatchCommand& command);

/// The same with `job` on `request` for each picture. A result that is there and older than its picture fails unless
/// forced, since it may be a file of the user.
template <typename Request, typename Result>
[[nodiscard]] int runEachPicture(BatchCommand command, const Request& request,
                                 Result (*job)(const Request&, const jobs::JobCallbacks&))
{
    command.task = [&](const BatchFiles& picture, const std::filesystem::path& output) {
        Request each = request;
        each.source = picture.files.front();
        each.keepExisting = !command.output.force;
        return batchTaskOf(each, picture.files, output, job);
    };
    return runBatchCommand(command);
}

} // namespace orvo::cli
