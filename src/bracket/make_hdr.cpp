#include "bracket/make_efll.hpp"
#include "frame/call_frame.hpp"
#include "frame/performed.hpp"

#include <functional>
#include <tuple>

namespace orvo {

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
        const std::function<void(HDRMergingPhaseName)> silent = [](HDRMergingPhaseName) {};
        std::tie(result.image, result.middleFrame) =
            mergeBracket(request.pictures, request.settings, request.onPhase ? request.onPhase : silent, run,
                         request.keepsMiddleFrame ? MiddleFrame::Kept : MiddleFrame::Dropped, /*complaint=*/{});
    });
}

} // namespace orvo
