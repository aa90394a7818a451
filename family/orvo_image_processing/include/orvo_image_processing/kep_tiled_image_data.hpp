/// A picture in tiles that are computed on demand and shared until they are written to.
#pragma once

#include <orvo_common/export.hpp>
#include <orvo_core/image.hpp>
#include <orvo_core/tiled_image_data.hpp>

#include <functional>
#include <memory>
#include <mutex>

namespace orvo {

/// The tiles of an edited picture. copyTo() shares them, so that a copy costs what is different and nothing else.
/// Reading from several threads is safe; who writes through imageData() does so alone.
class ORVO_EXPORT KepTiledImageData : public TiledImageData
{
public:
    static constexpr int kTileSize = 256; ///< pixels a side

    /// The picture of a rectangle, at its size, in any profile. It is asked on the caller's thread.
    using Producer = std::function<std::shared_ptr<const Picture>(const _Rect<int>& rect,
                                                                  const std::shared_ptr<ColorProfile>& profile)>;

    /// No tile is computed. Throws std::invalid_argument on a negative size.
    KepTiledImageData(_Size<int> size, std::shared_ptr<ColorProfile> profile);
    ~KepTiledImageData() override;

    [[nodiscard]] _Size<int> size() const override { return extent; }
    /// Tiles that were not computed are black beside what is put into them.
    void blendWithImageData(const Picture& picture, const ResizeParameters& parameters) override;
    /// Peak: the result.
    [[nodiscard]] std::shared_ptr<const Picture> imageData() const override;
    /// What is written into the picture is taken over at the next call of any other function, after which the tiles
    /// that were not changed are still shared. Who holds the pointer longer than that must not write any more.
    [[nodiscard]] std::shared_ptr<Picture> imageData() override;
    [[nodiscard]] Tiles getTiles() const override;
    [[nodiscard]] int getTileSize() const override { return kTileSize; }
    [[nodiscard]] std::shared_ptr<ColorProfile> getColorProfile() const override { return profile; }

    [[nodiscard]] _Rect<int> rect() const { return {0, 0, extent.width, extent.height}; }

    /// Computes the tiles within `rect` that are not there yet, by strips that are one tile high, and brings them into
    /// the profile of the tiles. `flag` is always true here. Throws std::runtime_error if the producer gives no picture
    /// or one of another size; tiles computed before stay. Peak: two strips.
    void prepareImageData(const _Rect<int>& rect, const Producer& producer, bool flag);

    /// Makes `target` a copy, which shares all tiles. Throws std::invalid_argument if it has another size.
    void copyTo(const std::shared_ptr<KepTiledImageData>& target) const;

    /// Replaces one tile, which must have its place's size (otherwise std::invalid_argument); empty: not computed.
    void setTile(int column, int row, std::shared_ptr<const Picture> tile);

private:
    [[nodiscard]] int columns() const { return (extent.width + kTileSize - 1) / kTileSize; }
    [[nodiscard]] int rows() const { return (extent.height + kTileSize - 1) / kTileSize; }
    [[nodiscard]] _Rect<int> tileRect(std::size_t index) const;
    [[nodiscard]] std::shared_ptr<Picture> flattened() const;
    void settle() const;

    _Size<int> extent;
    std::shared_ptr<ColorProfile> profile;
    mutable std::mutex mutex; // guards what follows
    mutable Tiles tiles;
    mutable std::shared_ptr<Picture> behind; // handed out to be written; empty once it has been taken over
};

/// The tiles of the modified data that are in the image, or empty.
[[nodiscard]] ORVO_EXPORT std::shared_ptr<KepTiledImageData>
getKepModifiedImageData(const std::shared_ptr<Image>& image);

} // namespace orvo
