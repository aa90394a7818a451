/// Cancel and progress of a piece of work.
#pragma once

#include <orvo_common/failure.hpp>

#include <atomic>
#include <functional>
#include <utility>

namespace orvo {

/// The only form of cancel and progress in internal code. An exported call creates it from its own parameters and
/// passes it on by const reference. It polls its source on the calling thread.
class RunControl
{
public:
    /// Without cancel and progress.
    RunControl() = default;
    /// Either function may be empty. Objects they refer to must outlive this.
    explicit RunControl(std::function<bool()> cancel_, std::function<void(float)> progress_ = {})
        : cancel(std::move(cancel_)), progress(std::move(progress_))
    {}
    /// The flag may be null; it must outlive this.
    explicit RunControl(const std::atomic<bool>* flag)
    {
        if (flag != nullptr)
            cancel = [flag] { return flag->load(std::memory_order_relaxed); };
    }
    /// For work without cancel and progress.
    static const RunControl& none()
    {
        static const RunControl nobody;
        return nobody;
    }
    RunControl(const RunControl&) = delete;
    RunControl& operator=(const RunControl&) = delete;

    /// Whether to stop the work.
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
    /// Whether cancelled() has ever returned true; does not poll.
    [[nodiscard]] bool wasCancelled() const { return seen.load(std::memory_order_relaxed); }

    /// `share`: the finished part of the work, 0 to 1.
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
