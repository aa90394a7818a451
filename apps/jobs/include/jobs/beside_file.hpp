/// Files that are there whole or not at all: written beside their place and then put into it.
#pragma once

#include <cstddef>
#include <filesystem>
#include <functional>

namespace orvo::jobs {

/// Whether a file has a name before it is in its place.
enum class BesideName
{
    None, ///< where the file system can do without
    Own,
};

/// An empty file in the folder of `target`. It has no name where the file system can do without, so that nothing stays
/// of it even if the process is killed; elsewhere it has one of its own with the same ending, and what killed processes
/// have left is removed when the next file is made in that folder. It is gone with this object unless commit() was
/// called. If `target` is a link, the file it leads to is meant, whether it is there or not.
class BesideFile
{
public:
    /// Throws FailureError that names the target, its folder and the cause if no file can be made in it.
    explicit BesideFile(const std::filesystem::path& target, BesideName name = BesideName::None);
    ~BesideFile();
    BesideFile(const BesideFile&) = delete;
    BesideFile& operator=(const BesideFile&) = delete;

    /// Where to write, as long as this object lives. Absolute, so that it stays right if the working folder changes.
    [[nodiscard]] const std::filesystem::path& path() const { return beside; }

    /// Puts the file in the place of the target in one step, replacing a file that is there and keeping its
    /// permissions. Throws FailureError that names the target and the cause.
    void commit();

private:
    std::filesystem::path target;
    std::filesystem::path beside;
    int descriptor;       ///< of the file; locked while it may have a name of its own
    bool isNamed = false; ///< `beside` is in the folder, not a path of the descriptor
    std::size_t slot;     ///< its place among the files that removeUnfinishedFiles() knows
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
