/// Runs a function when a scope ends.
#pragma once

#include <orvo_logger/logstream.hpp>

#include <exception>
#include <functional>
#include <string>
#include <utility>

namespace orvo {

/// Calls a function in its destructor. Exceptions of the function are logged and not rethrown.
class ScopeExit
{
public:
    explicit ScopeExit(std::function<void()> action_) : action(std::move(action_)) {}
    ~ScopeExit()
    {
        try {
            action();
        } catch (const std::exception& error) {
            details::logErrorMessage(std::string("Exception thrown during ~ScopeExit. Cause: ") + error.what());
        } catch (...) {
            details::logErrorMessage("Unknown exception thrown during ~ScopeExit.");
        }
    }
    ScopeExit(const ScopeExit&) = delete;
    ScopeExit& operator=(const ScopeExit&) = delete;

private:
    std::function<void()> action;
};

} // namespace orvo
