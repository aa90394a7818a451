#include "jpeg_state.hpp"
#include "metadata.hpp"
#include "part_compressor.hpp"
#include "row_source.hpp"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <span>
#include <string_view>
#include <vector>

namespace orvo::io {
namespace {

constexpr std::size_t kLargestMarker = 65533; // bytes after the length field

// Encodes to memory.
class Encoder
{
public:
    // `file`: named in failures.
    explicit Encoder(const OutputFile& file_) : file(file_)
    {
        state.listen();
        guarded([this] {
            jpeg_create_compress(&state.info);
            jpeg_mem_dest(&state.info, &written, &writtenBytes);
        });
    }
    ~Encoder()
    {
        jpeg_destroy_compress(&state.info);
        std::free(written); // NOLINT(cppcoreguidelines-no-malloc): libjpeg's
    }
    Encoder(const Encoder&) = delete;
    Encoder& operator=(const Encoder&) = delete;

    // As in the reader: no frame between libjpeg and this one has anything to destroy.
    template <typename Call>
    void guarded(const Call& call)
    {
        if (!state.attempt(call))
            throw file.failure(state.systemError, state.message);
    }

    // Writes a marker: `mark`, then `bytes`. False if it does not fit.
    bool marker(int app, std::string_view mark, const unsigned char* bytes, std::size_t count)
    {
        if (count == 0 || mark.size() + count > kLargestMarker)
            return false;
        guarded([&] {
            jpeg_write_m_header(&state.info, JPEG_APP0 + app, static_cast<unsigned>(mark.size() + count));
            for (const char c : mark)
                jpeg_write_m_byte(&state.info, static_cast<unsigned char>(c));
            for (std::size_t i = 0; i < count; ++i)
                jpeg_write_m_byte(&state.info, bytes[i]);
        });
        return true;
    }

    // What was encoded until jpeg_finish_compress().
    [[nodiscard]] std::span<const unsigned char> encoded() const { return {written, writtenBytes}; }

    JpegState<jpeg_compress_struct> state;

private:
    const OutputFile& file;
    unsigned char* written = nullptr;
    unsigned long writtenBytes = 0;
};

constexpr std::string_view kExifMark("Exif\0\0", 6);

void writeBlocks(Encoder& encoder, const EmbeddedMetadata& blocks)
{
    using namespace std::string_view_literals;
    encoder.marker(1, kExifMark, blocks.exif.data(), blocks.exif.size());
    // XMP beyond one marker needs the extended form, which hardly any program reads, so it is left out.
    encoder.marker(1, "http://ns.adobe.com/xap/1.0/\0"sv, reinterpret_cast<const unsigned char*>(blocks.xmp.data()),
                   blocks.xmp.size());
    if (!blocks.iptc.empty()) {
        const auto resources = photoshopFromIptc(blocks.iptc);
        encoder.marker(13, "Photoshop 3.0\0"sv, resources.data(), resources.size());
    }
}

void writeIcc(Encoder& encoder, const std::vector<unsigned char>& icc)
{
    constexpr std::size_t kPiece = kLargestMarker - 14;
    const std::size_t pieces = (icc.size() + kPiece - 1) / kPiece;
    if (pieces == 0 || pieces > 255)
        return; // no profile, or more than the 16 MB the format has room for
    for (std::size_t i = 0; i < pieces; ++i) {
        std::string mark("ICC_PROFILE\0", 12);
        mark += static_cast<char>(i + 1);
        mark += static_cast<char>(pieces);
        encoder.marker(2, mark, icc.data() + i * kPiece, std::min(kPiece, icc.size() - i * kPiece));
    }
}

// Markers of the format.
constexpr unsigned char kMark = 0xFF;
constexpr unsigned char kFrame = 0xC0;   // SOF0: the size of the picture
constexpr unsigned char kRestart = 0xD0; // RST0, the first of eight
constexpr unsigned char kEnd = 0xD9;     // EOI
constexpr unsigned char kScan = 0xDA;    // SOS: its entropy-coded data follows
constexpr int kRestarts = 8;
constexpr std::size_t kStartBytes = 2; // SOI
constexpr std::size_t kEndBytes = 2;

// Where segments of a picture encoded by libjpeg begin.
struct Segments
{
    std::size_t frame = 0;
    std::size_t data = 0; // of the scan
};

Segments segmentsOf(std::span<const unsigned char> picture)
{
    Segments found;
    for (std::size_t at = kStartBytes; found.data == 0;) {
        const unsigned char marker = picture[at + 1];
        if (marker == kFrame)
            found.frame = at;
        at += 2 + static_cast<std::size_t>(picture[at + 2] << 8 | picture[at + 3]);
        if (marker == kScan)
            found.data = at;
    }
    return found;
}

// A picture is encoded in parts of whole rows of blocks, each as a picture of its own; the file is the header of the
// first and the data of all, with a restart marker before each part. Decoders begin anew there, as the encoder did.
class PartEncoder
{
public:
    PartEncoder(const OutputFile& file_, const _ImageData<PixelRGB<float>>& picture,
                const ImageWriteSettings& settings_)
        : file(file_), settings(settings_), width(picture.width()), height(picture.height()),
          fullColor(settings.jpegQuality >= kFullColorQuality),
          blocks(blocksForWriting(settings, picture.size(), kLargestMarker - kExifMark.size()))
    {
        const int side = blockSide();
        const int rows = PartCompressor::rowsPerPart(rowBytes(), height);
        partRows = (rows + side - 1) / side * side;
    }

    [[nodiscard]] std::size_t rowBytes() const { return 3 * static_cast<std::size_t>(width); }
    [[nodiscard]] int rowsPerPart() const { return partRows; }

    void encode(const PartRows& part, std::vector<unsigned char>& out) const
    {
        Encoder encoder(file);
        jpeg_compress_struct& info = encoder.state.info;
        encoder.guarded([&] {
            info.image_width = static_cast<JDIMENSION>(width);
            info.image_height = static_cast<JDIMENSION>(part.count);
            info.input_components = 3;
            info.in_color_space = JCS_RGB;
            jpeg_set_defaults(&info);
            jpeg_set_quality(&info, settings.jpegQuality, TRUE);
            if (fullColor)
                info.comp_info[0].h_samp_factor = info.comp_info[0].v_samp_factor = 1;
            info.optimize_coding = FALSE; // the parts share the standard tables
            if (height > partRows)
                info.restart_interval = blocksPerPart();
            // EXIF must come first, in the place of JFIF.
            if (!blocks.exif.empty())
                info.write_JFIF_header = FALSE;
            jpeg_start_compress(&info, TRUE);
        });
        if (part.index == 0) {
            writeBlocks(encoder, blocks);
            writeIcc(encoder, settings.profile->icc());
        }
        encoder.guarded([&] {
            for (int y = 0; y < part.count; ++y) {
                JSAMPROW row = part.first + rowBytes() * static_cast<std::size_t>(y);
                jpeg_write_scanlines(&info, &row, 1);
            }
            jpeg_finish_compress(&info);
        });
        const auto whole = encoder.encoded();
        const Segments segments = segmentsOf(whole);
        const auto scan = whole.first(whole.size() - kEndBytes).subspan(segments.data);
        out.clear();
        if (part.index == 0) {
            constexpr std::size_t kHeightInFrame = 5; // after the marker, its length and the precision
            out.assign(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(segments.data));
            out[segments.frame + kHeightInFrame] = static_cast<unsigned char>(height >> 8);
            out[segments.frame + kHeightInFrame + 1] = static_cast<unsigned char>(height & 0xFF);
        } else {
            out = {kMark, static_cast<unsigned char>(kRestart + (part.index - 1) % kRestarts)};
        }
        out.insert(out.end(), scan.begin(), scan.end());
        if (part.last)
            out.insert(out.end(), {kMark, kEnd});
    }

private:
    static constexpr int kFullColorQuality = 90; // from here on chroma keeps its resolution

    [[nodiscard]] int blockSide() const { return fullColor ? DCTSIZE : 2 * DCTSIZE; }
    // At most those of rows of 65500 pixels, the widest that libjpeg takes, and a part's length: 16 bits hold them.
    [[nodiscard]] unsigned blocksPerPart() const
    {
        const int side = blockSide();
        return static_cast<unsigned>((width + side - 1) / side * (partRows / side));
    }

    const OutputFile& file;
    const ImageWriteSettings& settings;
    int width;
    int height;
    bool fullColor;
    EmbeddedMetadata blocks;
    int partRows = 0;
};

} // namespace

void writeJpeg(OutputFile& file, const _ImageData<PixelRGB<float>>& picture, const ImageWriteSettings& settings,
               const RunControl& run)
{
    const PartEncoder encoder(file, picture, settings);
    RowSource source(picture, settings.profile, RowFormat::Bits8, run);
    PartCompressor parts(
        encoder.rowBytes(), picture.height(), encoder.rowsPerPart(),
        [&](const PartRows& part, CompressedPart& out) { encoder.encode(part, out.bytes); },
        [&](int, const CompressedPart& part) {
            errno = 0;
            if (std::fwrite(part.bytes.data(), 1, part.bytes.size(), file.stream()) != part.bytes.size())
                throw file.failure(errno != 0 ? errno : EIO, "cannot be written");
        });
    for (int y = 0; y < picture.height(); ++y) {
        std::memcpy(parts.nextRow(), source.row(y), encoder.rowBytes());
        parts.commit();
    }
}

} // namespace orvo::io
