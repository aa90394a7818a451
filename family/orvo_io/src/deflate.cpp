#include "deflate.hpp"

#define ZLIB_CONST // zlib then takes its input as const
#include <libdeflate.h>
#include <zlib.h>

#include <memory>
#include <new>

namespace orvo::io {
namespace {

// Measured on photographs: higher levels cost more time than their few percent are worth.
constexpr int kQuickLevel = 1;

} // namespace

void deflateWhole(std::span<const unsigned char> in, std::vector<unsigned char>& out)
{
    const std::unique_ptr<libdeflate_compressor, decltype(&libdeflate_free_compressor)> compressor(
        libdeflate_alloc_compressor(kQuickLevel), &libdeflate_free_compressor);
    if (!compressor)
        throw std::bad_alloc();
    out.resize(libdeflate_zlib_compress_bound(compressor.get(), in.size()));
    out.resize(libdeflate_zlib_compress(compressor.get(), in.data(), in.size(), out.data(), out.size()));
}

void deflatePart(std::span<const unsigned char> in, int level, bool last, CompressedPart& out)
{
    constexpr int kRawWindow = -15; // raw deflate, without zlib's header and checksum
    constexpr int kMemory = 8;      // zlib's default
    z_stream stream = {};
    if (deflateInit2(&stream, level, Z_DEFLATED, kRawWindow, kMemory, Z_DEFAULT_STRATEGY) != Z_OK)
        throw std::bad_alloc();
    const std::unique_ptr<z_stream, decltype(&deflateEnd)> guard(&stream, &deflateEnd);
    constexpr std::size_t kFlushBytes = 16; // a sync flush adds an empty block, which the bound does not count
    out.bytes.resize(deflateBound(&stream, static_cast<uLong>(in.size())) + kFlushBytes);
    stream.next_in = in.data();
    stream.avail_in = static_cast<uInt>(in.size());
    stream.next_out = out.bytes.data();
    stream.avail_out = static_cast<uInt>(out.bytes.size());
    deflate(&stream, last ? Z_FINISH : Z_SYNC_FLUSH);
    out.bytes.resize(out.bytes.size() - stream.avail_out);
    out.checksum = static_cast<std::uint32_t>(adler32_z(1, in.data(), in.size()));
    out.length = in.size();
    out.last = last;
}

std::uint32_t joinedChecksum(std::uint32_t first, std::uint32_t second, std::size_t secondLength)
{
    return static_cast<std::uint32_t>(adler32_combine(first, second, static_cast<z_off_t>(secondLength)));
}

} // namespace orvo::io
