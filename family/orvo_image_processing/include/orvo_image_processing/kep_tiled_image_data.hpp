/// A tiled picture, computed on demand and shared copy on write.
#pragma once

#include <orvo_common/export.hpp>
#include <orvo_core/image.hpp>
#include <orvo_core/tiled_image_data.hpp>

#include <functional>
#include <memory>
#include <mutex>

namespace orvo {

/// The tiles of an edited picture. copyTo() shares them, so a copy costs only its differences. Reading from several
/// threads is safe; writing through imageData() needs exclusive access.
class ORVO_EXPORT KepTiledImageData : public TiledImageData
{
public:
    static constexpr int kTileSize = 256; ///< pixels per side

    /// Returns the picture of a rectangle, at its size, in any profile. Called on the caller's thread.
    using Producer = std::function<std::shared_ptr<const Picture>(const _Rect<int>& rect,
                                                                  const std::shared_ptr<ColorProfile>& profile)>;

    /// Starts with no tile computed. Throws std::invalid_argument on a negative size.
    KepTiledImageData(_Size<int> size, std::shared_ptr<ColorProfile> profile);
    ~KepTiledImageData() override;

    [[nodiscard]] _Size<int> size() const override { return extent; }
    /// Tiles not computed before are black outside of the blended part.
    void blendWithImageData(const Picture& picture, const ResizeParameters& parameters) override;
    /// Peak: the result.
    [[nodiscard]] std::shared_ptr<const Picture> imageData() const override;
    /// Writes to the returned picture take effect at the next call of any other function; unchanged tiles stay shared.
    /// Do not write through the pointer after that call.
    [[nodiscard]] std::shared_ptr<Picture> imageData() override;
    [[nodiscard]] Tiles getTiles() const override;
    [[nodiscard]] int getTileSize() const override { return kTileSize; }
    [[nodiscard]] std::shared_ptr<ColorProfile> getColorProfile() const override { return profile; }

    [[nodiscard]] _Rect<int> rect() const { return {0, 0, extent.width, extent.height}; }

    /// Computes the missing tiles within `rect`, in strips one tile high, and converts them to the profile of the
    /// tiles. `flag` is always true here. Throws std::runtime_error if the producer returns no picture or one of
    /// another size; keeps the tiles computed before. Peak: two strips.
    void prepareImageData(const _Rect<int>& rect, const Producer& producer, bool flag);

    /// Makes `target` a copy that shares all tiles. Throws std::invalid_argument if the sizes differ.
    void copyTo(const std::shared_ptr<KepTiledImageData>& target) const;

    /// Replaces one tile; throws std::invalid_argument if its size does not match. Empty: not computed.
    void setTile(int column, int row, std::shared_ptr<const Picture> tile);

private:
    [[nodiscard]] int columns() const { return (extent.width + kTileSize - 1) / kTileSize; }
    [[nodiscard]] int rows() const { return (extent.height + kTileSize - 1) / kTileSize; }
    [[nodiscard]] _Rect<int> tileRect(std::size_t index) const;
    [[nodiscard]] std::shared_ptr<Picture> flattened() const;
    void settle() const;

    _Size<int> extent;
    std::shared_ptr<ColorProfile> profile;
    mutable std::mutex mutex; // guards the members below
    mutable Tiles tiles;
    mutable std::shared_ptr<Picture> behind; // handed out for writing; empty once taken over
};

/// The tiles of the image's modified data; empty if it has none.
[[nodiscard]] ORVO_EXPORT std::shared_ptr<KepTiledImageData>
getKepModifiedImageData(const std::shared_ptr<Image>& image);

} // namespace orvo
