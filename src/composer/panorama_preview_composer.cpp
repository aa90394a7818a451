// The methods for the application: each request becomes an operation on the composer's queue.
#include "composer/composer_private.hpp"
#include "frame/call_frame.hpp"
#include "panorama/scope_exit.hpp"
#include "panorama/stitched_places.hpp"

#include <orvo/image_detection.hpp>
#include <orvo_core/image.hpp>
#include <orvo_logger/logstream.hpp>

#include <algorithm>
#include <optional>
#include <string>
#include <utility>

namespace orvo {
namespace {

using Private = PanoramaPreviewComposerPrivate;

// What the log names if these operations end with an exception.
constexpr const char* kSetCompositionParams =
    "void orvo::PanoramaPreviewComposer::setCompositionParams(const std::vector<std::uint64_t>&, const "
    "std::vector<_Rect<int>>&)";
constexpr const char* kResetAlignmentAdjustments = "void orvo::PanoramaPreviewComposer::resetAlignmentAdjustments()";

// Whose operation this thread is running, if any: a callback may drop the composer in it.
thread_local Private* running = nullptr;

// An operation on `state`. It keeps the state alive only while it runs, because a callback may drop the composer, and
// what it needs only until then, because a callback may own the composer.
template <typename Work>
std::shared_ptr<opq::Operation> operationOn(const std::shared_ptr<Private>& state, Work work,
                                            const std::string& identifier = {})
{
    return std::make_shared<opq::FunctionOperation>(
        [watched = std::weak_ptr<Private>(state), waiting = std::optional<Work>(std::move(work))]() mutable {
            const auto held = watched.lock();
            const auto once = std::exchange(waiting, std::nullopt);
            if (!held)
                return;
            const ScopeExit leaves([outer = std::exchange(running, held.get())] { running = outer; });
            (*once)(*held);
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

PanoramaPreviewComposer::~PanoramaPreviewComposer()
{
    if (running == state.get()) { // in a callback, which nobody can wait for
        state->isDropped = true;
        state->cancelAll();
    }
    state->queue.shutDown();
}

PanoramaPreviewComposerPrivate::LoadResult PanoramaPreviewComposerPrivate::registered()
{
    const bool isRegistered = stitcher->loadImages(stitcherCancel());
    if (run.cancelled()) {
        details::stateFailure(cancelledFailure());
        return {true, {}};
    }
    if (!isRegistered) {
        // Has no effect if a step has recorded its reason; an empty source has no step.
        details::stateFailure({FailureKind::Internal, {}, "the source names no pictures"});
        return {};
    }
    const cv::Rect extent = stitcher->roiInOutputPixels();
    return {false, _Rect<int>(extent.x, extent.y, extent.width, extent.height)};
}

void PanoramaPreviewComposerPrivate::load(const std::function<void(bool, _Rect<int>)>& completion)
{
    const auto failed = [&] {
        if (completion)
            completion(false, {});
    };
    answeringAnyway(
        "Exception in source loading",
        [&] {
            resetCachedSettings();
            const LoadResult result = runInOpenCallFrame([&] { return registered(); });
            if (isDropped)
                return;
            if (result.isCancelled)
                completion(false, {});
            else if (!result.extent)
                failed();
            else if (completion)
                completion(true, *result.extent);
        },
        failed);
}

void PanoramaPreviewComposerPrivate::useComposition(const std::vector<std::uint64_t>& frames,
                                                    const std::vector<_Rect<int>>& rects)
{
    if (run.cancelled()) // before the frames are read
        return;
    (void)logExceptions(kSetCompositionParams, [&] {
        resetCachedSettings();
        stitcher->reloadWithComposition(frames, rects, stitcherCancel());
    });
}

void PanoramaPreviewComposerPrivate::cancelAll()
{
    cancelFlag.exchange(true);
    stitcher->cancelLoad(true);
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

void PanoramaPreviewComposer::setWorkCallback(std::function<void(float)> progress)
{
    state->stitcher->setWorkCallback(std::move(progress));
}

void PanoramaPreviewComposer::cancelAll() { state->cancelAll(); }

void PanoramaPreviewComposer::setVideoInterval(std::uint64_t start, std::uint64_t end)
{
    state->stitcher->setVideoInterval(start, end);
}

void PanoramaPreviewComposer::setCompositionParams(const std::vector<std::uint64_t>& frames,
                                                   const std::vector<_Rect<int>>& rects)
{
    state->queue.addOperation(
        operationOn(state, [frames, rects](Private& held) { held.useComposition(frames, rects); }));
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

void PanoramaPreviewComposer::setFailureCallback(std::function<void(Failure)> callback)
{
    state->snapshot.failureCallback = std::move(callback);
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
    state->queue.addOperation(operationOn(state, [](Private& held) {
        held.resetCachedSettings(); // a picture of the drag is rough
        held.stitcher->endViewAdjust();
    }));
    renderUnderlay();
    renderMain();
}

void PanoramaPreviewComposer::setShiftVector(_Point<float> shift)
{
    state->queue.addOperation(operationOn(state, [shift](Private& held) { held.shift(shift); }));
    renderMain();
}

void PanoramaPreviewComposerPrivate::shift(_Point<float> by)
{
    resetCachedSettings();
    stitcher->setViewShift(by);
}

void PanoramaPreviewComposerPrivate::reset()
{
    (void)logExceptions(kResetAlignmentAdjustments, [&] {
        resetCachedSettings();
        stitcher->resetView();
    });
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
    state->queue.addOperation(operationOn(state, [](Private& held) { held.reset(); }));
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

void PanoramaPreviewComposer::finalizeAndRelease(CropInfo info, std::function<void(RenderedData)> callback)
{
    state->queue.addOperation(operationOn(
        state,
        [type = state->projection, info = std::move(info), callback = std::move(callback),
         signature = functionSignature()](Private& held) {
            held.stitcher->drawOnceMore();
            held.finish(type, info, callback, signature);
        },
        "finalizeAndRelease"));
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
