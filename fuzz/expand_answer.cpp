// Any bytes as the answer of a service to an expand tool.
#include "generative_answers.hpp"

#include <orvo_extensions/generative_expand.hpp>

namespace {

constexpr orvo::_Size<int> kPicture = {96, 64};
constexpr orvo::_Rect<int> kCanvas = {-20, 0, 116, 64}; // 20 pixels more on the left
constexpr orvo::PixelRGB<float> kColour{0.5f, 0.25f, 0.75f};

void prepare(orvo::GenerativeExpandProcessor& tool)
{
    orvo::CropDescription crop;
    crop.rect = kCanvas;
    std::promise<void> promise;
    auto future = promise.get_future();
    tool.generateRequest("id", crop, {}, [&](const auto&) { promise.set_value(); });
    future.get();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    using namespace orvo::fuzz;
    const Answer answer(data, size);
    orvo::GenerativeExpandProcessor tool(plainPicture(kPicture, kColour));
    prepare(tool);
    tool.applyGeneratedResponse(answer.text, answer.sent);
    const auto result = exported(tool);
    // An answer that cannot be read leaves the picture as it was.
    const bool grown = result != nullptr && result->size() == kCanvas.size();
    requireSane(result, grown ? kCanvas.size() : kPicture);
    require(result->row(kPicture.height / 2)[result->width() - 2] == kColour,
            "what is far from the border stays as it is");
    return 0;
}
