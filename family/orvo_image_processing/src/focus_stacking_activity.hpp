/// How much detail a frame shows, at each level of the focus stacker's pyramid.
#pragma once

#include "focus_stacking_levels.hpp"

#include <cstddef>
#include <vector>

namespace orvo::detail {

/// Activity of one frame: in squares of samples, summed over the channels, never negative. `grids[l - 1]` has the
/// extent of level l and decides for the coefficients of that level; the first also decides for those of the picture
/// itself.
struct Activity
{
    std::vector<Level> grids;
    /// What noise puts into the activity of the picture's own band, by its flattest windows.
    float noise = 0.0f;
};

/// `levels` are the Gaussian levels 1.. of the picture, at least one.
[[nodiscard]] Activity measureActivity(const PixelRGB<float>* pixels, LevelExtent extent,
                                       const std::vector<Level>& levels);

/// By how much an activity of grids[index] has to exceed another before it is more than `noise`.
[[nodiscard]] float noiseMargin(float noise, std::size_t index);

/// Activity that loses against any other: that of what is absent.
constexpr float kAbsent = -1.0f;

/// Sets kAbsent around pixels where `mask`, a level of one channel, is 1; elsewhere it is 0.
void markAbsent(Activity& activity, const Level& mask);

} // namespace orvo::detail
