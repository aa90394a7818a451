/// Shared by all jobs: outcome, progress and cancel.
///
/// A job is one operation on files. It runs on the caller's thread, throws no exception, prints nothing, and never
/// leaves a partial file. Its result contains an outcome and, unless it is done, one line for users that names the
/// file, what was expected and what was found. Jobs may run in several threads at a time.
#pragma once

#include <orvo_extensions/failure.hpp>

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>

namespace orvo::jobs {

enum class JobOutcome
{
    Done,
    Refused,   ///< the request is invalid, regardless of the contents of the files
    Failed,    ///< because of a file or the machine
    Cancelled, ///< stopped by the cancel flag
};

/// The steps of a job, in order. Not every job has all of them.
enum class JobStep
{
    Check,   ///< inputs and output are checked, nothing is read in full
    Group,   ///< pictures are sorted into groups
    Render,  ///< pictures of the demonstration are rendered
    Load,    ///< frames are read
    Ladder,  ///< frames are aligned and resampled to regular exposures
    Blend,   ///< ghosts are removed and the frames are blended
    Finish,  ///< tones are normalized, colours and details adjusted
    Stack,   ///< the frames of a focus series are read, aligned and merged
    Label,   ///< frames are read and labelled
    Upscale, ///< a picture is read and enlarged
    Fill,    ///< what a mask marks is painted anew
    Request, ///< a request for a generative service is prepared
    Answer,  ///< it is answered
    Apply,   ///< the answer is put into the picture
    Stitch,  ///< pictures are read, registered and drawn as one
    Write,   ///< the result is written
    Batch,   ///< several jobs run
};

/// One lower-case word for reports, such as "load".
[[nodiscard]] const char* stepName(JobStep step);
/// What the step does, for users, such as "reading the frames".
[[nodiscard]] const char* stepText(JobStep step);

struct JobProgress
{
    JobStep step = JobStep::Check;
    double fraction = 0.0; ///< of the job, 0..1, never decreases
    /// The step reports nothing more until it ends, and checks the cancel flag only then. It writes no file, so a
    /// program that has to stop may exit immediately.
    bool opaque = false;
};

/// How a caller follows and stops a job. All members may be empty.
struct JobCallbacks
{
    /// Called on the job's thread, at least once per step. If it throws, the job fails.
    std::function<void(const JobProgress&)> progress;
    /// Any thread, or a signal handler, may set the byte to stop the job. The current step may finish first.
    std::shared_ptr<std::atomic<unsigned char>> cancelFlag;

    [[nodiscard]] bool cancelled() const { return cancelFlag && cancelFlag->load(std::memory_order_relaxed) != 0; }
};

/// The largest amounts of memory, in bytes.
struct PeakMemory
{
    std::uint64_t process = 0; ///< of the process since its start; 0 if the system does not report it
    std::uint64_t planes = 0;  ///< of pictures and masks since the job began
};

/// The common part of all results.
struct JobResult
{
    JobOutcome outcome = JobOutcome::Failed;
    std::string message; ///< one line, without a full stop; empty if done
    /// The failure behind `message`, if the job failed or was cancelled.
    std::optional<Failure> failure;

    [[nodiscard]] bool done() const { return outcome == JobOutcome::Done; }
};

/// Thrown inside a job for an invalid request; other failures are a FailureError or an exception of a library. No job
/// lets them escape.
class JobRefusal : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

} // namespace orvo::jobs
