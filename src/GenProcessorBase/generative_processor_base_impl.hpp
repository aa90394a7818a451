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
    /// The tool's edited picture. Used on the queue's worker.
    class WorkingImage
    {
    public:
        virtual ~WorkingImage();
        /// A copy of the current picture, scaled and cropped; empty if there is none.
        [[nodiscard]] virtual std::shared_ptr<_ImageData<PixelRGB<float>>>
        imageData(const ResizeParameters& parameters) = 0;
        [[nodiscard]] virtual std::int32_t width() const = 0;
        [[nodiscard]] virtual std::int32_t height() const = 0;
        [[nodiscard]] virtual _Rect<int> rect() const = 0;
        /// Changes with the content.
        [[nodiscard]] virtual std::string identifier() const = 0;
    };

    /// The geometry of the last request: generateRequest() writes it, applyGeneratedResponse() reads it. A plain
    /// record.
    struct RequestParameters
    {
        _Rect<int> rect;                         ///< the part to process, in pixels of the canvas
        _Rect<int> sourceRect;                   ///< expand only: the picture's place on the canvas
        _Size<int> downsampledSize;              ///< of the answer before it is enlarged to `rect`
        std::shared_ptr<_ImageData<float>> mask; ///< the blend mask, of the size of `rect`
        std::shared_ptr<const _ImageData<PixelRGB<float>>> spare;
        std::string id;
        std::shared_ptr<_ImageData<PixelRGB<float>>> canvas; ///< expand only: the sent canvas at full size
    };

    explicit GenerativeProcessorBaseImpl(std::shared_ptr<Image> source);
    virtual ~GenerativeProcessorBaseImpl();
    GenerativeProcessorBaseImpl(const GenerativeProcessorBaseImpl&) = delete;
    GenerativeProcessorBaseImpl& operator=(const GenerativeProcessorBaseImpl&) = delete;

    /// The overlay of a render; empty for none.
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
    /// Ids of the states stored before any edit.
    std::set<std::shared_ptr<const Identifier>, Comparator> initialStateIds;
    bool initialState = true;
    std::int32_t maxRequestPixels = 8000000;
    std::int32_t maxRequestBase64Size = 9000000;
    float maxRequestAspect = 2.45f;
};

} // namespace orvo
