/// The queue on which the work of an object runs: one worker, in the order of the calls.
#pragma once

#include <orvo_common/export.hpp>
#include <orvo_extensions/operations.hpp>

#include <cstdint>
#include <memory>

namespace opq {

/// Runs operations one after the other on a worker of its own and leaves out those that are cancelled by the time the
/// worker gets to them. An exception of an operation is logged as an error, and the worker goes on.
///
/// Operations may call every method, the destructor included: a callback may shut the queue down or drop the last
/// reference to the queue's owner. Functions of operations are released on the worker, or by whoever drops them
/// without a run, never under a lock. Methods may be called from any thread.
class ORVO_EXPORT OperationQueue
{
public:
    /// What a queue is for, as its log lines say.
    enum class Type : std::int32_t
    {
        Work = 0,
        Delivery = 1, ///< hands results over
    };

    /// Throws std::system_error if there is no thread to be had.
    OperationQueue();
    explicit OperationQueue(Type type);
    /// Finishes what it holds: returns after the last operation added before has run. From an operation of its own the
    /// waiting ones run right here, in the midst of the one that destroys the queue. What is added meanwhile is
    /// dropped.
    ~OperationQueue();
    OperationQueue(const OperationQueue&) = delete;
    OperationQueue& operator=(const OperationQueue&) = delete;

    /// Appends; dropped without a run if the queue is closed. An empty pointer is ignored.
    void addOperation(std::shared_ptr<Operation> operation);
    /// The worker takes no further operations in.
    [[nodiscard]] bool closed() const;
    /// Closes the queue, drops what waits, and returns when the running operation has ended; at once if called from an
    /// operation, which is the running one then. May be called again.
    void shutDown();

private:
    struct State;
    std::shared_ptr<State> state; // shared with the worker, which outlives a queue that its own operation destroys
};

} // namespace opq
