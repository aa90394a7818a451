/// Which files of a panorama were exposed at one position.
#pragma once

#include <orvo_core/image_metadata.hpp>

#include <filesystem>
#include <memory>
#include <vector>

namespace orvo::jobs {

/// The files as brackets of one size. `metadata` stand at the indices of `files`. With a `size` above 0 every so many
/// neighbours are one, in the order given. Otherwise by their time (or the order given, where a file has none):
/// a bracket ends before the first exposure that it already has. Throws JobRefusal or FailureError where that leaves
/// fewer than two brackets, one that is incomplete, or where a file has no exposure data.
[[nodiscard]] std::vector<std::vector<std::filesystem::path>>
groupBrackets(const std::vector<std::filesystem::path>& files,
              const std::vector<std::shared_ptr<const ImageMetadata>>& metadata, int size);

} // namespace orvo::jobs
