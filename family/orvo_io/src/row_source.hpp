// Supplies the writers with rows: converted, clamped and rounded in batches.
#pragma once

#include <orvo_common/memory_manager.hpp>
#include <orvo_common/run_control.hpp>
#include <orvo_core/color_transform.hpp>
#include <orvo_core/image_data.hpp>
#include <orvo_io/image_writer.hpp>

#include <cstddef>
#include <filesystem>
#include <memory>

namespace orvo::io {

// Sample formats of the rows.
enum class RowFormat
{
    Bits8,  // 0..255
    Bits16, // 0..65535, native byte order
    Linear  // floats, unchanged except for NaN
};

class RowSource
{
public:
    // `alpha` may be null.
    RowSource(const _ImageData<PixelRGB<float>>& picture, const std::shared_ptr<ColorProfile>& target, RowFormat format,
              const RunControl& run, const _ImageData<float>* alpha = nullptr);

    // Row `y`, valid until the next call; call from top to bottom. Red, green, blue and, if there is any, alpha,
    // interleaved. Throws FailureError on cancel.
    [[nodiscard]] const unsigned char* row(int y);

    // Samples of a pixel: 3, or 4 with alpha.
    [[nodiscard]] std::size_t channels() const { return alpha != nullptr ? 4 : 3; }
    [[nodiscard]] std::size_t bytesOfRow() const { return rowBytes; }

private:
    void fill(int first);

    const _ImageData<PixelRGB<float>>& picture;
    const _ImageData<float>* alpha; // may be null
    RowConverter converter;
    RowFormat format;
    const RunControl& run;
    std::size_t rowBytes;
    int batchRows;
    int firstOfBatch = 0;
    int inBatch = 0;
    ManagedPlane<unsigned char> batch;
    ManagedPlane<PixelRGB<float>> converted;
};

// A file being written: removed unless finish() succeeded.
class OutputFile
{
public:
    // Throws FailureError.
    explicit OutputFile(const std::filesystem::path& path);
    ~OutputFile();
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;

    [[nodiscard]] std::FILE* stream() const { return handle; }
    // Flushes everything to the system. Throws FailureError if that fails.
    void finish();
    // The exception to throw: names the file, and the system error or, without one, `text`.
    [[nodiscard]] FailureError failure(int systemError, const std::string& text) const;

private:
    std::filesystem::path path;
    std::FILE* handle = nullptr;
    bool finished = false;
};

// One per format; `settings` are checked and have a profile. Each throws FailureError.
void writeJpeg(OutputFile& file, const _ImageData<PixelRGB<float>>& picture, const ImageWriteSettings& settings,
               const RunControl& run);
void writePng(OutputFile& file, const _ImageData<PixelRGB<float>>& picture, const ImageWriteSettings& settings,
              const RunControl& run);
void writeTiff(OutputFile& file, const _ImageData<PixelRGB<float>>& picture, const ImageWriteSettings& settings,
               const RunControl& run);
void writeExr(OutputFile& file, const _ImageData<PixelRGB<float>>& picture, const ImageWriteSettings& settings,
              const RunControl& run);

} // namespace orvo::io
