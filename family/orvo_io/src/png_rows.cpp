#include "png_rows.hpp"

#include <cstdlib>
#include <utility>

namespace orvo::io {
namespace {

constexpr unsigned char kPaeth = 4; // the filter's name in the file

// The neighbour closest to left + above - corner: the prediction of Paeth's filter (PNG specification, 9.4).
unsigned char predicted(int left, int above, int corner)
{
    const int toLeft = std::abs(above - corner);
    const int toAbove = std::abs(left - corner);
    const int toCorner = std::abs(left + above - 2 * corner);
    const int other = toAbove <= toCorner ? above : corner;
    return static_cast<unsigned char>(toLeft <= toAbove && toLeft <= toCorner ? left : other);
}

// Filters `row` into `out`, behind a byte that names the filter: always Paeth's. On photographs the usual choice among
// several, by the sum of the filtered bytes, gives larger files and takes longer (docs/performance.md).
void filterRow(const unsigned char* row, const unsigned char* above, std::size_t bytes, std::size_t pixelBytes,
               unsigned char* out)
{
    out[0] = kPaeth;
    unsigned char* const to = out + 1;
    for (std::size_t i = 0; i < pixelBytes; ++i) // without a left neighbour the prediction is the one above
        to[i] = static_cast<unsigned char>(row[i] - above[i]);
    for (std::size_t i = pixelBytes; i < bytes; ++i)
        to[i] = static_cast<unsigned char>(row[i] - predicted(row[i - pixelBytes], above[i], above[i - pixelBytes]));
}

} // namespace

PngRows::PngRows(std::size_t rowBytes_, std::size_t pixelBytes_, int bits_, int rows, int level_,
                 std::function<void(std::span<const unsigned char>)> write_)
    : rowBytes(rowBytes_), pixelBytes(pixelBytes_), bits(bits_), level(level_), write(std::move(write_)),
      compressor(
          rowBytes_, rows, PartCompressor::rowsPerPart(rowBytes_, rows),
          [this](const PartRows& part, CompressedPart& out) { compress(part, out); },
          [this](int, const CompressedPart& part) { emit(part); })
{}

void PngRows::commit()
{
    if (bits == 16) { // PNG is big-endian
        unsigned char* const row = compressor.nextRow();
        for (std::size_t i = 0; i + 1 < rowBytes; i += 2)
            std::swap(row[i], row[i + 1]);
    }
    compressor.commit();
}

void PngRows::compress(const PartRows& part, CompressedPart& out) const
{
    const std::size_t filteredBytes = rowBytes + 1;
    std::vector<unsigned char> filtered(filteredBytes * static_cast<std::size_t>(part.count));
    for (std::size_t y = 0; y < static_cast<std::size_t>(part.count); ++y) {
        const unsigned char* const row = part.first + rowBytes * y;
        filterRow(row, row - rowBytes, rowBytes, pixelBytes, filtered.data() + filteredBytes * y);
    }
    deflatePart(filtered, level, part.last, out);
}

void PngRows::emit(const CompressedPart& part)
{
    chunk.clear();
    if (!std::exchange(begun, true))
        chunk.assign(std::begin(kZlibHeader), std::end(kZlibHeader));
    chunk.insert(chunk.end(), part.bytes.begin(), part.bytes.end());
    checksum = joinedChecksum(checksum, part.checksum, part.length);
    if (part.last)
        for (int shift = 24; shift >= 0; shift -= 8)
            chunk.push_back(static_cast<unsigned char>(checksum >> shift));
    write(chunk);
}

} // namespace orvo::io
