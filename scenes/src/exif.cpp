#include "exif_directory.hpp"

#include <algorithm>
#include <cmath>

namespace orvo::scenes {

TiffDirectory exifDirectory(const ExifValues& values)
{
    constexpr double kLargestShort = 65535.0;
    const auto number = [](const double& value) { return std::span(&value, 1); };
    TiffDirectory exif;
    exif.rationals(33434, number(values.exposure.shutterSeconds));
    exif.rationals(33437, number(values.exposure.aperture));
    exif.number16(34855,
                  static_cast<std::uint16_t>(std::clamp(std::round(values.exposure.isoSpeed), 1.0, kLargestShort)));
    exif.undefined(36864, "0232");
    exif.text(36867, values.dateTimeOriginal);
    exif.signedRationals(37380, number(values.exposureBias));
    if (values.subjectDistance)
        exif.rationals(37382, number(*values.subjectDistance));
    exif.rationals(37386, number(values.focalLength));
    if (values.focalLength35)
        exif.number16(41989, static_cast<std::uint16_t>(std::clamp(*values.focalLength35, 1, 65535)));
    return exif;
}

std::vector<unsigned char> exifBytes(const ExifValues& values)
{
    constexpr std::uint16_t kUpright = 1;
    TiffDirectory first;
    first.text(kTagMake, values.make);
    first.text(kTagModel, values.model);
    first.number16(kTagOrientation, kUpright);
    first.text(kTagDateTime, values.dateTimeOriginal);
    first.number32(kTagExifDirectory, 0);
    first.number32(kTagExifDirectory, static_cast<std::uint32_t>(kTiffHeaderBytes + first.size()));

    std::vector<unsigned char> block;
    appendTiffHeader(block);
    first.append(block);
    exifDirectory(values).append(block);
    return block;
}

std::shared_ptr<const ImageMetadata> metadataWith(const ExifValues& values, _Size<int> size)
{
    auto embedded = std::make_shared<EmbeddedMetadata>();
    embedded->exif = exifBytes(values);
    auto metadata = std::make_shared<ImageMetadata>();
    metadata->size = size;
    metadata->embedded = embedded;
    return metadata;
}

} // namespace orvo::scenes
