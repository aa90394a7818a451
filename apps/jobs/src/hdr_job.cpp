#include "checks.hpp"
#include "ghost_reference.hpp"
#include "picture_run.hpp"
#include "sorted_frames.hpp"

#include <jobs/hdr_job.hpp>

#include <algorithm>
#include <span>

namespace orvo::jobs {
namespace {

struct Reached
{
    HDRMergingPhaseName phase;
    JobProgress progress; ///< the progress from this phase on
};

// hdrJob() documents the fractions.
constexpr double kCheckStarts = 0.0;
constexpr double kWriteStarts = 0.95;
using Phase = HDRMergingPhaseName;
constexpr Reached kBracket[] = {
    {Phase::BracketStarted, {JobStep::Load, 0.01}},      {Phase::FramesLoaded, {JobStep::Ladder, 0.15}},
    {Phase::LadderBuilt, {JobStep::Blend, 0.4}},         {Phase::FirstFrameBlended, {JobStep::Blend, 0.75}},
    {Phase::SecondFrameBlended, {JobStep::Blend, 0.85}}, {Phase::Blended, {JobStep::Finish, 0.93}},
    {Phase::Normalized, {JobStep::Finish, 0.94}},
};
// A single frame reports one phase less: it skips 4, so its 5 means that two frames are blended, and its 6 that all
// are.
constexpr Reached kSingle[] = {
    {Phase::SingleFrameStarted, {JobStep::Load, 0.01}}, {Phase::FramesLoaded, {JobStep::Ladder, 0.15}},
    {Phase::LadderBuilt, {JobStep::Blend, 0.4}},        {Phase::FirstFrameBlended, {JobStep::Blend, 0.75}},
    {Phase::Blended, {JobStep::Blend, 0.85}},           {Phase::Normalized, {JobStep::Finish, 0.93}},
};

// Index into the given files, -1 if no ghosts are taken out.
std::int32_t ghostReference(const HdrJobRequest& request, const std::vector<BracketFrame>& frames)
{
    if (!request.deghost || frames.size() < 2)
        return -1;
    return static_cast<std::int32_t>(request.ghostReference.value_or(frames[ghostReferenceOf(frames)].number - 1));
}

HDRSettings mergeSettings(const HdrJobRequest& request, const std::vector<BracketFrame>& frames,
                          const JobCallbacks& callbacks)
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
    settings.cancelFlag = callbacks.cancelFlag;
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
    run.checkFiles(request.frames);
    checkOutput(request.output, request.frames, request);
    const auto metadata = run.checkPictures(request.frames);
    checkSizesAgree(request.frames, metadata);
    checkHolds(request.output, format, metadata.front()->size);
    if (request.frames.size() == 1) // a merge has more tones than each of its frames
        run.followDepthOf(request.frames);
    auto frames = sortedFrames(request.frames, request.frames);
    for (const auto& path : request.frames)
        if (std::none_of(frames.begin(), frames.end(), [&](const BracketFrame& frame) { return frame.path == path; }))
            throw FailureError(reasonOfDropping(path));
    run.throwIfCancelled();
    return frames;
}

std::shared_ptr<Image> merge(PictureRun& run, const HdrJobRequest& request, const std::vector<BracketFrame>& frames,
                             const JobCallbacks& callbacks)
{
    const auto table = request.frames.size() == 1 ? std::span<const Reached>(kSingle) : std::span(kBracket);
    const auto onPhase = [&](HDRMergingPhaseName phase) {
        const auto row =
            std::find_if(table.begin(), table.end(), [&](const Reached& reached) { return reached.phase == phase; });
        if (row != table.end())
            run.report(row->progress);
    };
    // Keeps only the merged picture and frees the pixels of the middle frame.
    auto merged = make_HDR(request.frames, mergeSettings(request, frames, callbacks), {}, onPhase).first;
    run.throwIfCancelled();
    if (!merged)
        throwLastFailure("the merge returned no picture and no reason");
    if (request.strict)
        PictureRun::throwShortfall();
    run.keepWarnings();
    return merged;
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
        const std::shared_ptr<Image> merged = merge(run, request, result.frames, callbacks);
        run.report({JobStep::Write, kWriteStarts});
        static_cast<WrittenPicture&>(result) = run.write(*merged, request.output, settings, 1.0);
        noteInVain(request, run);
    });
    return result;
}

} // namespace orvo::jobs
