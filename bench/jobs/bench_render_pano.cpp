// Renders a row of JPEG pictures all around a point: bench_render_pano FOLDER COUNT WIDTH HEIGHT
#include <orvo_io/image_writer.hpp>
#include <scenes/exif.hpp>
#include <scenes/sphere_scene.hpp>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <string>

namespace {

namespace scenes = orvo::scenes;

// A common lens for panoramas in either orientation; as other programs compute it, by the diagonal of 36 x 24 mm.
constexpr int kFocalLength35 = 28;
constexpr double kDiagonal35 = 43.26661530556787; // mm

// Neighbours share two fifths, as photographers are advised.
constexpr double kShared = 0.4;

// Hand shake: degrees each way. The exposures vary like those of a camera that meters each shot.
constexpr double kShake = 1.0;
constexpr double kExposures[] = {0.0, 0.2, -0.1, 0.3, 0.1, -0.2};
constexpr double kNoise = 0.004; // of encoded values, as of a small sensor at ISO 100

void render(const std::filesystem::path& folder, int count, orvo::_Size<int> size)
{
    scenes::SphereView like;
    like.size = size;
    like.focal = kFocalLength35 / kDiagonal35 * std::hypot(size.width, size.height);
    like.vignetting = {0.15, 0.05, 0.0};
    like.noise = kNoise;
    const double degrees = std::atan(0.5 * size.width / like.focal) * 360.0 / M_PI;

    scenes::ExifValues exif;
    exif.focalLength = 5.0;
    exif.focalLength35 = kFocalLength35;
    orvo::ImageWriteSettings write;
    write.format = orvo::ImageFileFormat::Jpeg;
    write.bits = 8;
    write.profile = orvo::ColorProfileType::sRGB();
    write.metadata = scenes::metadataWith(exif, size);

    const scenes::SphereScene scene;
    int number = 0;
    for (auto view : scenes::rowOfViews(count, degrees * (1.0 - kShared), 0.0, like, kShake, 3)) {
        view.ev = kExposures[static_cast<std::size_t>(number) % std::size(kExposures)];
        ++number;
        const auto picture = scene.see(view, static_cast<std::uint64_t>(number));
        orvo::writeImage(folder / ("pano_" + std::to_string(number) + ".jpg"), *picture, write);
    }
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 5) {
        std::fputs("usage: bench_render_pano FOLDER COUNT WIDTH HEIGHT\n", stderr);
        return 2;
    }
    try {
        std::filesystem::create_directories(argv[1]);
        render(argv[1], std::atoi(argv[2]), {std::atoi(argv[3]), std::atoi(argv[4])});
    } catch (const std::exception& error) {
        std::fprintf(stderr, "bench_render_pano: %s\n", error.what());
        return 1;
    }
}
