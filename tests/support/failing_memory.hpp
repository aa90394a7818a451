/// Allocations that fail on demand. Replaces operator new of the whole program.
#pragma once

namespace orvo::test {

/// Number of successful allocations of this thread before one fails with std::bad_alloc, once. Negative, as initially
/// and after the failure: none fails.
extern constinit thread_local long allocationsLeft;

} // namespace orvo::test
