#include "mirror.hpp"
#include "test_planes.hpp"

#include <orvo_image_processing/fast_blur.hpp>

#include <gtest/gtest.h>

#include <algorithm>
#include <numeric>

using orvo::grfx_fast_blur_gray;
using planes::area;

namespace {

std::vector<float> blurred(const std::vector<float>& plane, int width, int height, int radius)
{
    std::vector<float> result(plane.size(), -1.0f);
    grfx_fast_blur_gray(result.data(), plane.data(), width, height, radius);
    return result;
}

/// Along one axis, term by term.
std::vector<double> directAlong(const std::vector<double>& in, int width, int height, int radius, bool across)
{
    std::vector<double> out(in.size());
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) {
            double sum = 0.0;
            for (int i = -radius; i <= radius; ++i) {
                const int sx = across ? orvo::detail::mirrored(x + i, width) : x;
                const int sy = across ? y : orvo::detail::mirrored(y + i, height);
                sum += (radius + 1 - std::abs(i)) * in[area(width, sy) + static_cast<std::size_t>(sx)];
            }
            out[area(width, y) + static_cast<std::size_t>(x)] = sum / (radius + 1.0) / (radius + 1.0);
        }
    return out;
}

std::vector<double> direct(const std::vector<float>& plane, int width, int height, int radius)
{
    const std::vector<double> in(plane.begin(), plane.end());
    const auto cut = [radius](int size) { return std::min(radius, 8 * size); }; // as the header documents
    return directAlong(directAlong(in, width, height, cut(width), true), width, height, cut(height), false);
}

double sumOf(const std::vector<float>& plane) { return std::accumulate(plane.begin(), plane.end(), 0.0); }

} // namespace

TEST(Mirrored, RepeatsTheEdge)
{
    const int expected[] = {1, 2, 2, 1, 0, 0, 1, 2, 2, 1, 0, 0, 1};
    for (int i = 0; i < 13; ++i)
        EXPECT_EQ(orvo::detail::mirrored(i - 5, 3), expected[i]) << i - 5;
    EXPECT_EQ(orvo::detail::mirrored(-1000001, 1), 0);
}

TEST(FastBlur, AgreesWithTheDirectSum)
{
    for (const auto& [width, height] : planes::awkwardSizes())
        for (const int radius : {0, 1, 2, 3, 10, 25}) {
            const std::vector<float> plane = planes::noise(area(width, height), 3);
            const std::vector<float> fast = blurred(plane, width, height, radius);
            const std::vector<double> slow = direct(plane, width, height, radius);
            for (std::size_t i = 0; i < fast.size(); ++i)
                ASSERT_NEAR(fast[i], slow[i], 3e-7) << width << 'x' << height << " r " << radius << " at " << i;
        }
}

TEST(FastBlur, SeveralBandsAgreeWithTheDirectSum)
{
    const int width = 21;
    const int height = 700;
    const std::vector<float> plane = planes::noise(area(width, height), 4);
    for (const int radius : {1, 7, 40}) {
        const std::vector<float> fast = blurred(plane, width, height, radius);
        const std::vector<double> slow = direct(plane, width, height, radius);
        for (std::size_t i = 0; i < fast.size(); ++i)
            ASSERT_NEAR(fast[i], slow[i], 3e-7) << radius << " at " << i;
    }
}

TEST(FastBlur, KeepsTheMeanAndConstants)
{
    const int width = 173;
    const int height = 401;
    const std::vector<float> plane = planes::noise(area(width, height), 9);
    const std::vector<float> flat(plane.size(), 0.7f);
    for (const int radius : {1, 2, 10, 60, 399, 5000}) {
        EXPECT_NEAR(sumOf(blurred(plane, width, height, radius)) / sumOf(plane), 1.0, 1e-6) << radius;
        for (const float v : blurred(flat, width, height, radius))
            ASSERT_NEAR(v, 0.7f, 1e-6f) << radius;
    }
}

TEST(FastBlur, HugeRadiusGivesTheMean)
{
    const std::vector<float> plane = planes::noise(area(40, 30), 2);
    const double mean = sumOf(plane) / static_cast<double>(plane.size());
    for (const float v : blurred(plane, 40, 30, 1 << 30))
        ASSERT_NEAR(v, mean, 0.01);
}

TEST(FastBlur, LongRunningSumsDoNotDrift)
{
    // Occasional bright samples leave no trace behind them.
    const int width = 60000;
    std::vector<float> plane(area(width, 2), 0.0f);
    for (std::size_t i = 0; i < plane.size(); i += 97)
        plane[i] = 1e4f;
    for (std::size_t i = static_cast<std::size_t>(width) - 200; i < static_cast<std::size_t>(width); ++i)
        plane[i] = plane[i + static_cast<std::size_t>(width)] = 0.0f;
    const std::vector<float> result = blurred(plane, width, 2, 10);
    for (std::size_t i = static_cast<std::size_t>(width) - 150; i < static_cast<std::size_t>(width); ++i)
        ASSERT_NEAR(result[i], 0.0f, 1e-6f);
}

TEST(FastBlur, SameForAnyWorkersAndLeavesNoPlane)
{
    const std::vector<float> plane = planes::noise(area(301, 555), 6);
    for (const int radius : {0, 1, 10})
        planes::expectSameForAnyWorkers([&] { return blurred(plane, 301, 555, radius); });
}

TEST(FastBlur, HandlesNotANumber)
{
    std::vector<float> plane = planes::noise(area(50, 600), 6);
    plane[25] = std::nanf("");
    const std::vector<float> clean = planes::noise(area(50, 600), 6);
    for (const int radius : {1, 10})
        EXPECT_EQ(blurred(plane, 50, 600, radius).back(), blurred(clean, 50, 600, radius).back());
    EXPECT_EQ(blurred(clean, 50, 600, -3), clean);
}
