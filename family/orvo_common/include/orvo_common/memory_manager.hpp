/// The allocator of large sample planes.
#pragma once

#include <orvo_common/export.hpp>

#include <cstddef>
#include <memory>
#include <new>

namespace orvo {

/// Allocates 64-byte aligned planes and keeps freed ones for reuse, so that a pipeline that repeatedly allocates and
/// frees planes of one size does not go to the system each time (a fresh 300 MB plane costs a page fault every 4 KB).
/// Usable from any thread.
class ORVO_EXPORT MemoryManager
{
public:
    static constexpr std::size_t kAlignment = 64; ///< bytes: a cache line, and the widest vector register

    static MemoryManager& instance();

    MemoryManager();
    ~MemoryManager();
    MemoryManager(const MemoryManager&) = delete;
    MemoryManager& operator=(const MemoryManager&) = delete;

    /// A plane of at least `bytes` bytes, uninitialised unless `zeroed`. Throws std::bad_alloc. A size of 0 returns a
    /// valid pointer to nothing. The caller releases it with free().
    [[nodiscard]] void* allocate(std::size_t bytes, bool zeroed);

    /// The same for a plane of zeros that may stay zero in large parts: these take no memory, as they come fresh from
    /// the system, in small pages. Counted like any other plane.
    [[nodiscard]] void* allocateSparse(std::size_t bytes);

    /// Releases a plane from allocate() or allocateSparse(); an empty pointer is allowed. Any other pointer is a bug in
    /// the caller and ends the program.
    void free(void* plane) noexcept;

    /// Bytes allocated and not yet freed, without kept planes.
    [[nodiscard]] std::size_t liveBytes() const;
    /// The largest liveBytes() since the start or the last resetPeak().
    [[nodiscard]] std::size_t peakBytes() const;
    void resetPeak();

    /// Bytes of freed planes kept for reuse; at most cacheLimit(). When no kept plane fits a request, the largest are
    /// returned to the system as far as live and kept planes together would exceed peakBytes() by more than a
    /// sixteenth.
    [[nodiscard]] std::size_t cachedBytes() const;
    [[nodiscard]] std::size_t cacheLimit() const;
    /// Limits the kept planes to `bytes`, now and later; the rest is returned to the system.
    void setCacheLimit(std::size_t bytes);
    /// Returns all kept planes to the system.
    void trim();

private:
    struct State;

    enum class Contents
    {
        Undefined,
        Zeros,
        SparseZeros
    };

    void* allocate(std::size_t bytes, Contents contents);

    std::unique_ptr<State> state;
};

/// MemoryManager as the allocator of a standard container.
template <typename T>
struct ManagedAllocator
{
    using value_type = T;

    ManagedAllocator() noexcept = default;
    template <typename U>
    ManagedAllocator(const ManagedAllocator<U>&) noexcept
    {}

    [[nodiscard]] T* allocate(std::size_t count)
    {
        if (count > static_cast<std::size_t>(-1) / sizeof(T))
            throw std::bad_array_new_length();
        return static_cast<T*>(MemoryManager::instance().allocate(count * sizeof(T), false));
    }
    void deallocate(T* pointer, std::size_t) noexcept { MemoryManager::instance().free(pointer); }

    template <typename U>
    bool operator==(const ManagedAllocator<U>&) const noexcept
    {
        return true;
    }
};

/// Owns one plane of MemoryManager for a scope: `count` values of T, uninitialised.
template <typename T>
class ManagedPlane
{
public:
    explicit ManagedPlane(std::size_t count, bool zeroed = false)
        : samples(static_cast<T*>(MemoryManager::instance().allocate(count * sizeof(T), zeroed)))
    {}
    [[nodiscard]] T* data() const noexcept { return samples.get(); }
    T& operator[](std::size_t index) const noexcept { return samples.get()[index]; }

private:
    struct Return
    {
        void operator()(T* pointer) const noexcept { MemoryManager::instance().free(pointer); }
    };
    std::unique_ptr<T, Return> samples;
};

} // namespace orvo
