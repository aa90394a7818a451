// The compressed rows of a PNG, made on several threads. libpng writes all other chunks.
#pragma once

#include "part_compressor.hpp"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <span>
#include <vector>

namespace orvo::io {

class PngRows
{
public:
    // `rowBytes` and `pixelBytes` of samples with `bits` (8 or 16); `write` gets the content of each IDAT chunk, in
    // order, on the thread that calls commit().
    PngRows(std::size_t rowBytes, std::size_t pixelBytes, int bits, int rows, int level,
            std::function<void(std::span<const unsigned char>)> write);

    // The memory of the next row, from top to bottom, with samples in native byte order; commit() adds the row. The
    // last one flushes everything.
    [[nodiscard]] unsigned char* nextRow() { return compressor.nextRow(); }
    void commit();

private:
    void compress(const PartRows& part, CompressedPart& out) const;
    void emit(const CompressedPart& part);

    std::size_t rowBytes;
    std::size_t pixelBytes;
    int bits;
    int level;
    std::uint32_t checksum = 1; // Adler-32 of all parts so far; that of no bytes is 1
    bool begun = false;
    std::function<void(std::span<const unsigned char>)> write;
    std::vector<unsigned char> chunk;
    PartCompressor compressor;
};

} // namespace orvo::io
