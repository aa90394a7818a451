#include "disc_kernels.hpp"
#include "support/compare.hpp"

#include <orvo_common/memory_manager.hpp>
#include <orvo_core/parallel.hpp>
#include <scenes/focus_series.hpp>
#include <scenes/metrics.hpp>
#include <scenes/sharpness.hpp>

#include <gmock/gmock.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <functional>
#include <numbers>

namespace orvo::scenes {
namespace {

using test::sameBytes;
using testing::HasSubstr;
using testing::ThrowsMessage;

FocusSeriesSettings ofSize(int width, int height)
{
    FocusSeriesSettings settings;
    settings.size = {width, height};
    return settings;
}

// A lens with such a small aperture that everything is sharp to well below a grey level.
FocusSeriesSettings pinhole(int width, int height, int frames)
{
    FocusSeriesSettings settings = ofSize(width, height);
    settings.lens.aperture = 4000.0;
    settings.frames = frames;
    return settings;
}

// One frame, focused at a distance.
std::shared_ptr<Picture> focusedAt(FocusSeriesSettings settings, double distance)
{
    settings.frames = 1;
    settings.nearFocus = distance;
    settings.farFocus = distance;
    return FocusSeries(settings).frame(0);
}

float difference(const PixelRGB<float>& a, const PixelRGB<float>& b)
{
    return std::max({std::abs(a.r - b.r), std::abs(a.g - b.g), std::abs(a.b - b.b)});
}

// Each pixel from the frame that is the sharpest according to the truth.
std::shared_ptr<Picture> bestFrames(const FocusSeries& series)
{
    auto result = std::make_shared<Picture>(series.size(), ColorProfileType::melissaRGB());
    const auto frames = series.frames();
    const auto sharpest = series.sharpestFrame();
    for (std::size_t i = 0; i < result->pixelCount(); ++i)
        result->data()[i] = frames[static_cast<std::size_t>(sharpest->data()[i])]->data()[i];
    return result;
}

TEST(CircleOfConfusion, IsThatOfTheConeBehindTheLens)
{
    // The light of a point converges behind the lens at its image; the sensor cuts the cone elsewhere.
    const FocusLens lens{50.0, 2.8, 0.01};
    const auto imageDistance = [&](double distance) { return 1.0 / (1000.0 / lens.focalLength - 1.0 / distance); }; // m
    for (const double focus : {0.3, 0.7, 5.0})
        for (const double distance : {0.2, 0.7, 1.0, 100.0}) {
            const double meets = imageDistance(distance);
            const double cone = lens.focalLength / lens.aperture * std::abs(meets - imageDistance(focus)) / meets;
            EXPECT_NEAR(circleOfConfusion(lens, focus, distance), cone / lens.pixelPitch, 1e-6 * cone / lens.pixelPitch)
                << focus << " m, " << distance << " m";
        }
    EXPECT_EQ(circleOfConfusion(lens, 0.7, 0.7), 0.0);
}

TEST(CircleOfConfusion, RefusesImpossibleLenses)
{
    EXPECT_THROW((void)circleOfConfusion({}, 0.035, 1.0), std::invalid_argument);
    EXPECT_THROW((void)circleOfConfusion({}, 1.0, 0.0), std::invalid_argument);
    EXPECT_THROW((void)circleOfConfusion({.aperture = 0.0}, 1.0, 2.0), std::invalid_argument);
    EXPECT_THROW((void)circleOfConfusion({.pixelPitch = NAN}, 1.0, 2.0), std::invalid_argument);
}

TEST(FocusSeries, ShowsEverythingSharpSomewhere)
{
    const FocusSeries series(ofSize(480, 320));
    const auto depth = series.depth();
    const auto sharpest = series.sharpestFrame();
    double widest = 0.0;
    std::vector<int> share(static_cast<std::size_t>(series.frameCount()));
    for (std::size_t i = 0; i < depth->pixelCount(); ++i) {
        const int frame = static_cast<int>(sharpest->data()[i]);
        ++share[static_cast<std::size_t>(frame)];
        widest = std::max(widest, circleOfConfusion(series.settings().lens, series.focusDistance(frame),
                                                    static_cast<double>(depth->data()[i])));
    }
    EXPECT_LT(widest, 0.7);
    for (const int pixels : share)
        EXPECT_GT(pixels, 480 * 320 / 100) << "each frame is the sharpest somewhere";
}

TEST(FocusSeries, BestFramesMakeTheTruth)
{
    const FocusSeries series(ofSize(720, 540));
    const auto truth = series.truth();
    EXPECT_GE(psnr(*bestFrames(series), *truth), 42.0);
    for (const auto& frame : series.frames())
        EXPECT_LT(psnr(*frame, *truth), 41.0) << "a single frame is not a stack";
}

TEST(FocusSeries, TextureGoesDownToThePixelExceptOnTheNotice)
{
    FocusSeriesSettings settings = ofSize(720, 540);
    settings.frames = 3;
    const auto plain = sumModifiedLaplacian(*FocusSeries(settings).truth(), 1, 3);
    settings.texture = 0.6;
    const FocusSeries series(settings);
    const auto textured = sumModifiedLaplacian(*series.truth(), 1, 3);
    const auto mean = [](const _ImageData<float>& measure, const _Rect<int>& rect) {
        double sum = 0.0;
        for (int y = rect.y; y < rect.y + rect.height; ++y)
            for (int x = rect.x; x < rect.x + rect.width; ++x)
                sum += static_cast<double>(measure.row(y)[x]);
        return sum / (rect.width * rect.height);
    };
    const _Rect<int> whole(0, 0, 720, 540);
    EXPECT_GT(mean(*textured, whole), 1.5 * mean(*plain, whole));
    // Below the lettering of the notice: the composition is 720 pixels high for 1, its middle at (360, 270).
    const _Rect<int> notice(300, 80, 100, 10);
    EXPECT_LT(mean(*textured, notice), 0.1 * mean(*textured, whole));
    // Frames stay in the geometry that the maps state: seen through a pinhole, the reference is the truth.
    FocusSeriesSettings sharp = pinhole(480, 320, 3);
    sharp.texture = 0.6;
    EXPECT_GT(psnr(*FocusSeries(sharp).frame(1), *FocusSeries(sharp).truth()), 60.0);
    settings.texture = 1.1;
    EXPECT_THAT([&] { FocusSeries{settings}; }, ThrowsMessage<std::invalid_argument>(HasSubstr("texture")));
}

TEST(FocusSeries, IsTexturedNearlyEverywhere)
{
    const auto measure = sumModifiedLaplacian(*FocusSeries(ofSize(720, 540)).truth(), 1, 9);
    constexpr float kPlain = 81.0f * 0.01f; // a hundredth of full scale in each pixel of the window
    const auto plain = std::count_if(measure->data(), measure->data() + measure->pixelCount(),
                                     [](float value) { return value < kPlain; });
    const double share = static_cast<double>(plain) / static_cast<double>(measure->pixelCount());
    EXPECT_GT(share, 0.01) << "some of it is flat";
    EXPECT_LT(share, 0.15);
}

// The wall is at one distance and has nothing in front of it in the upper left: there a frame must be the truth,
// blurred in linear light by the disc of the wall.
TEST(FocusSeries, BlursTheWallByItsCircleOfConfusion)
{
    const FocusSeriesSettings settings = ofSize(360, 240);
    const FocusSeries series(settings);
    const auto linear = series.truth();
    linear->convertTo(ColorProfileType::linearMelissaRGB());
    for (const double focus : {0.40, 0.52, 0.65}) {
        const auto frame = focusedAt(settings, focus);
        frame->convertTo(ColorProfileType::linearMelissaRGB());
        const auto radius = static_cast<float>(0.5 * circleOfConfusion(settings.lens, focus, kFarthestDistance));
        const DiscKernels discs(static_cast<double>(radius));
        const int reach = discs.reach(radius);
        for (int y = 10; y < 26; ++y)
            for (int x = 20; x < 60; ++x) {
                float sum = 0.0f;
                for (int j = -reach; j <= reach; ++j)
                    for (int i = -reach; i <= reach; ++i)
                        sum += discs.weight(radius, i, j) * linear->row(y + j)[x + i].g;
                ASSERT_NEAR(frame->row(y)[x].g, sum, 1e-4f) << focus << " m at " << x << ", " << y;
            }
    }
}

TEST(FocusSeries, BlurGrowsSmoothlyWithTheAperture)
{
    FocusSeriesSettings settings = ofSize(240, 160);
    auto last = focusedAt(settings, kNearestDistance);
    for (int i = 0; i < 5; ++i) {
        settings.lens.aperture *= 0.99;
        auto now = focusedAt(settings, kNearestDistance);
        EXPECT_GT(psnr(*now, *last), 50.0);
        EXPECT_FALSE(sameBytes(*now, *last));
        last = std::move(now);
    }
}

// The right rim of the tin, which stands upright in front of the wall, through a fast lens.
class FocusOcclusion : public testing::Test
{
protected:
    static constexpr int kTop = 120; // rows in which nothing else is near
    static constexpr int kBottom = 160;
    static constexpr int kRim = 356;  // the first pixel that the tin does not cover
    static constexpr int kSpline = 2; // pixels over which the spline softens an edge

    FocusOcclusion()
    {
        settings.lens.aperture = 1.4;
        const FocusSeries series(settings);
        truth = series.truth();
        const auto depth = series.depth();
        tinDistance = static_cast<double>(depth->row(kTop)[kRim - 1]);
        EXPECT_LT(tinDistance, 0.6);
        for (int y = kTop; y < kBottom; ++y) {
            EXPECT_FLOAT_EQ(depth->row(y)[kRim - 1], static_cast<float>(tinDistance));
            EXPECT_FLOAT_EQ(depth->row(y)[kRim], static_cast<float>(kFarthestDistance));
        }
    }

    FocusSeriesSettings settings = ofSize(600, 400);
    std::shared_ptr<Picture> truth;
    double tinDistance = 0.0;
};

TEST_F(FocusOcclusion, SharpNearObjectsHideTheBackground)
{
    const auto frame = focusedAt(settings, tinDistance);
    double behind = 0.0;
    for (int y = kTop; y < kBottom; ++y) {
        for (int x = kRim - 20; x < kRim - kSpline; ++x)
            ASSERT_LT(difference(frame->row(y)[x], truth->row(y)[x]), 1e-3f) << x << ", " << y;
        for (int x = kRim + kSpline; x < kRim + 20; ++x)
            behind += static_cast<double>(difference(frame->row(y)[x], truth->row(y)[x]));
    }
    EXPECT_GT(behind / ((kBottom - kTop) * (20.0 - kSpline)), 0.02) << "the wall is not sharp";
}

TEST_F(FocusOcclusion, BlurredNearObjectsSpreadOverTheBackground)
{
    const auto frame = focusedAt(settings, kFarthestDistance);
    const double radius = 0.5 * circleOfConfusion(settings.lens, kFarthestDistance, tinDistance);
    ASSERT_GT(radius, 5.0);
    for (int y = kTop; y < kBottom; ++y)
        for (int x = kRim + static_cast<int>(radius) + kSpline + 1; x < kRim + 30; ++x)
            ASSERT_LT(difference(frame->row(y)[x], truth->row(y)[x]), 1e-4f) << "the wall is sharp at " << x;

    // nearer to the rim the tin's light covers the wall's in proportion to the part of the disc that reaches the tin
    frame->convertTo(ColorProfileType::linearMelissaRGB());
    truth->convertTo(ColorProfileType::linearMelissaRGB());
    const auto meanBlue = [&](const Picture& picture, int x) {
        double sum = 0.0;
        for (int y = kTop; y < kBottom; ++y)
            sum += static_cast<double>(picture.row(y)[x].b);
        return sum / (kBottom - kTop);
    };
    double tin = 0.0;
    for (int x = kRim - kSpline - 3; x < kRim - kSpline; ++x)
        tin += meanBlue(*truth, x) / 3.0;
    for (int x = kRim + kSpline; x < kRim + kSpline + 3; ++x) {
        const double wall = meanBlue(*truth, x);
        ASSERT_GT(std::abs(tin - wall), 0.02);
        const double q = (x - (kRim - 0.5)) / radius;
        const double share = (std::acos(q) - q * std::sqrt(1.0 - q * q)) / std::numbers::pi;
        EXPECT_NEAR((meanBlue(*frame, x) - wall) / (tin - wall), share, 0.06) << x;
    }
}

TEST(FocusSeries, MovesByWholePixelsExactly)
{
    FocusSeriesSettings settings = pinhole(240, 160, 3);
    settings.drift = {.shiftX = 3.0, .shiftY = -2.0};
    settings.reference = 0;
    const FocusSeries series(settings);
    const auto truth = series.truth();
    for (int frame = 0; frame < 3; ++frame) {
        const auto seen = series.frame(frame);
        for (int y = 10; y < 150; ++y)
            for (int x = 10; x < 230; ++x)
                ASSERT_LT(difference(seen->row(y)[x], truth->row(y - 2 * frame)[x + 3 * frame]), 2e-4f)
                    << frame << ": " << x << ", " << y;
    }
}

TEST(FocusSeries, ReportsWhereEachFrameLooks)
{
    FocusSeriesSettings settings = pinhole(300, 200, 5);
    settings.breathing = 0.03;
    settings.drift = {.shiftX = 1.5, .shiftY = 0.5, .rotationDegrees = 0.1};
    settings.shake = {.shiftX = 2.0, .shiftY = 2.0, .rotationDegrees = 0.2};
    const FocusSeries series(settings);
    EXPECT_EQ(series.reference(), 2);
    EXPECT_EQ(series.referenceFromFrame(2), kIdentity);
    const auto truth = series.truth();
    EXPECT_GT(psnr(*series.frame(2), *truth), 70.0);
    for (const int frame : {0, 1, 3, 4}) {
        const Homography map = series.referenceFromFrame(frame);
        const auto seen = series.frame(frame);
        double squared = 0.0, unmapped = 0.0;
        for (int y = 20; y < 180; ++y)
            for (int x = 20; x < 280; ++x) {
                const auto at = mapPoint(map, {static_cast<double>(x), static_cast<double>(y)});
                const int left = static_cast<int>(at.x);
                const int top = static_cast<int>(at.y);
                const auto s = static_cast<float>(at.x - left);
                const auto t = static_cast<float>(at.y - top);
                const auto green = [&](int i, int j) { return truth->row(top + j)[left + i].g; };
                const float expected =
                    (1 - t) * ((1 - s) * green(0, 0) + s * green(1, 0)) + t * ((1 - s) * green(0, 1) + s * green(1, 1));
                squared += std::pow(static_cast<double>(seen->row(y)[x].g - expected), 2.0);
                unmapped += std::pow(static_cast<double>(seen->row(y)[x].g - truth->row(y)[x].g), 2.0);
            }
        EXPECT_LT(squared, 0.1 * unmapped) << frame;
    }
}

TEST(FocusSeries, BreathesAboutTheMiddle)
{
    FocusSeriesSettings settings = pinhole(301, 201, 4);
    settings.breathing = 0.03;
    settings.reference = 3;
    const FocusSeries series(settings);
    const auto corner = mapPoint(series.referenceFromFrame(0), {0.0, 0.0});
    EXPECT_NEAR(corner.x, 150.0 - 150.0 / 1.03, 1e-9) << "the first frame shows less, larger";
    EXPECT_NEAR(corner.y, 100.0 - 100.0 / 1.03, 1e-9);
    const auto middle = mapPoint(series.referenceFromFrame(0), {150.0, 100.0});
    EXPECT_NEAR(middle.x, 150.0, 1e-9);
    EXPECT_NEAR(middle.y, 100.0, 1e-9);
}

TEST(FocusSeries, FocusIsEvenlySpacedInDioptres)
{
    FocusSeriesSettings settings = ofSize(16, 16);
    settings.frames = 5;
    settings.nearFocus = 0.5;
    settings.farFocus = 2.0;
    const FocusSeries series(settings);
    for (int i = 0; i < 5; ++i)
        EXPECT_NEAR(1.0 / series.focusDistance(i), 2.0 - 0.375 * i, 1e-12);
    EXPECT_THROW((void)series.focusDistance(5), std::out_of_range);
    EXPECT_THROW((void)series.frame(-1), std::out_of_range);
    settings.frames = 1;
    EXPECT_NEAR(1.0 / FocusSeries(settings).focusDistance(0), 1.25, 1e-12);
}

TEST(FocusSeries, NoiseIsIndependentInEachFrame)
{
    FocusSeriesSettings settings = pinhole(240, 160, 2);
    const FocusSeries clean(settings);
    settings.noise = SensorNoise{2000.0, 4.0};
    const FocusSeries noisy(settings);
    const auto first = noisy.frame(0);
    EXPECT_TRUE(sameBytes(*first, *noisy.frame(0)));
    EXPECT_TRUE(sameBytes(*noisy.truth(), *clean.truth())) << "the truth has none";
    const double toTruth = psnr(*first, *clean.frame(0));
    EXPECT_GT(toTruth, 25.0);
    EXPECT_LT(toTruth, 45.0);
    // two independent noises are 3 dB further apart than one is from none
    EXPECT_NEAR(psnr(*first, *noisy.frame(1)), toTruth - 10.0 * std::log10(2.0), 0.3);
    settings.noiseSeed = 2;
    EXPECT_FALSE(sameBytes(*first, *FocusSeries(settings).frame(0)));
}

TEST(FocusSeries, IsTheSameForAnyNumberOfThreads)
{
    FocusSeriesSettings settings = ofSize(300, 200);
    settings.frames = 2;
    settings.breathing = 0.02;
    settings.shake = {.shiftX = 2.0, .shiftY = 2.0, .rotationDegrees = 0.2};
    settings.noise = SensorNoise{};
    const auto made = [&](int threads) {
        const WorkerLimit limit(threads);
        const FocusSeries series(settings);
        auto pictures = series.frames();
        pictures.push_back(series.truth());
        return pictures;
    };
    const auto one = made(1);
    const auto two = made(2);
    for (std::size_t i = 0; i < one.size(); ++i)
        EXPECT_TRUE(sameBytes(*one[i], *two[i])) << i;
}

TEST(FocusSeries, AnotherSeedIsAnotherGrainOfTheSameObjects)
{
    FocusSeriesSettings settings = ofSize(240, 160);
    const FocusSeries first(settings);
    EXPECT_TRUE(sameBytes(*first.truth(), *FocusSeries(settings).truth()));
    settings.seed = 2;
    const FocusSeries second(settings);
    EXPECT_FALSE(sameBytes(*first.truth(), *second.truth()));
    EXPECT_GT(ssim(*first.truth(), *second.truth()), 0.2);
}

TEST(FocusSeries, WorksInAnySize)
{
    for (const auto& [width, height] : {std::pair(16, 16), {17, 400}, {400, 17}, {123, 321}}) {
        FocusSeriesSettings settings = ofSize(width, height);
        settings.frames = 2;
        const auto frame = FocusSeries(settings).frame(1);
        ASSERT_EQ(frame->size(), settings.size);
        for (std::size_t i = 0; i < frame->pixelCount(); ++i) {
            const auto& p = frame->data()[i];
            ASSERT_TRUE(p.r > 0.0f && p.g > 0.0f && p.b > 0.0f && p.r < 1.0f && p.g < 1.0f && p.b < 1.0f) << i;
        }
        EXPECT_EQ(frame->colorProfile()->hash(), ColorProfileType::melissaRGB()->hash());
    }
}

TEST(FocusSeries, UsesNoMoreMemoryThanDocumented)
{
    auto& memory = MemoryManager::instance();
    const FocusSeriesSettings settings = ofSize(900, 600);
    const std::size_t pixels = 900 * 600;
    const std::size_t before = memory.liveBytes();
    {
        const FocusSeries series(settings);
        const std::size_t held = memory.liveBytes() - before;
        EXPECT_LT(held, 4 * 16 * pixels);
        memory.resetPeak();
        const auto frame = series.frame(0);
        constexpr std::size_t kFrameAndLayer = 12 + 16;
        EXPECT_LT(memory.peakBytes() - before - held, pixels * kFrameAndLayer * 11 / 10) << "a layer with its margin";
    }
    EXPECT_EQ(memory.liveBytes(), before);
}

TEST(FocusSeries, RefusesSettingsByName)
{
    const auto refused = [](const char* field, const std::function<void(FocusSeriesSettings&)>& change) {
        FocusSeriesSettings settings = ofSize(32, 32);
        change(settings);
        EXPECT_THAT([&] { FocusSeries series(settings); }, ThrowsMessage<std::invalid_argument>(HasSubstr(field)));
    };
    refused("size.width", [](auto& s) { s.size.width = 15; });
    refused("size.height", [](auto& s) { s.size.height = 70000; });
    refused("frames", [](auto& s) { s.frames = 0; });
    refused("breathing", [](auto& s) { s.breathing = 0.3; });
    refused("breathing", [](auto& s) { s.breathing = NAN; });
    refused("reference", [](auto& s) { s.reference = 8; });
    refused("isoSpeed", [](auto& s) { s.isoSpeed = 0.0; });
    refused("lens", [](auto& s) { s.lens.aperture = 0.5; });
    refused("aperture", [](auto& s) { s.lens.aperture = -1.0; });
    refused("focal length", [](auto& s) { s.nearFocus = 0.03; });
}

} // namespace
} // namespace orvo::scenes
