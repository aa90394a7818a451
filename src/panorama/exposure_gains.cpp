#include "panorama/exposure_gains.hpp"

#include <orvo_logger/logstream.hpp>

#include <opencv2/imgproc.hpp>

#include <vector>

namespace orvo {

cv::Mat blockGains(cv::detail::ExposureCompensator* compensator, int index, const cv::Size& size,
                   const std::string& caller)
{
    const auto refuse = [&caller](const char* text) {
        LOG(__orvolog() << LogMessageType::Warning << caller << ": " << text);
        return cv::Mat();
    };
    if (dynamic_cast<cv::detail::GainCompensator*>(compensator))
        return refuse("applyExposureCompensation does not implement for GainCompensator");
    if (dynamic_cast<cv::detail::ChannelsCompensator*>(compensator))
        return refuse("applyExposureCompensation does not implement for ChannelsCompensator");
    auto* const blocks = dynamic_cast<cv::detail::BlocksCompensator*>(compensator);
    if (!blocks)
        return {};
    std::vector<cv::Mat> gains;
    blocks->getMatGains(gains);
    if (index < 0 || static_cast<std::size_t>(index) >= gains.size())
        return refuse("applyExposureCompensation error: out of bounds index");
    cv::Mat gain;
    cv::resize(gains[static_cast<std::size_t>(index)], gain, size, 0, 0, cv::INTER_LINEAR);
    if (gain.channels() != 3)
        cv::merge(std::vector<cv::Mat>{gain, gain, gain}, gain);
    return gain;
}

} // namespace orvo
