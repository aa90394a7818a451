/// Creates example pictures and runs the other jobs on them.
#pragma once

#include <jobs/job.hpp>

#include <filesystem>
#include <string>
#include <vector>

namespace orvo::jobs {

inline constexpr int kSmallestDemo = 96;  ///< pixels; smaller frames cannot be aligned
inline constexpr int kUsualDemo = 1536;   ///< pixels; fills a screen, takes seconds
inline constexpr int kLargestDemo = 9600; ///< pixels; as the largest cameras have

struct DemoJobRequest
{
    std::filesystem::path folder; ///< created if missing
    int size = kUsualDemo;        ///< longer side of the frames in pixels, kSmallestDemo..kLargestDemo
    bool keep = false;            ///< use existing frames in the folder and render only missing ones
    bool sheets = false;          ///< also a small picture of each piece, frames and result, in the folder "sheets"
};

/// One piece of the demonstration.
struct DemoPiece
{
    std::string about;                         ///< what it shows and what is done, for users
    std::vector<std::filesystem::path> frames; ///< in the order of the shots
    std::string what;                          ///< one word for the operation, such as "merged"
    std::filesystem::path result;
    std::filesystem::path sheet; ///< empty if none was requested
};

struct DemoJobResult : JobResult
{
    std::vector<DemoPiece> pieces; ///< the completed ones
};

/// Renders the frames of each piece into its own folder below the given one and runs a job on them. Exposure brackets
/// are merged: a handheld one of JPEGs with a person walking, one of 16-bit TIFFs from a tripod, one of raw DNGs. A
/// handheld focus series is stacked, a small picture is enlarged, panorama views of half the size, but never too small
/// to be stitched, are stitched at their resolution, the person is erased from a merged picture, a picture gets a
/// border, and a noisy one is restored. Each frame appears only when it is complete. Refused: a size out of range. An
/// error ends the job; files created so far remain. Cancelled between frames and as in hdrJob(), stackJob(),
/// upscaleJob() and panoJob().
[[nodiscard]] DemoJobResult demoJob(const DemoJobRequest& request, const JobCallbacks& callbacks = {});

} // namespace orvo::jobs
