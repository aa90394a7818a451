/// Raw files of the scene camera.
#pragma once

#include <scenes/camera.hpp>
#include <scenes/exif.hpp>

#include <filesystem>
#include <optional>

namespace orvo::scenes {

/// Writes the sensor's data as a DNG 1.4: RGGB, 16 bits, not compressed, black 512, white 16383, the colours of
/// linear sRGB behind filters that pass 0.5 of red and 0.65 of blue; ColorMatrix1 and AsShotNeutral describe this, so a
/// developer that honours them recovers the scene's radiance. The sensor saturates at a radiance of
/// 2^-exposureValue() in green. The first directory has a preview of at most 256 pixels, a sub-directory the raw
/// picture. An odd last row or column of the scene is left out. Uses the camera's noise but not its response.
/// `exif` empty: no EXIF directory. Replaces an existing file. Throws std::runtime_error that names the file,
/// with the partial file removed. Peak: 2 bytes per pixel.
void writeDng(const std::filesystem::path& path, const RadianceScene& scene, const CameraSettings& camera,
              const Shot& shot, const std::optional<ExifValues>& exif);

} // namespace orvo::scenes
