/// The worker behind make_HDR.
#pragma once

#include <orvo_extensions/hdr.hpp>

namespace orvo {

/// make_HDR without its call frame: failures are thrown.
[[nodiscard]] std::pair<std::shared_ptr<Image>, std::shared_ptr<_ImageData<PixelRGB<float>>>>
make_EFLL(const std::vector<std::filesystem::path>& paths, const HDRSettings& settings, _Size<int> size,
          std::function<void(HDRMergingPhaseName)> onPhase);

} // namespace orvo
