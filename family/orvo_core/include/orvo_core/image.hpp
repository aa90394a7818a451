/// The family's document image: pixels with their metadata.
#pragma once

#include <orvo_common/export.hpp>
#include <orvo_core/image_data.hpp>
#include <orvo_core/image_metadata.hpp>
#include <orvo_core/tiled_image_data.hpp>

#include <memory>
#include <mutex>
#include <string>

namespace orvo {

/// The source of an image's pixels: memory.
class ORVO_EXPORT ImageSource
{
public:
    /// Shared pixels that are never changed.
    ImageSource(std::shared_ptr<const _ImageData<PixelRGB<float>>> pixels,
                std::shared_ptr<const ImageMetadata> metadata, std::shared_ptr<AdditionalRawMetadata> rawMetadata);

    /// Pixels created for this image alone, such as by a reader. Image::imageData() returns them without a copy.
    [[nodiscard]] static std::shared_ptr<ImageSource> owning(std::shared_ptr<_ImageData<PixelRGB<float>>> pixels,
                                                             std::shared_ptr<const ImageMetadata> metadata,
                                                             std::shared_ptr<AdditionalRawMetadata> rawMetadata);

    [[nodiscard]] const std::shared_ptr<const _ImageData<PixelRGB<float>>>& pixels() const { return shared; }
    [[nodiscard]] const std::shared_ptr<_ImageData<PixelRGB<float>>>& ownPixels() const { return owned; }
    [[nodiscard]] const std::shared_ptr<const ImageMetadata>& metadata() const { return description; }
    [[nodiscard]] const std::shared_ptr<AdditionalRawMetadata>& rawMetadata() const { return rawDescription; }

private:
    std::shared_ptr<const _ImageData<PixelRGB<float>>> shared;
    std::shared_ptr<_ImageData<PixelRGB<float>>> owned; // empty, or the same picture as `shared`
    std::shared_ptr<const ImageMetadata> description;
    std::shared_ptr<AdditionalRawMetadata> rawDescription;
};

/// The base of Image: extent and metadata.
class ORVO_EXPORT BaseImage
{
public:
    virtual ~BaseImage();
    [[nodiscard]] virtual _Size<int> size() const = 0;
    [[nodiscard]] virtual std::shared_ptr<const ImageMetadata> metadata() const = 0;
    [[nodiscard]] _Rect<int> rect() const { return {0, 0, size().width, size().height}; }
    [[nodiscard]] int width() const { return size().width; }
    [[nodiscard]] int height() const { return size().height; }
};

/// Owned by std::shared_ptr. Reads from several threads are safe, even while another one sets the modified data.
class ORVO_EXPORT Image final : public BaseImage
{
public:
    /// Throws std::invalid_argument if `source` or its pixels are empty.
    explicit Image(std::shared_ptr<ImageSource> source);
    ~Image() override;

    [[nodiscard]] _Size<int> size() const override;
    [[nodiscard]] std::shared_ptr<const ImageMetadata> metadata() const override;
    [[nodiscard]] std::shared_ptr<AdditionalRawMetadata> getAdditionalRawMetadata() const;

    /// The pixels of `rect` at `size`; a zero size is the picture's own. The whole picture at its own size returns the
    /// pixels themselves if the image owns them (as a reader's does): changing them changes the image. Otherwise a new
    /// picture.
    [[nodiscard]] std::shared_ptr<_ImageData<PixelRGB<float>>> imageData(_Size<int> size, _Rect<int> rect,
                                                                         bool flag) const;

    /// The unedited picture; at full size without a copy.
    [[nodiscard]] std::shared_ptr<const _ImageData<PixelRGB<float>>>
    developedOriginalImageData(const ResizeParameters& parameters) const;

    /// The picture with all edits applied: the modified data, if any, in their profile, with tiles not computed yet
    /// filled in from the unedited picture; else the unedited picture. Makes no copy at full size without modified
    /// data. Peak: the result and the part of the tiles that it shows.
    [[nodiscard]] std::shared_ptr<const _ImageData<PixelRGB<float>>>
    developedModifiedImageData(const ResizeParameters& parameters) const;

    /// Replaces the modified data, which must have the size of this picture (otherwise std::invalid_argument); empty
    /// removes all edits. `id` becomes the text of getGUID(); an empty `id` becomes a new one. The caller must not
    /// write to the tiles afterwards.
    void setModifiedImageData(std::shared_ptr<TiledImageData> data, const std::string& id);
    /// The last modified data set; may be empty.
    [[nodiscard]] std::shared_ptr<TiledImageData> modifiedImageData() const;

    /// A text that stays the same until the content changes.
    [[nodiscard]] std::string getGUID() const;

private:
    std::shared_ptr<ImageSource> source;
    mutable std::mutex mutex; // guards the members below
    std::string guid;
    std::shared_ptr<TiledImageData> modified;
};

/// Wraps pixels in a new Image, without a copy; its metadata contain only the size.
[[nodiscard]] ORVO_EXPORT std::shared_ptr<Image>
CreateOrvoImage(std::shared_ptr<const _ImageData<PixelRGB<float>>> pixels);
[[nodiscard]] ORVO_EXPORT std::shared_ptr<Image>
CreateOrvoImage(std::shared_ptr<const _ImageData<PixelRGB<float>>> pixels,
                std::shared_ptr<const ImageMetadata> metadata);

} // namespace orvo
