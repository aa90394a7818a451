/// Times of steps, and memory.
#pragma once

#include <jobs/picture_job.hpp>

#include <chrono>
#include <vector>

namespace orvo::jobs {

/// Measures the steps of a job into its answer, one after the other.
class StepClock
{
public:
    /// `steps` must outlive the clock.
    explicit StepClock(std::vector<StepTime>& steps_) : steps(steps_) {}
    ~StepClock() { stop(); }
    StepClock(const StepClock&) = delete;
    StepClock& operator=(const StepClock&) = delete;

    /// Ends the step at hand and begins `step`, unless that is the one at hand.
    void enter(JobStep step);
    /// Adds the time so far to the step at hand.
    void stop();

private:
    std::vector<StepTime>& steps;
    std::chrono::steady_clock::time_point begun;
    bool running = false;
};

[[nodiscard]] PeakMemory peakMemory();

} // namespace orvo::jobs
