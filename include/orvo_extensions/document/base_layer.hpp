/// The root of the layers of a document.
#pragma once

#include <orvo_common/export.hpp>
#include <orvo_core/image_data.hpp>

#include <memory>
#include <utility>
#include <vector>

namespace orvo {

class BrushController;
class BrushQueue;
class Effect;
class PreProcessInfo;

/// Copies share the brush and the queue.
class ORVO_EXPORT BaseLayer
{
public:
    BaseLayer();
    virtual ~BaseLayer();
    BaseLayer(const BaseLayer&);
    BaseLayer& operator=(const BaseLayer&);

    /// The value of the layer's mask where nothing is painted.
    [[nodiscard]] virtual float defaultMaskValue() const;
    /// The picture below the layer, for layers that keep one. Here: does nothing, and returns an empty pointer.
    virtual void setBaseImage(std::shared_ptr<const _ImageData<PixelRGB<float>>> image);
    [[nodiscard]] virtual std::shared_ptr<const _ImageData<PixelRGB<float>>> getBaseImage() const;
    /// Called before `effects` run. Here: does nothing.
    virtual void preProcess(std::shared_ptr<PreProcessInfo>& info, std::vector<Effect*>& effects);
    /// Undoes preProcess(). Here: does nothing.
    virtual void preProcessReset(std::shared_ptr<PreProcessInfo>& info);
    /// Drops the data that edits keep between runs. Here: does nothing.
    virtual void cleanEditsCache();

    /// Empty if nothing is painted on the layer. The brush belongs to the application and is only passed on.
    [[nodiscard]] const std::shared_ptr<BrushController>& getBrushController() const { return brushController; }
    void setBrushController(std::shared_ptr<BrushController> controller) { brushController = std::move(controller); }
    /// The queue of strokes on the layer. The setter replaces the current one.
    void setBrushQueue(std::shared_ptr<BrushQueue> queue) { brushQueue = std::move(queue); }
    [[nodiscard]] const std::shared_ptr<BrushQueue>& getBrushQueue() const { return brushQueue; }
    [[nodiscard]] bool isLensPreviewEffectAmountChanged() const { return lensPreviewEffectAmountChanged; }
    void setLensPreviewEffectAmountChanged(bool changed) { lensPreviewEffectAmountChanged = changed; }

private:
    std::shared_ptr<BrushController> brushController;
    std::shared_ptr<BrushQueue> brushQueue;
    bool lensPreviewEffectAmountChanged = false;
};

} // namespace orvo
