/// Allocations that fail on demand. Replaces operator new of the whole program.
#pragma once

namespace orvo::test {

/// Allocations of this thread until one fails with std::bad_alloc, once. Negative, as it is at the start and after the
/// failure: none does.
extern constinit thread_local long allocationsLeft;

} // namespace orvo::test
