// Takes rows from codecs; converts them, rotates them and, for thumbnails, reduces them.
#pragma once

#include <orvo_common/memory_manager.hpp>
#include <orvo_common/run_control.hpp>
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

// The rows of a file as its codec delivers them: interleaved, native byte order.
struct SampleLayout
{
    int width = 0;
    int height = 0;
    int channels = 3; // samples per pixel
    int colors = 3;   // the first of them: 1 gray, 3 RGB, 4 CMYK
    int alpha = -1;   // index of alpha, -1 for none
    bool premultiplied = false;
    SampleType type = SampleType::UInt8;
    double full = 255.0;   // the sample value that means 1.0
    bool inverted = false; // the value is 1.0 minus the sample

    [[nodiscard]] std::size_t rowBytes() const;
};

struct SinkSettings
{
    std::shared_ptr<ColorProfile> source;        // of the file; empty with four colours: plain ink without a profile
    std::shared_ptr<ColorProfile> target;        // of the result
    int orientation = 1;                         // EXIF: 1..8
    int reduction = 1;                           // side of the square of samples averaged into one, in encoded values
    const RunControl* run = &RunControl::none(); // polled every few rows
};

// Takes the rows of one picture from top to bottom and converts them in parallel batches. Besides the result it holds
// only one batch of the file's samples (and of the picture, if it is rotated by 90 degrees).
class PictureSink
{
public:
    // Allocates the picture. Throws std::bad_alloc, std::invalid_argument and what RowConverter throws.
    PictureSink(const SampleLayout& layout, SinkSettings settings);

    // Memory for up to `rows` consecutive next rows; reduces `rows` to the number that fits.
    [[nodiscard]] unsigned char* nextRows(int& rows);
    // Marks that many rows as filled. Throws FailureError on cancel.
    void commit(int rows);
    // Copies one row in.
    void put(const void* row);

    // Fills `rows` consecutive rows, and returns how many; fewer end the picture. Calls do not overlap, but may come
    // from any thread.
    using RowReader = std::function<int(unsigned char* memory, int rows)>;
    // Takes all rows from `read`, which reads a batch while the one before is converted. Holds one more batch
    // meanwhile. Throws FailureError on cancel.
    void takeAll(const RowReader& read);

    [[nodiscard]] int rowsDone() const { return firstOfBatch + filled; }
    // The picture, with missing rows black.
    [[nodiscard]] std::shared_ptr<RGBPicture> finish();

private:
    void flush();
    void store(); // the filled rows
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
