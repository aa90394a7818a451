/// Smooth planes over a hole.
#pragma once

#include <orvo_common/memory_manager.hpp>
#include <orvo_core/geometry.hpp>

#include <cstdint>
#include <functional>
#include <vector>

namespace orvo::details {

/// Solves, for the pixels of a hole, "as high as the mean of the neighbours, but for the given steps", with 0 around
/// the hole and no neighbours beyond the picture. Several right sides, one after the other. Multigrid with sums of 2 x
/// 2 pixels (Braess, Computing 55, 1995), so that its cost is that of the pixels.
class Membrane
{
public:
    enum class Pixel : std::uint8_t
    {
        Beyond, ///< the picture: has no say
        Fixed,  ///< at 0
        Free,
    };

    /// `kindOf(x, y)` also takes the pixels just around `size`.
    Membrane(_Size<int> size, const std::function<Pixel(int x, int y)>& kindOf);

    /// `sums(x, y)`: of the differences that a free pixel is to have to its neighbours.
    void solve(const std::function<float(int x, int y)>& sums);
    /// What the last solve() found; 0 where the pixel is not free.
    [[nodiscard]] float value(int x, int y) const { return grids.front().value[grids.front().at(x, y)]; }

private:
    struct Grid
    {
        explicit Grid(_Size<int> size_);
        [[nodiscard]] std::size_t at(int x, int y) const
        {
            return static_cast<std::size_t>(y + 1) * static_cast<std::size_t>(size.width + 2) +
                   static_cast<std::size_t>(x + 1);
        }
        [[nodiscard]] std::size_t count() const
        {
            return static_cast<std::size_t>(size.width + 2) * static_cast<std::size_t>(size.height + 2);
        }

        _Size<int> size;             // around it there is a border of pixels that are not free
        ManagedPlane<float> toRight; // how strongly a pixel is tied to its right neighbour
        ManagedPlane<float> below;
        ManagedPlane<float> anchor;  // and to 0
        ManagedPlane<float> inverse; // of the sum of all ties; 0 where the pixel is not free
        ManagedPlane<float> right;   // right sides
        ManagedPlane<float> value;
    };

    static Grid coarser(const Grid& fine);
    static void setInverse(Grid& grid);
    static void relax(Grid& grid, bool forward);
    void descend(std::size_t level);

    std::vector<Grid> grids;
};

} // namespace orvo::details
