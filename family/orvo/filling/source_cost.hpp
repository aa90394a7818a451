/// What a source costs beyond the difference of colours.
#pragma once

#include "filling/fill_level.hpp"
#include "filling/fill_settings.hpp"
#include "filling/line_directions.hpp"

#include <orvo_common/memory_manager.hpp>
#include <orvo_core/detail/vector_code.hpp>

#include <cstddef>
#include <cstdint>

namespace orvo::details {

/// How far each source patch of a coarse level is from the most similar one elsewhere. Sky, water and foliage resemble
/// themselves; a person or a boat resembles nothing, and a copy of it leaps to the eye.
class Rarity
{
public:
    explicit Rarity(const FillLevel& level);

    /// For a patch that begins at (x, y) of a level 2^shift times as large.
    ORVO_INLINE int operator()(int x, int y, int shift) const
    {
        constexpr int kCorner = FillLevel::kMargin - kPatch / 2; // of the patch around the first pixel of the picture
        const int atX = ((x - kCorner) >> shift) + kCorner;
        const int atY = ((y - kCorner) >> shift) + kCorner;
        return distances[static_cast<std::size_t>(atY) * static_cast<std::size_t>(width) +
                         static_cast<std::size_t>(atX)];
    }

private:
    ManagedPlane<std::int32_t> distances; // 0 where no source begins
    int width;
};

/// The extra distance of a source for a target: beside the lines, or a copy of something rare.
class SourceCost
{
public:
    /// `rarity`: of the coarsest level, or null if it does not count; `level` is 2^shift times as large. `isBorder`:
    /// the hole reaches the border of the picture.
    SourceCost(const PatchFillSettings& settings, const FillLevel& level, const LineDirections& lines,
               const Rarity* rarity, int shift, bool isBorder);

    /// `target` and `source`: where the patches begin.
    ORVO_INLINE int operator()(int target, int source) const
    {
        const int x = source % width;
        const int y = source / width;
        const int dx = x - target % width;
        const int dy = y - target / width;
        const int cost = acrossLines(dx, dy) + offHeight(y, target / width);
        if (rarity == nullptr)
            return cost;
        const int sizeX = dx < 0 ? -dx : dx;
        const int sizeY = dy < 0 ? -dy : dy;
        const float away = static_cast<float>(sizeX > sizeY ? sizeX : sizeY) * perReach;
        return cost +
               static_cast<int>(weight * static_cast<float>((*rarity)(x, y, shift)) * (away < 1.0f ? away : 1.0f));
    }

private:
    // What lies beside a picture looks like the picture at the same height, what lies above it like its top.
    ORVO_INLINE int offHeight(int y, int targetY) const
    {
        const int height = targetY < top ? top : targetY > bottom ? bottom : targetY;
        const int apart = y < height ? height - y : y - height;
        const float share = static_cast<float>(apart) * perHeight;
        return static_cast<int>(heightCost * (share < 1.0f ? share : 1.0f));
    }

    OffsetCost acrossLines;
    int top = 0; // rows in which the first and last sources begin
    int bottom = 0;
    float heightCost = 0.0f; // of a source at another height, from 1 / perHeight rows on
    float perHeight = 0.0f;
    const Rarity* rarity;
    int width;
    int shift;
    float weight;   // share of the rarity that a distant source costs
    float perReach; // 1 / distance from which on it costs that
};

} // namespace orvo::details
