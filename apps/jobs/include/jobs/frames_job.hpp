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
    std::filesystem::path path; ///< as given
    std::size_t number = 0;     ///< its position among the given files, counted from 1
    float ev = 0.0f;            ///< exposure relative to the middle frame, in EV
};

struct UnreadableFile
{
    std::filesystem::path path;
    std::string reason; ///< one line that names the file
};

struct FramesJobResult : JobResult
{
    std::vector<BracketFrame> frames; ///< by rising exposure; equal ones in the given order
    std::vector<UnreadableFile> unreadable;
};

/// Reads only metadata and thumbnails. Failed if any file is unreadable; the others are still listed. Refused if no
/// file is given.
[[nodiscard]] FramesJobResult framesJob(const std::vector<std::filesystem::path>& paths,
                                        const JobCallbacks& callbacks = {});

} // namespace orvo::jobs
