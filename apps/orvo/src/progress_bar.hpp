/// Shows where a job is.
#pragma once

#include <jobs/job.hpp>

#include <functional>
#include <optional>
#include <string>

namespace orvo::cli {

enum class Talk
{
    Silent,  ///< nothing at all
    BarOnly, ///< a bar on a terminal, else nothing: standard output is for a machine
    Full,    ///< a bar on a terminal, else a line on standard output for each step
};

/// One bar at the bottom of the terminal that standard error is, taken away at the end.
class ProgressBar
{
public:
    explicit ProgressBar(Talk talk);
    ~ProgressBar() { clear(); }
    ProgressBar(const ProgressBar&) = delete;
    ProgressBar& operator=(const ProgressBar&) = delete;

    /// To be given to a job; must not outlive the bar.
    [[nodiscard]] std::function<void(const jobs::JobProgress&)> follower();

    /// Takes the bar away, so that a line can be written in its place.
    void clear();

    [[nodiscard]] bool isBar() const { return bar; }

private:
    void show(const jobs::JobProgress& progress);

    Talk talk;
    bool bar;
    bool shown = false;
    std::optional<jobs::JobStep> lastStep;
};

} // namespace orvo::cli
