/// Enlarging a picture with learned filters or a network.
#pragma once

#include <orvo/image_loader.hpp>
#include <orvo/upscaling.hpp>
#include <orvo_common/export.hpp>
#include <orvo_core/image.hpp>
#include <orvo_extensions/failure.hpp>

#include <filesystem>
#include <memory>

namespace orvo {

/// Opens `source`, enlarges it by `settings` (upscaleX()), sharpens its faces unless switched off, and returns the
/// result with the file's metadata, updated to the new size.
///
/// Example:
///
///     orvo::UpscaleAISettings settings;
///     settings.passes = 2; // 4 times each side
///     const auto enlarged = orvo::upscaleAI("small.jpg", settings, {}, {});
///     if (enlarged)
///         orvo::writeImage("large.png", *enlarged->imageData({}, {}, true), orvo::writeSettingsForPath("large.png"));
///
/// `state` and `statePath` select how the document is opened; default-constructed ones open the file as it is. Result:
/// the picture in melissaRGB(); empty on failure, with the reason in lastFailure(). A file that is not a picture gives
/// an empty result without a log line. If the picture cannot be decoded, or the settings or the network cannot be used,
/// the reader or upscaleX() logs the reason; an exception is logged as "Error in upscaleAI: ...". Blocks the calling
/// thread; cannot be cancelled, except that opening stops if `state.canceled` returns true. Peak: as upscaleX(), and,
/// if faces are sharpened, the result twice.
[[nodiscard]] ORVO_EXPORT std::shared_ptr<Image> upscaleAI(const std::filesystem::path& source,
                                                           const UpscaleAISettings& settings, StateSettings state,
                                                           std::filesystem::path statePath);

} // namespace orvo
