#include "checks.hpp"
#include "run_job.hpp"
#include "sorted_frames.hpp"

#include <orvo_extensions/bracket.hpp>

#include <algorithm>

namespace orvo::jobs {
namespace {

/// The given files that can be sorted; the others are reported in `result`.
std::vector<std::filesystem::path> readableFiles(const std::vector<std::filesystem::path>& paths,
                                                 const JobCallbacks& callbacks, FramesJobResult& result)
{
    std::vector<std::filesystem::path> readable;
    for (std::size_t i = 0; i < paths.size(); ++i) {
        throwIfCancelled(callbacks);
        if (callbacks.progress)
            callbacks.progress({JobStep::Check, static_cast<double>(i) / static_cast<double>(paths.size())});
        try {
            checkIsFile(paths[i]);
            (void)checkIsPicture(paths[i]);
            readable.push_back(paths[i]);
        } catch (const FailureError& error) {
            result.unreadable.push_back({paths[i], error.what()});
        }
    }
    return readable;
}

} // namespace

std::vector<BracketFrame> sortedFrames(const std::vector<std::filesystem::path>& readable,
                                       const std::vector<std::filesystem::path>& given)
{
    const auto [sorted, evs] = getSortedPathsAndEVsFromPaths(readable);
    std::vector<bool> taken(given.size(), false); // a path given twice has two positions
    std::vector<BracketFrame> frames;
    for (std::size_t i = 0; i < sorted.size(); ++i) {
        std::size_t place = 0;
        while (place + 1 < given.size() && (taken[place] || given[place] != sorted[i]))
            ++place;
        taken[place] = true;
        frames.push_back({sorted[i], place + 1, evs[i]});
    }
    return frames;
}

Failure reasonOfDropping(const std::filesystem::path& path)
{
    (void)getSortedPathsAndEVsFromPaths({path}); // alone, so that the failure belongs to this file
    return lastFailure().value_or(Failure{FailureKind::UnreadableFile, path, "cannot create a thumbnail"});
}

FramesJobResult framesJob(const std::vector<std::filesystem::path>& paths, const JobCallbacks& callbacks)
{
    FramesJobResult result;
    runJob(result, callbacks, [&] {
        if (paths.empty())
            throw JobRefusal("no picture files were given, at least one is needed");
        const auto readable = readableFiles(paths, callbacks, result);
        result.frames = sortedFrames(readable, paths);
        for (const auto& path : readable)
            if (std::none_of(result.frames.begin(), result.frames.end(),
                             [&](const BracketFrame& frame) { return frame.path == path; }))
                result.unreadable.push_back({path, describe(reasonOfDropping(path))});
        if (!result.unreadable.empty())
            throw FailureError({FailureKind::UnreadableFile,
                                {},
                                std::to_string(result.unreadable.size()) + " of " + std::to_string(paths.size()) +
                                    " files cannot be read"});
    });
    return result;
}

} // namespace orvo::jobs
