#include "part_compressor.hpp"

#include <orvo_core/parallel.hpp>

#include <tbb/task_arena.h>

#include <algorithm>
#include <cstring>
#include <utility>

namespace orvo::io {
namespace {

constexpr int kPartsPerBand = 32; // enough for all threads

} // namespace

int PartCompressor::rowsPerPart(std::size_t rowBytes, int rows)
{
    return static_cast<int>(std::clamp<std::size_t>(kPartBytes / rowBytes, 1, static_cast<std::size_t>(rows)));
}

PartCompressor::PartCompressor(std::size_t rowBytes_, int rows_, int rowsPerPart_,
                               std::function<void(const PartRows&, CompressedPart&)> compress_,
                               std::function<void(int, CompressedPart&)> emit_)
    : rowBytes(rowBytes_), rows(rows_), perPart(rowsPerPart_),
      perBand(static_cast<int>(std::min<std::int64_t>(std::int64_t{perPart} * kPartsPerBand, rows))),
      compress(std::move(compress_)), emit(std::move(emit_)), band(rowBytes * (static_cast<std::size_t>(perBand) + 1)),
      parts(static_cast<std::size_t>((perBand + perPart - 1) / perPart))
{
    std::memset(band.data(), 0, rowBytes);
}

void PartCompressor::commit()
{
    if (++inBand == perBand || rowsDone + inBand == rows)
        flush();
}

void PartCompressor::flush()
{
    const int count = (inBand + perPart - 1) / perPart;
    // Isolated: while waiting here, a thread must not start another iteration of an outer loop.
    tbb::this_task_arena::isolate([&] {
        forEachRow(count, [&](int i) {
            const int first = i * perPart;
            const int end = std::min(first + perPart, inBand);
            compress({rowAt(first), end - first, partsDone + i, rowsDone + end == rows},
                     parts[static_cast<std::size_t>(i)]);
        });
    });
    for (int i = 0; i < count; ++i)
        emit(partsDone + i, parts[static_cast<std::size_t>(i)]);
    partsDone += count;
    rowsDone += inBand;
    std::memcpy(band.data(), rowAt(inBand - 1), rowBytes);
    inBand = 0;
}

} // namespace orvo::io
