/// orvo: operations of the library on files, for terminals and scripts.
#include "program.hpp"

#include <csignal>
#include <limits>

#if defined(__GLIBC__)
#include <malloc.h>
#endif

namespace {

// Keeps large freed blocks for reuse. By default they return to the system at once, and a fifth of the time of a
// panorama goes into clearing their pages again; the program ends before this can affect other processes.
void keepFreedMemory()
{
#if defined(__GLIBC__)
    constexpr int kLargest = std::numeric_limits<int>::max(); // bytes
    mallopt(M_MMAP_THRESHOLD, kLargest);
    mallopt(M_TRIM_THRESHOLD, kLargest);
#endif
}

} // namespace

int main(int argc, char** argv)
{
    keepFreedMemory();
    // A closed reader or a file at its size limit gives a write error instead of ending the program.
    std::signal(SIGPIPE, SIG_IGN);
    std::signal(SIGXFSZ, SIG_IGN);
    return orvo::cli::runProgram(argc, argv);
}
