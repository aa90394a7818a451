/// The working state of an expand tool.
#pragma once

#include "GenProcessorBase/generative_processor_base_impl.hpp"
#include "GenProcessorBase/state_index.hpp"

#include <orvo/resource_manager.hpp>
#include <orvo_core/identifier.hpp>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace orvo {

class GenerativeExpandImpl
{
public:
    /// One entry of the undo store.
    struct State
    {
        std::shared_ptr<_ImageData<PixelRGB<float>>> picture; ///< shared: it is replaced, never changed
        GenerativeProcessorBaseImpl::RequestParameters requestParameters;
        std::vector<std::string> resourceKeys;
        std::shared_ptr<const Identifier> id;

        void archive(ResourceManager& resources);
        void release();
        /// Throws std::runtime_error if the picture is lost.
        void load(const ResourceManager& resources);
    };

    std::shared_ptr<StateIndex<State>> stateIndex = std::make_shared<StateIndex<State>>();
};

/// The picture of an expand tool. Every answer replaces it as a whole.
class WorkingImageExpand final : public GenerativeProcessorBaseImpl::WorkingImage
{
public:
    /// Replaces the content and gives it a new identity for the caches.
    void set(std::shared_ptr<_ImageData<PixelRGB<float>>> newImage);

    ~WorkingImageExpand() override;
    [[nodiscard]] std::shared_ptr<_ImageData<PixelRGB<float>>> imageData(const ResizeParameters& parameters) override;
    [[nodiscard]] std::int32_t width() const override;
    [[nodiscard]] std::int32_t height() const override;
    [[nodiscard]] _Rect<int> rect() const override;
    [[nodiscard]] std::string identifier() const override;

    std::shared_ptr<_ImageData<PixelRGB<float>>> image;
    std::string id;
};

} // namespace orvo
