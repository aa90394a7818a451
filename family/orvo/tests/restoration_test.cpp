#include <orvo/restoration.hpp>
#include <orvo_common/failure.hpp>
#include <orvo_common/memory_manager.hpp>
#include <orvo_common/run_control.hpp>
#include <orvo_core/parallel.hpp>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <functional>
#include <limits>
#include <random>
#include <stdexcept>
#include <vector>

namespace orvo {
namespace {

using Pixel = PixelRGB<float>;
using Picture = _ImageData<Pixel>;
using PicturePtr = std::shared_ptr<Picture>;

PicturePtr drawn(int width, int height, const std::function<Pixel(int, int)>& colour)
{
    auto picture = std::make_shared<Picture>(_Size<int>(width, height), ColorProfileType::melissaRGB());
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x)
            picture->row(y)[x] = colour(x, y);
    return picture;
}

/// Smooth shades, hard edges and a patch of fine weave, as in photographs.
Pixel scene(int x, int y)
{
    const auto u = static_cast<float>(x);
    const auto v = static_cast<float>(y);
    float base = 0.35f + 0.0008f * u + 0.05f * std::sin(0.02f * v);
    if ((x / 60 + y / 80) % 3 == 0)
        base += 0.25f;
    if (x > 200 && y > 180)
        base += 0.06f * std::sin(1.4f * u) * std::sin(1.1f * v);
    return {base, base * 0.9f, base * 0.75f + 0.05f};
}

PicturePtr clean(int width = 384, int height = 320) { return drawn(width, height, scene); }

/// White noise of this deviation at mid gray; `byBrightness`: stronger in bright areas, like photon noise.
PicturePtr noisy(const Picture& picture, float deviation, bool byBrightness = false)
{
    std::mt19937 random(5);
    std::normal_distribution<float> normal;
    const auto result = picture.copy({});
    for (std::size_t i = 0; i < result->pixelCount(); ++i) {
        Pixel& p = result->data()[i];
        const float d = byBrightness ? deviation * std::sqrt(2.0f * p.g) : deviation;
        p = {p.r + d * normal(random), p.g + d * normal(random), p.b + d * normal(random)};
    }
    return result;
}

/// The same after a small blur, which makes the grain coarse, as in cameras and JPEG.
PicturePtr coarselyNoisy(const Picture& picture, float deviation)
{
    const auto grain =
        noisy(*drawn(picture.width(), picture.height(), [](int, int) { return Pixel{}; }), deviation * 2.6f);
    const auto result = picture.copy({});
    for (int y = 1; y + 1 < picture.height(); ++y)
        for (int x = 1; x + 1 < picture.width(); ++x) {
            Pixel sum;
            for (int j = -1; j <= 1; ++j)
                for (int i = -1; i <= 1; ++i) {
                    const Pixel& p = grain->row(y + j)[x + i];
                    sum = {sum.r + p.r / 9, sum.g + p.g / 9, sum.b + p.b / 9};
                }
            Pixel& out = result->row(y)[x];
            out = {out.r + sum.r, out.g + sum.g, out.b + sum.b};
        }
    return result;
}

double psnr(const Picture& a, const Picture& b)
{
    double sum = 0.0;
    for (std::size_t i = 0; i < a.pixelCount(); ++i) {
        const Pixel& p = a.data()[i];
        const Pixel& q = b.data()[i];
        for (const float d : {p.r - q.r, p.g - q.g, p.b - q.b})
            sum += static_cast<double>(d) * static_cast<double>(d);
    }
    return 10.0 * std::log10(3.0 * static_cast<double>(a.pixelCount()) / sum);
}

bool sameBytes(const Picture& a, const Picture& b)
{
    return a.size() == b.size() && std::memcmp(a.data(), b.data(), a.pixelCount() * sizeof(Pixel)) == 0;
}

RestorationSettings only(float RestorationSettings::*step, float amount = 1.0f)
{
    RestorationSettings settings = {0.0f, 0.0f, 0.0f, 0.0f};
    settings.*step = amount;
    return settings;
}

PicturePtr quieter(const Picture& picture) { return restorePicture(picture, only(&RestorationSettings::noise), {}); }

/// Gaussian blur of green, copied to all channels.
PicturePtr blurred(const Picture& picture, double sigma)
{
    const int reach = static_cast<int>(std::ceil(4.0 * sigma));
    std::vector<double> weights;
    for (int i = -reach; i <= reach; ++i)
        weights.push_back(std::exp(-0.5 * i * i / (sigma * sigma)));
    const auto along = [&](const Picture& from, int dx, int dy) {
        return drawn(from.width(), from.height(), [&](int x, int y) {
            double sum = 0.0, total = 0.0;
            for (int i = -reach; i <= reach; ++i) {
                const int u = std::clamp(x + i * dx, 0, from.width() - 1);
                const int v = std::clamp(y + i * dy, 0, from.height() - 1);
                const double w = weights[static_cast<std::size_t>(i + reach)];
                sum += w * static_cast<double>(from.row(v)[u].g);
                total += w;
            }
            const auto value = static_cast<float>(sum / total);
            return Pixel{value, value, value};
        });
    };
    return along(*along(picture, 1, 0), 0, 1);
}

/// Gray shapes with hard edges at all angles.
PicturePtr shapes()
{
    return drawn(360, 300, [](int x, int y) {
        float value = 0.3f;
        if (std::hypot(x - 110.0, y - 120.0) < 70.0)
            value = 0.7f;
        if (x > 210 && x < 330 && (x * 2 + y) % 90 < 45)
            value = 0.6f;
        if (y > 230 && x % 40 < 20)
            value = 0.45f;
        return Pixel{value, value, value};
    });
}

TEST(Restoration, TakesWhiteNoiseOut)
{
    const auto truth = clean();
    for (const float deviation : {0.01f, 0.03f, 0.06f}) {
        const auto grainy = noisy(*truth, deviation);
        const double gain = psnr(*quieter(*grainy), *truth) - psnr(*grainy, *truth);
        EXPECT_GT(gain, deviation < 0.02f ? 3.5 : 6.0) << deviation;
    }
}

TEST(Restoration, FollowsNoiseThatDependsOnTheBrightness)
{
    const auto truth = clean();
    const auto grainy = noisy(*truth, 0.03f, true);
    EXPECT_GT(psnr(*quieter(*grainy), *truth), psnr(*grainy, *truth) + 5.5);
}

TEST(Restoration, TakesCoarseGrainOut)
{
    const auto truth = clean();
    const auto grainy = coarselyNoisy(*truth, 0.03f);
    EXPECT_GT(psnr(*quieter(*grainy), *truth), psnr(*grainy, *truth) + 2.5);
}

TEST(Restoration, LeavesAPictureWithoutNoiseAlone)
{
    const auto truth = clean();
    EXPECT_GT(psnr(*quieter(*truth), *truth), 50.0);
    const auto flat = drawn(200, 100, [](int, int) { return Pixel{0.5f, 0.4f, 0.3f}; });
    EXPECT_GT(psnr(*quieter(*flat), *flat), 100.0);
}

TEST(Restoration, KeepsTextureThatStandsAboveTheNoise)
{
    const auto truth = clean();
    const auto restored = quieter(*noisy(*truth, 0.015f));
    // The remaining share of the weave: its projection on the original.
    double together = 0.0, alone = 0.0;
    for (int y = 190; y < 310; ++y)
        for (int x = 210; x < 370; ++x) {
            const double weave = std::sin(1.4 * x) * std::sin(1.1 * y);
            const double left = static_cast<double>(restored->row(y)[x].g) - static_cast<double>(truth->row(y)[x].g);
            together += (0.06 * 0.9 * weave + left) * weave;
            alone += 0.06 * 0.9 * weave * weave;
        }
    EXPECT_GT(together / alone, 0.93);
    EXPECT_LT(together / alone, 1.03);
}

TEST(Restoration, KeepsColours)
{
    const auto truth = drawn(256, 256, [](int x, int y) {
        const auto step = [](int v) { return 0.15f + 0.7f * static_cast<float>(v / 64) / 3.0f; };
        return Pixel{step(x), step(y), step(255 - x)};
    });
    const auto restored = quieter(*noisy(*truth, 0.04f));
    for (int j = 0; j < 4; ++j)
        for (int i = 0; i < 4; ++i) {
            Pixel sum;
            for (int y = 64 * j + 12; y < 64 * j + 52; ++y)
                for (int x = 64 * i + 12; x < 64 * i + 52; ++x) {
                    const Pixel& p = restored->row(y)[x];
                    sum = {sum.r + p.r / 1600, sum.g + p.g / 1600, sum.b + p.b / 1600};
                }
            const Pixel& expected = truth->row(64 * j + 32)[64 * i + 32];
            EXPECT_NEAR(sum.r, expected.r, 0.006f);
            EXPECT_NEAR(sum.g, expected.g, 0.006f);
            EXPECT_NEAR(sum.b, expected.b, 0.006f);
        }
}

TEST(Restoration, ALowerAmountLeavesGrainOfLuminance)
{
    const auto truth = clean();
    const auto grainy = noisy(*truth, 0.03f);
    const auto half = restorePicture(*grainy, only(&RestorationSettings::noise, 0.5f), {});
    EXPECT_LT(psnr(*half, *truth), psnr(*quieter(*grainy), *truth) - 1.0);
    EXPECT_GT(psnr(*half, *truth), psnr(*grainy, *truth) + 2.0);
}

TEST(Restoration, UndoesMildBlurWithoutRinging)
{
    const auto truth = shapes();
    for (const double sigma : {1.1, 1.6}) {
        const auto soft = blurred(*truth, sigma);
        const auto restored = restorePicture(*soft, only(&RestorationSettings::blur), {});
        EXPECT_GT(psnr(*restored, *truth), psnr(*soft, *truth) + 2.0) << sigma;
        const auto [least, most] = std::minmax_element(restored->data(), restored->data() + restored->pixelCount(),
                                                       [](const Pixel& a, const Pixel& b) { return a.g < b.g; });
        EXPECT_GT(least->g, 0.3f - 0.025f);
        EXPECT_LT(most->g, 0.7f + 0.025f);
    }
}

TEST(Restoration, LeavesASharpPictureSharp)
{
    const auto truth = shapes();
    EXPECT_GT(psnr(*restorePicture(*truth, only(&RestorationSettings::blur), {}), *truth), 45.0);
}

TEST(Restoration, TilesLeaveNoSeam)
{
    // Wider than a tile: where two meet the result equals that of a narrower picture around that position.
    const auto soft = blurred(*drawn(1200, 160,
                                     [](int x, int y) {
                                         const float value = (x / 23 + y / 31) % 2 == 0 ? 0.3f : 0.6f;
                                         return Pixel{value, value, value};
                                     }),
                              1.4);
    const auto whole = restorePicture(*soft, only(&RestorationSettings::blur), {});
    double worst = 0.0;
    for (int y = 20; y < 140; ++y) {
        // The checkers repeat every 46 columns.
        for (int x = 1024 - 23; x < 1024 + 23; ++x)
            worst = std::max(worst, static_cast<double>(std::abs(whole->row(y)[x].g - whole->row(y)[x - 460].g)));
    }
    EXPECT_LT(worst, 0.01);
}

TEST(Restoration, RaisesLocalContrastALittle)
{
    const auto truth = clean();
    const auto restored = restorePicture(*truth, only(&RestorationSettings::contrast, 0.3f), {});
    const auto spread = [](const Picture& p) {
        double sum = 0.0;
        for (int y = 200; y < 300; ++y)
            for (int x = 220; x < 360; ++x)
                sum += static_cast<double>(std::abs(p.row(y)[x].g - p.row(y)[x + 1].g));
        return sum;
    };
    EXPECT_GT(spread(*restored), 1.05 * spread(*truth));
    EXPECT_LT(spread(*restored), 1.4 * spread(*truth));
}

TEST(Restoration, WithoutStepsItIsACopy)
{
    const auto grainy = noisy(*clean(), 0.03f);
    const auto copy = restorePicture(*grainy, {0.0f, -1.0f, std::numeric_limits<float>::quiet_NaN(), 0.0f}, {});
    EXPECT_TRUE(sameBytes(*copy, *grainy));
    EXPECT_NE(copy->data(), grainy->data());
    EXPECT_EQ(copy->colorProfile(), grainy->colorProfile());
}

TEST(Restoration, BrokenPixelsKeepTheirBits)
{
    auto grainy = noisy(*clean(), 0.03f);
    const auto whole = restorePicture(*grainy, {1.0f, 0.0f, 0.0f, 0.0f}, {});
    const Pixel broken = {std::numeric_limits<float>::quiet_NaN(), std::numeric_limits<float>::infinity(), 1e20f};
    grainy->row(40)[50] = broken;
    const auto restored = restorePicture(*grainy, {1.0f, 0.0f, 0.0f, 0.0f}, {});
    EXPECT_EQ(std::memcmp(&restored->row(40)[50], &broken, sizeof broken), 0);
    for (int y = 0; y < 320; ++y)
        for (int x = 0; x < 384; ++x) {
            if (x == 50 && y == 40)
                continue;
            ASSERT_TRUE(std::isfinite(restored->row(y)[x].g));
            if (std::abs(x - 50) > 120 || std::abs(y - 40) > 120) {
                ASSERT_NEAR(restored->row(y)[x].g, whole->row(y)[x].g, 0.004f) << x << ' ' << y;
            }
        }
}

TEST(Restoration, LinearPicturesAreJudgedAsTheyAreSeen)
{
    const auto encoded = noisy(*clean(), 0.03f);
    PicturePtr linear;
    encoded->colorTransform(linear, ColorProfileType::linearMelissaRGB(), true);
    const auto restored = restorePicture(*linear, only(&RestorationSettings::noise), {});
    EXPECT_TRUE(restored->colorProfile()->isLinear());
    PicturePtr back;
    restored->colorTransform(back, ColorProfileType::melissaRGB(), true);
    EXPECT_GT(psnr(*back, *quieter(*encoded)), 60.0);
}

TEST(Restoration, ReportsProgressAndStops)
{
    const auto grainy = noisy(*clean(), 0.03f);
    std::vector<float> seen;
    std::size_t polls = 0;
    std::size_t pollsAtFaces = 0;
    constexpr float kFacesFrom = 0.9f; // share of the progress before them
    const RunControl watching(
        [&] {
            ++polls;
            return false;
        },
        [&](float done) {
            seen.push_back(done);
            if (done <= kFacesFrom)
                pollsAtFaces = polls + 1; // the poll that follows this report is the last one before the faces
        });
    ASSERT_TRUE(restorePicture(*grainy, {}, watching));
    ASSERT_GT(seen.size(), 6u);
    EXPECT_TRUE(std::is_sorted(seen.begin(), seen.end()));
    EXPECT_EQ(seen.front(), 0.0f);
    EXPECT_EQ(seen.back(), 1.0f);
    EXPECT_GT(polls, pollsAtFaces) << "polled while faces are searched";

    const std::size_t live = MemoryManager::instance().liveBytes();
    const auto stopsAt = [&](std::size_t last) {
        std::size_t calls = 0;
        const RunControl stopping([&] { return ++calls >= last; });
        try {
            (void)restorePicture(*grainy, {}, stopping);
            ADD_FAILURE() << "not stopped by poll " << last;
        } catch (const FailureError& error) {
            EXPECT_EQ(error.failure().kind, FailureKind::Cancelled);
        }
        EXPECT_EQ(lastFailure(), cancelledFailure());
        return calls;
    };
    for (std::size_t last = 1; last <= pollsAtFaces; last += 3)
        EXPECT_EQ(stopsAt(last), last) << "polled once more";
    EXPECT_GE(stopsAt(pollsAtFaces + 1), pollsAtFaces + 1);
    EXPECT_EQ(MemoryManager::instance().liveBytes(), live);
}

TEST(Restoration, StopsWithinATile)
{
    const auto soft = blurred(*shapes(), 1.4);
    std::size_t polls = 0;
    std::size_t reports = 0;
    const auto watch = [&](std::size_t stopAt) {
        polls = reports = 0;
        const RunControl control([&] { return ++polls >= stopAt; }, [&](float) { ++reports; });
        return restorePicture(*soft, only(&RestorationSettings::blur), control);
    };
    ASSERT_TRUE(watch(std::numeric_limits<std::size_t>::max()));
    const std::size_t all = polls;
    ASSERT_GT(all, reports) << "polled more often than once for each report";
    for (std::size_t last = 1; last <= all; ++last) {
        EXPECT_THROW((void)watch(last), FailureError) << last;
        EXPECT_EQ(polls, last) << "polled once more";
    }
}

TEST(Restoration, AwkwardSizes)
{
    EXPECT_THROW((void)restorePicture(*drawn(0, 5, scene), {}, {}), std::invalid_argument);
    for (const auto& [width, height] : {std::pair{1, 1}, {1, 70}, {7, 9}, {8, 8}, {65, 64}, {129, 67}, {300, 3}}) {
        const auto restored = restorePicture(*noisy(*clean(width, height), 0.03f), {}, {});
        ASSERT_TRUE(restored);
        EXPECT_EQ(restored->size(), _Size<int>(width, height));
        for (std::size_t i = 0; i < restored->pixelCount(); ++i)
            ASSERT_TRUE(std::isfinite(restored->data()[i].r)) << width << 'x' << height;
    }
}

TEST(Restoration, IsTheSameForAnyNumberOfThreads)
{
    const auto grainy = noisy(*clean(), 0.03f);
    const auto restored = [&](int threads) {
        const WorkerLimit limit(threads);
        return restorePicture(*grainy, {}, {});
    };
    EXPECT_TRUE(sameBytes(*restored(1), *restored(4)));
}

} // namespace
} // namespace orvo
