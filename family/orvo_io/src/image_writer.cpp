#include "row_source.hpp"

#include <orvo_common/wide_path.hpp>
#include <orvo_io/image_writer.hpp>

#include <algorithm>
#include <cctype>
#include <limits>
#include <stdexcept>

namespace orvo {
namespace {

void checkSettings(const std::filesystem::path& path, const _ImageData<PixelRGB<float>>& picture,
                   const ImageWriteSettings& settings)
{
    const auto refuse = [&](const std::string& text) { throw std::invalid_argument(pathText(path) + ": " + text); };
    if (picture.width() < 1 || picture.height() < 1)
        refuse("the picture is empty");
    if (settings.alpha && settings.format == ImageFileFormat::Jpeg)
        refuse("a JPEG has no alpha");
    if (settings.alpha && settings.alpha->size() != picture.size())
        refuse("ImageWriteSettings.alpha has " + std::to_string(settings.alpha->width()) + " x " +
               std::to_string(settings.alpha->height()) + " pixels, the picture " + std::to_string(picture.width()) +
               " x " + std::to_string(picture.height()));
    const int bits = settings.bits;
    const auto expectBits = [&](bool well, const char* text) {
        if (!well)
            refuse("ImageWriteSettings.bits is " + std::to_string(bits) + ", expected " + text);
    };
    switch (settings.format) {
    case ImageFileFormat::Jpeg: {
        expectBits(bits == 8, "8 for JPEG");
        if (settings.jpegQuality < 1 || settings.jpegQuality > 100)
            refuse("ImageWriteSettings.jpegQuality is " + std::to_string(settings.jpegQuality) + ", expected 1..100");
        if (std::max(picture.width(), picture.height()) > longestSideOf(settings.format))
            refuse("a JPEG has at most " + std::to_string(longestSideOf(settings.format)) +
                   " pixels a side, the picture has " + std::to_string(picture.width()) + " x " +
                   std::to_string(picture.height()));
        break;
    }
    case ImageFileFormat::Png:
        expectBits(bits == 8 || bits == 16, "8 or 16 for PNG");
        break;
    case ImageFileFormat::Tiff:
        expectBits(bits == 8 || bits == 16, "8 or 16 for TIFF");
        break;
    case ImageFileFormat::Exr:
        expectBits(bits == 16 || bits == 32, "16 or 32 for EXR");
        break;
    default:
        refuse("ImageWriteSettings.format is " + std::to_string(static_cast<int>(settings.format)) +
               ", expected Jpeg, Png, Tiff or Exr");
    }
    if (settings.profile && settings.format != ImageFileFormat::Exr && settings.profile->channelCount() != 3)
        refuse("ImageWriteSettings.profile has " + std::to_string(settings.profile->channelCount()) +
               " channels, expected 3");
}

void writeWhole(const std::filesystem::path& path, const _ImageData<PixelRGB<float>>& picture,
                const ImageWriteSettings& settings, const RunControl& run)
{
    io::OutputFile file(path);
    switch (settings.format) {
    case ImageFileFormat::Jpeg:
        io::writeJpeg(file, picture, settings, run);
        break;
    case ImageFileFormat::Png:
        io::writePng(file, picture, settings, run);
        break;
    case ImageFileFormat::Tiff:
        io::writeTiff(file, picture, settings, run);
        break;
    case ImageFileFormat::Exr:
        io::writeExr(file, picture, settings, run);
        break;
    }
    file.finish();
}

} // namespace

std::string writingSoftware() { return "orvo_extensions " ORVO_VERSION; }

int longestSideOf(ImageFileFormat format)
{
    constexpr int kLongestJpeg = 65500; // libjpeg's limit
    return format == ImageFileFormat::Jpeg ? kLongestJpeg : std::numeric_limits<int>::max();
}

ImageWriteSettings writeSettingsForPath(const std::filesystem::path& path)
{
    std::string ending = pathText(path.extension());
    std::transform(ending.begin(), ending.end(), ending.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    ImageWriteSettings settings;
    if (ending == ".jpg" || ending == ".jpeg") {
        settings.format = ImageFileFormat::Jpeg;
        settings.bits = 8;
    } else if (ending == ".png") {
        settings.format = ImageFileFormat::Png;
    } else if (ending == ".tif" || ending == ".tiff") {
        settings.format = ImageFileFormat::Tiff;
    } else if (ending == ".exr") {
        settings.format = ImageFileFormat::Exr;
    } else {
        throw std::invalid_argument(pathText(path) +
                                    ": expected a name that ends in .jpg, .jpeg, .png, .tif, .tiff or .exr");
    }
    return settings;
}

bool writeImage(const std::filesystem::path& path, const _ImageData<PixelRGB<float>>& picture,
                const ImageWriteSettings& settings)
{
    return details::keepingFailure([&] {
        checkSettings(path, picture, settings);
        ImageWriteSettings complete = settings;
        if (settings.format == ImageFileFormat::Exr)
            complete.profile = ColorProfileType::linearSRGB();
        else if (!settings.profile)
            complete.profile = ColorProfileType::sRGB();
        const RunControl run(settings.cancel);
        try {
            writeWhole(path, picture, complete, run);
        } catch (const FailureError& error) {
            if (error.failure().kind != FailureKind::Cancelled)
                throw;
            details::stateFailure(error.failure());
            return false;
        }
        return true;
    });
}

} // namespace orvo
