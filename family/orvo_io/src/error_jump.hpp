// Guards calls into libraries that report errors through a function that must not return.
#pragma once

#include <csetjmp>

namespace orvo::io {

// The error function of such a library stores the message and jumps. The library's state derives from this class, and
// its user pointer lets the function find it.
struct ErrorJump
{
    static constexpr int kMessageBytes = 256;

    char message[kMessageBytes] = {};

    // False if the library failed. Neither `call` nor its callees hold objects whose destructor a jump out of the
    // library would skip.
    template <typename Call>
    [[nodiscard]] bool attempt(const Call& call)
    {
        if (setjmp(back) != 0)
            return false;
        call();
        return true;
    }

    [[noreturn]] void jump() { std::longjmp(back, 1); }

private:
    std::jmp_buf back;
};

} // namespace orvo::io
