/// A value that another thread makes while the calling thread does something else, such as the next picture of a
/// series.
#pragma once

#include <orvo_common/export.hpp>
#include <orvo_common/failure.hpp>

#include <exception>
#include <functional>
#include <optional>
#include <thread>
#include <utility>

namespace orvo {
namespace details {

/// Runs a piece of work on a thread of its own.
class ORVO_EXPORT WorkAhead
{
public:
    /// Starts `work`, which may run parallel loops. Where loops are limited to one thread, or no thread can be started,
    /// finish() runs it instead.
    explicit WorkAhead(std::function<void()> work);
    /// Waits for the work, and drops its exception and what it stated.
    ~WorkAhead();
    WorkAhead(const WorkAhead&) = delete;
    WorkAhead& operator=(const WorkAhead&) = delete;

    /// Waits for the work, adds what it stated (failure.hpp) to the statements of the calling thread, and rethrows its
    /// exception: as if the work were done here and now. Once.
    void finish();

private:
    void run() noexcept;

    std::function<void()> work;
    Statements statements;
    std::exception_ptr exception;
    std::thread thread; // last: it uses the other members
};

} // namespace details

/// Example:
///   MadeAhead<Picture> next([&] { return read(files[1]); });
///   show(read(files[0]));
///   show(next.take());
template <typename Value>
class MadeAhead
{
public:
    /// Starts `make` on another thread, which must not use what the calling thread changes meanwhile. Where loops are
    /// limited to one thread (WorkerLimit), take() makes the value.
    explicit MadeAhead(std::function<Value()> make_) : make(std::move(make_)), work([this] { value.emplace(make()); })
    {}

    /// The value. Failures, warnings and exceptions reach the calling thread here, as if it made the value now; those
    /// of a value that is never taken are dropped. Once.
    [[nodiscard]] Value take()
    {
        work.finish();
        return std::move(*value);
    }

private:
    std::function<Value()> make;
    std::optional<Value> value;
    details::WorkAhead work; // last: it uses the other members
};

} // namespace orvo
