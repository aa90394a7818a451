/// Progress and cancel of a restoration's steps.
#pragma once

#include <orvo/restoration.hpp>

namespace orvo::details {

/// The share of a step in the whole; reports its progress. Used on the caller's thread.
class Step
{
public:
    Step(const RestorationCallbacks& callbacks_, double from_, double to_) : callbacks(callbacks_), from(from_), to(to_)
    {}
    /// `done`: 0..1 of this step. Returns false if the caller cancelled.
    [[nodiscard]] bool goOn(double done) const
    {
        if (callbacks.progress)
            callbacks.progress(from + (to - from) * done);
        return !callbacks.cancel || !callbacks.cancel();
    }
    /// The part of this step from `first` to `last`, 0..1.
    [[nodiscard]] Step part(double first, double last) const
    {
        return {callbacks, from + (to - from) * first, from + (to - from) * last};
    }

private:
    const RestorationCallbacks& callbacks;
    double from;
    double to;
};

} // namespace orvo::details
