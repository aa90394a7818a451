/// The temporary files of the process.
#pragma once

#include <orvo_common/export.hpp>

#include <filesystem>

namespace orvo {

/// Returns a folder in the system's temporary folder that belongs to this process alone (mode 0700). The first call
/// creates it and removes the folders left behind by dead processes; the end of the process removes it with its
/// content. If it cannot be created (a full or read-only disk), returns the path anyway and tries again at the next
/// call; writing to it then fails with the system's error. Never throws for that. Usable from any thread.
[[nodiscard]] ORVO_EXPORT std::filesystem::path getTemporaryDirectory();

/// Removes the folders in `parent` of dead processes, which hold no lock any more. Keeps folders of other users, links
/// and other names. getTemporaryDirectory() calls it for its own parent. Returns the number of removed folders.
ORVO_EXPORT int sweepTemporaryDirectories(const std::filesystem::path& parent);

} // namespace orvo
