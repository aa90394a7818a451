/// Files that are there whole or not at all: written beside their place and renamed into it.
#pragma once

#include <cstddef>
#include <filesystem>
#include <functional>

namespace orvo::jobs {

/// An empty file with a name of its own in the folder of `target` and with the same ending. It is removed with this
/// object unless commit() was called. If `target` is a link to a file, the file it leads to is meant.
class BesideFile
{
public:
    /// Throws FailureError that names the target, its folder and the cause if no file can be made in it.
    explicit BesideFile(const std::filesystem::path& target);
    ~BesideFile();
    BesideFile(const BesideFile&) = delete;
    BesideFile& operator=(const BesideFile&) = delete;

    /// Where to write. Absolute, so that it stays right if the working folder changes.
    [[nodiscard]] const std::filesystem::path& path() const { return beside; }

    /// Puts the file in the place of the target in one step, replacing a file that is there and keeping its
    /// permissions. Throws FailureError that names the target and the cause.
    void commit();

private:
    std::filesystem::path target;
    std::filesystem::path beside;
    std::size_t slot; ///< its place among the files that removeUnfinishedFiles() knows
    bool committed = false;
};

/// Lets `write` fill a file beside `target` and puts it in place if `write` returns true. Returns what `write`
/// returned; what it throws goes on, with the file removed.
bool writeBesideAndRename(const std::filesystem::path& target,
                          const std::function<bool(const std::filesystem::path&)>& write);

/// Removes every file that is being written at the moment. Only for a program that ends right after: it may be called
/// from a signal handler, and it waits for nobody.
void removeUnfinishedFiles() noexcept;

} // namespace orvo::jobs
