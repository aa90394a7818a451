#include "picture_run.hpp"

#include "checks.hpp"
#include "file_profile.hpp"

#include <jobs/beside_file.hpp>
#include <orvo_io/image_reader.hpp>
#include <orvo_io/picture_file.hpp>

#include <algorithm>
#include <string>

namespace orvo::jobs {
namespace {

std::vector<std::string> descriptionsOf(const std::vector<Failure>& failures)
{
    std::vector<std::string> descriptions;
    for (const Failure& failure : failures)
        descriptions.push_back(describe(failure));
    return descriptions;
}

} // namespace

void PictureRun::report(const JobProgress& progress)
{
    clock.enter(progress.step);
    if (callbacks.progress)
        callbacks.progress(progress);
    if (progress.opaque) // the last chance to stop for a long time
        throwIfCancelled();
}

std::function<void(float)> PictureRun::progressFrom(const JobProgress& start, double end)
{
    return [this, start, end](float share) {
        report({start.step, start.fraction + (end - start.fraction) * static_cast<double>(share)});
    };
}

void PictureRun::checkFiles(const std::vector<std::filesystem::path>& inputs) const
{
    for (const auto& path : inputs)
        checkIsFile(path);
    checkAllDiffer(inputs);
}

std::vector<std::shared_ptr<const ImageMetadata>>
PictureRun::checkPictures(const std::vector<std::filesystem::path>& inputs)
{
    std::vector<std::shared_ptr<const ImageMetadata>> metadata;
    for (const auto& path : inputs) {
        throwIfCancelled();
        metadata.push_back(checkIsPicture(path));
        keepWarnings();
    }
    return metadata;
}

std::vector<std::shared_ptr<const ImageMetadata>>
PictureRun::checkFrames(const std::vector<std::filesystem::path>& frames, const std::filesystem::path& output,
                        ImageFileFormat format)
{
    checkFiles(frames);
    checkOutput(output, frames, request);
    auto metadata = checkPictures(frames);
    checkSizesAgree(frames, metadata);
    checkHolds(output, format, metadata.front()->size);
    return metadata;
}

void PictureRun::followDepthOf(const std::vector<std::filesystem::path>& sources)
{
    for (const auto& source : sources)
        sourceBits = std::max(sourceBits, sampleBitsOf(source));
}

WrittenPicture PictureRun::write(const Image& picture, const std::filesystem::path& output, ImageWriteSettings settings,
                                 double doneFraction)
{
    settings.metadata = picture.metadata();
    if (!settings.profile)
        settings.profile = profileForResult(settings.metadata->fileProfile);
    const bool hasChoice = settings.format == ImageFileFormat::Png || settings.format == ImageFileFormat::Tiff;
    if (hasChoice && !request.bits && sourceBits > 0)
        settings.bits = sourceBits > 8 ? 16 : 8;
    settings.cancel = [this] { return callbacks.cancelled(); };
    const bool written = writeBesideAndRename(output, [&](const std::filesystem::path& beside) {
        try {
            if (!writeImage(beside, *picture.developedOriginalImageData({}), settings))
                return false;
        } catch (const FailureError& error) { // names the temporary file, which the user does not know
            throw FailureError({error.failure().kind, output, error.failure().sentence});
        }
        report({JobStep::Write, doneFraction}); // before the file is renamed, since the callback may throw
        return true;
    });
    if (!written)
        throw FailureError(cancelledFailure());
    return {output, picture.size(), settings.bits,
            settings.format == ImageFileFormat::Exr ? ColorProfileType::linearSRGB()->description()
                                                    : settings.profile->description()};
}

void PictureRun::keepWarnings()
{
    keepWarnings(descriptionsOf(lastShortfalls()));
    keepWarnings(lastWarnings());
}

std::shared_ptr<Image> PictureRun::pictureOf(OperationResult made, bool strict)
{
    throwIfCancelled();
    if (made.failure)
        throw FailureError(*made.failure);
    if (strict && !made.shortfalls.empty())
        throw FailureError(made.shortfalls.front());
    keepWarnings(descriptionsOf(made.shortfalls));
    keepWarnings(made.warnings);
    return std::move(made.image);
}

void PictureRun::keepWarnings(const std::vector<std::string>& warnings)
{
    for (const std::string& warning : warnings)
        if (std::find(result.warnings.begin(), result.warnings.end(), warning) == result.warnings.end())
            result.warnings.push_back(warning);
}

void PictureRun::noteLensInVain(bool lensCorrection, const std::vector<std::filesystem::path>& inputs)
{
    if (lensCorrection && std::none_of(inputs.begin(), inputs.end(), isRawImageFile))
        keepWarnings({"lens correction has no effect: none of the files is raw"});
}

} // namespace orvo::jobs
