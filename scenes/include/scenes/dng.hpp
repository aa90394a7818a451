/// Raw files of the scene camera.
#pragma once

#include <scenes/camera.hpp>
#include <scenes/exif.hpp>

#include <filesystem>
#include <optional>

namespace orvo::scenes {

/// Writes what the sensor sees as a DNG 1.4: RGGB, 16 bits, not compressed, black 512, white 16383, the colours of
/// linear sRGB behind filters of which red lets 0.5 and blue 0.65 of the light through; ColorMatrix1 and AsShotNeutral
/// say so, so a developer that honours them gets the scene's radiance back. The sensor is full at a radiance of
/// 2^-exposureValue() in green. A preview of at most 256 pixels stands in the first directory, the raw picture in a
/// sub-directory. An odd last row or column of the scene is left out. Noise is the camera's; its response is not used.
/// `exif` empty: no EXIF directory. Replaces a file that is there. Throws std::runtime_error that names the file,
/// with what was written removed. Peak: 2 bytes per pixel.
void writeDng(const std::filesystem::path& path, const RadianceScene& scene, const CameraSettings& camera,
              const Shot& shot, const std::optional<ExifValues>& exif);

} // namespace orvo::scenes
