#include <orvo_core/parallel.hpp>
#include <orvo_image_processing/kep_tiled_image_data.hpp>

#include <tbb/task_arena.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <stdexcept>
#include <string>
#include <utility>

namespace orvo {
namespace {

std::string text(_Size<int> size) { return std::to_string(size.width) + " x " + std::to_string(size.height); }

std::size_t rowBytes(int width) { return static_cast<std::size_t>(width) * sizeof(PixelRGB<float>); }

bool equals(const TiledImageData::Picture& tile, const TiledImageData::Picture& picture, const _Rect<int>& place)
{
    for (int y = 0; y < place.height; ++y)
        if (std::memcmp(tile.row(y), picture.row(place.y + y) + place.x, rowBytes(place.width)) != 0)
            return false;
    return true;
}

// The part of `rect` inside a picture of `size`.
_Rect<int> clipped(const _Rect<int>& rect, _Size<int> size)
{
    const auto limited = [](std::int64_t value, int upper) {
        return static_cast<int>(std::clamp<std::int64_t>(value, 0, upper));
    };
    const int left = limited(rect.x, size.width);
    const int top = limited(rect.y, size.height);
    const int right = limited(std::int64_t{rect.x} + rect.width, size.width);
    const int bottom = limited(std::int64_t{rect.y} + rect.height, size.height);
    return {left, top, std::max(0, right - left), std::max(0, bottom - top)};
}

} // namespace

KepTiledImageData::KepTiledImageData(_Size<int> size, std::shared_ptr<ColorProfile> profile_)
    : extent(size), profile(std::move(profile_))
{
    if (size.width < 0 || size.height < 0)
        throw std::invalid_argument("KepTiledImageData: a size cannot be negative");
    tiles.resize(static_cast<std::size_t>(columns()) * static_cast<std::size_t>(rows()));
}

KepTiledImageData::~KepTiledImageData() = default;

_Rect<int> KepTiledImageData::tileRect(std::size_t index) const
{
    const int x = static_cast<int>(index % static_cast<std::size_t>(columns())) * kTileSize;
    const int y = static_cast<int>(index / static_cast<std::size_t>(columns())) * kTileSize;
    return {x, y, std::min(kTileSize, extent.width - x), std::min(kTileSize, extent.height - y)};
}

std::shared_ptr<TiledImageData::Picture> KepTiledImageData::flattened() const
{
    auto result = std::make_shared<Picture>(extent, profile);
    const auto fillRow = [&](int y) {
        for (int column = 0; column < columns(); ++column) {
            const std::size_t index = static_cast<std::size_t>(y / kTileSize) * static_cast<std::size_t>(columns()) +
                                      static_cast<std::size_t>(column);
            const int left = column * kTileSize;
            const int width = std::min(kTileSize, extent.width - left);
            if (tiles[index])
                std::memcpy(static_cast<void*>(result->row(y) + left), tiles[index]->row(y % kTileSize),
                            rowBytes(width));
            else
                std::fill_n(result->row(y) + left, width, PixelRGB<float>());
        }
    };
    // Isolated: a thread that waits here with the lock must not run part of another loop that needs the lock.
    tbb::this_task_arena::isolate([&] { forEachRow(extent.height, fillRow); });
    return result;
}

// Takes over writes to the picture behind the tiles. Called under the lock.
void KepTiledImageData::settle() const
{
    if (!behind)
        return;
    const auto takeOver = [&](int i) {
        auto& tile = tiles[static_cast<std::size_t>(i)];
        const _Rect<int> place = tileRect(static_cast<std::size_t>(i));
        if (!tile || !equals(*tile, *behind, place))
            tile = behind->copy(place);
    };
    tbb::this_task_arena::isolate([&] { forEachRow(static_cast<int>(tiles.size()), takeOver); });
    behind.reset();
}

void KepTiledImageData::blendWithImageData(const Picture& picture, const ResizeParameters& parameters)
{
    const _Rect<int> whole = parameters.rect == _Rect<int>() ? rect() : parameters.rect;
    std::shared_ptr<Picture> fitting = picture.resize(whole.size(), {}, true);
    if (profile && (!fitting->colorProfile() || *fitting->colorProfile() != *profile))
        fitting->convertTo(profile);
    const _Rect<int> part = clipped(whole, extent);
    const std::lock_guard lock(mutex);
    settle();
    for (std::size_t i = 0; i < tiles.size(); ++i) {
        const _Rect<int> place = tileRect(i);
        const int left = std::max(place.x, part.x);
        const int top = std::max(place.y, part.y);
        const int right = std::min(place.x + place.width, part.x + part.width);
        const int bottom = std::min(place.y + place.height, part.y + part.height);
        if (left >= right || top >= bottom)
            continue;
        auto own = tiles[i] ? tiles[i]->copy({}) : std::make_shared<Picture>(place.size(), PixelRGB<float>(), profile);
        for (int y = top; y < bottom; ++y)
            std::memcpy(static_cast<void*>(own->row(y - place.y) + (left - place.x)),
                        fitting->row(y - whole.y) + (left - whole.x), rowBytes(right - left));
        tiles[i] = std::move(own);
    }
}

std::shared_ptr<const TiledImageData::Picture> KepTiledImageData::imageData() const
{
    const std::lock_guard lock(mutex);
    settle();
    return flattened();
}

std::shared_ptr<TiledImageData::Picture> KepTiledImageData::imageData()
{
    const std::lock_guard lock(mutex);
    settle();
    behind = flattened();
    return behind;
}

TiledImageData::Tiles KepTiledImageData::getTiles() const
{
    const std::lock_guard lock(mutex);
    settle();
    return tiles;
}

void KepTiledImageData::prepareImageData(const _Rect<int>& rect_, const Producer& producer, bool)
{
    const _Rect<int> part = rect_ == _Rect<int>() ? rect() : clipped(rect_, extent);
    if (part.width == 0 || part.height == 0)
        return;
    const std::lock_guard lock(mutex);
    settle();
    const int firstColumn = part.x / kTileSize;
    const int lastColumn = (part.x + part.width - 1) / kTileSize;
    for (int row = part.y / kTileSize; row <= (part.y + part.height - 1) / kTileSize; ++row) {
        const auto place = [&](int column) {
            return static_cast<std::size_t>(row) * static_cast<std::size_t>(columns()) +
                   static_cast<std::size_t>(column);
        };
        for (int begin = firstColumn; begin <= lastColumn;) {
            if (tiles[place(begin)]) {
                ++begin;
                continue;
            }
            int end = begin + 1;
            while (end <= lastColumn && !tiles[place(end)])
                ++end;
            const _Rect<int> first = tileRect(place(begin));
            const _Rect<int> last = tileRect(place(end - 1));
            const _Rect<int> strip{first.x, first.y, last.x + last.width - first.x, first.height};
            std::shared_ptr<const Picture> picture = producer(strip, profile);
            if (!picture || picture->size() != strip.size())
                throw std::runtime_error("KepTiledImageData: a strip of " + text(strip.size()) + " was expected, " +
                                         (picture ? text(picture->size()) : std::string("nothing")) + " came");
            if (profile && (!picture->colorProfile() || *picture->colorProfile() != *profile)) {
                std::shared_ptr<Picture> converted; // the producer's picture is const
                tbb::this_task_arena::isolate([&] { picture->colorTransform(converted, profile, true); });
                picture = converted;
            }
            for (int column = begin; column < end; ++column)
                tiles[place(column)] = picture->copy({(column - begin) * kTileSize, 0, kTileSize, kTileSize});
            begin = end;
        }
    }
}

void KepTiledImageData::copyTo(const std::shared_ptr<KepTiledImageData>& target) const
{
    if (!target || target->extent != extent)
        throw std::invalid_argument("KepTiledImageData::copyTo: a target of " + text(extent) + " is needed");
    Tiles shared = getTiles();
    const std::lock_guard lock(target->mutex);
    target->behind.reset();
    target->tiles = std::move(shared);
    target->profile = profile;
}

void KepTiledImageData::setTile(int column, int row, std::shared_ptr<const Picture> tile)
{
    const std::size_t index =
        static_cast<std::size_t>(row) * static_cast<std::size_t>(columns()) + static_cast<std::size_t>(column);
    if (column < 0 || column >= columns() || row < 0 || row >= rows() ||
        (tile && tile->size() != tileRect(index).size()))
        throw std::invalid_argument("KepTiledImageData::setTile: no tile of that size has its place there");
    const std::lock_guard lock(mutex);
    settle();
    tiles[index] = std::move(tile);
}

std::shared_ptr<KepTiledImageData> getKepModifiedImageData(const std::shared_ptr<Image>& image)
{
    return image ? std::dynamic_pointer_cast<KepTiledImageData>(image->modifiedImageData()) : nullptr;
}

} // namespace orvo
