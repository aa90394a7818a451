#include "checks.hpp"
#include "ghost_reference.hpp"
#include "picture_run.hpp"
#include "sorted_frames.hpp"

#include <jobs/hdr_job.hpp>
#include <orvo_extensions/requests.hpp>

#include <algorithm>

namespace orvo::jobs {
namespace {

// hdrJob() documents the fractions.
constexpr double kCheckStarts = 0.0;
constexpr double kMergeStarts = 0.01;
constexpr double kWriteStarts = 0.95;

// The step that a phase of the merge begins. A single frame skips SecondFrameBlended, and each later phase comes one
// step of the blend earlier.
JobStep stepFrom(HDRMergingPhaseName phase, bool isSingle)
{
    switch (phase) {
    case HDRMergingPhaseName::SingleFrameStarted:
    case HDRMergingPhaseName::BracketStarted:
        return JobStep::Load;
    case HDRMergingPhaseName::FramesLoaded:
        return JobStep::Ladder;
    case HDRMergingPhaseName::LadderBuilt:
    case HDRMergingPhaseName::FirstFrameBlended:
    case HDRMergingPhaseName::SecondFrameBlended:
        return JobStep::Blend;
    case HDRMergingPhaseName::Blended:
        return isSingle ? JobStep::Blend : JobStep::Finish;
    case HDRMergingPhaseName::Normalized:
        break;
    }
    return JobStep::Finish;
}

// Index into the given files, -1 if no ghosts are taken out.
std::int32_t ghostReference(const HdrJobRequest& request, const std::vector<BracketFrame>& frames)
{
    if (!request.deghost || frames.size() < 2)
        return -1;
    return static_cast<std::int32_t>(request.ghostReference.value_or(frames[ghostReferenceOf(frames)].number - 1));
}

HDRSettings mergeSettings(const HdrJobRequest& request, const std::vector<BracketFrame>& frames)
{
    HDRSettings settings;
    settings.alignment = request.align;
    settings.alignmentQuality = request.fast ? AlignmentQuality::Fast : AlignmentQuality::Fine;
    settings.highlightHue = HighlightHue::Kept;
    settings.ghostReduction = request.deghost.has_value();
    settings.deghostAmount = request.deghost.value_or(DeghostAmount::Lowest);
    settings.ghostRefImageIdx = ghostReference(request, frames);
    settings.chromaticAberrations = request.chromaticAberrations;
    settings.lensCorrection = request.lensCorrection;
    settings.whiteBalance = request.whiteBalance;
    settings.details = request.details;
    return settings;
}

/// Checks the values that do not depend on files.
void checkRequest(const HdrJobRequest& request)
{
    checkFileNames(request.frames, request.output);
    if (request.ghostReference && !request.deghost)
        throw JobRefusal("a ghost reference was given without ghost removal");
    checkReference("ghost reference", request.ghostReference, request.frames.size());
    checkFast(request.fast, request.align);
    checkDeghostAmount(request.deghost);
    checkShare("white balance", request.whiteBalance);
    checkShare("detail", request.details);
}

std::vector<BracketFrame> checkFiles(PictureRun& run, const HdrJobRequest& request, ImageFileFormat format)
{
    run.report({JobStep::Check, kCheckStarts});
    run.checkFrames(request.frames, request.output, format);
    if (request.frames.size() == 1) // a merge has more tones than each of its frames
        run.followDepthOf(request.frames);
    auto frames = sortedFrames(request.frames, request.frames);
    for (const auto& path : request.frames)
        if (std::none_of(frames.begin(), frames.end(), [&](const BracketFrame& frame) { return frame.path == path; }))
            throw FailureError(reasonOfDropping(path));
    run.throwIfCancelled();
    return frames;
}

std::shared_ptr<Image> merge(PictureRun& run, const HdrJobRequest& request, const std::vector<BracketFrame>& frames)
{
    JobStep step = JobStep::Load;
    HdrRequest merging;
    merging.pictures = inputsOf(request.frames);
    merging.settings = mergeSettings(request, frames);
    merging.keepsMiddleFrame = false;
    merging.cancel = [&run] { return run.isCancelled(); };
    merging.onPhase = [&](HDRMergingPhaseName phase) { step = stepFrom(phase, request.frames.size() == 1); };
    merging.progress = [&](float share) {
        run.report({step, kMergeStarts + (kWriteStarts - kMergeStarts) * static_cast<double>(share)});
    };
    return run.pictureOf(perform(merging), request.strict);
}

void noteInVain(const HdrJobRequest& request, PictureRun& run)
{
    const bool isSingle = request.frames.size() == 1;
    if (isSingle && request.align)
        run.keepWarnings({"a single frame has nothing to be aligned with"});
    if (isSingle && request.deghost)
        run.keepWarnings({"a single frame has no ghosts to remove"});
    run.noteLensInVain(request.lensCorrection, request.frames);
}

} // namespace

HdrJobResult hdrJob(const HdrJobRequest& request, const JobCallbacks& callbacks)
{
    HdrJobResult result;
    result.output = request.output;
    runPictureJob(request, callbacks, result, [&](PictureRun& run) {
        checkRequest(request);
        const ImageWriteSettings settings = writeSettingsFor(request.output, request);
        result.frames = checkFiles(run, request, settings.format);
        const std::shared_ptr<Image> merged = merge(run, request, result.frames);
        run.report({JobStep::Write, kWriteStarts});
        static_cast<WrittenPicture&>(result) = run.write(*merged, request.output, settings, 1.0);
        noteInVain(request, run);
    });
    return result;
}

} // namespace orvo::jobs
