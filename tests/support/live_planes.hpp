/// Memory held by planes, some of which background threads may still release.
#pragma once

#include <orvo_common/memory_manager.hpp>

#include <chrono>
#include <cstddef>
#include <thread>

namespace orvo::test {

/// Waits up to 10 seconds until the planes hold at most `bytes`, and returns their size. A saved state, for example,
/// lives until its file is written.
inline std::size_t liveBytesDownTo(std::size_t bytes)
{
    constexpr std::chrono::milliseconds kPause{5};
    constexpr int kMostPauses = 2000;
    for (int i = 0; i < kMostPauses && MemoryManager::instance().liveBytes() > bytes; ++i)
        std::this_thread::sleep_for(kPause);
    return MemoryManager::instance().liveBytes();
}

} // namespace orvo::test
