/// Which files of a panorama were exposed at one position.
#pragma once

#include <filesystem>
#include <functional>
#include <vector>

namespace orvo::jobs {

/// The files as brackets of one size. With a `size` above 0 every so many neighbours are one, in the order given.
/// Otherwise those of groupPictures(). Throws JobRefusal or FailureError where that leaves fewer than two brackets, or
/// one that is incomplete, and on a cancel.
[[nodiscard]] std::vector<std::vector<std::filesystem::path>>
groupBrackets(const std::vector<std::filesystem::path>& files, int size, const std::function<bool()>& cancel = {});

} // namespace orvo::jobs
