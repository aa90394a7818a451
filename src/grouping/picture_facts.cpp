#include "grouping/picture_facts.hpp"

#include <orvo/bracket_exposure.hpp>
#include <orvo_common/failure.hpp>
#include <orvo_io/image_reader.hpp>

namespace orvo {

PictureFacts readPictureFacts(const std::filesystem::path& path, std::size_t position)
{
    const auto metadata = ImageReader::readMetadata(path);
    if (!metadata)
        throw FailureError(
            lastFailure().value_or(Failure{FailureKind::UnreadableFile, path, "this is no picture that can be read"}));
    PictureFacts facts;
    facts.path = path;
    facts.position = position;
    facts.size = metadata->size;
    facts.capture = readCaptureFacts(path);
    if (!metadata->cameraMake.empty() || !metadata->cameraModel.empty())
        facts.camera = metadata->cameraMake + '\n' + metadata->cameraModel + '\n' + facts.capture.bodySerial;
    facts.hasExposure = metadata->hasExposure();
    facts.ev = static_cast<double>(exposureValue(metadata.get()));
    facts.shutterSeconds = static_cast<double>(metadata->shutterSeconds);
    facts.focalLength = static_cast<double>(metadata->focalLength);
    facts.focusDistance = static_cast<double>(metadata->subjectDistance);
    return facts;
}

double sameExposureEv(const PictureFacts& a, const PictureFacts& b)
{
    constexpr double kOfMetadata = 0.2;
    constexpr double kMeasured = 0.3;
    return a.hasExposure && b.hasExposure ? kOfMetadata : kMeasured;
}

std::optional<double> pauseBetween(const PictureFacts& earlier, const PictureFacts& later)
{
    if (!earlier.capture.seconds || !later.capture.seconds)
        return std::nullopt;
    return *later.capture.seconds - *earlier.capture.seconds - earlier.shutterSeconds;
}

} // namespace orvo
