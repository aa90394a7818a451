#include "GenProcessorBase/detached_call.hpp"
#include "GenProcessorBase/generative_processor_base_impl.hpp"
#include "GenProcessorBase/render_view.hpp"
#include "GenProcessorBase/tool_calls.hpp"

#include <orvo_core/display.hpp>
#include <orvo_extensions/generative_processor.hpp>
#include <orvo_extensions/operations.hpp>

#include <utility>

namespace orvo {
namespace {

// Everything a render reads, so that later changes cannot affect it.
struct RenderSnapshot
{
    GenerativeProcessorBase::Update update;
    std::shared_ptr<GenerativeProcessorBaseImpl::WorkingImage> workingImage;
    std::shared_ptr<Image> image;
    std::shared_ptr<std::vector<RenderCache>> caches;
    std::shared_ptr<PostRenderDataI> postRenderData;
    bool compareBlindMode;
    bool quickPreview;
    std::shared_ptr<opq::OperationQueue> callbackQueue;

    // at(), since the vector may be too short.
    [[nodiscard]] RenderCache& modifiedCache() const { return caches->at(0); }
    [[nodiscard]] RenderCache& uneditedCache() const { return caches->at(1); }

    [[nodiscard]] std::shared_ptr<const _ImageData<PixelRGB<float>>> unedited() const
    {
        return getDevelopedOriginalImageData(update, image, uneditedCache());
    }

    void deliver(std::shared_ptr<const _ImageData<PixelRGB<float>>> shown,
                 std::shared_ptr<const _ImageData<PixelRGB<float>>> unedited) const
    {
        enqueue(update.callback, {std::move(shown), std::move(unedited), update.context}, callbackQueue);
    }

    void deliverUnedited() const
    {
        const auto shown = unedited();
        deliver(shown, compareBlindMode ? shown : nullptr);
    }

    void renderMain(SourceLocation location) const
    {
        if (!update.callback)
            return;
        if (quickPreview) {
            deliverUnedited();
            return;
        }
        const auto modified = getDevelopedModifiedImageData(
            update.colorProfile, update.context.size, update.context.roi, workingImage, modifiedCache(), location);
        const auto shown = postRender(postRenderData, modified, update.context, PostRenderType::Main);
        if (!shown) {
            LOG(__orvolog() << LogMessageType::Warning << functionSignature() << ": Empty post render.");
            return;
        }
        deliver(shown, compareBlindMode ? unedited() : nullptr);
    }

    void renderUnderlay() const
    {
        if (!update.callback)
            return;
        if (quickPreview) {
            deliverUnedited();
            return;
        }
        const auto modified = getDevelopedModifiedImageData(update.colorProfile, update.context.size, {}, workingImage,
                                                            modifiedCache(), SourceLocation::current());
        const auto shown = postRender(postRenderData, modified, update.context, PostRenderType::Underlay);
        deliver(shown, compareBlindMode ? unedited() : nullptr);
    }
};

void replace(std::shared_ptr<opq::Operation>& latest, std::shared_ptr<opq::Operation> render, bool keepPending)
{
    if (latest && !keepPending)
        latest->cancel();
    latest = std::move(render);
}

} // namespace

GenerativeProcessorBase::GenerativeProcessorBase(const StateSource&) {}

GenerativeProcessorBase::GenerativeProcessorBase(const std::shared_ptr<Composer>&) {}

GenerativeProcessorBase::GenerativeProcessorBase(const std::shared_ptr<const _ImageData<PixelRGB<float>>>&) {}

GenerativeProcessorBase::~GenerativeProcessorBase()
{
    // The delivery queue must end after the work, and on this thread. If a render held its last reference, the worker
    // would wait for a callback that may itself be waiting for the worker here.
    const auto deliveries = impl ? impl->callbackQueue : nullptr;
    impl.reset();
}

void GenerativeProcessorBase::setFailureCallback(FailureCallback callback) { failureCallback = std::move(callback); }

_Size<int> GenerativeProcessorBase::getCanvasSize() const { return impl ? impl->canvasSize : _Size<int>(); }

void GenerativeProcessorBase::initRender(RenderCallback callback, PreviewContext context)
{
    mainUpdate.context = context;
    mainUpdate.callback = std::move(callback);
    renderMain();
}

void GenerativeProcessorBase::initUnderlayRender(RenderCallback callback, int maxSize)
{
    underlayMaxSize = maxSize;
    defineUnderlaySize();
    underlayUpdate.callback = std::move(callback);
    renderUnderlay();
}

void GenerativeProcessorBase::setRenderContext(PreviewContext context, bool render)
{
    mainUpdate.context = context;
    if (render)
        renderMain();
}

void GenerativeProcessorBase::changeColorProfile(std::shared_ptr<ColorProfile> profile)
{
    if (profile == mainUpdate.colorProfile)
        return;
    mainUpdate.colorProfile = profile;
    underlayUpdate.colorProfile = std::move(profile);
    renderMain();
    renderUnderlay();
}

void GenerativeProcessorBase::generateDataForExport(std::function<void(RenderedData)> callback)
{
    if (!impl)
        return;
    const auto exportAll = [where = functionSignature(), callback = std::move(callback),
                            workingImage = impl->workingImage, profile = mainUpdate.colorProfile] {
        RenderedData data;
        // A failure is delivered too, since the receiver waits for its picture.
        guardedCall(where, [&] { data.image = prepareToDisplay(workingImage->imageData({{}, {}, true}), profile); });
        if (data.image)
            data.context = {data.image->size(), {0, 0, data.image->width(), data.image->height()}};
        data.isPlaceholder = !data.image;
        data.colorProfile = ColorProfileType::melissaRGB();
        if (callback)
            callDetached([callback, data] { callback(data); });
    };
    impl->queue.addOperation(std::make_shared<opq::FunctionOperation>(exportAll, ""));
}

void GenerativeProcessorBase::beginCompareBlindMode()
{
    compareBlindMode = true;
    renderMain();
}

void GenerativeProcessorBase::finishCompareBlindMode() { compareBlindMode = false; }

void GenerativeProcessorBase::quickPreviewOn()
{
    quickPreview = true;
    renderMain();
}

void GenerativeProcessorBase::quickPreviewOff()
{
    quickPreview = false;
    renderMain();
}

bool GenerativeProcessorBase::isInInitialState() { return !impl || impl->initialState; }

void GenerativeProcessorBase::setConfiguration(const Configuration& newConfiguration)
{
    configuration = newConfiguration;
}

void GenerativeProcessorBase::renderAll(SourceLocation location)
{
    renderMain(location);
    renderUnderlay();
}

void GenerativeProcessorBase::renderMain(SourceLocation location)
{
    if (!impl)
        return;
    const RenderSnapshot snapshot{mainUpdate,   impl->workingImage,     impl->image,
                                  impl->caches, impl->postRenderData(), compareBlindMode,
                                  quickPreview, impl->callbackQueue};
    const auto render = std::make_shared<opq::FunctionOperation>(
        [snapshot, location] { snapshot.renderMain(location); }, std::string());
    replace(impl->mainOperation, render, configuration.keepPendingRenders);
    impl->queue.addOperation(render);
}

void GenerativeProcessorBase::renderUnderlay()
{
    if (!impl)
        return;
    const RenderSnapshot snapshot{underlayUpdate,         impl->workingImage, impl->image,  impl->caches,
                                  impl->postRenderData(), compareBlindMode,   quickPreview, impl->callbackQueue};
    const auto render =
        std::make_shared<opq::FunctionOperation>([snapshot] { snapshot.renderUnderlay(); }, std::string());
    replace(impl->underlayOperation, render, configuration.keepPendingRenders);
    impl->queue.addOperation(render);
}

void GenerativeProcessorBase::defineUnderlaySize()
{
    if (!impl)
        return;
    underlayUpdate.context.size = scaleSizeToMax(impl->canvasSize, underlayMaxSize);
    underlayUpdate.context.roi = {0, 0, impl->canvasSize.width, impl->canvasSize.height};
}

} // namespace orvo
