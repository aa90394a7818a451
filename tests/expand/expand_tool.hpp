/// An expand tool with access to its internals.
#pragma once

#include "GenProcessorBase/generative_processor_base_impl.hpp"
#include "support/pictures.hpp"

#include <orvo_extensions/generative_expand.hpp>
#include <orvo_extensions/operations.hpp>
#include <orvo_io/base64_image.hpp>
#include <orvo_logger/log_capture.hpp>

#include <algorithm>
#include <future>
#include <limits>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace orvo::test {

using Request = GenerativeProcessorBase::RequestInput;
using OutState = GenerativeProcessorBase::OutState;
using Bytes = std::vector<unsigned char>;

inline CropDescription cropOf(int x, int y, int width, int height)
{
    CropDescription crop;
    crop.rect = {x, y, width, height};
    return crop;
}

/// Left edges of crops so far from the picture that the distances exceed an int.
inline constexpr int kFarAway[] = {std::numeric_limits<int>::min(), 2147483520};

class ExpandTool final : public GenerativeExpandProcessor
{
public:
    explicit ExpandTool(_Size<int> size) : ExpandTool(textured(size.width, size.height)) {}
    explicit ExpandTool(std::shared_ptr<const Picture> picture) : GenerativeExpandProcessor(std::move(picture)) {}
    ~ExpandTool() override = default;

    [[nodiscard]] GenerativeProcessorBaseImpl& inside() const { return *impl; }

    void settle()
    {
        std::promise<void> promise;
        impl->queue.addOperation(std::make_shared<opq::FunctionOperation>([&] { promise.set_value(); }, std::string()));
        promise.get_future().wait();
    }

    [[nodiscard]] std::shared_ptr<const Picture> picture()
    {
        std::promise<RenderedData> promise;
        auto future = promise.get_future();
        generateDataForExport([&](RenderedData data) { promise.set_value(std::move(data)); });
        return future.get().image;
    }

    [[nodiscard]] Request request(const CropDescription& crop, const std::string& id = "1")
    {
        auto promise = std::make_shared<std::promise<Request>>();
        auto future = promise->get_future();
        generateRequest(id, crop, {}, [promise](Request made) { promise->set_value(std::move(made)); });
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

inline std::string answerText(const std::shared_ptr<const Picture>& picture)
{
    return "data:image/png;base64," + imageToBase64(picture, {0, 16});
}

inline std::shared_ptr<Picture> picturesOf(const Request& request) { return convertToImageData(request.image); }

/// The continuation of the texture beyond a picture that starts at (0, 0), for the rectangle of `tool`'s last request,
/// `scale` times as large as on the canvas; `cast` is added to its values.
inline std::shared_ptr<Picture> trueAnswer(const ExpandTool& tool, _Size<int> shift, double scale,
                                           const PixelRGB<float>& cast = {})
{
    const auto& parameters = *tool.inside().requestParameters;
    const _Rect<int>& rect = parameters.rect;
    // Drawn at full size, so that it shrinks like the picture.
    const auto full = drawn(rect.width, rect.height, [&](int x, int y) {
        const auto p = texture(x + rect.x - shift.width, y + rect.y - shift.height);
        return PixelRGB<float>{p.r + cast.r, p.g + cast.g, p.b + cast.b};
    });
    return full->resize(
        {std::max(1, static_cast<int>(rect.width * scale)), std::max(1, static_cast<int>(rect.height * scale))}, {},
        true);
}

inline std::vector<std::string> errors(const LogCapture& log) { return log.texts(LogMessageType::Error); }

} // namespace orvo::test
