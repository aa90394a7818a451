/// Steps through a video at equal intervals.
#pragma once

#include "sources/mf_capture.hpp"

#include <cstdint>
#include <utility>

namespace orvo {

/// Every `step`-th sample of a capture from its position up to `end` (exclusive). Owns the capture.
class FrameStepper
{
public:
    struct Result
    {
        cv::Mat frame;           ///< empty at the end
        std::uint64_t index = 0; ///< the capture's position minus one
    };

    FrameStepper(MFCapture openCapture, std::int32_t frameStep, std::uint64_t endIndex)
        : capture(std::move(openCapture)), step(frameStep), end(endIndex)
    {}

    /// Since the position advances by one after each read, two results are exactly `step` samples apart. A step of 0
    /// requests an earlier frame and returns nothing. Throws cv::Exception.
    [[nodiscard]] Result next()
    {
        Result result;
        const std::uint64_t target = static_cast<std::uint64_t>(step) - 1 + capture.framePosition();
        if (target < end)
            capture.readFrame(target, result.frame);
        result.index = capture.framePosition() - 1;
        return result;
    }

private:
    MFCapture capture;
    std::int32_t step;
    std::uint64_t end;
};

} // namespace orvo
