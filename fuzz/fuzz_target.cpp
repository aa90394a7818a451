#include "fuzz_target.hpp"

#include <sys/mman.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

namespace orvo::fuzz {

void require(bool kept, const char* promise)
{
    if (kept)
        return;
    std::fprintf(stderr, "broken promise: %s\n", promise);
    std::abort();
}

MemoryFile::MemoryFile()
    : descriptor(::memfd_create("orvo_fuzz", MFD_CLOEXEC)), location("/proc/self/fd/" + std::to_string(descriptor))
{
    require(descriptor >= 0, "the system can create a file in memory");
}

MemoryFile::~MemoryFile() { ::close(descriptor); }

void MemoryFile::write(std::span<const std::uint8_t> bytes)
{
    bool written = ::ftruncate(descriptor, 0) == 0;
    for (std::size_t at = 0; written && at < bytes.size();) {
        const ::ssize_t step = ::pwrite(descriptor, bytes.data() + at, bytes.size() - at, static_cast<::off_t>(at));
        written = step > 0;
        at += written ? static_cast<std::size_t>(step) : 0;
    }
    require(written, "a file in memory can be written");
}

} // namespace orvo::fuzz
