#include "metadata.hpp"
#include "part_compressor.hpp"
#include "row_source.hpp"
#include "tiff_stream.hpp"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <vector>

namespace orvo::io {
namespace {

using Bytes = std::vector<unsigned char>;

void put(Bytes& out, std::uint64_t value, std::size_t bytes) // little-endian, like this machine's files
{
    for (std::size_t i = 0; i < bytes; ++i)
        out.push_back(static_cast<unsigned char>(value >> (8 * i)));
}

// A directory as stored in a file at `offset`: the entries, then the values too long for them. BigTIFF counts with 8
// bytes where TIFF counts with 4.
Bytes serialise(const std::vector<DirectoryEntry>& entries, std::uint64_t offset, bool big)
{
    const std::size_t word = big ? 8 : 4;
    const std::size_t countBytes = big ? 8 : 2;
    const std::size_t entryBytes = 4 + 2 * word;
    const std::uint64_t valuesBegin = offset + countBytes + entries.size() * entryBytes + word;
    Bytes out;
    Bytes values;
    put(out, entries.size(), countBytes);
    for (const DirectoryEntry& entry : entries) {
        put(out, entry.tag, 2);
        put(out, entry.type, 2);
        put(out, entry.count, word);
        if (entry.value.size() <= word) {
            out.insert(out.end(), entry.value.begin(), entry.value.end());
            out.resize(out.size() + word - entry.value.size());
        } else {
            put(out, valuesBegin + values.size(), word);
            values.insert(values.end(), entry.value.begin(), entry.value.end());
            values.resize((values.size() + 1) / 2 * 2); // values begin at even offsets
        }
    }
    put(out, 0, word); // no next directory
    out.insert(out.end(), values.begin(), values.end());
    return out;
}

// Appends the directory at the end of the file, after libtiff's data, and returns its offset; 0 for none.
std::uint64_t appendDirectory(OutputFile& file, std::vector<DirectoryEntry> entries, bool big)
{
    if (entries.empty())
        return 0;
    std::stable_sort(entries.begin(), entries.end(), [](const auto& a, const auto& b) { return a.tag < b.tag; });
    std::FILE* const stream = file.stream();
    fseeko(stream, 0, SEEK_END);
    auto offset = static_cast<std::uint64_t>(ftello(stream));
    for (; offset % 8 != 0; ++offset)
        std::fputc(0, stream);
    const Bytes bytes = serialise(entries, offset, big);
    std::fwrite(bytes.data(), 1, bytes.size(), stream);
    return offset; // finishing the file reports a failed write
}

void setMetadata(TIFF* tiff, OutputFile& file, const ImageWriteSettings& settings, _Size<int> size, bool big)
{
    constexpr std::size_t kLargestExif = 16u << 20;
    EmbeddedMetadata blocks = blocksForWriting(settings, size, kLargestExif);
    const ExifDirectories directories = directoriesOf(blocks.exif);
    for (const DirectoryEntry& entry : directories.main) {
        // Tags with a text that libtiff knows; others would need a declaration.
        static constexpr std::uint32_t kTexts[] = {TIFFTAG_IMAGEDESCRIPTION, TIFFTAG_MAKE,     TIFFTAG_MODEL,
                                                   TIFFTAG_SOFTWARE,         TIFFTAG_DATETIME, TIFFTAG_ARTIST,
                                                   TIFFTAG_COPYRIGHT};
        if (std::find(std::begin(kTexts), std::end(kTexts), entry.tag) == std::end(kTexts))
            continue;
        const std::string text(entry.value.begin(), entry.value.end());
        TIFFSetField(tiff, entry.tag, text.c_str());
    }
    if (const std::uint64_t offset = appendDirectory(file, directories.photo, big); offset != 0)
        TIFFSetField(tiff, TIFFTAG_EXIFIFD, offset);
    if (const std::uint64_t offset = appendDirectory(file, directories.gps, big); offset != 0)
        TIFFSetField(tiff, TIFFTAG_GPSIFD, offset);
    if (!blocks.xmp.empty())
        TIFFSetField(tiff, TIFFTAG_XMLPACKET, static_cast<std::uint32_t>(blocks.xmp.size()), blocks.xmp.data());
    if (!blocks.iptc.empty()) {
        // Versions of libtiff differ in whether they count this tag in bytes or in words of 4.
        const bool words = TIFFFieldDataType(TIFFFieldWithTag(tiff, TIFFTAG_RICHTIFFIPTC)) == TIFF_LONG;
        blocks.iptc.resize((blocks.iptc.size() + 3) / 4 * 4);
        TIFFSetField(tiff, TIFFTAG_RICHTIFFIPTC, static_cast<std::uint32_t>(blocks.iptc.size() / (words ? 4 : 1)),
                     blocks.iptc.data());
    }
}

// The horizontal predictor of TIFF 6.0: each sample becomes its difference to that of the pixel on the left.
template <typename T>
void takeDifferences(T* row, std::uint64_t width, std::uint64_t channels)
{
    for (std::uint64_t i = width * channels - 1; i >= channels; --i)
        row[i] = static_cast<T>(row[i] - row[i - channels]);
}

} // namespace

void writeTiff(OutputFile& file, const _ImageData<PixelRGB<float>>& picture, const ImageWriteSettings& settings,
               const RunControl& run)
{
    const auto width = static_cast<std::uint64_t>(picture.width());
    const auto height = static_cast<std::uint64_t>(picture.height());
    const std::uint64_t channels = settings.alpha ? 4 : 3;
    const std::uint64_t pixelBytes = width * height * channels * static_cast<std::uint64_t>(settings.bits / 8);
    // Offsets of plain TIFF end at 4 GiB; deflate makes noise slightly larger.
    constexpr std::uint64_t kPlainTiffBytes = 4'000'000'000;
    const bool big = pixelBytes > kPlainTiffBytes;
    constexpr std::int64_t kLargestAllocation = std::int64_t{1} << 32;
    TiffStream stream(file.stream(), big ? "w8" : "w", kLargestAllocation);
    TIFF* const tiff = stream.handle();
    const auto check = [&](bool well) {
        if (!well)
            throw file.failure(stream.systemError(), stream.error());
    };
    check(tiff != nullptr);
    TIFFSetField(tiff, TIFFTAG_IMAGEWIDTH, static_cast<std::uint32_t>(width));
    TIFFSetField(tiff, TIFFTAG_IMAGELENGTH, static_cast<std::uint32_t>(height));
    TIFFSetField(tiff, TIFFTAG_BITSPERSAMPLE, settings.bits);
    TIFFSetField(tiff, TIFFTAG_SAMPLESPERPIXEL, static_cast<int>(channels));
    if (settings.alpha) {
        std::uint16_t kind = EXTRASAMPLE_UNASSALPHA;
        TIFFSetField(tiff, TIFFTAG_EXTRASAMPLES, 1, &kind);
    }
    TIFFSetField(tiff, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_RGB);
    TIFFSetField(tiff, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
    TIFFSetField(tiff, TIFFTAG_ORIENTATION, ORIENTATION_TOPLEFT);
    // Deflate with horizontal differencing: about two thirds of the size of LZW at 16 bit, and quicker.
    // Strips are compressed here, on all cores; libtiff compresses on one.
    TIFFSetField(tiff, TIFFTAG_COMPRESSION, COMPRESSION_ADOBE_DEFLATE);
    TIFFSetField(tiff, TIFFTAG_PREDICTOR, PREDICTOR_HORIZONTAL);
    const std::uint64_t rowBytes = pixelBytes / height;
    const int rowsPerStrip = PartCompressor::rowsPerPart(rowBytes, picture.height());
    TIFFSetField(tiff, TIFFTAG_ROWSPERSTRIP, static_cast<std::uint32_t>(rowsPerStrip));
    const auto& icc = settings.profile->icc();
    if (!icc.empty())
        TIFFSetField(tiff, TIFFTAG_ICCPROFILE, static_cast<std::uint32_t>(icc.size()), icc.data());
    setMetadata(tiff, file, settings, picture.size(), big);

    RowSource source(picture, settings.profile, settings.bits == 8 ? RowFormat::Bits8 : RowFormat::Bits16, run,
                     settings.alpha.get());
    PartCompressor strips(
        rowBytes, picture.height(), rowsPerStrip,
        [&](const PartRows& strip, CompressedPart& out) {
            for (int y = 0; y < strip.count; ++y) {
                unsigned char* const row = strip.first + rowBytes * static_cast<std::uint64_t>(y);
                if (settings.bits == 8)
                    takeDifferences(row, width, channels);
                else
                    takeDifferences(reinterpret_cast<std::uint16_t*>(row), width, channels);
            }
            deflateWhole({strip.first, rowBytes * static_cast<std::uint64_t>(strip.count)}, out.bytes);
        },
        [&](int index, CompressedPart& strip) {
            check(TIFFWriteRawStrip(tiff, static_cast<std::uint32_t>(index), strip.bytes.data(),
                                    static_cast<tmsize_t>(strip.bytes.size())) >= 0);
        });
    for (int y = 0; y < picture.height(); ++y) {
        std::memcpy(strips.nextRow(), source.row(y), rowBytes);
        strips.commit();
    }
    check(stream.close());
}

} // namespace orvo::io
