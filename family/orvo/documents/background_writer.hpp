// Background writes of temporary files.
#pragma once

#include <condition_variable>
#include <deque>
#include <functional>
#include <future>
#include <mutex>
#include <thread>

namespace orvo {

// One thread per process that writes temporary files in the order of the calls, since several would not make a disk
// faster. It starts with the first task and ends with the process, after the last task.
class BackgroundWriter
{
public:
    static BackgroundWriter& instance();
    ~BackgroundWriter();
    BackgroundWriter(const BackgroundWriter&) = delete;
    BackgroundWriter& operator=(const BackgroundWriter&) = delete;

    // An exception of `task` goes into the future. The task is destroyed before the future is ready.
    [[nodiscard]] std::shared_future<void> run(std::function<void()> task);

private:
    struct Task
    {
        std::function<void()> run;
        std::promise<void> done;
    };

    BackgroundWriter();
    void work();

    std::mutex mutex;
    std::condition_variable changed;
    std::deque<Task> waiting;
    bool ending = false;
    std::thread worker; // last, since it uses the other members
};

} // namespace orvo
