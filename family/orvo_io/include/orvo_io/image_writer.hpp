/// Writes picture files.
#pragma once

#include <orvo_common/export.hpp>
#include <orvo_core/image_data.hpp>
#include <orvo_core/image_metadata.hpp>

#include <filesystem>
#include <functional>
#include <memory>
#include <string>

namespace orvo {

enum class ImageFileFormat
{
    Jpeg,
    Png,
    Tiff,
    Exr
};

struct ImageWriteSettings
{
    ImageFileFormat format = ImageFileFormat::Tiff;
    /// Bits of a sample: JPEG 8; PNG and TIFF 8 or 16; EXR 16 (half) or 32 (float).
    int bits = 16;
    /// JPEG only, 1..100.
    int jpegQuality = 95;
    /// Colour space of the file; empty: sRGB(). EXR always holds linear light with the primaries of sRGB.
    std::shared_ptr<ColorProfile> profile;
    /// Carried into the file (EXIF, IPTC, XMP); orientation is written as upright, pixel size as it is, an embedded
    /// preview is dropped. Empty: none.
    std::shared_ptr<const ImageMetadata> metadata;
    /// Asked every few rows; true stops the writing, and writeImage() returns false.
    std::function<bool()> cancel;
};

/// Format and bits by the ending of the name: .jpg .jpeg .png .tif .tiff .exr in any case. Throws std::invalid_argument
/// that names the file and the endings that are known.
[[nodiscard]] ORVO_EXPORT ImageWriteSettings writeSettingsForPath(const std::filesystem::path& path);

/// The most pixels a side that a file of `format` holds: 65500 of JPEG; the others count with 31 bits, as pictures do.
[[nodiscard]] ORVO_EXPORT int longestSideOf(ImageFileFormat format);

/// Writes `picture` to `path`, replacing a file that is there. Colours are converted row by row, so nothing of the
/// picture's size is held beside it (32 rows are). Values outside 0..1 are limited, except in EXR; NaN is written as 0.
/// Integer samples are rounded to the nearest. JPEG, PNG and TIFF embed the ICC profile. JPEG keeps colours at full
/// size from quality 90 on; TIFF is deflated and becomes BigTIFF beyond 4 GB; EXR carries the exposure of the metadata.
/// The maker's block of EXIF goes into JPEG (where it fits) and PNG, not into TIFF, where its offsets would be wrong.
/// Returns false if it was cancelled, with the file removed. Throws std::runtime_error that names the file and the
/// cause (no permission, disk full, ...), with a partly written file removed, and std::invalid_argument on settings
/// that do not fit the format or an empty picture. The write is not atomic: a caller who wants that writes beside and
/// renames. Usable from any thread.
ORVO_EXPORT bool writeImage(const std::filesystem::path& path, const _ImageData<PixelRGB<float>>& picture,
                            const ImageWriteSettings& settings);

} // namespace orvo
