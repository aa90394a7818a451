/// Keeps OpenCV from printing its exceptions to standard error.
#pragma once

#include <opencv2/core/utils/logger.hpp>

#include <mutex>

namespace orvo {

/// Silences OpenCV's global log level during its lifetime, then restores it. One instance at a time.
class QuietOpenCv
{
public:
    QuietOpenCv() : lock(mutex()), before(cv::utils::logging::setLogLevel(cv::utils::logging::LOG_LEVEL_SILENT)) {}
    ~QuietOpenCv() { cv::utils::logging::setLogLevel(before); }
    QuietOpenCv(const QuietOpenCv&) = delete;
    QuietOpenCv& operator=(const QuietOpenCv&) = delete;

private:
    static std::mutex& mutex()
    {
        static std::mutex one;
        return one;
    }

    const std::lock_guard<std::mutex> lock;
    const cv::utils::logging::LogLevel before;
};

} // namespace orvo
