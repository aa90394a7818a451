#include <orvo_io/image_writer.hpp>
#include <scenes/exif.hpp>
#include <scenes/focus_series_files.hpp>

namespace orvo::scenes {

std::filesystem::path writeFocusFrame(const FocusSeries& series, int index, const std::filesystem::path& folder,
                                      const FocusFileSettings& settings)
{
    const auto picture = series.frame(index);
    const bool jpeg = settings.format == FocusFileFormat::Jpeg;
    const auto path = folder / (settings.prefix + "_" + std::to_string(index) + (jpeg ? ".jpg" : ".tif"));
    ImageWriteSettings write;
    write.format = jpeg ? ImageFileFormat::Jpeg : ImageFileFormat::Tiff;
    write.bits = jpeg ? 8 : 16;
    write.jpegQuality = settings.jpegQuality;
    write.profile = ColorProfileType::sRGB();
    if (settings.exif) {
        ExifValues exif;
        exif.exposure.aperture = series.settings().lens.aperture;
        exif.exposure.isoSpeed = series.settings().isoSpeed;
        exif.focalLength = series.settings().lens.focalLength;
        exif.subjectDistance = series.focusDistance(index);
        write.metadata = metadataWith(exif, picture->size());
    }
    writeImage(path, *picture, write);
    return path;
}

std::vector<std::filesystem::path> writeFocusSeries(const FocusSeries& series, const std::filesystem::path& folder,
                                                    const FocusFileSettings& settings)
{
    std::vector<std::filesystem::path> paths;
    for (int i = 0; i < series.frameCount(); ++i)
        paths.push_back(writeFocusFrame(series, i, folder, settings));
    return paths;
}

} // namespace orvo::scenes
