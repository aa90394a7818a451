/// Finds the areas of a region far enough from its edge for coarse sampling.
#pragma once

#include "region_edge.hpp"

#include <orvo_common/memory_manager.hpp>

#include <vector>

namespace orvo::detail {

/// Squares of 2^level pixels, level 1 .. kTopLevel, aligned to multiples of their side. A square is smooth if it and
/// kMargin squares of its size on every side have only pixels of Place::Inside.
class SmoothCells
{
public:
    static constexpr int kTopLevel = 6;
    static constexpr int kMargin = 6;

    explicit SmoothCells(const RegionEdge& edge);

    /// `i`, `j`: square across and down; outside of the plane none is smooth.
    [[nodiscard]] bool smooth(int level, int i, int j) const
    {
        const Level& cells = levels[static_cast<std::size_t>(level) - 1];
        return i >= 0 && j >= 0 && i < cells.across && j < cells.down && cells.row(j)[i] != 0;
    }
    /// Smooth, and not part of a larger smooth square.
    [[nodiscard]] bool largest(int level, int i, int j) const
    {
        return smooth(level, i, j) && (level == kTopLevel || !smooth(level + 1, i >> 1, j >> 1));
    }

private:
    struct Level
    {
        Level(int across_, int down_)
            : across(across_), down(down_), flags(static_cast<std::size_t>(across_) * static_cast<std::size_t>(down_))
        {}
        [[nodiscard]] unsigned char* row(int j) const { return flags.data() + static_cast<std::ptrdiff_t>(j) * across; }
        int across, down;
        ManagedPlane<unsigned char> flags;
    };

    static void halve(const Level& finer, const Level& coarser);
    static void shrink(const Level& level);

    std::vector<Level> levels;
};

} // namespace orvo::detail
