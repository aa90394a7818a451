/// The frame around an exported operation: no exception crosses the library's boundary, and lastFailure() gives the
/// reason for a missing result.
#pragma once

#include <orvo_common/failure.hpp>
#include <orvo_common/run_control.hpp>

namespace orvo {
namespace details {

/// failureOfException() that recognises OpenCV's out-of-memory error.
[[nodiscard]] Failure failureOfOpenCv() noexcept;

/// Logs the exception being handled as an error of the exported function.
void logException(const char* functionName) noexcept;

} // namespace details

/// Runs `body` and returns what it returns. An exception is logged as an error, with the name of the exported function,
/// and the empty result is returned. lastFailure() is then the failure of the exception, else the one that the body has
/// stated, or the cancel if `run` was cancelled.
template <typename Body>
[[nodiscard]] auto runInCallFrame(const char* functionName, const RunControl& run, const Body& body) -> decltype(body())
{
    details::CallScope scope;
    try {
        auto result = body();
        if (run.wasCancelled())
            details::stateFailure(cancelledFailure());
        return result;
    } catch (...) {
        details::logException(functionName);
        scope.fail(run.wasCancelled() ? cancelledFailure() : details::failureOfOpenCv());
    }
    return {};
}

/// The same for an operation that cannot be cancelled.
template <typename Body>
[[nodiscard]] auto runInCallFrame(const char* functionName, const Body& body) -> decltype(body())
{
    return runInCallFrame(functionName, RunControl(), body);
}

/// Runs the body of an exported operation whose exceptions reach the caller.
template <typename Body>
[[nodiscard]] auto runInOpenCallFrame(const Body& body) -> decltype(body())
{
    details::CallScope scope;
    try {
        return body();
    } catch (...) {
        scope.fail(details::failureOfOpenCv());
        throw;
    }
}

} // namespace orvo
