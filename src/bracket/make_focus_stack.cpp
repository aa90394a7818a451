#include "bracket/focus_stack.hpp"
#include "frame/call_frame.hpp"

#include <orvo_extensions/focus_stack.hpp>

namespace orvo {
namespace {

// The pyramid is deep enough for a blur of a few hundred pixels, but the sides of its coarsest level are at least this
// long.
constexpr float kSmallestSide = 8.0f;
constexpr int kMostLevels = 8;

} // namespace

std::shared_ptr<Image> makeFocusStack(const std::vector<std::filesystem::path>& paths,
                                      const BracketSettings::FocusStacking& settings)
{
    const char* const signature = __PRETTY_FUNCTION__; // a string would allocate outside the call frame
    return runInCallFrame("makeFocusStack", [&] {
        const auto makeStacker = [](int width, int height) {
            return grfx::produceLaplacianFocusStacking<PixelRGB<float>>(width, height, kSmallestSide, kMostLevels,
                                                                        grfx::ESample::Float);
        };
        return stackFocusSeries(paths, settings, makeStacker, signature);
    });
}

} // namespace orvo
