/// Atomic output files: written beside their target, then moved onto it.
#pragma once

#include <cstddef>
#include <filesystem>
#include <functional>

namespace orvo::jobs {

/// Whether an unfinished file has a name.
enum class BesideName
{
    None, ///< where the file system supports it
    Own,
};

/// An empty file in the folder of `target`. Where the file system supports it, it has no name, so that nothing is left
/// of it even if the process is killed. Elsewhere it has a unique name with the same ending, and the next file made in
/// that folder removes what killed processes left. The destructor removes it unless commit() was called. If `target` is
/// a link, the linked file is the target, whether it exists or not.
class BesideFile
{
public:
    /// Throws FailureError with the target, its folder and the cause if no file can be created there.
    explicit BesideFile(const std::filesystem::path& target, BesideName name = BesideName::None);
    ~BesideFile();
    BesideFile(const BesideFile&) = delete;
    BesideFile& operator=(const BesideFile&) = delete;

    /// The path to write to, valid as long as this object. Absolute, so that it survives a change of the working
    /// folder.
    [[nodiscard]] const std::filesystem::path& path() const { return beside; }

    /// Renames the file onto the target in one step. Replaces an existing file and keeps its permissions. Throws
    /// FailureError with the target and the cause.
    void commit();

private:
    std::filesystem::path target;
    std::filesystem::path beside;
    int descriptor;       ///< of the file; locked while it may have a name of its own
    bool isNamed = false; ///< `beside` is in the folder, not a path of the descriptor
    std::size_t slot;     ///< its index in the table of removeUnfinishedFiles()
    bool committed = false;
};

/// Calls `write` with a file beside `target` and moves that file into place if `write` returns true. Returns the result
/// of `write`; if it throws, removes the file and rethrows.
bool writeBesideAndRename(const std::filesystem::path& target,
                          const std::function<bool(const std::filesystem::path&)>& write);

/// Removes all files that are being written. Only for a program that ends immediately afterwards: it may be called from
/// a signal handler and does not wait.
void removeUnfinishedFiles() noexcept;

} // namespace orvo::jobs
