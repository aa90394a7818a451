/// Enlarging a picture by learned filters or a network.
#pragma once

#include <orvo/image_loader.hpp>
#include <orvo/upscaling.hpp>
#include <orvo_common/export.hpp>
#include <orvo_core/image.hpp>
#include <orvo_extensions/failure.hpp>

#include <filesystem>
#include <memory>

namespace orvo {

/// Opens `source`, enlarges it as `settings` say (upscaleX()), sharpens its faces unless told not to, and wraps the
/// result with the file's metadata, which then tell the new size.
///
/// Example:
///
///     orvo::UpscaleAISettings settings;
///     settings.passes = 2; // 4 times each side
///     const auto enlarged = orvo::upscaleAI("small.jpg", settings, {}, {});
///     if (enlarged)
///         orvo::writeImage("large.png", *enlarged->imageData({}, {}, true), orvo::writeSettingsForPath("large.png"));
///
/// `state` and `statePath` say how the document is to be opened; default constructed ones open the file plainly.
/// Result: the picture in melissaRGB(); empty on failure, with the reason in lastFailure(). A file that is no picture
/// gives an empty result without a log line. Of a picture that cannot be decoded, or settings or a network that cannot
/// be used, the reader's or upscaleX()'s line tells why; what an exception says is logged as "Error in upscaleAI: ...".
/// Blocks the calling thread; cannot be cancelled, except that opening stops where `state.canceled` says so. Peak: as
/// upscaleX(), and, if faces are sharpened, the result twice.
[[nodiscard]] ORVO_EXPORT std::shared_ptr<Image> upscaleAI(const std::filesystem::path& source,
                                                           const UpscaleAISettings& settings, StateSettings state,
                                                           std::filesystem::path statePath);

} // namespace orvo
