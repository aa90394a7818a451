/// Comparison of two matrices of OpenCV.
#pragma once

#include "support/compare.hpp"

#include <opencv2/core.hpp>

#include <cstring>
#include <sstream>

namespace orvo::test {

/// Checks that two matrices have the same size, type and bytes; the failure has the first difference. Ignores gaps
/// between rows.
inline testing::AssertionResult sameBytes(const cv::Mat& found, const cv::Mat& expected)
{
    if (found.size() != expected.size() || found.type() != expected.type())
        return testing::AssertionFailure()
               << found.cols << " x " << found.rows << " of type " << cv::typeToString(found.type()) << ", expected "
               << expected.cols << " x " << expected.rows << " of type " << cv::typeToString(expected.type());
    const std::size_t rowBytes = static_cast<std::size_t>(found.cols) * found.elemSize();
    bool same = true;
    for (int y = 0; y < found.rows && same; ++y)
        same = std::memcmp(found.ptr(y), expected.ptr(y), rowBytes) == 0;
    if (same)
        return testing::AssertionSuccess() << "the bytes are the same";
    cv::Mat foundValues;
    cv::Mat expectedValues;
    found.convertTo(foundValues, CV_64F);
    expected.convertTo(expectedValues, CV_64F);
    const int channels = found.channels();
    const auto sampleOf = [channels](const cv::Mat& values) {
        return [&values, channels](int x, int y, int c) { return values.ptr<double>(y)[x * channels + c]; };
    };
    std::ostringstream text;
    differencesOf(found.cols, found.rows, channels, 0.0, sampleOf(foundValues), sampleOf(expectedValues))
        .describe(text, 0.0);
    return testing::AssertionFailure() << text.str();
}

} // namespace orvo::test
