/// Shared by all fuzz targets: the entry point, a check of properties, and a parser of arguments from bytes.
#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <span>
#include <string>

/// The entry of a target, called by libFuzzer and replay_main.cpp: passes `size` bytes to the code under test, which
/// may refuse them, but must not crash, hang, or break what its header promises. Returns 0. Called repeatedly from one
/// thread in one process; its side effects must not depend on the input.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace orvo::fuzz {

/// Prints `promise` to the error output and aborts if it is not `kept`: a finding, like a crash.
void require(bool kept, const char* promise);

/// A regular file in memory, rewritten for each input, to fuzz functions that take paths without a disk.
class MemoryFile
{
public:
    /// Aborts if the system cannot create one.
    MemoryFile();
    ~MemoryFile();
    MemoryFile(const MemoryFile&) = delete;
    MemoryFile& operator=(const MemoryFile&) = delete;

    /// Replaces the content.
    void write(std::span<const std::uint8_t> bytes);
    /// Can be opened like any other path while this object lives.
    [[nodiscard]] const std::filesystem::path& path() const { return location; }

private:
    int descriptor;
    std::filesystem::path location;
};

/// Takes arguments from the front of an input; after its end come zeros, so that every input supplies all arguments.
class Arguments
{
public:
    explicit Arguments(std::span<const std::uint8_t> input) : rest(input) {}

    [[nodiscard]] bool empty() const { return rest.empty(); }
    [[nodiscard]] std::uint8_t byte()
    {
        if (rest.empty())
            return 0;
        const std::uint8_t front = rest.front();
        rest = rest.subspan(1);
        return front;
    }
    /// A number of `low`..`high`, with at most 256 different values.
    [[nodiscard]] int number(int low, int high) { return low + byte() % (high - low + 1); }
    /// Any pattern of 32 bits, so NaN and infinities too.
    [[nodiscard]] float real()
    {
        std::uint32_t bits = 0;
        for (int shift = 0; shift < 32; shift += 8)
            bits |= static_cast<std::uint32_t>(byte()) << shift;
        return std::bit_cast<float>(bits);
    }

private:
    std::span<const std::uint8_t> rest;
};

} // namespace orvo::fuzz
