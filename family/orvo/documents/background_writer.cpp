#include "documents/background_writer.hpp"

#include <orvo_common/temporary_directory.hpp>

#include <exception>
#include <utility>

namespace orvo {

BackgroundWriter& BackgroundWriter::instance()
{
    static BackgroundWriter writer;
    return writer;
}

BackgroundWriter::BackgroundWriter()
{
    (void)getTemporaryDirectory(); // makes the folder outlive the last write
    worker = std::thread([this] { work(); });
}

BackgroundWriter::~BackgroundWriter()
{
    {
        const std::lock_guard lock(mutex);
        ending = true;
    }
    changed.notify_all();
    worker.join();
}

std::shared_future<void> BackgroundWriter::run(std::function<void()> task)
{
    std::promise<void> promise;
    std::shared_future<void> done = promise.get_future().share();
    {
        const std::lock_guard lock(mutex);
        waiting.push_back({std::move(task), std::move(promise)});
    }
    changed.notify_one();
    return done;
}

void BackgroundWriter::work()
{
    for (;;) {
        Task task;
        {
            std::unique_lock lock(mutex);
            changed.wait(lock, [this] { return !waiting.empty() || ending; });
            if (waiting.empty())
                return;
            task = std::move(waiting.front());
            waiting.pop_front();
        }
        std::exception_ptr failure;
        try {
            task.run();
        } catch (...) {
            failure = std::current_exception();
        }
        task.run = nullptr; // the function may own the future
        if (failure)
            task.done.set_exception(failure);
        else
            task.done.set_value();
    }
}

} // namespace orvo
