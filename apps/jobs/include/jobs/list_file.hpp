/// Lists of files for batches.
#pragma once

#include <filesystem>
#include <vector>

namespace orvo::jobs {

/// The file names of one line.
struct ListLine
{
    int number = 0; ///< from 1
    std::vector<std::filesystem::path> files;
};

/// Lines with at least one name. Names are separated by blanks and quoted as in a shell: '...' takes everything as it
/// is, "..." all but a backslash before ", \, $ or a backquote, and a backslash outside of quotes takes the next
/// character as it is. A # at the beginning of a name begins a comment. Nothing is expanded.
/// Throws FailureError that names the file and the line for a quote without end, a file that is no text, or that cannot
/// be read.
[[nodiscard]] std::vector<ListLine> readListFile(const std::filesystem::path& path);

} // namespace orvo::jobs
