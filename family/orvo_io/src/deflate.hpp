// Deflate (RFC 1951) of the blocks of a picture, so that several threads can compress one file.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace orvo::io {

// Compresses `in` to a zlib stream of its own (RFC 1950), quickly, and stores it in `out`. Throws std::bad_alloc.
void deflateWhole(std::span<const unsigned char> in, std::vector<unsigned char>& out);

// A part of a zlib stream.
struct CompressedPart
{
    std::vector<unsigned char> bytes; // raw deflate; ends at a whole byte
    std::uint32_t checksum = 1;       // Adler-32 of the part's input
    std::size_t length = 0;           // of the part's input
    bool last = false;                // ends the stream
};

// Compresses one part of a longer stream; the last one ends it. Parts do not refer to each other, so they can be
// compressed in any order. `level`: zlib's, 1 to 9. Throws std::bad_alloc.
void deflatePart(std::span<const unsigned char> in, int level, bool last, CompressedPart& out);

// The first two bytes of a zlib stream.
inline constexpr unsigned char kZlibHeader[] = {0x78, 0x01};

// The Adler-32 of two inputs, one after another.
[[nodiscard]] std::uint32_t joinedChecksum(std::uint32_t first, std::uint32_t second, std::size_t secondLength);

} // namespace orvo::io
