/// The working state of an erase tool.
#pragma once

#include "GenProcessorBase/generative_processor_base_impl.hpp"
#include "GenProcessorBase/state_index.hpp"

#include <orvo/resource_manager.hpp>
#include <orvo_brush/drawing_controller.hpp>
#include <orvo_core/identifier.hpp>
#include <orvo_core/tiled_image_data.hpp>
#include <orvo_image_processing/tiled_mask_image.hpp>

#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace orvo {

class GenerativeEraseProcessorImpl final : public GenerativeProcessorBaseImpl
{
public:
    /// The state of mask and brush. Used on the queue's worker.
    struct BrushInfo
    {
        BrushInfo();

        std::shared_ptr<TiledMaskImage> mask; ///< between phases; empty while one runs
        bool showMask = false;
        std::shared_ptr<DrawingController> controller; ///< set while a phase runs
        /// The latest stored masks, oldest first.
        std::vector<std::pair<DrawingState, std::shared_ptr<const Identifier>>> drawingStates;
        ResourceManager resources; ///< the older ones

        void storeDrawingState(DrawingState state, std::shared_ptr<const Identifier> id);
        /// The mask stored under the id, which becomes the newest; nothing for an unknown id.
        [[nodiscard]] std::optional<DrawingState> findDrawingState(const std::shared_ptr<const Identifier>& id);
    };

    /// One entry of the undo store.
    struct State
    {
        std::shared_ptr<TiledImageData> modifiedData; ///< empty: the picture was unedited
        std::shared_ptr<TiledMaskImage> mask;         ///< shared: a phase draws on a copy
        bool showMask = false;
        RequestParameters requestParameters;
        std::vector<std::string> resourceKeys;
        std::shared_ptr<const Identifier> id;

        void archive(ResourceManager& resources);
        void release();
        void load(const ResourceManager& resources);
    };

    explicit GenerativeEraseProcessorImpl(std::shared_ptr<Image> source);
    ~GenerativeEraseProcessorImpl() override;

    [[nodiscard]] std::shared_ptr<PostRenderDataI> postRenderData() override;

    std::shared_ptr<BrushInfo> brushInfo;
    std::shared_ptr<StateIndex<State>> stateIndex;
};

/// The picture of an erase tool: its image with the edits.
class WorkingImageErase final : public GenerativeProcessorBaseImpl::WorkingImage
{
public:
    std::shared_ptr<Image> image; ///< the processor's

    ~WorkingImageErase() override;
    [[nodiscard]] std::shared_ptr<_ImageData<PixelRGB<float>>> imageData(const ResizeParameters& parameters) override;
    [[nodiscard]] std::int32_t width() const override;
    [[nodiscard]] std::int32_t height() const override;
    [[nodiscard]] _Rect<int> rect() const override;
    [[nodiscard]] std::string identifier() const override;
};

/// Shows the mask of an erase tool: during a phase in the main channel, and with showMask outside of it in both.
struct PostRenderDataErase final : PostRenderDataI
{
    explicit PostRenderDataErase(std::shared_ptr<GenerativeEraseProcessorImpl::BrushInfo> info);
    ~PostRenderDataErase() override;
    [[nodiscard]] std::shared_ptr<const MaskImage> maskToShow(const PreviewContext& context,
                                                              PostRenderType channel) const override;

    std::shared_ptr<GenerativeEraseProcessorImpl::BrushInfo> brushInfo;
};

} // namespace orvo
