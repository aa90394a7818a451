#include "bracket/inscribed_rect.hpp"

#include <gtest/gtest.h>
#include <opencv2/core.hpp>

#include <cmath>
#include <limits>

using namespace orvo;

namespace {

cv::Mat shifted(double x, double y) { return (cv::Mat_<double>(3, 3) << 1, 0, x, 0, 1, y, 0, 0, 1); }

cv::Mat rotatedAboutCentre(double degrees, double w, double h)
{
    const double a = degrees * CV_PI / 180;
    const cv::Mat turn = (cv::Mat_<double>(3, 3) << std::cos(a), -std::sin(a), 0, std::sin(a), std::cos(a), 0, 0, 0, 1);
    return shifted(w / 2, h / 2) * turn * shifted(-w / 2, -h / 2);
}

cv::Rect inscribed(const cv::Mat& transform, int w, int h)
{
    return inscribedRect(projectedCorners(transform, w, h), static_cast<float>(w), static_cast<float>(h));
}

} // namespace

TEST(InscribedRect, IdentityGivesTheFrame)
{
    EXPECT_EQ(inscribed(cv::Mat::eye(3, 3, CV_64F), 640, 480), cv::Rect(0, 0, 640, 480));
    EXPECT_EQ(inscribed(cv::Mat::eye(3, 3, CV_64F), 641, 3), cv::Rect(0, 0, 641, 3));
}

TEST(InscribedRect, AShiftMovesIt) { EXPECT_EQ(inscribed(shifted(12, -5), 640, 480), cv::Rect(12, -5, 640, 480)); }

TEST(InscribedRect, ARotatedFrameContainsItsRectangle)
{
    const int w = 600;
    const int h = 400;
    for (const double degrees : {-3.0, -0.5, 1.0, 5.0}) {
        const cv::Mat transform = rotatedAboutCentre(degrees, w, h);
        const cv::Rect rect = inscribed(transform, w, h);
        EXPECT_NEAR(rect.x + rect.width / 2.0, w / 2.0, 1);
        EXPECT_NEAR(static_cast<double>(rect.width) / rect.height, 1.5, 0.02) << "in the frame's proportions";
        EXPECT_LT(rect.width, w);
        // Every corner, taken back, lies in the frame, up to the rounding of the rectangle.
        const cv::Mat back = transform.inv();
        for (const cv::Point corner : {rect.tl(), rect.br()}) {
            const cv::Mat p = back * (cv::Mat_<double>(3, 1) << corner.x, corner.y, 1);
            EXPECT_GE(p.at<double>(0), -1);
            EXPECT_LE(p.at<double>(0), w + 1);
            EXPECT_GE(p.at<double>(1), -1);
            EXPECT_LE(p.at<double>(1), h + 1);
        }
    }
}

TEST(InscribedRect, OnlyTheFirstTwoSidesCount)
{
    // The two sides through the last corner are pulled far in; the rectangle does not see it except through the centre.
    const std::vector<cv::Point2f> corners = {{0, 0}, {100, 0}, {100, 100}, {40, 60}};
    const cv::Rect rect = inscribedRect(corners, 100, 100);
    // Centre (60, 40); the first ray meets the upper side at (20, 0), the second meets it at (100, 0), where it meets
    // the right side too. Nearest is an offset of (40, 40).
    EXPECT_EQ(rect, cv::Rect(20, 0, 80, 80));
}

TEST(InscribedRect, ACollapsedFrameIsEmpty)
{
    const std::vector<cv::Point2f> corners(4, cv::Point2f(50, 50));
    EXPECT_TRUE(inscribedRect(corners, 100, 100).empty());
}

TEST(InscribedRect, AWildTransformStaysFinite)
{
    const std::vector<cv::Point2f> corners = {{-1e9f, -1e9f}, {1e9f, -1e9f}, {1e9f, 1e9f}, {-1e9f, 1e9f}};
    EXPECT_TRUE(inscribedRect(corners, 100, 100).empty()) << "intersections beyond 1e5 pixels do not count";
}

TEST(InscribedRect, CornersBeyondTheIntegerRangeStayOutside)
{
    const float nan = std::numeric_limits<float>::quiet_NaN();
    const cv::Rect frame(0, 0, 100, 100);
    for (const cv::Point2f away : {cv::Point2f(1e20f, 1e20f), cv::Point2f(-1e20f, 3e9f), cv::Point2f(nan, 0)}) {
        const std::vector<cv::Point2f> corners = {away, away + cv::Point2f(100, 0), away + cv::Point2f(100, 100),
                                                  away + cv::Point2f(0, 100)};
        EXPECT_TRUE((inscribedRect(corners, 100, 100) & frame).empty());
    }
}
