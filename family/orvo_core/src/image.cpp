#include <orvo_common/uuid.hpp>
#include <orvo_core/image.hpp>
#include <orvo_core/parallel.hpp>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <stdexcept>

namespace orvo {

ImageSource::ImageSource(std::shared_ptr<const _ImageData<PixelRGB<float>>> pixels_,
                         std::shared_ptr<const ImageMetadata> metadata_,
                         std::shared_ptr<AdditionalRawMetadata> rawMetadata_)
    : shared(std::move(pixels_)), description(std::move(metadata_)), rawDescription(std::move(rawMetadata_))
{}

std::shared_ptr<ImageSource> ImageSource::owning(std::shared_ptr<_ImageData<PixelRGB<float>>> pixels,
                                                 std::shared_ptr<const ImageMetadata> metadata,
                                                 std::shared_ptr<AdditionalRawMetadata> rawMetadata)
{
    auto source = std::make_shared<ImageSource>(pixels, std::move(metadata), std::move(rawMetadata));
    source->owned = std::move(pixels);
    return source;
}

BaseImage::~BaseImage() = default;

TiledImageData::~TiledImageData() = default;

Image::Image(std::shared_ptr<ImageSource> source_) : source(std::move(source_)), guid(generateUUID())
{
    if (!source || !source->pixels())
        throw std::invalid_argument("Image: the source has no pixels");
}

Image::~Image() = default;

_Size<int> Image::size() const { return source->pixels()->size(); }

std::shared_ptr<const ImageMetadata> Image::metadata() const { return source->metadata(); }

std::shared_ptr<AdditionalRawMetadata> Image::getAdditionalRawMetadata() const { return source->rawMetadata(); }

namespace {

bool isWhole(const Image& image, _Size<int> size, _Rect<int> rect)
{
    const bool wholeRect = rect == _Rect<int>() || rect == image.rect();
    return wholeRect && (size == _Size<int>() || size == image.size());
}

} // namespace

std::shared_ptr<_ImageData<PixelRGB<float>>> Image::imageData(_Size<int> size_, _Rect<int> rect_, bool flag) const
{
    if (isWhole(*this, size_, rect_))
        return source->ownPixels() ? source->ownPixels() : source->pixels()->copy({});
    return source->pixels()->resize(size_, rect_, flag);
}

std::shared_ptr<const _ImageData<PixelRGB<float>>>
Image::developedOriginalImageData(const ResizeParameters& parameters) const
{
    if (isWhole(*this, parameters.size, parameters.rect))
        return source->pixels();
    return source->pixels()->resize(parameters.size, parameters.rect, parameters.flag);
}

namespace {

using Picture = TiledImageData::Picture;

// The pixels of `part` from the tiles; missing tiles come from `original`.
std::shared_ptr<Picture> assembled(const TiledImageData& tiles, const Picture& original, const _Rect<int>& part)
{
    auto all = tiles.getTiles();
    const int side = tiles.getTileSize();
    const int columns = (tiles.size().width + side - 1) / side;
    const auto tileOver = [&](int x, int y) -> std::shared_ptr<const Picture>& {
        return all[static_cast<std::size_t>(y / side) * static_cast<std::size_t>(columns) +
                   static_cast<std::size_t>(x / side)];
    };
    const int right = part.x + part.width;
    const int bottom = part.y + part.height;
    for (int y = part.y / side * side; y < bottom; y += side)
        for (int x = part.x / side * side; x < right; x += side)
            if (auto& tile = tileOver(x, y); !tile) {
                std::shared_ptr<Picture> computed;
                original.copy({x, y, side, side})->colorTransform(computed, tiles.getColorProfile(), true);
                tile = computed;
            }
    auto result = std::make_shared<Picture>(part.size(), tiles.getColorProfile());
    forEachRow(part.height, [&](int row) {
        const int y = part.y + row;
        for (int x = part.x; x < right;) {
            const int end = std::min(x / side * side + side, right);
            std::memcpy(static_cast<void*>(result->row(row) + (x - part.x)), tileOver(x, y)->row(y % side) + x % side,
                        static_cast<std::size_t>(end - x) * sizeof(PixelRGB<float>));
            x = end;
        }
    });
    return result;
}

// The part of a picture of `size` needed for `shown`, clipped; never empty.
_Rect<int> neededFor(const _Rect<int>& shown, _Size<int> size)
{
    constexpr std::int64_t kReach = 2; // samples beyond the part read when the picture grows
    const auto limited = [](std::int64_t value, int lower, int upper) {
        return static_cast<int>(std::clamp<std::int64_t>(value, lower, upper));
    };
    const int left = limited(shown.x - kReach, 0, size.width - 1);
    const int top = limited(shown.y - kReach, 0, size.height - 1);
    const int right = limited(std::int64_t{shown.x} + shown.width + kReach, left + 1, size.width);
    const int bottom = limited(std::int64_t{shown.y} + shown.height + kReach, top + 1, size.height);
    return {left, top, right - left, bottom - top};
}

} // namespace

std::shared_ptr<const _ImageData<PixelRGB<float>>>
Image::developedModifiedImageData(const ResizeParameters& parameters) const
{
    const auto data = modifiedImageData();
    if (!data)
        return developedOriginalImageData(parameters);
    const _Rect<int> shown = parameters.rect == _Rect<int>() ? rect() : parameters.rect;
    const _Rect<int> needed = neededFor(shown, size());
    const bool asItIs = parameters.size == _Size<int>() || parameters.size == shown.size();
    const bool inside = shown.x >= needed.x && shown.y >= needed.y &&
                        std::int64_t{shown.x} + shown.width <= needed.x + needed.width &&
                        std::int64_t{shown.y} + shown.height <= needed.y + needed.height;
    if (asItIs && inside)
        return assembled(*data, *source->pixels(), shown);
    return assembled(*data, *source->pixels(), needed)
        ->resize(parameters.size, {shown.x - needed.x, shown.y - needed.y, shown.width, shown.height}, parameters.flag);
}

void Image::setModifiedImageData(std::shared_ptr<TiledImageData> data, const std::string& id)
{
    if (data && data->size() != size())
        throw std::invalid_argument("Image::setModifiedImageData: the tiles have " +
                                    std::to_string(data->size().width) + " x " + std::to_string(data->size().height) +
                                    " pixels, the picture " + std::to_string(width()) + " x " +
                                    std::to_string(height()));
    std::string name = id.empty() ? generateUUID() : id;
    const std::lock_guard lock(mutex);
    modified.swap(data);
    guid.swap(name);
}

std::shared_ptr<TiledImageData> Image::modifiedImageData() const
{
    const std::lock_guard lock(mutex);
    return modified;
}

std::string Image::getGUID() const
{
    const std::lock_guard lock(mutex);
    return guid;
}

std::shared_ptr<Image> CreateOrvoImage(std::shared_ptr<const _ImageData<PixelRGB<float>>> pixels)
{
    if (!pixels)
        throw std::invalid_argument("CreateOrvoImage: no pixels");
    auto metadata = std::make_shared<ImageMetadata>();
    metadata->size = pixels->size();
    metadata->fileProfile = pixels->colorProfile();
    return CreateOrvoImage(std::move(pixels), std::move(metadata));
}

std::shared_ptr<Image> CreateOrvoImage(std::shared_ptr<const _ImageData<PixelRGB<float>>> pixels,
                                       std::shared_ptr<const ImageMetadata> metadata)
{
    return std::make_shared<Image>(std::make_shared<ImageSource>(std::move(pixels), std::move(metadata), nullptr));
}

} // namespace orvo
