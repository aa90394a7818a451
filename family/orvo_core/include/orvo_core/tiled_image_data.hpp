/// Tiled pictures.
#pragma once

#include <orvo_common/export.hpp>
#include <orvo_core/image_data.hpp>

#include <memory>
#include <vector>

namespace orvo {

/// A picture in square tiles in row order; the picture's right and bottom edges cut tiles off. A tile not computed yet
/// is an empty pointer.
class ORVO_EXPORT TiledImageData
{
public:
    using Picture = _ImageData<PixelRGB<float>>;
    using Tiles = std::vector<std::shared_ptr<const Picture>>;

    virtual ~TiledImageData();

    [[nodiscard]] virtual _Size<int> size() const = 0;
    /// Writes `picture`, converted to the profile of the tiles and resized, to `parameters.rect`.
    virtual void blendWithImageData(const Picture& picture, const ResizeParameters& parameters) = 0;
    /// The whole picture, assembled from the tiles; black where a tile is empty.
    [[nodiscard]] virtual std::shared_ptr<const Picture> imageData() const = 0;
    /// The picture behind the tiles; writes to it change the tiles.
    [[nodiscard]] virtual std::shared_ptr<Picture> imageData() = 0;
    [[nodiscard]] virtual Tiles getTiles() const = 0;
    /// Side of a tile in pixels.
    [[nodiscard]] virtual int getTileSize() const = 0;
    [[nodiscard]] virtual std::shared_ptr<ColorProfile> getColorProfile() const = 0;
};

} // namespace orvo
