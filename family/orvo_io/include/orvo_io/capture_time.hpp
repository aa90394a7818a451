/// When a picture was taken.
#pragma once

#include <orvo_common/export.hpp>

#include <filesystem>
#include <optional>

namespace orvo {

/// By the camera's own clock, in seconds since 1970, with the fraction of a second if EXIF has it. Empty if the file is
/// no picture or has no time. Reads the metadata only; usable from any thread.
[[nodiscard]] ORVO_EXPORT std::optional<double> readCaptureTime(const std::filesystem::path& path);

} // namespace orvo
