/// Allocations that fail on demand. Replaces operator new of the whole program, except under the thread sanitizer: it
/// leaves out what libraries that are not built with it, such as OpenCV, do with memory themselves, but not what they
/// do through an operator of ours.
#pragma once

#if defined(__has_feature)
#if __has_feature(thread_sanitizer)
#define ORVO_THREAD_SANITIZER 1
#endif
#endif
#if defined(__SANITIZE_THREAD__)
#define ORVO_THREAD_SANITIZER 1
#endif

namespace orvo::test {

/// Number of successful allocations of this thread before one fails with std::bad_alloc, once. Negative, as initially
/// and after the failure: none fails.
extern constinit thread_local long allocationsLeft;

/// Whether it has an effect. Tests that rely on it are skipped otherwise.
#ifdef ORVO_THREAD_SANITIZER
inline constexpr bool kAllocationsCanFail = false;
#else
inline constexpr bool kAllocationsCanFail = true;
#endif

} // namespace orvo::test
