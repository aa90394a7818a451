#include <orvo_io/image_writer.hpp>
#include <scenes/bracket_files.hpp>
#include <scenes/dng.hpp>
#include <scenes/exif.hpp>

namespace orvo::scenes {

namespace {

const char* endingOf(BracketFileFormat format)
{
    switch (format) {
    case BracketFileFormat::Jpeg:
        return ".jpg";
    case BracketFileFormat::Tiff16:
        return ".tif";
    case BracketFileFormat::Dng:
        return ".dng";
    }
    return "";
}

} // namespace

std::filesystem::path writeFrame(const Bracket& bracket, std::size_t index, const std::filesystem::path& folder,
                                 const BracketFileSettings& settings)
{
    const Shot& shot = bracket.shots().at(index);
    const auto path = folder / (settings.prefix + "_" + std::to_string(index) + endingOf(settings.format));
    ExifValues exif;
    exif.exposure = shot.exposure;
    exif.exposureBias = exposureValue(shot.exposure);
    if (settings.format == BracketFileFormat::Dng) {
        writeDng(path, bracket.scene(), bracket.camera(), shot, settings.exif ? std::optional(exif) : std::nullopt);
        return path;
    }
    const auto picture = takePicture(bracket.scene(), bracket.camera(), shot);
    ImageWriteSettings write;
    write.format = settings.format == BracketFileFormat::Jpeg ? ImageFileFormat::Jpeg : ImageFileFormat::Tiff;
    write.bits = settings.format == BracketFileFormat::Jpeg ? 8 : 16;
    write.jpegQuality = settings.jpegQuality;
    write.profile = picture->colorProfile();
    if (settings.exif)
        write.metadata = metadataWith(exif, picture->size());
    writeImage(path, *picture, write);
    return path;
}

std::vector<std::filesystem::path> writeBracket(const Bracket& bracket, const std::filesystem::path& folder,
                                                const BracketFileSettings& settings)
{
    std::vector<std::filesystem::path> paths;
    for (std::size_t i = 0; i < bracket.size(); ++i)
        paths.push_back(writeFrame(bracket, i, folder, settings));
    return paths;
}

} // namespace orvo::scenes
