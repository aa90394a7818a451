/// The frame around perform(): a request's calls as a RunControl, and what the call states as its result.
#pragma once

#include "frame/call_frame.hpp"

#include <orvo_extensions/requests.hpp>

#include <algorithm>
#include <utility>

namespace orvo::details {

/// Fills warnings, shortfalls and failure from those of the call that has just ended on this thread.
void takeStatements(OperationResult& result);

/// Runs `body(run, result)`, which fills the result, as the exported call `name`. Progress never goes back, and ends at
/// 1. Lets no exception out.
template <typename Result, typename Body>
[[nodiscard]] Result performed(const char* name, const OperationCalls& calls, const Body& body) noexcept
try {
    Result result;
    float reported = 0.0f;
    const RunControl run([&calls] { return calls.cancel && calls.cancel(); },
                         [&calls, &reported](float share) {
                             reported = std::max(reported, share);
                             if (calls.progress)
                                 calls.progress(reported);
                         });
    const auto runBody = [&] {
        body(run, result);
        if (result.image)
            run.report(1.0f);
        return true;
    };
    if (!runInCallFrame(name, run, runBody))
        result.image.reset();
    takeStatements(result);
    return result;
} catch (...) { // no memory for what the call states
    Result result;
    result.failure = Failure{FailureKind::OutOfMemory, {}, {}};
    return result;
}

} // namespace orvo::details
