/// Smooth planes over a hole.
#pragma once

#include <orvo_common/memory_manager.hpp>
#include <orvo_core/geometry.hpp>

#include <cstdint>
#include <functional>
#include <vector>

namespace orvo::details {

/// Solves, for the pixels of a hole, "the mean of the neighbours plus given steps", with 0 around the hole and no
/// neighbours beyond the picture, for several right sides in turn. Multigrid with sums of 2 x 2 pixels (Braess,
/// Computing 55, 1995), so that the cost is linear in the pixels.
class Membrane
{
public:
    enum class Pixel : std::uint8_t
    {
        Beyond, ///< the picture; ignored
        Fixed,  ///< at 0
        Free,
    };

    /// Pulls a pixel towards 0, so that a mismatch on one side of a wide hole does not tint all of it; it falls to half
    /// about 30 pixels away.
    static constexpr float kAnchor = 5e-4f;

    /// `kindOf(x, y)` is also called for the pixels just around `size`. `anchorOf(x, y)`: the pull of a free pixel
    /// towards 0, where 1 would be that of a neighbour.
    Membrane(
        _Size<int> size, const std::function<Pixel(int x, int y)>& kindOf,
        const std::function<float(int x, int y)>& anchorOf = [](int, int) { return kAnchor; });

    /// `sums(x, y)`: the sum of the wanted differences of a free pixel to its neighbours.
    void solve(const std::function<float(int x, int y)>& sums);
    /// The result of the last solve(); 0 where the pixel is not free.
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

        _Size<int> size;             // surrounded by a border of pixels that are not free
        ManagedPlane<float> toRight; // coupling of a pixel to its right neighbour
        ManagedPlane<float> below;
        ManagedPlane<float> anchor;  // coupling to 0
        ManagedPlane<float> inverse; // of the sum of all couplings; 0 where the pixel is not free
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
