#include "checks.hpp"
#include "picture_run.hpp"

#include <jobs/radiance_job.hpp>
#include <orvo_common/wide_path.hpp>
#include <orvo_extensions/failure.hpp>
#include <orvo_extensions/radiance.hpp>
#include <orvo_extensions/requests.hpp>

#include <cmath>
#include <cstdio>
#include <memory>
#include <utility>

namespace orvo::jobs {
namespace {

// See radianceJob().
constexpr JobProgress kCheckStarts{JobStep::Check, 0.0};
constexpr JobProgress kBlendStarts{JobStep::Blend, 0.02};
constexpr JobProgress kWriteStarts{JobStep::Write, 0.95};

/// Checks the values that do not depend on files.
void checkRequest(const RadianceJobRequest& request)
{
    checkFileNames(request.frames, request.output);
    checkFast(request.fast, request.align);
    if (!request.evs.empty() && request.evs.size() != request.frames.size())
        throw JobRefusal("EVs were given for " + std::to_string(request.evs.size()) + " frames, there are " +
                         std::to_string(request.frames.size()));
    for (const float ev : request.evs)
        if (!std::isfinite(ev))
            throw JobRefusal("an EV is not a number");
}

void checkFiles(PictureRun& run, const RadianceJobRequest& request, ImageFileFormat format)
{
    run.report(kCheckStarts);
    const auto metadata = run.checkFrames(request.frames, request.output, format);
    for (std::size_t i = 0; i < metadata.size() && request.evs.empty(); ++i)
        if (!statedExposure(*metadata[i]))
            throw FailureError({FailureKind::UnfittingPictures, request.frames[i],
                                "the file does not state its exposure time; give the EVs of all frames (--evs)"});
    run.throwIfCancelled();
}

std::shared_ptr<Image> merge(PictureRun& run, const RadianceJobRequest& request, RadianceJobResult& result)
{
    run.report(kBlendStarts);
    RadianceRequest merging;
    merging.pictures = inputsOf(request.frames);
    merging.settings.alignment = request.align;
    merging.settings.alignmentQuality = request.fast ? AlignmentQuality::Fast : AlignmentQuality::Fine;
    merging.settings.evs = request.evs;
    merging.cancel = [&run] { return run.isCancelled(); };
    merging.progress = run.progressFrom(kBlendStarts, kWriteStarts.fraction);
    RadianceResult merged = perform(merging);
    result.evs = std::move(merged.evs);
    result.whiteLuminance = merged.whiteLuminance;
    result.clipped = merged.clipped;
    return run.pictureOf(std::move(merged), request.strict);
}

std::string clippedNote(double share)
{
    char text[128];
    std::snprintf(text, sizeof text,
                  "%.2g percent of the pixels are saturated in every frame: their value is a lower bound",
                  100.0 * share);
    return text;
}

} // namespace

RadianceJobResult radianceJob(const RadianceJobRequest& request, const JobCallbacks& callbacks)
{
    RadianceJobResult result;
    result.output = request.output;
    result.frames = request.frames;
    runPictureJob(request, callbacks, result, [&](PictureRun& run) {
        checkRequest(request);
        ImageWriteSettings settings = writeSettingsFor(request.output, request);
        if (settings.format != ImageFileFormat::Exr)
            throw JobRefusal(pathText(request.output) + ": radiance needs OpenEXR, a name that ends in .exr");
        checkFiles(run, request, settings.format);
        const std::shared_ptr<Image> merged = merge(run, request, result);
        settings.whiteLuminance = result.whiteLuminance;
        run.report(kWriteStarts);
        static_cast<WrittenPicture&>(result) = run.write(*merged, request.output, settings, 1.0);
        if (result.clipped > 0.0)
            run.keepWarnings({clippedNote(result.clipped)});
    });
    return result;
}

} // namespace orvo::jobs
