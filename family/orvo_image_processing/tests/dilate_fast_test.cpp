#include "test_planes.hpp"

#include <orvo_image_processing/dilate_fast.hpp>

#include <gtest/gtest.h>

#include <algorithm>
#include <limits>

using planes::area;

namespace {

std::vector<float> direct(const std::vector<float>& plane, int width, int height, int radius)
{
    std::vector<float> out;
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) {
            float most = -std::numeric_limits<float>::infinity();
            for (int v = std::max(0, y - radius); v <= std::min(height - 1, y + radius); ++v)
                for (int u = std::max(0, x - radius); u <= std::min(width - 1, x + radius); ++u)
                    most = std::max(most, plane[area(width, v) + static_cast<std::size_t>(u)]);
            out.push_back(most);
        }
    return out;
}

} // namespace

TEST(DilateFast, AgreesWithTheDirectMaximum)
{
    for (const auto& [width, height] : planes::awkwardSizes())
        for (const int radius : {-1, 0, 1, 2, 3, 7, 16, 40, 1000}) {
            std::vector<float> plane = planes::noise(area(width, height), 3);
            for (float& v : plane)
                v = v * 4.0f - 3.0f; // mostly negative
            const std::vector<float> expected = direct(plane, width, height, std::max(radius, 0));
            orvo::dilateFast(plane.data(), {width, height}, radius, nullptr);
            EXPECT_TRUE(planes::sameBytes(plane, expected)) << width << 'x' << height << " r " << radius;
        }
}

TEST(DilateFast, TakesTheCallersScratch)
{
    const std::vector<float> plane = planes::noise(area(77, 40), 9);
    std::vector<float> own = plane;
    std::vector<float> given = plane;
    std::vector<float> scratch(plane.size());
    orvo::dilateFast(own.data(), {77, 40}, 5, nullptr);
    orvo::dilateFast(given.data(), {77, 40}, 5, scratch.data());
    EXPECT_TRUE(planes::sameBytes(own, given));
}

TEST(DilateFast, ASpotBecomesASquare)
{
    std::vector<float> plane(area(50, 50), 0.0f);
    plane[area(50, 20) + 30] = 1.0f;
    orvo::dilateFast(plane.data(), {50, 50}, 16, nullptr);
    for (int y = 0; y < 50; ++y)
        for (int x = 0; x < 50; ++x)
            EXPECT_EQ(plane[area(50, y) + static_cast<std::size_t>(x)],
                      std::abs(x - 30) <= 16 && std::abs(y - 20) <= 16 ? 1.0f : 0.0f);
}

TEST(DilateFast, IsTheSameForAnyNumberOfThreads)
{
    planes::expectSameForAnyWorkers([] {
        std::vector<float> plane = planes::noise(area(301, 203), 4);
        orvo::dilateFast(plane.data(), {301, 203}, 6, nullptr);
        return plane;
    });
}
