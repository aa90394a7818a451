/// The pyramids of the focus stacker: planar levels below an interleaved picture.
#pragma once

#include "pyramid.hpp"

#include <orvo_common/memory_manager.hpp>
#include <orvo_core/parallel.hpp>
#include <orvo_core/pixel.hpp>

#include <algorithm>
#include <cstddef>
#include <vector>

namespace orvo::detail {

constexpr int kChannels = 3;

struct LevelExtent
{
    int width, height;
    [[nodiscard]] std::size_t pixels() const
    {
        return static_cast<std::size_t>(width) * static_cast<std::size_t>(height);
    }
};

/// Extents of the picture and of the levels below it: as many as keep both sides at `smallest` or more, at most `most`,
/// at least one.
[[nodiscard]] std::vector<LevelExtent> levelExtents(int width, int height, float smallest, int most);

/// One level: `channels` planes one after another. Contents uninitialised.
class Level
{
public:
    Level(LevelExtent extent_, int channels) : extent(extent_), samples(extent_.pixels() * planes(channels)) {}
    [[nodiscard]] float* row(int channel, int y) const
    {
        return samples.data() +
               (planes(channel) * static_cast<std::size_t>(extent.height) + static_cast<std::size_t>(y)) *
                   static_cast<std::size_t>(extent.width);
    }
    /// A row of one channel, with the first and last row repeated beyond the ends.
    [[nodiscard]] float* nearRow(int channel, int y) const { return row(channel, std::clamp(y, 0, extent.height - 1)); }
    [[nodiscard]] int width() const { return extent.width; }
    [[nodiscard]] int height() const { return extent.height; }

private:
    static std::size_t planes(int count) { return static_cast<std::size_t>(count); }
    LevelExtent extent;
    ManagedPlane<float> samples;
};

/// Scratch rows of one task, each with kRowPad extra samples at both ends and room for the odd sample of widenRow.
class ScratchRows
{
public:
    ScratchRows(int count, int width)
        : stride((static_cast<std::size_t>(width) + 2 * kMargin - 1) / kMargin * kMargin + kMargin),
          samples(static_cast<std::size_t>(count) * stride)
    {}
    [[nodiscard]] float* row(int index) const
    {
        return samples.data() + static_cast<std::size_t>(index) * stride + kMargin / 2;
    }

private:
    static constexpr std::size_t kMargin = 16; // the size of a vector register, so that rows start aligned
    static_assert(kMargin / 2 > kRowPad);
    std::size_t stride;
    ManagedPlane<float> samples;
};

/// Calls `body(first, last)` for bands of `rows` rows, which do not depend on the number of threads.
template <typename Body>
void forEachBand(int height, int rows, const Body& body)
{
    forEachRow((height + rows - 1) / rows, [&](int band) { body(band * rows, std::min(height, (band + 1) * rows)); });
}

/// Reduces an interleaved picture to the planar level below it.
void reducePicture(const Level& below, const PixelRGB<float>* pixels, LevelExtent extent);

/// Reduces each channel of a level to the level below it.
void reduceLevel(const Level& below, const Level& level, int channels);

/// Expands row `y` of one channel of `below` to a level of `width` samples a row. `out` and `scratch` are rows of
/// ScratchRows.
void expandRow(float* out, float* scratch, const Level& below, int channel, int y, int width);

/// Splits a row of `width` pixels, given as samples, into three rows.
void splitRow(float* r, float* g, float* b, const float* samples, int width);

} // namespace orvo::detail
