#include "failing_memory.hpp"

#include <cstdlib>
#include <new>

namespace orvo::test {

thread_local long allocationsLeft = -1;

} // namespace orvo::test

void* operator new(std::size_t bytes)
{
    if (orvo::test::allocationsLeft >= 0 && orvo::test::allocationsLeft-- == 0)
        throw std::bad_alloc();
    if (void* const memory = std::malloc(bytes > 0 ? bytes : 1))
        return memory;
    throw std::bad_alloc();
}

void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }
