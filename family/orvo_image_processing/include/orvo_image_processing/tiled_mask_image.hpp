/// A tiled mask; uniform tiles take no memory.
#pragma once

#include <orvo_common/export.hpp>
#include <orvo_common/memory_manager.hpp>
#include <orvo_core/geometry.hpp>
#include <orvo_core/image_data.hpp>

#include <cstddef>
#include <memory>
#include <vector>

namespace orvo {

/// A plane of weights in square tiles. Copies share tiles, at the cost of a pointer each (copy on write). One mask is
/// used by one thread at a time, but masks that share tiles may be used on different threads.
class ORVO_EXPORT TiledMaskImage
{
public:
    static constexpr int kTileSize = 256; ///< pixels per side: 256 KB per tile, large enough for negligible overhead

    /// One tile: a uniform value, or samples, kTileSize per row even where the mask ends inside the tile.
    struct Tile
    {
        float uniform = 0.0f;
        std::shared_ptr<const ManagedPlane<float>> samples; ///< empty: `uniform` everywhere
    };

    /// Every sample is `value`. Throws std::invalid_argument on a negative size.
    explicit TiledMaskImage(_Size<int> size, float value = 0.0f);

    [[nodiscard]] int width() const { return extent.width; }
    [[nodiscard]] int height() const { return extent.height; }
    [[nodiscard]] _Size<int> size() const { return extent; }
    [[nodiscard]] int columns() const { return (extent.width + kTileSize - 1) / kTileSize; }
    [[nodiscard]] int rows() const { return (extent.height + kTileSize - 1) / kTileSize; }

    /// The sample at (x, y), which must be inside the mask.
    [[nodiscard]] float getValue(int x, int y) const
    {
        const Tile& tile = this->tile(x / kTileSize, y / kTileSize);
        return tile.samples
                   ? tile.samples->data()[static_cast<std::ptrdiff_t>(y % kTileSize) * kTileSize + x % kTileSize]
                   : tile.uniform;
    }

    /// The part `rect` at `size`, as in MaskImage::resize(); a zero rectangle is the whole mask, a zero size that of
    /// the part. The edge samples extend outwards. When shrinking, tiles of zeros are free. Peak: the result; when
    /// growing or changing the aspect, also the part.
    [[nodiscard]] std::shared_ptr<MaskImage> maskImage(_Size<int> size, _Rect<int> rect) const;

    void fill(float value);

    [[nodiscard]] const Tile& tile(int column, int row) const { return tiles[index(column, row)]; }
    /// Replaces a tile.
    void setTile(int column, int row, Tile tile) { tiles[index(column, row)] = std::move(tile); }
    /// The tile's samples for writing; first gives a shared or uniform tile its own samples.
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
