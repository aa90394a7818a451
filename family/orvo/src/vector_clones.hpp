/// Marks hot loops that are built twice, for AVX2 and for the baseline processor; the loader picks one at start.
#pragma once

#if defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer) || __has_feature(memory_sanitizer)
#define ORVO_INSTRUMENTED 1
#endif
#endif
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define ORVO_INSTRUMENTED 1
#endif

// The choice is made while the program is being loaded, before the run time of a sanitizer stands.
#if defined(__x86_64__) && !defined(ORVO_INSTRUMENTED)
#define ORVO_VECTOR_CLONES __attribute__((target_clones("avx2", "default")))
#else
#define ORVO_VECTOR_CLONES
#endif

/// Small functions that must vanish into each clone of their caller.
#define ORVO_INLINE inline __attribute__((always_inline))
