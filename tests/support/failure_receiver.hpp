/// Collects what a tool passes to its failure callback.
#pragma once

#include <orvo_common/failure.hpp>

#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <functional>
#include <memory>
#include <mutex>
#include <utility>
#include <vector>

namespace orvo::test {

/// Failures arrive on threads of their own, so in any order, and the last ones after this object has gone.
class FailureReceiver
{
public:
    [[nodiscard]] std::function<void(Failure)> callback() const
    {
        return [inbox = inbox](Failure failure) {
            const std::lock_guard lock(inbox->mutex);
            inbox->failures.push_back(std::move(failure));
            inbox->changed.notify_all();
        };
    }

    /// Waits for `count` failures and returns all there are.
    [[nodiscard]] std::vector<Failure> wait(std::size_t count) const
    {
        constexpr std::chrono::minutes kPatience{10}; // only a failing test takes so long
        std::unique_lock lock(inbox->mutex);
        EXPECT_TRUE(inbox->changed.wait_for(lock, kPatience, [&] { return inbox->failures.size() >= count; }));
        return inbox->failures;
    }

private:
    struct Inbox
    {
        std::mutex mutex;
        std::condition_variable changed;
        std::vector<Failure> failures;
    };
    std::shared_ptr<Inbox> inbox = std::make_shared<Inbox>();
};

} // namespace orvo::test
