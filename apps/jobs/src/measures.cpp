#include "measures.hpp"

#include <orvo_common/memory_manager.hpp>

#include <fstream>
#include <string>

namespace orvo::jobs {

void StepClock::enter(JobStep step)
{
    if (running && steps.back().step == step)
        return;
    stop();
    steps.push_back({step, 0.0});
    begun = std::chrono::steady_clock::now();
    running = true;
}

void StepClock::stop()
{
    if (!running)
        return;
    steps.back().milliseconds =
        std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - begun).count();
    running = false;
}

PeakMemory peakMemory()
{
    PeakMemory peak;
    peak.planes = MemoryManager::instance().peakBytes();
    std::ifstream status("/proc/self/status");
    constexpr std::uint64_t kBytesPerUnit = 1024; // the system reports KiB
    for (std::string word; status >> word;)
        if (word == "VmHWM:" && status >> peak.process)
            peak.process *= kBytesPerUnit;
    return peak;
}

} // namespace orvo::jobs
