#include <orvo_core/parallel.hpp>
#include <scenes/bracket.hpp>
#include <scenes/mef_ssim.hpp>
#include <scenes/metrics.hpp>

#include <gmock/gmock.h>

#include <cmath>

namespace orvo::scenes {
namespace {

std::shared_ptr<Picture> plain(_Size<int> size, float value)
{
    return std::make_shared<Picture>(size, PixelRGB<float>{value, value, value}, ColorProfileType::sRGB());
}

const std::vector<std::shared_ptr<const Picture>>& bracketFrames()
{
    static const auto frames = [] {
        BracketRecipe recipe;
        recipe.scene.size = {300, 200};
        recipe.evs = {-4.0, -2.0, 0.0, 2.0, 4.0};
        std::vector<std::shared_ptr<const Picture>> pictures;
        for (const auto& frame : Bracket(recipe).frames())
            pictures.push_back(frame.picture);
        return pictures;
    }();
    return frames;
}

// Light of a frame's surroundings: the mean of a square around each pixel.
std::vector<float> surroundings(const Picture& picture)
{
    constexpr int kReach = 8;
    std::vector<float> means;
    for (int y = 0; y < picture.height(); ++y)
        for (int x = 0; x < picture.width(); ++x) {
            float sum = 0.0f;
            for (int j = std::max(0, y - kReach); j <= std::min(picture.height() - 1, y + kReach); j += 2)
                for (int i = std::max(0, x - kReach); i <= std::min(picture.width() - 1, x + kReach); i += 2)
                    sum += picture.row(j)[i].g;
            const int down = (std::min(picture.height() - 1, y + kReach) - std::max(0, y - kReach)) / 2 + 1;
            const int across = (std::min(picture.width() - 1, x + kReach) - std::max(0, x - kReach)) / 2 + 1;
            means.push_back(sum / static_cast<float>(down * across));
        }
    return means;
}

// Frames averaged by how near to mid gray their surroundings are: crude, but it shows more than any frame.
std::shared_ptr<Picture> fusedByExposedness()
{
    const auto& frames = bracketFrames();
    auto fused = plain(frames[0]->size(), 0.0f);
    std::vector<float> total(fused->pixelCount(), 0.0f);
    for (const auto& frame : frames) {
        const auto around = surroundings(*frame);
        for (std::size_t i = 0; i < fused->pixelCount(); ++i) {
            const float weight = std::exp(-(around[i] - 0.5f) * (around[i] - 0.5f) / 0.05f);
            const auto& p = frame->data()[i];
            auto& q = fused->data()[i];
            q = {q.r + weight * p.r, q.g + weight * p.g, q.b + weight * p.b};
            total[i] += weight;
        }
    }
    for (std::size_t i = 0; i < fused->pixelCount(); ++i) {
        auto& q = fused->data()[i];
        q = {q.r / total[i], q.g / total[i], q.b / total[i]};
    }
    return fused;
}

TEST(Psnr, MeasuresAKnownError)
{
    EXPECT_NEAR(psnr(*plain({20, 10}, 0.5f), *plain({20, 10}, 0.6f)), 20.0, 1e-4);
    EXPECT_EQ(psnr(*plain({20, 10}, 0.5f), *plain({20, 10}, 0.5f)), std::numeric_limits<double>::infinity());
    EXPECT_THROW((void)psnr(*plain({20, 10}, 0.5f), *plain({10, 20}, 0.5f)), std::invalid_argument);
}

TEST(Ssim, OfFlatPicturesIsTheirLuminanceTerm)
{
    constexpr double kC1 = 1e-4;
    const double expected = (2 * 0.4 * 0.6 + kC1) / (0.4 * 0.4 + 0.6 * 0.6 + kC1);
    EXPECT_NEAR(ssim(*plain({11, 11}, 0.4f), *plain({11, 11}, 0.6f)), expected, 1e-4);
    EXPECT_THROW((void)ssim(*plain({10, 30}, 0.5f), *plain({10, 30}, 0.5f)), std::invalid_argument);
}

TEST(Ssim, DecreasesAsNoiseIncreases)
{
    BracketRecipe recipe;
    recipe.scene.size = {120, 80};
    recipe.evs = {0.0};
    const auto clean = Bracket(recipe).frame(0).picture;
    EXPECT_NEAR(ssim(*clean, *clean), 1.0, 1e-6);
    double last = 1.0;
    for (const double fullWell : {40000.0, 1000.0, 50.0}) {
        recipe.camera.noise = SensorNoise{fullWell, 2.0};
        const double now = ssim(*clean, *Bracket(recipe).frame(0).picture);
        EXPECT_LT(now, last) << fullWell;
        last = now;
    }
}

TEST(CornerError, IsTheLargestOfFour)
{
    EXPECT_EQ(cornerError(kIdentity, kIdentity, {100, 50}), 0.0);
    EXPECT_NEAR(cornerError({1, 0, 3, 0, 1, 4, 0, 0, 1}, kIdentity, {100, 50}), 5.0, 1e-12);
    EXPECT_NEAR(cornerError({1.01, 0, 0, 0, 1, 0, 0, 0, 1}, kIdentity, {101, 51}), 1.0, 1e-12);
    EXPECT_EQ(cornerError({NAN, 0, 0, 0, 1, 0, 0, 0, 1}, kIdentity, {100, 50}),
              std::numeric_limits<double>::infinity());
}

TEST(WrongShare, CountsInsideTheMaskOnly)
{
    const auto truth = plain({10, 4}, 0.5f);
    const auto found = plain({10, 4}, 0.5f);
    MaskImage mask({10, 4}, 0.0f);
    mask.fillRect(1.0f, {0, 0, 10, 2});
    EXPECT_EQ(wrongShare(*found, *truth, mask, 0.01f), 0.0);
    for (int x = 0; x < 5; ++x) {
        found->row(0)[x].b = 0.52f;
        found->row(3)[x].r = 9.0f;
    }
    EXPECT_DOUBLE_EQ(wrongShare(*found, *truth, mask, 0.01f), 0.25);
    EXPECT_DOUBLE_EQ(wrongShare(*found, *truth, mask, 0.05f), 0.0);
    found->row(1)[9].g = NAN;
    EXPECT_DOUBLE_EQ(wrongShare(*found, *truth, mask, 0.05f), 0.05);
}

TEST(MefSsim, OfEqualFramesIsOne)
{
    const auto& frame = bracketFrames()[2];
    EXPECT_NEAR(mefSsim({frame}, *frame), 1.0, 1e-4);
    EXPECT_NEAR(mefSsim({frame, frame, frame}, *frame), 1.0, 1e-4);
}

TEST(MefSsim, PrefersAFusionToEveryFrame)
{
    const double fusion = mefSsim(bracketFrames(), *fusedByExposedness());
    for (const auto& frame : bracketFrames())
        EXPECT_GT(fusion, mefSsim(bracketFrames(), *frame) + 0.02);
    EXPECT_LT(fusion, 1.0);
    EXPECT_LT(mefSsim(bracketFrames(), *plain({300, 200}, 0.5f)), 0.5);
}

TEST(MefSsim, OrderOfFramesAndThreadsDoNotMatter)
{
    auto frames = bracketFrames();
    const auto fused = fusedByExposedness();
    const auto score = [&](int threads) {
        const WorkerLimit limit(threads);
        return mefSsim(frames, *fused);
    };
    const double forward = score(1);
    EXPECT_EQ(score(2), forward);
    std::reverse(frames.begin(), frames.end());
    EXPECT_NEAR(score(2), forward, 1e-5);
}

// The same measure written out patch by patch in doubles, one scale at one window.
TEST(MefSsim, AgreesWithTheDirectComputation)
{
    // At the coarsest scale a picture of 44 pixels has exactly one window; the frames allow leaving out the finer
    // scales: flat except for a slow ramp, whose quality is computed here the same way at all three scales.
    const auto ramp = [](float gain, float lift) {
        auto picture = plain({44, 44}, 0.0f);
        for (int y = 0; y < 44; ++y)
            for (int x = 0; x < 44; ++x) {
                const float v = lift + gain * (static_cast<float>(x) / 44.0f);
                picture->row(y)[x] = {v, v, v};
            }
        return picture;
    };
    const auto weak = ramp(0.2f, 0.1f);
    const auto strong = ramp(0.8f, 0.1f);
    const auto fused = ramp(0.5f, 0.2f);
    // All structures agree, so the desired contrast is the strongest one and its product with the fused one is exact.
    const auto deviationAt = [](double gain, int scale) {
        double sum = 0.0, squares = 0.0, total = 0.0;
        for (int i = -5; i <= 5; ++i) {
            const double w = std::exp(-i * i / 4.5);
            const double v = gain * i * (1 << scale) / 44.0;
            total += w;
            sum += w * v;
            squares += w * v * v;
        }
        return std::sqrt(squares / total - sum / total * sum / total);
    };
    constexpr double kC = 9e-4;
    constexpr double kWeights[] = {0.0448, 0.2856, 0.3001};
    double expected = 1.0;
    for (int scale = 0; scale < 3; ++scale) {
        const double a = deviationAt(0.8, scale);
        const double b = deviationAt(0.5, scale);
        expected *= std::pow((2 * a * b + kC) / (a * a + b * b + kC), kWeights[scale] / 0.6305);
    }
    EXPECT_NEAR(mefSsim({weak, strong}, *fused), expected, 1e-4);
}

TEST(MefSsim, RefusesInvalidInput)
{
    const auto picture = plain({64, 64}, 0.5f);
    EXPECT_THROW((void)mefSsim({}, *picture), std::invalid_argument);
    EXPECT_THROW((void)mefSsim({nullptr}, *picture), std::invalid_argument);
    EXPECT_THROW((void)mefSsim({plain({64, 63}, 0.5f)}, *picture), std::invalid_argument);
    EXPECT_THROW((void)mefSsim({plain({43, 64}, 0.5f)}, *plain({43, 64}, 0.5f)), std::invalid_argument);
}

} // namespace
} // namespace orvo::scenes
