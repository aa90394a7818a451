// Opening, requests, answers and states.
#include "GenEraseProcessor/erase_request.hpp"
#include "GenEraseProcessor/generative_erase_processor_impl.hpp"
#include "GenProcessorBase/answer_file.hpp"
#include "GenProcessorBase/tool_calls.hpp"

#include <orvo/composer.hpp>
#include <orvo/documents.hpp>
#include <orvo_extensions/generative_erase.hpp>
#include <orvo_extensions/operations.hpp>
#include <orvo_io/base64_image.hpp>
#include <orvo_logger/logstream.hpp>

#include <utility>

namespace orvo {
namespace {

using State = GenerativeEraseProcessorImpl::State;

} // namespace

GenerativeEraseProcessor::GenerativeEraseProcessor(const StateSource& source) : GenerativeProcessorBase(source)
{
    guardedCall(functionSignature(),
                [&] { initializeImpl(openNoEmpty(source.path, source.settings, source.presetsPath)); });
}

GenerativeEraseProcessor::GenerativeEraseProcessor(std::shared_ptr<Composer> composer)
    : GenerativeProcessorBase(composer)
{
    guardedCall(functionSignature(), [&] { initializeImpl(exportFromComposer(composer)); });
}

GenerativeEraseProcessor::GenerativeEraseProcessor(std::shared_ptr<const _ImageData<PixelRGB<float>>> data)
    : GenerativeProcessorBase(data)
{
    guardedCall(functionSignature(), [&] { initializeImpl(CreateOrvoImage(data)); });
}

GenerativeEraseProcessor::~GenerativeEraseProcessor()
{
    if (!eraseImpl)
        return;
    try {
        eraseImpl->queue.addOperation(std::make_shared<opq::FunctionOperation>(
            [info = eraseImpl->brushInfo] {
                info->drawingStates.clear();
                info->resources.clearTempFiles();
            },
            std::string()));
    } catch (...) { // NOLINT(bugprone-empty-catch): without memory for the operation, the files go with their manager
    }
}

void GenerativeEraseProcessor::initializeImpl(std::shared_ptr<Image>&& image)
{
    guardedCall(functionSignature(), [&] {
        auto made = std::make_unique<GenerativeEraseProcessorImpl>(std::move(image));
        auto working = std::make_shared<WorkingImageErase>();
        working->image = made->image;
        made->workingImage = std::move(working);
        eraseImpl = made.get();
        impl = std::move(made);
    });
}

void GenerativeEraseProcessor::generateRequest(const std::string& id, _Size<int>,
                                               std::function<void(RequestInput)> callback)
{
    if (!eraseImpl)
        return;
    const RequestLimits limits{impl->maxRequestPixels, impl->maxRequestBase64Size, impl->maxRequestAspect};
    const auto generate = [where = functionSignature(), callback = std::move(callback), limits,
                           info = eraseImpl->brushInfo, image = impl->image, id, parameters = impl->requestParameters] {
        if (!callback)
            return;
        std::shared_ptr<const GenEraseData> data;
        guardedCall(where, [&] {
            if (!info->mask)
                logRefusal(where, "Failed to generate request with empty mask.");
            else
                data = prepareEraseRequest(*image, *info->mask, limits, id, *parameters);
        });
        if (!data) {
            callback(requestWithoutContent(id));
            return;
        }
        callDetached([callback, data, id] {
            callback({data->imageBase64, data->maskBase64, id, data->image->width(), true});
        });
    };
    impl->queue.addOperation(std::make_shared<opq::FunctionOperation>(generate, "generateRequest"));
}

void GenerativeEraseProcessor::applyGeneratedResponse(const std::string& response, _Size<int> size)
{
    if (auto text = pictureTextOf(response)) {
        applyGeneratedResponse([picture = std::move(*text)] { return convertToImageData(picture); }, size);
        return;
    }
    const std::string where = functionSignature();
    guardedCall(where, [&] { logRefusal(where, "Responce does not contain image."); });
    reportFailure(failureCallback);
}

void GenerativeEraseProcessor::applyGeneratedResponse(const std::filesystem::path& file, _Size<int> size)
{
    applyGeneratedResponse([file] { return loadAnswer(file); }, size);
}

void GenerativeEraseProcessor::applyGeneratedResponse(
    std::function<std::shared_ptr<_ImageData<PixelRGB<float>>>()> source, _Size<int> size)
{
    if (!eraseImpl)
        return;
    const std::string where = functionSignature();
    const auto apply = [where, failed = failureCallback, source = std::move(source), size, image = impl->image,
                        parameters = impl->requestParameters] {
        guardedCall(where, [&] {
            if (const auto generated = source())
                applyEraseAnswer(image, *parameters, *generated, size);
            else
                logRefusal(where, "Failed to parse responce.");
        });
        reportFailure(failed);
    };
    guardedCall(where, [&] {
        impl->initialState = false;
        impl->queue.addOperation(std::make_shared<opq::FunctionOperation>(apply, "applyGeneratedResponse"));
        renderAll();
    });
}

std::vector<unsigned char> GenerativeEraseProcessor::storeState()
{
    std::vector<unsigned char> bytes;
    if (!eraseImpl)
        return bytes;
    const std::string where = functionSignature();
    const bool stored = guardedCall(where, [&] {
        const auto id = UUIDGenerator()();
        if (impl->initialState)
            impl->initialStateIds.insert(id);
        const auto store = [where, failed = failureCallback, id, image = impl->image, info = eraseImpl->brushInfo,
                            parameters = impl->requestParameters, index = eraseImpl->stateIndex] {
            guardedCall(where, [&] {
                State state;
                state.mask = info->mask;
                state.showMask = info->showMask;
                state.requestParameters = *parameters;
                state.id = id;
                if (const auto tiled = getKepModifiedImageData(image)) {
                    const auto copy =
                        std::make_shared<KepTiledImageData>(tiled->size(), ColorProfileType::melissaRGB());
                    tiled->copyTo(copy);
                    state.modifiedData = copy;
                }
                index->push(std::move(state));
            });
            reportFailure(failed);
        };
        impl->queue.addOperation(std::make_shared<opq::FunctionOperation>(store, std::string()));
        id->serialize(bytes);
    });
    return stored ? bytes : std::vector<unsigned char>();
}

void GenerativeEraseProcessor::restoreState(const std::vector<unsigned char>& stateBytes,
                                            std::function<void(OutState)> done)
{
    if (!eraseImpl)
        return;
    const std::string where = functionSignature();
    const auto restore = [where, image = impl->image, info = eraseImpl->brushInfo, parameters = impl->requestParameters,
                          done, index = eraseImpl->stateIndex, stateBytes] {
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
            image->setModifiedImageData(state.modifiedData, "");
            *parameters = state.requestParameters;
            info->mask = state.mask;
            info->showMask = state.showMask;
            requestId = state.requestParameters.id;
        });
        deliverState(done, {stateBytes, requestId});
    };
    guardedCall(where, [&] {
        if (const auto id = Identifier::deserialize(stateBytes))
            impl->initialState = impl->initialStateIds.contains(id);
        impl->queue.addOperation(std::make_shared<opq::FunctionOperation>(restore, std::string()));
        renderAll();
    });
}

} // namespace orvo
