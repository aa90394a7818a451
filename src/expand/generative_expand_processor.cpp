#include "GenProcessorBase/answer_file.hpp"
#include "GenProcessorBase/tool_calls.hpp"
#include "expand/expand_answer.hpp"
#include "expand/expand_request.hpp"
#include "expand/generative_expand_impl.hpp"

#include <orvo/composer.hpp>
#include <orvo/documents.hpp>
#include <orvo_extensions/generative_expand.hpp>
#include <orvo_extensions/operations.hpp>
#include <orvo_io/base64_image.hpp>

#include <optional>
#include <utility>

namespace orvo {
namespace {

using State = GenerativeExpandImpl::State;

std::shared_ptr<WorkingImageExpand> workingOf(const std::unique_ptr<GenerativeProcessorBaseImpl>& impl)
{
    return std::static_pointer_cast<WorkingImageExpand>(impl->workingImage); // created by initializeImpl()
}

} // namespace

GenerativeExpandProcessor::GenerativeExpandProcessor(const StateSource& source) : GenerativeProcessorBase(source)
{
    guardedCall(functionSignature(),
                [&] { initializeImpl(openNoEmpty(source.path, source.settings, source.presetsPath)); });
}

GenerativeExpandProcessor::GenerativeExpandProcessor(std::shared_ptr<Composer> composer)
    : GenerativeProcessorBase(composer)
{
    guardedCall(functionSignature(), [&] { initializeImpl(exportFromComposer(composer)); });
}

GenerativeExpandProcessor::GenerativeExpandProcessor(std::shared_ptr<const _ImageData<PixelRGB<float>>> data)
    : GenerativeProcessorBase(data)
{
    guardedCall(functionSignature(), [&] { initializeImpl(CreateOrvoImage(data)); });
}

GenerativeExpandProcessor::~GenerativeExpandProcessor() = default;

void GenerativeExpandProcessor::initializeImpl(std::shared_ptr<Image>&& image)
{
    guardedCall(functionSignature(), [&] {
        auto made = std::make_unique<GenerativeProcessorBaseImpl>(std::move(image));
        auto working = std::make_shared<WorkingImageExpand>();
        working->set(made->image->developedModifiedImageData(ResizeParameters{{}, {}, true})->copy({}));
        made->workingImage = std::move(working);
        expandImpl = std::make_unique<GenerativeExpandImpl>();
        requestedCanvas = made->canvasSize;
        impl = std::move(made);
    });
}

void GenerativeExpandProcessor::generateRequest(const std::string& id, const CropDescription& crop, _Size<int>,
                                                std::function<void(RequestInput)> callback)
{
    if (!expandImpl)
        return;
    requestedCanvas = crop.getCropRect().size();
    const ExpandLimits limits{impl->maxRequestPixels, impl->maxRequestBase64Size, impl->maxRequestAspect};
    const auto generate = [where = functionSignature(), callback = std::move(callback), limits,
                           working = impl->workingImage, id, parameters = impl->requestParameters, crop] {
        if (!callback)
            return;
        const _Rect<int> rect = crop.getCropRect();
        std::optional<ExpandRequest> request;
        guardedCall(where, [&] {
            if (rect.width < 1 || rect.height < 1)
                logRefusal(where, "Failed to generate request with empty crop description.");
            else
                request = prepareExpandRequest(*working, rect, limits, id, where, *parameters);
        });
        if (!request) {
            callback(requestWithoutContent(id));
            return;
        }
        callDetached([callback, id, request = std::move(*request)] {
            callback({request.image, request.mask, id, request.width, true});
        });
    };
    impl->queue.addOperation(std::make_shared<opq::FunctionOperation>(generate, "generateRequest"));
}

void GenerativeExpandProcessor::applyGeneratedResponse(const std::string& response, _Size<int> size)
{
    if (auto text = pictureTextOf(response)) {
        applyGeneratedResponse([picture = std::move(*text)] { return convertToImageData(picture); }, size);
        return;
    }
    const std::string where = functionSignature();
    guardedCall(where, [&] { logRefusal(where, "Responce does not contain image."); });
    reportFailure(failureCallback);
}

void GenerativeExpandProcessor::applyGeneratedResponse(const std::filesystem::path& file, _Size<int> size)
{
    applyGeneratedResponse([file] { return loadAnswer(file); }, size);
}

void GenerativeExpandProcessor::applyGeneratedResponse(
    std::function<std::shared_ptr<_ImageData<PixelRGB<float>>>()> source, _Size<int> size)
{
    if (!expandImpl)
        return;
    const std::string where = functionSignature();
    const auto apply = [where, failed = failureCallback, source = std::move(source), size, working = workingOf(impl),
                        parameters = impl->requestParameters] {
        guardedCall(where, [&] {
            if (auto generated = source())
                working->set(expandedPicture(*parameters, std::move(generated), size));
            else
                logRefusal(where, "Failed to parse responce.");
        });
        reportFailure(failed);
    };
    guardedCall(where, [&] {
        impl->initialState = false;
        impl->canvasSize = requestedCanvas;
        defineUnderlaySize();
        impl->queue.addOperation(std::make_shared<opq::FunctionOperation>(apply, "applyGeneratedResponse"));
        renderAll();
    });
}

std::vector<unsigned char> GenerativeExpandProcessor::storeState()
{
    std::vector<unsigned char> bytes;
    if (!expandImpl)
        return bytes;
    const std::string where = functionSignature();
    const bool stored = guardedCall(where, [&] {
        const auto id = UUIDGenerator()();
        if (impl->initialState)
            impl->initialStateIds.insert(id);
        canvasSizes[id] = {requestedCanvas, impl->canvasSize};
        const auto store = [where, failed = failureCallback, id, working = workingOf(impl),
                            parameters = impl->requestParameters, index = expandImpl->stateIndex] {
            guardedCall(where, [&] {
                State state;
                state.picture = working->image;
                state.requestParameters = *parameters;
                state.id = id;
                index->push(std::move(state));
            });
            reportFailure(failed);
        };
        impl->queue.addOperation(std::make_shared<opq::FunctionOperation>(store, std::string()));
        id->serialize(bytes);
    });
    return stored ? bytes : std::vector<unsigned char>();
}

void GenerativeExpandProcessor::restoreState(const std::vector<unsigned char>& stateBytes,
                                             std::function<void(OutState)> done)
{
    if (!expandImpl)
        return;
    const std::string where = functionSignature();
    const auto restore = [where, working = workingOf(impl), parameters = impl->requestParameters, done,
                          index = expandImpl->stateIndex, stateBytes] {
        std::string requestId;
        guardedCall(where, [&] {
            const auto id = Identifier::deserialize(stateBytes);
            if (!id) {
                logRefusal(where, "Cannot parse id.");
                return;
            }
            const State state = index->find(id);
            if (!state.id) {
                logRefusal(where, "Cannot find state with id: " + id->text());
                return;
            }
            *parameters = state.requestParameters;
            working->set(state.picture);
            requestId = state.requestParameters.id;
        });
        deliverState(done, {stateBytes, requestId});
    };
    guardedCall(where, [&] {
        const auto id = Identifier::deserialize(stateBytes);
        if (!id) {
            logRefusal(where, "Cannot parse id.");
            deliverState(done, {stateBytes, {}});
            return;
        }
        impl->initialState = impl->initialStateIds.contains(id);
        const auto sizes = canvasSizes.find(id);
        if (sizes == canvasSizes.end()) {
            logRefusal(where, "Cannot find state with id: " + id->text());
            deliverState(done, {stateBytes, {}});
            return;
        }
        requestedCanvas = sizes->second.first;
        impl->canvasSize = sizes->second.second;
        defineUnderlaySize();
        impl->queue.addOperation(std::make_shared<opq::FunctionOperation>(restore, std::string()));
        renderUnderlay();
    });
}

} // namespace orvo
