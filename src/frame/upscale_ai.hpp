/// The steps of an upscaling.
#pragma once

#include <orvo_common/run_control.hpp>
#include <orvo_extensions/upscale.hpp>

#include <functional>

namespace orvo {

/// The functions that enlarge a picture and sharpen its faces.
struct UpscaleSteps
{
    using PicturePointer = std::shared_ptr<_ImageData<PixelRGB<float>>>;

    std::function<PicturePointer(const std::shared_ptr<const _ImageData<PixelRGB<float>>>&, const UpscaleAISettings&)>
        upscale;
    std::function<PicturePointer(const PicturePointer&)> sharpenFaces;

    /// The library's functions: upscaleX(), and DeblurAIEffect::withDeblurredFaces() with a new id. `run` must outlive
    /// them.
    [[nodiscard]] static UpscaleSteps ofTheLibrary(const RunControl& run = RunControl::none());
};

/// upscaleAI() with these steps.
[[nodiscard]] std::shared_ptr<Image> upscaleWith(const UpscaleSteps& steps, const std::filesystem::path& source,
                                                 const UpscaleAISettings& settings, const StateSettings& state,
                                                 const std::filesystem::path& statePath);

} // namespace orvo
