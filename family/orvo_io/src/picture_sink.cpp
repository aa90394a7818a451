#include "picture_sink.hpp"

#include <orvo_core/detail/vector_code.hpp>
#include <orvo_core/parallel.hpp>

#include <tbb/task_arena.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <utility>

namespace orvo::io {
namespace {

// Rows converted together: enough for all threads, few enough to stay in the L2 cache at usual widths.
constexpr int kBatchRows = 32;

// The largest half float replaces infinities, so that later sums stay finite.
constexpr float kLargestSample = 65504.0f;

std::size_t bytesOf(SampleType type)
{
    switch (type) {
    case SampleType::UInt8:
        return 1;
    case SampleType::UInt16:
        return 2;
    case SampleType::UInt32:
    case SampleType::Float32:
        return 4;
    case SampleType::Float64:
        return 8;
    }
    return 0;
}

float finite(float v) { return v == v ? std::clamp(v, -kLargestSample, kLargestSample) : 0.0f; }

// A profile's curves may turn finite numbers into infinities or NaN. Nearly every row is fine, and integers check that
// fast: without the sign, only infinities and NaN have bits from kInfinity on.
ORVO_VECTOR_CLONES bool areFinite(const float* samples, int count)
{
    constexpr std::uint32_t kInfinity = 0x7F800000;
    constexpr std::uint32_t kMagnitude = 0x7FFFFFFF;
    std::uint32_t most = 0;
    for (int i = 0; i < count; ++i) {
        const std::uint32_t magnitude = std::bit_cast<std::uint32_t>(samples[i]) & kMagnitude;
        most = magnitude > most ? magnitude : most;
    }
    return most < kInfinity;
}

void repair(PixelRGB<float>* pixels, int count)
{
    float* const samples = &pixels->r;
    if (areFinite(samples, count * 3))
        return;
    for (int i = 0; i < count * 3; ++i)
        samples[i] = std::isfinite(samples[i]) ? samples[i] : finite(samples[i]);
}

// The colours of `count` pixels as floats with 1.0 for full scale, alpha composited over black.
template <typename T>
void expandTyped(const T* in, const SampleLayout& layout, int count, float* out)
{
    const float scale = static_cast<float>(1.0 / layout.full);
    const int channels = layout.channels;
    const int colors = layout.colors;
    const auto value = [&](T sample) {
        if constexpr (std::is_floating_point_v<T>)
            return finite(static_cast<float>(static_cast<double>(sample) / layout.full));
        else
            return static_cast<float>(sample) * scale;
    };
    if (channels == colors) {
        for (int i = 0; i < count * channels; ++i)
            out[i] = value(in[i]);
    } else {
        for (int i = 0; i < count; ++i)
            for (int c = 0; c < colors; ++c)
                out[i * colors + c] = value(in[i * channels + c]);
    }
    if (layout.inverted)
        for (int i = 0; i < count * colors; ++i)
            out[i] = 1.0f - out[i];
    if (layout.alpha >= 0 && !layout.premultiplied)
        for (int i = 0; i < count; ++i) {
            const float alpha = value(in[i * channels + layout.alpha]);
            for (int c = 0; c < colors; ++c)
                out[i * colors + c] *= alpha;
        }
}

void expand(const unsigned char* in, const SampleLayout& layout, int count, float* out)
{
    switch (layout.type) {
    case SampleType::UInt8:
        return expandTyped(in, layout, count, out);
    case SampleType::UInt16:
        return expandTyped(reinterpret_cast<const std::uint16_t*>(in), layout, count, out);
    case SampleType::UInt32:
        return expandTyped(reinterpret_cast<const std::uint32_t*>(in), layout, count, out);
    case SampleType::Float32:
        return expandTyped(reinterpret_cast<const float*>(in), layout, count, out);
    case SampleType::Float64:
        return expandTyped(reinterpret_cast<const double*>(in), layout, count, out);
    }
}

// Whether samples go to the converter as they are.
bool isPlainBytes(const SampleLayout& layout)
{
    return layout.type == SampleType::UInt8 && layout.channels == 3 && layout.colors == 3 && layout.alpha < 0 &&
           !layout.inverted && layout.full == std::numeric_limits<std::uint8_t>::max();
}

// Ink without a profile: transmissions multiply.
void rgbFromPlainInk(const float* ink, int count, PixelRGB<float>* out)
{
    for (int i = 0; i < count; ++i) {
        const float paper = 1.0f - ink[4 * i + 3];
        out[i] = {(1.0f - ink[4 * i]) * paper, (1.0f - ink[4 * i + 1]) * paper, (1.0f - ink[4 * i + 2]) * paper};
    }
}

bool swapsAxes(int orientation) { return orientation >= 5; }

} // namespace

std::size_t SampleLayout::rowBytes() const
{
    return static_cast<std::size_t>(width) * static_cast<std::size_t>(channels) * bytesOf(type);
}

PictureSink::PictureSink(const SampleLayout& layout_, SinkSettings settings_)
    : layout(layout_), settings(std::move(settings_)), outWidth((layout.width - 1) / settings.reduction + 1),
      outHeight((layout.height - 1) / settings.reduction + 1),
      batchRows(settings.reduction > 1 ? settings.reduction * 8 : kBatchRows)
{
    batchRows = std::min(batchRows, (layout.height - 1) / settings.reduction * settings.reduction + settings.reduction);
    const bool plainInk = layout.colors == 4 && !settings.source;
    converter.emplace(plainInk ? ColorProfileType::sRGB() : settings.source, plainInk ? 3 : layout.colors,
                      settings.target);
    const bool turns = swapsAxes(settings.orientation);
    picture = std::make_shared<RGBPicture>(turns ? _Size<int>(outHeight, outWidth) : _Size<int>(outWidth, outHeight),
                                           settings.target);
    batch.emplace(layout.rowBytes() * static_cast<std::size_t>(batchRows));
    const auto outRows = static_cast<std::size_t>((batchRows - 1) / settings.reduction + 1);
    if (turns)
        turned.emplace(outRows * static_cast<std::size_t>(outWidth));
    // A row of the file as floats, then the averaged row.
    const auto colors = static_cast<std::size_t>(layout.colors);
    if (settings.reduction > 1)
        scratchFloats = colors * static_cast<std::size_t>(layout.width + outWidth);
    else if (layout.colors != 3)
        scratchFloats = colors * static_cast<std::size_t>(layout.width);
    if (scratchFloats > 0)
        scratch.emplace(scratchFloats * outRows);
}

unsigned char* PictureSink::nextRows(int& rows)
{
    rows = std::min({rows, batchRows - filled, layout.height - rowsDone()});
    return batch->data() + layout.rowBytes() * static_cast<std::size_t>(filled);
}

void PictureSink::commit(int rows)
{
    filled += rows;
    if (filled == batchRows || rowsDone() == layout.height)
        flush();
}

void PictureSink::put(const void* row)
{
    int rows = 1;
    unsigned char* const target = nextRows(rows);
    if (rows < 1)
        return;
    std::memcpy(target, row, layout.rowBytes());
    commit(1);
}

void PictureSink::flush()
{
    if (filled == 0)
        return;
    settings.run->throwIfCancelled();
    // Isolated: while waiting here, a thread must not start another file of an outer loop and hold both in memory.
    tbb::this_task_arena::isolate([&] { store(); });
    firstOfBatch += filled;
    filled = 0;
}

void PictureSink::store()
{
    const int outRows = (filled - 1) / settings.reduction + 1;
    if (swapsAxes(settings.orientation))
        storeTurned(outRows);
    else
        storeStraight(outRows);
}

void PictureSink::takeAll(const RowReader& read)
{
    std::optional<ManagedPlane<unsigned char>> next(std::in_place,
                                                    layout.rowBytes() * static_cast<std::size_t>(batchRows));
    const auto rowsFrom = [&](int first) { return std::min(batchRows, layout.height - first); };
    filled = read(batch->data(), rowsFrom(firstOfBatch));
    while (filled == batchRows && rowsDone() < layout.height) {
        settings.run->throwIfCancelled();
        int ahead = 0;
        // Isolated like a flush.
        tbb::this_task_arena::isolate([&] {
            forEachItem(2, [&](std::size_t part) {
                if (part == 0)
                    ahead = read(next->data(), rowsFrom(rowsDone()));
                else
                    store();
            });
        });
        std::swap(batch, next);
        firstOfBatch += filled;
        filled = ahead;
    }
}

void PictureSink::convertRow(int outRow, PixelRGB<float>* target, float* row) const
{
    const int reduction = settings.reduction;
    const int colors = layout.colors;
    const auto source = [&](int y) { return batch->data() + layout.rowBytes() * static_cast<std::size_t>(y); };
    if (reduction == 1 && isPlainBytes(layout)) {
        converter->convert(source(outRow), target, outWidth);
        repair(target, outWidth);
        return;
    }
    float* samples = colors == 3 ? &target->r : row;
    if (reduction == 1) {
        expand(source(outRow), layout, layout.width, samples);
    } else {
        float* const sums = row + static_cast<std::ptrdiff_t>(colors) * layout.width;
        std::fill_n(sums, outWidth * colors, 0.0f);
        const int last = std::min(filled, (outRow + 1) * reduction);
        for (int y = outRow * reduction; y < last; ++y) {
            expand(source(y), layout, layout.width, row);
            for (int x = 0; x < layout.width; ++x)
                for (int c = 0; c < colors; ++c)
                    sums[x / reduction * colors + c] += row[x * colors + c];
        }
        for (int x = 0; x < outWidth; ++x) {
            const int columns = std::min(reduction, layout.width - x * reduction);
            const float weight = 1.0f / static_cast<float>(columns * (last - outRow * reduction));
            for (int c = 0; c < colors; ++c)
                sums[x * colors + c] *= weight;
        }
        samples = sums;
    }
    if (colors == 4 && !settings.source) {
        rgbFromPlainInk(samples, outWidth, target);
        samples = &target->r;
    }
    converter->convert(samples, target, outWidth);
    repair(target, outWidth);
}

void PictureSink::storeStraight(int rows)
{
    const int first = firstOfBatch / settings.reduction;
    const bool mirrored = settings.orientation == 2 || settings.orientation == 3;
    const bool upsideDown = settings.orientation == 3 || settings.orientation == 4;
    forEachRow(rows, [&](int y) {
        PixelRGB<float>* const target = picture->row(upsideDown ? outHeight - 1 - first - y : first + y);
        convertRow(y, target, scratch ? scratch->data() + scratchFloats * static_cast<std::size_t>(y) : nullptr);
        if (mirrored)
            std::reverse(target, target + outWidth);
    });
}

void PictureSink::storeTurned(int rows)
{
    const int first = firstOfBatch / settings.reduction;
    const auto turnedRow = [&](int y) { return turned->data() + static_cast<std::ptrdiff_t>(y) * outWidth; };
    forEachRow(rows, [&](int y) {
        convertRow(y, turnedRow(y), scratch ? scratch->data() + scratchFloats * static_cast<std::size_t>(y) : nullptr);
    });
    // 5: transposed; 6: the file's first column is the top, its first row the right; 7: both reversed; 8: the left.
    const int orientation = settings.orientation;
    const bool rowsRun = orientation == 5 || orientation == 8;    // the file's rows become columns from left to right
    const bool columnsRun = orientation == 5 || orientation == 6; // its columns become rows from top to bottom
    forEachRow(outWidth, [&](int x) {
        PixelRGB<float>* const target = picture->row(columnsRun ? x : outWidth - 1 - x);
        for (int y = 0; y < rows; ++y)
            target[rowsRun ? first + y : outHeight - 1 - first - y] = turnedRow(y)[x];
    });
}

std::shared_ptr<RGBPicture> PictureSink::finish()
{
    flush();
    if (rowsDone() < layout.height) {
        std::memset(batch->data(), 0, layout.rowBytes() * static_cast<std::size_t>(batchRows));
        layout.inverted = layout.colors == 4; // zeros are black now: no light, or all ink
        while (rowsDone() < layout.height) {
            filled = std::min(batchRows, layout.height - rowsDone());
            flush();
        }
    }
    batch.reset();
    turned.reset();
    scratch.reset();
    return std::move(picture);
}

} // namespace orvo::io
