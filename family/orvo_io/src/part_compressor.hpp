// Compresses the rows of a picture in parts, several at a time.
#pragma once

#include "deflate.hpp"

#include <orvo_common/memory_manager.hpp>

#include <cstddef>
#include <functional>
#include <vector>

namespace orvo::io {

// The rows of one part. The row above them stands right before; it is 0 for the first part. Either all parts overwrite
// their rows or all read the row above.
struct PartRows
{
    unsigned char* first;
    int count;
    int index; // of the part
    bool last; // of the picture
};

class PartCompressor
{
public:
    // Rows are about this long together: long enough for deflate, short enough to keep all cores busy.
    static constexpr std::size_t kPartBytes = std::size_t{1} << 18;

    [[nodiscard]] static int rowsPerPart(std::size_t rowBytes, int rows);

    // `rowsPerPart`: see above. `compress` runs in parallel for the parts of a band, `emit` on the caller's thread, in
    // order.
    PartCompressor(std::size_t rowBytes, int rows, int rowsPerPart,
                   std::function<void(const PartRows&, CompressedPart&)> compress,
                   std::function<void(int index, CompressedPart&)> emit);

    // The memory of the next row, from top to bottom; commit() adds the row. The last one flushes everything.
    [[nodiscard]] unsigned char* nextRow() { return rowAt(inBand); }
    void commit();

private:
    [[nodiscard]] unsigned char* rowAt(int y) { return band.data() + rowBytes * static_cast<std::size_t>(y + 1); }
    void flush();

    std::size_t rowBytes;
    int rows;
    int perPart;
    int perBand;
    std::function<void(const PartRows&, CompressedPart&)> compress;
    std::function<void(int, CompressedPart&)> emit;
    ManagedPlane<unsigned char> band; // the row above the band, then its rows
    std::vector<CompressedPart> parts;
    int inBand = 0;
    int rowsDone = 0; // of earlier bands
    int partsDone = 0;
};

} // namespace orvo::io
