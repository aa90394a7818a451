#include "panorama/projection_warpers.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <numbers>
#include <random>

using namespace orvo;

namespace {

constexpr float kScale = 1000.0f;
constexpr float kPi = std::numbers::pi_v<float>;
constexpr int kNumbers[] = {0, 1, 2, 3, 4, 5};
// Single precision leaves 0.03 pixels at a scale of 1000 where a formula loses digits, as the arccosine does near the
// poles.
constexpr float kPixelTolerance = 0.05f;

struct Ray
{
    float x, y, z;
};

Ray unit(Ray r)
{
    const float n = std::sqrt(r.x * r.x + r.y * r.y + r.z * r.z);
    return {r.x / n, r.y / n, r.z / n};
}

// Rays inside all six projections: ahead, and away from the poles and the edges.
std::vector<Ray> raysAhead()
{
    std::vector<Ray> rays;
    std::mt19937 random(3);
    std::uniform_real_distribution<float> sideways(-0.9f, 0.9f);
    for (int i = 0; i < 500; ++i)
        rays.push_back(unit({sideways(random), sideways(random), 1.0f}));
    return rays;
}

cv::Rect boundsOf(int number, float scale) { return makeWarper(scale, number)->outputBounds(); }

} // namespace

TEST(MakeWarper, GivesTheClassOfEachNumber)
{
    EXPECT_NE(dynamic_cast<PlanePanoramaWarper*>(makeWarper(1, 0).get()), nullptr);
    EXPECT_NE(dynamic_cast<CylindricalPanoramaWarper*>(makeWarper(1, 1).get()), nullptr);
    EXPECT_NE(dynamic_cast<SphericalPanoramaWarper*>(makeWarper(1, 2).get()), nullptr);
    EXPECT_NE(dynamic_cast<FisheyePanoramaWarper*>(makeWarper(1, 3).get()), nullptr);
    EXPECT_NE(dynamic_cast<StereographicPanoramaWarper*>(makeWarper(1, 4).get()), nullptr);
    EXPECT_NE(dynamic_cast<MercatorPanoramaWarper*>(makeWarper(1, 5).get()), nullptr);
    EXPECT_EQ(makeWarper(1, 6), nullptr);
    EXPECT_EQ(makeWarper(1, 14), nullptr);
    EXPECT_EQ(makeWarper(1, -1), nullptr);
}

TEST(WarpNumberOf, FollowsTheTable)
{
    EXPECT_EQ(warpNumberOf(static_cast<WarpType>(0)), 0);
    EXPECT_EQ(warpNumberOf(static_cast<WarpType>(2)), 1);
    EXPECT_EQ(warpNumberOf(static_cast<WarpType>(3)), 2);
    EXPECT_EQ(warpNumberOf(static_cast<WarpType>(4)), 3);
    EXPECT_EQ(warpNumberOf(static_cast<WarpType>(5)), 4);
    EXPECT_EQ(warpNumberOf(static_cast<WarpType>(14)), 5);
    for (const int other : {-1, 1, 6, 13, 15, 1000})
        EXPECT_EQ(warpNumberOf(static_cast<WarpType>(other)), 2) << other;
}

TEST(OutputBounds, AreTruncatedToTheInteger)
{
    EXPECT_EQ(boundsOf(0, 1000.0f), cv::Rect(-2045, -1000, 4090, 2000));
    EXPECT_EQ(boundsOf(1, 1000.0f), cv::Rect(-3141, -1535, 6283, 3071));
    EXPECT_EQ(boundsOf(2, 1000.0f), cv::Rect(-3141, 0, 6283, 3141));
    EXPECT_EQ(boundsOf(3, 1000.0f), cv::Rect(-4090, -2000, 8181, 4000));
    EXPECT_EQ(boundsOf(4, 1000.0f), cv::Rect(-2045, 1000, 4090, 2000)) << "y is +scale";
    EXPECT_EQ(boundsOf(5, 1000.0f), cv::Rect(-3141, -3141, 6283, 6283));
    EXPECT_EQ(boundsOf(2, 0.9f), cv::Rect(-2, 0, 5, 2));
    EXPECT_EQ(boundsOf(0, 0.7f), cv::Rect(-1, 0, 2, 1));
}

TEST(OutputBounds, RoundWhereTheyShould)
{
    // pi times this scale is just below an integer in double, and equal to it once rounded to float.
    float scale = 0.0f;
    int whole = 3000;
    for (; whole < 40000 && scale == 0.0f; ++whole) {
        const auto candidate = static_cast<float>(whole / std::numbers::pi);
        const double product = std::numbers::pi * static_cast<double>(candidate);
        if (product < whole && static_cast<float>(product) == static_cast<float>(whole))
            scale = candidate;
    }
    --whole;
    ASSERT_GT(scale, 0.0f);
    EXPECT_EQ(boundsOf(2, scale).height, whole - 1) << "the sphere stays in double";
    EXPECT_EQ(boundsOf(2, scale).x, -(whole - 1));
    EXPECT_EQ(boundsOf(1, scale).x, -whole) << "the cylinder rounds to single precision";
    EXPECT_EQ(boundsOf(5, scale).x, -whole);
    EXPECT_EQ(boundsOf(5, scale).y, -whole);
}

TEST(OutputBounds, OfTheBaseAreThePlanes)
{
    class Other final : public PanoramaWarper
    {
    public:
        using PanoramaWarper::PanoramaWarper;
        void mapForward(float x, float y, float, float& u, float& v) const override { u = x, v = y; }
        void mapBackward(float u, float v, float& x, float& y, float& z) const override { x = u, y = v, z = 1; }
    };
    EXPECT_EQ(Other(123.4f).outputBounds(), boundsOf(0, 123.4f));
}

TEST(Projections, ForwardThenBackwardIsTheIdentity)
{
    for (const int number : kNumbers) {
        const auto warper = makeWarper(kScale, number);
        for (const Ray& ray : raysAhead()) {
            float u = 0, v = 0;
            Ray back{};
            warper->mapForward(ray.x, ray.y, ray.z, u, v);
            warper->mapBackward(u, v, back.x, back.y, back.z);
            back = unit(back);
            EXPECT_NEAR(back.x, ray.x, 1e-5f) << number;
            EXPECT_NEAR(back.y, ray.y, 1e-5f) << number;
            EXPECT_NEAR(back.z, ray.z, 1e-5f) << number;
        }
    }
}

TEST(Projections, BackwardThenForwardIsTheIdentity)
{
    for (const int number : kNumbers) {
        const auto warper = makeWarper(kScale, number);
        const float middle = number == 2 ? kPi / 2 * kScale : 0.0f;
        for (float v = middle - 700; v <= middle + 700; v += 100) {
            for (float u = -1500; u <= 1500; u += 100) {
                Ray ray{};
                float toU = 0, toV = 0;
                warper->mapBackward(u, v, ray.x, ray.y, ray.z);
                warper->mapForward(ray.x, ray.y, ray.z, toU, toV);
                EXPECT_NEAR(toU, u, kPixelTolerance) << number << " at " << u << ", " << v;
                EXPECT_NEAR(toV, v, kPixelTolerance) << number << " at " << u << ", " << v;
            }
        }
    }
}

TEST(Projections, KeepTheLengthOfRays)
{
    for (const int number : {2, 3, 4, 5}) {
        const auto warper = makeWarper(kScale, number);
        Ray ray{};
        warper->mapBackward(432, 321, ray.x, ray.y, ray.z);
        EXPECT_NEAR(ray.x * ray.x + ray.y * ray.y + ray.z * ray.z, 1.0f, 1e-6f) << number;
    }
}

TEST(Projections, MapKnownDirectionsCorrectly)
{
    const auto expectAt = [](int number, Ray ray, float u, float v) {
        float toU = 0, toV = 0;
        makeWarper(kScale, number)->mapForward(ray.x, ray.y, ray.z, toU, toV);
        EXPECT_NEAR(toU, u, kPixelTolerance) << number;
        EXPECT_NEAR(toV, v, kPixelTolerance) << number;
    };
    const float half = kPi * kScale / 2;
    expectAt(0, {1, 0.5f, 2}, 500, 250);
    expectAt(1, {2, 3, 0}, half, 1500);
    expectAt(2, {0, 0, 5}, 0, half);
    expectAt(2, {-1, 0, 0}, -half, half);
    expectAt(2, {0, 2, 0}, 0, 2 * half);
    expectAt(2, {0, -2, 0}, 0, 0);
    expectAt(3, {1, 0, 0}, 2 * kScale, 0);
    expectAt(3, {0, -1, 1}, 0, -2 * kScale * std::tan(kPi / 8));
    expectAt(4, {0, 0, 1}, kScale, 0);
    expectAt(4, {1, 0, 0}, 0, kScale);
    expectAt(4, {0, 1, 0}, 0, 0);
    expectAt(5, {0, 0, 1}, 0, 0);
    expectAt(5, {1, std::sinh(1.0f), 0}, half, kScale);
}

TEST(Projections, TheSphereTreatsTheZeroRayAsLevel)
{
    float u = -1, v = -1;
    makeWarper(kScale, 2)->mapForward(0, 0, 0, u, v);
    EXPECT_EQ(u, 0.0f);
    EXPECT_NEAR(v, kPi / 2 * kScale, 1e-3f);
}

TEST(Projections, TheFisheyesCentreIsExact)
{
    const auto warper = makeWarper(kScale, 3);
    for (const float off : {0.0f, 1e-7f, -1e-7f}) {
        float u = -1, v = -1;
        warper->mapForward(off, 0, 1, u, v);
        EXPECT_EQ(u, 0.0f);
        EXPECT_EQ(v, 0.0f);
        Ray ray{};
        warper->mapBackward(0, off, ray.x, ray.y, ray.z);
        EXPECT_EQ(ray.x, 0.0f);
        EXPECT_EQ(ray.y, 0.0f);
        EXPECT_EQ(ray.z, 1.0f);
    }
    float u = 0, v = 0;
    warper->mapForward(1.3e-7f, 0, 1, u, v);
    EXPECT_GT(u, 0.0f) << "the limit itself is not the centre's";
}

TEST(Projections, TheBorderOfAnImageLiesWithinTheBounds)
{
    // A level camera, 60 degrees wide; all projections contain its border, except the asymmetric bounds of number 4.
    const cv::Mat K = (cv::Mat_<float>(3, 3) << 866, 0, 500, 0, 866, 375, 0, 0, 1);
    for (const int number : {0, 1, 2, 3, 5}) {
        for (const float turn : {0.0f, 0.3f, -0.3f}) {
            const cv::Mat R = (cv::Mat_<float>(3, 3) << std::cos(turn), 0, std::sin(turn), 0, 1, 0, -std::sin(turn), 0,
                               std::cos(turn));
            const auto warper = makeWarper(kScale, number);
            warper->setCameraParams(K, R);
            const cv::Rect bounds = warper->outputBounds();
            for (float t = 0; t <= 1000; t += 10) {
                for (const auto& [x, y] : {std::pair(t, 0.0f), std::pair(t, 750.0f), std::pair(0.0f, t * 0.75f),
                                           std::pair(1000.0f, t * 0.75f)}) {
                    float u = 0, v = 0;
                    warper->mapImageToPlane(x, y, u, v);
                    EXPECT_TRUE(u >= static_cast<float>(bounds.x) && u <= static_cast<float>(bounds.br().x) &&
                                v >= static_cast<float>(bounds.y) && v <= static_cast<float>(bounds.br().y))
                        << number << ": " << x << ", " << y << " falls on " << u << ", " << v;
                }
            }
        }
    }
}
