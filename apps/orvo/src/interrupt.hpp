/// Ctrl-C.
#pragma once

#include <jobs/job.hpp>

#include <atomic>
#include <memory>

namespace orvo::cli {

/// During its lifetime the first SIGINT, SIGTERM or SIGHUP sets a cancel flag, and the second removes unfinished files
/// and ends the program at once. During a step that does not check the flag the first one does that, so that the user
/// need not wait. Signals that were ignored at the start (as with nohup) stay ignored. One at a time.
class InterruptGuard
{
public:
    /// `bar`: there is a bar on standard error. The handler then announces there that the program will stop, since the
    /// current step may take a while, and clears the bar before the program ends at once.
    explicit InterruptGuard(bool bar);
    ~InterruptGuard();
    InterruptGuard(const InterruptGuard&) = delete;
    InterruptGuard& operator=(const InterruptGuard&) = delete;

    /// Call it with each progress report of the job.
    void follow(const jobs::JobProgress& progress);

    [[nodiscard]] const std::shared_ptr<std::atomic<unsigned char>>& cancelFlag() const { return flag; }

private:
    std::shared_ptr<std::atomic<unsigned char>> flag;
};

} // namespace orvo::cli
