#include "GenProcessorBase/detached_call.hpp"

#include <orvo_common/failure.hpp>
#include <orvo_logger/logstream.hpp>

#include <exception>
#include <memory>
#include <system_error>
#include <thread>
#include <utility>

namespace orvo {
namespace {

// An exception that left a thread would end the program.
void run(const std::function<void()>& call) noexcept
{
    try {
        call();
    } catch (const std::exception& error) {
        LOG(__orvolog() << LogMessageType::Error << "Exception in a callback: " << error.what());
    } catch (...) {
        LOG(__orvolog() << LogMessageType::Error << "Exception in a callback: not a std::exception");
    }
}

} // namespace

void callDetached(std::function<void()> call)
{
    const auto shared = std::make_shared<std::function<void()>>(std::move(call));
    const auto keepFailure = [failure = lastFailure()] {
        details::CallScope scope;
        if (failure)
            scope.fail(*failure);
    };
    try {
        std::thread([shared, keepFailure] {
            keepFailure();
            run(*shared);
        }).detach();
    } catch (const std::system_error&) {
        run(*shared);
    }
}

} // namespace orvo
