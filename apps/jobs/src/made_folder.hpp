/// A folder created for output.
#pragma once

#include <filesystem>
#include <vector>

namespace orvo::jobs {

/// Creates a folder and its missing parents; the destructor removes those it created if they are still empty.
class MadeFolder
{
public:
    /// Throws FailureError with the folder and the cause.
    explicit MadeFolder(const std::filesystem::path& folder);
    ~MadeFolder();
    MadeFolder(const MadeFolder&) = delete;
    MadeFolder& operator=(const MadeFolder&) = delete;

private:
    std::vector<std::filesystem::path> made; ///< the innermost first
};

} // namespace orvo::jobs
