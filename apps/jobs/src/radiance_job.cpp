#include "checks.hpp"
#include "picture_run.hpp"

#include <jobs/radiance_job.hpp>
#include <orvo_common/wide_path.hpp>
#include <orvo_extensions/failure.hpp>
#include <orvo_extensions/radiance.hpp>

#include <cmath>
#include <cstdio>

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

RadianceMap merge(PictureRun& run, const RadianceJobRequest& request)
{
    run.report(kBlendStarts);
    RadianceSettings settings;
    settings.alignment = request.align;
    settings.alignmentQuality = request.fast ? AlignmentQuality::Fast : AlignmentQuality::Fine;
    settings.evs = request.evs;
    RadianceMap map = mergeRadiance(
        request.frames, settings, [&run] { return run.isCancelled(); },
        run.progressFrom(kBlendStarts, kWriteStarts.fraction));
    run.throwIfCancelled();
    if (!map.image)
        throwLastFailure("the merge returned no picture and no reason");
    if (const auto shortfalls = lastShortfalls(); request.strict && !shortfalls.empty())
        throw FailureError(shortfalls.front());
    run.keepWarnings();
    return map;
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
        const RadianceMap map = merge(run, request);
        result.evs = map.evs;
        result.whiteLuminance = settings.whiteLuminance = map.whiteLuminance;
        result.clipped = map.clipped;
        run.report(kWriteStarts);
        static_cast<WrittenPicture&>(result) = run.write(*map.image, request.output, settings, 1.0);
        if (map.clipped > 0.0)
            run.keepWarnings({clippedNote(map.clipped)});
    });
    return result;
}

} // namespace orvo::jobs
