#include "panorama/projection_warpers.hpp"
#include "panorama/warp_rows.hpp"

#include <gtest/gtest.h>
#include <opencv2/calib3d.hpp>

#include <cmath>

using namespace orvo;

namespace {

constexpr float kScale = 800.0f;
constexpr int kCount = 613; // prime, so not a multiple of any vector width

cv::Mat rotation(float x, float y, float z)
{
    cv::Mat R;
    cv::Rodrigues(cv::Vec3f(x, y, z), R);
    return R;
}

const cv::Mat kCamera = (cv::Mat_<float>(3, 3) << 900, 0, 512, 0, 900, 384, 0, 0, 1);

// A class unknown to the rows.
class TiltedPlane final : public PanoramaWarper
{
public:
    using PanoramaWarper::PanoramaWarper;
    void mapForward(float x, float y, float z, float& u, float& v) const override
    {
        u = scale * x / (y + 2 * z);
        v = scale * y / (y + 2 * z);
    }
    void mapBackward(float u, float v, float& x, float& y, float& z) const override
    {
        x = u / scale;
        y = v / scale;
        z = (1 - y) / 2;
    }
};

std::shared_ptr<PanoramaWarper> made(int number)
{
    if (number == 6)
        return std::make_shared<TiltedPlane>(kScale);
    return makeWarper(kScale, number);
}

} // namespace

TEST(WarpRows, ToImageIsWhatMapPlaneToImageGives)
{
    for (int number = 0; number <= 6; ++number) {
        const auto warper = made(number);
        warper->setCameraParams(kCamera, rotation(0.2f, -0.4f, 0.1f));
        const WarpRows rows(*warper, -300, kCount, 5.37f, -12.5f);
        for (const float v : {-900.0f, 0.0f, 33.3f, 1100.0f}) {
            std::vector<float> x(kCount);
            std::vector<float> y(kCount);
            rows.toImage(v, x.data(), y.data());
            for (int c = 0; c < kCount; ++c) {
                const float u = static_cast<float>(-300 + c) * 5.37f + -12.5f;
                float toX = 0, toY = 0;
                warper->mapPlaneToImage(u, v, toX, toY);
                const auto i = static_cast<std::size_t>(c);
                if (number != 3 && number != 4) {
                    ASSERT_EQ(x[i], toX) << number << " at " << u << ", " << v;
                    ASSERT_EQ(y[i], toY) << number << " at " << u << ", " << v;
                } else if (std::abs(toX) < 3000 && std::abs(toY) < 3000) {
                    // Farther out, the last bit of a ray's direction moves a position by much if the ray is nearly
                    // sideways.
                    ASSERT_NEAR(x[i], toX, 0.02f) << number << " at " << u << ", " << v;
                    ASSERT_NEAR(y[i], toY, 0.02f) << number << " at " << u << ", " << v;
                }
            }
        }
    }
}

TEST(WarpRows, ToIntermediateIsWhatMapToIntermediateGives)
{
    for (int number = 0; number <= 6; ++number) {
        for (int other = -1; other <= 6; ++other) {
            const auto warper = made(number);
            const auto intermediate = other < 0 ? nullptr : made(other);
            warper->setIntermediate(rotation(0.1f, 0.3f, -0.05f), intermediate);
            const WarpRows rows(*warper, -300, kCount, 1.37f, -12.5f);
            for (const float v : {-300.0f, 0.0f, 33.3f, 500.0f}) {
                std::vector<float> x(kCount);
                std::vector<float> y(kCount);
                rows.toIntermediate(v, x.data(), y.data());
                for (int c = 0; c < kCount; ++c) {
                    const float u = static_cast<float>(-300 + c) * 1.37f + -12.5f;
                    float toX = 0, toY = 0;
                    warper->mapToIntermediate(u, v, toX, toY);
                    const auto i = static_cast<std::size_t>(c);
                    if (!(std::abs(toX) < 3 * kScale && std::abs(toY) < 3 * kScale))
                        continue; // near infinity of a plane or Mercator projection the last bit of a ray is a large
                                  // distance
                    // A single-precision arccosine is less accurate near the poles of the sphere.
                    const bool sphere = other == 2 || (other < 0 && number == 2);
                    const float nearPole = sphere && (toY < 200 || toY > 2300) ? 0.3f : 0.05f;
                    const float turnedOver = std::abs(std::abs(x[i] - toX) - 2 * 3.14159265f * kScale);
                    if (turnedOver > 0.05f) {
                        ASSERT_NEAR(x[i], toX, 0.05f) << number << " to " << other << " at " << u << ", " << v;
                    }
                    ASSERT_NEAR(y[i], toY, nearPole) << number << " to " << other << " at " << u << ", " << v;
                }
            }
        }
    }
}

TEST(WarpRows, TheSpheresAnglesAgreeWithDouble)
{
    // A full rotation, and from pole to pole: the fast angles compared with those of the library in double.
    const auto plane = makeWarper(kScale, 2);
    plane->setIntermediate(cv::Mat::eye(3, 3, CV_32F), makeWarper(1.0f, 2));
    const WarpRows rows(*plane, -2500, 5001, 1.0f, 0.0f);
    double worst = 0.0;
    for (float v = 1.0f; v < 2512.0f; v += 3.0f) {
        std::vector<float> x(5001);
        std::vector<float> y(5001);
        rows.toIntermediate(v, x.data(), y.data());
        for (int c = 0; c < 5001; ++c) {
            const auto i = static_cast<std::size_t>(c);
            worst = std::max(worst, std::abs(static_cast<double>(x[i]) - static_cast<double>(c - 2500) / 800.0));
            worst = std::max(worst, std::abs(static_cast<double>(y[i]) - static_cast<double>(v) / 800.0));
        }
    }
    EXPECT_LT(worst, 6e-7) << "radian";
}

TEST(WarpRows, TheZeroRayIsLevelOnTheSphere)
{
    // A zero matrix, so that all rays vanish.
    const auto warper = makeWarper(kScale, 1);
    const auto sphere = makeWarper(kScale, 2);
    warper->setIntermediate(cv::Mat::zeros(3, 3, CV_32F), sphere);
    const WarpRows rows(*warper, 0, 9, 1.0f, 0.0f);
    std::vector<float> x(9, -1.0f);
    std::vector<float> y(9, -1.0f);
    rows.toIntermediate(5.0f, x.data(), y.data());
    for (int c = 0; c < 9; ++c) {
        EXPECT_EQ(x[static_cast<std::size_t>(c)], 0.0f);
        EXPECT_NEAR(y[static_cast<std::size_t>(c)], 1.5707963f * kScale, 1e-3f);
    }
}

TEST(WarpRows, AcceptsNoColumns)
{
    const auto warper = makeWarper(kScale, 2);
    const WarpRows rows(*warper, 0, 0, 1.0f, 0.0f);
    rows.toImage(0.0f, nullptr, nullptr);
    rows.toIntermediate(0.0f, nullptr, nullptr);
    SUCCEED();
}
