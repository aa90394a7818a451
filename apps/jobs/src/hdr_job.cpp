#include "checks.hpp"
#include "file_profile.hpp"
#include "log_reasons.hpp"
#include "measures.hpp"
#include "run_job.hpp"
#include "sorted_frames.hpp"

#include <jobs/beside_file.hpp>
#include <jobs/hdr_job.hpp>
#include <orvo_common/memory_manager.hpp>
#include <orvo_core/parallel.hpp>
#include <orvo_io/image_writer.hpp>

#include <algorithm>
#include <span>
#include <stdexcept>

namespace orvo::jobs {
namespace {

struct Reached
{
    HDRMergingPhaseName phase;
    JobProgress progress; ///< where the job is from then on
};

// See hdrJob() for where the fractions come from.
constexpr double kCheckStarts = 0.0;
constexpr double kWriteStarts = 0.95;
using Phase = HDRMergingPhaseName;
constexpr Reached kBracket[] = {
    {Phase::BracketStarted, {JobStep::Load, 0.01}},      {Phase::FramesLoaded, {JobStep::Ladder, 0.15}},
    {Phase::LadderBuilt, {JobStep::Blend, 0.4}},         {Phase::FirstFrameBlended, {JobStep::Blend, 0.75}},
    {Phase::SecondFrameBlended, {JobStep::Blend, 0.85}}, {Phase::Blended, {JobStep::Finish, 0.93}},
    {Phase::Normalized, {JobStep::Finish, 0.94}},
};
// A single frame tells one phase less: it jumps over 4, so that its 5 means that two frames are blended, and its 6 that
// all are.
constexpr Reached kSingle[] = {
    {Phase::SingleFrameStarted, {JobStep::Load, 0.01}}, {Phase::FramesLoaded, {JobStep::Ladder, 0.15}},
    {Phase::LadderBuilt, {JobStep::Blend, 0.4}},        {Phase::FirstFrameBlended, {JobStep::Blend, 0.75}},
    {Phase::Blended, {JobStep::Blend, 0.85}},           {Phase::Normalized, {JobStep::Finish, 0.93}},
};

HDRSettings mergeSettings(const HdrJobRequest& request, const JobCallbacks& callbacks)
{
    HDRSettings settings;
    settings.alignment = request.align;
    settings.ghostReduction = request.deghost.has_value();
    settings.deghostAmount = request.deghost.value_or(DeghostAmount::Lowest);
    settings.ghostRefImageIdx = request.ghostReference ? static_cast<std::int32_t>(*request.ghostReference) : -1;
    settings.chromaticAberrations = request.chromaticAberrations;
    settings.lensCorrection = request.lensCorrection;
    settings.whiteBalance = request.whiteBalance;
    settings.details = request.details;
    settings.cancelFlag = callbacks.cancelFlag;
    return settings;
}

std::string replaced(std::string text, const std::string& what, const std::string& by)
{
    for (auto at = text.find(what); at != std::string::npos; at = text.find(what, at + by.size()))
        text.replace(at, what.size(), by);
    return text;
}

/// One run of the job. Its answer is filled on the way, so that a failed one tells how far it came.
class HdrRun
{
public:
    HdrRun(const HdrJobRequest& request_, const JobCallbacks& callbacks_, HdrJobResult& result_)
        : request(request_), callbacks(callbacks_), result(result_), clock(result_.steps)
    {}

    void run()
    {
        writeSettings = checkRequest(request);
        check();
        const std::shared_ptr<Image> merged = merge();
        write(*merged);
        keepWarnings();
    }

private:
    void report(const JobProgress& progress)
    {
        clock.enter(progress.step);
        if (callbacks.progress)
            callbacks.progress(progress);
    }

    void check()
    {
        report({JobStep::Check, kCheckStarts});
        for (const auto& path : request.frames)
            checkIsFile(path);
        checkAllDiffer(request.frames);
        checkOutput(request.output, request.frames);
        std::vector<std::shared_ptr<const ImageMetadata>> metadata;
        for (const auto& path : request.frames) {
            throwIfCancelled(callbacks);
            metadata.push_back(checkIsPicture(path));
        }
        checkSizesAgree(request.frames, metadata);
        result.frames = sortedFrames(request.frames, request.frames);
        for (const auto& path : request.frames)
            if (std::none_of(result.frames.begin(), result.frames.end(),
                             [&](const BracketFrame& frame) { return frame.path == path; }))
                throw JobError(JobOutcome::Failed, reasonForFile(log, path, "the picture cannot be read"));
        throwIfCancelled(callbacks);
    }

    std::shared_ptr<Image> merge()
    {
        const auto table = request.frames.size() == 1 ? std::span<const Reached>(kSingle) : std::span(kBracket);
        const auto onPhase = [&](HDRMergingPhaseName phase) {
            const auto row = std::find_if(table.begin(), table.end(),
                                          [&](const Reached& reached) { return reached.phase == phase; });
            if (row != table.end())
                report(row->progress);
        };
        // Only the merged picture is kept; the pixels of the middle frame go at once.
        auto merged = make_HDR(request.frames, mergeSettings(request, callbacks), {}, onPhase).first;
        throwIfCancelled(callbacks);
        if (!merged)
            throw JobError(JobOutcome::Failed, reasonOfMerge(log, request.frames));
        return merged;
    }

    void write(const Image& merged)
    {
        report({JobStep::Write, kWriteStarts});
        const auto metadata = merged.metadata();
        writeSettings.profile = request.profile ? request.profile : profileForResult(metadata->fileProfile);
        writeSettings.metadata = metadata;
        writeSettings.cancel = [this] { return callbacks.cancelled(); };
        const bool written = writeBesideAndRename(request.output, [&](const std::filesystem::path& beside) {
            try {
                if (!writeImage(beside, *merged.developedOriginalImageData({}), writeSettings))
                    return false;
            } catch (const std::runtime_error& error) { // names the file beside, which nobody knows
                throw JobError(JobOutcome::Failed,
                               replaced(replaced(error.what(), beside.string(), request.output.string()),
                                        beside.filename().string(), request.output.string()));
            }
            report({JobStep::Write, 1.0}); // before the file is in place, since the callback may throw
            return true;
        });
        if (!written)
            throw JobError(JobOutcome::Cancelled, "cancelled");
        result.size = merged.size();
        result.bits = writeSettings.bits;
        result.profile = writeSettings.format == ImageFileFormat::Exr ? ColorProfileType::linearSRGB()->description()
                                                                      : writeSettings.profile->description();
    }

    void keepWarnings() { result.warnings = log.texts(LogMessageType::Warning); }

    const HdrJobRequest& request;
    const JobCallbacks& callbacks;
    HdrJobResult& result;
    const LogCapture log;
    StepClock clock;
    ImageWriteSettings writeSettings;
};

} // namespace

HdrJobResult hdrJob(const HdrJobRequest& request, const JobCallbacks& callbacks)
{
    HdrJobResult result;
    result.output = request.output;
    MemoryManager::instance().resetPeak();
    runJob(result, callbacks, [&] {
        const WorkerLimit limit(request.threads);
        HdrRun(request, callbacks, result).run();
    });
    result.peak = peakMemory();
    return result;
}

} // namespace orvo::jobs
