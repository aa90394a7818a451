// The EXIF tags, for whole blocks and for raw files.
#pragma once

#include "tiff_builder.hpp"

#include <scenes/exif.hpp>

namespace orvo::scenes {

inline constexpr std::uint16_t kTagMake = 271;
inline constexpr std::uint16_t kTagModel = 272;
inline constexpr std::uint16_t kTagOrientation = 274;
inline constexpr std::uint16_t kTagDateTime = 306;
inline constexpr std::uint16_t kTagExifDirectory = 34665;

[[nodiscard]] TiffDirectory exifDirectory(const ExifValues& values);

} // namespace orvo::scenes
