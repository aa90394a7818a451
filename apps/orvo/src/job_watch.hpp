/// What surrounds a job while it runs: the bar, Ctrl-C, and silence of the libraries below.
#pragma once

#include "interrupt.hpp"
#include "output.hpp"
#include "progress_bar.hpp"

namespace orvo::cli {

class JobWatch
{
public:
    explicit JobWatch(Talk talk) : bar(talk), interrupt(bar.isBar()) {}

    /// To be given to a job; must not outlive the watch.
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
