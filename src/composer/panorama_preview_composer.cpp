// The methods for the application: each request becomes an operation on the composer's queue.
#include "composer/composer_private.hpp"
#include "frame/call_frame.hpp"
#include "panorama/stitched_places.hpp"

#include <orvo/image_detection.hpp>
#include <orvo_core/image.hpp>
#include <orvo_logger/logstream.hpp>

#include <algorithm>
#include <exception>
#include <string>
#include <utility>

namespace orvo {
namespace {

using Private = PanoramaPreviewComposerPrivate;

// An operation on `state`. It keeps the state alive only while it runs, because a callback may drop the composer.
template <typename Work>
std::shared_ptr<opq::Operation> operationOn(const std::shared_ptr<Private>& state, Work work,
                                            const std::string& identifier = {})
{
    return std::make_shared<opq::FunctionOperation>(
        [watched = std::weak_ptr<Private>(state), work = std::move(work)] {
            if (const auto held = watched.lock())
                work(*held);
        },
        identifier);
}

void replaceWaiting(const Private& state, std::shared_ptr<opq::Operation>& operation)
{
    if (!operation || !state.configuration.replacesWaitingRenders)
        return;
    operation->cancel();
    operation.reset();
}

template <typename Body>
void logExceptions(const std::string& signature, const Body& body)
{
    try {
        body();
    } catch (const std::exception& error) {
        LOG(__orvolog() << LogMessageType::Warning << signature << ": " << error.what());
    } catch (...) {
        LOG(__orvolog() << LogMessageType::Warning << signature << ": not a std::exception");
    }
}

std::string textOf(const PreviewContext& context)
{
    const auto number = [](int value) { return std::to_string(value); };
    return "size: (w:" + number(context.size.width) + " h:" + number(context.size.height) +
           "), roi: (x:" + number(context.roi.x) + " y:" + number(context.roi.y) + " w:" + number(context.roi.width) +
           " h:" + number(context.roi.height) + ")";
}

} // namespace

PanoramaPreviewComposer::PanoramaPreviewComposer(const PanoSource& source) : state(std::make_shared<Private>(source)) {}
PanoramaPreviewComposer::PanoramaPreviewComposer(const PanoSourceVideo& source)
    : state(std::make_shared<Private>(source))
{}
PanoramaPreviewComposer::PanoramaPreviewComposer(const PanoSourceHDR& source) : state(std::make_shared<Private>(source))
{}

std::vector<std::filesystem::path> namesOf(const PanoSource& source) { return source.files; }

std::vector<std::filesystem::path> namesOf(const PanoSourceHDR& source)
{
    std::vector<std::filesystem::path> names;
    for (const auto& bracket : source.brackets)
        names.push_back(bracket.empty() ? std::filesystem::path() : *std::min_element(bracket.begin(), bracket.end()));
    return names;
}

std::vector<std::filesystem::path> namesOf(const PanoSourceVideo&) { return {}; }

PanoramaPreviewComposer::~PanoramaPreviewComposer() { state->queue.shutDown(); }

void PanoramaPreviewComposerPrivate::load(const std::function<void(bool, _Rect<int>)>& completion)
{
    const auto failed = [&] {
        if (completion)
            completion(false, {});
    };
    try {
        resetCachedSettings(); // the cached picture shows the former load
        const bool isRegistered = runInOpenCallFrame([&] { return stitcher->loadImages(stitcherCancel()); });
        if (run.cancelled()) {
            completion(false, {});
        } else if (!isRegistered) {
            failed();
        } else if (completion) {
            const cv::Rect roi = stitcher->roiInOutputPixels();
            completion(true, {roi.x, roi.y, roi.width, roi.height});
        }
        return;
    } catch (const std::exception& error) {
        LOG(__orvolog() << LogMessageType::Warning << "Exception in source loading: " << error.what());
    } catch (...) {
        LOG(__orvolog() << LogMessageType::Warning << "Exception in source loading.");
    }
    failed();
}

void PanoramaPreviewComposer::loadWithCompletion(const std::function<void(bool, _Rect<int>)>& completion)
{
    state->queue.addOperation(operationOn(state, [completion](Private& held) { held.load(completion); }));
    renderUnderlay();
}

void PanoramaPreviewComposer::setLoadCallback(std::function<void(float)> progress)
{
    state->stitcher->setLoadCallback(std::move(progress));
}

void PanoramaPreviewComposer::cancelAll()
{
    state->cancelFlag.exchange(true);
    state->stitcher->cancelLoad(true);
}

void PanoramaPreviewComposer::setVideoInterval(std::uint64_t start, std::uint64_t end)
{
    state->stitcher->setVideoInterval(start, end);
}

void PanoramaPreviewComposer::setCompositionParams(const std::vector<std::uint64_t>& frames,
                                                   const std::vector<_Rect<int>>& rects)
{
    state->queue.addOperation(operationOn(state, [frames, rects, signature = functionSignature()](Private& held) {
        logExceptions(signature, [&] {
            held.resetCachedSettings();
            held.stitcher->reloadWithComposition(frames, rects);
        });
    }));
}

_Size<int> PanoramaPreviewComposer::getCanvasSize() const
{
    const cv::Rect bounds = state->stitcher->projectionBounds(warpNumberOf(state->projection));
    return {bounds.width, bounds.height};
}

_Point<float> PanoramaPreviewComposer::getCurrentCenterPointPosition() const
{
    const _Size<int> canvas = getCanvasSize();
    return {static_cast<float>(canvas.width / 2), static_cast<float>(canvas.height / 2)};
}

std::vector<PanoramaPlace> PanoramaPreviewComposer::getPlaces() const
{
    return placesOf(*state->stitcher, state->names);
}

WarpType PanoramaPreviewComposer::getProjectionType() const { return state->projection; }

void PanoramaPreviewComposer::changeProjectionType(WarpType type)
{
    if (type == state->projection)
        return;
    state->projection = type;
    renderUnderlay();
}

void PanoramaPreviewComposer::setCallback(std::function<void(RenderedData)> callback)
{
    state->snapshot.mainCallback = std::move(callback);
}

std::function<void(RenderedData)> PanoramaPreviewComposer::getCallback() const { return state->snapshot.mainCallback; }

void PanoramaPreviewComposer::setUnderlayCallback(std::function<void(RenderedData)> callback)
{
    state->snapshot.underlayCallback = std::move(callback);
    renderUnderlay();
}

void PanoramaPreviewComposer::setUnderlayMeaningfulPartCallback(
    std::function<void(std::shared_ptr<const _ImageData<PixelRGB<float>>>, std::shared_ptr<const _ImageData<float>>,
                       _Rect<int>)>
        callback)
{
    state->snapshot.meaningfulPartCallback = std::move(callback);
    renderUnderlay();
}

void PanoramaPreviewComposer::setContext(PreviewContext context)
{
    if (context.size.width < 1 || context.size.height < 1 || context.roi.width < 1 || context.roi.height < 1) {
        LOG(__orvolog() << LogMessageType::Warning
                        << "PanoramaPreviewComposer::setContext: invalid context: " << textOf(context));
        return;
    }
    state->snapshot.context = context;
    renderMain();
}

void PanoramaPreviewComposer::renderMain()
{
    replaceWaiting(*state, state->mainOperation);
    state->mainOperation =
        operationOn(state, [type = state->projection, taken = state->snapshot,
                            signature = functionSignature()](Private& held) { held.drawMain(type, taken, signature); });
    state->queue.addOperation(state->mainOperation);
}

void PanoramaPreviewComposer::renderUnderlay()
{
    replaceWaiting(*state, state->underlayOperation);
    state->underlayOperation =
        operationOn(state, [type = state->projection, taken = state->snapshot, signature = functionSignature()](
                               Private& held) { held.drawUnderlay(type, taken, signature); });
    state->queue.addOperation(state->underlayOperation);
}

void PanoramaPreviewComposer::startFastRender()
{
    state->queue.addOperation(operationOn(state, [](Private& held) { held.stitcher->beginViewAdjust(); }));
}

void PanoramaPreviewComposer::finishFastRender()
{
    state->queue.addOperation(operationOn(state, [](Private& held) { held.stitcher->endViewAdjust(); }));
    renderUnderlay();
    renderMain();
}

void PanoramaPreviewComposer::setShiftVector(_Point<float> shift)
{
    state->queue.addOperation(operationOn(state, [shift](Private& held) { held.shift(shift); }));
    renderMain();
}

// Without a receiver no render follows that would invalidate the cached picture, which shows another view now.
void PanoramaPreviewComposerPrivate::shift(_Point<float> by)
{
    resetCachedSettings();
    stitcher->setViewShift(by);
}

void PanoramaPreviewComposerPrivate::reset()
{
    resetCachedSettings();
    stitcher->resetView();
}

void PanoramaPreviewComposerPrivate::turn(float angle, _Rect<int> roi)
{
    resetCachedSettings();
    const cv::Rect bounds = stitcher->projectionBounds();
    if (roi == _Rect<int>())
        roi = {0, 0, bounds.width, bounds.height};
    const auto middle = [](int first, int length, int whole) {
        return (static_cast<float>(first) + static_cast<float>(length) * 0.5f) / static_cast<float>(whole);
    };
    stitcher->setViewRotation(angle,
                              {middle(roi.x, roi.width, bounds.width), middle(roi.y, roi.height, bounds.height)});
}

void PanoramaPreviewComposer::setRotation(float angle)
{
    state->queue.addOperation(
        operationOn(state, [angle, roi = state->snapshot.context.roi](Private& held) { held.turn(angle, roi); }));
    renderMain();
}

float PanoramaPreviewComposer::getRotation() const { return 0.0f; }

void PanoramaPreviewComposer::resetAlignmentAdjustments()
{
    state->queue.addOperation(operationOn(
        state, [signature = functionSignature()](Private& held) { logExceptions(signature, [&] { held.reset(); }); }));
    renderMain();
    renderUnderlay();
}

void PanoramaPreviewComposer::getCropPreview(_Size<int> size, std::function<void(RenderedData, _Rect<int>)> callback)
{
    state->cropOperation = operationOn(state, [type = state->projection, size, callback = std::move(callback)](
                                                  Private& held) { held.cropPreview(type, size, callback); });
    state->queue.addOperation(state->cropOperation);
}

void PanoramaPreviewComposer::getFinalizePreview(CropInfo info, std::function<void(RenderedData)> callback,
                                                 _Size<int> size)
{
    state->queue.addOperation(operationOn(
        state,
        [type = state->projection, info = std::move(info), callback = std::move(callback), size,
         signature = functionSignature()](Private& held) {
            held.finalizePreview(type, info, size, callback, signature);
        },
        "getFinalizePreview"));
}

void PanoramaPreviewComposer::finalize(CropInfo info, std::function<void(RenderedData)> callback)
{
    state->queue.addOperation(operationOn(
        state,
        [type = state->projection, info = std::move(info), callback = std::move(callback),
         signature = functionSignature()](Private& held) { held.finish(type, info, callback, signature); },
        "finalize"));
}

float PanoramaPreviewComposer::getHorizonAngle(std::shared_ptr<const _ImageData<PixelRGB<float>>> image)
{
    if (!image)
        return 0.0f;
    auto metadata = std::make_shared<ImageMetadata>();
    metadata->size = image->size();
    const Image whole(std::make_shared<ImageSource>(std::move(image), std::move(metadata),
                                                    std::make_shared<AdditionalRawMetadataSync>()));
    return ImageDetection().getAutoHorizonAngle(&whole);
}

void PanoramaPreviewComposer::setConfiguration(ComposerConfiguration configuration)
{
    state->configuration = configuration;
}

void PanoramaPreviewComposer::startSetup() {}

void PanoramaPreviewComposer::finishSetup() {}

} // namespace orvo
