/// Waits for the deliveries of a generative processor.
#pragma once

#include <orvo/operation_queue.hpp>
#include <orvo_extensions/generative_processor.hpp>
#include <orvo_extensions/operations.hpp>

#include <condition_variable>
#include <future>
#include <mutex>
#include <vector>

namespace orvo::test {

/// Values from other threads.
template <typename Value>
class Received
{
public:
    void operator()(Value value)
    {
        const std::lock_guard lock(mutex);
        values.push_back(std::move(value));
        changed.notify_all();
    }

    /// A callback that stores its argument; this object must outlive it.
    [[nodiscard]] std::function<void(Value)> callback()
    {
        return [this](Value value) { (*this)(std::move(value)); };
    }

    /// The value at `index`; waits for it without a limit, since the time limit of the test ends a hang.
    [[nodiscard]] Value at(std::size_t index)
    {
        std::unique_lock lock(mutex);
        changed.wait(lock, [&] { return values.size() > index; });
        return values[index];
    }

    [[nodiscard]] std::size_t count()
    {
        const std::lock_guard lock(mutex);
        return values.size();
    }

    [[nodiscard]] Value last()
    {
        const std::lock_guard lock(mutex);
        return values.back();
    }

private:
    std::mutex mutex;
    std::condition_variable changed;
    std::vector<Value> values;
};

/// Returns after everything queued before has run.
inline void waitFor(opq::OperationQueue& queue)
{
    std::promise<void> reached;
    queue.addOperation(std::make_shared<opq::FunctionOperation>([&] { reached.set_value(); }, ""));
    reached.get_future().wait();
}

} // namespace orvo::test
