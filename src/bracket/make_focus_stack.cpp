#include "bracket/focus_stack.hpp"
#include "frame/call_frame.hpp"
#include "frame/performed.hpp"

#include <orvo_extensions/focus_stack.hpp>

namespace orvo {
namespace {

// The pyramid is deep enough for a blur of a few hundred pixels, but the sides of its coarsest level are at least this
// long.
constexpr float kSmallestSide = 8.0f;
constexpr int kMostLevels = 8;

std::shared_ptr<Image> stacked(const std::vector<PictureInput>& inputs, const BracketSettings::FocusStacking& settings,
                               const RunControl& run, const std::string& caller)
{
    const auto makeStacker = [](int width, int height) {
        return grfx::produceLaplacianFocusStacking<PixelRGB<float>>(width, height, kSmallestSide, kMostLevels,
                                                                    grfx::ESample::Float);
    };
    try {
        return stackFocusSeries(inputs, settings, makeStacker, caller, run);
    } catch (const FailureError&) {
        if (run.wasCancelled())
            return {}; // not an error to log
        throw;
    }
}

std::shared_ptr<Image> stackInCallFrame(const std::vector<std::filesystem::path>& paths,
                                        const BracketSettings::FocusStacking& settings, const RunControl& run,
                                        const char* signature)
{
    return runInCallFrame("makeFocusStack", run, [&] { return stacked(inputsOf(paths), settings, run, signature); });
}

} // namespace

// The signatures are no strings, which would allocate outside the call frame.

std::shared_ptr<Image> makeFocusStack(const std::vector<std::filesystem::path>& paths,
                                      const BracketSettings::FocusStacking& settings)
{
    return stackInCallFrame(paths, settings, RunControl::none(), __PRETTY_FUNCTION__);
}

std::shared_ptr<Image> makeFocusStack(const std::vector<std::filesystem::path>& paths,
                                      const BracketSettings::FocusStacking& settings,
                                      const std::function<bool()>& canceled, const std::function<void(float)>& progress)
{
    const RunControl run([&canceled] { return canceled && canceled(); }, progress);
    return stackInCallFrame(paths, settings, run, __PRETTY_FUNCTION__);
}

OperationResult perform(const FocusStackRequest& request)
{
    return details::performed<OperationResult>(
        "makeFocusStack", request, [&](const RunControl& run, OperationResult& result) {
            result.image = stacked(request.pictures, request.settings, run, /*caller=*/{});
        });
}

} // namespace orvo
