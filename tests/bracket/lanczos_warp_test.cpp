#include "bracket/lanczos_warp.hpp"
#include "support/pictures.hpp"

#include <orvo_core/parallel.hpp>

#include <gtest/gtest.h>
#include <opencv2/core.hpp>

#include <algorithm>
#include <cmath>
#include <limits>
#include <numbers>
#include <vector>

using namespace orvo;
using namespace orvo::test;

namespace {

cv::Matx33d shiftedBy(double x, double y) { return {1, 0, x, 0, 1, y, 0, 0, 1}; }

// Turned and scaled about the middle of a picture.
cv::Matx33d turnedBy(double degrees, double scale, _Size<int> size)
{
    const double angle = degrees * std::numbers::pi / 180;
    const double c = scale * std::cos(angle);
    const double s = scale * std::sin(angle);
    const double x = 0.5 * (size.width - 1);
    const double y = 0.5 * (size.height - 1);
    return {c, -s, x - c * x + s * y, s, c, y - s * x - c * y, 0, 0, 1};
}

std::shared_ptr<Picture> grayOf(int width, int height, const std::function<double(double, double)>& value)
{
    return drawn(width, height, [&](int x, int y) {
        const auto v = static_cast<float>(value(x, y));
        return PixelRGB<float>{v, v, v};
    });
}

// A sharp edge 5 degrees off the vertical, as a good lens shows it: a normal distribution of 0.6 pixels.
constexpr double kEdgeTurn = 5.0;
double edgeDistance(double x, double y, double turnDegrees)
{
    const double angle = turnDegrees * std::numbers::pi / 180;
    return (x - 60.0) * std::cos(angle) + (y - 60.0) * std::sin(angle);
}
std::shared_ptr<Picture> slantedEdge()
{
    return grayOf(121, 121, [](double x, double y) {
        return 0.2 + 0.6 * 0.5 * std::erfc(-edgeDistance(x, y, kEdgeTurn) / (0.6 * std::numbers::sqrt2));
    });
}

// From 10 to 90 percent of the rise, by the pixels around the middle sorted by their distance from the edge.
double edgeWidth(const Picture& picture, double turnDegrees)
{
    std::vector<std::pair<double, double>> profile;
    for (int y = 20; y < 101; ++y)
        for (int x = 20; x < 101; ++x)
            profile.emplace_back(edgeDistance(x, y, turnDegrees), static_cast<double>(picture.row(y)[x].g));
    const auto crossing = [&](double level) { // the least squares line through what lies near the level
        double n = 0, sx = 0, sy = 0, sxx = 0, sxy = 0;
        for (const auto& [distance, value] : profile) {
            if (std::abs(value - level) > 0.05 || std::abs(distance) > 3.0)
                continue;
            n += 1;
            sx += distance;
            sy += value;
            sxx += distance * distance;
            sxy += distance * value;
        }
        const double slope = (n * sxy - sx * sy) / (n * sxx - sx * sx);
        return (level - (sy - slope * sx) / n) / slope;
    };
    return crossing(0.2 + 0.6 * 0.9) - crossing(0.2 + 0.6 * 0.1);
}

} // namespace

TEST(LanczosWarp, KeepsAConstant)
{
    const auto picture = plain(40, 30, 0.37f);
    for (const auto& map : {shiftedBy(0.31, -2.77), turnedBy(17, 1.3, picture->size()), shiftedBy(-25, 4.5)})
        EXPECT_LT(largestDifference(*lanczosWarp(*picture, map, picture->size()), *picture), 1e-6f);
}

TEST(LanczosWarp, KeepsTheLevelBetweenAllPixels)
{
    // Rising enough for the limits of steps not to hide weights that do not add up to 1.
    const auto ramp = [](double x, double y) { return 3.0 + 0.02 * x + 0.01 * y; };
    const auto picture = grayOf(60, 50, ramp);
    for (const double shift : {0.125, 0.25, 0.5, 0.7}) {
        const auto warped = lanczosWarp(*picture, shiftedBy(10 + shift, 10 + shift), {40, 30});
        const auto truth = grayOf(40, 30, [&](double x, double y) { return ramp(x + 10 + shift, y + 10 + shift); });
        EXPECT_LT(largestDifference(*warped, *truth), 5e-4f) << shift;
    }
}

TEST(LanczosWarp, AShiftByWholePixelsIsACopy)
{
    const auto picture = textured(60, 50);
    const auto warped = lanczosWarp(*picture, shiftedBy(7, 3), {40, 40});
    EXPECT_TRUE(sameBytes(*warped, *picture->copy({7, 3, 40, 40})));
    EXPECT_TRUE(sameBytes(*lanczosWarp(*picture, cv::Matx33d::eye(), picture->size()), *picture));
}

TEST(LanczosWarp, KeepsFineDetail)
{
    // 0.35 periods per pixel: linear interpolation between two pixels keeps 45 percent of it.
    constexpr double kFrequency = 0.35;
    const auto wave = [](double x, double y) {
        return 0.5 + 0.2 * std::sin(2 * std::numbers::pi * kFrequency * x) +
               0.2 * std::sin(2 * std::numbers::pi * kFrequency * y);
    };
    const auto picture = grayOf(80, 80, wave);
    const auto warped = lanczosWarp(*picture, shiftedBy(10.5, 10.5), {60, 60});
    const auto truth = grayOf(60, 60, [&](double x, double y) { return wave(x + 10.5, y + 10.5); });
    EXPECT_LT(largestDifference(*warped, *truth), 0.02f) << "of a swing of 0.8";
}

TEST(LanczosWarp, AStepDoesNotRing)
{
    for (const double turn : {0.0, 3.0, 30.0, 45.0}) {
        const auto picture = grayOf(80, 80, [&](double x, double y) {
            const double angle = turn * std::numbers::pi / 180;
            return (x - 40) * std::cos(angle) + (y - 40) * std::sin(angle) > 0 ? 0.9 : 0.1;
        });
        for (const double shift : {0.1, 0.25, 0.5, 0.8}) {
            const auto warped = lanczosWarp(*picture, shiftedBy(shift, -shift), picture->size());
            float low = 1;
            float high = 0;
            for (int y = 10; y < 70; ++y) // beyond, the mirrored edge of the picture bends the step
                for (int x = 10; x < 70; ++x) {
                    low = std::min(low, warped->row(y)[x].g);
                    high = std::max(high, warped->row(y)[x].g);
                }
            // The kernel alone would exceed the levels by up to a quarter of the step.
            EXPECT_GE(low, 0.1f - 1e-6f) << turn << ' ' << shift;
            EXPECT_LE(high, 0.9f + 1e-6f) << turn << ' ' << shift;
        }
    }
}

TEST(LanczosWarp, ALineOfOnePixelKeepsItsLightBetweenTwoRows)
{
    // As a lens shows it: a normal distribution of 0.8 pixels.
    const auto line = [](double, double y) { return 0.1 + 0.8 * std::exp(-0.5 * (y - 20) * (y - 20) / 0.64); };
    const auto picture = grayOf(40, 40, [&](double x, double y) { return line(x, y + 0.5); });
    const auto warped = lanczosWarp(*picture, shiftedBy(0, -0.5), picture->size());
    EXPECT_NEAR(warped->row(20)[20].g, 0.9f, 0.03f) << "both samples are below 0.76";
}

TEST(LanczosWarp, KeepsTheLevel)
{
    const auto picture = drawn(200, 200, [](int x, int y) {
        const auto v = static_cast<float>((x * 7919 + y * 104729) % 997) / 997.0f;
        return PixelRGB<float>{v, 0.5f * v, 3.0f * v}; // linear light has no upper end
    });
    const auto mean = [](const Picture& p) {
        double sum[3] = {};
        for (int y = 20; y < 180; ++y)
            for (int x = 20; x < 180; ++x) {
                sum[0] += static_cast<double>(p.row(y)[x].r);
                sum[1] += static_cast<double>(p.row(y)[x].g);
                sum[2] += static_cast<double>(p.row(y)[x].b);
            }
        return cv::Vec3d(sum[0], sum[1], sum[2]) * (1.0 / (160.0 * 160.0));
    };
    const auto before = mean(*picture);
    const auto after = mean(*lanczosWarp(*picture, turnedBy(0.4, 1.001, picture->size()), picture->size()));
    for (int c = 0; c < 3; ++c)
        EXPECT_NEAR(after[c] / before[c], 1.0, 0.004);
}

TEST(LanczosWarp, KeepsTheWidthOfAnEdge)
{
    const auto picture = slantedEdge();
    const double before = edgeWidth(*picture, kEdgeTurn);
    EXPECT_NEAR(before, 2 * 1.2816 * 0.6, 0.1) << "the measure itself";
    for (const double turn : {0.0, 0.7, -1.3}) {
        cv::Matx33d map = turnedBy(turn, 1.0, picture->size());
        if (turn == 0.0)
            map = shiftedBy(0.5, 0.5);
        const auto warped = lanczosWarp(*picture, map, picture->size());
        // Shifting moves the edge along its normal; the width is measured within 3 pixels, which contains that.
        EXPECT_NEAR(edgeWidth(*warped, kEdgeTurn - turn) / before, 1.0, 0.03) << turn;
    }
}

TEST(LanczosWarp, MirrorsTheEdge)
{
    const auto picture = textured(30, 20);
    const auto warped = lanczosWarp(*picture, shiftedBy(-4, -2), {30, 20});
    EXPECT_EQ(warped->row(2)[3].r, picture->row(0)[0].r);
    EXPECT_EQ(warped->row(2)[0].r, picture->row(0)[3].r);
    EXPECT_EQ(warped->row(0)[4].r, picture->row(1)[0].r);
}

TEST(LanczosWarp, TakesAnySizeAndMap)
{
    constexpr double kNan = std::numeric_limits<double>::quiet_NaN();
    for (const auto& size : {_Size<int>{1, 1}, {1, 7}, {9, 2}, {64, 3}})
        for (const auto& map :
             {cv::Matx33d(1, 0, 0.3, 0, 1, 0.4, 0, 0, 1), cv::Matx33d(1, 0, 1e12, 0, 1, -1e12, 0, 0, 1),
              cv::Matx33d(0, 0, 0, 0, 0, 0, 0, 0, 0), cv::Matx33d(kNan, 0, 0, 0, kNan, 0, 0, 0, 1)}) {
            const auto warped = lanczosWarp(*plain(size.width, size.height, 0.5f), map, {5, 4});
            EXPECT_LT(largestDifference(*warped, *plain(5, 4, 0.5f)), 1e-6f);
        }
}

TEST(LanczosWarp, SameBytesForAnyNumberOfThreads)
{
    const auto picture = textured(300, 200);
    const auto map = turnedBy(0.8, 0.995, picture->size());
    const auto many = lanczosWarp(*picture, map, picture->size());
    const WorkerLimit limit(1);
    EXPECT_TRUE(sameBytes(*many, *lanczosWarp(*picture, map, picture->size())));
}

TEST(LanczosWarp, PixelsThatShareALineEqualSinglePixels)
{
    // Three pixels are too few to share one.
    const auto picture = textured(300, 200);
    for (const auto& map :
         {turnedBy(0.0, 1.0, picture->size()), turnedBy(0.0, 1.4, picture->size()),
          turnedBy(0.003, 1.0002, picture->size()), shiftedBy(0.3, 0.6), shiftedBy(40, 0.5), shiftedBy(7.25, 12),
          turnedBy(180, 1.0, picture->size()), turnedBy(2, 0.9, picture->size())}) {
        const auto whole = lanczosWarp(*picture, map, picture->size());
        const auto single = lanczosWarp(*picture, map, {3, 200});
        EXPECT_TRUE(sameBytes(*whole->copy({0, 0, 3, 200}), *single)) << map;
    }
}

TEST(LanczosWarp, KeepsTheColourProfile)
{
    auto picture = textured(30, 20);
    picture->setColorProfile(ColorProfileType::sRGB());
    EXPECT_TRUE(*lanczosWarp(*picture, shiftedBy(0.5, 0), {30, 20})->colorProfile() == *ColorProfileType::sRGB());
}
