#include "checks.hpp"
#include "picture_run.hpp"

#include <jobs/stack_job.hpp>
#include <orvo_common/wide_path.hpp>
#include <orvo_extensions/requests.hpp>

namespace orvo::jobs {
namespace {

// stackJob() documents the fractions.
constexpr JobProgress kCheckStarts{JobStep::Check, 0.0};
constexpr JobProgress kStackStarts{JobStep::Stack, 0.02};
constexpr JobProgress kWriteStarts{JobStep::Write, 0.95};

/// Checks the values that do not depend on files.
void checkRequest(const StackJobRequest& request)
{
    checkFileNames(request.frames, request.output);
    checkReference("reference", request.reference, request.frames.size());
    if (request.reference && !request.align && !request.deghost)
        throw JobRefusal("a reference was given, but neither alignment nor ghost removal uses it");
    checkFast(request.fast, request.align);
    checkDeghostAmount(request.deghost);
}

BracketSettings::FocusStacking stackSettings(const StackJobRequest& request, std::size_t reference)
{
    BracketSettings::FocusStacking settings;
    settings.rawAutoCorrection.chromaticAberrations = request.chromaticAberrations;
    settings.rawAutoCorrection.lensCorrection = request.lensCorrection;
    settings.adjust.enabled = request.align;
    settings.adjust.quality = request.fast ? AlignmentQuality::Fast : AlignmentQuality::Fine;
    settings.adjust.referenceIndex = static_cast<std::int32_t>(reference);
    settings.ghostReduction.enabled = request.deghost.has_value();
    settings.ghostReduction.referenceIndex = static_cast<std::int32_t>(reference);
    settings.ghostReduction.amount = static_cast<std::int32_t>(request.deghost.value_or(DeghostAmount::Lowest));
    return settings;
}

void checkFiles(PictureRun& run, const StackJobRequest& request, ImageFileFormat format)
{
    run.report(kCheckStarts);
    run.checkFrames(request.frames, request.output, format);
    run.followDepthOf(request.frames);
    run.throwIfCancelled();
}

std::shared_ptr<Image> stack(PictureRun& run, const StackJobRequest& request, std::size_t reference)
{
    run.report(kStackStarts);
    FocusStackRequest stacking;
    stacking.pictures = inputsOf(request.frames);
    stacking.settings = stackSettings(request, reference);
    stacking.progress = run.progressFrom(kStackStarts, kWriteStarts.fraction);
    stacking.cancel = [&run] { return run.isCancelled(); };
    auto stacked = run.pictureOf(perform(stacking), request.strict);
    run.noteLensInVain(request.lensCorrection, request.frames);
    return stacked;
}

} // namespace

StackJobResult stackJob(const StackJobRequest& request, const JobCallbacks& callbacks)
{
    StackJobResult result;
    result.output = request.output;
    result.frames = request.frames;
    result.reference = request.reference.value_or(request.frames.size() / 2);
    runPictureJob(request, callbacks, result, [&](PictureRun& run) {
        checkRequest(request);
        const ImageWriteSettings settings = writeSettingsFor(request.output, request);
        checkFiles(run, request, settings.format);
        const std::shared_ptr<Image> stacked = stack(run, request, result.reference);
        run.report(kWriteStarts);
        static_cast<WrittenPicture&>(result) = run.write(*stacked, request.output, settings, 1.0);
    });
    if (result.done() && request.frames.size() == 1)
        result.warnings.push_back(pathText(request.frames[0]) + ": a single frame, so nothing was merged");
    return result;
}

} // namespace orvo::jobs
