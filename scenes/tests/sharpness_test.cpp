#include <orvo_core/parallel.hpp>
#include <scenes/focus_series.hpp>
#include <scenes/sharpness.hpp>

#include <gmock/gmock.h>

#include <cstring>

namespace orvo::scenes {
namespace {

std::shared_ptr<Picture> plain(_Size<int> size, float value)
{
    return std::make_shared<Picture>(size, PixelRGB<float>{value, value, value}, ColorProfileType::sRGB());
}

constexpr float kRounding = 1e-5f;

TEST(SumModifiedLaplacian, OfADotIsKnown)
{
    const auto dot = plain({11, 11}, 0.0f);
    dot->row(5)[5] = {1.0f, 1.0f, 1.0f};
    const auto single = sumModifiedLaplacian(*dot, 1, 1);
    EXPECT_NEAR(single->row(5)[5], 4.0f, kRounding);
    EXPECT_NEAR(single->row(5)[4], 1.0f, kRounding);
    EXPECT_NEAR(single->row(6)[5], 1.0f, kRounding);
    EXPECT_EQ(single->row(6)[6], 0.0f);
    const auto summed = sumModifiedLaplacian(*dot, 1, 3);
    EXPECT_NEAR(summed->row(5)[5], 8.0f, kRounding);
    EXPECT_NEAR(summed->row(4)[4], 6.0f, kRounding);
    EXPECT_NEAR(summed->row(5)[7], 1.0f, kRounding);
    const auto wide = sumModifiedLaplacian(*dot, 2, 1);
    EXPECT_NEAR(wide->row(5)[3], 1.0f, kRounding);
    EXPECT_EQ(wide->row(5)[4], 0.0f);
}

TEST(SumModifiedLaplacian, OfARampIsZero)
{
    const auto ramp = plain({20, 16}, 0.0f);
    for (int y = 0; y < 16; ++y)
        for (int x = 0; x < 20; ++x) {
            const float value = static_cast<float>(x) / 32.0f + static_cast<float>(y) / 64.0f;
            ramp->row(y)[x] = {value, value, value};
        }
    const auto measure = sumModifiedLaplacian(*ramp, 1, 5);
    for (int y = 3; y < 13; ++y)
        for (int x = 3; x < 17; ++x)
            EXPECT_NEAR(measure->row(y)[x], 0.0f, 25.0f * 4e-7f) << x << ", " << y;
}

TEST(SumModifiedLaplacian, RefusesInvalidArguments)
{
    const auto picture = plain({8, 8}, 0.5f);
    EXPECT_THROW((void)sumModifiedLaplacian(*picture, 0, 3), std::invalid_argument);
    EXPECT_THROW((void)sumModifiedLaplacian(*picture, 65, 3), std::invalid_argument);
    EXPECT_THROW((void)sumModifiedLaplacian(*picture, 1, 4), std::invalid_argument);
    EXPECT_THROW((void)sumModifiedLaplacian(*picture, 1, 129), std::invalid_argument);
    EXPECT_THROW((void)sumModifiedLaplacian(*plain({0, 0}, 0.5f), 1, 3), std::invalid_argument);
    EXPECT_EQ(sumModifiedLaplacian(*plain({1, 7}, 0.5f), 64, 127)->row(3)[0], 0.0f);
}

class SharpnessOfSeries : public testing::Test
{
protected:
    static void SetUpTestSuite()
    {
        FocusSeriesSettings settings;
        settings.size = {300, 200};
        const FocusSeries series(settings);
        for (const auto& frame : series.frames())
            frames.push_back(frame);
        truth = series.truth();
    }
    static void TearDownTestSuite()
    {
        frames.clear();
        truth.reset();
    }
    static std::vector<std::shared_ptr<const Picture>> frames;
    static std::shared_ptr<const Picture> truth;
};
std::vector<std::shared_ptr<const Picture>> SharpnessOfSeries::frames;
std::shared_ptr<const Picture> SharpnessOfSeries::truth;

TEST_F(SharpnessOfSeries, TruthHasAllOfIt) { EXPECT_NEAR(sharpnessRatio(*truth, frames, {}), 1.0, 0.03); }

TEST_F(SharpnessOfSeries, AFrameAloneHasPartOfIt)
{
    for (const auto& frame : frames) {
        const double share = sharpnessRatio(*frame, frames, {});
        EXPECT_GT(share, 0.2);
        EXPECT_LT(share, 0.85);
        EXPECT_NEAR(sharpnessRatio(*frame, {frame}, {}), 1.0, 1e-12);
    }
}

TEST_F(SharpnessOfSeries, FlatPartsDoNotCount)
{
    const auto flat = plain({40, 30}, 0.4f);
    const auto grainy = plain({40, 30}, 0.4f);
    for (int y = 0; y < 30; ++y)
        for (int x = 0; x < 40; ++x)
            grainy->row(y)[x].g += (x * 7 + y * 3) % 5 < 2 ? 0.002f : -0.002f;
    EXPECT_EQ(sharpnessRatio(*flat, {grainy}, {}), 1.0);
    EXPECT_EQ(sharpnessRatio(*flat, {grainy}, {.noise = 0.0}), 0.0);
}

TEST_F(SharpnessOfSeries, IsTheSameForAnyNumberOfThreads)
{
    const auto measured = [](int threads) {
        const WorkerLimit limit(threads);
        return std::pair(sumModifiedLaplacian(*truth, 2, 9), sharpnessRatio(*frames[1], frames, {}));
    };
    const auto one = measured(1);
    const auto two = measured(2);
    EXPECT_EQ(std::memcmp(one.first->data(), two.first->data(), one.first->pixelCount() * sizeof(float)), 0);
    EXPECT_EQ(one.second, two.second);
}

TEST_F(SharpnessOfSeries, RefusesInvalidArguments)
{
    EXPECT_THROW((void)sharpnessRatio(*truth, {}, {}), std::invalid_argument);
    EXPECT_THROW((void)sharpnessRatio(*plain({30, 20}, 0.5f), frames, {}), std::invalid_argument);
    EXPECT_THROW((void)sharpnessRatio(*truth, frames, {.noise = -1.0}), std::invalid_argument);
    EXPECT_THROW((void)sharpnessRatio(*truth, frames, {.window = 2}), std::invalid_argument);
}

} // namespace
} // namespace orvo::scenes
