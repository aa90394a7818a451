#include "GenProcessorBase/render_view.hpp"

#include "GenProcessorBase/detached_call.hpp"
#include "GenProcessorBase/rectangles.hpp"

#include <orvo_core/display.hpp>
#include <orvo_extensions/operations.hpp>

#include <string>
#include <utility>

namespace orvo {
namespace {

std::string text(const _Rect<int>& rect)
{
    return "(x:" + std::to_string(rect.x) + " y:" + std::to_string(rect.y) + " w:" + std::to_string(rect.width) +
           " h:" + std::to_string(rect.height) + ")";
}

std::string invalidRoi(const _Rect<int>& roi, const _Rect<int>& bounds)
{
    return "Invalid render context roi: " + text(roi) + ", while source has: " + text(bounds);
}

} // namespace

std::shared_ptr<const _ImageData<PixelRGB<float>>>
getDevelopedModifiedImageData(std::shared_ptr<ColorProfile> profile, const _Size<int>& size, const _Rect<int>& roi,
                              const std::shared_ptr<GenerativeProcessorBaseImpl::WorkingImage>& workingImage,
                              RenderCache& cache, SourceLocation location)
{
    const _Rect<int> bounds = workingImage->rect();
    const _Rect<int> clipped = intersected(roi, bounds);
    if (clipped != roi)
        LOG(__orvolog() << LogMessageType::Error << functionSignature() << ": " << invalidRoi(roi, bounds)
                        << " called from " << location.function_name());
    ImageCacheKey key(clipped, size,
                      workingImage->identifier() + " " + std::to_string(workingImage->width()) + "x" +
                          std::to_string(workingImage->height()) + "_colorProfile_" +
                          (profile ? profile->hash() : std::string()));
    return cache
        .get(std::move(key),
             [workingImage, size, clipped, profile]() -> std::shared_ptr<const _ImageData<PixelRGB<float>>> {
                 return prepareToDisplay(workingImage->imageData({size, clipped, true}), profile);
             })
        .get();
}

std::shared_ptr<const _ImageData<PixelRGB<float>>>
getDevelopedOriginalImageData(const GenerativeProcessorBase::Update& update, const std::shared_ptr<Image>& image,
                              RenderCache& cache)
{
    const _Rect<int> roi = update.context.roi;
    const _Rect<int> bounds = image->rect();
    const _Rect<int> clipped = intersected(roi, bounds);
    if (clipped != roi)
        LOG(__orvolog() << LogMessageType::Error << functionSignature() << ": " << invalidRoi(roi, bounds));
    const auto size = update.context.size;
    const auto profile = update.colorProfile;
    ImageCacheKey key(clipped, size, "_colorProfile_" + (profile ? profile->hash() : std::string()));
    return cache
        .get(std::move(key),
             [image, size, clipped, profile]() -> std::shared_ptr<const _ImageData<PixelRGB<float>>> {
                 return prepareToDisplay(image->developedOriginalImageData({size, clipped, true})->copy({}), profile);
             })
        .get();
}

void enqueue(std::function<void(NoAlphaRender::Data)> callback, NoAlphaRender::Data data,
             const std::shared_ptr<opq::OperationQueue>& queue)
{
    if (!callback)
        return;
    auto delivery = [callback = std::move(callback), data = std::move(data)] { callback(data); };
    if (queue)
        queue->addOperation(std::make_shared<opq::FunctionOperation>(delivery, ""));
    else
        callDetached(delivery);
}

} // namespace orvo
