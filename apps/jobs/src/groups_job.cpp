#include "checks.hpp"
#include "run_job.hpp"

#include <jobs/groups_job.hpp>

#include <set>
#include <string>
#include <system_error>

namespace orvo::jobs {
namespace {

namespace fs = std::filesystem;

/// By their real places: comparing each two files takes too long for a card of thousands.
void refuseDoubles(const std::vector<fs::path>& files)
{
    std::set<fs::path> places;
    for (const fs::path& file : files) {
        std::error_code error;
        const fs::path place = fs::canonical(file, error);
        if (!error && !places.insert(place).second)
            checkAllDiffer(files); // names both
    }
}

void checkFiles(const std::vector<fs::path>& files, const JobCallbacks& callbacks, GroupsJobResult& result,
                std::vector<fs::path>& readable)
{
    for (const fs::path& file : files) {
        throwIfCancelled(callbacks);
        try {
            checkIsFile(file);
            readable.push_back(file);
        } catch (const FailureError& error) {
            result.unreadable.push_back({file, error.what()});
        }
    }
}

} // namespace

GroupsJobResult groupsJob(const std::vector<fs::path>& given, const JobCallbacks& callbacks)
{
    GroupsJobResult result;
    runJob(result, callbacks, [&] {
        if (given.empty())
            throw JobRefusal("no picture files were given, at least one is needed");
        const auto report = [&](JobStep step, double share) {
            if (callbacks.progress)
                callbacks.progress({step, share});
        };
        report(JobStep::Check, 0.0);
        InputFiles card = cardFiles(given);
        result.leftOut = std::move(card.leftOut);
        refuseDoubles(card.files);
        std::vector<fs::path> readable;
        checkFiles(card.files, callbacks, result, readable);
        report(JobStep::Group, 0.0);
        PictureGroups groups = groupPictures(
            readable, [&](float share) { report(JobStep::Group, static_cast<double>(share)); },
            [&] { return callbacks.cancelled(); });
        throwIfCancelled(callbacks);
        if (groups.groups.empty() && groups.unreadable.empty() && !readable.empty())
            throwLastFailure("grouping gave no groups and no reason");
        result.groups = std::move(groups.groups);
        for (const Failure& failure : groups.unreadable)
            result.unreadable.push_back({failure.file, describe(failure)});
        if (!result.unreadable.empty())
            throw FailureError({FailureKind::UnreadableFile,
                                {},
                                std::to_string(result.unreadable.size()) + " of " + std::to_string(card.files.size()) +
                                    " files cannot be read"});
    });
    return result;
}

} // namespace orvo::jobs
