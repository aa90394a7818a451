// How calls into libraries are fenced in that report an error through a function which must not return.
#pragma once

#include <csetjmp>

namespace orvo::io {

// Such a library's error function writes the message and jumps. The library's state derives from this, and its user
// pointer leads the function here.
struct ErrorJump
{
    static constexpr int kMessageBytes = 256;

    char message[kMessageBytes] = {};

    // False if the library gave up. Neither `call` nor what it calls holds anything that a jump out of the library
    // would skip.
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
