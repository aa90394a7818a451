/// Measures step times and memory.
#pragma once

#include <jobs/picture_job.hpp>

#include <chrono>
#include <vector>

namespace orvo::jobs {

/// Records the times of a job's steps in its report.
class StepClock
{
public:
    /// `steps` must outlive the clock.
    explicit StepClock(std::vector<StepTime>& steps_) : steps(steps_) {}
    ~StepClock() { stop(); }
    StepClock(const StepClock&) = delete;
    StepClock& operator=(const StepClock&) = delete;

    /// Ends the current step and begins `step`, unless it is the current one.
    void enter(JobStep step);
    /// Adds the time so far to the current step.
    void stop();

private:
    std::vector<StepTime>& steps;
    std::chrono::steady_clock::time_point begun;
    bool running = false;
};

[[nodiscard]] PeakMemory peakMemory();

} // namespace orvo::jobs
