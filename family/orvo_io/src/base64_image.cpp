#include "codecs.hpp"
#include "png_rows.hpp"
#include "png_state.hpp"
#include "row_source.hpp"

#include <orvo_core/parallel.hpp>
#include <orvo_io/base64.hpp>
#include <orvo_io/base64_image.hpp>
#include <orvo_logger/logstream.hpp>

#include <tbb/task_arena.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <exception>
#include <new>
#include <span>
#include <stdexcept>
#include <vector>

namespace orvo {
namespace {

using io::PngState;

struct MemoryState : PngState
{
    MemoryState() = default;
    ~MemoryState() { png_destroy_write_struct(&png, &info); }
    MemoryState(const MemoryState&) = delete;
    MemoryState& operator=(const MemoryState&) = delete;

    std::vector<unsigned char> bytes;
};

void onWrite(png_structp png, png_bytep bytes, png_size_t count)
{
    auto& state = *static_cast<MemoryState*>(png_get_io_ptr(png));
    bool full = false;
    try {
        state.bytes.insert(state.bytes.end(), bytes, bytes + count);
    } catch (const std::exception&) {
        full = true; // no exception may pass through libpng
    }
    if (full)
        png_error(png, "out of memory");
}

// Encodes a PNG in memory.
class Encoder
{
public:
    Encoder(_Size<int> size, int bits, int colourType)
        : pixelBytes(static_cast<std::size_t>(bits / 8) * (colourType == PNG_COLOR_TYPE_RGB ? 3 : 1)),
          bytesOfRow(pixelBytes * static_cast<std::size_t>(size.width)),
          rows(bytesOfRow, pixelBytes, bits, size.height, kDeflateLevel,
               [this](std::span<const unsigned char> chunk) { writeChunk("IDAT", chunk); })
    {
        state.png = png_create_write_struct(PNG_LIBPNG_VER_STRING, static_cast<PngState*>(&state), PngState::onError,
                                            PngState::onWarning);
        if (state.png == nullptr)
            throw std::bad_alloc();
        state.info = png_create_info_struct(state.png);
        if (state.info == nullptr)
            throw std::bad_alloc();
        png_set_write_fn(state.png, &state, onWrite, [](png_structp) {});
        guarded([this, size, bits, colourType] {
            png_set_user_limits(state.png, PNG_UINT_31_MAX, PNG_UINT_31_MAX);
            png_set_IHDR(state.png, state.info, static_cast<png_uint_32>(size.width),
                         static_cast<png_uint_32>(size.height), bits, colourType, PNG_INTERLACE_NONE,
                         PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
            if (colourType == PNG_COLOR_TYPE_RGB)
                png_set_sRGB(state.png, state.info, PNG_sRGB_INTENT_RELATIVE);
            png_write_info(state.png, state.info);
        });
    }
    Encoder(const Encoder&) = delete;
    Encoder& operator=(const Encoder&) = delete;

    [[nodiscard]] std::size_t rowBytes() const { return bytesOfRow; }
    // The memory of the next row; commit() adds the row.
    [[nodiscard]] unsigned char* nextRow() { return rows.nextRow(); }
    void commit() { rows.commit(); }

    // After the last row.
    [[nodiscard]] std::string finish()
    {
        writeChunk("IEND", {});
        return base64Of(state.bytes);
    }

private:
    template <typename Call>
    void guarded(const Call& call)
    {
        if (!state.attempt(call))
            throw std::runtime_error(std::string("imageToBase64: ") + state.message);
    }

    void writeChunk(const char* name, std::span<const unsigned char> content)
    {
        guarded([this, name, content] {
            png_write_chunk(state.png, reinterpret_cast<png_const_bytep>(name), content.data(), content.size());
        });
    }

    static constexpr int kDeflateLevel = 3;

    MemoryState state;
    std::size_t pixelBytes;
    std::size_t bytesOfRow;
    io::PngRows rows;
};

void checkParameters(const void* picture, bool empty, const Base64EncodeParameters& parameters)
{
    if (picture == nullptr || empty)
        throw std::invalid_argument("imageToBase64: there is no picture");
    if (parameters.format != 0 || (parameters.bits != 8 && parameters.bits != 16))
        throw std::invalid_argument("imageToBase64: format " + std::to_string(parameters.format) + " with " +
                                    std::to_string(parameters.bits) + " bits; 0 (PNG) with 8 or 16 is offered");
}

template <typename T>
void quantise(const float* in, int count, T* out)
{
    constexpr auto kFull = static_cast<float>(static_cast<T>(-1));
    for (int i = 0; i < count; ++i) {
        // Written so that NaN fails the first comparison and becomes 0.
        const float v = in[i] > 0.0f ? (in[i] < 1.0f ? in[i] : 1.0f) : 0.0f;
        out[i] = static_cast<T>(static_cast<std::int32_t>(v * kFull + 0.5f));
    }
}

void warn(const std::string& text)
{
    logstream line = __orvolog();
    line << LogMessageType::Warning << "convertToImageData: " << text;
    LOG(line);
}

std::shared_ptr<io::RGBPicture> decoded(std::string_view text)
{
    const auto bytes = bytesOfBase64(text);
    if (!bytes)
        throw io::ReadFailure("base64 was expected, other characters were found");
    if (bytes->empty())
        throw io::ReadFailure("a PNG was expected, nothing was found");
    const io::SourceFile file(*bytes);
    if (file.sniff() != io::FileKind::Png)
        throw io::ReadFailure("a PNG was expected, something else was found: " + file.describeBeginning());
    io::ReadJob job;
    job.flags = static_cast<ImageReaderOpenFlag>(static_cast<std::int32_t>(ImageReaderOpenFlag::Upright) |
                                                 static_cast<std::int32_t>(ImageReaderOpenFlag::WorkingSpace) |
                                                 static_cast<std::int32_t>(ImageReaderOpenFlag::Complete));
    job.target = ColorProfileType::sRGB();
    job.maxPixels = kMostDecodedPixels;
    return io::readPng(file, job).picture;
}

} // namespace

std::string imageToBase64(const std::shared_ptr<const _ImageData<PixelRGB<float>>>& picture,
                          const Base64EncodeParameters& parameters)
{
    checkParameters(picture.get(), picture && picture->pixelCount() == 0, parameters);
    Encoder encoder(picture->size(), parameters.bits, PNG_COLOR_TYPE_RGB);
    const auto source = picture->colorProfile();
    const bool hasProfile = source && *source != *ColorProfileType::None();
    io::RowSource rows(*picture, hasProfile ? ColorProfileType::sRGB() : ColorProfileType::None(),
                       parameters.bits == 8 ? io::RowFormat::Bits8 : io::RowFormat::Bits16, RunControl::none());
    for (int y = 0; y < picture->height(); ++y) {
        std::memcpy(encoder.nextRow(), rows.row(y), encoder.rowBytes());
        encoder.commit();
    }
    return encoder.finish();
}

std::string imageToBase64(const std::shared_ptr<const _ImageData<float>>& mask,
                          const Base64EncodeParameters& parameters)
{
    checkParameters(mask.get(), mask && mask->pixelCount() == 0, parameters);
    Encoder encoder(mask->size(), parameters.bits, PNG_COLOR_TYPE_GRAY);
    for (int y = 0; y < mask->height(); ++y) {
        unsigned char* const row = encoder.nextRow();
        if (parameters.bits == 8)
            quantise(mask->row(y), mask->width(), row);
        else
            quantise(mask->row(y), mask->width(), reinterpret_cast<std::uint16_t*>(row));
        encoder.commit();
    }
    return encoder.finish();
}

std::shared_ptr<_ImageData<PixelRGB<float>>> convertToImageData(std::string_view text) noexcept
try {
    return decoded(text);
} catch (const std::exception& error) {
    warn(error.what());
    return nullptr;
} catch (...) {
    warn("reading was broken off");
    return nullptr;
}

} // namespace orvo
