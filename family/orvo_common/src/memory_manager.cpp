#include <orvo_common/memory_manager.hpp>

#include <sys/mman.h>
#include <unistd.h>

#ifdef __GLIBC__
#include <malloc.h>
#endif

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <mutex>
#include <unordered_map>

#if defined(__has_feature)
#if __has_feature(address_sanitizer)
#define ORVO_ADDRESS_SANITIZER 1
#endif
#endif
#if defined(__SANITIZE_ADDRESS__)
#define ORVO_ADDRESS_SANITIZER 1
#endif
#ifdef ORVO_ADDRESS_SANITIZER
#include <sanitizer/asan_interface.h>
#endif

namespace orvo {
namespace {

/// The address sanitizer knows only malloc's blocks. These two mark the bytes of a kept plane, and those beyond the
/// requested size of a block, as not accessible.
void forbid([[maybe_unused]] void* begin, [[maybe_unused]] std::size_t bytes)
{
#ifdef ORVO_ADDRESS_SANITIZER
    ASAN_POISON_MEMORY_REGION(begin, bytes);
#endif
}
void permit([[maybe_unused]] void* begin, [[maybe_unused]] std::size_t bytes)
{
#ifdef ORVO_ADDRESS_SANITIZER
    ASAN_UNPOISON_MEMORY_REGION(begin, bytes);
#endif
}

#ifdef ORVO_CHECKED
// These bytes are NaN as floats and doubles, so reads of uninitialised samples show in the result.
constexpr int kUnwritten = 0xFF;
#endif

// Smaller planes are not worth keeping: the system's allocator serves small blocks from its own lists.
constexpr std::size_t kSmallestKept = std::size_t{1} << 20;

// Sizes are rounded up to this, so that planes of nearly the same size can replace each other.
constexpr std::size_t kGranule = std::size_t{64} << 10;

// A kept plane is reused for requests down to this share of its size; a looser fit would waste memory.
constexpr double kTightestFit = 0.8;

// Kept planes never use more than this share of the machine's memory.
constexpr std::size_t kCacheShareOfMemory = 32;

// Live and kept planes together exceed the largest live amount by this share at most, so that planes of sizes that are
// no longer asked for do not raise the peak of a process.
constexpr std::size_t kExtraShareOfPeak = 16;

std::size_t defaultCacheLimit()
{
    const long pages = sysconf(_SC_PHYS_PAGES);
    const long pageBytes = sysconf(_SC_PAGE_SIZE);
    if (pages <= 0 || pageBytes <= 0)
        return std::size_t{256} << 20;
    return static_cast<std::size_t>(pages) / kCacheShareOfMemory * static_cast<std::size_t>(pageBytes);
}

// Blocks from this size on get huge pages, which take a fraction of the page faults.
constexpr std::size_t kLeastHuge = std::size_t{32} << 20;

// Large blocks are mapped one by one: the C library would serve most of them from its heap, whose pages do not go back
// to the system when a block is freed below another one.
bool isMapped(std::size_t blockBytes) { return blockBytes >= kSmallestKept; }

void* fromSystem(std::size_t bytes, bool isSparse)
{
    if (!isMapped(bytes))
        return std::aligned_alloc(MemoryManager::kAlignment, bytes);
    void* const block = ::mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (block == MAP_FAILED)
        return nullptr;
#ifdef MADV_HUGEPAGE
    // Only advice: a system without huge pages refuses it, and nothing changes.
    if (bytes >= kLeastHuge && !isSparse)
        static_cast<void>(::madvise(block, bytes, MADV_HUGEPAGE));
#endif
    return block;
}

void toSystem(void* block, std::size_t bytes) noexcept
{
    permit(block, bytes);
    if (isMapped(bytes))
        ::munmap(block, bytes);
    else
        std::free(block);
}

std::size_t roundedUp(std::size_t bytes)
{
    const std::size_t unit = bytes >= kSmallestKept ? kGranule : MemoryManager::kAlignment;
    if (bytes > static_cast<std::size_t>(-1) - unit)
        throw std::bad_alloc();
    return std::max(unit, (bytes + unit - 1) / unit * unit);
}

} // namespace

struct MemoryManager::State
{
    mutable std::mutex mutex;
    std::unordered_map<void*, std::size_t> handedOut; // address -> bytes of the block
    std::multimap<std::size_t, void*> kept;           // bytes of the block -> address
    std::size_t live = 0;
    std::size_t peak = 0;
    std::size_t keptBytes = 0;
    std::size_t limit = defaultCacheLimit();

    // Call both with the mutex locked.
    void* takeKept(std::size_t bytes, std::size_t& blockBytes)
    {
        const auto found = kept.lower_bound(bytes);
        if (found == kept.end() || static_cast<double>(bytes) < kTightestFit * static_cast<double>(found->first))
            return nullptr;
        blockBytes = found->first;
        void* const block = found->second;
        keptBytes -= blockBytes;
        kept.erase(found);
        return block;
    }

    // Releases kept planes before `bytes` more come from the system.
    void makeRoom(std::size_t bytes)
    {
        const std::size_t wanted = live + bytes;
#ifdef __GLIBC__
        // What decoders and OpenCV have freed stays in the C library's heap, at the peak of the process too.
        if (wanted > peak && bytes >= kLeastHuge)
            ::malloc_trim(0);
#endif
        const std::size_t most = std::max(peak, wanted);
        shrinkTo(most + most / kExtraShareOfPeak - wanted);
    }

    void shrinkTo(std::size_t bytes)
    {
        while (keptBytes > bytes) {
            const auto largest = std::prev(kept.end());
            keptBytes -= largest->first;
            toSystem(largest->second, largest->first);
            kept.erase(largest);
        }
    }
};

MemoryManager& MemoryManager::instance()
{
    // Never destroyed: objects with static lifetime may free their planes after its destruction.
    static MemoryManager* const manager = new MemoryManager;
    return *manager;
}

MemoryManager::MemoryManager() : state(std::make_unique<State>()) {}

MemoryManager::~MemoryManager() { trim(); }

void* MemoryManager::allocate(std::size_t bytes, bool zeroed)
{
    return allocate(bytes, zeroed ? Contents::Zeros : Contents::Undefined);
}

void* MemoryManager::allocateSparse(std::size_t bytes) { return allocate(bytes, Contents::SparseZeros); }

void* MemoryManager::allocate(std::size_t bytes, Contents contents)
{
    const bool isSparse = contents == Contents::SparseZeros;
    std::size_t blockBytes = roundedUp(bytes);
    void* block = nullptr;
    {
        const std::lock_guard lock(state->mutex);
        if (!isSparse)
            block = state->takeKept(blockBytes, blockBytes);
        if (block == nullptr)
            state->makeRoom(blockBytes);
    }
    bool isZero = false;
    if (block == nullptr) {
        isZero = isMapped(blockBytes); // fresh pages are
        block = fromSystem(blockBytes, isSparse);
        if (block == nullptr) {
            trim(); // the kept planes may be exactly what is missing
            block = fromSystem(blockBytes, isSparse);
        }
        if (block == nullptr)
            throw std::bad_alloc();
    }
    permit(block, bytes);
    forbid(static_cast<char*>(block) + bytes, blockBytes - bytes);
    if (contents != Contents::Undefined && !isZero)
        std::memset(block, 0, bytes);
#ifdef ORVO_CHECKED
    if (contents == Contents::Undefined)
        std::memset(block, kUnwritten, bytes);
#endif
    const std::lock_guard lock(state->mutex);
    try {
        state->handedOut.emplace(block, blockBytes);
    } catch (...) { // no memory for the entry
        toSystem(block, blockBytes);
        throw;
    }
    state->live += blockBytes;
    state->peak = std::max(state->peak, state->live);
    return block;
}

void MemoryManager::free(void* plane) noexcept
{
    if (plane == nullptr)
        return;
    const std::lock_guard lock(state->mutex);
    const auto found = state->handedOut.find(plane);
    if (found == state->handedOut.end()) {
        std::fputs("MemoryManager::free: not a plane of allocate(), or freed twice\n", stderr);
        std::abort();
    }
    const std::size_t blockBytes = found->second;
    state->handedOut.erase(found);
    state->live -= blockBytes;
    if (blockBytes < kSmallestKept || state->keptBytes + blockBytes > state->limit) {
        toSystem(plane, blockBytes);
        return;
    }
    forbid(plane, blockBytes);
    state->kept.emplace(blockBytes, plane);
    state->keptBytes += blockBytes;
}

std::size_t MemoryManager::liveBytes() const
{
    const std::lock_guard lock(state->mutex);
    return state->live;
}

std::size_t MemoryManager::peakBytes() const
{
    const std::lock_guard lock(state->mutex);
    return state->peak;
}

void MemoryManager::resetPeak()
{
    const std::lock_guard lock(state->mutex);
    state->peak = state->live;
}

std::size_t MemoryManager::cachedBytes() const
{
    const std::lock_guard lock(state->mutex);
    return state->keptBytes;
}

std::size_t MemoryManager::cacheLimit() const
{
    const std::lock_guard lock(state->mutex);
    return state->limit;
}

void MemoryManager::setCacheLimit(std::size_t bytes)
{
    const std::lock_guard lock(state->mutex);
    state->limit = bytes;
    state->shrinkTo(bytes);
}

void MemoryManager::trim()
{
    const std::lock_guard lock(state->mutex);
    state->shrinkTo(0);
}

} // namespace orvo
