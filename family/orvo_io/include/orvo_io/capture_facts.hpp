/// How a picture belongs to its neighbours on a memory card.
#pragma once

#include <orvo_common/export.hpp>

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>

namespace orvo {

/// EXIF's ExposureMode.
enum class ExposureMode : std::int32_t
{
    Auto = 0,
    Manual = 1,
    AutoBracket = 2,
};

/// What a camera notes about one release of the shutter besides ImageMetadata. What the file does not say is empty.
struct CaptureFacts
{
    std::optional<double> seconds; ///< as readCaptureTime()
    std::string bodySerial;
    std::optional<ExposureMode> exposureMode;
    std::optional<double> exposureBias; ///< EV
    /// Position within a burst, bracket or series, as Canon, Fujifilm, Panasonic and Sony write it. It rises with each
    /// picture.
    std::optional<int> sequenceNumber;
};

/// Empty facts if the file is no picture. Reads the metadata only; usable from any thread.
[[nodiscard]] ORVO_EXPORT CaptureFacts readCaptureFacts(const std::filesystem::path& path);

} // namespace orvo
