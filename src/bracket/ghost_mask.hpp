/// The soft mask that grows from the places where frames of a bracket differ.
#pragma once

#include <orvo_common/memory_manager.hpp>

#include <cstddef>
#include <cstdint>
#include <vector>

namespace orvo {

/// Marks, then grow(), then weights. Growing is so many blurs of one radius with the kernel of grfx_fast_blur_gray(),
/// each followed by the marks at full strength; all values are held to 8-bit steps. Their sums are exact in integers,
/// so areas without any mark are left out without a change elsewhere.
///
/// Peak: three planes of bytes.
class GhostMask
{
public:
    /// Side of the squares by which work is shared out and empty areas are left out. The sums of one with its rim fit
    /// the L2 cache.
    static constexpr int kTile = 128;

    GhostMask(int width, int height);

    /// 1 marks a pixel. Rows may be written in parallel.
    [[nodiscard]] std::uint8_t* marks(int y) const { return marked.data() + offset(y); }

    /// Once, after the marks are complete.
    void grow();

    /// After grow(): how much of a pixel is replaced, 0..255, in the steps of weightOf().
    [[nodiscard]] const std::uint8_t* levels(int y) const { return state.data() + offset(y); }
    [[nodiscard]] static float weightOf(std::uint8_t level);

    /// After grow(): whether all levels of a row are 0 from column `first` up to the end of its tile, `end`.
    [[nodiscard]] bool isClear(int y, int first, int& end) const;

private:
    struct Tiles
    {
        int columns, rows;
        std::vector<std::uint8_t> used; // any level above 0
        [[nodiscard]] std::size_t at(int column, int row) const
        {
            return static_cast<std::size_t>(row) * static_cast<std::size_t>(columns) + static_cast<std::size_t>(column);
        }
        [[nodiscard]] bool usedNear(int column, int row) const;
    };

    [[nodiscard]] std::size_t offset(int y) const
    {
        return static_cast<std::size_t>(y) * static_cast<std::size_t>(width);
    }
    void growTile(int column, int row, const std::uint8_t* from, std::uint8_t* to, bool isLast, Tiles& result) const;
    void clearTile(int column, int row, std::uint8_t* plane) const;

    int width, height;
    ManagedPlane<std::uint8_t> marked;
    ManagedPlane<std::uint8_t> state;
    Tiles tiles;
};

} // namespace orvo
