#include <orvo/operation_queue.hpp>
#include <orvo_logger/logstream.hpp>

#include <condition_variable>
#include <deque>
#include <exception>
#include <mutex>
#include <thread>
#include <utility>

namespace opq {

struct OperationQueue::State
{
    explicit State(Type queueType) : type(queueType) {}

    const Type type;
    std::mutex mutex;
    std::condition_variable changed;
    std::deque<std::shared_ptr<Operation>> waiting;
    bool running = true;
    std::mutex joining; // held while waiting for the worker, so that a second caller waits too; never held by the
                        // worker
    std::thread worker;
    std::thread::id workerId; // a copy, since join() resets the thread's own

    [[nodiscard]] bool isOnWorker() const { return workerId == std::this_thread::get_id(); }

    void join()
    {
        const std::lock_guard lock(joining);
        if (worker.joinable())
            worker.join();
    }

    void close(bool dropWaiting)
    {
        std::deque<std::shared_ptr<Operation>> dropped; // destroyed outside of the lock: their functions may own
                                                        // anything
        {
            const std::lock_guard lock(mutex);
            running = false;
            if (dropWaiting)
                dropped.swap(waiting);
        }
        changed.notify_all();
    }

    // The next operation; empty if there is none and, with `wait`, none will follow.
    std::shared_ptr<Operation> next(bool wait)
    {
        std::unique_lock lock(mutex);
        if (wait)
            changed.wait(lock, [this] { return !waiting.empty() || !running; });
        if (waiting.empty())
            return {};
        auto operation = std::move(waiting.front());
        waiting.pop_front();
        return operation;
    }

    void logException(const Operation& operation, const char* text) const
    {
        LOG(orvo::__orvolog() << orvo::LogMessageType::Error
                              << (type == Type::Delivery ? "Exception in a delivery" : "Exception in an operation")
                              << (operation.getIdentifier().empty() ? "" : " ") << operation.getIdentifier() << ": "
                              << text);
    }

    void run(Operation& operation) const
    {
        if (operation.isCanceled())
            return;
        try {
            operation.execute();
        } catch (const std::exception& error) {
            logException(operation, error.what());
        } catch (...) {
            logException(operation, "not a std::exception");
        }
    }

    void runAll(bool wait)
    {
        while (const auto operation = next(wait))
            run(*operation);
    }
};

OperationQueue::OperationQueue() : OperationQueue(Type::Work) {}

OperationQueue::OperationQueue(Type type) : state(std::make_shared<State>(type))
{
    state->worker = std::thread([shared = state] { shared->runAll(true); });
    state->workerId = state->worker.get_id();
}

OperationQueue::~OperationQueue()
{
    state->close(false);
    if (state->isOnWorker()) {
        state->runAll(false);
        if (state->worker.joinable())
            state->worker.detach();
        return;
    }
    state->join();
}

void OperationQueue::addOperation(std::shared_ptr<Operation> operation)
{
    if (!operation)
        return;
    const auto shared = state; // once added, the operation may run and destroy this queue at any moment
    {
        const std::lock_guard lock(shared->mutex);
        if (!shared->running)
            return;
        shared->waiting.push_back(std::move(operation));
    }
    shared->changed.notify_one();
}

bool OperationQueue::closed() const
{
    const std::lock_guard lock(state->mutex);
    return !state->running;
}

void OperationQueue::shutDown()
{
    const auto shared = state; // a waiting operation may hold the last reference to the owner of this queue
    shared->close(true);
    if (!shared->isOnWorker())
        shared->join();
}

} // namespace opq
