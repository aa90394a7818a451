/// Reads picture files.
#pragma once

#include <orvo_common/export.hpp>
#include <orvo_core/image.hpp>

#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>

namespace orvo {

/// What the reader does on the way. A set of bits.
enum class ImageReaderOpenFlag : std::int32_t
{
    None = 0,
    Upright = 0x2,      ///< turn and mirror as the orientation tag says
    Embedded = 0x4,     ///< keep the EXIF, IPTC and XMP blocks, to be carried over
    WorkingSpace = 0x8, ///< convert to the wanted colour space; otherwise the samples stay as the file has them
    Undeveloped = 0x10, ///< give raw files as linear light for a later development, not developed by LibRaw
    Complete = 0x1000,  ///< refuse a file whose pixels are cut off, instead of filling what is missing
    Bracket = 0x101e,   ///< all of the above: what every bracket operation loads with
};

/// The file to open.
struct ImageReadRequest
{
    std::filesystem::path path;
    std::string part; ///< names a picture inside a file that holds several; empty: the main one
};

struct ImageReadOptions
{
    /// Colour space of the result with WorkingSpace; empty: melissaRGB(). Undeveloped raw files are always
    /// linearMelissaRGB().
    std::shared_ptr<ColorProfile> profile;
    /// Pictures of more pixels are refused before anything of that size is allocated.
    std::int64_t maxPixels = 1'000'000'000;
};

/// The reader of the process. Every member is usable from any thread, also from inside parallel loops.
///
/// Formats, told by their content and not by their name: JPEG (gray, RGB, CMYK), PNG, TIFF, WebP, OpenEXR, HEIC and
/// AVIF, camera raw. 8 and 16 bit integers and floats, palettes; alpha is laid over black in the encoded values. NaN
/// becomes 0, infinities the largest half float. An unreadable, cut-off, hostile or gigantic file gives an empty result
/// and a log line of level Warning which names the file, what was expected and what was found; never an exception,
/// never a crash. Only regular files are opened.
///
/// Colours: the ICC block of the file; without one EXIF's Adobe RGB, the numbers of PNG and HEIC, else sRGB. EXR is
/// linear with its own primaries, sRGB's where it tells none. Ink without a profile is multiplied plainly:
/// (1 - c)(1 - k). Without WorkingSpace samples stay as the file has them, gray repeated, but ink comes as sRGB.
///
/// Undeveloped raw: white balanced by the camera's numbers, interpolated, linear, in linearMelissaRGB(). 1.0 is where
/// the channel of the smallest white balance factor (nearly always green) fills its sensor; the others go beyond. A
/// channel that is clipped is raised to the brightest one of its pixel, so what is clipped throughout is neutral and at
/// least 1. Frames of one camera share the scale, whatever is in them. Without Undeveloped: as LibRaw develops, sRGB.
///
/// Exposure: a file that tells time, aperture and sensitivity has an exposureOffset of 0 (raw: its baseline exposure).
/// Any other gets the log2 of its mean linear luminance, at least -14, even if it tells a bias: what is measured is
/// surer than what was meant. The bias counts where nothing can be measured.
class ORVO_EXPORT ImageReader
{
public:
    static ImageReader& instance();

    virtual ~ImageReader();

    /// Opens a file; its pixels are read at once. `known`: metadata that is already there, which is taken over instead
    /// of being read and measured again; size and file profile are still the file's; may be empty. `presets` is free
    /// for the raw development and empty here. `index`: the picture of a TIFF, EXR or HEIC that holds several, -1 for
    /// the main one; `part` of the request is the name of a picture of an EXR.
    /// Peak: the result plus some 32 rows for what is decoded row by row (JPEG, PNG, TIFF, EXR); plus libjpeg's
    /// coefficients (up to 6 bytes a pixel) for progressive JPEG, one plane of the file's own samples for interlaced
    /// PNG, WebP and HEIC, and LibRaw's planes (about 10 bytes a pixel) for raw.
    [[nodiscard]] virtual std::shared_ptr<Image> open(const ImageReadRequest& request, const ImageReadOptions& options,
                                                      ImageReaderOpenFlag flags,
                                                      std::shared_ptr<const ImageMetadata> known,
                                                      const std::string& presets, int index);

    /// Metadata without decoding the picture; empty if the file is no picture. A file without exposure data gets the
    /// log2 of the mean linear luminance of its thumbnail as exposureOffset (raw: of a half-size linear picture).
    [[nodiscard]] static std::shared_ptr<const ImageMetadata> readMetadata(const std::filesystem::path& path);

    /// The white balance of a raw file, as ImageMetadata tells it. False, and nothing written, where the file has none.
    [[nodiscard]] static bool getTemperatureAndTint(float& temperature, float& tint, const std::filesystem::path& path);

    /// A small sRGB picture with the longest side `side`, upright: the embedded preview or a reduced decode, so no
    /// more than needed is read. `flag` asks for exactly that side; without it a larger one may come. `known` may be
    /// empty, as may `cancel`, which is asked between steps. Empty on failure and on cancel.
    [[nodiscard]] virtual std::shared_ptr<_ImageData<PixelRGB<float>>>
    getThumbnailBySide(const std::filesystem::path& path, int side, bool flag,
                       std::shared_ptr<const ImageMetadata> known, const std::function<bool()>& cancel);

protected:
    ImageReader();
};

/// Whether the file is a raw camera file, by what is in it, not by its name. False for what cannot be read.
[[nodiscard]] ORVO_EXPORT bool isRawImageFile(const std::filesystem::path& path);

} // namespace orvo
