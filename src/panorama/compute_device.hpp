/// Where a panorama is composed: on the OpenCL device, or on the CPU.
#pragma once

#include <opencv2/core.hpp>

#include <atomic>
#include <cstddef>
#include <functional>
#include <string>
#include <vector>

namespace orvo {

/// Set once the device has failed or cannot hold the work; from then on the process composes on the CPU. Several
/// stitchers share it.
[[nodiscard]] std::atomic<bool>& forceCpu();

struct DeviceMemory
{
    std::size_t largestAllocation = 0; ///< bytes
    std::size_t total = 0;             ///< bytes
};

/// Of OpenCL's default device; 0 where there is none. May throw.
[[nodiscard]] DeviceMemory readDeviceMemory();

/// Whether a device of this memory is expected to hold the composition of `sources` at `size`. A cheap guess that keeps
/// renders from being started that cannot end well.
[[nodiscard]] bool deviceCanHold(const DeviceMemory& memory, const std::vector<cv::Mat>& sources, const cv::Size& size);

/// Composes on the device unless forceCpu() is set or `readMemory` tells that it cannot hold the work. If that fails,
/// which is logged, or if it is not even tried, composes on the CPU. `caller` starts the line about a device that
/// cannot be asked. What fails on the CPU is logged and thrown on.
[[nodiscard]] cv::Rect composeOnDevice(const std::function<DeviceMemory()>& readMemory,
                                       const std::function<cv::Rect()>& compose, const std::vector<cv::Mat>& sources,
                                       const cv::Size& size, const std::string& caller);

/// Composes with OpenCL switched off for the calling thread; its state is restored in any case.
[[nodiscard]] cv::Rect composeOnCpu(const std::function<cv::Rect()>& compose, const cv::Size& size);

} // namespace orvo
