#include "png_rows.hpp"

#include <cstdlib>
#include <cstring>
#include <utility>

namespace orvo::io {
namespace {

enum Filter : unsigned char
{
    kSub = 1,
    kUp = 2
};

// The usual measure of a filter's worth: the sum of its bytes, taken as signed numbers.
unsigned cost(unsigned char byte) { return byte < 128 ? byte : 256u - byte; }

// Filters `row` into `out`, behind a byte that names the filter: the cheaper one of Sub and Up. More filters cost more
// time than they save.
void filterRow(const unsigned char* row, const unsigned char* above, std::size_t bytes, std::size_t pixelBytes,
               unsigned char* out)
{
    unsigned sub = 0;
    unsigned up = 0;
    for (std::size_t i = 0; i < pixelBytes; ++i)
        sub += cost(row[i]);
    for (std::size_t i = pixelBytes; i < bytes; ++i)
        sub += cost(static_cast<unsigned char>(row[i] - row[i - pixelBytes]));
    for (std::size_t i = 0; i < bytes; ++i)
        up += cost(static_cast<unsigned char>(row[i] - above[i]));
    unsigned char* const to = out + 1;
    if (sub <= up) {
        out[0] = kSub;
        std::memcpy(to, row, pixelBytes);
        for (std::size_t i = pixelBytes; i < bytes; ++i)
            to[i] = static_cast<unsigned char>(row[i] - row[i - pixelBytes]);
    } else {
        out[0] = kUp;
        for (std::size_t i = 0; i < bytes; ++i)
            to[i] = static_cast<unsigned char>(row[i] - above[i]);
    }
}

} // namespace

PngRows::PngRows(std::size_t rowBytes_, std::size_t pixelBytes_, int bits_, int rows, int level_,
                 std::function<void(std::span<const unsigned char>)> write_)
    : rowBytes(rowBytes_), pixelBytes(pixelBytes_), bits(bits_), level(level_), write(std::move(write_)),
      compressor(
          rowBytes_, rows, [this](const PartRows& part, DeflatedPart& out) { compress(part, out); },
          [this](int, const DeflatedPart& part) { emit(part); })
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

void PngRows::compress(const PartRows& part, DeflatedPart& out) const
{
    const std::size_t filteredBytes = rowBytes + 1;
    std::vector<unsigned char> filtered(filteredBytes * static_cast<std::size_t>(part.count));
    for (std::size_t y = 0; y < static_cast<std::size_t>(part.count); ++y) {
        const unsigned char* const row = part.first + rowBytes * y;
        filterRow(row, row - rowBytes, rowBytes, pixelBytes, filtered.data() + filteredBytes * y);
    }
    deflatePart(filtered, level, part.last, out);
}

void PngRows::emit(const DeflatedPart& part)
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
