/// Upscaling by learned filters or by a network.
#pragma once

#include <orvo_common/export.hpp>
#include <orvo_core/image_data.hpp>

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>

namespace orvo {

/// What an upscaling is to do. A plain record.
struct ORVO_EXPORT UpscaleAISettings
{
    UpscaleAISettings();
    UpscaleAISettings(const UpscaleAISettings&) = default;
    UpscaleAISettings(UpscaleAISettings&&) noexcept = default;
    UpscaleAISettings& operator=(const UpscaleAISettings&) = default;
    UpscaleAISettings& operator=(UpscaleAISettings&&) noexcept = default;

    std::int32_t passes = 1;  ///< how often the picture is enlarged, each time by the scale of the method (2 as built in)
    std::int32_t denoise = 0; ///< noise that is smoothed before enlarging, 0 (none) to 3 (strong)
    bool faces = true;        ///< sharpen faces afterwards
    bool crisp = false;       ///< steepen soft edges after enlarging, without overshoot
    bool builtIn = false;     ///< use the built-in filters even where a network is configured
};

/// Identifies what a network has computed already.
struct ORVO_EXPORT mlCacheInfo
{
    std::string key;
    _Size<int> size;
};

/// The enlarged picture; empty on failure and on cancel.
[[nodiscard]] ORVO_EXPORT std::shared_ptr<_ImageData<PixelRGB<float>>>
upscaleX(const std::shared_ptr<const _ImageData<PixelRGB<float>>>& image, const UpscaleAISettings& settings,
         const std::shared_ptr<const _ImageData<float>>& mask, const std::atomic<bool>* cancel,
         const mlCacheInfo& cacheInfo);

} // namespace orvo
