/// Shared by the targets that pass answers of a service to the generative tools.
#pragma once

#include "fuzz_target.hpp"

#include <orvo_core/image_data.hpp>
#include <orvo_extensions/generative_processor.hpp>

#include <algorithm>
#include <cmath>
#include <future>
#include <memory>
#include <string>

namespace orvo::fuzz {

using Picture = _ImageData<PixelRGB<float>>;

/// An answer: two bytes of the size that was sent, then the text behind the prefix.
struct Answer
{
    _Size<int> sent;
    std::string text; ///< with the prefix

    Answer(const std::uint8_t* data, std::size_t size)
    {
        const std::size_t front = std::min<std::size_t>(size, 2);
        Arguments arguments({data, front});
        sent.width = arguments.number(-2, 200);
        sent.height = arguments.number(-2, 200);
        text = "data:image/png;base64," + std::string(reinterpret_cast<const char*>(data) + front, size - front);
    }
};

inline std::shared_ptr<const Picture> plainPicture(_Size<int> size, PixelRGB<float> colour)
{
    return std::make_shared<const Picture>(size, colour, ColorProfileType::melissaRGB());
}

/// The tool's picture once all earlier calls are done.
inline std::shared_ptr<const Picture> exported(GenerativeProcessorBase& tool)
{
    std::promise<std::shared_ptr<const Picture>> promise;
    auto future = promise.get_future();
    tool.generateDataForExport([&](const RenderedData& data) { promise.set_value(data.image); });
    return future.get();
}

/// Requires that a picture has the size and finite samples.
inline void requireSane(const std::shared_ptr<const Picture>& picture, _Size<int> size)
{
    require(picture != nullptr && picture->size() == size, "the picture has its size");
    require(std::all_of(picture->data(), picture->data() + picture->pixelCount(),
                        [](const PixelRGB<float>& p) {
                            return std::isfinite(p.r) && std::isfinite(p.g) && std::isfinite(p.b);
                        }),
            "samples are finite");
}

} // namespace orvo::fuzz
