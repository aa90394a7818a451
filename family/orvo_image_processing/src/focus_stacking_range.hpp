/// The range of values of the frames of a focus series at each sample, and pixels without a value.
#pragma once

#include "focus_stacking_levels.hpp"

#include <cstdint>

namespace orvo::detail {

/// Samples beyond this count as absent: their squares would swamp all others.
constexpr float kLargestSample = 1e6f;

/// A frame with absent pixels: the frame with those filled, and their positions.
struct FilledFrame
{
    ManagedPlane<PixelRGB<float>> pixels;
    Level absent; ///< 1 where a pixel is absent, 0 elsewhere
};

/// The frame without absent pixels: one continues its left neighbour, or at the start of a row the first
/// present one; a row without any is black.
[[nodiscard]] FilledFrame fillAbsent(const PixelRGB<float>* pixels, LevelExtent extent);

/// Smallest and largest value of each sample, in steps of 1/8192, rounded outward, -4..4; no limit beyond that.
class SampleRange
{
public:
    explicit SampleRange(LevelExtent extent);
    /// Includes all pixels that are present, and returns whether every one is.
    [[nodiscard]] bool include(const PixelRGB<float>* pixels);
    /// Writes row `y` of planar samples into pixels, each clamped to its range. A pixel that no frame had is unlimited.
    void limitRow(PixelRGB<float>* out, const float* r, const float* g, const float* b, int y) const;

private:
    LevelExtent extent;
    ManagedPlane<std::int16_t> low, high; // interleaved like the pixels
};

} // namespace orvo::detail
