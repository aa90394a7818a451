/// Ctrl-C.
#pragma once

#include <atomic>
#include <memory>

namespace orvo::cli {

/// While it lives, the first SIGINT, SIGTERM or SIGHUP sets a cancel flag, and the second removes unfinished files and
/// ends the program at once. Signals that the program was started without (as by nohup) stay ignored. One at a time.
class InterruptGuard
{
public:
    /// `tell`: says on standard error that the program is about to stop, since a step at hand may take a while.
    explicit InterruptGuard(bool tell);
    ~InterruptGuard();
    InterruptGuard(const InterruptGuard&) = delete;
    InterruptGuard& operator=(const InterruptGuard&) = delete;

    [[nodiscard]] const std::shared_ptr<std::atomic<unsigned char>>& cancelFlag() const { return flag; }

private:
    std::shared_ptr<std::atomic<unsigned char>> flag;
};

} // namespace orvo::cli
