#include "orvo_test_pictures.hpp"
#include "upscaling/filter_bank.hpp"
#include "upscaling/noise_level.hpp"

#include <orvo/upscaling.hpp>
#include <orvo_common/memory_manager.hpp>
#include <orvo_core/parallel.hpp>
#include <orvo_logger/log_capture.hpp>

#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <iterator>
#include <numbers>
#include <thread>

namespace {

using orvo::ColorProfileType;
using orvo::LogCapture;
using orvo::LogMessageType;
using orvo::MaskImage;
using orvo::MemoryManager;
using orvo::mlCacheInfo;
using orvo::PicturePointer;
using orvo::UpscaleAISettings;
using orvo::upscaleX;
using orvo::WorkerLimit;
using test::Picture;
using test::Pixel;

PicturePointer upscaled(const PicturePointer& picture, const UpscaleAISettings& settings = {},
                        const std::shared_ptr<const orvo::_ImageData<float>>& mask = nullptr)
{
    return upscaleX(picture, settings, mask, nullptr, mlCacheInfo());
}

PicturePointer cubic(const Picture& picture, int scale)
{
    return picture.resize({picture.width() * scale, picture.height() * scale}, {}, true);
}

PicturePointer gray(orvo::_Size<int> size, const std::function<double(double, double)>& value)
{
    return test::drawn(size, ColorProfileType::melissaRGB(), [&](int x, int y) {
        const auto v = static_cast<float>(value(x + 0.5, y + 0.5));
        return Pixel{v, v, v};
    });
}

PicturePointer normalNoise(orvo::_Size<int> size, float level, float deviation, unsigned seed)
{
    std::mt19937 random(seed);
    std::normal_distribution<float> values(level, deviation);
    return test::drawn(size, ColorProfileType::melissaRGB(), [&](int, int) {
        const float r = values(random);
        const float g = values(random);
        return Pixel{r, g, values(random)};
    });
}

double deviation(const Picture& picture)
{
    double sum = 0.0;
    double squares = 0.0;
    for (std::size_t i = 0; i < picture.pixelCount(); ++i) {
        const Pixel& p = picture.data()[i];
        for (const double v : {p.r, p.g, p.b}) {
            sum += v;
            squares += v * v;
        }
    }
    const double count = 3.0 * static_cast<double>(picture.pixelCount());
    return std::sqrt(squares / count - sum / count * sum / count);
}

double meanSquare(const Picture& a, const Picture& b)
{
    double sum = 0.0;
    for (std::size_t i = 0; i < a.pixelCount(); ++i) {
        const Pixel& p = a.data()[i];
        const Pixel& q = b.data()[i];
        for (const double d : {p.r - q.r, p.g - q.g, p.b - q.b})
            sum += d * d;
    }
    return sum / (3.0 * static_cast<double>(a.pixelCount()));
}

// Decibels by which `found` is closer to `truth` than `plain`.
double gain(const Picture& found, const Picture& plain, const Picture& truth)
{
    return 10.0 * std::log10(meanSquare(plain, truth) / meanSquare(found, truth));
}

TEST(UpscaleSettings, HaveTheDocumentedDefaults)
{
    const UpscaleAISettings settings;
    EXPECT_EQ(settings.passes, 1);
    EXPECT_EQ(settings.denoise, 0);
    EXPECT_TRUE(settings.faces);
    EXPECT_FALSE(settings.crisp);
    EXPECT_FALSE(settings.builtIn);
    const mlCacheInfo info;
    EXPECT_TRUE(info.key.empty());
    EXPECT_EQ(info.size, orvo::_Size<int>());
}

TEST(Upscaling, GivesTheSizeAndTheProfileOfEveryPass)
{
    const auto picture = test::noise({37, 21}, ColorProfileType::melissaRGB(), 1);
    for (const int passes : {1, 2, 3, 4}) {
        UpscaleAISettings settings;
        settings.passes = passes;
        const auto result = upscaled(picture, settings);
        ASSERT_TRUE(result);
        EXPECT_EQ(result->size(), orvo::_Size<int>(37 << passes, 21 << passes));
        EXPECT_EQ(result->colorProfile(), picture->colorProfile());
    }
}

TEST(Upscaling, LeavesConstantsExactly)
{
    UpscaleAISettings crisp;
    crisp.crisp = true;
    for (const orvo::_Size<int> size : test::kAwkwardSizes) {
        if (size.width == 0)
            continue;
        for (const Pixel colour : {Pixel{0.3f, 0.7f, 0.1f}, Pixel{0, 0, 0}, Pixel{1, 1, 1}, Pixel{-0.2f, 1.6f, 3.0f}}) {
            const auto picture = test::drawn(size, ColorProfileType::melissaRGB(), [&](int, int) { return colour; });
            for (const auto& settings : {UpscaleAISettings(), crisp}) {
                const auto result = upscaled(picture, settings);
                ASSERT_TRUE(result);
                for (std::size_t i = 0; i < result->pixelCount(); ++i)
                    ASSERT_EQ(result->data()[i], colour) << i;
            }
        }
    }
}

TEST(Upscaling, ShiftsNothing)
{
    constexpr double kPeriod = 23.0; // pixels of the small picture, a prime
    const auto wave = [](double x, double y) {
        return 0.5 + 0.2 * std::sin(2.0 * std::numbers::pi * x / kPeriod) +
               0.2 * std::sin(2.0 * std::numbers::pi * y / (kPeriod + 4.0));
    };
    const auto result = upscaled(gray({120, 90}, wave));
    ASSERT_TRUE(result);
    // The shift with the smallest error, from the slopes of the wave, away from the border.
    double worst = 0.0;
    double acrossTop = 0.0;
    double acrossBottom = 0.0;
    double downTop = 0.0;
    double downBottom = 0.0;
    for (int y = 16; y < result->height() - 16; ++y)
        for (int x = 16; x < result->width() - 16; ++x) {
            const double u = (x + 0.5) / 2.0;
            const double v = (y + 0.5) / 2.0;
            const double error = static_cast<double>(result->row(y)[x].g) - wave(u, v);
            const double across = wave(u + 0.5, v) - wave(u - 0.5, v);
            const double down = wave(u, v + 0.5) - wave(u, v - 0.5);
            worst = std::max(worst, std::abs(error));
            acrossTop += error * across;
            acrossBottom += across * across;
            downTop += error * down;
            downBottom += down * down;
        }
    EXPECT_LT(worst, 0.01);
    EXPECT_LT(std::abs(acrossTop / acrossBottom), 0.01); // pixels of the small picture; half a pixel would be 0.25
    EXPECT_LT(std::abs(downTop / downBottom), 0.01);
}

TEST(Upscaling, KeepsSlopes)
{
    const auto ramp = [](double x, double y) { return 0.1 + 0.004 * x + 0.002 * y; };
    const auto result = upscaled(gray({80, 60}, ramp));
    ASSERT_TRUE(result);
    for (int y = 16; y < result->height() - 16; ++y)
        for (int x = 16; x < result->width() - 16; ++x)
            ASSERT_NEAR(result->row(y)[x].r, ramp((x + 0.5) / 2.0, (y + 0.5) / 2.0), 2e-5);
}

TEST(Upscaling, DrawsEdgesBetterThanCubic)
{
    const test::Discs discs({640, 480});
    // The mean over a pixel, from 4 x 4 points in it.
    const auto drawn = [&](orvo::_Size<int> size, double pixel) {
        return gray(size, [&](double x, double y) {
            double sum = 0.0;
            for (int i = 0; i < 4; ++i)
                for (int j = 0; j < 4; ++j)
                    sum += discs.at((x - 0.375 + 0.25 * i) * pixel, (y - 0.375 + 0.25 * j) * pixel);
            return sum / 16.0;
        });
    };
    const auto truth = drawn({640, 480}, 1.0);
    EXPECT_GT(gain(*upscaled(drawn({320, 240}, 2.0)), *cubic(*drawn({320, 240}, 2.0), 2), *truth), 2.0);
    UpscaleAISettings twice;
    twice.passes = 2;
    EXPECT_GT(gain(*upscaled(drawn({160, 120}, 4.0), twice), *cubic(*drawn({160, 120}, 4.0), 4), *truth), 1.0);
}

TEST(Upscaling, AmplifiesNoNoise)
{
    for (const int passes : {1, 2})
        for (const float sigma : {0.01f, 0.02f, 0.04f}) {
            const auto picture = normalNoise({192, 160}, 0.5f, sigma, 3);
            UpscaleAISettings settings;
            settings.passes = passes;
            EXPECT_LT(deviation(*upscaled(picture, settings)), 1.03 * deviation(*cubic(*picture, 1 << passes)))
                << sigma << ", passes " << passes;
        }
    // Such faint noise is hard to distinguish from detail; it must not grow by more than a tenth.
    const auto faint = normalNoise({192, 160}, 0.5f, 0.004f, 3);
    EXPECT_LT(deviation(*upscaled(faint)), 1.1 * deviation(*faint));
}

TEST(Upscaling, MeasuresNoiseAndOnlyNoise)
{
    for (const float sigma : {0.005f, 0.02f}) {
        // Luma mixes the channels, whose noise is independent.
        const double luma = sigma * std::sqrt(0.3 * 0.3 + 0.6 * 0.6 + 0.1 * 0.1);
        EXPECT_NEAR(orvo::details::noiseLevel(*normalNoise({256, 256}, 0.5f, sigma, 5)), luma, 0.15 * luma);
    }
    const test::Discs discs({320, 240});
    const auto clean = gray({320, 240}, [&](double x, double y) { return discs.at(x, y); });
    EXPECT_LT(orvo::details::noiseLevel(*clean), 0.002f);
    EXPECT_EQ(orvo::details::noiseLevel(*gray({320, 240}, [](double, double) { return 0.5; })), 0.0f);
    EXPECT_EQ(orvo::details::noiseLevel(*gray({9, 9}, [](double x, double) { return x; })), 0.0f);
}

TEST(Upscaling, LimitsOvershootAtSteps)
{
    for (const double angle : {0.0, 0.3, 0.8, 1.57}) {
        const auto picture = gray({64, 64}, [&](double x, double y) {
            const double distance = (x - 32.0) * std::cos(angle) + (y - 32.0) * std::sin(angle);
            return 0.5 + 0.3 * std::clamp(2.0 * distance, -1.0, 1.0);
        });
        for (const bool crisp : {false, true}) {
            UpscaleAISettings settings;
            settings.crisp = crisp;
            const auto result = upscaled(picture, settings);
            ASSERT_TRUE(result);
            for (std::size_t i = 0; i < result->pixelCount(); ++i) {
                ASSERT_GT(result->data()[i].g, 0.2f - 0.06f) << angle;
                ASSERT_LT(result->data()[i].g, 0.8f + 0.06f) << angle;
            }
        }
    }
}

TEST(Upscaling, CrispSteepensEdgesWithoutOvershoot)
{
    const auto soft = gray({96, 48}, [](double x, double) { return 0.5 + 0.3 * std::tanh((x - 48.0) / 2.0); });
    UpscaleAISettings crisp;
    crisp.crisp = true;
    const auto plain = upscaled(soft);
    const auto result = upscaled(soft, crisp);
    const auto slope = [](const Picture& p) { return p.row(48)[96].g - p.row(48)[95].g; };
    EXPECT_GT(slope(*result), 1.1f * slope(*plain));
    const auto range = [](const Picture& p) {
        const auto [low, high] =
            std::minmax_element(p.row(48), p.row(49), [](const Pixel& a, const Pixel& b) { return a.g < b.g; });
        return std::pair(low->g, high->g);
    };
    EXPECT_GE(range(*result).first, range(*plain).first);
    EXPECT_LE(range(*result).second, range(*plain).second);
}

TEST(Upscaling, CrispLeavesNoiseNoStrongerThanCubic)
{
    for (const float sigma : {0.004f, 0.02f, 0.05f, 0.1f, 0.2f})
        for (const bool coloured : {true, false}) {
            auto picture = normalNoise({224, 192}, 0.5f, sigma, 3);
            if (!coloured)
                for (std::size_t i = 0; i < picture->pixelCount(); ++i)
                    picture->data()[i].g = picture->data()[i].b = picture->data()[i].r;
            for (const int passes : {1, 2, 3})
                for (const int denoise : {0, 1}) {
                    UpscaleAISettings settings;
                    settings.passes = passes;
                    settings.denoise = denoise;
                    settings.crisp = true;
                    EXPECT_LT(deviation(*upscaled(picture, settings)), 1.01 * deviation(*cubic(*picture, 1 << passes)))
                        << sigma << ", coloured " << coloured << ", passes " << passes << ", denoise " << denoise;
                }
        }
}

TEST(Upscaling, CrispSeparatesNoiseFromEdgesPlaceByPlace)
{
    // A soft edge in the left third, strong noise in the right third, a flat middle.
    std::mt19937 random(7);
    std::normal_distribution<float> values(0.0f, 0.1f);
    const auto soft = [](double x, double) { return 0.5 + 0.3 * std::tanh((x - 48.0) / 2.0); };
    const auto picture = gray({288, 96}, [&](double x, double y) {
        return x < 192.0 ? soft(x, y) : 0.8 + static_cast<double>(values(random));
    });
    UpscaleAISettings crisp;
    crisp.crisp = true;
    const auto result = upscaled(picture, crisp);
    const orvo::_Rect<int> noisy(416, 32, 128, 128);
    EXPECT_LT(deviation(*result->copy(noisy)), 1.005 * deviation(*cubic(*picture, 2)->copy(noisy)));
    const orvo::_Rect<int> edge(0, 0, 192, 192);
    const auto alone = upscaled(gray({288, 96}, soft), crisp);
    EXPECT_LT(test::largestChange(*result->copy(edge), *alone->copy(edge)), 0.01f) << "as crisp as without the noise";
}

TEST(Upscaling, CrispSteepensEdgesInNoiseToo)
{
    std::mt19937 random(7);
    std::normal_distribution<float> values(0.0f, 0.02f);
    const auto picture = gray({192, 128}, [&](double x, double) {
        return 0.5 + 0.3 * std::tanh((x - 96.0) / 2.0) + static_cast<double>(values(random));
    });
    UpscaleAISettings crisp;
    crisp.crisp = true;
    const auto meanSlope = [](const Picture& p) {
        double sum = 0.0;
        for (int y = 32; y < p.height() - 32; ++y)
            sum += static_cast<double>(p.row(y)[194].g - p.row(y)[189].g);
        return sum;
    };
    EXPECT_GT(meanSlope(*upscaled(picture, crisp)), 1.1 * meanSlope(*upscaled(picture)));
}

TEST(Upscaling, DenoiseSmoothsMoreAndMoreAndKeepsEdges)
{
    std::mt19937 random(11);
    std::normal_distribution<float> values(0.0f, 0.02f);
    const auto picture = gray(
        {160, 120}, [&](double x, double) { return (x < 80.0 ? 0.3 : 0.7) + static_cast<double>(values(random)); });
    double before = 1.0;
    for (const int denoise : {0, 1, 2, 3}) {
        UpscaleAISettings settings;
        settings.denoise = denoise;
        const auto result = upscaled(picture, settings);
        const auto flat = result->copy({200, 40, 100, 160});
        EXPECT_LT(deviation(*flat), 0.85 * before) << denoise;
        before = deviation(*flat);
        EXPECT_LT(result->row(120)[150].g, 0.4f);
        EXPECT_GT(result->row(120)[170].g, 0.6f);
    }
}

TEST(Upscaling, KeepsColoursOutsideOfTheScale)
{
    const auto picture = test::drawn({64, 64}, ColorProfileType::melissaRGB(), [](int x, int y) {
        return (x / 8 + y / 8) % 2 == 0 ? Pixel{1.4f, 0.2f, -0.1f} : Pixel{1.2f, 0.4f, -0.3f};
    });
    const auto result = upscaled(picture);
    const Pixel p = result->row(8)[8];
    EXPECT_NEAR(p.r, 1.4f, 0.02f);
    EXPECT_NEAR(p.b, -0.1f, 0.02f);
}

TEST(Upscaling, ReturnsFiniteValuesForAllInput)
{
    const auto picture = test::noise({40, 40}, ColorProfileType::melissaRGB(), 2);
    picture->row(10)[10] = {test::kNaN, 0.5f, 0.5f};
    picture->row(20)[30] = {0.5f, test::kInfinity, -test::kInfinity};
    EXPECT_TRUE(test::finite(*upscaled(picture)));
}

TEST(Upscaling, IsTheSameForAnyNumberOfThreads)
{
    auto picture = test::noise({300, 210}, ColorProfileType::melissaRGB(), 9, 0.2f, 0.9f);
    const auto mask = std::make_shared<MaskImage>(picture->size(), 0.0f);
    for (int y = 0; y < mask->height(); ++y)
        for (int x = 0; x < mask->width(); ++x)
            mask->row(y)[x] = static_cast<float>(x) / 300.0f;
    UpscaleAISettings settings;
    settings.passes = 2;
    settings.denoise = 1;
    settings.crisp = true;
    PicturePointer single;
    {
        const WorkerLimit limit(1);
        single = upscaled(picture, settings, mask);
    }
    const WorkerLimit limit(2);
    EXPECT_TRUE(test::bytesEqual(*single, *upscaled(picture, settings, mask)));
}

TEST(Upscaling, MaskSelectsWhereTheMethodApplies)
{
    const auto picture = test::noise({60, 50}, ColorProfileType::melissaRGB(), 4);
    const auto whole = upscaled(picture);
    const auto plain = cubic(*picture, 2);
    EXPECT_LT(test::largestChange(*upscaled(picture, {}, std::make_shared<MaskImage>(picture->size(), 0.0f)), *plain),
              1e-6f);
    EXPECT_TRUE(test::bytesEqual(*upscaled(picture, {}, std::make_shared<MaskImage>(picture->size(), 1.0f)), *whole));
    const auto half = std::make_shared<MaskImage>(picture->size(), 0.0f);
    half->fillRect(1.0f, {30, 0, 30, 50});
    const auto mixed = upscaled(picture, {}, half);
    EXPECT_LT(test::largestChange(*mixed->copy({0, 0, 56, 100}), *plain->copy({0, 0, 56, 100})), 1e-6f);
    EXPECT_TRUE(test::bytesEqual(*mixed->copy({64, 0, 56, 100}), *whole->copy({64, 0, 56, 100})));
    EXPECT_GT(test::largestChange(*whole, *plain), 0.05f);
}

TEST(Upscaling, StopsOnCancelAndReturnsNothing)
{
    const LogCapture log;
    const auto picture = test::noise({400, 300}, ColorProfileType::melissaRGB(), 4);
    const std::size_t before = MemoryManager::instance().liveBytes();
    const std::atomic<bool> cancel = true;
    EXPECT_FALSE(upscaleX(picture, {}, nullptr, &cancel, mlCacheInfo()));
    EXPECT_EQ(MemoryManager::instance().liveBytes(), before);
    EXPECT_TRUE(log.lines().empty());
    const std::atomic<bool> goOn = false;
    EXPECT_TRUE(upscaleX(picture, {}, nullptr, &goOn, mlCacheInfo()));
}

TEST(Upscaling, StopsBetweenTilesOnCancel)
{
    const auto picture = test::noise({2400, 1600}, ColorProfileType::melissaRGB(), 4);
    const std::size_t before = MemoryManager::instance().liveBytes();
    std::atomic<bool> cancel = false;
    std::atomic<bool> done = false;
    std::thread user([&] {
        // The plane of the result exists once the filters run.
        while (!done && MemoryManager::instance().liveBytes() < before + 3 * picture->pixelCount() * sizeof(Pixel))
            std::this_thread::yield();
        cancel = true;
    });
    UpscaleAISettings settings;
    settings.passes = 2;
    EXPECT_FALSE(upscaleX(picture, settings, nullptr, &cancel, mlCacheInfo()));
    done = true;
    user.join();
    EXPECT_EQ(MemoryManager::instance().liveBytes(), before);
}

TEST(Upscaling, RefusesInvalidRequests)
{
    const auto picture = test::noise({40, 30}, ColorProfileType::melissaRGB(), 4);
    const auto refused = [](const PicturePointer& image, const UpscaleAISettings& settings,
                            const std::shared_ptr<const orvo::_ImageData<float>>& mask, const std::string& named) {
        const LogCapture log;
        EXPECT_FALSE(upscaleX(image, settings, mask, nullptr, mlCacheInfo()));
        const auto lines = log.lines();
        ASSERT_EQ(lines.size(), 1u) << named;
        EXPECT_EQ(static_cast<int>(lines[0].type), 4);
        EXPECT_NE(lines[0].text.find(named), std::string::npos) << lines[0].text;
    };
    for (const int passes : {0, -1, 5}) {
        UpscaleAISettings settings;
        settings.passes = passes;
        refused(picture, settings, nullptr, "passes");
    }
    for (const int denoise : {-1, 4}) {
        UpscaleAISettings settings;
        settings.denoise = denoise;
        refused(picture, settings, nullptr, "denoise");
    }
    refused(nullptr, {}, nullptr, "picture");
    refused(std::make_shared<Picture>(orvo::_Size<int>(0, 0), ColorProfileType::melissaRGB()), {}, nullptr, "picture");
    refused(picture, {}, std::make_shared<MaskImage>(orvo::_Size<int>(40, 31), 1.0f), "40 x 31");
    UpscaleAISettings most;
    most.passes = 4;
    refused(std::make_shared<Picture>(orvo::_Size<int>(4000, 1000), ColorProfileType::melissaRGB()), most, nullptr,
            "Upscaling: 4000 x 1000 pixels enlarged 16 times would be 64000 x 16000, 1024 million pixels, but at most "
            "1000 million can be made; take fewer passes or a smaller picture");
}

TEST(Upscaling, ReportsTheSizeOfTheResultBeforehand)
{
    for (const int passes : {1, 2, 3, 4}) {
        UpscaleAISettings settings;
        settings.passes = passes;
        EXPECT_EQ(orvo::upscaledSize({37, 21}, settings), orvo::_Size<int>(37 << passes, 21 << passes));
    }
    const auto refused = [](orvo::_Size<int> size, int passes, const std::string& named) {
        const LogCapture log;
        UpscaleAISettings settings;
        settings.passes = passes;
        EXPECT_EQ(orvo::upscaledSize(size, settings), orvo::_Size<int>()) << named;
        const auto lines = log.texts(LogMessageType::Error);
        ASSERT_EQ(lines.size(), 1u) << named;
        EXPECT_NE(lines[0].find(named), std::string::npos) << lines[0];
    };
    refused({0, 5}, 1, "picture");
    refused({4, 4}, 5, "passes");
    refused({20000, 15000}, 1,
            "40000 x 30000, 1200 million pixels, but at most 1000 million can be made; take a smaller");
    refused({50000, 5001}, 1, "1001 million");  // 1000.2
    refused({2000000000, 1}, 1, "can be made"); // few enough pixels for the reader, but too long a side
}

TEST(Upscaling, UsesThePictureAndTheResultOnly)
{
    const auto picture = test::noise({900, 700}, ColorProfileType::melissaRGB(), 4);
    auto& memory = MemoryManager::instance();
    const WorkerLimit limit(2);
    const std::size_t before = memory.liveBytes();
    memory.resetPeak();
    auto result = upscaled(picture);
    // Two threads with one tile each.
    EXPECT_LT(memory.peakBytes(), memory.liveBytes() + 2 * (std::size_t{1} << 20));
    EXPECT_LT(memory.liveBytes(), before + result->pixelCount() * sizeof(Pixel) * 5 / 4);
    UpscaleAISettings crisp;
    crisp.crisp = true;
    result.reset();
    memory.resetPeak();
    result = upscaled(picture, crisp);
    const std::size_t row = static_cast<std::size_t>(result->width()) * sizeof(Pixel);
    EXPECT_LT(memory.peakBytes(),
              memory.liveBytes() + row * static_cast<std::size_t>(result->height()) / 6 + 2 * 100 * row);
    result.reset();
    EXPECT_EQ(memory.liveBytes(), before);
}

TEST(Upscaling, CachesResultsUnderAKeyOnly)
{
    orvo::clearUpscaleCache();
    const std::size_t before = MemoryManager::instance().liveBytes();
    {
        const auto first = test::noise({50, 40}, ColorProfileType::melissaRGB(), 1);
        const auto second = test::noise({50, 40}, ColorProfileType::melissaRGB(), 2);
        const mlCacheInfo info{"portrait", {50, 40}};
        const auto made = upscaleX(first, {}, nullptr, nullptr, info);
        const auto original = made->copy({});
        made->row(0)[0] = {9.0f, 9.0f, 9.0f}; // the caller's copy
        // The key stands for the same pixels, so the cached result is returned.
        EXPECT_TRUE(test::bytesEqual(*upscaleX(second, {}, nullptr, nullptr, info), *original));
        const auto fresh = upscaled(second);
        EXPECT_FALSE(test::bytesEqual(*fresh, *original));
        EXPECT_TRUE(test::bytesEqual(*upscaleX(second, {}, nullptr, nullptr, {"portrait", {40, 50}}), *fresh));
        EXPECT_TRUE(test::bytesEqual(*upscaleX(second, {}, nullptr, nullptr, {"", {50, 40}}), *fresh));
        EXPECT_TRUE(test::bytesEqual(*upscaleX(second, {}, nullptr, nullptr, {"other", {50, 40}}), *fresh));
        UpscaleAISettings crisp;
        crisp.crisp = true;
        EXPECT_TRUE(test::bytesEqual(*upscaleX(second, crisp, nullptr, nullptr, info), *upscaled(second, crisp)));
    }
    EXPECT_GT(MemoryManager::instance().liveBytes(), before);
    orvo::clearUpscaleCache();
    EXPECT_EQ(MemoryManager::instance().liveBytes(), before);
}

TEST(FilterBanks, RefusesDamagedBytes)
{
    using orvo::details::FilterBanks;
    std::ifstream file(ORVO_UPSCALE_FILTERS, std::ios::binary);
    const std::vector<unsigned char> bytes((std::istreambuf_iterator<char>(file)), {});
    ASSERT_LT(bytes.size(), std::size_t{1} << 20);
    const FilterBanks banks = FilterBanks::parse(bytes);
    EXPECT_EQ(banks.all().size(), FilterBanks::builtIn().all().size());
    EXPECT_EQ(banks.forNoise(0.0f).noise, 0.0f);
    EXPECT_EQ(banks.forNoise(1.0f).noise, banks.all().back().noise);
    for (std::size_t size = 0; size < bytes.size(); size += 1 + size / 3)
        EXPECT_THROW((void)FilterBanks::parse({bytes.data(), size}), std::runtime_error) << size;
    auto longer = bytes;
    longer.push_back(0);
    EXPECT_THROW((void)FilterBanks::parse(longer), std::runtime_error);
    // Damages every byte of the head and of the first nodes: a result or an exception, and no access outside the
    // tables.
    for (std::size_t i = 0; i < 400; ++i) {
        auto damaged = bytes;
        damaged[i] ^= 0xFF;
        try {
            const FilterBanks accepted = FilterBanks::parse(damaged);
            for (const auto& bank : accepted.all())
                for (const auto& node : bank.nodes)
                    ASSERT_LT(node.below + (std::isnan(node.threshold) ? 0 : 1), bank.nodes.size());
        } catch (const std::runtime_error&) {
        }
    }
}

} // namespace
