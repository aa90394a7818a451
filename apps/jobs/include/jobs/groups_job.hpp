/// Sorts the pictures of a memory card into brackets, focus series, panoramas and single pictures.
#pragma once

#include <jobs/frames_job.hpp>
#include <jobs/input_files.hpp>
#include <orvo_extensions/picture_groups.hpp>

#include <filesystem>
#include <vector>

namespace orvo::jobs {

struct GroupsJobResult : JobResult
{
    std::vector<PictureGroup> groups;
    std::vector<LeftOutFile> leftOut;
    std::vector<UnreadableFile> unreadable;
};

/// `given`: files and folders; other files than pictures are left out. Reads only metadata and thumbnails. Failed if
/// any file is unreadable; the others are still grouped. Refused if nothing is given or a file is given twice in any
/// spelling. Progress: Check 0, Group 0 to 1. Cancelled between thumbnails.
[[nodiscard]] GroupsJobResult groupsJob(const std::vector<std::filesystem::path>& given,
                                        const JobCallbacks& callbacks = {});

} // namespace orvo::jobs
