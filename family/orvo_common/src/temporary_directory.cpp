#include <orvo_common/temporary_directory.hpp>
#include <orvo_common/uuid.hpp>
#include <orvo_common/wide_path.hpp>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <mutex>
#include <string>
#include <string_view>
#include <system_error>

namespace orvo {
namespace {

namespace fs = std::filesystem;

// A folder "orvo-UID-ID" is alive while its process holds the lock on the file "orvo-UID-ID.lock" next to it. The
// system drops the lock however the process ends, so a reused process id does no harm.
constexpr std::string_view kLockEnding = ".lock";

std::string ownPrefix() { return "orvo-" + std::to_string(::getuid()) + "-"; }

fs::path lockOf(fs::path folder) { return folder += kLockEnding; }

// Opens and locks an existing lock file; -1 if it is locked or foreign.
int tryLock(const fs::path& file, int flags)
{
    const int handle = ::open(file.c_str(), flags | O_RDWR | O_CLOEXEC | O_NOFOLLOW, 0600);
    if (handle < 0)
        return -1;
    struct stat held = {};
    struct stat named = {};
    // A sweeper may remove the file between open and lock.
    const bool usable = ::flock(handle, LOCK_EX | LOCK_NB) == 0 && ::fstat(handle, &held) == 0 &&
                        ::lstat(file.c_str(), &named) == 0 && held.st_ino == named.st_ino &&
                        held.st_dev == named.st_dev && held.st_uid == ::getuid();
    if (usable)
        return handle;
    ::close(handle);
    return -1;
}

void removeFolderAndLock(const fs::path& folder)
{
    std::error_code ignored;
    struct stat facts = {};
    if (::lstat(folder.c_str(), &facts) == 0 && S_ISDIR(facts.st_mode) && facts.st_uid == ::getuid())
        fs::remove_all(folder, ignored);
    ::unlink(lockOf(folder).c_str()); // last: while anything is left, a later sweep finds it
}

class ProcessFolder
{
public:
    ~ProcessFolder()
    {
        // a forked child must not remove the folder of its parent
        if (lock >= 0 && owner == ::getpid())
            removeFolderAndLock(folder);
        if (lock >= 0)
            ::close(lock);
    }

    fs::path path()
    {
        const std::lock_guard guard(mutex);
        if (folder.empty()) {
            std::error_code error;
            fs::path parent = fs::temp_directory_path(error);
            if (error)
                parent = "/tmp";
            sweepTemporaryDirectories(parent);
            folder = parent / (ownPrefix() + generateUUID());
        }
        if (lock < 0)
            lock = tryLock(lockOf(folder), O_CREAT | O_EXCL);
        if (lock >= 0)
            ::mkdir(folder.c_str(), 0700); // recreated after a cleanup of the temporary folder
        return folder;
    }

private:
    std::mutex mutex;
    fs::path folder;
    int lock = -1;
    pid_t owner = ::getpid();
};

} // namespace

fs::path getTemporaryDirectory()
{
    static ProcessFolder folder;
    return folder.path();
}

int sweepTemporaryDirectories(const fs::path& parent)
{
    const std::string prefix = ownPrefix();
    int removed = 0;
    std::error_code error;
    for (fs::directory_iterator entry(parent, fs::directory_options::skip_permission_denied, error), end;
         !error && entry != end; entry.increment(error)) {
        const std::string name = pathText(entry->path().filename());
        if (!name.starts_with(prefix) || !name.ends_with(kLockEnding))
            continue;
        const int lock = tryLock(entry->path(), 0);
        if (lock < 0)
            continue;
        removeFolderAndLock(parent / name.substr(0, name.size() - kLockEnding.size()));
        ::close(lock);
        ++removed;
    }
    return removed;
}

} // namespace orvo
