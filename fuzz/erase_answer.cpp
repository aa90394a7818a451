// Any bytes as the answer of a service to an erase tool.
#include "generative_answers.hpp"

#include <orvo_extensions/generative_erase.hpp>

namespace {

constexpr int kSide = 96;
constexpr orvo::PixelRGB<float> kColour{0.5f, 0.25f, 0.75f};

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
    using namespace orvo::fuzz;
    const Answer answer(data, size);
    orvo::GenerativeEraseProcessor tool(plainPicture({kSide, kSide}, kColour));
    prepare(tool);
    tool.applyGeneratedResponse(answer.text, answer.sent);
    const auto result = exported(tool);
    requireSane(result, {kSide, kSide});
    require(result->row(2)[2] == kColour && result->row(kSide - 3)[kSide - 3] == kColour,
            "what is far from the mask stays as it is");
    return 0;
}
