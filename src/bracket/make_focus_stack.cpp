#include "bracket/focus_stack.hpp"
#include "frame/call_frame.hpp"

#include <orvo_extensions/focus_stack.hpp>

namespace orvo {
namespace {

// Detail is judged over windows of this many pixels, and the pyramid has at most so many levels.
constexpr float kStackerWindow = 8.0f;
constexpr int kStackerLevels = 8;

} // namespace

std::shared_ptr<Image> makeFocusStack(const std::vector<std::filesystem::path>& paths,
                                      const BracketSettings::FocusStacking& settings)
{
    const std::string signature = functionSignature();
    return runInCallFrame("makeFocusStack", [&] {
        const auto makeStacker = [](int width, int height) {
            return grfx::produceLaplacianFocusStacking<PixelRGB<float>>(width, height, kStackerWindow, kStackerLevels,
                                                                        grfx::ESample::Float);
        };
        return stackFocusSeries(paths, settings, makeStacker, signature);
    });
}

} // namespace orvo
