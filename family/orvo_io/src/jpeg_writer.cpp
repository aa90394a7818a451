#include "jpeg_state.hpp"
#include "metadata.hpp"
#include "row_source.hpp"

#include <algorithm>
#include <cstring>
#include <string_view>

namespace orvo::io {
namespace {

constexpr std::size_t kLargestMarker = 65533; // bytes after the length field

class Encoder
{
public:
    explicit Encoder(OutputFile& file_) : file(file_)
    {
        state.listen();
        guarded([this] {
            jpeg_create_compress(&state.info);
            jpeg_stdio_dest(&state.info, file.stream());
        });
    }
    ~Encoder() { jpeg_destroy_compress(&state.info); }
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

    JpegState<jpeg_compress_struct> state;

private:
    OutputFile& file;
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

} // namespace

void writeJpeg(OutputFile& file, const _ImageData<PixelRGB<float>>& picture, const ImageWriteSettings& settings,
               const RunControl& run)
{
    constexpr int kFullColorQuality = 90; // from here on chroma keeps its resolution
    const EmbeddedMetadata blocks = blocksForWriting(settings, picture.size(), kLargestMarker - kExifMark.size());
    Encoder encoder(file);
    jpeg_compress_struct& info = encoder.state.info;
    encoder.guarded([&] {
        info.image_width = static_cast<JDIMENSION>(picture.width());
        info.image_height = static_cast<JDIMENSION>(picture.height());
        info.input_components = 3;
        info.in_color_space = JCS_RGB;
        jpeg_set_defaults(&info);
        jpeg_set_quality(&info, settings.jpegQuality, TRUE);
        if (settings.jpegQuality >= kFullColorQuality)
            info.comp_info[0].h_samp_factor = info.comp_info[0].v_samp_factor = 1;
        info.optimize_coding = FALSE; // two passes would hold the coefficients of the whole picture
        // EXIF must come first, in the place of JFIF.
        if (!blocks.exif.empty())
            info.write_JFIF_header = FALSE;
        jpeg_start_compress(&info, TRUE);
    });
    writeBlocks(encoder, blocks);
    writeIcc(encoder, settings.profile->icc());
    RowSource source(picture, settings.profile, RowFormat::Bits8, run);
    for (int y = 0; y < picture.height(); ++y) {
        // libjpeg takes rows without const but does not change them.
        JSAMPROW row = const_cast<unsigned char*>(source.row(y));
        encoder.guarded([&info, &row] { jpeg_write_scanlines(&info, &row, 1); });
    }
    encoder.guarded([&info] { jpeg_finish_compress(&info); });
}

} // namespace orvo::io
