/// The surroundings of a running job: the bar, Ctrl-C, and silenced libraries.
#pragma once

#include "interrupt.hpp"
#include "output.hpp"
#include "progress_bar.hpp"

namespace orvo::cli {

class JobWatch
{
public:
    explicit JobWatch(Talk talk) : bar(talk), interrupt(bar.isBar()) {}

    /// Passed to a job; must not outlive the watch.
    [[nodiscard]] jobs::JobCallbacks callbacks()
    {
        const auto follow = [this](const jobs::JobProgress& progress) {
            interrupt.follow(progress);
            bar.show(progress);
        };
        return {follow, interrupt.cancelFlag()};
    }

private:
    ProgressBar bar;
    InterruptGuard interrupt;
    SilentStandardError silence;
};

} // namespace orvo::cli
