/// Progress of work in parts.
#pragma once

#include <orvo_common/run_control.hpp>

#include <algorithm>
#include <atomic>
#include <thread>

namespace orvo {

/// The control of a part of the work of `run`, which must outlive it: what the part reports becomes `from` to `to` of
/// the whole.
[[nodiscard]] inline RunControl partOf(const RunControl& run, float from, float to)
{
    return RunControl([&run] { return run.cancelled(); },
                      [&run, from, to](float share) { run.report(from + (to - from) * share); });
}

/// Reports a loop that runs on several threads. A progress function may be called on only one: the thread that makes
/// this object, which runs its share of the loop and reports what all have done.
class LoopProgress
{
public:
    LoopProgress(const RunControl& run_, int pieces_)
        : run(run_), pieces(static_cast<float>(std::max(1, pieces_))), caller(std::this_thread::get_id())
    {}

    /// Any thread may call it, once for each piece of the loop.
    void pieceDone()
    {
        const int finished = ++done;
        if (std::this_thread::get_id() == caller)
            run.report(std::min(1.0f, static_cast<float>(finished) / pieces));
    }

private:
    const RunControl& run;
    const float pieces;
    const std::thread::id caller;
    std::atomic<int> done = 0;
};

} // namespace orvo
