/// Times a scope for the developer's trace.
#pragma once

#include <orvo_common/export.hpp>

#include <chrono>

namespace orvo {

/// Writes "NAME: MILLISECONDS ms" to grfx::cout when its scope ends.
class ORVO_EXPORT ScopedTimer
{
public:
    /// `name` must outlive the timer. `minimumMs`: shorter scopes are not reported; 0 reports all.
    ScopedTimer(const char* name, unsigned long long minimumMs);
    ~ScopedTimer();
    ScopedTimer(const ScopedTimer&) = delete;
    ScopedTimer& operator=(const ScopedTimer&) = delete;

private:
    const char* name;
    unsigned long long minimumMs;
    std::chrono::steady_clock::time_point start;
};

} // namespace orvo
