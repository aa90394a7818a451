/// Lists the frames of a bracket in order of exposure.
#pragma once

#include <jobs/job.hpp>

#include <filesystem>
#include <string>
#include <vector>

namespace orvo::jobs {

/// A frame of a bracket.
struct BracketFrame
{
    std::filesystem::path path; ///< as it was given
    std::size_t number = 0;     ///< its place among the given files, counted from 1 as people do
    float ev = 0.0f;            ///< exposure against the middle frame, in EV
};

struct UnreadableFile
{
    std::filesystem::path path;
    std::string reason; ///< one line that names the file
};

struct FramesJobResult : JobResult
{
    std::vector<BracketFrame> frames; ///< by rising exposure; equal ones in the order given
    std::vector<UnreadableFile> unreadable;
};

/// Looks at metadata and thumbnails only. Failed if any file is unreadable; the rest is listed all the same. Refused
/// if no file is given.
[[nodiscard]] FramesJobResult framesJob(const std::vector<std::filesystem::path>& paths,
                                        const JobCallbacks& callbacks = {});

} // namespace orvo::jobs
