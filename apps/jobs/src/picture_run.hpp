/// One run of a job that makes picture files of picture files: its report, and the ways in and out that all
/// of them share.
#pragma once

#include "measures.hpp"
#include "run_job.hpp"

#include <jobs/picture_job.hpp>
#include <orvo_common/memory_manager.hpp>
#include <orvo_core/image.hpp>
#include <orvo_core/parallel.hpp>
#include <orvo_io/image_writer.hpp>

#include <filesystem>
#include <memory>
#include <vector>

namespace orvo::jobs {

/// Everything here throws JobRefusal or FailureError.
class PictureRun
{
public:
    /// Both must outlive the run. The report is filled on the way, so that a failed one tells how far it came.
    PictureRun(const JobCallbacks& callbacks_, RunReport& result_)
        : callbacks(callbacks_), result(result_), clock(result_.steps)
    {}

    void report(const JobProgress& progress);

    /// All inputs are files, and no two of them are the same.
    void checkFiles(const std::vector<std::filesystem::path>& inputs) const;
    /// All inputs are pictures. Their metadata stand at the same indices.
    [[nodiscard]] std::vector<std::shared_ptr<const ImageMetadata>>
    checkPictures(const std::vector<std::filesystem::path>& inputs);

    /// Writes a picture with its metadata beside `output` and puts it in place once `doneFraction` of the job has been
    /// reported.
    [[nodiscard]] WrittenPicture write(const Image& picture, const std::filesystem::path& output,
                                       ImageWriteSettings settings, double doneFraction);

    /// Takes over what the call of the library that has just ended warned about.
    void keepWarnings();
    void throwIfCancelled() const { jobs::throwIfCancelled(callbacks); }
    [[nodiscard]] bool isCancelled() const { return callbacks.cancelled(); }

private:
    const JobCallbacks& callbacks;
    RunReport& result;
    StepClock clock;
};

/// Runs `body` with a PictureRun as a job, under the request's limit of threads, and fills the report.
template <typename Body>
void runPictureJob(const PictureJobRequest& request, const JobCallbacks& callbacks, RunReport& result, const Body& body)
{
    MemoryManager::instance().resetPeak();
    runJob(result, callbacks, [&] {
        const WorkerLimit limit(request.threads);
        PictureRun run(callbacks, result);
        body(run);
    });
    result.peak = peakMemory();
}

} // namespace orvo::jobs
