/// EXIF blocks of the scene camera.
#pragma once

#include <orvo_core/image_metadata.hpp>
#include <scenes/camera.hpp>

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace orvo::scenes {

/// The metadata that a camera writes.
struct ExifValues
{
    std::string make = "Orvo";
    std::string model = "Scene Camera";
    std::string dateTimeOriginal = "2026:06:21 16:30:00"; ///< in the form of EXIF; the same in every run
    ExposureSettings exposure;
    double exposureBias = 0.0;             ///< EV
    double focalLength = 24.0;             ///< mm
    std::optional<int> focalLength35;      ///< mm with the same view on 35 mm film, above 0; empty: not written
    std::optional<double> subjectDistance; ///< m, above 0; empty: not written
};

/// A TIFF structure without the "Exif\0\0" prefix, as EmbeddedMetadata::exif takes it (CIPA DC-008, Exif 2.32):
/// Make, Model, ExposureTime, FNumber, ISO, ExposureBias, DateTimeOriginal, SubjectDistance, FocalLength,
/// FocalLengthIn35mmFilm.
[[nodiscard]] std::vector<unsigned char> exifBytes(const ExifValues& values);

/// Metadata for writeImage() that puts them into the file of a picture of `size`.
[[nodiscard]] std::shared_ptr<const ImageMetadata> metadataWith(const ExifValues& values, _Size<int> size);

} // namespace orvo::scenes
