#include <orvo_image_processing/grfx_curves.hpp>

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <vector>

using namespace orvo;

namespace {

struct Pair
{
    const grfx_curve_ext_t& there;
    const grfx_curve_ext_t& back;
};

std::vector<Pair> pairs()
{
    return {{grfx_gamma(), grfx_inv_gamma()},
            {grfx_inv_gamma(), grfx_gamma()},
            {grfx_tone(), grfx_inv_tone()},
            {grfx_inv_tone(), grfx_tone()}};
}

std::vector<float> samples()
{
    std::vector<float> result;
    for (int i = -500; i <= 2500; ++i)
        result.push_back(static_cast<float>(i) / 1000.0f);
    return result;
}

} // namespace

TEST(GrfxCurves, KeepZeroAndOne)
{
    for (const Pair& pair : pairs()) {
        EXPECT_EQ(pair.there(0.0f), 0.0f);
        EXPECT_NEAR(pair.there(1.0f), 1.0f, 1e-6f);
    }
}

TEST(GrfxCurves, HaveInverses)
{
    for (const Pair& pair : pairs())
        for (const float x : samples())
            EXPECT_NEAR(pair.back(pair.there(x)), x, 1e-5f) << x;
}

TEST(GrfxCurves, RiseWithoutSteps)
{
    for (const Pair& pair : pairs()) {
        const auto xs = samples();
        for (std::size_t i = 1; i < xs.size(); ++i) {
            const float rise = pair.there(xs[i]) - pair.there(xs[i - 1]);
            EXPECT_GT(rise, 0.0f) << xs[i];
            EXPECT_LT(rise, 0.014f) << xs[i] << ": the steepest, the gamma at 0, rises by 12.92";
        }
    }
}

TEST(GrfxCurves, GammaIsThatOfSRGB)
{
    EXPECT_NEAR(grfx_gamma()(0.18f), 0.46135613f, 1e-6f);
    EXPECT_NEAR(grfx_gamma()(0.002f), 0.02584f, 1e-6f);
    EXPECT_NEAR(grfx_inv_gamma()(0.5f), 0.21404114f, 1e-6f);
}

TEST(GrfxCurves, ToneAddsContrastAboutOneHalf)
{
    EXPECT_EQ(grfx_tone()(0.5f), 0.5f);
    EXPECT_NEAR((grfx_tone()(0.501f) - grfx_tone()(0.499f)) / 0.002f, 1.5f, 0.01f);
    EXPECT_NEAR(grfx_tone()(0.25f), 0.2f, 1e-6f);
    EXPECT_NEAR(grfx_tone()(0.75f), 0.8f, 1e-6f);
    EXPECT_NEAR(grfx_tone()(1.3f), 1.2f, 1e-6f) << "straight beyond the end, by 2/3";
    EXPECT_NEAR(grfx_tone()(-0.3f), -0.2f, 1e-6f);
}

TEST(GrfxCurves, BatchEqualsSingleSamples)
{
    const auto originals = samples();
    for (const Pair& pair : pairs()) {
        for (const int count : {0, 1, 7, 3001}) {
            auto xs = originals;
            pair.there(xs.data(), count);
            for (int i = 0; i < count; ++i) {
                const float x = originals[static_cast<std::size_t>(i)];
                const float expected = pair.there(x);
                EXPECT_NEAR(xs[static_cast<std::size_t>(i)], expected, 1e-6f * std::max(1.0f, std::abs(expected))) << x;
            }
            for (std::size_t i = static_cast<std::size_t>(count); i < xs.size(); ++i)
                EXPECT_EQ(xs[i], originals[i]);
        }
    }
}

TEST(GrfxCurves, NotANumberStaysSo)
{
    for (const Pair& pair : pairs()) {
        float sample = std::numeric_limits<float>::quiet_NaN();
        EXPECT_TRUE(std::isnan(pair.there(sample)));
        pair.there(&sample, 1);
        EXPECT_TRUE(std::isnan(sample));
    }
}
