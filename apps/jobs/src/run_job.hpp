/// The one place where a job's exceptions become its answer.
#pragma once

#include <jobs/job.hpp>

namespace orvo::jobs {

/// Runs `body` and fills the outcome of `result`. After a cancel every failure is a consequence of it.
template <typename Body>
void runJob(JobResult& result, const JobCallbacks& callbacks, const Body& body)
{
    const auto fail = [&](const Failure& failure) {
        result.failure = callbacks.cancelled() ? cancelledFailure() : failure;
        result.outcome = result.failure->kind == FailureKind::Cancelled ? JobOutcome::Cancelled : JobOutcome::Failed;
        result.message = describe(*result.failure);
    };
    try {
        body();
        result.outcome = JobOutcome::Done;
    } catch (const JobRefusal& refusal) {
        result.outcome = JobOutcome::Refused;
        result.message = refusal.what();
    } catch (...) {
        fail(FailureError(failureOfException()).failure()); // which completes its sentence
    }
}

inline void throwIfCancelled(const JobCallbacks& callbacks)
{
    if (callbacks.cancelled())
        throw FailureError(cancelledFailure());
}

/// Throws what the call of the library that has just ended failed from; `otherwise` is the sentence if it said nothing.
[[noreturn]] inline void throwLastFailure(const char* otherwise)
{
    throw FailureError(lastFailure().value_or(Failure{FailureKind::Internal, {}, otherwise}));
}

} // namespace orvo::jobs
