/// The frame that moving subjects are kept from when nobody names one.
#pragma once

#include <jobs/frames_job.hpp>

#include <cstddef>
#include <filesystem>
#include <vector>

namespace orvo::jobs {

/// Index into `frames`, which are sorted by exposure: near the middle, the one with the fewest pixels that are clipped
/// or so dark that re-exposure raises mostly noise. Reads a thumbnail of at most three frames; one without a thumbnail
/// is passed over. `frames` is not empty.
[[nodiscard]] std::size_t ghostReferenceOf(const std::vector<BracketFrame>& frames);

/// The bracket with that frame in front, where HDRSettings::ghostRefImageIdx of 0 finds it.
[[nodiscard]] std::vector<std::filesystem::path> withGhostReferenceFirst(std::vector<std::filesystem::path> bracket);

} // namespace orvo::jobs
