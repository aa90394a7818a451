#include "picture_run.hpp"

#include "checks.hpp"
#include "file_profile.hpp"

#include <jobs/beside_file.hpp>

#include <stdexcept>
#include <string>

namespace orvo::jobs {
namespace {

std::string replaced(std::string text, const std::string& what, const std::string& by)
{
    for (auto at = text.find(what); at != std::string::npos; at = text.find(what, at + by.size()))
        text.replace(at, what.size(), by);
    return text;
}

} // namespace

void PictureRun::report(const JobProgress& progress)
{
    clock.enter(progress.step);
    if (callbacks.progress)
        callbacks.progress(progress);
    if (progress.opaque) // the last moment to stop for long
        throwIfCancelled();
}

void PictureRun::checkFiles(const std::vector<std::filesystem::path>& inputs) const
{
    for (const auto& path : inputs)
        checkIsFile(path);
    checkAllDiffer(inputs);
}

std::vector<std::shared_ptr<const ImageMetadata>>
PictureRun::checkPictures(const std::vector<std::filesystem::path>& inputs) const
{
    std::vector<std::shared_ptr<const ImageMetadata>> metadata;
    for (const auto& path : inputs) {
        throwIfCancelled();
        metadata.push_back(checkIsPicture(path));
    }
    return metadata;
}

WrittenPicture PictureRun::write(const Image& picture, const std::filesystem::path& output, ImageWriteSettings settings,
                                 double doneFraction)
{
    settings.metadata = picture.metadata();
    if (!settings.profile)
        settings.profile = profileForResult(settings.metadata->fileProfile);
    settings.cancel = [this] { return callbacks.cancelled(); };
    const bool written = writeBesideAndRename(output, [&](const std::filesystem::path& beside) {
        try {
            if (!writeImage(beside, *picture.developedOriginalImageData({}), settings))
                return false;
        } catch (const std::exception& error) { // names the file beside, which nobody knows
            throw JobError(JobOutcome::Failed, replaced(replaced(error.what(), beside.string(), output.string()),
                                                        beside.filename().string(), output.string()));
        }
        report({JobStep::Write, doneFraction}); // before the file is in place, since the callback may throw
        return true;
    });
    if (!written)
        throw JobError(JobOutcome::Cancelled, "cancelled");
    return {output, picture.size(), settings.bits,
            settings.format == ImageFileFormat::Exr ? ColorProfileType::linearSRGB()->description()
                                                    : settings.profile->description()};
}

void PictureRun::keepWarnings() { result.warnings = log.texts(LogMessageType::Warning); }

} // namespace orvo::jobs
