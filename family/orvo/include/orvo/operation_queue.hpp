/// A work queue: one worker, in the order of the calls.
#pragma once

#include <orvo_common/export.hpp>
#include <orvo_extensions/operations.hpp>

#include <cstdint>
#include <memory>

namespace opq {

/// Runs operations one after the other on its own worker thread and skips those that are cancelled before they start.
/// Logs an exception of an operation as an error and goes on.
///
/// Operations may call every method, including the destructor: a callback may shut the queue down or drop the last
/// reference to the queue's owner. Functions of operations are destroyed on the worker, or where they are dropped
/// without a run, never under a lock. Methods may be called from any thread.
class ORVO_EXPORT OperationQueue
{
public:
    /// The purpose of a queue, for its log lines.
    enum class Type : std::int32_t
    {
        Work = 0,
        Delivery = 1, ///< delivers results
    };

    /// Throws std::system_error if no thread can be started.
    OperationQueue();
    explicit OperationQueue(Type type);
    /// Returns after all added operations have run. When called from one of its own operations, runs the waiting ones
    /// right here, inside of that operation. Drops operations added meanwhile.
    ~OperationQueue();
    OperationQueue(const OperationQueue&) = delete;
    OperationQueue& operator=(const OperationQueue&) = delete;

    /// Appends an operation; drops it without a run if the queue is closed. Ignores an empty pointer.
    void addOperation(std::shared_ptr<Operation> operation);
    /// Whether the worker accepts no more operations.
    [[nodiscard]] bool closed() const;
    /// Closes the queue, drops the waiting operations, and returns when the running one has ended; at once if called
    /// from that operation. May be called again.
    void shutDown();

private:
    struct State;
    std::shared_ptr<State> state; // shared with the worker, which outlives a queue destroyed by its own operation
};

} // namespace opq
