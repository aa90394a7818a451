/// Times a kernel. Counters: "Mpx/s", and "copies", the time as a multiple of a plain parallel copy of the
/// planes that the kernel reads and writes, measured in the same run.
#pragma once

#include <orvo_common/memory_manager.hpp>
#include <orvo_core/parallel.hpp>

#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <string>

namespace orvo::bench {

struct Extent
{
    int width, height;
    [[nodiscard]] std::size_t pixels() const
    {
        return static_cast<std::size_t>(width) * static_cast<std::size_t>(height);
    }
};

inline Extent extentOf(const benchmark::State& state)
{
    return state.range(0) == 24 ? Extent{6000, 4000} : Extent{3000, 2000};
}

/// Slow waves with fine grain, 0.02 .. 0.98.
inline float sample(std::size_t index, std::size_t width)
{
    const std::size_t x = index % width;
    const std::size_t y = index / width;
    const auto hash = static_cast<std::uint32_t>(index * 2654435761U);
    const float grain = static_cast<float>(hash >> 16) * (0.1f / 65536);
    const float wave = std::sin(static_cast<float>(x) * 0.004f) * std::cos(static_cast<float>(y) * 0.006f);
    return 0.47f + 0.4f * wave + grain;
}

inline void fill(float* samples, std::size_t count, std::size_t width)
{
    orvo::forEachRange(count, [&](std::size_t first, std::size_t last) {
        for (std::size_t i = first; i < last; ++i)
            samples[i] = sample(i, width);
    });
}

inline void parallelCopy(void* to, const void* from, std::size_t bytes)
{
    orvo::forEachRange(bytes / 4, [&](std::size_t first, std::size_t last) {
        std::memcpy(static_cast<char*>(to) + 4 * first, static_cast<const char*>(from) + 4 * first, 4 * (last - first));
    });
}

/// Seconds of a copy: the fastest of five, because the first ones touch new pages and wake workers.
inline double copySeconds(std::size_t bytes)
{
    const ManagedPlane<char> from(bytes, true);
    const ManagedPlane<char> to(bytes, true);
    double best = 1e9;
    for (int i = 0; i < 5; ++i) {
        const auto start = std::chrono::steady_clock::now();
        parallelCopy(to.data(), from.data(), bytes);
        benchmark::DoNotOptimize(to.data()[bytes / 2]);
        best = std::min(best, std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
    }
    return best;
}

/// Runs `body` and reports its rate. `planeBytes` is the size of its input and of its output; half of the sum if the
/// two differ.
template <typename Body>
void measure(benchmark::State& state, Extent extent, std::size_t planeBytes, const Body& body)
{
    const double copy = copySeconds(planeBytes);
    double seconds = 0.0;
    for (auto _ : state) {
        const auto start = std::chrono::steady_clock::now();
        body();
        const double taken = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        state.SetIterationTime(taken);
        seconds += taken;
    }
    const auto rounds = static_cast<double>(state.iterations());
    state.counters["Mpx/s"] = static_cast<double>(extent.pixels()) * rounds / seconds * 1e-6;
    state.counters["copies"] = seconds / rounds / copy;
}

/// Peak memory since its construction: "peak MB" of the process, and "planes MB" of the planes alone, less those that
/// existed before.
class PeakMemory
{
public:
    PeakMemory() : before(MemoryManager::instance().liveBytes())
    {
        MemoryManager::instance().resetPeak();
        std::ofstream("/proc/self/clear_refs") << 5; // resets VmHWM; proc(5)
    }
    void report(benchmark::State& state) const
    {
        state.counters["planes MB"] = static_cast<double>(MemoryManager::instance().peakBytes() - before) * 1e-6;
        std::ifstream status("/proc/self/status");
        for (std::string line; std::getline(status, line);)
            if (line.starts_with("VmHWM:"))
                state.counters["peak MB"] = std::stod(line.substr(6)) * 1024e-6;
    }

private:
    std::size_t before;
};

inline void require(benchmark::State& state, bool sane)
{
    if (!sane)
        state.SkipWithError("the kernel's result is wrong");
}

} // namespace orvo::bench
