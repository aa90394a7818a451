/// The range of values that the frames of a focus series have at each sample, and pixels that have no value.
#pragma once

#include "focus_stacking_levels.hpp"

#include <cstdint>
#include <optional>

namespace orvo::detail {

/// Samples beyond this count as absent: their squares would leave nothing of the others.
constexpr float kLargestSample = 1e6f;

/// A frame some of whose pixels are absent, filled up, and where they are.
struct FilledFrame
{
    ManagedPlane<PixelRGB<float>> pixels;
    Level absent; ///< 1 where a pixel is absent, 0 elsewhere
};

/// Nothing if every pixel is present. An absent pixel continues its left neighbour, at the start of a row the first one
/// that is present; a row without any is black.
[[nodiscard]] std::optional<FilledFrame> fillAbsent(const PixelRGB<float>* pixels, LevelExtent extent);

/// Smallest and largest value of each sample, in steps of 1/8192 outward, -4..4; beyond that there is no bound.
class SampleRange
{
public:
    explicit SampleRange(LevelExtent extent);
    /// `absent`, if not empty, is 1 at pixels to leave out.
    void include(const PixelRGB<float>* pixels, const Level* absent);
    /// Writes row `y` of planar samples into pixels, each limited to its range. A pixel no frame had stays free.
    void limitRow(PixelRGB<float>* out, const float* r, const float* g, const float* b, int y) const;

private:
    LevelExtent extent;
    ManagedPlane<std::int16_t> low, high; // interleaved as the pixels are
};

} // namespace orvo::detail
