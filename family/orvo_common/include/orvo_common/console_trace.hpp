/// The developer's trace on standard output, separate from the log.
#pragma once

#include <orvo_common/export.hpp>

#include <atomic>
#include <iostream>

namespace grfx {

/// Guards developer output to std::cout. `quiet` is its first byte; each piece is written only while it is zero, and it
/// is read again before each piece. Initially quiet: a library does not write to its host's output.
struct ORVO_EXPORT ConsoleTrace
{
    std::atomic<unsigned char> quiet{1};

    template <typename Piece>
    ConsoleTrace& operator<<(const Piece& piece)
    {
        if (quiet.load(std::memory_order_relaxed) == 0)
            std::cout << piece;
        return *this;
    }
};

extern ORVO_EXPORT ConsoleTrace cout;

} // namespace grfx
