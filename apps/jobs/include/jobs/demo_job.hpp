/// Makes example pictures and shows on them what the other jobs do.
#pragma once

#include <jobs/job.hpp>

#include <filesystem>
#include <string>
#include <vector>

namespace orvo::jobs {

inline constexpr int kSmallestDemo = 96;  ///< pixels; frames below could not be aligned
inline constexpr int kUsualDemo = 1536;   ///< pixels; fills a screen, takes seconds
inline constexpr int kLargestDemo = 9600; ///< pixels; as the largest cameras have

struct DemoJobRequest
{
    std::filesystem::path folder; ///< made if it is not there
    int size = kUsualDemo;        ///< longer side of the frames in pixels, kSmallestDemo..kLargestDemo
    bool keep = false;            ///< frames that lie in the folder from before are used, only missing ones are made
};

/// One piece of the demonstration.
struct DemoPiece
{
    std::string about;                         ///< what it shows and what is done, for people
    std::vector<std::filesystem::path> frames; ///< in the order of the shots
    std::string what;                          ///< one word for what became of them, such as "merged"
    std::filesystem::path result;
};

struct DemoJobResult : JobResult
{
    std::vector<DemoPiece> pieces; ///< those that are done
};

/// Renders the frames of each piece into a folder of its own below the given one and lets a job work on them. Exposure
/// brackets are merged: a handheld one of JPEGs with a person walking, one of 16-bit TIFFs from a tripod, one of raw
/// DNGs. A handheld focus series is stacked, a small picture is enlarged, and views around of half the size, but never
/// too small to be stitched, are stitched at their resolution. Each frame is put in place when it is whole. Refused: a
/// size out of range. An error ends the job; what was made so far stays. Cancelled between frames and as hdrJob(),
/// stackJob(), upscaleJob() and panoJob().
[[nodiscard]] DemoJobResult demoJob(const DemoJobRequest& request, const JobCallbacks& callbacks = {});

} // namespace orvo::jobs
