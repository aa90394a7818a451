/// Views of a sphere scene as camera files.
#pragma once

#include <scenes/sphere_scene.hpp>

#include <cstdint>
#include <filesystem>

namespace orvo::scenes {

struct SphereFileSettings
{
    int jpegQuality = 95; ///< 1..100
    bool exif = true;     ///< false: as if a chat program had stripped the file
    std::uint64_t noiseSeed = 1;
};

/// Writes a camera's picture of `scene` to `path`, in sRGB, in the format of its extension. EXIF has an exposure time
/// for the view's EV, and the focal length as if the picture were 36 mm wide. Throws as writeSettingsForPath() and
/// writeImage() do. Peak: the picture in floats.
void writeSphereView(const SphereScene& scene, const SphereView& view, const std::filesystem::path& path,
                     const SphereFileSettings& settings = {});

} // namespace orvo::scenes
