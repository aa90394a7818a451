/// Ctrl-C.
#pragma once

#include <jobs/job.hpp>

#include <atomic>
#include <memory>

namespace orvo::cli {

/// While it lives, the first SIGINT, SIGTERM or SIGHUP sets a cancel flag, and the second removes unfinished files and
/// ends the program at once. During a step that does not look at the flag already the first one does that, since nobody
/// wants to wait for it. Signals that the program was started without (as by nohup) stay ignored. One at a time.
class InterruptGuard
{
public:
    /// `bar`: there is one on standard error. Then it is said there that the program is about to stop, since a step at
    /// hand may take a while, and the bar is taken away before the program ends at once.
    explicit InterruptGuard(bool bar);
    ~InterruptGuard();
    InterruptGuard(const InterruptGuard&) = delete;
    InterruptGuard& operator=(const InterruptGuard&) = delete;

    /// To be told of every progress of the job.
    void follow(const jobs::JobProgress& progress);

    [[nodiscard]] const std::shared_ptr<std::atomic<unsigned char>>& cancelFlag() const { return flag; }

private:
    std::shared_ptr<std::atomic<unsigned char>> flag;
};

} // namespace orvo::cli
