/// The frames of a bracket by exposure, with their positions in the given list.
#pragma once

#include <jobs/frames_job.hpp>

namespace orvo::jobs {

/// `readable` by rising exposure, numbered by their positions in `given`, which contains all of them. Files without a
/// thumbnail are omitted.
[[nodiscard]] std::vector<BracketFrame> sortedFrames(const std::vector<std::filesystem::path>& readable,
                                                     const std::vector<std::filesystem::path>& given);

/// Why a file omitted by sortedFrames() has no thumbnail.
[[nodiscard]] Failure reasonOfDropping(const std::filesystem::path& path);

} // namespace orvo::jobs
