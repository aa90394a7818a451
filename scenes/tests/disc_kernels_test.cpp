#include "disc_kernels.hpp"

#include <gmock/gmock.h>

#include <cmath>

namespace orvo::scenes {
namespace {

constexpr float kLargest = 9.0f;

const DiscKernels& discs()
{
    static const DiscKernels kernels(static_cast<double>(kLargest));
    return kernels;
}

template <typename Visit>
void forEachWeight(float radius, const Visit& visit)
{
    const int reach = discs().reach(radius);
    for (int y = -reach; y <= reach; ++y)
        for (int x = -reach; x <= reach; ++x)
            visit(x, y, static_cast<double>(discs().weight(radius, x, y)));
}

class DiscOfRadius : public testing::TestWithParam<float>
{};

TEST_P(DiscOfRadius, HasTheMomentsOfTheTrueDisc)
{
    double sum = 0.0, across = 0.0, down = 0.0, least = 1.0;
    forEachWeight(GetParam(), [&](int x, int y, double weight) {
        sum += weight;
        across += weight * x * x;
        down += weight * y * y;
        least = std::min(least, weight);
    });
    const double radius = static_cast<double>(GetParam());
    EXPECT_NEAR(sum, 1.0, 1e-5);
    EXPECT_NEAR(across, radius * radius / 4.0, 2e-5 * (1.0 + radius * radius));
    EXPECT_NEAR(down, across, 1e-5 * (1.0 + radius * radius));
    EXPECT_GE(least, 0.0);
}

TEST_P(DiscOfRadius, IsFlatInsideAndZeroOutside)
{
    const double radius = static_cast<double>(GetParam());
    const double middle = static_cast<double>(discs().weight(GetParam(), 0, 0));
    forEachWeight(GetParam(), [&](int x, int y, double weight) {
        const double away = std::hypot(x, y);
        if (away < radius - 1.0) {
            EXPECT_NEAR(weight, middle, 1e-6) << x << ", " << y;
        } else if (away > radius + 1.0) {
            EXPECT_EQ(weight, 0.0) << x << ", " << y;
        }
    });
}

INSTANTIATE_TEST_SUITE_P(Sizes, DiscOfRadius,
                         testing::Values(0.0f, 0.03125f, 0.25f, 0.5f, 0.75f, 1.0f, 1.5f, 2.0f, 3.25f, 6.0f, 9.0f));

TEST(DiscKernels, ChangeSmoothlyWithTheRadius)
{
    constexpr float kStep = 1.0f / DiscKernels::kStepsPerPixel;
    for (float radius = 0.0f; radius + kStep <= kLargest; radius += kStep) {
        double change = 0.0; // half of it is the share of light that moves
        forEachWeight(radius + kStep, [&](int x, int y, double weight) {
            change += std::abs(weight - static_cast<double>(discs().weight(radius, x, y)));
        });
        EXPECT_LT(change, 0.15) << radius;
    }
}

TEST(DiscKernels, MeanIsTheWeightedSum)
{
    constexpr int kSide = 21;
    std::vector<PixelRGBA<float>> plane(kSide * kSide);
    for (std::size_t i = 0; i < plane.size(); ++i) {
        const auto value = static_cast<float>(i * 37 % 101) / 101.0f;
        plane[i] = {value, value * value, 1.0f - value, 1.0f};
    }
    const auto at = [&](int x, int y) { return plane[static_cast<std::size_t>((10 + y) * kSide + 10 + x)]; };
    for (const float radius : {0.0f, 0.6f, 2.3f, 9.0f}) {
        double sum[4] = {};
        forEachWeight(radius, [&](int x, int y, double weight) {
            const auto p = at(x, y);
            const float samples[4] = {p.r, p.g, p.b, p.a};
            for (int k = 0; k < 4; ++k)
                sum[k] += weight * static_cast<double>(samples[k]);
        });
        const auto mean = discs().mean(&plane[10 * kSide + 10], kSide, radius);
        EXPECT_NEAR(mean.r, sum[0], 1e-5) << radius;
        EXPECT_NEAR(mean.g, sum[1], 1e-5) << radius;
        EXPECT_NEAR(mean.b, sum[2], 1e-5) << radius;
        EXPECT_NEAR(mean.a, 1.0, 1e-5) << radius;
    }
}

} // namespace
} // namespace orvo::scenes
