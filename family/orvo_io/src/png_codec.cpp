// PNG through libpng.
#include "codecs.hpp"
#include "png_state.hpp"

#include <orvo_core/chromaticities.hpp>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <string_view>

namespace orvo::io {
namespace {

// The highest expansion of deflate (RFC 1951: 258 bytes from two bits).
constexpr std::int64_t kMostInflation = 1032;
constexpr png_alloc_size_t kLargestChunk = 64u << 20; // bytes of one text or profile; real ones have kilobytes
constexpr int kMostChunks = 1000;

void onRead(png_structp png, png_bytep bytes, png_size_t count)
{
    auto& state = *static_cast<PngState*>(png_get_io_ptr(png));
    if (std::fread(bytes, 1, count, state.stream) != count)
        png_error(png, "the file ends early");
}

class Decoder
{
public:
    explicit Decoder(std::FILE* stream)
    {
        state.stream = stream;
        state.png = png_create_read_struct(PNG_LIBPNG_VER_STRING, &state, PngState::onError, PngState::onWarning);
        if (state.png == nullptr)
            throw std::bad_alloc();
        guarded([this] {
            state.info = png_create_info_struct(state.png);
            png_set_read_fn(state.png, &state, onRead);
            // The caller's pixel limit applies, not libpng's own of a million pixels a side.
            png_set_user_limits(state.png, PNG_UINT_31_MAX, PNG_UINT_31_MAX);
            png_set_chunk_malloc_max(state.png, kLargestChunk);
            png_set_chunk_cache_max(state.png, kMostChunks);
        });
    }
    ~Decoder() { png_destroy_read_struct(&state.png, &state.info, nullptr); }
    Decoder(const Decoder&) = delete;
    Decoder& operator=(const Decoder&) = delete;

    template <typename Call>
    void guarded(const Call& call)
    {
        if (!state.attempt(call))
            throw ReadFailure(std::string("not a readable PNG: ") + state.message);
    }

    PngState state;
};

// Older programs write blocks as hexadecimal text: a line feed, a name, the length, then the digits.
std::vector<unsigned char> fromHexProfile(std::string_view text)
{
    std::vector<unsigned char> out;
    std::size_t at = 0;
    for (int lines = 0; lines < 3 && at != std::string_view::npos; ++lines) {
        at = text.find('\n', at);
        at = at == std::string_view::npos ? at : at + 1;
    }
    if (at == std::string_view::npos)
        return out;
    int high = -1;
    for (const char c : text.substr(at)) {
        const int digit = c >= '0' && c <= '9'   ? c - '0'
                          : c >= 'a' && c <= 'f' ? c - 'a' + 10
                          : c >= 'A' && c <= 'F' ? c - 'A' + 10
                                                 : -1;
        if (digit < 0)
            continue;
        if (high < 0) {
            high = digit;
        } else {
            out.push_back(static_cast<unsigned char>(high * 16 + digit));
            high = -1;
        }
    }
    return out;
}

std::vector<unsigned char> without(std::vector<unsigned char> bytes, std::string_view prefix)
{
    if (bytes.size() >= prefix.size() && std::memcmp(bytes.data(), prefix.data(), prefix.size()) == 0)
        bytes.erase(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(prefix.size()));
    return bytes;
}

EmbeddedMetadata collectBlocks(PngState& state)
{
    using namespace std::string_view_literals;
    EmbeddedMetadata blocks;
    png_bytep exif = nullptr;
    png_uint_32 exifBytes = 0;
    if (png_get_eXIf_1(state.png, state.info, &exifBytes, &exif) != 0 && exif != nullptr)
        blocks.exif = without({exif, exif + exifBytes}, "Exif\0\0"sv);
    png_textp texts = nullptr;
    int count = 0;
    png_get_text(state.png, state.info, &texts, &count);
    for (int i = 0; i < count; ++i) {
        if (texts[i].key == nullptr || texts[i].text == nullptr)
            continue;
        const std::string_view key = texts[i].key;
        const std::size_t length = texts[i].compression > 0 ? texts[i].itxt_length : texts[i].text_length;
        const std::string_view text(texts[i].text, length > 0 ? length : std::strlen(texts[i].text));
        if (key == "XML:com.adobe.xmp")
            blocks.xmp = text;
        else if (blocks.exif.empty() && (key == "Raw profile type exif" || key == "Raw profile type APP1"))
            blocks.exif = without(fromHexProfile(text), "Exif\0\0"sv);
        else if (key == "Raw profile type iptc") {
            blocks.iptc = fromHexProfile(text);
            if (blocks.iptc.size() > 4 && std::memcmp(blocks.iptc.data(), "8BIM", 4) == 0)
                blocks.iptc = iptcFromPhotoshop(blocks.iptc);
        }
    }
    return blocks;
}

std::vector<unsigned char> iccOf(PngState& state)
{
    png_charp name = nullptr;
    int compression = 0;
    png_bytep icc = nullptr;
    png_uint_32 length = 0;
    if (png_get_iCCP(state.png, state.info, &name, &compression, &icc, &length) == 0 || icc == nullptr)
        return {};
    return {icc, icc + length};
}

// The colour space from gAMA and cHRM; empty if they are missing or mean sRGB.
std::shared_ptr<ColorProfile> profileByNumbers(PngState& state)
{
    int intent = 0;
    if (png_get_sRGB(state.png, state.info, &intent) != 0)
        return nullptr;
    double fileGamma = 0.0;
    const bool hasGamma = png_get_gAMA(state.png, state.info, &fileGamma) != 0 && fileGamma > 0.01;
    constexpr double kSRGBGamma = 0.45455; // written by files in sRGB (PNG, 11.3.3.5)
    const bool plainGamma = !hasGamma || std::abs(fileGamma - kSRGBGamma) < 0.005;
    Chromaticities c = kSRGBChromaticities;
    const bool hasPrimaries = png_get_cHRM(state.png, state.info, &c.whiteX, &c.whiteY, &c.redX, &c.redY, &c.greenX,
                                           &c.greenY, &c.blueX, &c.blueY) != 0;
    const auto differs = [](double a, double b) { return std::abs(a - b) > 0.002; };
    const bool plainPrimaries =
        !hasPrimaries || !(differs(c.redX, 0.64) || differs(c.greenX, 0.30) || differs(c.greenY, 0.60) ||
                           differs(c.blueX, 0.15) || differs(c.whiteX, 0.3127));
    if (plainGamma && plainPrimaries)
        return nullptr;
    return profileFromChromaticities(c, plainGamma ? 0.0 : 1.0 / fileGamma);
}

// Makes libpng return 8 or 16 bit in native byte order, palettes as colours.
SampleLayout layoutFor(PngState& state)
{
    const int colorType = png_get_color_type(state.png, state.info);
    const int bits = png_get_bit_depth(state.png, state.info);
    png_set_expand(state.png);
    if (bits == 16)
        png_set_swap(state.png);
    SampleLayout layout;
    layout.width = static_cast<int>(png_get_image_width(state.png, state.info));
    layout.height = static_cast<int>(png_get_image_height(state.png, state.info));
    layout.colors = (colorType & PNG_COLOR_MASK_COLOR) != 0 ? 3 : 1;
    const bool alpha =
        (colorType & PNG_COLOR_MASK_ALPHA) != 0 || png_get_valid(state.png, state.info, PNG_INFO_tRNS) != 0;
    layout.channels = layout.colors + (alpha ? 1 : 0);
    layout.alpha = alpha ? layout.colors : -1;
    layout.type = bits == 16 ? SampleType::UInt16 : SampleType::UInt8;
    layout.full = bits == 16 ? 65535.0 : 255.0;
    return layout;
}

// False if the file ended early.
bool decodeRows(Decoder& decoder, PictureSink& sink, const SampleLayout& layout)
{
    while (sink.rowsDone() < layout.height) {
        int requested = layout.height;
        unsigned char* const memory = sink.nextRows(requested);
        const std::size_t rowBytes = layout.rowBytes();
        int got = 0;
        const bool well = decoder.state.attempt([&decoder, memory, rowBytes, requested, &got] {
            for (; got < requested; ++got)
                png_read_row(decoder.state.png, memory + static_cast<std::size_t>(got) * rowBytes, nullptr);
        });
        sink.commit(got);
        if (!well)
            return false;
    }
    return true;
}

// The seven passes of an interlaced file cover the whole picture, so this needs a plane of the file's samples. False if
// the file ended early; rows that no complete pass reached keep the values of earlier passes.
bool decodeInterlaced(Decoder& decoder, PictureSink& sink, const SampleLayout& layout, int passes)
{
    const ManagedPlane<unsigned char> plane(layout.rowBytes() * static_cast<std::size_t>(layout.height), true);
    const auto row = [&](int y) { return plane.data() + layout.rowBytes() * static_cast<std::size_t>(y); };
    const bool well = decoder.state.attempt([&decoder, &row, &layout, passes] {
        for (int pass = 0; pass < passes; ++pass)
            for (int y = 0; y < layout.height; ++y)
                png_read_row(decoder.state.png, nullptr, row(y));
    });
    for (int y = 0; y < layout.height; ++y)
        sink.put(row(y));
    return well;
}

// Of an interlaced file the first passes are the picture with every step-th pixel of every step-th row. A reduced read
// takes no more of them than leave it four times the side to average over. 1: all passes are needed.
int stepOfPasses(const SampleLayout& layout, const ReadJob& job)
{
    constexpr int kAveraged = 4;
    for (const int step : {8, 4, 2})
        if (job.depth == ReadDepth::Reduced && job.side > 0 &&
            std::max(layout.width, layout.height) / step >= kAveraged * std::int64_t{job.side})
            return step;
    return 1;
}

// Decodes the passes of that step into a plane of theirs. False if the file ended early.
bool decodeFirstPasses(Decoder& decoder, PictureSink& sink, const SampleLayout& full, const SampleLayout& small,
                       int step)
{
    const int passes = step == 8 ? 1 : step == 4 ? 3 : 5;
    const std::size_t pixelBytes = full.rowBytes() / static_cast<std::size_t>(full.width);
    const ManagedPlane<unsigned char> plane(small.rowBytes() * static_cast<std::size_t>(small.height), true);
    std::vector<unsigned char> row(full.rowBytes());
    const auto rowAt = [&](int y) { return plane.data() + small.rowBytes() * static_cast<std::size_t>(y); };
    const auto decodePass = [&](int pass) {
        const int rows = PNG_PASS_ROWS(full.height, pass);
        const int columns = PNG_PASS_COLS(full.width, pass);
        for (int y = 0; columns > 0 && y < rows; ++y) {
            png_read_row(decoder.state.png, row.data(), nullptr);
            unsigned char* const out = rowAt(PNG_ROW_FROM_PASS_ROW(y, pass) / step);
            for (int x = 0; x < columns; ++x)
                std::memcpy(out + static_cast<std::size_t>(PNG_COL_FROM_PASS_COL(x, pass) / step) * pixelBytes,
                            row.data() + static_cast<std::size_t>(x) * pixelBytes, pixelBytes);
        }
    };
    const bool well = decoder.state.attempt([&decodePass, passes] {
        for (int pass = 0; pass < passes; ++pass)
            decodePass(pass);
    });
    for (int y = 0; y < small.height; ++y)
        sink.put(rowAt(y));
    return well;
}

} // namespace

ReadAnswer readPng(const SourceFile& file, const ReadJob& job)
{
    refuseParts(job);
    file.rewind();
    Decoder decoder(file.stream());
    PngState& state = decoder.state;
    decoder.guarded([&state] { png_read_info(state.png, state.info); });
    const auto width = static_cast<std::int64_t>(png_get_image_width(state.png, state.info));
    const auto height = static_cast<std::int64_t>(png_get_image_height(state.png, state.info));
    const auto storedBits =
        static_cast<std::int64_t>(png_get_bit_depth(state.png, state.info)) * png_get_channels(state.png, state.info);
    checkExtent(file, job, width, height,
                width > (1 << 24) ? 0 : width * storedBits / 8 * height / kMostInflation / 16);

    ReadAnswer answer;
    answer.facts = readFacts(collectBlocks(state), job.wants(ImageReaderOpenFlag::Embedded), job.wantPreview);
    const SampleLayout layout = layoutFor(state);
    answer.facts.sampleBits = layout.type == SampleType::UInt16 ? 16 : 8;
    ReadJob adjusted = job;
    if (!adjusted.assume)
        adjusted.assume = profileByNumbers(state);
    const auto profile = settleProfile(iccOf(state), layout.colors, adjusted, answer.facts);
    settleRecord({layout.width, layout.height}, job, answer.facts);
    if (job.depth == ReadDepth::Facts)
        return answer;

    const bool interlaced = png_get_interlace_type(state.png, state.info) != PNG_INTERLACE_NONE;
    const int step = interlaced ? stepOfPasses(layout, job) : 1;
    int passes = 1;
    decoder.guarded([&state, &passes, step] {
        if (step == 1)
            passes = png_set_interlace_handling(state.png);
        png_read_update_info(state.png, state.info);
    });
    if (png_get_rowbytes(state.png, state.info) != layout.rowBytes())
        throw ReadFailure("not a readable PNG: its rows have " +
                          std::to_string(png_get_rowbytes(state.png, state.info)) + " bytes, expected " +
                          std::to_string(layout.rowBytes()));
    if (step > 1) {
        SampleLayout small = layout;
        small.width = (layout.width + step - 1) / step;
        small.height = (layout.height + step - 1) / step;
        PictureSink sink = makeSink(small, job, answer.facts, profile);
        if (!decodeFirstPasses(decoder, sink, layout, small, step))
            noteDamage(std::string("the picture is truncated within its interlaced passes (") + state.message + ")",
                       job, answer);
        answer.picture = sink.finish();
        return answer;
    }
    PictureSink sink = makeSink(layout, job, answer.facts, profile);
    const bool well = passes > 1 ? decodeInterlaced(decoder, sink, layout, passes) : decodeRows(decoder, sink, layout);
    if (!well && passes > 1)
        noteDamage(std::string("the picture is truncated within its interlaced passes (") + state.message + ")", job,
                   answer);
    else if (!well)
        noteCutOff(sink.rowsDone(), layout.height, state.message, job, answer);
    else if (job.wants(ImageReaderOpenFlag::Complete) && !state.attempt([&state] { png_read_end(state.png, nullptr); }))
        noteDamage(std::string("the end of the picture is missing (") + state.message + ")", job, answer);
    answer.picture = sink.finish();
    return answer;
}

} // namespace orvo::io
