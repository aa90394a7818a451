// JPEG through libjpeg, by rows and at reduced size.
#include "codecs.hpp"
#include "jpeg_state.hpp"

#include <algorithm>
#include <array>
#include <cstring>
#include <optional>
#include <string_view>

namespace orvo::io {
namespace {

// A progressive file may announce any number of scans, each of which costs a pass over the whole picture. Encoders
// write about ten.
constexpr int kMostScans = 500;
// libjpeg keeps the coefficients of a progressive picture; a picture that needs more is refused, not swapped to disk.
constexpr long kMostCoefficientBytes = 8L << 30;

struct ReadState : JpegState<jpeg_decompress_struct>
{
    jpeg_progress_mgr progress = {};
    bool damaged = false; // data is missing or wrong
    int rowsAtDamage = 0; // rows decoded before it
};

ReadState& stateOf(j_common_ptr info) { return static_cast<ReadState&>(ReadState::of(info)); }

// Warnings about lost picture data. Others are about markers and stray bytes.
bool isDamage(int code)
{
    return code == JWRN_HIT_MARKER || code == JWRN_JPEG_EOF || code == JWRN_HUFF_BAD_CODE || code == JWRN_MUST_RESYNC ||
           code == JWRN_BOGUS_PROGRESSION || code == JWRN_NOT_SEQUENTIAL;
}

void onMessage(j_common_ptr info, int level)
{
    ReadState& state = stateOf(info);
    if (level >= 0 || state.damaged || !isDamage(info->err->msg_code))
        return;
    state.damaged = true;
    state.rowsAtDamage = static_cast<int>(state.info.output_scanline);
    info->err->format_message(info, state.message);
}

void onProgress(j_common_ptr info)
{
    ReadState& state = stateOf(info);
    if (state.info.input_scan_number > kMostScans) {
        std::strcpy(state.message, "more than 500 scans");
        state.jump();
    }
}

// Owns libjpeg's state. Every call into libjpeg goes through guarded(), whose frame holds no object whose destructor a
// jump out of libjpeg would skip.
class Decoder
{
public:
    explicit Decoder(std::FILE* stream)
    {
        state.listen();
        state.errors.emit_message = onMessage;
        guarded([this, stream] {
            jpeg_create_decompress(&state.info);
            state.progress.progress_monitor = onProgress;
            state.info.progress = &state.progress;
            state.info.mem->max_memory_to_use = kMostCoefficientBytes;
            jpeg_stdio_src(&state.info, stream);
        });
    }
    ~Decoder() { jpeg_destroy_decompress(&state.info); }
    Decoder(const Decoder&) = delete;
    Decoder& operator=(const Decoder&) = delete;

    // Throws ReadFailure with libjpeg's text.
    template <typename Call>
    void guarded(const Call& call)
    {
        if (!state.attempt(call))
            throw ReadFailure(std::string("not a readable JPEG: ") + state.message);
    }

    ReadState state;
};

std::span<const unsigned char> bytesOf(const jpeg_saved_marker_ptr marker)
{
    return {marker->data, static_cast<std::size_t>(marker->data_length)};
}

bool beginsWith(std::span<const unsigned char> bytes, std::string_view text)
{
    return bytes.size() >= text.size() && std::memcmp(bytes.data(), text.data(), text.size()) == 0;
}

using namespace std::string_view_literals;
constexpr auto kExifMark = "Exif\0\0"sv;
constexpr auto kXmpMark = "http://ns.adobe.com/xap/1.0/\0"sv;
constexpr auto kPhotoshopMark = "Photoshop 3.0\0"sv;
constexpr auto kIccMark = "ICC_PROFILE\0"sv;

struct Markers
{
    EmbeddedMetadata blocks;
    std::vector<unsigned char> icc;
};

// The pieces of the ICC profile may come in any order; each has its number and the count.
std::vector<unsigned char> joinIcc(const std::vector<std::span<const unsigned char>>& pieces)
{
    std::array<std::span<const unsigned char>, 256> byNumber;
    for (const auto piece : pieces)
        byNumber[piece[0]] = piece.subspan(2);
    std::vector<unsigned char> icc;
    const std::size_t count = pieces.empty() ? 0 : pieces.front()[1];
    for (std::size_t i = 1; i <= count; ++i) {
        if (byNumber[i].empty())
            return {}; // incomplete: treated as missing
        icc.insert(icc.end(), byNumber[i].begin(), byNumber[i].end());
    }
    return icc;
}

Markers collectMarkers(const jpeg_decompress_struct& info)
{
    Markers found;
    std::vector<std::span<const unsigned char>> icc;
    std::vector<unsigned char> photoshop;
    for (jpeg_saved_marker_ptr marker = info.marker_list; marker != nullptr; marker = marker->next) {
        const auto bytes = bytesOf(marker);
        if (marker->marker == JPEG_APP0 + 1 && beginsWith(bytes, kExifMark) && found.blocks.exif.empty()) {
            found.blocks.exif.assign(bytes.begin() + kExifMark.size(), bytes.end());
        } else if (marker->marker == JPEG_APP0 + 1 && beginsWith(bytes, kXmpMark) && found.blocks.xmp.empty()) {
            found.blocks.xmp.assign(bytes.begin() + kXmpMark.size(), bytes.end());
        } else if (marker->marker == JPEG_APP0 + 2 && beginsWith(bytes, kIccMark) &&
                   bytes.size() > kIccMark.size() + 2) {
            icc.push_back(bytes.subspan(kIccMark.size()));
        } else if (marker->marker == JPEG_APP0 + 13 && beginsWith(bytes, kPhotoshopMark)) {
            // Long resources continue in the next marker.
            photoshop.insert(photoshop.end(), bytes.begin() + kPhotoshopMark.size(), bytes.end());
        }
    }
    found.icc = joinIcc(icc);
    if (!photoshop.empty())
        found.blocks.iptc = iptcFromPhotoshop(photoshop);
    return found;
}

// Chooses libjpeg's output format.
SampleLayout layoutFor(jpeg_decompress_struct& info)
{
    SampleLayout layout;
    switch (info.jpeg_color_space) {
    case JCS_GRAYSCALE:
        info.out_color_space = JCS_GRAYSCALE;
        layout.channels = layout.colors = 1;
        break;
    case JCS_CMYK:
    case JCS_YCCK:
        info.out_color_space = JCS_CMYK;
        layout.channels = layout.colors = 4;
        // Adobe's files store the remaining light, not the ink.
        layout.inverted = info.saw_Adobe_marker != 0;
        break;
    default:
        info.out_color_space = JCS_RGB;
        break;
    }
    return layout;
}

// The smallest scale in eighths at which the picture still has the job's side.
unsigned reducedEighths(const jpeg_decompress_struct& info, const ReadJob& job)
{
    constexpr unsigned kWhole = 8;
    const auto longest = static_cast<std::int64_t>(std::max(info.image_width, info.image_height));
    // Powers of two only: libjpeg's other sizes are slower than the whole picture.
    for (unsigned eighths = 1; eighths < kWhole; eighths *= 2)
        if (longest * eighths / kWhole >= job.side)
            return eighths;
    return kWhole;
}

void decodeRows(Decoder& decoder, PictureSink& sink)
{
    int done = 0;
    sink.takeAll([&](unsigned char* memory, int requested) {
        const std::size_t rowBytes = static_cast<std::size_t>(decoder.state.info.output_width) *
                                     static_cast<std::size_t>(decoder.state.info.output_components);
        int got = 0;
        const bool well = decoder.state.attempt([&decoder, &got, memory, rowBytes, requested] {
            std::array<JSAMPROW, 64> rows;
            while (got < requested) {
                const int wanted = std::min(requested - got, static_cast<int>(rows.size()));
                for (int i = 0; i < wanted; ++i)
                    rows[static_cast<std::size_t>(i)] = memory + static_cast<std::size_t>(got + i) * rowBytes;
                got += static_cast<int>(
                    jpeg_read_scanlines(&decoder.state.info, rows.data(), static_cast<JDIMENSION>(wanted)));
            }
        });
        done += got;
        if (!well) {
            if (!decoder.state.damaged)
                decoder.state.rowsAtDamage = done;
            decoder.state.damaged = true;
        }
        return got;
    });
}

// A block of 8 x 8 takes at least one bit; with chroma at a quarter of the size that makes 1.5 bits for 64 pixels.
// A file truncated after a sixteenth is still accepted.
std::int64_t leastBytes(const jpeg_decompress_struct& info)
{
    return static_cast<std::int64_t>(info.image_width) * info.image_height / (64 * 8 * 16);
}

} // namespace

ReadAnswer readJpeg(const SourceFile& file, const ReadJob& job)
{
    refuseParts(job);
    file.rewind();
    Decoder decoder(file.stream());
    jpeg_decompress_struct& info = decoder.state.info;
    decoder.guarded([&info] {
        constexpr unsigned kWholeMarker = 0xFFFF;
        for (const int app : {1, 2, 13})
            jpeg_save_markers(&info, JPEG_APP0 + app, kWholeMarker);
        jpeg_read_header(&info, TRUE);
    });
    checkExtent(file, job, info.image_width, info.image_height, leastBytes(info));

    ReadAnswer answer;
    Markers markers = collectMarkers(info);
    answer.facts = readFacts(std::move(markers.blocks), job.wants(ImageReaderOpenFlag::Embedded), job.wantPreview);
    SampleLayout layout = layoutFor(info);
    const auto profile = settleProfile(markers.icc, layout.colors, job, answer.facts);
    settleRecord({static_cast<int>(info.image_width), static_cast<int>(info.image_height)}, job, answer.facts);
    if (job.depth == ReadDepth::Facts)
        return answer;

    const bool reduced = job.depth == ReadDepth::Reduced;
    info.scale_num = reduced ? reducedEighths(info, job) : 8;
    info.scale_denom = 8;
    info.dct_method = reduced ? JDCT_IFAST : JDCT_ISLOW;
    decoder.guarded([&info] { jpeg_start_decompress(&info); });
    const bool severalScans = jpeg_has_multiple_scans(&info) != 0;
    layout.width = static_cast<int>(info.output_width);
    layout.height = static_cast<int>(info.output_height);
    PictureSink sink = makeSink(layout, job, answer.facts, profile);
    decodeRows(decoder, sink);
    if (decoder.state.damaged) {
        const int stored =
            answer.facts.orientation >= 5 ? answer.facts.record.size.width : answer.facts.record.size.height;
        const int rows =
            static_cast<int>(static_cast<std::int64_t>(decoder.state.rowsAtDamage) * stored / layout.height);
        if (severalScans && rows == 0)
            noteDamage(std::string("the picture is truncated or damaged within its scans: ") + decoder.state.message,
                       job, answer);
        else
            noteCutOff(rows, stored, decoder.state.message, job, answer);
    }
    answer.picture = sink.finish();
    return answer;
}

} // namespace orvo::io
