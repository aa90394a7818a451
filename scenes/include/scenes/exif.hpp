/// EXIF blocks of the scene camera.
#pragma once

#include <scenes/camera.hpp>

#include <string>
#include <vector>

namespace orvo::scenes {

/// What the camera writes beside the picture.
struct ExifValues
{
    std::string make = "Orvo";
    std::string model = "Scene Camera";
    std::string dateTimeOriginal = "2026:06:21 16:30:00"; ///< form of EXIF; the same in every run
    ExposureSettings exposure;
    double exposureBias = 0.0; ///< EV
    double focalLength = 24.0; ///< mm
};

/// A TIFF structure without the "Exif\0\0" prefix, as EmbeddedMetadata::exif takes it (CIPA DC-008, Exif 2.32):
/// Make, Model, ExposureTime, FNumber, ISO, ExposureBias, DateTimeOriginal, FocalLength.
[[nodiscard]] std::vector<unsigned char> exifBytes(const ExifValues& values);

} // namespace orvo::scenes
