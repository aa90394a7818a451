/// A composition: a picture with a crop and settings.
#pragma once

#include <orvo/image_loader.hpp>
#include <orvo_common/export.hpp>
#include <orvo_core/crop_description.hpp>
#include <orvo_core/geometry.hpp>
#include <orvo_core/image.hpp>
#include <orvo_extensions/preview.hpp>

#include <atomic>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace orvo {

/// How a layer blends with the layers below.
struct ORVO_EXPORT BlendParameters
{
    float opacity = 1.0f; ///< stored only: there is one layer and nothing below it
    std::int32_t mode = 0;
};

/// How a layer fits the canvas.
enum class ComposerScaleMode : std::int32_t
{
    Fill = 0, ///< resizes the picture to the canvas
};

/// One picture layer on a canvas, cropped and adjusted. One thread at a time.
///
/// A saved composition is a JSON object; every member is optional:
///   {"crop": {"angle": 0.1, "rect": [10, 20, 300, 200], "scale": [1, 1]}, "settings": {"exposure": 0.5}}
/// `angle` in radians and `rect` in pixels of the canvas, as in CropDescription; `exposure` in EV, -10 to 10.
///
/// Example:
///   const auto bytes = ImageLoader::load("picture.jpg");
///   Composer composer(ImageLoader::getSize(bytes));
///   composer.createLayer(bytes, {}, ComposerScaleMode::Fill);
///   composer.setCropDescription(crop);
///   const auto image = exportFromComposer(...);
class ORVO_EXPORT Composer
{
public:
    /// Throws std::invalid_argument on an empty canvas.
    explicit Composer(const _Size<int>& canvas);

    /// Replaces the picture on the canvas by the document's. Decodes it at once, so the document may be disposed of
    /// afterwards. Returns the bytes that identify the layer. Throws std::runtime_error if the bytes identify no
    /// readable picture.
    std::vector<unsigned char> createLayer(const std::vector<unsigned char>& bytes, const BlendParameters& parameters,
                                           const ComposerScaleMode& scaleMode);
    /// Calls createLayer() and applies the crop and the settings of `state.composition`. Throws std::runtime_error that
    /// describes the error; the composition is then unchanged.
    void load(const std::vector<unsigned char>& bytes, const StateSettings& state);
    /// Returns the text that load() reads.
    [[nodiscard]] std::string save() const;

    /// Stored only: no setting here needs a preset.
    void setBundlePresetsFolder(const std::filesystem::path& folder) { presetsFolder = folder; }
    [[nodiscard]] const std::filesystem::path& getBundlePresetsFolder() const { return presetsFolder; }

    [[nodiscard]] CropDescription getCropDescription() const { return crop; }
    void setCropDescription(const CropDescription& description) { crop = description; }
    [[nodiscard]] _Size<int> getCanvasSize() const { return canvas; }
    /// In EV, clamped to -10..10.
    void setExposure(float ev);
    [[nodiscard]] float getExposure() const { return exposure; }

    /// Renders the crop, or the whole canvas, at `size` ((0, 0): its own) and calls `done` once with the picture in
    /// melissaRGB(), on the caller's thread, before returning. Parts of the crop outside of the canvas are white. If
    /// `cancel` (may be empty) is set or there is no layer, `done` gets a record without a picture, marked
    /// `isPlaceholder`. `flag` and `preview` are unused. Peak: the result, and with a crop one picture of its size.
    void generateDataForExport(const _Size<int>& size, const std::function<void(RenderedData)>& done, bool flag,
                               const std::function<void(RenderedData)>& preview,
                               const std::shared_ptr<std::atomic<bool>>& cancel) const;

    /// Metadata of the layer's picture; empty without one.
    [[nodiscard]] std::shared_ptr<const ImageMetadata> metadata() const;

private:
    _Size<int> canvas;
    std::shared_ptr<Image> picture;
    CropDescription crop;
    float exposure = 0.0f;
    std::filesystem::path presetsFolder;
};

} // namespace orvo
