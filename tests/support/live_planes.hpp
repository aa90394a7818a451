/// How much memory planes hold, where threads in the background may still give some back.
#pragma once

#include <orvo_common/memory_manager.hpp>

#include <chrono>
#include <cstddef>
#include <thread>

namespace orvo::test {

/// Waits, 10 seconds at most, until the planes hold no more than `bytes`; returns what they hold then. A saved state,
/// say, lives until its file is written.
inline std::size_t liveBytesDownTo(std::size_t bytes)
{
    constexpr std::chrono::milliseconds kPause{5};
    constexpr int kMostPauses = 2000;
    for (int i = 0; i < kMostPauses && MemoryManager::instance().liveBytes() > bytes; ++i)
        std::this_thread::sleep_for(kPause);
    return MemoryManager::instance().liveBytes();
}

} // namespace orvo::test
