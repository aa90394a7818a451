#include "bracket/make_efll.hpp"
#include "frame/call_frame.hpp"
#include "frame/performed.hpp"

#include <span>

namespace orvo {
namespace {

using Phase = HDRMergingPhaseName;

struct Reached
{
    Phase phase;
    float share; // of the time of a merge
};

// Measured on a handheld bracket of three 20 megapixel JPEGs with alignment and deghosting, on two cores.
constexpr Reached kBracket[] = {
    {Phase::BracketStarted, 0.0f},     {Phase::FramesLoaded, 0.15f},       {Phase::LadderBuilt, 0.42f},
    {Phase::FirstFrameBlended, 0.79f}, {Phase::SecondFrameBlended, 0.89f}, {Phase::Blended, 0.98f},
    {Phase::Normalized, 0.99f},
};
// A single frame reports one phase less: it skips 4, so its 5 means that two frames are blended, and its 6 that all
// are.
constexpr Reached kSingle[] = {
    {Phase::SingleFrameStarted, 0.0f}, {Phase::FramesLoaded, 0.15f}, {Phase::LadderBuilt, 0.42f},
    {Phase::FirstFrameBlended, 0.79f}, {Phase::Blended, 0.89f},      {Phase::Normalized, 0.98f},
};

float shareAt(Phase phase, bool isSingle)
{
    for (const Reached& reached : isSingle ? std::span<const Reached>(kSingle) : std::span<const Reached>(kBracket))
        if (reached.phase == phase)
            return reached.share;
    return 0.0f; // progress never goes back
}

} // namespace

std::pair<std::shared_ptr<Image>, std::shared_ptr<_ImageData<PixelRGB<float>>>>
make_HDR(const std::vector<std::filesystem::path>& paths, const HDRSettings& settings, _Size<int> size,
         std::function<void(HDRMergingPhaseName)> onPhase)
{
    return runInCallFrame("make_HDR", [&] { return make_EFLL(paths, settings, size, onPhase); });
}

HdrResult perform(const HdrRequest& request)
{
    OperationCalls calls = request;
    calls.cancel = [&request] { return request.settings.canceled() || (request.cancel && request.cancel()); };
    return details::performed<HdrResult>("make_HDR", calls, [&](const RunControl& run, HdrResult& result) {
        const auto onPhase = [&](Phase phase) {
            if (request.onPhase)
                request.onPhase(phase);
            run.report(shareAt(phase, request.pictures.size() == 1));
        };
        std::tie(result.image, result.middleFrame) =
            mergeBracket(request.pictures, request.settings, onPhase, run, /*complaint=*/{});
    });
}

} // namespace orvo
