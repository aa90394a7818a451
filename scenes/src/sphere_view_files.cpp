#include <orvo_io/image_writer.hpp>
#include <scenes/camera.hpp>
#include <scenes/exif.hpp>
#include <scenes/sphere_view_files.hpp>

namespace orvo::scenes {

void writeSphereView(const SphereScene& scene, const SphereView& view, const std::filesystem::path& path,
                     const SphereFileSettings& settings)
{
    ImageWriteSettings write = writeSettingsForPath(path);
    write.jpegQuality = settings.jpegQuality;
    write.profile = ColorProfileType::sRGB();
    if (settings.exif) {
        constexpr double kFilmWidth = 36.0; // mm
        ExifValues exif;
        exif.exposure = exposedBy(exif.exposure, view.ev);
        exif.focalLength = view.focal * kFilmWidth / view.size.width;
        write.metadata = metadataWith(exif, view.size);
    }
    writeImage(path, *scene.see(view, settings.noiseSeed), write);
}

} // namespace orvo::scenes
