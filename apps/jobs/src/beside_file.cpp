#include <jobs/beside_file.hpp>
#include <orvo_common/uuid.hpp>
#include <orvo_common/wide_path.hpp>
#include <orvo_extensions/failure.hpp>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <string>
#include <string_view>
#include <system_error>

namespace orvo::jobs {
namespace {

// Names of the files being written, in fixed memory, since a signal handler can neither lock nor allocate.
enum class SlotState
{
    Free,
    Changing,
    Named
};
struct Slot
{
    std::atomic<SlotState> state{SlotState::Free};
    std::array<char, PATH_MAX> path{};
};
constexpr std::size_t kSlots = 64; // files written at one time; more are not removed by a signal
std::array<Slot, kSlots> slots;
static_assert(std::atomic<SlotState>::is_always_lock_free);

std::size_t claimSlot(const std::string& path)
{
    if (path.size() >= PATH_MAX)
        return kSlots;
    for (std::size_t i = 0; i < kSlots; ++i) {
        SlotState expected = SlotState::Free;
        if (slots[i].state.compare_exchange_strong(expected, SlotState::Changing)) {
            std::memcpy(slots[i].path.data(), path.c_str(), path.size() + 1);
            slots[i].state = SlotState::Named;
            return i;
        }
    }
    return kSlots;
}

void releaseSlot(std::size_t slot)
{
    if (slot < kSlots)
        slots[slot].state = SlotState::Free;
}

/// The file that a link leads to, whether it is there or not, so that the link stays a link; otherwise the path itself.
std::filesystem::path behindLinks(const std::filesystem::path& path)
{
    std::error_code error;
    const auto real = std::filesystem::canonical(path, error);
    if (!error)
        return real;
    auto place = std::filesystem::absolute(path, error);
    if (error)
        throw FailureError({FailureKind::Internal, path, "the working folder is missing: " + error.message()});
    constexpr int kMostLinks = 40; // as the system follows
    for (int i = 0; i < kMostLinks; ++i) {
        const auto next = std::filesystem::read_symlink(place, error);
        if (error)
            return place;
        place = place.parent_path() / next; // `next` alone if it is absolute
    }
    throw FailureError({FailureKind::Internal, path, "its links form a loop"});
}

constexpr std::string_view kPrefix = ".orvo-";
constexpr std::size_t kNameDigits = 13;

std::filesystem::path freeName(const std::filesystem::path& target)
{
    auto path = target.parent_path() / (std::string(kPrefix) + generateUUID().substr(0, kNameDigits));
    path += target.extension();
    return path;
}

[[noreturn]] void failToMake(const std::filesystem::path& target, const std::filesystem::path& named, int cause)
{
    throw FailureError({kindOfSystemError(cause, FailureKind::Internal), named,
                        "cannot create a file in the folder " + pathText(target.parent_path()) + ": " +
                            std::generic_category().message(cause)});
}

constexpr int kAttempts = 8; // names are random; a second attempt is already a surprise
constexpr mode_t kPlainFile = 0666;

/// A file with a free name, and a lock that shows that its owner lives. The name does not hold the target's, which may
/// be as long as a name can be.
int makeNamedFile(const std::filesystem::path& target, const std::filesystem::path& named, std::filesystem::path& path)
{
    int cause = EEXIST;
    for (int attempt = 0; attempt < kAttempts && cause == EEXIST; ++attempt) {
        path = freeName(target);
        const int file = ::open(path.c_str(), O_CREAT | O_EXCL | O_RDWR | O_CLOEXEC, kPlainFile);
        if (file < 0) {
            cause = errno;
            continue;
        }
        // Another process may take it for a dead one's before it is locked. Some file systems have no locks at all.
        struct stat status = {};
        const bool isTaken = (::flock(file, LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK) ||
                             ::fstat(file, &status) != 0 || status.st_nlink == 0;
        if (!isTaken)
            return file;
        ::close(file);
    }
    failToMake(target, named, cause);
}

/// Whether a file has a name as freeName() gives.
bool isOurs(const std::filesystem::path& path)
{
    const std::string name = pathText(path.filename());
    return name.starts_with(kPrefix) &&
           name.find_first_not_of("0123456789abcdefABCDEF-", kPrefix.size()) >= kPrefix.size() + kNameDigits;
}

/// Removes what processes that are dead have left in a folder: files of ours that nobody holds locked.
void removeLeftovers(const std::filesystem::path& folder)
{
    std::error_code error;
    for (auto entry = std::filesystem::directory_iterator(folder, error);
         !error && entry != std::filesystem::directory_iterator(); entry.increment(error)) {
        if (!isOurs(entry->path()))
            continue;
        const int file = ::open(entry->path().c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOFOLLOW);
        if (file < 0)
            continue;
        struct stat status = {};
        if (::fstat(file, &status) == 0 && S_ISREG(status.st_mode) && ::flock(file, LOCK_EX | LOCK_NB) == 0)
            ::unlink(entry->path().c_str());
        ::close(file);
    }
}

std::filesystem::path pathOfDescriptor(int descriptor) { return "/proc/self/fd/" + std::to_string(descriptor); }

/// A file without a name in the folder of the target, so that nothing of it stays whatever ends the process; -1 where
/// the file system has none.
int makeUnnamedFile(const std::filesystem::path& target)
{
#ifdef O_TMPFILE
    const int file = ::open(target.parent_path().c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, kPlainFile);
    if (file >= 0 && ::access(pathOfDescriptor(file).c_str(), F_OK) == 0)
        return file;
    if (file >= 0) // without /proc it could get no name
        ::close(file);
#endif
    return -1;
}

bool giveName(int descriptor, const std::filesystem::path& path)
{
    return ::linkat(AT_FDCWD, pathOfDescriptor(descriptor).c_str(), AT_FDCWD, path.c_str(), AT_SYMLINK_FOLLOW) == 0;
}

} // namespace

BesideFile::BesideFile(const std::filesystem::path& target_, BesideName name)
    : target(behindLinks(target_)), descriptor(name == BesideName::None ? makeUnnamedFile(target) : -1), slot(kSlots)
{
    removeLeftovers(target.parent_path());
    if (descriptor >= 0) {
        beside = pathOfDescriptor(descriptor);
        ::flock(descriptor, LOCK_EX | LOCK_NB); // for the moment in which it has a name of its own
        return;
    }
    descriptor = makeNamedFile(target, target_, beside);
    slot = claimSlot(beside.native());
    isNamed = true;
}

BesideFile::~BesideFile()
{
    if (isNamed && !committed)
        ::unlink(beside.c_str());
    releaseSlot(slot);
    ::close(descriptor);
}

void BesideFile::commit()
{
    const auto fail = [this](int cause) {
        throw FailureError({kindOfSystemError(cause, FailureKind::Internal), target,
                            "cannot rename the finished file: " + std::generic_category().message(cause)});
    };
    struct stat before = {};
    constexpr mode_t kPermissions = 07777;
    if (::stat(target.c_str(), &before) == 0 && S_ISREG(before.st_mode))
        (void)::fchmod(descriptor, before.st_mode & kPermissions); // a private picture stays private
    if (!isNamed) {
        if (giveName(descriptor, target)) {
            committed = true;
            return;
        }
        // Only renaming replaces a file in one step.
        for (int attempt = 0; attempt < kAttempts && !isNamed && errno == EEXIST; ++attempt) {
            beside = freeName(target);
            isNamed = giveName(descriptor, beside);
        }
        if (!isNamed)
            fail(errno);
        slot = claimSlot(beside.native());
    }
    if (::rename(beside.c_str(), target.c_str()) != 0)
        fail(errno);
    committed = true;
}

bool writeBesideAndRename(const std::filesystem::path& target,
                          const std::function<bool(const std::filesystem::path&)>& write)
{
    BesideFile file(target);
    if (!write(file.path()))
        return false;
    file.commit();
    return true;
}

void removeUnfinishedFiles() noexcept
{
    for (const Slot& slot : slots)
        if (slot.state == SlotState::Named)
            ::unlink(slot.path.data());
}

} // namespace orvo::jobs
