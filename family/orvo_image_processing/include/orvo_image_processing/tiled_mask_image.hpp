/// A mask held in tiles, of which only those with different values take memory.
#pragma once

#include <orvo_common/export.hpp>
#include <orvo_common/memory_manager.hpp>
#include <orvo_core/geometry.hpp>
#include <orvo_core/image_data.hpp>

#include <cstddef>
#include <memory>
#include <vector>

namespace orvo {

/// A plane of weights in square tiles. Copying shares the tiles, which costs a pointer for each; a tile is copied when
/// one of its holders writes to it. One mask belongs to one thread at a time, but masks that share tiles may be used by
/// different threads.
class ORVO_EXPORT TiledMaskImage
{
public:
    static constexpr int kTileSize = 256; ///< pixels a side: 256 KB a tile, large enough that its upkeep is nothing

    /// One tile: a value all over, or samples of its own, kTileSize a row, also where the mask ends within the tile.
    struct Tile
    {
        float uniform = 0.0f;
        std::shared_ptr<const ManagedPlane<float>> samples; ///< empty: `uniform` all over
    };

    /// All `value`. Throws std::invalid_argument on a negative size.
    explicit TiledMaskImage(_Size<int> size, float value = 0.0f);

    [[nodiscard]] int width() const { return extent.width; }
    [[nodiscard]] int height() const { return extent.height; }
    [[nodiscard]] _Size<int> size() const { return extent; }
    [[nodiscard]] int columns() const { return (extent.width + kTileSize - 1) / kTileSize; }
    [[nodiscard]] int rows() const { return (extent.height + kTileSize - 1) / kTileSize; }

    /// The sample at (x, y), which must lie inside.
    [[nodiscard]] float getValue(int x, int y) const
    {
        const Tile& tile = this->tile(x / kTileSize, y / kTileSize);
        return tile.samples
                   ? tile.samples->data()[static_cast<std::ptrdiff_t>(y % kTileSize) * kTileSize + x % kTileSize]
                   : tile.uniform;
    }

    /// The part `rect` at `size`, as MaskImage::resize() has it; the zero rectangle is the whole mask, the zero size
    /// that of the part. What lies outside the mask repeats its edge. Where the mask shrinks, tiles of zeros cost
    /// nothing. Peak: the result; where it grows or is turned to another aspect, the part as well.
    [[nodiscard]] std::shared_ptr<MaskImage> maskImage(_Size<int> size, _Rect<int> rect) const;

    void fill(float value);

    [[nodiscard]] const Tile& tile(int column, int row) const { return tiles[index(column, row)]; }
    /// Replaces a tile.
    void setTile(int column, int row, Tile tile) { tiles[index(column, row)] = std::move(tile); }
    /// The tile's samples, to be written: a tile that is shared or uniform gets samples of its own first.
    [[nodiscard]] float* writableTile(int column, int row);

private:
    [[nodiscard]] std::size_t index(int column, int row) const
    {
        return static_cast<std::size_t>(row) * static_cast<std::size_t>(columns()) + static_cast<std::size_t>(column);
    }
    void copyRow(int y, int left, int count, float* target) const;
    [[nodiscard]] std::shared_ptr<MaskImage> assembled(const _Rect<int>& part) const;
    [[nodiscard]] std::shared_ptr<MaskImage> averaged(_Size<int> size, const _Rect<int>& part) const;

    _Size<int> extent;
    std::vector<Tile> tiles;
};

} // namespace orvo
