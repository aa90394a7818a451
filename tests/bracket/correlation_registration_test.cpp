#include "bracket/correlation_registration.hpp"
#include "support/pictures.hpp"

#include <orvo_core/parallel.hpp>

#include <gtest/gtest.h>
#include <opencv2/imgproc.hpp>
#include <opencv2/video/tracking.hpp>

#include <array>
#include <cmath>
#include <random>

using namespace orvo;
using namespace orvo::test;

namespace {

constexpr int kWidth = 330;
constexpr int kHeight = 250;

/// The texture as a frame sees it through `referenceFromFrame`, at an exposure, with noise of a camera.
cv::Mat seen(const cv::Matx33d& referenceFromFrame, double gain, unsigned seed)
{
    std::mt19937 random(seed);
    std::normal_distribution<double> noise(0.0, 2.0);
    cv::Mat gray(kHeight, kWidth, CV_8U);
    for (int y = 0; y < kHeight; ++y)
        for (int x = 0; x < kWidth; ++x) {
            const cv::Vec3d at = referenceFromFrame * cv::Vec3d(x, y, 1.0);
            const auto value = static_cast<double>(texture(at[0] / at[2], at[1] / at[2]).g);
            gray.at<std::uint8_t>(y, x) = cv::saturate_cast<std::uint8_t>(200.0 * gain * value + noise(random));
        }
    return gray;
}

cv::Mat start() { return cv::Mat::eye(3, 3, CV_32F); }

/// The largest distance between the corners of a picture in two maps, in pixels.
double distance(const cv::Mat& a, const cv::Matx33d& b)
{
    cv::Mat map;
    a.convertTo(map, CV_64F);
    const cv::Matx33d first(map.ptr<double>());
    double most = 0.0;
    for (const double x : {0.0, kWidth - 1.0})
        for (const double y : {0.0, kHeight - 1.0}) {
            const cv::Vec3d p = first * cv::Vec3d(x, y, 1.0);
            const cv::Vec3d q = b * cv::Vec3d(x, y, 1.0);
            most = std::max(most, std::hypot(p[0] / p[2] - q[0] / q[2], p[1] / p[2] - q[1] / q[2]));
        }
    return most;
}

const std::array<cv::Matx33d, 4> kViews{{
    {1, 0, 2.4, 0, 1, -1.7, 0, 0, 1},
    {1.012, 0, -1.9, 0, 1.012, -1.4, 0, 0, 1},
    {1.0, 0.011, -1.5, -0.011, 1.0, 1.8, 0, 0, 1},
    {1.006, 0.004, -1.0, -0.004, 1.004, 0.8, 8e-6, -6e-6, 1},
}};

// The same iterations in OpenCV keep the derivatives of all pixels in memory; only roundings differ.
constexpr double kRoundings = 2e-3; // pixels

} // namespace

TEST(CorrelationRegistration, FindsTheViewAsWellAsOpenCV)
{
    const CorrelationLimits limits{100, 1e-6};
    for (std::size_t i = 0; i < kViews.size(); ++i) {
        const cv::Mat reference = seen(cv::Matx33d::eye(), 1.0, 1);
        const cv::Mat frame = seen(kViews[i], 0.8, 2);
        cv::Mat found = start();
        ASSERT_TRUE(CorrelationReference(reference).align(frame, limits, found)) << i;
        cv::Mat expected = start();
        cv::findTransformECC(
            reference, frame, expected, cv::MOTION_HOMOGRAPHY,
            cv::TermCriteria(cv::TermCriteria::COUNT + cv::TermCriteria::EPS, limits.iterations, limits.smallestGain),
            cv::noArray());
        cv::Mat wanted;
        expected.convertTo(wanted, CV_64F);
        EXPECT_LT(distance(found, cv::Matx33d(wanted.ptr<double>())), kRoundings) << i;
        EXPECT_LT(distance(found, kViews[i].inv()), 0.1) << i;
    }
}

TEST(CorrelationRegistration, SameBitsForAnyNumberOfThreads)
{
    const CorrelationReference reference(seen(cv::Matx33d::eye(), 1.0, 1));
    const cv::Mat frame = seen(kViews[3], 1.1, 2);
    cv::Mat many = start();
    ASSERT_TRUE(reference.align(frame, {}, many));
    for (const int threads : {1, 2, 3}) {
        const WorkerLimit limit(threads);
        cv::Mat found = start();
        ASSERT_TRUE(reference.align(frame, {}, found));
        EXPECT_EQ(cv::norm(found, many, cv::NORM_INF), 0.0) << threads;
    }
}

TEST(CorrelationRegistration, APictureWithoutDetailIsNotFound)
{
    const CorrelationReference reference(seen(cv::Matx33d::eye(), 1.0, 1));
    cv::Mat found = start();
    EXPECT_FALSE(reference.align(cv::Mat(kHeight, kWidth, CV_8U, cv::Scalar(90)), {}, found));
}
