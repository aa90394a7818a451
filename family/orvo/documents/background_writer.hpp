// Work that waits for the disk.
#pragma once

#include <condition_variable>
#include <deque>
#include <functional>
#include <future>
#include <mutex>
#include <thread>

namespace orvo {

// One thread of the process that writes temporary files, in the order of the calls: several would not make a disk
// faster. It starts with the first task and ends with the process, after the last one.
class BackgroundWriter
{
public:
    static BackgroundWriter& instance();
    ~BackgroundWriter();
    BackgroundWriter(const BackgroundWriter&) = delete;
    BackgroundWriter& operator=(const BackgroundWriter&) = delete;

    // What `task` throws goes into the future. The task is dropped before the future is ready.
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
    std::thread worker; // last: starts when all the others are there
};

} // namespace orvo
