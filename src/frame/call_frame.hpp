/// How an exported operation runs: no exception crosses the library's boundary.
#pragma once

#include <orvo_logger/logstream.hpp>

#include <exception>
#include <string>

namespace orvo {

/// Runs `body` and returns what it returns. An exception is logged as an error, with the name of the exported
/// function, and answered with the empty result.
template <typename Body>
[[nodiscard]] auto runInCallFrame(const char* functionName, const Body& body) -> decltype(body())
{
    try {
        try {
            return body();
        } catch (const std::exception& error) {
            LOG(__orvolog() << LogMessageType::Error << "Error in " << functionName << ": " << error.what());
        } catch (...) {
            LOG(__orvolog() << LogMessageType::Error << "Unknown error in " << functionName << ".");
        }
    } catch (...) { // NOLINT(bugprone-empty-catch): not even memory for the log line
    }
    return {};
}

} // namespace orvo
