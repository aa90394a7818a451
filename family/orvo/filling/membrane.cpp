#include "filling/membrane.hpp"

#include <orvo_core/parallel.hpp>

#include <algorithm>

namespace orvo::details {
namespace {

constexpr int kCycles = 6;
constexpr int kRelaxations = 2; // before and after each coarser grid
constexpr int kCoarsestRelaxations = 40;
// Sums of 2 x 2 pixels couple blocks twice as strongly as a grid of that spacing would (Braess).
constexpr float kLooser = 0.5f;

} // namespace

Membrane::Grid::Grid(_Size<int> size_)
    : size(size_), toRight(count(), true), below(count(), true), anchor(count(), true), inverse(count(), true),
      right(count(), true), value(count(), true)
{}

Membrane::Membrane(_Size<int> size, const std::function<Pixel(int x, int y)>& kindOf,
                   const std::function<float(int x, int y)>& anchorOf)
{
    Grid finest(size);
    forEachRow(size.height, [&](int y) {
        for (int x = 0; x < size.width; ++x) {
            if (kindOf(x, y) != Pixel::Free)
                continue;
            const std::size_t i = finest.at(x, y);
            finest.anchor[i] = anchorOf(x, y);
            for (const auto& [dx, dy] : {std::pair{1, 0}, {-1, 0}, {0, 1}, {0, -1}})
                finest.anchor[i] += kindOf(x + dx, y + dy) == Pixel::Fixed ? 1.0f : 0.0f;
            finest.toRight[i] = kindOf(x + 1, y) == Pixel::Free ? 1.0f : 0.0f;
            finest.below[i] = kindOf(x, y + 1) == Pixel::Free ? 1.0f : 0.0f;
        }
    });
    setInverse(finest);
    grids.push_back(std::move(finest));
    while (grids.back().size.width > 2 || grids.back().size.height > 2)
        grids.push_back(coarser(grids.back()));
}

void Membrane::setInverse(Grid& grid)
{
    const auto stride = static_cast<std::size_t>(grid.size.width + 2);
    forEachRow(grid.size.height, [&](int y) {
        for (int x = 0; x < grid.size.width; ++x) {
            const std::size_t i = grid.at(x, y);
            const float ties =
                grid.anchor[i] + grid.toRight[i] + grid.toRight[i - 1] + grid.below[i] + grid.below[i - stride];
            grid.inverse[i] = ties > 0.0f ? 1.0f / ties : 0.0f;
        }
    });
}

Membrane::Grid Membrane::coarser(const Grid& fine)
{
    Grid grid({(fine.size.width + 1) / 2, (fine.size.height + 1) / 2});
    forEachRow(grid.size.height, [&](int y) {
        for (int x = 0; x < grid.size.width; ++x) {
            const std::size_t to = grid.at(x, y);
            for (int dy = 0; dy < 2 && 2 * y + dy < fine.size.height; ++dy)
                for (int dx = 0; dx < 2 && 2 * x + dx < fine.size.width; ++dx) {
                    const std::size_t from = fine.at(2 * x + dx, 2 * y + dy);
                    grid.anchor[to] += fine.anchor[from];
                    grid.toRight[to] += dx == 1 ? kLooser * fine.toRight[from] : 0.0f;
                    grid.below[to] += dy == 1 ? kLooser * fine.below[from] : 0.0f;
                }
        }
    });
    setInverse(grid);
    return grid;
}

void Membrane::relax(Grid& grid, bool forward)
{
    const auto stride = static_cast<std::size_t>(grid.size.width + 2);
    // Red-black order: pixels of one colour depend only on the other colour.
    for (const int colour : {forward ? 0 : 1, forward ? 1 : 0})
        forEachRow(grid.size.height, [&](int y) {
            for (int x = (y + colour) % 2; x < grid.size.width; x += 2) {
                const std::size_t i = grid.at(x, y);
                const float pull = grid.toRight[i] * grid.value[i + 1] + grid.toRight[i - 1] * grid.value[i - 1] +
                                   grid.below[i] * grid.value[i + stride] +
                                   grid.below[i - stride] * grid.value[i - stride];
                grid.value[i] = (grid.right[i] + pull) * grid.inverse[i];
            }
        });
}

void Membrane::descend(std::size_t level)
{
    Grid& fine = grids[level];
    if (level + 1 == grids.size()) {
        for (int n = 0; n < kCoarsestRelaxations; ++n)
            relax(fine, n % 2 == 0);
        return;
    }
    for (int n = 0; n < kRelaxations; ++n)
        relax(fine, true);
    Grid& coarse = grids[level + 1];
    const auto stride = static_cast<std::size_t>(fine.size.width + 2);
    forEachRow(coarse.size.height, [&](int y) {
        for (int x = 0; x < coarse.size.width; ++x) {
            float rest = 0.0f;
            for (int dy = 0; dy < 2 && 2 * y + dy < fine.size.height; ++dy)
                for (int dx = 0; dx < 2 && 2 * x + dx < fine.size.width; ++dx) {
                    const std::size_t i = fine.at(2 * x + dx, 2 * y + dy);
                    if (fine.inverse[i] == 0.0f)
                        continue;
                    const float pull = fine.toRight[i] * fine.value[i + 1] + fine.toRight[i - 1] * fine.value[i - 1] +
                                       fine.below[i] * fine.value[i + stride] +
                                       fine.below[i - stride] * fine.value[i - stride];
                    rest += fine.right[i] + pull - fine.value[i] / fine.inverse[i];
                }
            coarse.right[coarse.at(x, y)] = rest;
            coarse.value[coarse.at(x, y)] = 0.0f;
        }
    });
    descend(level + 1);
    forEachRow(fine.size.height, [&](int y) {
        for (int x = 0; x < fine.size.width; ++x)
            if (fine.inverse[fine.at(x, y)] != 0.0f)
                fine.value[fine.at(x, y)] += coarse.value[coarse.at(x / 2, y / 2)];
    });
    for (int n = 0; n < kRelaxations; ++n)
        relax(fine, false);
}

void Membrane::solve(const std::function<float(int x, int y)>& sums)
{
    Grid& finest = grids.front();
    forEachRow(finest.size.height, [&](int y) {
        for (int x = 0; x < finest.size.width; ++x) {
            const std::size_t i = finest.at(x, y);
            finest.right[i] = finest.inverse[i] != 0.0f ? sums(x, y) : 0.0f;
            finest.value[i] = 0.0f;
        }
    });
    for (int cycle = 0; cycle < kCycles; ++cycle)
        descend(0);
}

} // namespace orvo::details
