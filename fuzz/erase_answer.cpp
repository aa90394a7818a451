// Any bytes as the answer of a service to an erase tool: two bytes of size, then the text behind the prefix.
#include "fuzz_target.hpp"

#include <orvo_extensions/generative_erase.hpp>
#include <orvo_io/base64_image.hpp>

#include <cmath>
#include <future>
#include <string>

namespace {

using Picture = orvo::_ImageData<orvo::PixelRGB<float>>;

constexpr int kSide = 96;

std::shared_ptr<const Picture> exported(orvo::GenerativeEraseProcessor& tool)
{
    std::promise<std::shared_ptr<const Picture>> promise;
    auto future = promise.get_future();
    tool.generateDataForExport([&](const orvo::RenderedData& data) { promise.set_value(data.image); });
    return future.get();
}

// Painted in the middle, and a request made.
void prepare(orvo::GenerativeEraseProcessor& tool)
{
    tool.beginDrawing();
    tool.stroke({kSide / 2.0f, kSide / 2.0f}, std::make_shared<orvo::RoundBrushSettings>(8.0f, 0.2f, 1.0f));
    tool.finishDrawing();
    std::promise<void> promise;
    auto future = promise.get_future();
    tool.generateRequest("id", {}, [&](const auto&) { promise.set_value(); });
    future.get();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    using orvo::fuzz::require;
    orvo::fuzz::Arguments arguments({data, std::min<std::size_t>(size, 2)});
    const orvo::_Size<int> sent(arguments.number(-2, 200), arguments.number(-2, 200));
    const std::size_t behind = std::min<std::size_t>(size, 2);
    const std::string text(reinterpret_cast<const char*>(data) + behind, size - behind);
    orvo::GenerativeEraseProcessor tool(std::make_shared<const Picture>(orvo::_Size<int>(kSide, kSide),
                                                                        orvo::PixelRGB<float>{0.5f, 0.25f, 0.75f},
                                                                        orvo::ColorProfileType::melissaRGB()));
    prepare(tool);
    tool.applyGeneratedResponse("data:image/png;base64," + text, sent);
    const auto result = exported(tool);
    require(result != nullptr && result->size() == orvo::_Size<int>(kSide, kSide), "the picture keeps its size");
    bool finite = true;
    for (std::size_t i = 0; i < result->pixelCount(); ++i) {
        const auto& p = result->data()[i];
        finite = finite && std::isfinite(p.r) && std::isfinite(p.g) && std::isfinite(p.b);
    }
    require(finite, "samples are finite");
    const orvo::PixelRGB<float> untouched{0.5f, 0.25f, 0.75f};
    require(result->row(2)[2] == untouched && result->row(kSide - 3)[kSide - 3] == untouched,
            "what is far from the mask stays as it is");
    return 0;
}
