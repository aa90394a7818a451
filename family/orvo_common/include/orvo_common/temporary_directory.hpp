/// Where the process keeps its temporary files.
#pragma once

#include <orvo_common/export.hpp>

#include <filesystem>

namespace orvo {

/// A folder below the system's temporary folder that belongs to this process alone (mode 0700). It is made on the
/// first call and removed with all that is in it when the process ends; the first call also removes the folders of
/// processes that ended without doing so. Where it cannot be made (a full or read-only disk), the path is given all the
/// same and the next call tries again: whoever writes into it then meets the system's error. Never throws for that.
/// Usable from any thread.
[[nodiscard]] ORVO_EXPORT std::filesystem::path getTemporaryDirectory();

/// Removes the folders below `parent` whose processes are dead: those whose lock nobody holds. Folders of other users,
/// links and everything of another name are left alone. getTemporaryDirectory() does this for its own parent. Returns
/// how many were removed.
ORVO_EXPORT int sweepTemporaryDirectories(const std::filesystem::path& parent);

} // namespace orvo
