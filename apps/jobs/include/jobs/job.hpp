/// What all jobs share: how a job ends, how it tells where it is, and how it is stopped.
///
/// A job is one whole piece of work on files. It runs on the caller's thread, lets no exception out, prints nothing,
/// and leaves no half-written file whatever ends it. Its answer holds an outcome and, unless it is done, one line for
/// users that names the file, what was expected and what was found. Jobs may run in several threads at a time.
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
    Refused,   ///< the request contradicts itself, whatever is in the files: to be asked for differently
    Failed,    ///< a file or the machine stood in the way
    Cancelled, ///< stopped by the cancel flag
};

/// The steps of a job, in their order. Not every job has all.
enum class JobStep
{
    Check,   ///< inputs and output are looked at, nothing is read in full
    Render,  ///< pictures of the demonstration are made
    Load,    ///< frames are read
    Ladder,  ///< frames are aligned and brought to regular exposures
    Blend,   ///< ghosts are taken out and the frames are mixed
    Finish,  ///< tones are normalized, colours and details adjusted
    Stack,   ///< the frames of a focus series are read, aligned and merged
    Label,   ///< frames are read and labelled
    Upscale, ///< a picture is read and enlarged
    Fill,    ///< what a mask marks is painted anew
    Stitch,  ///< pictures are read, registered and drawn as one
    Write,   ///< the result is written
};

/// One lower-case word for reports, such as "load".
[[nodiscard]] const char* stepName(JobStep step);
/// What is going on, for people, such as "reading the frames".
[[nodiscard]] const char* stepText(JobStep step);

struct JobProgress
{
    JobStep step = JobStep::Check;
    double fraction = 0.0; ///< of the whole job, 0..1, never falling
    /// Nothing more is told of the step until it ends, and the cancel flag is looked at only then. No file is being
    /// written meanwhile, so a program that is asked to stop may end there and then.
    bool opaque = false;
};

/// How a caller follows and stops a job. All of it may be empty.
struct JobCallbacks
{
    /// Called on the thread of the job, at least once for each step. An exception from it fails the job.
    std::function<void(const JobProgress&)> progress;
    /// Any thread, or a signal handler, may set the byte to stop the job. A step at hand may run to its end first.
    std::shared_ptr<std::atomic<unsigned char>> cancelFlag;

    [[nodiscard]] bool cancelled() const { return cancelFlag && cancelFlag->load(std::memory_order_relaxed) != 0; }
};

/// The largest amounts of memory, in bytes.
struct PeakMemory
{
    std::uint64_t process = 0; ///< of the process since its start; 0 where the system does not tell
    std::uint64_t planes = 0;  ///< of pictures and masks since the job began
};

/// What every job's answer begins with.
struct JobResult
{
    JobOutcome outcome = JobOutcome::Failed;
    std::string message; ///< one line, without a full stop; empty if done
    /// What `message` is made of, where the job failed or was cancelled.
    std::optional<Failure> failure;

    [[nodiscard]] bool done() const { return outcome == JobOutcome::Done; }
};

/// A request that contradicts itself. How the insides of a job refuse it; any other end of a job is a FailureError, or
/// an exception of a library. No job lets them out.
class JobRefusal : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

} // namespace orvo::jobs
