/// Composes a panorama on the OpenCL device or on the CPU.
#pragma once

#include <opencv2/core.hpp>

#include <atomic>
#include <cstddef>
#include <functional>
#include <string>
#include <vector>

namespace orvo {

/// Set when the device has failed or does not have enough memory; from then on the process composes on the CPU. All
/// stitchers share it.
[[nodiscard]] std::atomic<bool>& forceCpu();

struct DeviceMemory
{
    std::size_t largestAllocation = 0; ///< bytes
    std::size_t total = 0;             ///< bytes
};

/// Of OpenCL's default device; 0 if there is none. May throw.
[[nodiscard]] DeviceMemory readDeviceMemory();

/// True if the memory of a device is expected to be sufficient to compose `sources` at `size`. A cheap estimate that
/// avoids renders that would fail.
[[nodiscard]] bool deviceCanHold(const DeviceMemory& memory, const std::vector<cv::Mat>& sources, const cv::Size& size);

/// Composes on the device unless forceCpu() is set or `readMemory` reports too little memory. If this fails, which is
/// logged, or is not tried, composes on the CPU. `caller` starts the log line about a device that cannot be queried.
/// Failures on the CPU are logged and rethrown.
[[nodiscard]] cv::Rect composeOnDevice(const std::function<DeviceMemory()>& readMemory,
                                       const std::function<cv::Rect()>& compose, const std::vector<cv::Mat>& sources,
                                       const cv::Size& size, const std::string& caller);

/// Composes with OpenCL switched off for the calling thread; its state is always restored.
[[nodiscard]] cv::Rect composeOnCpu(const std::function<cv::Rect()>& compose, const cv::Size& size);

} // namespace orvo
