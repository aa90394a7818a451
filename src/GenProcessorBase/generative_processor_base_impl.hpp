/// The working state that the generative tools share.
#pragma once

#include "GenProcessorBase/post_render.hpp"
#include "cache/cache.hpp"
#include "cache/image_cache_key.hpp"

#include <orvo/operation_queue.hpp>
#include <orvo_core/identifier.hpp>
#include <orvo_core/image.hpp>

#include <cstdint>
#include <memory>
#include <set>
#include <string>
#include <vector>

namespace orvo {

/// Rendered views, by part, size and content.
using RenderCache = Cache<std::shared_ptr<const _ImageData<PixelRGB<float>>>, ImageCacheKey, 5>;

class GenerativeProcessorBaseImpl
{
public:
    /// The tool's view of the picture that is being edited. Used on the queue's worker.
    class WorkingImage
    {
    public:
        virtual ~WorkingImage();
        /// The current picture, scaled and cut, as the caller's own; empty if there is none.
        [[nodiscard]] virtual std::shared_ptr<_ImageData<PixelRGB<float>>>
        imageData(const ResizeParameters& parameters) = 0;
        [[nodiscard]] virtual std::int32_t width() const = 0;
        [[nodiscard]] virtual std::int32_t height() const = 0;
        [[nodiscard]] virtual _Rect<int> rect() const = 0;
        /// Changes whenever the content does.
        [[nodiscard]] virtual std::string identifier() const = 0;
    };

    /// The geometry of the last request: written when it is generated, read when its answer comes. A plain record.
    struct RequestParameters
    {
        _Rect<int> rect;                         ///< what is processed, in pixels of the canvas
        _Rect<int> sourceRect;                   ///< expanding: where the picture lies in the canvas
        _Size<int> downsampledSize;              ///< of the answer before it is enlarged to `rect`
        std::shared_ptr<_ImageData<float>> mask; ///< to blend by, of the size of `rect`
        std::shared_ptr<const _ImageData<PixelRGB<float>>> spare;
        std::string id;
        std::shared_ptr<_ImageData<PixelRGB<float>>> canvas; ///< expanding: what was sent, at full size
    };

    explicit GenerativeProcessorBaseImpl(std::shared_ptr<Image> source);
    virtual ~GenerativeProcessorBaseImpl();
    GenerativeProcessorBaseImpl(const GenerativeProcessorBaseImpl&) = delete;
    GenerativeProcessorBaseImpl& operator=(const GenerativeProcessorBaseImpl&) = delete;

    /// What a render shows over the picture; empty: nothing.
    [[nodiscard]] virtual std::shared_ptr<PostRenderDataI> postRenderData();

    std::shared_ptr<Image> image; ///< the source
    std::shared_ptr<WorkingImage> workingImage;
    _Size<int> canvasSize;
    opq::OperationQueue queue;
    std::shared_ptr<opq::Operation> mainOperation;     ///< the latest render
    std::shared_ptr<opq::Operation> underlayOperation; ///< the latest render
    std::shared_ptr<std::vector<RenderCache>> caches;  ///< 0: modified, 1: unedited
    std::shared_ptr<RequestParameters> requestParameters;
    std::shared_ptr<opq::OperationQueue> callbackQueue; ///< delivers renders
    /// Ids of states that were stored before anything was changed.
    std::set<std::shared_ptr<const Identifier>, Comparator> initialStateIds;
    bool initialState = true;
    std::int32_t maxRequestPixels = 8000000;
    std::int32_t maxRequestBase64Size = 9000000;
    float maxRequestAspect = 2.45f;
};

} // namespace orvo
