/// A picture held in tiles.
#pragma once

#include <orvo_common/export.hpp>
#include <orvo_core/image_data.hpp>

#include <memory>
#include <vector>

namespace orvo {

/// A picture in square tiles, row after row of tiles; those at the right and at the bottom end with the picture. A tile
/// that is not computed yet is an empty pointer.
class ORVO_EXPORT TiledImageData
{
public:
    using Picture = _ImageData<PixelRGB<float>>;
    using Tiles = std::vector<std::shared_ptr<const Picture>>;

    virtual ~TiledImageData();

    [[nodiscard]] virtual _Size<int> size() const = 0;
    /// Puts `picture`, in the profile of the tiles and at the size of the part, into `parameters.rect`.
    virtual void blendWithImageData(const Picture& picture, const ResizeParameters& parameters) = 0;
    /// The whole picture, put together from the tiles; black where there is none.
    [[nodiscard]] virtual std::shared_ptr<const Picture> imageData() const = 0;
    /// The picture behind the tiles: what is written into it is what the tiles show from then on.
    [[nodiscard]] virtual std::shared_ptr<Picture> imageData() = 0;
    [[nodiscard]] virtual Tiles getTiles() const = 0;
    /// Side of a tile in pixels.
    [[nodiscard]] virtual int getTileSize() const = 0;
    [[nodiscard]] virtual std::shared_ptr<ColorProfile> getColorProfile() const = 0;
};

} // namespace orvo
