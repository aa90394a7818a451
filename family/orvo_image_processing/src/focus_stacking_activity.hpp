/// How much detail a frame shows, at each level of the focus stacker's pyramid.
#pragma once

#include "focus_stacking_levels.hpp"

#include <array>
#include <cstddef>
#include <vector>

namespace orvo::detail {

/// What noise adds to the activity of the picture's own band, by brightness: a sensor's noise differs between lights
/// and shadows, and the encoding stretches it further.
struct NoiseCurve
{
    static constexpr int kBins = 16;
    /// At the centres of kBins equal parts of 0..1.
    std::array<float, kBins> energy{};

    /// Where a brightness lies between two centres; beyond the first and the last there.
    struct Place
    {
        int bin;
        float share; ///< of the next bin
    };
    [[nodiscard]] static ORVO_INLINE Place placeOf(float brightness)
    {
        const float position = brightness * kBins - 0.5f;
        const float inside = position > 0.0f ? (position < kBins - 1 ? position : kBins - 1) : 0.0f;
        const int bin = static_cast<int>(inside) < kBins - 2 ? static_cast<int>(inside) : kBins - 2;
        return {bin, inside - static_cast<float>(bin)};
    }
    [[nodiscard]] ORVO_INLINE float at(float brightness) const
    {
        const Place place = placeOf(brightness);
        const float low = energy[static_cast<std::size_t>(place.bin)];
        return low + (energy[static_cast<std::size_t>(place.bin) + 1] - low) * place.share;
    }
};

/// Activity of one frame: in squares of samples, summed over the channels, never negative. `grids[l - 1]` has the
/// extent of level l and decides the coefficients of that level; the first also decides those of the picture itself.
struct Activity
{
    std::vector<Level> grids;
    NoiseCurve noise; ///< from the flattest windows of the frame
};

/// `levels` are the Gaussian levels 1.. of the picture, at least one.
[[nodiscard]] Activity measureActivity(const PixelRGB<float>* pixels, LevelExtent extent,
                                       const std::vector<Level>& levels);

/// How many times the noise an activity of grids[index] has to exceed another one to count as more than noise.
[[nodiscard]] float noiseMargin(std::size_t index);

/// Activity below any other: for absent pixels.
constexpr float kAbsent = -1.0f;

/// Sets kAbsent around pixels where `mask`, a level of one channel, is 1; the mask is 0 elsewhere.
void markAbsent(Activity& activity, const Level& mask);

} // namespace orvo::detail
