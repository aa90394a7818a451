/// The one place where a job's exceptions become its answer.
#pragma once

#include "log_reasons.hpp"

#include <jobs/job.hpp>

#include <exception>
#include <new>

namespace orvo::jobs {

/// Runs `body` and fills the outcome of `result`. After a cancel every failure is a consequence of it.
template <typename Body>
void runJob(JobResult& result, const JobCallbacks& callbacks, const Body& body)
{
    const auto end = [&](JobOutcome outcome, const std::string& message) {
        const bool cancelled = callbacks.cancelled();
        result.outcome = cancelled ? JobOutcome::Cancelled : outcome;
        result.message = cancelled ? "cancelled" : message;
    };
    try {
        body();
        result.outcome = JobOutcome::Done;
    } catch (const JobError& error) {
        end(error.outcome, error.what());
    } catch (const std::bad_alloc&) {
        end(JobOutcome::Failed, forPeople("std::bad_alloc")); // whatever its own text is
    } catch (const std::exception& error) {
        end(JobOutcome::Failed, forPeople(error.what()));
    } catch (...) {
        end(JobOutcome::Failed, "an error of unknown kind ended the job");
    }
}

inline void throwIfCancelled(const JobCallbacks& callbacks)
{
    if (callbacks.cancelled())
        throw JobError(JobOutcome::Cancelled, "cancelled");
}

} // namespace orvo::jobs
