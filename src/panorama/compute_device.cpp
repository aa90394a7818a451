#include "panorama/compute_device.hpp"

#include "panorama/scope_exit.hpp"

#include <orvo_logger/logstream.hpp>

#include <opencv2/core/ocl.hpp>

#include <cstdint>

namespace orvo {
namespace {

constexpr std::int32_t kBytesPerPixel16 = 6;      // of CV_16SC3
constexpr std::uint32_t kBytesPerPixelWeight = 4; // of the blender's float plane of weights
constexpr double kUsableShare = 0.8;              // of a device's memory, which is shared with others

std::string sizeText(const cv::Size& size) { return std::to_string(size.width) + " " + std::to_string(size.height); }

} // namespace

std::atomic<bool>& forceCpu()
{
    static std::atomic<bool> flag{false};
    return flag;
}

DeviceMemory readDeviceMemory()
{
    DeviceMemory memory;
    const cv::ocl::Device& device = cv::ocl::Device::getDefault();
    memory.largestAllocation = device.maxMemAllocSize();
    memory.total = device.globalMemSize();
    return memory;
}

bool deviceCanHold(const DeviceMemory& memory, const std::vector<cv::Mat>& sources, const cv::Size& size)
{
    if (memory.largestAllocation == 0 || memory.total == 0 || sources.empty())
        return false;
    // Both products have 32 bits, so the estimate overflows only for sizes that are never requested from a device.
    std::int64_t total = 0;
    for (const cv::Mat& image : sources)
        total += static_cast<std::int32_t>(static_cast<std::uint32_t>(image.rows) *
                                           static_cast<std::uint32_t>(image.cols) * kBytesPerPixel16);
    const float share =
        static_cast<float>(size.width) / static_cast<float>(sources[0].cols) / static_cast<float>(sources.size());
    const float estimate = static_cast<float>(total) * share;
    const auto output = static_cast<std::int32_t>(static_cast<std::uint32_t>(size.width) *
                                                  static_cast<std::uint32_t>(size.height) * kBytesPerPixelWeight);
    return estimate < static_cast<float>(memory.largestAllocation) &&
           3.0 * output < kUsableShare * static_cast<double>(memory.total);
}

cv::Rect composeOnDevice(const std::function<DeviceMemory()>& readMemory, const std::function<cv::Rect()>& compose,
                         const std::vector<cv::Mat>& sources, const cv::Size& size, const std::string& caller)
{
    if (!forceCpu()) {
        DeviceMemory memory;
        try {
            memory = readMemory();
        } catch (...) {
            details::logWarning(caller + ": makePanoramaRaw: OpenCV exception on cv::ocl::Device access");
        }
        if (!deviceCanHold(memory, sources, size))
            forceCpu().exchange(true);
    }
    if (forceCpu())
        return composeOnCpu(compose, size);
    try {
        return compose();
    } catch (const cv::Exception& error) {
        details::logWarning(std::string("makePanoramaRaw: OpenCV exception: ") + error.what() +
                            ". From now on will use a CPU fallback");
    } catch (...) {
        details::logWarning("Probably not enough memory to create panorama on GPU of size, width, height: " +
                            sizeText(size));
    }
    forceCpu().exchange(true);
    return composeOnCpu(compose, size);
}

cv::Rect composeOnCpu(const std::function<cv::Rect()>& compose, const cv::Size& size)
{
    LOG(__orvolog() << LogMessageType::Progress << "Trying to make panorama on CPU");
    const bool usedOpenCl = cv::ocl::useOpenCL();
    cv::ocl::setUseOpenCL(false);
    const ScopeExit restore([usedOpenCl] { cv::ocl::setUseOpenCL(usedOpenCl); });
    const std::string failure =
        "Probably not enough memory to create panorama on CPU of size, width, height: " + sizeText(size);
    try {
        return compose();
    } catch (const cv::Exception& error) {
        LOG(__orvolog() << LogMessageType::Error << failure << error.what());
        throw;
    } catch (...) {
        LOG(__orvolog() << LogMessageType::Error << failure);
        throw;
    }
}

} // namespace orvo
