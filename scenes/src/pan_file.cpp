#include <scenes/pan_file.hpp>
#include <scenes/sphere_scene.hpp>

namespace orvo::scenes {

std::filesystem::path writePan(const std::filesystem::path& path, std::size_t frames, const VideoFileSettings& settings)
{
    constexpr double kStep = 1.5; // degrees
    constexpr std::uint64_t kSeed = 3;
    const SphereScene scene(kSeed);
    SphereView view;
    view.size = {160, 120};
    view.focal = 160;
    const auto draw = [&](std::size_t index, std::uint8_t* bgr) {
        view.rotation = rotationOf(kStep * static_cast<double>(index), 0, 0);
        const auto picture = scene.see(view);
        const auto byte = [](float value) { return static_cast<std::uint8_t>(255.0f * value); };
        for (std::size_t i = 0; i < picture->pixelCount(); ++i) {
            const auto& pixel = picture->data()[i];
            bgr[3 * i] = byte(pixel.b);
            bgr[3 * i + 1] = byte(pixel.g);
            bgr[3 * i + 2] = byte(pixel.r);
        }
    };
    writeVideo(path, view.size, frames, draw, settings);
    return path;
}

} // namespace orvo::scenes
