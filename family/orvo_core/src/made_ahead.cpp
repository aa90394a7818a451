#include <orvo_core/made_ahead.hpp>

#include <tbb/global_control.h>

#include <system_error>

namespace orvo::details {

WorkAhead::WorkAhead(std::function<void()> work_) : work(std::move(work_))
{
    if (tbb::global_control::active_value(tbb::global_control::max_allowed_parallelism) < 2)
        return;
    try {
        thread = std::thread([this] { run(); });
    } catch (const std::system_error&) { // no more threads: finish() does the work
    }
}

WorkAhead::~WorkAhead()
{
    if (thread.joinable())
        thread.join();
}

void WorkAhead::finish()
{
    if (!thread.joinable()) {
        work();
        return;
    }
    thread.join();
    addStatements(std::move(statements));
    if (exception)
        std::rethrow_exception(exception);
}

void WorkAhead::run() noexcept
{
    StatementScope scope;
    try {
        work();
    } catch (...) {
        exception = std::current_exception();
    }
    statements = scope.take();
}

} // namespace orvo::details
