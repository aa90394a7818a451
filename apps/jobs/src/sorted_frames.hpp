/// The frames of a bracket by exposure, with their places in the list that was given.
#pragma once

#include <jobs/frames_job.hpp>

namespace orvo::jobs {

/// `readable` by rising exposure, numbered by their places in `given`, which holds them all. A file without a thumbnail
/// is missing.
[[nodiscard]] std::vector<BracketFrame> sortedFrames(const std::vector<std::filesystem::path>& readable,
                                                     const std::vector<std::filesystem::path>& given);

/// Why a file that is missing in sortedFrames() has no thumbnail.
[[nodiscard]] Failure reasonOfDropping(const std::filesystem::path& path);

} // namespace orvo::jobs
