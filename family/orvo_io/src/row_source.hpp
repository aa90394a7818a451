// Where writers take their rows from: converted, limited and rounded, a batch at a time.
#pragma once

#include <orvo_common/memory_manager.hpp>
#include <orvo_core/color_transform.hpp>
#include <orvo_core/image_data.hpp>
#include <orvo_io/image_writer.hpp>

#include <cstddef>
#include <filesystem>
#include <functional>
#include <memory>

namespace orvo::io {

struct WriteCancelled
{};

// Sample formats of rows that are handed out.
enum class RowFormat
{
    Bits8,  // 0..255
    Bits16, // 0..65535, native byte order
    Linear  // floats as they are, but NaN
};

class RowSource
{
public:
    RowSource(const _ImageData<PixelRGB<float>>& picture, const std::shared_ptr<ColorProfile>& target, RowFormat format,
              std::function<bool()> cancel);

    // Row `y`, valid until the next call; rows are asked for from top to bottom. Red, green, blue, interleaved.
    // Throws WriteCancelled.
    [[nodiscard]] const unsigned char* row(int y);

private:
    void fill(int first);

    const _ImageData<PixelRGB<float>>& picture;
    RowConverter converter;
    RowFormat format;
    std::function<bool()> cancel;
    std::size_t rowBytes;
    int batchRows;
    int firstOfBatch = 0;
    int inBatch = 0;
    ManagedPlane<unsigned char> batch;
    ManagedPlane<PixelRGB<float>> converted;
};

// A file being written: removed again unless finish() was reached.
class OutputFile
{
public:
    // Throws std::runtime_error, naming file and cause.
    explicit OutputFile(const std::filesystem::path& path);
    ~OutputFile();
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;

    [[nodiscard]] std::FILE* stream() const { return handle; }
    // Everything is on its way to the disk. Throws std::runtime_error if it is not.
    void finish();
    // The failure to throw: the file, and the text of the system's error or, without one, `text`.
    [[nodiscard]] std::runtime_error failure(int systemError, const std::string& text) const;

private:
    std::filesystem::path path;
    std::FILE* handle = nullptr;
    bool finished = false;
};

// One per format; `settings` are checked and its profile is set. Each throws std::runtime_error or WriteCancelled.
void writeJpeg(OutputFile& file, const _ImageData<PixelRGB<float>>& picture, const ImageWriteSettings& settings);
void writePng(OutputFile& file, const _ImageData<PixelRGB<float>>& picture, const ImageWriteSettings& settings);
void writeTiff(OutputFile& file, const _ImageData<PixelRGB<float>>& picture, const ImageWriteSettings& settings);
void writeExr(OutputFile& file, const _ImageData<PixelRGB<float>>& picture, const ImageWriteSettings& settings);

} // namespace orvo::io
