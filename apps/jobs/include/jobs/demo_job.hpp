/// Makes example brackets and merges them.
#pragma once

#include <jobs/hdr_job.hpp>

#include <filesystem>
#include <string>
#include <vector>

namespace orvo::jobs {

struct DemoJobRequest
{
    std::filesystem::path folder; ///< made if it is not there
    int size = 0;                 ///< longer side of the frames in pixels; 0: the usual one
    bool keep = false;            ///< frames that an earlier demo left in the folder are used instead of new ones
};

/// One bracket of the demonstration.
struct DemoBracket
{
    std::string about;                         ///< what it shows and how it was merged, one sentence for people
    std::vector<std::filesystem::path> frames; ///< by rising exposure
    HdrJobResult merged;
};

struct DemoJobResult : JobResult
{
    std::vector<DemoBracket> brackets;
};

/// Renders each bracket into the folder and merges it there. Refused: a size out of kDemoSizes. An error of one bracket
/// ends the job; the files made so far stay.
[[nodiscard]] DemoJobResult demoJob(const DemoJobRequest& request, const JobCallbacks& callbacks = {});

} // namespace orvo::jobs
