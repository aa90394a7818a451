/// An erase tool with access to its internals.
#pragma once

#include "GenEraseProcessor/generative_erase_processor_impl.hpp"
#include "support/pictures.hpp"
#include "support/renders.hpp"
#include "support/temporary_files.hpp"

#include <orvo/documents.hpp>
#include <orvo_extensions/generative_erase.hpp>
#include <orvo_io/base64_image.hpp>
#include <orvo_logger/log_capture.hpp>

#include <filesystem>
#include <future>

namespace orvo::test {

using Data = NoAlphaRender::Data;
using Request = GenerativeProcessorBase::RequestInput;
using OutState = GenerativeProcessorBase::OutState;
using Bytes = std::vector<unsigned char>;

inline const std::string kPrefix = "data:image/png;base64,";

inline std::shared_ptr<const BaseBrushSettings> brush(float radius, float softness = 0.0f, float opacity = 1.0f)
{
    return std::make_shared<RoundBrushSettings>(radius, softness, opacity);
}

class EraseTool final : public GenerativeEraseProcessor
{
public:
    explicit EraseTool(_Size<int> size = {320, 240}) : EraseTool(textured(size.width, size.height)) {}
    explicit EraseTool(std::shared_ptr<const Picture> picture) : GenerativeEraseProcessor(std::move(picture)) {}
    ~EraseTool() override = default;

    [[nodiscard]] GenerativeEraseProcessorImpl& inside() const
    {
        return static_cast<GenerativeEraseProcessorImpl&>(*impl);
    }

    void settle()
    {
        waitFor(impl->queue);
        waitFor(*impl->callbackQueue);
    }

    // Keeps the queue busy until the returned promise is set.
    [[nodiscard]] std::shared_ptr<std::promise<void>> busy()
    {
        auto go = std::make_shared<std::promise<void>>();
        auto future = go->get_future().share();
        impl->queue.addOperation(std::make_shared<opq::FunctionOperation>([future] { future.wait(); }, ""));
        return go;
    }

    // The current mask, flat; empty if there is none.
    [[nodiscard]] std::vector<float> mask()
    {
        settle();
        const auto& info = *inside().brushInfo;
        const auto tiles = info.controller ? info.controller->getMask() : info.mask;
        if (!tiles)
            return {};
        const auto flat = tiles->maskImage({}, {});
        return {flat->data(), flat->data() + flat->pixelCount()};
    }

    // The current picture, in the working space.
    [[nodiscard]] std::shared_ptr<const Picture> picture()
    {
        std::promise<RenderedData> promise;
        auto future = promise.get_future();
        generateDataForExport([&](RenderedData data) { promise.set_value(std::move(data)); });
        return future.get().image;
    }

    // A phase with one stroke.
    void draw(const std::vector<_Point<float>>& points, std::shared_ptr<const BaseBrushSettings> settings)
    {
        beginDrawing();
        startStroke({}, {});
        strokePoints(points, std::move(settings));
        finishStroke({}, {});
        finishDrawing();
    }

    [[nodiscard]] Request request(const std::string& id)
    {
        auto promise = std::make_shared<std::promise<Request>>();
        auto future = promise->get_future();
        generateRequest(id, {}, [promise](Request made) { promise->set_value(std::move(made)); });
        return future.get();
    }

    [[nodiscard]] OutState restored(const Bytes& bytes)
    {
        auto promise = std::make_shared<std::promise<OutState>>();
        auto future = promise->get_future();
        restoreState(bytes, [promise](OutState state) { promise->set_value(std::move(state)); });
        return future.get();
    }
};

/// The size of a request's picture.
inline _Size<int> sizeOf(const Request& request) { return convertToImageData(request.image)->size(); }

/// A picture in the form of a service's answer.
inline std::string answerText(const std::shared_ptr<const Picture>& picture)
{
    return kPrefix + imageToBase64(picture, {0, 8});
}

inline std::string plainAnswer(_Size<int> size, float value)
{
    auto picture = plain(size.width, size.height, value);
    picture->setColorProfile(ColorProfileType::sRGB());
    return answerText(picture);
}

} // namespace orvo::test
