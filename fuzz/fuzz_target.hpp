/// What every fuzz target shares: the entry that a fuzzer calls, properties that must hold, and ways to cut bytes into
/// arguments.
#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <span>
#include <string>

/// The entry of a target, as libFuzzer and replay_main.cpp call it: hands `size` bytes to the code under test, which
/// may refuse them, but not crash, hang, or break what its header promises. Returns 0. Called from one thread, over and
/// over in one process; what it leaves behind must not depend on the input.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace orvo::fuzz {

/// Ends the program with `promise` on the error output if it is not `kept`: a finding, as a crash is one.
void require(bool kept, const char* promise);

/// A regular file that lives in memory, rewritten for each input: what takes paths is thus fuzzed without a disk.
class MemoryFile
{
public:
    /// Ends the program if the system gives none.
    MemoryFile();
    ~MemoryFile();
    MemoryFile(const MemoryFile&) = delete;
    MemoryFile& operator=(const MemoryFile&) = delete;

    /// Replaces the content.
    void write(std::span<const std::uint8_t> bytes);
    /// Opens like any other path while this object lives.
    [[nodiscard]] const std::filesystem::path& path() const { return location; }

private:
    int descriptor;
    std::filesystem::path location;
};

/// Cuts arguments off the front of an input; behind its end there are zeros, so that every input names some arguments.
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
    /// A number of `low`..`high`, of at most 256 different ones.
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
