/// What a view shows of a processor's picture, and where the processor stores intermediate results.
#pragma once

#include <orvo_common/export.hpp>
#include <orvo_extensions/document/image_processor_interface.hpp>

#include <cstdint>
#include <memory>

namespace orvo {

class ResourceManager;

/// Which pixels a view marks. Further values belong to the library that draws the marks.
enum class OverlayPixelsType : std::int32_t
{
    None = 0,
};

/// The library that runs layers derives from it. Not copyable, because it owns its dumper.
class ORVO_EXPORT ImageProcessor : public ImageProcessorInterface
{
public:
    ImageProcessor();
    ~ImageProcessor() override;
    ImageProcessor(const ImageProcessor&) = delete;
    ImageProcessor& operator=(const ImageProcessor&) = delete;

    /// The index of the layer that receives edits.
    [[nodiscard]] int getCurrentLayerIndex() const { return currentLayerIndex; }
    void setCurrentLayerIndex(int index) { currentLayerIndex = index; }
    /// An EXIF orientation.
    static constexpr int kUpright = 1;
    [[nodiscard]] int getImageOrientation() const { return imageOrientation; }
    void setImageOrientation(int orientation) { imageOrientation = orientation; }
    /// Replaces and destroys the current store of intermediate results. An empty pointer removes it.
    virtual void setDumper(std::unique_ptr<ResourceManager> store);
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

protected:
    /// Null if there is none. Remains owned by the processor, and is valid until the next setDumper().
    [[nodiscard]] ResourceManager* getDumper() const { return dumper.get(); }

private:
    std::int32_t currentLayerIndex = 0;
    std::int32_t imageOrientation = kUpright;
    OverlayPixelsType overlayPixels = OverlayPixelsType::None;
    bool hotPixels = false;
    bool coldPixels = false;
    std::unique_ptr<ResourceManager> dumper;
};

} // namespace orvo
