// Where codecs put their rows: converted, turned and, for thumbnails, reduced on the way.
#pragma once

#include <orvo_common/memory_manager.hpp>
#include <orvo_core/color_transform.hpp>
#include <orvo_core/image_data.hpp>

#include <cstddef>
#include <functional>
#include <memory>
#include <optional>

namespace orvo::io {

using RGBPicture = _ImageData<PixelRGB<float>>;

enum class SampleType
{
    UInt8,
    UInt16,
    UInt32,
    Float32,
    Float64
};

// The rows of a file, as its codec hands them over: interleaved, native byte order.
struct SampleLayout
{
    int width = 0;
    int height = 0;
    int channels = 3; // samples stored for a pixel
    int colors = 3;   // of them in front: 1 gray, 3 RGB, 4 CMYK
    int alpha = -1;   // place of alpha, -1 for none
    bool premultiplied = false;
    SampleType type = SampleType::UInt8;
    double full = 255.0;   // the sample that is 1.0
    bool inverted = false; // 1.0 minus the sample is meant

    [[nodiscard]] std::size_t rowBytes() const;
};

struct SinkSettings
{
    std::shared_ptr<ColorProfile> source; // of the file; empty with four colours: plain ink without a profile
    std::shared_ptr<ColorProfile> target; // of the result
    int orientation = 1;                  // EXIF: 1..8
    int reduction = 1;                    // so many samples squared become one, averaged as they stand in the file
    std::function<bool()> cancel;         // may be empty; asked every few rows
};

struct Cancelled
{};

// Takes the rows of one picture from top to bottom. Rows are collected in batches that are converted in parallel; one
// batch of the file's samples (and of the picture, where it is turned by 90 degrees) is all that is held beside the
// result.
class PictureSink
{
public:
    // Allocates the picture. Throws std::bad_alloc, std::invalid_argument and what RowConverter throws.
    PictureSink(const SampleLayout& layout, SinkSettings settings);

    // Memory for the next row, or for up to `rows` next rows that follow each other; `rows` comes back limited to what
    // there is room for.
    [[nodiscard]] unsigned char* nextRows(int& rows);
    // So many of them were filled. Throws Cancelled.
    void commit(int rows);
    // Copies one row in.
    void put(const void* row);

    [[nodiscard]] int rowsDone() const { return firstOfBatch + filled; }
    // The picture, with black where rows are missing.
    [[nodiscard]] std::shared_ptr<RGBPicture> finish();

private:
    void flush();
    void convertRow(int outRow, PixelRGB<float>* target, float* scratch) const;
    void storeStraight(int rows);
    void storeTurned(int rows);

    SampleLayout layout;
    SinkSettings settings;
    int outWidth; // after reduction, before turning
    int outHeight;
    int batchRows;
    int firstOfBatch = 0;
    int filled = 0;
    std::optional<RowConverter> converter;
    std::shared_ptr<RGBPicture> picture;
    std::optional<ManagedPlane<unsigned char>> batch;
    std::optional<ManagedPlane<PixelRGB<float>>> turned;
    std::size_t scratchFloats = 0; // of one row
    std::optional<ManagedPlane<float>> scratch;
};

} // namespace orvo::io
