/// A folder that is there while something is put into it.
#pragma once

#include <filesystem>
#include <vector>

namespace orvo::jobs {

/// Makes a folder and those above it that are missing, and removes those it made if they are still empty when it goes.
class MadeFolder
{
public:
    /// Throws FailureError that names the folder and the cause.
    explicit MadeFolder(const std::filesystem::path& folder);
    ~MadeFolder();
    MadeFolder(const MadeFolder&) = delete;
    MadeFolder& operator=(const MadeFolder&) = delete;

private:
    std::vector<std::filesystem::path> made; ///< the innermost first
};

} // namespace orvo::jobs
