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

/// Name and version of this library, such as "orvo_extensions 0.1.0".
[[nodiscard]] ORVO_EXPORT std::string writingSoftware();

struct ImageWriteSettings
{
    ImageFileFormat format = ImageFileFormat::Tiff;
    /// Bits per sample: JPEG 8; PNG and TIFF 8 or 16; EXR 16 (half) or 32 (float).
    int bits = 16;
    /// JPEG only, 1..100.
    int jpegQuality = 95;
    /// Colour space of the file; empty: sRGB(). EXR is always linear light with the primaries of sRGB.
    std::shared_ptr<ColorProfile> profile;
    /// How much of each pixel the picture covers, 0 to 1; of the picture's size. Empty: everything, and no alpha in the
    /// file. The picture has the plain colours, not premultiplied ones. PNG and TIFF store them so (TIFF as
    /// unassociated alpha), EXR premultiplied in linear light, as it demands. JPEG has no alpha.
    std::shared_ptr<const _ImageData<float>> alpha;
    /// Written into the file (EXIF, IPTC, XMP), with orientation upright, the actual pixel size and no embedded
    /// preview. Empty: none.
    std::shared_ptr<const ImageMetadata> metadata;
    /// EXR only: luminance of the value 1 in cd/m2, for the attribute whiteLuminance; 0: unknown.
    float whiteLuminance = 0.0f;
    /// The program that the file names as its writer, in place of the one in `metadata`: Software in EXIF and TIFF, the
    /// texts of PNG, and the attributes of EXR. Empty: as in `metadata`.
    std::string software = writingSoftware();
    /// Polled every few rows; true stops the writing, and writeImage() returns false.
    std::function<bool()> cancel;
};

/// Format and bits from the extension: .jpg .jpeg .png .tif .tiff .exr in any case. Throws std::invalid_argument that
/// names the file and the known extensions.
[[nodiscard]] ORVO_EXPORT ImageWriteSettings writeSettingsForPath(const std::filesystem::path& path);

/// The longest side of a file of `format`, in pixels: 65500 for JPEG; the others use 31 bits, as pictures do.
[[nodiscard]] ORVO_EXPORT int longestSideOf(ImageFileFormat format);

/// Writes `picture` to `path` and replaces an existing file. Colours are converted by rows, so only 32 rows are held
/// besides the picture. Values are clamped to 0..1, except in EXR; NaN is written as 0. Integer samples are rounded to
/// nearest. JPEG, PNG and TIFF embed the ICC profile. JPEG keeps chroma at full resolution from quality 90 on; TIFF
/// is deflated and becomes BigTIFF beyond 4 GB; EXR carries the exposure of the metadata. The EXIF MakerNote is
/// written to JPEG (if it fits) and PNG, but not to TIFF, where its offsets would be wrong.
/// Returns false if cancelled, with the file removed. Throws FailureError that names the file and the cause (no
/// permission, FullDisk, ...), with the partial file removed, and std::invalid_argument on settings that do not fit
/// the format or an empty picture. The write is not atomic: a caller that needs atomicity writes to a temporary name
/// and renames. Can be called from any thread.
ORVO_EXPORT bool writeImage(const std::filesystem::path& path, const _ImageData<PixelRGB<float>>& picture,
                            const ImageWriteSettings& settings);

} // namespace orvo
