/// Shows the progress of a job.
#pragma once

#include <jobs/job.hpp>

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

namespace orvo::cli {

enum class Talk
{
    Silent,  ///< nothing
    BarOnly, ///< a bar on a terminal, else nothing: standard output is for a machine
    Full,    ///< a bar on a terminal, else a line on standard output for each step
};

/// A bar on standard error if that is a terminal, cleared at the end. During an opaque step it shows the elapsed time,
/// and moves.
class ProgressBar
{
public:
    explicit ProgressBar(Talk talk);
    ~ProgressBar();
    ProgressBar(const ProgressBar&) = delete;
    ProgressBar& operator=(const ProgressBar&) = delete;

    /// Usable from one thread at a time.
    void show(const jobs::JobProgress& progress);

    [[nodiscard]] bool isBar() const { return bar; }

private:
    using Clock = std::chrono::steady_clock;

    void draw();
    void keepMoving();

    const Talk talk;
    const bool bar;
    std::mutex mutex; // for all members below
    std::condition_variable ended;
    bool isEnded = false;
    std::optional<jobs::JobProgress> last;
    Clock::time_point stepBegan;
    std::thread mover; // last: it uses the rest
};

} // namespace orvo::cli
