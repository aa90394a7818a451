/// Runs a loop in the widest vector code of the machine. The products and sums are the same in both forms (no fused
/// multiply-add), so results do not depend on the machine.
#pragma once

namespace orvo {

#if defined(__x86_64__)

// `Loop` is a callable whose operator() is always inlined, so that it is compiled for the instructions of its caller.
template <typename Loop>
[[gnu::target("avx2")]] void runLoopWide(const Loop& loop)
{
    loop();
}

template <typename Loop>
void runLoop(const Loop& loop)
{
    static const bool wide = __builtin_cpu_supports("avx2") != 0;
    if (wide)
        runLoopWide(loop);
    else
        loop();
}

#else

template <typename Loop>
void runLoop(const Loop& loop)
{
    loop();
}

#endif

} // namespace orvo
