#include "panorama/panorama_warper.hpp"

#include <orvo_common/memory_manager.hpp>
#include <orvo_core/parallel.hpp>
#include <orvo_logger/log_capture.hpp>

#include <gtest/gtest.h>
#include <opencv2/calib3d.hpp>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include <cmath>
#include <limits>

using namespace orvo;

namespace {

constexpr int kNumbers[] = {0, 1, 2, 3, 4, 5};
const cv::Size kImage(400, 300);
constexpr float kFocal = 350.0f;
constexpr float kExact = 512.0f; // a power of two, so that positions on a plane are exact

cv::Mat camera(float focal = kFocal, cv::Size image = kImage)
{
    return (cv::Mat_<float>(3, 3) << focal, 0, static_cast<float>(image.width) / 2, 0, focal,
            static_cast<float>(image.height) / 2, 0, 0, 1);
}

cv::Mat rotation(float x, float y, float z)
{
    cv::Mat R;
    cv::Rodrigues(cv::Vec3f(x, y, z), R);
    return R;
}

cv::Mat eye() { return cv::Mat::eye(3, 3, CV_32F); }

// Smooth and different everywhere, so that a sample identifies its position: x to 24 times, y to 32 times, both in one.
cv::Mat gradients(cv::Size size = kImage)
{
    cv::Mat image(size, CV_16SC3);
    for (int y = 0; y < size.height; ++y)
        for (int x = 0; x < size.width; ++x)
            image.at<cv::Vec3s>(y, x) =
                cv::Vec3s(static_cast<short>(24 * x), static_cast<short>(32 * y), static_cast<short>(10 * (x + y)));
    return image;
}

// The maps point by point, with the tight box found by brute force.
struct SlowMaps
{
    cv::Rect roi;
    cv::Mat x, y;
};

SlowMaps slowMaps(const PanoramaWarper& warper, cv::Size src, cv::Rect rect, cv::Size size)
{
    const cv::Rect roi = warper.detectResultRoi(src, rect, size);
    SlowMaps maps;
    if (roi.empty())
        return maps;
    maps.x.create(roi.size(), CV_32F);
    maps.y.create(roi.size(), CV_32F);
    const float sx = static_cast<float>(rect.width) / static_cast<float>(size.width);
    const float sy = static_cast<float>(rect.height) / static_cast<float>(size.height);
    int left = roi.width, top = roi.height, right = -1, bottom = -1;
    for (int r = 0; r < roi.height; ++r) {
        for (int c = 0; c < roi.width; ++c) {
            float& x = maps.x.at<float>(r, c);
            float& y = maps.y.at<float>(r, c);
            warper.mapPlaneToImage(static_cast<float>(roi.x + c) * sx + static_cast<float>(rect.x),
                                   static_cast<float>(roi.y + r) * sy + static_cast<float>(rect.y), x, y);
            if (x >= 0 && x < static_cast<float>(src.width) && y >= 0 && y < static_cast<float>(src.height)) {
                left = std::min(left, c), right = std::max(right, c);
                top = std::min(top, r), bottom = std::max(bottom, r);
            }
        }
    }
    if (right < 0)
        return {};
    const cv::Rect box(left, top, right - left + 1, bottom - top + 1);
    maps.roi = box + roi.tl();
    maps.x = maps.x(box);
    maps.y = maps.y(box);
    return maps;
}

// Exposes the results of setCameraParams() and setIntermediate().
class Opened final : public PanoramaWarper
{
public:
    using PanoramaWarper::PanoramaWarper;
    void mapForward(float x, float y, float z, float& u, float& v) const override
    {
        u = scale * x / z;
        v = scale * y / z;
    }
    void mapBackward(float u, float v, float& x, float& y, float& z) const override
    {
        x = u / scale;
        y = v / scale;
        z = 1;
    }
    using PanoramaWarper::intermediate;
    using PanoramaWarper::k;
    using PanoramaWarper::k_rinv;
    using PanoramaWarper::midRotation;
    using PanoramaWarper::midRotationInv;
    using PanoramaWarper::r_kinv;
    using PanoramaWarper::rinv;
};

void expectMatrix(const PanoramaWarper::Matrix& found, const cv::Mat& expected, double tolerance = 1e-6)
{
    cv::Mat expected64;
    expected.convertTo(expected64, CV_64F);
    for (int i = 0; i < 9; ++i)
        EXPECT_NEAR(static_cast<double>(found.val[i]), expected64.at<double>(i / 3, i % 3), tolerance) << i;
}

double greatestDifference(const cv::Mat& a, const cv::Mat& b) { return cv::norm(a, b, cv::NORM_INF); }

} // namespace

TEST(SetCameraParams, FillsAllFourMatrices)
{
    Opened warper(1.0f);
    expectMatrix(warper.k, eye());
    expectMatrix(warper.k_rinv, eye());
    const cv::Mat K = camera();
    const cv::Mat R = rotation(0.1f, 0.7f, -0.2f);
    warper.setCameraParams(K, R);
    expectMatrix(warper.k, K);
    expectMatrix(warper.rinv, R.t());
    expectMatrix(warper.r_kinv, R * K.inv());
    expectMatrix(warper.k_rinv, K * R.t(), 1e-4);
}

TEST(SetCameraParams, DoesNothingUnlessBothAre3x3Floats)
{
    Opened warper(1.0f);
    warper.setCameraParams(camera(), rotation(0.1f, 0.7f, -0.2f));
    const auto before = warper.k_rinv;
    cv::Mat wide;
    camera(999).convertTo(wide, CV_64F);
    warper.setCameraParams(wide, eye());
    warper.setCameraParams(eye(), cv::Mat::eye(3, 4, CV_32F));
    warper.setCameraParams(cv::Mat::eye(2, 3, CV_32F), eye());
    warper.setCameraParams(cv::Mat(), eye());
    warper.setCameraParams(eye(), cv::noArray());
    EXPECT_EQ(warper.k_rinv, before);
}

TEST(MapImageToPlane, AndMapPlaneToImageAreInverse)
{
    for (const int number : kNumbers) {
        const auto warper = makeWarper(500.0f, number);
        warper->setCameraParams(camera(), rotation(0.2f, -0.3f, 0.1f));
        for (float y = 0; y <= 300; y += 30) {
            for (float x = 0; x <= 400; x += 40) {
                float u = 0, v = 0, toX = 0, toY = 0;
                warper->mapImageToPlane(x, y, u, v);
                warper->mapPlaneToImage(u, v, toX, toY);
                EXPECT_NEAR(toX, x, 0.01f) << number;
                EXPECT_NEAR(toY, y, 0.01f) << number;
            }
        }
    }
}

TEST(MapPlaneToImage, GivesMinusOneForPointsBehind)
{
    const auto warper = makeWarper(500.0f, 2);
    warper->setCameraParams(camera(), eye());
    float x = 7, y = 7;
    warper->mapPlaneToImage(3.1f * 500.0f, 1.57f * 500.0f, x, y);
    EXPECT_EQ(x, -1.0f);
    EXPECT_EQ(y, -1.0f);
    // Exactly sideways: the third component is 0, which is not above 0. A camera whose axis is the plane's x.
    const auto plane = makeWarper(1.0f, 0);
    const cv::Mat sideways = (cv::Mat_<float>(3, 3) << 0, 0, 1, 0, 1, 0, -1, 0, 0);
    plane->setCameraParams(eye(), sideways);
    plane->mapPlaneToImage(0.0f, 5.0f, x, y);
    EXPECT_EQ(x, -1.0f);
    EXPECT_EQ(y, -1.0f);
    plane->mapPlaneToImage(2.0f, 5.0f, x, y);
    EXPECT_NEAR(y, 2.5f, 1e-6f);
}

TEST(DetectResultRoi, IsTheSpanOfTheGrid)
{
    // A plane of the image's size shows it in place, including the last column and row.
    const auto warper = makeWarper(kExact, 0);
    warper->setCameraParams(camera(kExact), eye());
    const cv::Rect rect(-250, -200, 500, 400);
    EXPECT_EQ(warper->detectResultRoi(kImage, rect, {500, 400}), cv::Rect(50, 50, 400, 300));
    EXPECT_EQ(warper->detectResultRoi(kImage, rect, {250, 200}), cv::Rect(25, 25, 200, 150));
    EXPECT_EQ(warper->detectResultRoi({1, 1}, rect, {500, 400}), cv::Rect(50, 50, 1, 1));
}

TEST(DetectResultRoi, AgreesWithItsDefinition)
{
    const auto slowRoi = [](const PanoramaWarper& warper, cv::Size src, cv::Rect rect, cv::Size size) {
        const auto step = [](int length) { return static_cast<int>(std::ceil((length - 1) / 99.0)); };
        float left = 1e9f, top = 1e9f, right = -1e9f, bottom = -1e9f;
        for (int j = 0; j < 100; ++j) {
            for (int i = 0; i < 100; ++i) {
                float u = 0, v = 0;
                warper.mapImageToPlane(static_cast<float>(std::min(i * step(src.width), src.width - 1)),
                                       static_cast<float>(std::min(j * step(src.height), src.height - 1)), u, v);
                u = (u - static_cast<float>(rect.x)) * static_cast<float>(size.width) / static_cast<float>(rect.width);
                v = (v - static_cast<float>(rect.y)) * static_cast<float>(size.height) /
                    static_cast<float>(rect.height);
                left = std::min(left, u), right = std::max(right, u);
                top = std::min(top, v), bottom = std::max(bottom, v);
            }
        }
        const cv::Point first(static_cast<int>(left), static_cast<int>(top));
        return cv::Rect(first.x, first.y, static_cast<int>(right) - first.x + 1,
                        static_cast<int>(bottom) - first.y + 1) &
               cv::Rect(cv::Point(), size);
    };
    for (const int number : kNumbers) {
        for (const cv::Size src : {kImage, cv::Size(991, 1502), cv::Size(100, 101), cv::Size(37, 2)}) {
            const auto warper = makeWarper(300.0f, number);
            warper->setCameraParams(camera(kFocal, src), rotation(0.15f, -0.3f, 0.2f));
            const cv::Rect rect = number == 4 ? cv::Rect(-900, -900, 1800, 1800) : warper->outputBounds();
            for (const cv::Size size : {rect.size(), cv::Size(333, 222)})
                EXPECT_EQ(warper->detectResultRoi(src, rect, size), slowRoi(*warper, src, rect, size))
                    << number << ", " << src;
        }
    }
}

TEST(DetectResultRoi, CoversTheMeridianAndThePoles)
{
    // Pictures so large that dozens of pixels are between two points of the grid.
    const cv::Size src(3000, 2000);
    struct Turn
    {
        float x, y, z;
    };
    constexpr float kHalfTurn = 3.14159265f;
    const Turn turns[] = {{0, kHalfTurn, 0},       {0, 3.0f, 0},        {0.05f, 3.1f, 0.3f},  {kHalfTurn / 2, 0, 0},
                          {-kHalfTurn / 2, 0, 0},  {1.4f, 0.2f, 0.1f},  {-1.8f, 0.1f, -0.3f}, {1.203f, 0, 0},
                          {-1.205f, 0.02f, 0.02f}, {1.21f, 0.0f, 0.03f}};
    for (const int number : {1, 2, 5}) {
        for (const Turn& turn : turns) {
            const auto warper = makeWarper(250.0f, number);
            warper->setCameraParams(camera(2700.0f, src), rotation(turn.x, turn.y, turn.z));
            const cv::Rect rect = warper->outputBounds();
            const cv::Rect roi = warper->detectResultRoi(src, rect, rect.size());
            // Between its points an edge can bend out by a fraction of a pixel.
            const cv::Rect bent(roi.x, roi.y - 1, roi.width, roi.height + 2);
            int missed = 0;
            for (int row = 0; row < rect.height; ++row) {
                for (int column = 0; column < rect.width; ++column) {
                    float x = 0, y = 0;
                    warper->mapPlaneToImage(static_cast<float>(column + rect.x), static_cast<float>(row + rect.y), x,
                                            y);
                    const bool isSeen = x >= 0 && x < 3000 && y >= 0 && y < 2000;
                    missed += isSeen && !bent.contains({column, row}) ? 1 : 0;
                }
            }
            EXPECT_EQ(missed, 0) << number << ": " << turn.x << ", " << turn.y << ", " << turn.z << ": " << roi;
        }
    }
}

TEST(DetectResultRoi, StaysNarrowBesideTheMeridian)
{
    const cv::Size src(3000, 2000);
    const auto warper = makeWarper(500.0f, 2);
    warper->setCameraParams(camera(2700.0f, src), rotation(0, 2.5f, 0)); // the right edge 7 degrees from it
    const cv::Rect rect = warper->outputBounds();
    EXPECT_NEAR(warper->detectResultRoi(src, rect, rect.size()).width, 500 * 2 * std::atan(1500 / 2700.0), 2.0);
}

TEST(DetectResultRoi, TruncatesTowardZero)
{
    // The image ends at u = 199, half a pixel before a drawing that begins at 200: truncated, that is its column 0.
    const auto warper = makeWarper(kExact, 0);
    warper->setCameraParams(camera(kExact), eye());
    EXPECT_EQ(warper->detectResultRoi(kImage, {200, -200, 500, 400}, {250, 200}), cv::Rect(0, 25, 1, 150));
    EXPECT_EQ(warper->detectResultRoi(kImage, {201, -200, 500, 400}, {250, 200}), cv::Rect()) << "a whole pixel";
}

TEST(DetectResultRoi, IsCutToTheDrawing)
{
    const auto warper = makeWarper(kExact, 0);
    warper->setCameraParams(camera(kExact), eye());
    EXPECT_EQ(warper->detectResultRoi(kImage, {-100, -50, 100, 100}, {100, 100}), cv::Rect(0, 0, 100, 100));
    EXPECT_EQ(warper->detectResultRoi(kImage, {100, 50, 300, 300}, {300, 300}), cv::Rect(0, 0, 100, 100));
    EXPECT_EQ(warper->detectResultRoi(kImage, {500, 50, 300, 300}, {300, 300}), cv::Rect());
    EXPECT_EQ(warper->detectResultRoi(kImage, {-900, -900, 300, 300}, {300, 300}), cv::Rect());
}

TEST(DetectResultRoi, AcceptsUnboundedNumbers)
{
    // Seen sideways, half of the plane's rays have z = 0 or less, so that the span is infinite.
    const auto warper = makeWarper(kFocal, 0);
    warper->setCameraParams(camera(), rotation(0, 1.5707963f, 0));
    const cv::Rect roi = warper->detectResultRoi(kImage, {-1000, -1000, 2000, 2000}, {100, 100});
    EXPECT_EQ(roi & cv::Rect(0, 0, 100, 100), roi);
    warper->setCameraParams(cv::Mat::zeros(3, 3, CV_32F), eye()); // invalid camera
    EXPECT_TRUE(warper->detectResultRoi(kImage, {-1000, -1000, 2000, 2000}, {100, 100}).empty());
}

TEST(DetectResultRoi, EmptyInputsAreEmpty)
{
    const auto warper = makeWarper(kFocal, 2);
    EXPECT_TRUE(warper->detectResultRoi({0, 0}, {0, 0, 10, 10}, {10, 10}).empty());
    EXPECT_TRUE(warper->detectResultRoi({5, 5}, {0, 0, 0, 10}, {10, 10}).empty());
    EXPECT_TRUE(warper->detectResultRoi({5, 5}, {0, 0, 10, 10}, {0, 0}).empty());
}

TEST(BuildMaps, AgreeWithTheSinglePoints)
{
    for (const int number : kNumbers) {
        const auto warper = makeWarper(300.0f, number);
        warper->setCameraParams(camera(), rotation(0.15f, -0.3f, 0.2f));
        const cv::Rect bounds = number == 4 ? cv::Rect(-900, -900, 1800, 1800) : warper->outputBounds();
        for (const cv::Size size : {bounds.size(), cv::Size(333, 222), cv::Size(64, 400)}) {
            cv::Mat x, y;
            const cv::Rect roi = warper->buildMaps(kImage, bounds, size, x, y);
            const SlowMaps slow = slowMaps(*warper, kImage, bounds, size);
            ASSERT_EQ(roi, slow.roi) << number;
            ASSERT_FALSE(roi.empty());
            ASSERT_EQ(x.size(), roi.size());
            ASSERT_EQ(y.size(), roi.size());
            ASSERT_EQ(x.type(), CV_32F);
            for (int r = 0; r < roi.height; ++r) {
                for (int c = 0; c < roi.width; ++c) {
                    if (std::abs(slow.x.at<float>(r, c)) > 2000 || std::abs(slow.y.at<float>(r, c)) > 2000)
                        continue;
                    ASSERT_NEAR(x.at<float>(r, c), slow.x.at<float>(r, c), 0.02f) << number;
                    ASSERT_NEAR(y.at<float>(r, c), slow.y.at<float>(r, c), 0.02f) << number;
                }
            }
        }
    }
}

TEST(BuildMaps, TheBoxIsTight)
{
    const auto warper = makeWarper(kFocal, 2);
    warper->setCameraParams(camera(), rotation(0, 0, 0.6f)); // rotated, so that the corners of the box are empty
    cv::Mat x, y;
    const cv::Rect roi = warper->buildMaps(kImage, warper->outputBounds(), warper->outputBounds().size(), x, y);
    const cv::Mat inside = (x >= 0) & (x < kImage.width) & (y >= 0) & (y < kImage.height);
    EXPECT_GT(cv::countNonZero(inside.row(0)), 0);
    EXPECT_GT(cv::countNonZero(inside.row(roi.height - 1)), 0);
    EXPECT_GT(cv::countNonZero(inside.col(0)), 0);
    EXPECT_GT(cv::countNonZero(inside.col(roi.width - 1)), 0);
    EXPECT_EQ(inside.at<uchar>(0, 0), 0);
}

TEST(BuildMaps, MarkPointsBehindByMinusOne)
{
    // An image across the seam of the sphere: the box spans the whole width, most of which the camera does not see.
    const auto warper = makeWarper(200.0f, 2);
    warper->setCameraParams(camera(), rotation(0, 3.14159f, 0));
    const cv::Rect bounds = warper->outputBounds();
    cv::Mat x, y;
    const cv::Rect roi = warper->buildMaps(kImage, bounds, bounds.size(), x, y);
    ASSERT_GT(roi.width, bounds.width - 5);
    const int middle = roi.width / 2;
    EXPECT_EQ(x.at<float>(roi.height / 2, middle), -1.0f);
    EXPECT_EQ(y.at<float>(roi.height / 2, middle), -1.0f);
}

TEST(BuildMaps, LeaveTheMapsAloneWhereNothingIsSeen)
{
    const auto warper = makeWarper(kFocal, 2);
    warper->setCameraParams(camera(), eye());
    cv::Mat x(1, 1, CV_32F, cv::Scalar(5));
    cv::Mat y(1, 1, CV_32F, cv::Scalar(6));
    EXPECT_EQ(warper->buildMaps(kImage, {900, 0, 100, 100}, {100, 100}, x, y), cv::Rect());
    // Inside the span of the grid, but between the pixels: the drawing is so coarse that none of its points is in the
    // image.
    EXPECT_EQ(warper->buildMaps({3, 3}, {-1000, 0, 1000, 1000}, {3, 3}, x, y), cv::Rect());
    EXPECT_EQ(x.at<float>(0, 0), 5.0f);
    EXPECT_EQ(y.at<float>(0, 0), 6.0f);
}

TEST(Warp, RefusesBadInputs)
{
    const auto warper = makeWarper(kFocal, 2);
    const cv::Rect bounds = warper->outputBounds();
    cv::Mat dst, mask, radius;
    const LogCapture log;
    EXPECT_EQ(warper->warp(cv::Mat(), cv::noArray(), dst, mask, radius, bounds, bounds.size(), camera(), eye()),
              cv::Rect());
    EXPECT_EQ(warper->warp(gradients(), cv::Mat(300, 399, CV_8UC1), dst, mask, radius, bounds, bounds.size(), camera(),
                           eye()),
              cv::Rect());
    EXPECT_EQ(
        warper->warp(gradients(), cv::noArray(), dst, mask, radius, {5000, 5000, 10, 10}, {10, 10}, camera(), eye()),
        cv::Rect());
    EXPECT_TRUE(dst.empty() && mask.empty() && radius.empty());
    EXPECT_TRUE(log.lines().empty()) << "a rejection is not logged";
}

TEST(Warp, ComputesNoRadiusUnlessRequested)
{
    const auto warper = makeWarper(kFocal, 2);
    const cv::Rect bounds = warper->outputBounds();
    cv::Mat dst;
    cv::Mat mask;
    cv::Mat radius;
    cv::Mat alone;
    const cv::Rect both =
        warper->warp(gradients(), cv::noArray(), dst, mask, radius, bounds, bounds.size(), camera(), eye());
    EXPECT_EQ(
        warper->warp(gradients(), cv::noArray(), alone, mask, cv::noArray(), bounds, bounds.size(), camera(), eye()),
        both);
    EXPECT_EQ(cv::norm(alone, dst, cv::NORM_INF), 0.0);
}

TEST(Warp, DrawsTheImageWhereTheMapsPoint)
{
    for (const int number : kNumbers) {
        const auto warper = makeWarper(300.0f, number);
        const cv::Mat R = rotation(0.1f, 0.2f, -0.1f);
        const cv::Rect rect = number == 4 ? cv::Rect(-900, -900, 1800, 1800) : warper->outputBounds();
        const cv::Size size(rect.width / 2, rect.height / 2);
        const cv::Mat image = gradients();
        const cv::Mat mask(kImage, CV_8UC1, cv::Scalar(255));
        cv::Mat dst, dstMask, radius, x, y;
        const cv::Rect roi = warper->warp(image, mask, dst, dstMask, radius, rect, size, camera(), R);
        ASSERT_FALSE(roi.empty()) << number;
        ASSERT_EQ(warper->buildMaps(kImage, rect, size, x, y), roi);
        ASSERT_EQ(dst.size(), roi.size());
        ASSERT_EQ(dst.type(), CV_16SC3);
        ASSERT_EQ(dstMask.size(), roi.size());
        ASSERT_EQ(dstMask.type(), CV_8UC1);
        ASSERT_EQ(radius.size(), roi.size());
        ASSERT_EQ(radius.type(), CV_32F);
        for (int r = 0; r < roi.height; ++r) {
            for (int c = 0; c < roi.width; ++c) {
                const float mx = x.at<float>(r, c);
                const float my = y.at<float>(r, c);
                const float expected = std::min(1.0f, std::hypot(mx - 200.0f, my - 150.0f) / 250.0f);
                ASSERT_NEAR(radius.at<float>(r, c), expected, 1e-5f);
                if (mx < 1 || mx > 398 || my < 1 || my > 298)
                    continue;
                ASSERT_EQ(dstMask.at<uchar>(r, c), 255);
                // remap() works on a grid of 1/32 pixel
                ASSERT_NEAR(dst.at<cv::Vec3s>(r, c)[0], 24 * mx, 24.0f / 32 + 1) << number;
                ASSERT_NEAR(dst.at<cv::Vec3s>(r, c)[1], 32 * my, 32.0f / 32 + 1) << number;
            }
        }
    }
}

TEST(Warp, ShowsTheSphereThatTheCameraSaw)
{
    // A smooth light per direction, seen through the camera and drawn in each projection: each pixel must have the
    // light of the direction that the projection assigns to it.
    const auto light = [](cv::Vec3d d, int channel) {
        d /= cv::norm(d);
        return 8000 + 5000 * std::sin(6 * d[0] + channel) * std::cos(5 * d[1] - channel) + 2000 * d[2];
    };
    const cv::Mat K = camera();
    const cv::Mat R = rotation(0.25f, -0.35f, 0.15f);
    const cv::Matx33d rays = cv::Matx33d(cv::Matx33f(R)) * cv::Matx33d(cv::Matx33f(K)).inv();
    cv::Mat image(kImage, CV_16SC3);
    for (int y = 0; y < kImage.height; ++y)
        for (int x = 0; x < kImage.width; ++x)
            for (int c = 0; c < 3; ++c)
                image.at<cv::Vec3s>(y, x)[c] = cv::saturate_cast<short>(light(rays * cv::Vec3d(x, y, 1), c));
    for (const int number : kNumbers) {
        const auto warper = makeWarper(400.0f, number);
        const cv::Rect rect = number == 4 ? cv::Rect(-900, -900, 1800, 1800) : warper->outputBounds();
        const cv::Size size(rect.width * 3 / 4, rect.height * 2 / 3);
        cv::Mat dst, dstMask, radius, x, y;
        const cv::Rect roi = warper->warp(image, cv::noArray(), dst, dstMask, radius, rect, size, K, R);
        ASSERT_EQ(warper->buildMaps(kImage, rect, size, x, y), roi);
        int compared = 0;
        for (int r = 0; r < roi.height; ++r) {
            for (int c = 0; c < roi.width; ++c) {
                const float mx = x.at<float>(r, c);
                const float my = y.at<float>(r, c);
                if (mx < 1 || mx > 398 || my < 1 || my > 298)
                    continue;
                cv::Vec3f ray;
                warper->mapBackward(
                    static_cast<float>(rect.x + (roi.x + c) * rect.width / static_cast<double>(size.width)),
                    static_cast<float>(rect.y + (roi.y + r) * rect.height / static_cast<double>(size.height)), ray[0],
                    ray[1], ray[2]);
                ++compared;
                for (int channel = 0; channel < 3; ++channel)
                    ASSERT_NEAR(dst.at<cv::Vec3s>(r, c)[channel], light(cv::Vec3d(ray), channel), 8) << number;
            }
        }
        EXPECT_GT(compared, 20000) << number;
    }
}

TEST(Warp, MaskAndPictureAloneEqualBothTogether)
{
    const auto warper = makeWarper(400.0f, 2);
    const cv::Rect bounds = warper->outputBounds();
    const cv::Mat whole(kImage, CV_8UC1, cv::Scalar(255));
    cv::UMat picture, mask, pictureAlone, maskAlone;
    const auto warped = [&](const cv::Mat& from, cv::OutputArray to, cv::OutputArray toMask) {
        return warper->warp(gradients(), from, to, toMask, cv::noArray(), bounds, bounds.size(), camera(), eye());
    };
    const cv::Rect roi = warped(whole, picture, mask);
    ASSERT_FALSE(roi.empty());
    EXPECT_EQ(warped(whole, cv::noArray(), maskAlone), roi);
    EXPECT_EQ(warped(cv::Mat(), pictureAlone, cv::noArray()), roi);
    EXPECT_EQ(cv::norm(picture, pictureAlone, cv::NORM_INF), 0.0);
    EXPECT_EQ(cv::norm(mask, maskAlone, cv::NORM_INF), 0.0);
}

TEST(Warp, AcceptsAwkwardSizes)
{
    for (const int number : kNumbers) {
        for (const cv::Size size :
             {cv::Size(1, 1), cv::Size(1, 7), cv::Size(7, 1), cv::Size(641, 3), cv::Size(2, 300)}) {
            const auto warper = makeWarper(300.0f, number);
            const cv::Rect rect = number == 4 ? cv::Rect(-900, -900, 1800, 1800) : warper->outputBounds();
            for (const cv::Size drawing : {rect.size(), cv::Size(1, 1), cv::Size(1, 50), cv::Size(301, 2)}) {
                cv::Mat dst, dstMask, radius;
                const cv::Rect roi =
                    warper->warp(cv::Mat(size, CV_16SC3, cv::Scalar::all(700)), cv::Mat(size, CV_8UC1, cv::Scalar(255)),
                                 dst, dstMask, radius, rect, drawing, camera(200.0f, size), rotation(0.1f, 0.2f, 0));
                ASSERT_EQ(roi & cv::Rect(cv::Point(), drawing), roi);
                ASSERT_EQ(dst.size(), roi.size());
                if (!roi.empty()) {
                    EXPECT_EQ(cv::norm(dst, cv::Mat(roi.size(), CV_16SC3, cv::Scalar::all(700)), cv::NORM_INF), 0.0);
                }
            }
        }
    }
}

TEST(Warp, IsOpenCVsRemapByTheMaps)
{
    const auto warper = makeWarper(280.0f, 2);
    const cv::Rect bounds = warper->outputBounds();
    const cv::Mat R = rotation(0.1f, 0.2f, 0.5f);
    cv::Mat mask(kImage, CV_8UC1, cv::Scalar(255));
    mask(cv::Rect(100, 50, 60, 70)).setTo(0);
    cv::Mat dst, dstMask, radius, x, y, expected, expectedMask;
    (void)warper->warp(gradients(), mask, dst, dstMask, radius, bounds, bounds.size(), camera(), R);
    (void)warper->buildMaps(kImage, bounds, bounds.size(), x, y);
    cv::remap(gradients(), expected, x, y, cv::INTER_LINEAR, cv::BORDER_REFLECT);
    cv::remap(mask, expectedMask, x, y, cv::INTER_NEAREST, cv::BORDER_CONSTANT, 0);
    EXPECT_EQ(greatestDifference(dst, expected), 0.0);
    EXPECT_EQ(greatestDifference(dstMask, expectedMask), 0.0);
    EXPECT_EQ(dstMask.at<uchar>(0, 0), 0) << "a corner of the box that the turned image does not reach";
    EXPECT_GT(cv::countNonZero(expectedMask == 0), 60 * 70 / 4);
}

TEST(Warp, MirrorsTheEdgesAndEndsTheRadiusAtOne)
{
    const auto warper = makeWarper(kFocal, 2);
    const cv::Rect bounds = warper->outputBounds();
    cv::Mat dst, dstMask, radius, x, y;
    const cv::Mat plain(kImage, CV_16SC3, cv::Scalar(1000, 2000, 3000));
    const cv::Mat R = rotation(0, 0, 0.6f);
    (void)warper->warp(plain, cv::noArray(), dst, dstMask, radius, bounds, bounds.size(), camera(), R);
    EXPECT_EQ(dst.at<cv::Vec3s>(0, 0), cv::Vec3s(1000, 2000, 3000)) << "the image is mirrored beyond its border";
    double low = 0, high = 0;
    cv::minMaxLoc(radius, &low, &high);
    EXPECT_LT(low, 0.01);
    EXPECT_EQ(high, 1.0);
}

TEST(Warp, KeepsTheMaskWithoutAnInputMask)
{
    const auto warper = makeWarper(kFocal, 2);
    const cv::Rect bounds = warper->outputBounds();
    cv::Mat dst, radius;
    cv::Mat dstMask(2, 3, CV_8UC1, cv::Scalar(9));
    EXPECT_FALSE(
        warper->warp(gradients(), cv::Mat(), dst, dstMask, radius, bounds, bounds.size(), camera(), eye()).empty());
    EXPECT_EQ(dstMask.size(), cv::Size(3, 2));
    EXPECT_EQ(cv::countNonZero(dstMask == 9), 6);
}

TEST(Warp, TakesOtherTypesAndDeviceMatrices)
{
    const auto warper = makeWarper(kFocal, 2);
    const cv::Rect bounds = warper->outputBounds();
    cv::Mat bytes, dst, dstMask, radius;
    gradients().convertTo(bytes, CV_8UC3, 1.0 / 64);
    const cv::Rect roi =
        warper->warp(bytes, cv::noArray(), dst, dstMask, radius, bounds, bounds.size(), camera(), eye());
    EXPECT_EQ(dst.type(), CV_8UC3);

    cv::UMat source, target, targetMask, targetRadius;
    bytes.copyTo(source);
    EXPECT_EQ(
        warper->warp(source, cv::noArray(), target, targetMask, targetRadius, bounds, bounds.size(), camera(), eye()),
        roi);
    EXPECT_LE(greatestDifference(target.getMat(cv::ACCESS_READ), dst), 2.0) << "devices round differently";
    EXPECT_EQ(greatestDifference(targetRadius.getMat(cv::ACCESS_READ), radius), 0.0);
}

TEST(Warp, GivesItsMemoryBack)
{
    const auto warper = makeWarper(kFocal, 2);
    const cv::Rect bounds = warper->outputBounds();
    const std::size_t before = MemoryManager::instance().liveBytes();
    cv::Mat dst, dstMask, radius, x, y;
    (void)warper->warp(gradients(), cv::noArray(), dst, dstMask, radius, bounds, bounds.size(), camera(), eye());
    (void)warper->buildMaps(kImage, bounds, bounds.size(), x, y);
    EXPECT_EQ(MemoryManager::instance().liveBytes(), before);
    EXPECT_TRUE(std::isfinite(x.at<float>(0, 0))) << "the maps are copies";
}

TEST(Warp, DoesNotDependOnThreads)
{
    for (const int number : kNumbers) {
        const auto run = [number](int workers) {
            const WorkerLimit limit(workers);
            const auto warper = makeWarper(300.0f, number);
            const cv::Rect rect = number == 4 ? cv::Rect(-900, -900, 1800, 1800) : warper->outputBounds();
            cv::Mat dst, dstMask, radius, x, y;
            (void)warper->warp(gradients(), cv::Mat(kImage, CV_8UC1, cv::Scalar(255)), dst, dstMask, radius, rect,
                               rect.size(), camera(), rotation(0.1f, 0.2f, -0.1f));
            (void)warper->buildMaps(kImage, rect, rect.size(), x, y);
            return std::vector<cv::Mat>{dst, dstMask, radius, x, y};
        };
        const auto one = run(1);
        const auto two = run(2);
        for (std::size_t i = 0; i < one.size(); ++i) {
            ASSERT_EQ(one[i].size(), two[i].size());
            EXPECT_EQ(greatestDifference(one[i], two[i]), 0.0) << number << ", result " << i;
        }
    }
}

TEST(SetIntermediate, KeepsTheRotationAndResetsBothCameras)
{
    Opened warper(1.0f);
    const auto other = std::make_shared<Opened>(2.0f);
    warper.setCameraParams(camera(), rotation(0.3f, 0, 0));
    other->setCameraParams(camera(), rotation(0.3f, 0, 0));
    const cv::Mat R = rotation(0.1f, 0.2f, 0.3f);
    warper.setIntermediate(R, other);
    expectMatrix(warper.midRotation, R);
    expectMatrix(warper.midRotationInv, R.t());
    expectMatrix(warper.k, eye());
    expectMatrix(warper.k_rinv, eye());
    expectMatrix(warper.r_kinv, eye());
    expectMatrix(other->k_rinv, eye());
    EXPECT_EQ(warper.intermediate, other);
    warper.setIntermediate(cv::Mat::eye(2, 2, CV_32F), nullptr);
    expectMatrix(warper.midRotation, R);
    EXPECT_EQ(warper.intermediate, nullptr);
}

TEST(SetIntermediate, MappingThereAndBackIsTheIdentity)
{
    for (const int number : kNumbers) {
        for (const int other : {-1, 0, 1, 2, 3, 4, 5}) {
            for (const bool turns : {false, true}) {
                const auto warper = makeWarper(500.0f, number);
                warper->setIntermediate(turns ? rotation(0.1f, -0.15f, 0.2f) : eye(),
                                        other < 0 ? nullptr : makeWarper(400.0f, other));
                const float middle = number == 2 ? 785.4f : 0.0f;
                const float ahead = number == 4 ? 500.0f : 0.0f;
                for (float v = middle - 150; v <= middle + 150; v += 30) {
                    for (float u = ahead - 150; u <= ahead + 150; u += 30) {
                        float x = 0, y = 0, toU = 0, toV = 0;
                        warper->mapToIntermediate(u, v, x, y);
                        warper->mapFromIntermediate(x, y, toU, toV);
                        EXPECT_NEAR(toU, u, 0.02f) << number << " through " << other;
                        EXPECT_NEAR(toV, v, 0.02f) << number << " through " << other;
                    }
                }
            }
        }
    }
}

TEST(SetIntermediate, TurnsTheViewByTheRotation)
{
    // The middle of the plane looks along z; the inverse rotation moves it a quarter of a radian sideways.
    const auto warper = makeWarper(500.0f, 0);
    warper->setIntermediate(rotation(0, -0.25f, 0), makeWarper(400.0f, 2));
    float x = 0, y = 0;
    warper->mapToIntermediate(0, 0, x, y);
    EXPECT_NEAR(x, 100.0f, 1e-3f);
    EXPECT_NEAR(y, 1.5707963f * 400.0f, 1e-3f);
}
