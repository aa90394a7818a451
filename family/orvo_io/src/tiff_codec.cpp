// TIFF through libtiff: strips and tiles, interleaved samples or planes, 1 to 64 bits.
#include "codecs.hpp"
#include "tiff_stream.hpp"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <limits>

namespace orvo::io {
namespace {

// The highest expansion of usual compressions (LZW reaches about 2700, deflate 1032); bilevel files may exceed it.
constexpr std::int64_t kMostInflation = 5000;

struct TiffFacts
{
    std::uint32_t width = 0;
    std::uint32_t height = 0;
    std::uint16_t bits = 1;
    std::uint16_t samples = 1;
    std::uint16_t format = SAMPLEFORMAT_UINT;
    std::uint16_t photometric = PHOTOMETRIC_MINISBLACK;
    std::uint16_t compression = COMPRESSION_NONE;
    std::uint16_t planar = PLANARCONFIG_CONTIG;
    bool tiled = false;
    std::int64_t storedBytes = 0; // of all strips or tiles
};

TiffFacts factsOf(TIFF* tiff)
{
    TiffFacts facts;
    TIFFGetField(tiff, TIFFTAG_IMAGEWIDTH, &facts.width);
    TIFFGetField(tiff, TIFFTAG_IMAGELENGTH, &facts.height);
    TIFFGetFieldDefaulted(tiff, TIFFTAG_BITSPERSAMPLE, &facts.bits);
    TIFFGetFieldDefaulted(tiff, TIFFTAG_SAMPLESPERPIXEL, &facts.samples);
    TIFFGetFieldDefaulted(tiff, TIFFTAG_SAMPLEFORMAT, &facts.format);
    TIFFGetFieldDefaulted(tiff, TIFFTAG_COMPRESSION, &facts.compression);
    TIFFGetFieldDefaulted(tiff, TIFFTAG_PLANARCONFIG, &facts.planar);
    if (TIFFGetField(tiff, TIFFTAG_PHOTOMETRIC, &facts.photometric) == 0)
        facts.photometric = facts.samples >= 3 ? PHOTOMETRIC_RGB : PHOTOMETRIC_MINISBLACK;
    facts.tiled = TIFFIsTiled(tiff) != 0;
    return facts;
}

// Whether this file reads the rows itself; others go through libtiff's own conversion to 8 bits.
bool readsDirectly(const TiffFacts& facts)
{
    const bool bits = facts.format == SAMPLEFORMAT_IEEEFP ? facts.bits == 32 || facts.bits == 64
                      : facts.format == SAMPLEFORMAT_UINT ? facts.bits == 1 || facts.bits == 2 || facts.bits == 4 ||
                                                                facts.bits == 8 || facts.bits == 16 || facts.bits == 32
                                                          : false;
    const bool whole = facts.bits >= 8;
    switch (facts.photometric) {
    case PHOTOMETRIC_MINISBLACK:
    case PHOTOMETRIC_MINISWHITE:
        return bits && (whole || facts.samples == 1);
    case PHOTOMETRIC_RGB:
        return bits && whole && facts.samples >= 3;
    case PHOTOMETRIC_PALETTE:
        return facts.format == SAMPLEFORMAT_UINT && facts.samples == 1 && facts.bits <= 8 && bits;
    case PHOTOMETRIC_SEPARATED:
        return bits && whole && facts.samples >= 4;
    case PHOTOMETRIC_YCBCR: // JPEG in TIFF: libjpeg returns RGB on request
        return facts.compression == COMPRESSION_JPEG && facts.bits == 8 && facts.samples == 3 &&
               facts.planar == PLANARCONFIG_CONTIG;
    default:
        return false;
    }
}

SampleLayout layoutFor(TIFF* tiff, const TiffFacts& facts)
{
    SampleLayout layout;
    layout.width = static_cast<int>(facts.width);
    layout.height = static_cast<int>(facts.height);
    layout.channels = facts.samples;
    layout.colors = facts.photometric == PHOTOMETRIC_SEPARATED                                       ? 4
                    : facts.photometric == PHOTOMETRIC_RGB || facts.photometric == PHOTOMETRIC_YCBCR ? 3
                                                                                                     : 1;
    layout.inverted = facts.photometric == PHOTOMETRIC_MINISWHITE;
    if (facts.photometric == PHOTOMETRIC_PALETTE) {
        layout.channels = layout.colors = 3;
        layout.type = SampleType::UInt16;
        layout.full = 65535.0;
        return layout;
    }
    if (facts.format == SAMPLEFORMAT_IEEEFP) {
        layout.type = facts.bits == 64 ? SampleType::Float64 : SampleType::Float32;
        layout.full = 1.0;
    } else if (facts.bits <= 8) {
        layout.type = SampleType::UInt8;
        layout.full = static_cast<double>((1 << facts.bits) - 1);
    } else {
        layout.type = facts.bits == 16 ? SampleType::UInt16 : SampleType::UInt32;
        layout.full = facts.bits == 16 ? 65535.0 : 4294967295.0;
    }
    std::uint16_t extras = 0;
    std::uint16_t* kinds = nullptr;
    if (TIFFGetField(tiff, TIFFTAG_EXTRASAMPLES, &extras, &kinds) != 0 && extras > 0 && kinds != nullptr &&
        layout.colors < layout.channels && kinds[0] != EXTRASAMPLE_UNSPECIFIED) {
        layout.alpha = layout.colors;
        layout.premultiplied = kinds[0] == EXTRASAMPLE_ASSOCALPHA;
    }
    return layout;
}

// Converts stored rows to rows of whole samples.
class RowUnpacker
{
public:
    RowUnpacker(TIFF* tiff, const TiffFacts& facts_, const SampleLayout& layout_) : facts(facts_), layout(layout_)
    {
        if (facts.photometric != PHOTOMETRIC_PALETTE)
            return;
        std::array<std::uint16_t*, 3> maps = {};
        if (TIFFGetField(tiff, TIFFTAG_COLORMAP, &maps[0], &maps[1], &maps[2]) == 0)
            throw ReadFailure("not a readable TIFF: the palette is missing");
        const std::size_t entries = std::size_t{1} << facts.bits;
        // Some programs write 8-bit values, which TIFF 6.0 does not allow.
        bool eightBit = true;
        for (const std::uint16_t* const map : maps)
            eightBit = eightBit && std::all_of(map, map + entries, [](std::uint16_t v) { return v < 256; });
        palette.resize(entries * 3);
        for (std::size_t i = 0; i < entries; ++i)
            for (std::size_t c = 0; c < 3; ++c)
                palette[i * 3 + c] = static_cast<std::uint16_t>(eightBit ? maps[c][i] * 257 : maps[c][i]);
    }

    [[nodiscard]] bool isPlain() const { return palette.empty() && facts.bits >= 8; }

    void unpack(const unsigned char* stored, unsigned char* out) const
    {
        if (isPlain()) {
            std::memcpy(out, stored, layout.rowBytes());
            return;
        }
        const int perByte = 8 / facts.bits;
        const int mask = (1 << facts.bits) - 1;
        auto* const colors = reinterpret_cast<std::uint16_t*>(out);
        for (int x = 0; x < layout.width; ++x) {
            const int shift = 8 - facts.bits * (x % perByte + 1);
            const auto value = static_cast<std::size_t>((stored[x / perByte] >> shift) & mask);
            if (palette.empty())
                out[x] = static_cast<unsigned char>(value);
            else
                std::copy_n(&palette[value * 3], 3, colors + static_cast<std::ptrdiff_t>(x) * 3);
        }
    }

private:
    TiffFacts facts;
    SampleLayout layout;
    std::vector<std::uint16_t> palette; // red, green, blue for each entry
};

void readScanlines(TIFF* tiff, const RowUnpacker& unpacker, const SampleLayout& layout, PictureSink& sink)
{
    const auto stored = static_cast<std::size_t>(std::max<tmsize_t>(TIFFScanlineSize(tiff), 1));
    std::vector<unsigned char> row(std::max(stored, layout.rowBytes()));
    std::vector<unsigned char> samples(layout.rowBytes());
    for (int y = 0; y < layout.height; ++y) {
        if (TIFFReadScanline(tiff, row.data(), static_cast<std::uint32_t>(y)) < 0)
            return;
        unpacker.unpack(row.data(), samples.data());
        sink.put(samples.data());
    }
}

// A band of the file: a row of tiles, or a strip of each plane.
struct Band
{
    int rows;               // of a whole band
    std::size_t blockBytes; // of one tile or strip as libtiff decodes it
    std::size_t storedRow;  // bytes of one of its rows
    int across;             // tiles side by side
    int blockWidth;
    int planes;
};

// Bytes of decoded samples that a file of this length can contain. CCITT codes white rows of any width in one bit, so
// bilevel files have no such limit.
std::int64_t mostDecodedBytes(const SourceFile& file, const TiffFacts& facts)
{
    constexpr std::int64_t kUnlimited = std::numeric_limits<std::int64_t>::max();
    return facts.bits == 1 || file.size() > kUnlimited / kMostInflation ? kUnlimited : file.size() * kMostInflation;
}

// Throws ReadFailure for tiles that neither the picture nor the file can fill.
void checkTiles(const SourceFile& file, const TiffFacts& facts, std::uint32_t tileWidth, std::uint32_t tileHeight,
                std::int64_t rowOfTilesBytes)
{
    // Writers use one tile size for all pictures, so that of a small picture may exceed it.
    static constexpr std::uint32_t kLargestTile = 1u << 12; // pixels a side
    static constexpr std::uint32_t kTileStep = 16;          // TIFF 6.0: sides are multiples of it
    const auto tooLarge = [](std::uint32_t tile, std::uint32_t picture) {
        return tile == 0 || tile > std::max(kLargestTile, (picture + kTileStep - 1) / kTileStep * kTileStep);
    };
    if (tooLarge(tileWidth, facts.width) || tooLarge(tileHeight, facts.height))
        throw ReadFailure("not a readable TIFF: tiles of " + std::to_string(tileWidth) + " x " +
                          std::to_string(tileHeight) + " in a picture of " + std::to_string(facts.width) + " x " +
                          std::to_string(facts.height));
    if (rowOfTilesBytes > mostDecodedBytes(file, facts))
        throw ReadFailure("the file announces tiles of " + std::to_string(rowOfTilesBytes) + " bytes but has only " +
                          std::to_string(file.size()));
}

Band bandOf(TIFF* tiff, const TiffFacts& facts, const SourceFile& file)
{
    Band band{};
    band.planes = facts.planar == PLANARCONFIG_SEPARATE ? facts.samples : 1;
    if (facts.tiled) {
        std::uint32_t tileWidth = 0;
        std::uint32_t tileHeight = 0;
        TIFFGetField(tiff, TIFFTAG_TILEWIDTH, &tileWidth);
        TIFFGetField(tiff, TIFFTAG_TILELENGTH, &tileHeight);
        // Before any multiplication: libtiff multiplies the values of the file unchecked.
        checkTiles(file, facts, tileWidth, tileHeight, 0);
        band.rows = static_cast<int>(tileHeight);
        band.blockWidth = static_cast<int>(tileWidth);
        band.across = static_cast<int>((facts.width - 1) / tileWidth + 1);
        band.blockBytes = static_cast<std::size_t>(TIFFTileSize(tiff));
        band.storedRow = static_cast<std::size_t>(TIFFTileRowSize(tiff));
        checkTiles(file, facts, tileWidth, tileHeight,
                   static_cast<std::int64_t>(band.blockBytes) * band.across * band.planes);
    } else {
        std::uint32_t rowsPerStrip = facts.height;
        TIFFGetFieldDefaulted(tiff, TIFFTAG_ROWSPERSTRIP, &rowsPerStrip);
        band.rows = static_cast<int>(std::clamp<std::uint32_t>(rowsPerStrip, 1, facts.height));
        band.blockWidth = static_cast<int>(facts.width);
        band.across = 1;
        band.blockBytes = static_cast<std::size_t>(TIFFVStripSize(tiff, static_cast<std::uint32_t>(band.rows)));
        band.storedRow = static_cast<std::size_t>(TIFFScanlineSize(tiff));
    }
    if (band.blockBytes == 0 || band.storedRow == 0 ||
        band.blockBytes < band.storedRow * static_cast<std::size_t>(band.rows))
        throw ReadFailure("not a readable TIFF: its blocks have no size");
    return band;
}

bool readBlock(TIFF* tiff, bool tiled, int y, int block, int plane, const Band& band, unsigned char* out)
{
    const auto bytes = static_cast<tmsize_t>(band.blockBytes);
    if (tiled) {
        const std::uint32_t tile = TIFFComputeTile(tiff, static_cast<std::uint32_t>(block * band.blockWidth),
                                                   static_cast<std::uint32_t>(y), 0, static_cast<std::uint16_t>(plane));
        return TIFFReadEncodedTile(tiff, tile, out, bytes) >= 0;
    }
    const std::uint32_t strip =
        TIFFComputeStrip(tiff, static_cast<std::uint32_t>(y), static_cast<std::uint16_t>(plane));
    return TIFFReadEncodedStrip(tiff, strip, out, bytes) >= 0;
}

// Tiles, and strips of separate planes: decodes and combines one band at a time.
void readBands(TIFF* tiff, const TiffFacts& facts, const Band& band, const RowUnpacker& unpacker,
               const SampleLayout& layout, PictureSink& sink)
{
    const auto blocks = static_cast<std::size_t>(band.across) * static_cast<std::size_t>(band.planes);
    const ManagedPlane<unsigned char> memory(band.blockBytes * blocks, true);
    const std::size_t pixelBytes = layout.rowBytes() / static_cast<std::size_t>(layout.width);
    const std::size_t sampleBytes = std::max<std::size_t>(1, facts.bits / 8u);
    const auto blockAt = [&](int block, int plane) {
        return memory.data() + band.blockBytes * static_cast<std::size_t>(plane * band.across + block);
    };
    std::vector<unsigned char> row(layout.rowBytes() + 8);
    std::vector<unsigned char> stored(band.storedRow * static_cast<std::size_t>(band.across));
    for (int y = 0; y < layout.height; y += band.rows) {
        for (int plane = 0; plane < band.planes; ++plane)
            for (int block = 0; block < band.across; ++block)
                if (!readBlock(tiff, facts.tiled, y, block, plane, band, blockAt(block, plane)))
                    return;
        for (int inner = 0; inner < std::min(band.rows, layout.height - y); ++inner) {
            const std::size_t offset = band.storedRow * static_cast<std::size_t>(inner);
            if (band.planes == 1 && unpacker.isPlain()) {
                for (int block = 0; block < band.across; ++block) {
                    const int first = block * band.blockWidth;
                    const auto count = static_cast<std::size_t>(std::min(band.blockWidth, layout.width - first));
                    std::memcpy(row.data() + pixelBytes * static_cast<std::size_t>(first), blockAt(block, 0) + offset,
                                std::min(pixelBytes * count, band.storedRow));
                }
            } else if (band.planes == 1) {
                // Packed samples: tiles are a multiple of 16 wide, so their rows join at whole bytes.
                for (int block = 0; block < band.across; ++block)
                    std::memcpy(stored.data() + band.storedRow * static_cast<std::size_t>(block),
                                blockAt(block, 0) + offset, band.storedRow);
                unpacker.unpack(stored.data(), row.data());
            } else {
                for (int x = 0; x < layout.width; ++x)
                    for (int plane = 0; plane < band.planes; ++plane)
                        std::memcpy(row.data() + pixelBytes * static_cast<std::size_t>(x) +
                                        sampleBytes * static_cast<std::size_t>(plane),
                                    blockAt(x / band.blockWidth, plane) + offset +
                                        sampleBytes * static_cast<std::size_t>(x % band.blockWidth),
                                    sampleBytes);
            }
            sink.put(row.data());
        }
    }
}

// What libtiff converts itself (L*a*b*, LogLuv, YCbCr without JPEG): strips or tiles of 8-bit RGBA.
void readThroughRgba(TIFF* tiff, const TiffFacts& facts, const Band& band, const SampleLayout& layout,
                     PictureSink& sink)
{
    char reason[1024] = {};
    if (TIFFRGBAImageOK(tiff, reason) == 0)
        throw ReadFailure(std::string("this kind of TIFF is not supported: ") + reason);
    const std::size_t blockPixels = static_cast<std::size_t>(band.blockWidth) * static_cast<std::size_t>(band.rows);
    const ManagedPlane<std::uint32_t> memory(blockPixels * static_cast<std::size_t>(band.across), true);
    std::vector<std::uint32_t> row(static_cast<std::size_t>(layout.width));
    for (int y = 0; y < layout.height; y += band.rows) {
        const int rows = std::min(band.rows, layout.height - y);
        for (int block = 0; block < band.across; ++block) {
            std::uint32_t* const pixels = memory.data() + blockPixels * static_cast<std::size_t>(block);
            const bool well = facts.tiled
                                  ? TIFFReadRGBATileExt(tiff, static_cast<std::uint32_t>(block * band.blockWidth),
                                                        static_cast<std::uint32_t>(y), pixels, 1) != 0
                                  : TIFFReadRGBAStripExt(tiff, static_cast<std::uint32_t>(y), pixels, 1) != 0;
            if (!well)
                return;
        }
        const int top = facts.tiled ? band.rows : rows; // rows come from bottom to top
        for (int inner = 0; inner < rows; ++inner) {
            for (int x = 0; x < layout.width; ++x)
                row[static_cast<std::size_t>(x)] =
                    memory[blockPixels * static_cast<std::size_t>(x / band.blockWidth) +
                           static_cast<std::size_t>(top - 1 - inner) * static_cast<std::size_t>(band.blockWidth) +
                           static_cast<std::size_t>(x % band.blockWidth)];
            sink.put(row.data()); // ABGR in a word is R, G, B, A in bytes on little-endian machines
        }
    }
}

std::vector<unsigned char> iccOf(TIFF* tiff)
{
    std::uint32_t bytes = 0;
    void* icc = nullptr;
    if (TIFFGetField(tiff, TIFFTAG_ICCPROFILE, &bytes, &icc) == 0 || icc == nullptr)
        return {};
    const auto* const first = static_cast<const unsigned char*>(icc);
    return {first, first + bytes};
}

void openPart(TIFF* tiff, const ReadJob& job)
{
    if (!job.part.empty())
        throw ReadFailure("picture \"" + job.part + "\" was requested, the pictures of a TIFF have no names");
    if (job.index > 0 && (job.index > 65534 || TIFFSetDirectory(tiff, static_cast<tdir_t>(job.index)) == 0))
        throw ReadFailure("picture " + std::to_string(job.index) + " was requested, the file has fewer");
}

std::int64_t leastBytes(const TiffFacts& facts)
{
    if (facts.bits == 1 || facts.width > (1u << 24) || facts.height > (1u << 24))
        return 0;
    return static_cast<std::int64_t>(facts.width) * facts.bits * facts.samples / 8 * facts.height / kMostInflation;
}

} // namespace

ReadAnswer readTiff(const SourceFile& file, const ReadJob& job)
{
    // One strip may contain the whole picture, so the allocation limit follows the pixel limit: 4 samples of 8 bytes.
    // It also follows the length of the file; the first bytes are free, since bilevel rows can be any length.
    constexpr std::int64_t kLargestPixel = 32;
    constexpr std::int64_t kFreeBytes = std::int64_t{1} << 27;
    file.rewind();
    const std::int64_t fromLength = kFreeBytes + std::min(file.size(), job.maxPixels) * kMostInflation;
    TiffStream stream(file.stream(), "r", std::min(job.maxPixels * kLargestPixel, fromLength));
    TIFF* const tiff = stream.handle();
    if (tiff == nullptr)
        throw ReadFailure("not a readable TIFF: " + stream.error());
    openPart(tiff, job);
    const TiffFacts facts = factsOf(tiff);
    checkExtent(file, job, facts.width, facts.height, leastBytes(facts));

    ReadAnswer answer;
    if (!file.path().empty())
        answer.facts = readFactsOfFile(file.path(), job.wants(ImageReaderOpenFlag::Embedded));
    std::uint16_t orientation = 1;
    TIFFGetFieldDefaulted(tiff, TIFFTAG_ORIENTATION, &orientation);
    answer.facts.orientation = orientation >= 1 && orientation <= 8 ? orientation : 1;

    answer.facts.sampleBits = std::max<int>(8, facts.bits);

    const bool direct = readsDirectly(facts);
    SampleLayout layout;
    if (direct) {
        layout = layoutFor(tiff, facts);
        if (facts.photometric == PHOTOMETRIC_YCBCR)
            TIFFSetField(tiff, TIFFTAG_JPEGCOLORMODE, JPEGCOLORMODE_RGB);
    } else {
        layout.width = static_cast<int>(facts.width);
        layout.height = static_cast<int>(facts.height);
        layout.channels = 4;
        layout.alpha = 3;
        layout.premultiplied = true; // as libtiff returns it
    }
    // libtiff's own conversion returns sRGB.
    const auto profile =
        settleProfile(direct ? iccOf(tiff) : std::vector<unsigned char>(), layout.colors, job, answer.facts);
    settleRecord({layout.width, layout.height}, job, answer.facts);
    if (job.depth == ReadDepth::Facts)
        return answer;

    const bool byScanlines = direct && !facts.tiled && facts.planar != PLANARCONFIG_SEPARATE;
    const Band band = byScanlines ? Band{} : bandOf(tiff, facts, file); // refused before the picture is allocated
    if (!stream.missingValue().empty())
        noteDamage("the file is truncated: " + stream.missingValue(), job, answer);
    PictureSink sink = makeSink(layout, job, answer.facts, profile);
    if (!direct) {
        readThroughRgba(tiff, facts, band, layout, sink);
    } else {
        const RowUnpacker unpacker(tiff, facts, layout);
        if (byScanlines)
            readScanlines(tiff, unpacker, layout, sink);
        else
            readBands(tiff, facts, band, unpacker, layout, sink);
    }
    if (sink.rowsDone() < layout.height)
        noteCutOff(sink.rowsDone(), layout.height, stream.error(), job, answer);
    answer.picture = sink.finish();
    return answer;
}

} // namespace orvo::io
