/// The single place that turns a job's exceptions into its result.
#pragma once

#include <jobs/job.hpp>

namespace orvo::jobs {

/// Runs `body` and sets the outcome of `result`. After a cancel every failure counts as its consequence.
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

/// Throws the failure of the last library call; `otherwise` is the sentence if there is none.
[[noreturn]] inline void throwLastFailure(const char* otherwise)
{
    throw FailureError(lastFailure().value_or(Failure{FailureKind::Internal, {}, otherwise}));
}

} // namespace orvo::jobs
