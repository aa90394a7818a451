#include "smooth_cells.hpp"

#include <orvo_core/parallel.hpp>

#include <algorithm>

namespace orvo::detail {

namespace {

constexpr int kWindow = 2 * SmoothCells::kMargin + 1;
constexpr int kStrip = 256; // columns processed together: a few cache lines of each row

int half(int size) { return (size + 1) / 2; }

} // namespace

SmoothCells::SmoothCells(const RegionEdge& edge)
{
    levels.emplace_back(half(edge.width()), half(edge.height()));
    const Level& first = levels.front();
    forEachRow(first.down, [&](int j) {
        const Place* const upper = edge.row(2 * j);
        const Place* const lower = edge.row(std::min(2 * j + 1, edge.height() - 1));
        // A square cut by the plane contains border pixels, which never count as inside.
        const int last = edge.width() - 1;
        for (int i = 0; i < first.across; ++i) {
            const int right = std::min(2 * i + 1, last);
            first.row(j)[i] = upper[2 * i] == Place::Inside && upper[right] == Place::Inside &&
                              lower[2 * i] == Place::Inside && lower[right] == Place::Inside;
        }
    });
    for (int level = 2; level <= kTopLevel; ++level) {
        levels.emplace_back(half(levels.back().across), half(levels.back().down));
        halve(levels[levels.size() - 2], levels.back());
    }
    for (const Level& level : levels)
        shrink(level);
}

void SmoothCells::halve(const Level& finer, const Level& coarser)
{
    forEachRow(coarser.down, [&](int j) {
        const unsigned char* const upper = finer.row(2 * j);
        const unsigned char* const lower = finer.row(std::min(2 * j + 1, finer.down - 1));
        for (int i = 0; i < coarser.across; ++i) {
            const int right = std::min(2 * i + 1, finer.across - 1);
            coarser.row(j)[i] = static_cast<unsigned char>(upper[2 * i] & upper[right] & lower[2 * i] & lower[right]);
        }
    });
}

/// Keeps a flag if all within kMargin across and down are set; outside of the plane none is.
void SmoothCells::shrink(const Level& level)
{
    const auto keep = [](int length, const auto& flagAt) {
        int run = 0; // set flags in a row, up to the one kMargin ahead of the one decided
        for (int ahead = 0; ahead < length + kMargin; ++ahead) {
            run = ahead < length && flagAt(ahead) != 0 ? run + 1 : 0;
            if (ahead >= kMargin)
                flagAt(ahead - kMargin) = run >= kWindow;
        }
    };
    forEachRow(level.down, [&](int j) {
        unsigned char* const flags = level.row(j);
        keep(level.across, [flags](int i) -> unsigned char& { return flags[i]; });
    });
    const int strips = (level.across + kStrip - 1) / kStrip;
    forEachRow(strips, [&](int strip) {
        for (int i = strip * kStrip; i < std::min(level.across, (strip + 1) * kStrip); ++i)
            keep(level.down, [&level, i](int j) -> unsigned char& { return level.row(j)[i]; });
    });
}

} // namespace orvo::detail
