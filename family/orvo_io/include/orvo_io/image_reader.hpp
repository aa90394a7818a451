/// Reads picture files.
#pragma once

#include <orvo_common/export.hpp>
#include <orvo_core/image.hpp>
#include <orvo_io/memory_picture.hpp>

#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>

namespace orvo {

/// Options of the reader. A set of bits.
enum class ImageReaderOpenFlag : std::int32_t
{
    None = 0,
    Upright = 0x2,      ///< apply the orientation tag
    Embedded = 0x4,     ///< keep the EXIF, IPTC and XMP blocks, so that a writer can copy them
    WorkingSpace = 0x8, ///< convert to the requested colour space; otherwise keep the samples of the file
    Undeveloped = 0x10, ///< return raw files as linear light for later development, not developed by LibRaw
    Complete = 0x1000,  ///< refuse a truncated file instead of filling the missing pixels
    Bracket = 0x101e,   ///< all of the above: what every bracket operation uses
};

/// The file to open.
struct ImageReadRequest
{
    std::filesystem::path path;
    std::string part;                      ///< name of a picture in a file that contains several; empty: the main one
    const MemoryPicture* memory = nullptr; ///< if any, it is read instead of a file; `path` is then for messages only
};

struct ImageReadOptions
{
    /// Colour space of the result with WorkingSpace; empty: melissaRGB(). Undeveloped raw files are always in
    /// linearMelissaRGB().
    std::shared_ptr<ColorProfile> profile;
    /// With WorkingSpace: leaves a picture as it is if its profile is exactly ColorProfileType::sRGB(), not only one
    /// that counts as equal. The profile of the result says what was done.
    bool keepsSRGB = false;
    /// Pictures with more pixels are refused before memory for them is allocated.
    std::int64_t maxPixels = 1'000'000'000;
};

/// The reader of the process. Every member can be called from any thread, also inside of parallel loops.
///
/// Formats, detected by content and not by name: JPEG (gray, RGB, CMYK), PNG, TIFF, WebP, OpenEXR, HEIC and
/// AVIF, camera raw. 8 and 16 bit integers and floats, palettes; alpha is composited over black in the encoded values.
/// NaN becomes 0, infinities the largest half float. An unreadable, truncated, hostile or gigantic file returns an
/// empty result and logs one line of level Warning that names the file, what was expected and what was found; it never
/// throws and never crashes. Only regular files are opened.
///
/// Colours: the ICC block of the file; without one, EXIF's Adobe RGB or the colour numbers of PNG and HEIC, else sRGB.
/// EXR is linear with its own primaries, or those of sRGB if it has none. Ink without a profile is multiplied:
/// (1 - c)(1 - k). Without WorkingSpace the samples stay as in the file, with gray repeated; ink is converted to sRGB.
///
/// Undeveloped raw: white balanced by the camera's numbers, interpolated, linear, in linearMelissaRGB(). 1.0 is where
/// the channel with the smallest white balance factor (nearly always green) saturates; the others exceed it. A clipped
/// channel is raised to the brightest one of its pixel, so a pixel that is clipped in all channels is neutral and at
/// least 1. Frames of one camera share the scale, whatever they show. Without Undeveloped: as LibRaw develops, sRGB.
///
/// Exposure: a file with time, aperture and sensitivity has an exposureOffset of 0 (raw: its baseline exposure). Any
/// other file gets the log2 of its mean linear luminance, at least -14, even if it has a bias: a measurement is more
/// reliable than an intention. The bias is used where nothing can be measured.
class ORVO_EXPORT ImageReader
{
public:
    static ImageReader& instance();

    virtual ~ImageReader();

    /// Opens a file and reads its pixels at once. `known`: metadata that the caller already has, used instead of
    /// reading and measuring it again; size and file profile still come from the file; may be empty. `presets` is
    /// reserved for raw development and empty here. `index`: the picture of a TIFF, EXR or HEIC that contains several,
    /// -1 for the main one; `part` of the request names a picture of an EXR.
    /// Peak: the result plus about 32 rows for formats decoded by rows (JPEG, PNG, TIFF, EXR); plus libjpeg's
    /// coefficients (up to 6 bytes a pixel) for progressive JPEG, one plane of the file's own samples for interlaced
    /// PNG, WebP and HEIC, and LibRaw's planes (about 10 bytes a pixel) for raw.
    [[nodiscard]] virtual std::shared_ptr<Image> open(const ImageReadRequest& request, const ImageReadOptions& options,
                                                      ImageReaderOpenFlag flags,
                                                      std::shared_ptr<const ImageMetadata> known,
                                                      const std::string& presets, int index);

    /// Metadata without decoding the picture; empty if the file is not a picture. A file without exposure data gets
    /// the log2 of the mean linear luminance of its thumbnail as exposureOffset (raw: of a half-size linear picture).
    [[nodiscard]] static std::shared_ptr<const ImageMetadata> readMetadata(const std::filesystem::path& path);

    /// The same for a picture in memory.
    [[nodiscard]] static std::shared_ptr<const ImageMetadata> readMetadata(const MemoryPicture& picture);

    /// The white balance of a raw file, in the units of ImageMetadata. False, with nothing written, if it has none.
    [[nodiscard]] static bool getTemperatureAndTint(float& temperature, float& tint, const std::filesystem::path& path);

    /// A small upright sRGB picture with the longest side `side`: the embedded preview or a reduced decode, so that no
    /// more than necessary is read. `flag` requires exactly that side; without it the result may be larger. `known` may
    /// be empty, as may `cancel`, which is polled between steps. Empty on failure and on cancel.
    [[nodiscard]] virtual std::shared_ptr<_ImageData<PixelRGB<float>>>
    getThumbnailBySide(const std::filesystem::path& path, int side, bool flag,
                       std::shared_ptr<const ImageMetadata> known, const std::function<bool()>& cancel);

protected:
    ImageReader();
};

/// Whether the file is a camera raw file, by its content. False for an unreadable file.
[[nodiscard]] ORVO_EXPORT bool isRawImageFile(const std::filesystem::path& path);

} // namespace orvo
