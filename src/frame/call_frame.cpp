#include "frame/call_frame.hpp"

#include <orvo_logger/logstream.hpp>

#include <opencv2/core.hpp>

#include <exception>

namespace orvo::details {

Failure failureOfOpenCv() noexcept
{
    try {
        throw;
    } catch (const cv::Exception& error) {
        // What the allocation of a device matrix gives is only asserted.
        const bool isNoMatrix = error.code == cv::Error::StsAssert && error.err == "u != 0";
        if (error.code == cv::Error::StsNoMem || isNoMatrix)
            return {FailureKind::OutOfMemory, {}, {}};
    } catch (...) { // NOLINT(bugprone-empty-catch): not OpenCV's
    }
    return failureOfException();
}

void logException(const char* functionName) noexcept
{
    try {
        try {
            throw;
        } catch (const std::exception& error) {
            LOG(__orvolog() << LogMessageType::Error << "Error in " << functionName << ": " << error.what());
        } catch (...) {
            LOG(__orvolog() << LogMessageType::Error << "Unknown error in " << functionName << ".");
        }
    } catch (...) { // NOLINT(bugprone-empty-catch): no memory for the log line
    }
}

} // namespace orvo::details
