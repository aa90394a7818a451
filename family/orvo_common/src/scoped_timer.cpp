#include <orvo_common/console_trace.hpp>
#include <orvo_common/scoped_timer.hpp>

namespace orvo {

ScopedTimer::ScopedTimer(const char* name_, unsigned long long minimumMs_)
    : name(name_), minimumMs(minimumMs_), start(std::chrono::steady_clock::now())
{}

ScopedTimer::~ScopedTimer()
{
    const auto ms =
        std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - start).count();
    if (static_cast<unsigned long long>(ms) >= minimumMs)
        grfx::cout << name << ": " << ms << " ms\n";
}

} // namespace orvo
