/// How whoever waits for a piece of work stops and follows it.
#pragma once

#include <orvo_common/failure.hpp>

#include <atomic>
#include <functional>
#include <utility>

namespace orvo {

/// The one form in which cancel and progress travel through internal code: made where an exported call begins, from
/// whatever that takes, and passed on by const reference. It polls what it was made from on the thread that asks.
class RunControl
{
public:
    /// Nobody stops or follows it.
    RunControl() = default;
    /// Either function may be empty. Both must live as long as this if they refer to anything.
    explicit RunControl(std::function<bool()> cancel_, std::function<void(float)> progress_ = {})
        : cancel(std::move(cancel_)), progress(std::move(progress_))
    {}
    /// The flag may be null; it must live as long as this.
    explicit RunControl(const std::atomic<bool>* flag)
    {
        if (flag != nullptr)
            cancel = [flag] { return flag->load(std::memory_order_relaxed); };
    }
    /// For work that nobody stops or follows.
    static const RunControl& none()
    {
        static const RunControl nobody;
        return nobody;
    }
    RunControl(const RunControl&) = delete;
    RunControl& operator=(const RunControl&) = delete;

    /// Whether the work is to stop.
    [[nodiscard]] bool cancelled() const
    {
        const bool is = cancel && cancel();
        if (is)
            seen.store(true, std::memory_order_relaxed);
        return is;
    }
    void throwIfCancelled() const
    {
        if (cancelled())
            throw FailureError(cancelledFailure());
    }
    /// Whether cancelled() has ever returned true; asks nobody.
    [[nodiscard]] bool wasCancelled() const { return seen.load(std::memory_order_relaxed); }

    /// `share` of the work is done, 0 to 1.
    void report(float share) const
    {
        if (progress)
            progress(share);
    }

private:
    std::function<bool()> cancel;
    std::function<void(float)> progress;
    mutable std::atomic<bool> seen = false;
};

} // namespace orvo
