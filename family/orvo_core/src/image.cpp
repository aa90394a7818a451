#include <orvo_common/uuid.hpp>
#include <orvo_core/image.hpp>

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
