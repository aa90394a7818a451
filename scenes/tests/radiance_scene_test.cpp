#include <orvo_core/parallel.hpp>
#include <scenes/radiance_scene.hpp>

#include <gmock/gmock.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <vector>

namespace orvo::scenes {
namespace {

using Lights = std::vector<PixelRGB<float>>;

Lights seen(const RadianceScene& scene, const Homography& map = kIdentity)
{
    const _Size<int> size = scene.size();
    Lights lights(static_cast<std::size_t>(size.width) * static_cast<std::size_t>(size.height));
    for (int y = 0; y < size.height; ++y)
        scene.radianceRow(map, y, size.width,
                          &lights[static_cast<std::size_t>(y) * static_cast<std::size_t>(size.width)]);
    return lights;
}

float luminance(const PixelRGB<float>& p) { return 0.2126f * p.r + 0.7152f * p.g + 0.0722f * p.b; }

bool sameBytes(const Lights& a, const Lights& b)
{
    return a.size() == b.size() && std::memcmp(a.data(), b.data(), a.size() * sizeof(a[0])) == 0;
}

TEST(RadianceScene, SpansFourteenStopsBetweenTheOutermostPermille)
{
    const RadianceScene scene({.size = {600, 400}});
    std::vector<float> values;
    for (const auto& p : seen(scene))
        values.push_back(luminance(p));
    std::sort(values.begin(), values.end());
    const float low = values[values.size() / 1000];
    const float high = values[values.size() - 1 - values.size() / 1000];
    EXPECT_GE(std::log2(high / low), 14.0f);
}

TEST(RadianceScene, IsFiniteAndPositiveEverywhere)
{
    for (const _Size<int> size : {_Size<int>(16, 16), {16, 333}, {640, 17}, {301, 200}}) {
        const RadianceScene scene({.size = size, .seed = 9});
        for (const auto& p : seen(scene)) {
            ASSERT_TRUE(std::isfinite(p.r) && std::isfinite(p.g) && std::isfinite(p.b)) << size.width;
            ASSERT_GT(std::min({p.r, p.g, p.b}), 0.0f) << size.width;
        }
    }
}

TEST(RadianceScene, SameSeedGivesSameBytesOnAnyNumberOfThreads)
{
    const auto paint = [](int threads, std::uint64_t seed) {
        const WorkerLimit limit(threads);
        return seen(RadianceScene({.size = {301, 200}, .seed = seed}));
    };
    const Lights first = paint(1, 5);
    EXPECT_TRUE(sameBytes(first, paint(2, 5)));
    EXPECT_FALSE(sameBytes(first, paint(2, 6)));
}

// Gradients at the scale of key points, counted in every part of the picture at a suitable exposure.
TEST(RadianceScene, HasDetailInEveryPart)
{
    constexpr int kParts = 4;
    const RadianceScene scene({.size = {1536, 1024}});
    const Lights lights = seen(scene);
    const int width = scene.size().width / kParts;
    const int height = scene.size().height / kParts;
    const auto at = [&](int x, int y) {
        return std::log2(luminance(lights[static_cast<std::size_t>(y) * 1536 + static_cast<std::size_t>(x)]));
    };
    for (int part = 0; part < kParts * kParts; ++part) {
        const int left = part % kParts * width;
        const int top = part / kParts * height;
        int strong = 0;
        for (int y = top + 2; y < top + height - 2; ++y)
            for (int x = left + 2; x < left + width - 2; ++x)
                strong += std::abs(at(x + 2, y) - at(x - 2, y)) > 0.08f ? 1 : 0; // 8 percent over four pixels
        EXPECT_GT(strong, width * height / 12) << "part " << part;
    }
}

// The scene between pixels is one smooth function: the light along a line has no step at pixel boundaries.
TEST(RadianceScene, IsSmoothBetweenPixels)
{
    const RadianceScene scene({.size = {300, 200}});
    constexpr double kStep = 1.0 / 64.0;
    for (int y = 20; y < 180; y += 10) {
        for (double x = 20.0; x < 280.0; x += 1.0) {
            const double before = scene.radiance(x - kStep, y).g;
            const double at = scene.radiance(x, y).g;
            const double after = scene.radiance(x + kStep, y).g;
            const double bend = std::abs(before - 2.0 * at + after);
            const double slope =
                std::abs(scene.radiance(x + 1.0, y).g - at) + std::abs(scene.radiance(x - 1.0, y).g - at);
            // a kink of the slope itself would leave 64 times the square of the step; rounding leaves 1e-6 of the light
            ASSERT_LT(bend, 16.0 * kStep * kStep * slope + 2e-6 * at) << x << ", " << y;
        }
    }
}

TEST(RadianceScene, WholeShiftMovesValuesUnchanged)
{
    const RadianceScene scene({.size = {300, 200}});
    Lights moved(280);
    Lights still(300);
    scene.radianceRow({1, 0, 7, 0, 1, -3, 0, 0, 1}, 50, 280, moved.data());
    scene.radianceRow(kIdentity, 47, 300, still.data());
    for (std::size_t x = 0; x < moved.size(); ++x)
        ASSERT_EQ(moved[x], still[x + 7]) << x;
}

TEST(RadianceScene, LargerSizeShowsTheSameSubject)
{
    const RadianceScene small({.size = {150, 100}});
    const RadianceScene large({.size = {600, 400}});
    int alike = 0;
    int all = 0;
    for (int y = 5; y < 95; ++y)
        for (int x = 5; x < 145; ++x) {
            float sum = 0.0f;
            for (int j = 0; j < 4; ++j)
                for (int i = 0; i < 4; ++i)
                    sum += luminance(large.radiance(4 * x + i, 4 * y + j));
            const float ratio = std::log2(sum / 16.0f / luminance(small.radiance(x, y)));
            ++all;
            alike += std::abs(ratio) < 1.0f ? 1 : 0;
        }
    EXPECT_GT(alike, all * 85 / 100); // edges and fine detail may differ, the rest may not
}

TEST(RadianceScene, LooksNoFurtherThanItsMargin)
{
    const RadianceScene scene({.size = {64, 64}, .margin = 0.1});
    EXPECT_EQ(scene.margin(), 7);
    EXPECT_EQ(scene.radiance(-1e9, 20), scene.radiance(-7, 20));
    EXPECT_EQ(scene.radiance(20, 1e12), scene.radiance(20, 63 + 7));
    const double nan = std::nan("");
    EXPECT_TRUE(std::isfinite(scene.radiance(nan, nan).r));
}

TEST(RadianceScene, RefusesInvalidSettings)
{
    EXPECT_THROW(RadianceScene({.size = {15, 100}}), std::invalid_argument);
    EXPECT_THROW(RadianceScene({.size = {100, 70000}}), std::invalid_argument);
    EXPECT_THROW(RadianceScene({.size = {100, 100}, .margin = -0.1}), std::invalid_argument);
    EXPECT_THROW(RadianceScene({.size = {100, 100}, .margin = std::nan("")}), std::invalid_argument);
}

} // namespace
} // namespace orvo::scenes
