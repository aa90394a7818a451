/// A run of a job that makes picture files from picture files: its report, and the shared checks and output.
#pragma once

#include "measures.hpp"
#include "run_job.hpp"

#include <jobs/picture_job.hpp>
#include <orvo_common/memory_manager.hpp>
#include <orvo_core/image.hpp>
#include <orvo_core/parallel.hpp>
#include <orvo_extensions/requests.hpp>
#include <orvo_io/image_writer.hpp>

#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace orvo::jobs {

/// All members throw JobRefusal or FailureError.
class PictureRun
{
public:
    /// All three must outlive the run. The report is filled during the run, so a failed job shows how far it got.
    PictureRun(const PictureJobRequest& request_, const JobCallbacks& callbacks_, RunReport& result_)
        : request(request_), callbacks(callbacks_), result(result_), clock(result_.steps)
    {}

    void report(const JobProgress& progress);
    /// Reports the step that begins at `start` while an operation moves it to `end`, a share of the whole job. For an
    /// operation's progress, 0 to 1; as long as this object.
    [[nodiscard]] std::function<void(float)> progressFrom(const JobProgress& start, double end);

    /// Checks that all inputs are files, and that no two are the same.
    void checkFiles(const std::vector<std::filesystem::path>& inputs) const;
    /// Checks that all inputs are pictures. Returns their metadata at the same indices.
    [[nodiscard]] std::vector<std::shared_ptr<const ImageMetadata>>
    checkPictures(const std::vector<std::filesystem::path>& inputs);

    /// Both, the output, and that the pictures have one size, which `format` holds. Returns their metadata.
    std::vector<std::shared_ptr<const ImageMetadata>> checkFrames(const std::vector<std::filesystem::path>& frames,
                                                                  const std::filesystem::path& output,
                                                                  ImageFileFormat format);

    /// The output follows the depth of these sources, unless the request names its bits: PNG and TIFF files get 8 bits
    /// if no source has more. Without a call they get the writer's default, 16. The sources are readable.
    void followDepthOf(const std::vector<std::filesystem::path>& sources);
    /// The same for sources of so many bits per sample.
    void followDepth(int sampleBits) { sourceBits = sampleBits; }

    /// Writes a picture with its metadata beside `output`, reports `doneFraction` of the job, and renames the file.
    [[nodiscard]] WrittenPicture write(const Image& picture, const std::filesystem::path& output,
                                       ImageWriteSettings settings, double doneFraction);

    /// Collects the warnings and shortfalls of the last library call.
    void keepWarnings();
    /// The picture of an operation, whose warnings and shortfalls it collects. Throws its failure, or with `strict` its
    /// first shortfall.
    [[nodiscard]] std::shared_ptr<Image> pictureOf(OperationResult made, bool strict);
    /// Each once.
    void keepWarnings(const std::vector<std::string>& warnings);
    /// Warns if lens correction was asked for and none of the files is raw.
    void noteLensInVain(bool lensCorrection, const std::vector<std::filesystem::path>& inputs);
    void throwIfCancelled() const { jobs::throwIfCancelled(callbacks); }
    [[nodiscard]] bool isCancelled() const { return callbacks.cancelled(); }

private:
    const PictureJobRequest& request;
    const JobCallbacks& callbacks;
    RunReport& result;
    StepClock clock;
    int sourceBits = 0; // 0: not to be followed
};

/// Runs `body` with a PictureRun as a job, with the request's thread limit, and fills the report.
template <typename Body>
void runPictureJob(const PictureJobRequest& request, const JobCallbacks& callbacks, RunReport& result, const Body& body)
{
    MemoryManager::instance().resetPeak();
    runJob(result, callbacks, [&] {
        const WorkerLimit limit(request.threads);
        PictureRun run(request, callbacks, result);
        body(run);
    });
    result.peak = peakMemory();
}

} // namespace orvo::jobs
