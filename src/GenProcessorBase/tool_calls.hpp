/// Helpers for the public methods of the tools: exceptions are logged, answers parsed, callbacks delivered.
#pragma once

#include "GenProcessorBase/detached_call.hpp"

#include <orvo_common/failure.hpp>
#include <orvo_core/image_data.hpp>
#include <orvo_extensions/generative_processor.hpp>
#include <orvo_logger/logstream.hpp>

#include <exception>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

namespace orvo {

inline void logToolError(const std::string& where, const std::string& text)
{
    LOG(__orvolog() << LogMessageType::Error << where << ": " << text);
}

/// Logs why a guardedCall() has no result although nothing throws, and keeps it for lastFailure().
inline void logRefusal(const std::string& where, const std::string& text)
{
    details::stateFailure({FailureKind::Internal, {}, text});
    logToolError(where, text);
}

/// Runs `work`, logs what it throws and keeps it for lastFailure() of the thread. Returns whether it succeeded.
template <typename Work>
bool guardedCall(const std::string& where, const Work& work)
{
    bool succeeded = false;
    {
        details::CallScope scope;
        try {
            work();
            succeeded = true;
        } catch (const std::exception& error) {
            logToolError(where, error.what());
            scope.fail(failureOfException());
        } catch (...) {
            logToolError(where, "Unknown");
            scope.fail(failureOfException());
        }
    }
    if (!succeeded)
        details::stateLastFailure({});
    return succeeded;
}

/// Passes the failure of the guardedCall() that has just ended, if it failed, to `receiver` on a new thread. `receiver`
/// may be empty.
inline void reportFailure(const GenerativeProcessorBase::FailureCallback& receiver)
{
    if (auto failure = lastFailure(); failure && receiver)
        callDetached([receiver, failure = std::move(*failure)] { receiver(failure); });
}

/// The record of a failed request.
[[nodiscard]] inline GenerativeProcessorBase::RequestInput requestWithoutContent(const std::string& id)
{
    GenerativeProcessorBase::RequestInput request;
    request.id = id;
    return request;
}

/// Calls `done`, which may be empty, on a new thread.
inline void deliverState(const std::function<void(GenerativeProcessorBase::OutState)>& done,
                         GenerativeProcessorBase::OutState state)
{
    if (done)
        callDetached([done, state = std::move(state)] { done(state); });
}

/// The base64 part of a data URL; nothing if the text is too short. Drops as many characters as the prefix has, without
/// comparing them.
[[nodiscard]] inline std::optional<std::string> pictureTextOf(const std::string& response)
{
    constexpr std::string_view kPrefix = "data:image/png;base64,";
    if (response.size() <= kPrefix.size())
        return std::nullopt;
    return response.substr(kPrefix.size());
}

} // namespace orvo
