/// Progress and cancel of a restoration's steps.
#pragma once

#include <orvo_common/run_control.hpp>

namespace orvo::details {

/// The share of a step in the whole restoration. Used on the caller's thread.
class Step
{
public:
    Step(const RunControl& control_, double from_, double to_) : runControl(control_), from(from_), to(to_) {}
    /// Reports `done`, 0..1 of this step. Throws FailureError, Cancelled, if the caller cancelled.
    void goOn(double done) const
    {
        runControl.report(static_cast<float>(from + (to - from) * done));
        runControl.throwIfCancelled();
    }
    /// The part of this step from `first` to `last`, 0..1.
    [[nodiscard]] Step part(double first, double last) const
    {
        return {runControl, from + (to - from) * first, from + (to - from) * last};
    }
    [[nodiscard]] const RunControl& control() const { return runControl; }

private:
    const RunControl& runControl;
    double from;
    double to;
};

} // namespace orvo::details
