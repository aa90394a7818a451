#include "support/failing_memory.hpp"

#include <cstdlib>
#include <new>

namespace orvo::test {

constinit thread_local long allocationsLeft = -1;

} // namespace orvo::test

#ifndef ORVO_THREAD_SANITIZER

// All forms that the other standard forms forward to, so that memory is freed by its own allocator.
void* operator new(std::size_t bytes, const std::nothrow_t&) noexcept
{
    if (orvo::test::allocationsLeft >= 0 && orvo::test::allocationsLeft-- == 0)
        return nullptr;
    return std::malloc(bytes > 0 ? bytes : 1);
}

void* operator new(std::size_t bytes)
{
    if (void* const memory = operator new(bytes, std::nothrow))
        return memory;
    throw std::bad_alloc();
}

void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }
void operator delete(void* memory, const std::nothrow_t&) noexcept { std::free(memory); }

#endif
