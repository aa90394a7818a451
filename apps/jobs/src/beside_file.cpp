#include <jobs/beside_file.hpp>
#include <orvo_common/uuid.hpp>
#include <orvo_extensions/failure.hpp>

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <climits>
#include <cstring>
#include <string>
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
constexpr std::size_t kSlots = 16; // files written at one time; more are not removed by a signal
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

/// The target of a link, so that the link remains a link; otherwise the path itself.
std::filesystem::path behindLinks(const std::filesystem::path& path)
{
    std::error_code error;
    const auto real = std::filesystem::canonical(path, error);
    return error ? std::filesystem::absolute(path) : real;
}

/// Creates an empty file with an unused name in a folder; errors name `target` as the user wrote it. The new name does
/// not include the target's, which may already have the maximum length.
std::filesystem::path makeEmptyFile(const std::filesystem::path& folder, const std::filesystem::path& target)
{
    constexpr int kAttempts = 8; // names are random, so even a second attempt is unlikely
    constexpr std::size_t kNameDigits = 13;
    int cause = 0;
    for (int attempt = 0; attempt < kAttempts; ++attempt) {
        auto path = folder / (".orvo-" + generateUUID().substr(0, kNameDigits));
        path += target.extension();
        const int file = ::open(path.c_str(), O_CREAT | O_EXCL | O_WRONLY | O_CLOEXEC, 0666);
        if (file >= 0) {
            ::close(file);
            return path;
        }
        cause = errno;
        if (cause != EEXIST)
            break;
    }
    throw FailureError(
        {kindOfSystemError(cause, FailureKind::Internal), target,
         "cannot create a file in the folder " + folder.string() + ": " + std::generic_category().message(cause)});
}

} // namespace

BesideFile::BesideFile(const std::filesystem::path& target_)
    : target(behindLinks(target_)), beside(makeEmptyFile(target.parent_path(), target_)),
      slot(claimSlot(beside.string()))
{}

BesideFile::~BesideFile()
{
    if (!committed)
        ::unlink(beside.c_str());
    releaseSlot(slot);
}

void BesideFile::commit()
{
    std::error_code error;
    const auto before = std::filesystem::status(target, error);
    if (std::filesystem::is_regular_file(before))
        std::filesystem::permissions(beside, before.permissions(), error); // a private picture stays private
    std::filesystem::rename(beside, target, error);
    if (error)
        throw FailureError({kindOfSystemError(error.value(), FailureKind::Internal), target,
                            "cannot rename the finished file: " + error.message()});
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
