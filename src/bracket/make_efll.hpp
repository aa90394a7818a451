/// The worker behind make_HDR.
#pragma once

#include <orvo_common/run_control.hpp>
#include <orvo_extensions/hdr.hpp>
#include <orvo_extensions/picture_input.hpp>

#include <string>

namespace orvo {

/// make_HDR without its call frame: failures are thrown.
[[nodiscard]] std::pair<std::shared_ptr<Image>, std::shared_ptr<_ImageData<PixelRGB<float>>>>
make_EFLL(const std::vector<std::filesystem::path>& paths, const HDRSettings& settings, _Size<int> size,
          std::function<void(HDRMergingPhaseName)> onPhase);

/// Whether a merge returns the pixels of its middle frame. Dropped: frames are read late where that is possible, with
/// the same result.
enum class MiddleFrame
{
    Kept,
    Dropped
};

/// The same for any inputs. If a picture cannot be loaded, `complaint` is a line for standard error; empty: nothing is
/// written there.
[[nodiscard]] std::pair<std::shared_ptr<Image>, std::shared_ptr<_ImageData<PixelRGB<float>>>>
mergeBracket(const std::vector<PictureInput>& inputs, const HDRSettings& settings,
             std::function<void(HDRMergingPhaseName)> onPhase, const RunControl& run, MiddleFrame middleFrame,
             const std::string& complaint);

} // namespace orvo
