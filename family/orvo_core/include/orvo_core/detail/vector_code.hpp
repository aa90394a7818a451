/// Builds hot loops for the wider vector instructions of the machine as well as for the baseline processor. For
/// sources of the family; no public header includes it. All forms give the same bits, because nothing is fused into
/// multiply-adds (cmake/OrvoTargets.cmake), so results do not depend on the machine.
#pragma once

#if defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer) || __has_feature(memory_sanitizer)
#define ORVO_INSTRUMENTED 1
#endif
#endif
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define ORVO_INSTRUMENTED 1
#endif

/// Marks a function that is built three times, for AVX-512, AVX2 and the baseline; the loader picks one at start. The
/// choice runs while the program is loaded, before a sanitizer's runtime is initialised.
#if defined(__x86_64__) && !defined(ORVO_INSTRUMENTED)
#define ORVO_VECTOR_CLONES __attribute__((target_clones("arch=x86-64-v4", "avx2", "default")))
#else
#define ORVO_VECTOR_CLONES
#endif

/// Small functions that must be inlined into each form of their caller.
#define ORVO_INLINE inline __attribute__((always_inline))

namespace orvo {

#if defined(__x86_64__)

template <typename Loop>
[[gnu::target("arch=x86-64-v4")]] void runLoopWidest(const Loop& loop)
{
    loop();
}

template <typename Loop>
[[gnu::target("avx2")]] void runLoopWide(const Loop& loop)
{
    loop();
}

/// What x86-64-v4 stands for; not every compiler knows the name here.
inline bool hasWidestVectors()
{
    return __builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512bw") &&
           __builtin_cpu_supports("avx512cd") && __builtin_cpu_supports("avx512dq") &&
           __builtin_cpu_supports("avx512vl");
}

/// Runs a loop whose code is a template, for which the loader cannot pick a clone. `Loop` is a callable whose
/// operator() is always inlined, so it is compiled for the instructions of its caller.
template <typename Loop>
void runLoop(const Loop& loop)
{
    static const bool widest = hasWidestVectors();
    static const bool wide = __builtin_cpu_supports("avx2") != 0;
    if (widest)
        runLoopWidest(loop);
    else if (wide)
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
