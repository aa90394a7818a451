/// Interfaces of the processor that runs a document's layers.
#pragma once

#include <orvo_common/export.hpp>

#include <cstdint>
#include <string>

namespace orvo {

/// Which pixels a view marks. Further values belong to the library that draws the marks.
enum class OverlayPixelsType : std::int32_t
{
    None = 0,
};

/// Abstract. The library that runs layers derives from it.
class ORVO_EXPORT ImageProcessorInterface
{
public:
    virtual ~ImageProcessorInterface() = 0;
    /// The number of the person that edits are limited to. Here: 0.
    [[nodiscard]] virtual int getCurrentPersonIndex() const;
    /// The identifier of the effect that the user works with. Here: empty.
    [[nodiscard]] virtual std::string getFirstCurrentEffectID() const;
    /// Resets all layers to the state before any edit. Here: does nothing.
    virtual void resetAllLayers();

protected:
    ImageProcessorInterface() = default;
    ImageProcessorInterface(const ImageProcessorInterface&) = default;
    ImageProcessorInterface& operator=(const ImageProcessorInterface&) = default;
};

/// Marks processors that cache. Abstract.
class ORVO_EXPORT iCacheProcessor
{
public:
    virtual ~iCacheProcessor() = 0;

protected:
    iCacheProcessor() = default;
    iCacheProcessor(const iCacheProcessor&) = default;
    iCacheProcessor& operator=(const iCacheProcessor&) = default;
};

/// What a view shows of a processor's picture. The library that runs layers derives from it.
class ORVO_EXPORT ImageProcessor : public ImageProcessorInterface
{
public:
    /// The index of the layer that receives edits.
    [[nodiscard]] int getCurrentLayerIndex() const { return currentLayerIndex; }
    void setCurrentLayerIndex(int index) { currentLayerIndex = index; }
    /// An EXIF orientation.
    static constexpr int kUpright = 1;
    [[nodiscard]] int getImageOrientation() const { return imageOrientation; }
    void setImageOrientation(int orientation) { imageOrientation = orientation; }
    [[nodiscard]] OverlayPixelsType overlayPixelsType() const { return overlayPixels; }
    /// Whether clipped highlights, and clipped shadows, are marked.
    [[nodiscard]] bool showHotPixels() const { return hotPixels; }
    [[nodiscard]] bool showColdPixels() const { return coldPixels; }
    void setOverlayPixels(OverlayPixelsType type, bool hot, bool cold)
    {
        overlayPixels = type;
        hotPixels = hot;
        coldPixels = cold;
    }

private:
    std::int32_t currentLayerIndex = 0;
    std::int32_t imageOrientation = kUpright;
    OverlayPixelsType overlayPixels = OverlayPixelsType::None;
    bool hotPixels = false;
    bool coldPixels = false;
};

} // namespace orvo
