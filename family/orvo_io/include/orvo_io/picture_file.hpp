/// Picture files by their first bytes.
#pragma once

#include <orvo_common/export.hpp>
#include <orvo_core/geometry.hpp>

#include <filesystem>

namespace orvo {

/// Whether the file begins like one of the formats that ImageReader reads. False if it cannot be opened; logs nothing.
/// Throws std::bad_alloc.
[[nodiscard]] ORVO_EXPORT bool beginsLikePicture(const std::filesystem::path& path);

/// Whether the file begins like a JPEG. False if it cannot be opened; logs nothing. Throws std::bad_alloc.
[[nodiscard]] ORVO_EXPORT bool isJpegFile(const std::filesystem::path& path);

/// Bits per sample that a file needs to hold what this one does: 8 for JPEG, WebP, palettes and samples of fewer bits;
/// the number of PNG, TIFF, HEIC and AVIF; 16 for raw and EXR. 0 if the file cannot be read; logs nothing. Decodes no
/// pixels. Throws std::bad_alloc.
[[nodiscard]] ORVO_EXPORT int sampleBitsOf(const std::filesystem::path& path);

/// The size of the picture in a file, upright; 0 by 0 if the file cannot be read; logs nothing. Decodes no pixels.
/// Throws std::bad_alloc.
[[nodiscard]] ORVO_EXPORT _Size<int> pictureSizeOf(const std::filesystem::path& path);

} // namespace orvo
