#include "bracket/make_efll.hpp"
#include "frame/call_frame.hpp"

namespace orvo {

std::pair<std::shared_ptr<Image>, std::shared_ptr<_ImageData<PixelRGB<float>>>>
make_HDR(const std::vector<std::filesystem::path>& paths, const HDRSettings& settings, _Size<int> size,
         std::function<void(HDRMergingPhaseName)> onPhase)
{
    return runInCallFrame("make_HDR", [&] { return make_EFLL(paths, settings, size, onPhase); });
}

} // namespace orvo
