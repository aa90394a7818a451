/// What is known of a picture before it is compared with its neighbours.
#pragma once

#include <orvo_core/geometry.hpp>
#include <orvo_io/capture_facts.hpp>

#include <cstddef>
#include <filesystem>
#include <optional>
#include <string>

namespace orvo {

struct PictureFacts
{
    std::filesystem::path path;
    std::size_t position = 0; ///< among the given paths
    _Size<int> size;          ///< upright
    std::string camera;       ///< maker, model and serial number; empty if unknown
    CaptureFacts capture;
    bool hasExposure = false;    ///< `ev` is that of the metadata, else measured
    double ev = 0.0;             ///< absolute
    double shutterSeconds = 0.0; ///< 0 if unknown
    double focalLength = 0.0;    ///< mm, 0 if unknown
    double focusDistance = 0.0;  ///< m, 0 if unknown
};

/// Throws FailureError for a file that is no picture.
[[nodiscard]] PictureFacts readPictureFacts(const std::filesystem::path& path, std::size_t position);

/// Exposures closer than this are one. Cameras round their times to thirds of a stop; a measured brightness of an
/// unchanged exposure varies with moving subjects and the light.
[[nodiscard]] double sameExposureEv(const PictureFacts& a, const PictureFacts& b);

/// From the end of the earlier exposure to the start of the later one, in seconds; empty if a time is unknown. Negative
/// if cameras note the end of an exposure.
[[nodiscard]] std::optional<double> pauseBetween(const PictureFacts& earlier, const PictureFacts& later);

} // namespace orvo
