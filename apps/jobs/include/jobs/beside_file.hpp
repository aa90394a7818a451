/// Atomic output files: written beside their target and renamed onto it.
#pragma once

#include <cstddef>
#include <filesystem>
#include <functional>

namespace orvo::jobs {

/// An empty file with a unique name in the folder of `target` and with the same ending. The destructor removes it
/// unless commit() was called. If `target` is a link to a file, the linked file is the target.
class BesideFile
{
public:
    /// Throws FailureError with the target, its folder and the cause if no file can be created there.
    explicit BesideFile(const std::filesystem::path& target);
    ~BesideFile();
    BesideFile(const BesideFile&) = delete;
    BesideFile& operator=(const BesideFile&) = delete;

    /// The path to write to. Absolute, so that it stays valid if the working folder changes.
    [[nodiscard]] const std::filesystem::path& path() const { return beside; }

    /// Renames the file onto the target in one step. Replaces an existing file and keeps its permissions. Throws
    /// FailureError with the target and the cause.
    void commit();

private:
    std::filesystem::path target;
    std::filesystem::path beside;
    std::size_t slot; ///< its index in the table of removeUnfinishedFiles()
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
