#include <orvo_common/memory_manager.hpp>

#include <gtest/gtest.h>

#ifdef __linux__
#include <sys/mman.h>
#include <unistd.h>
#endif

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <thread>
#include <vector>

using orvo::ManagedAllocator;
using orvo::ManagedPlane;
using orvo::MemoryManager;

namespace {

constexpr std::size_t kPlane = std::size_t{4} << 20;

bool isAligned(const void* pointer)
{
    return reinterpret_cast<std::uintptr_t>(pointer) % MemoryManager::kAlignment == 0;
}

} // namespace

TEST(MemoryManager, PlanesAreAligned)
{
    MemoryManager manager;
    for (const std::size_t bytes : {std::size_t{0}, std::size_t{1}, std::size_t{63}, std::size_t{65}, kPlane + 1}) {
        void* const plane = manager.allocate(bytes, false);
        EXPECT_TRUE(isAligned(plane)) << bytes;
        manager.free(plane);
    }
    EXPECT_EQ(manager.liveBytes(), 0u);
}

TEST(MemoryManager, CountsLiveAndPeak)
{
    MemoryManager manager;
    void* const a = manager.allocate(kPlane, false);
    void* const b = manager.allocate(2 * kPlane, false);
    EXPECT_EQ(manager.liveBytes(), 3 * kPlane);
    manager.free(b);
    EXPECT_EQ(manager.liveBytes(), kPlane);
    EXPECT_EQ(manager.peakBytes(), 3 * kPlane);
    manager.resetPeak();
    EXPECT_EQ(manager.peakBytes(), kPlane);
    manager.free(a);
    EXPECT_EQ(manager.liveBytes(), 0u);
}

TEST(MemoryManager, SparsePlanesAreZerosThatTakeNoMemory)
{
    MemoryManager manager;
    void* const used = manager.allocate(kPlane, false);
    std::memset(used, 1, kPlane);
    manager.free(used); // a kept plane that would fit
    auto* const plane = static_cast<unsigned char*>(manager.allocateSparse(kPlane));
    EXPECT_TRUE(isAligned(plane));
    EXPECT_EQ(manager.liveBytes(), kPlane);
#ifdef __linux__
    const auto page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
    const auto residentPages = [&] {
        std::vector<unsigned char> resident(kPlane / page);
        EXPECT_EQ(mincore(plane, kPlane, resident.data()), 0);
        return std::count_if(resident.begin(), resident.end(), [](unsigned char bits) { return (bits & 1) != 0; });
    };
    EXPECT_EQ(residentPages(), 0);
    plane[kPlane / 2] = 1;
    EXPECT_EQ(residentPages(), 1);
    plane[kPlane / 2] = 0;
#endif
    EXPECT_TRUE(std::all_of(plane, plane + kPlane, [](unsigned char byte) { return byte == 0; }));
    manager.free(plane);
    EXPECT_EQ(manager.liveBytes(), 0u);
}

TEST(MemoryManager, ReusesAFreedPlaneUpToTheLimit)
{
    MemoryManager manager;
    manager.setCacheLimit(kPlane);
    void* const first = manager.allocate(kPlane, false);
    void* const second = manager.allocate(kPlane, false);
    manager.free(first);
    manager.free(second); // beyond the limit: returned to the system
    EXPECT_EQ(manager.cachedBytes(), kPlane);
    EXPECT_EQ(manager.allocate(kPlane - 100, false), first);
    EXPECT_EQ(manager.cachedBytes(), 0u);
    manager.free(first);
    manager.trim();
    EXPECT_EQ(manager.cachedBytes(), 0u);
}

TEST(MemoryManager, AMuchLargerKeptPlaneIsNotUsedForASmallRequest)
{
    MemoryManager manager;
    manager.setCacheLimit(64 * kPlane);
    manager.free(manager.allocate(16 * kPlane, false));
    void* const small = manager.allocate(kPlane, false);
    EXPECT_EQ(manager.liveBytes(), kPlane);
    manager.free(small);
}

TEST(MemoryManager, KeptPlanesThatFitNothingDoNotRaiseThePeakOfAll)
{
    MemoryManager manager;
    manager.setCacheLimit(1000 * kPlane);
    // Each plane is too large for the kept ones.
    std::size_t most = 0;
    for (std::size_t size = 1; size <= 64; size *= 2) {
        void* const plane = manager.allocate(size * kPlane, false);
        most = std::max(most, manager.liveBytes() + manager.cachedBytes());
        manager.free(plane);
    }
    EXPECT_EQ(manager.peakBytes(), 64 * kPlane);
    EXPECT_LE(most, 72 * kPlane);
    // Those within the peak are kept.
    void* const half = manager.allocate(32 * kPlane, false);
    void* const quarter = manager.allocate(16 * kPlane, false);
    manager.free(half);
    manager.free(quarter);
    EXPECT_EQ(manager.cachedBytes(), 48 * kPlane);
}

TEST(MemoryManager, ZeroedPlanesAreZeroAlsoWhenReused)
{
    MemoryManager manager;
    void* const dirty = manager.allocate(kPlane, false);
    std::memset(dirty, 0xFF, kPlane);
    manager.free(dirty);
    const auto* const clean = static_cast<unsigned char*>(manager.allocate(kPlane, true));
    for (std::size_t i = 0; i < kPlane; i += 997)
        ASSERT_EQ(clean[i], 0);
    manager.free(const_cast<unsigned char*>(clean));
}

TEST(MemoryManager, AnImpossibleSizeThrows)
{
    MemoryManager manager;
    EXPECT_THROW((void)manager.allocate(static_cast<std::size_t>(-1), false), std::bad_alloc);
    EXPECT_EQ(manager.liveBytes(), 0u);
}

TEST(MemoryManager, ManyThreadsLeaveTheCountUnchanged)
{
    MemoryManager manager;
    std::vector<std::thread> threads;
    for (unsigned t = 0; t < 4; ++t)
        threads.emplace_back([&manager, t] {
            for (std::size_t i = 0; i < 200; ++i)
                manager.free(manager.allocate((i % 5 + t) * 300000 + 1, false));
        });
    for (auto& thread : threads)
        thread.join();
    EXPECT_EQ(manager.liveBytes(), 0u);
}

TEST(MemoryManager, ServesVectorsAndScopes)
{
    const std::size_t before = MemoryManager::instance().liveBytes();
    {
        std::vector<float, ManagedAllocator<float>> values(1000, 2.0f);
        const ManagedPlane<float> plane(1000);
        EXPECT_TRUE(isAligned(values.data()));
        EXPECT_TRUE(isAligned(plane.data()));
        EXPECT_GT(MemoryManager::instance().liveBytes(), before);
    }
    EXPECT_EQ(MemoryManager::instance().liveBytes(), before);
}
