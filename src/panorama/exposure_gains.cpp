#include "panorama/exposure_gains.hpp"

#include <orvo_core/detail/vector_code.hpp>
#include <orvo_core/parallel.hpp>
#include <orvo_logger/logstream.hpp>

#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace orvo {
namespace {

constexpr int kChannels = 3;

// Two samples of a line of gains and their weights.
struct Mix
{
    int near;
    int far;
    float nearShare;
    float farShare;
};

// For an index of the picture's columns or rows, with pixel centres mapped to pixel centres.
Mix mixAt(int index, int count, int gainCount)
{
    const double step = 1.0 / (static_cast<double>(count) / gainCount); // rounded as cv::resize does
    const auto position = static_cast<float>((index + 0.5) * step - 0.5);
    const float whole = std::floor(position);
    const float share = position - whole;
    const auto limited = [gainCount](int at) { return std::clamp(at, 0, gainCount - 1); };
    const int near = static_cast<int>(whole);
    return {limited(near), limited(near + 1), 1.0f - share, share};
}

std::vector<Mix> mixesOf(int count, int gainCount)
{
    std::vector<Mix> mixes(static_cast<std::size_t>(count));
    for (int x = 0; x < count; ++x)
        mixes[static_cast<std::size_t>(x)] = mixAt(x, count, gainCount);
    return mixes;
}

// One row of gains as wide as the picture.
void spread(const float* gains, const std::vector<Mix>& columns, std::vector<float>& row)
{
    float* out = row.data();
    for (const Mix& column : columns) {
        const float* const near = gains + std::ptrdiff_t{kChannels} * column.near;
        const float* const far = gains + std::ptrdiff_t{kChannels} * column.far;
        // At the ends both are the same sample, which is used unchanged.
        const bool isEnd = near == far;
        for (int c = 0; c < kChannels; ++c)
            *out++ = isEnd ? near[c] : near[c] * column.nearShare + far[c] * column.farShare;
    }
}

ORVO_VECTOR_CLONES void multiplyRow(const float* __restrict upper, const float* __restrict lower, float upperShare,
                                    float lowerShare, std::int16_t* __restrict samples, int count)
{
    // Adding and subtracting it rounds to the nearest integer, ties to even: larger numbers have no fraction.
    constexpr float kRounder = 12582912.0f; // 1.5 * 2^23
    for (int i = 0; i < count; ++i) {
        float value = static_cast<float>(samples[i]) * (upper[i] * upperShare + lower[i] * lowerShare);
        value = value > -32768.0f ? value : -32768.0f;
        value = value < 32767.0f ? value : 32767.0f;
        samples[i] = static_cast<std::int16_t>(static_cast<std::int32_t>((value + kRounder) - kRounder));
    }
}

} // namespace

cv::Mat blockGains(cv::detail::ExposureCompensator* compensator, int index, const cv::Size& size,
                   const std::string& caller)
{
    const auto refuse = [&caller](const char* text) {
        details::logWarning(caller + ": " + text);
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

void multiplyByGains(cv::Mat& picture, const cv::Mat& gains)
{
    constexpr int kRowsAtOnce = 32; // so that neighbouring rows share their gains, and no thread idles
    const std::vector<Mix> columns = mixesOf(picture.cols, gains.cols);
    forEachRow((picture.rows + kRowsAtOnce - 1) / kRowsAtOnce, [&](int band) {
        // Neighbouring rows of the picture use the same two rows of gains.
        std::vector<float> upper(columns.size() * kChannels);
        std::vector<float> lower(columns.size() * kChannels);
        int upperRow = -1;
        int lowerRow = -1;
        const int last = std::min((band + 1) * kRowsAtOnce, picture.rows);
        for (int y = band * kRowsAtOnce; y < last; ++y) {
            const Mix row = mixAt(y, picture.rows, gains.rows);
            if (row.near != upperRow)
                spread(gains.ptr<float>(row.near), columns, upper);
            if (row.far != lowerRow)
                spread(gains.ptr<float>(row.far), columns, lower);
            upperRow = row.near;
            lowerRow = row.far;
            multiplyRow(upper.data(), lower.data(), row.nearShare, row.farShare, picture.ptr<std::int16_t>(y),
                        kChannels * picture.cols);
        }
    });
}

} // namespace orvo
