#include "test_planes.hpp"

#include <orvo_image_processing/auto_exposure.hpp>
#include <orvo_image_processing/exposure_curve.hpp>

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <limits>

using orvo::auto_exposure_data_t;
using planes::area;
using Samples = std::vector<float>;

namespace {

constexpr int kWidth = 480;
constexpr int kHeight = 320;
// Encoded values that count as unclipped in both frames.
constexpr float kDark = 2.0f / 255;
constexpr float kBright = 0.97f;

double encode(double linear)
{
    return linear <= 0.0031308 ? linear * 12.92 : 1.055 * std::pow(linear, 1 / 2.4) - 0.055;
}
double decode(double v) { return v <= 0.04045 ? v / 12.92 : std::pow((v + 0.055) / 1.055, 2.4); }

/// A scene of many tones and colours, in encoded values: soft hills of light over ten stops, patches with sharp edges,
/// some grain. `dx` moves the camera.
Samples scene(int dx, float grain, std::uint32_t seed)
{
    planes::Random random(seed);
    Samples s(3 * area(kWidth, kHeight));
    for (int y = 0; y < kHeight; ++y)
        for (int x = 0; x < kWidth; ++x) {
            const double u = (x + dx) * 0.021;
            const double v = y * 0.017;
            const double hills = std::sin(u) + std::sin(1.7 * v + 1) + std::sin(0.6 * u - 2.3 * v);
            const int patch = ((x + dx) / 37 * 7 + y / 29 * 13) % 11;
            const double stops = 1.6 * hills + 0.35 * (patch - 5) - 4.0;
            for (int c = 0; c < 3; ++c) {
                const double tint = 0.5 * std::sin(0.9 * u + 2.1 * c) * std::cos(v);
                const double clean = std::min(1.0, encode(std::exp2(stops + tint)));
                const double noisy = clean + static_cast<double>(grain * random.normal());
                s[3 * (area(kWidth, y) + static_cast<std::size_t>(x)) + static_cast<std::size_t>(c)] =
                    static_cast<float>(std::clamp(noisy, 0.0, 1.0));
            }
        }
    return s;
}

template <typename Curve>
Samples through(Samples samples, const Curve& curve)
{
    for (float& v : samples)
        v = curve(v);
    return samples;
}

Samples byLinearGain(const Samples& samples, double ev)
{
    return through(samples, [ev](float v) {
        return static_cast<float>(std::min(1.0, encode(decode(static_cast<double>(v)) * std::exp2(ev))));
    });
}

Samples adjusted(const Samples& a, Samples b)
{
    orvo::autoExposureAdjustRGB(a.data(), b.data(), kWidth, kHeight);
    return b;
}

/// Share of the samples, unclipped (up to `brightest`) in both frames, that differ by more than `relative` of their
/// value.
double shareOff(const Samples& a, const Samples& b, const Samples& result, float relative, float brightest = kBright)
{
    std::size_t count = 0;
    std::size_t off = 0;
    for (std::size_t i = 0; i < a.size(); ++i) {
        if (a[i] < kDark || a[i] > brightest || b[i] < kDark || b[i] > brightest)
            continue;
        ++count;
        off += std::abs(result[i] - a[i]) > relative * a[i] + 0.0005f ? 1 : 0;
    }
    EXPECT_GT(count, 3000u) << "too few samples for a result";
    return static_cast<double>(off) / static_cast<double>(std::max<std::size_t>(1, count));
}

/// As stored by a camera: with noise, in 8 bits.
Samples stored(Samples samples, float noise, std::uint32_t seed)
{
    planes::Random random(seed);
    for (float& v : samples)
        v = std::round(std::clamp(v + noise * random.normal(), 0.0f, 1.0f) * 255.0f) / 255.0f;
    return samples;
}

/// b re-exposed to a; without `frame` by the map alone.
Samples reexposed(const Samples& a, const Samples& b, const float* frame)
{
    auto_exposure_data_t data;
    orvo::autoExposureEstimateRGB(a.data(), b.data(), kWidth, kHeight, data, 7);
    Samples result = b;
    orvo::autoExposureApplyRGB(frame, result.data(), kWidth, kHeight, data);
    return result;
}

/// The map from b to a, without a's pixels, but not below a's black.
Samples mappedAboveBlack(const Samples& a, const Samples& b)
{
    auto_exposure_data_t data;
    orvo::autoExposureEstimateRGB(a.data(), b.data(), kWidth, kHeight, data, 7);
    Samples result = reexposed(a, b, nullptr);
    for (std::size_t i = 0; i < result.size(); ++i)
        result[i] = std::max(result[i], data.curves[i % 3].black);
    return result;
}

struct Box
{
    int left, top, right, bottom;
};

void paint(Samples& samples, const Box& box, const std::array<float, 3>& colour)
{
    for (int y = box.top; y < box.bottom; ++y)
        for (int x = box.left; x < box.right; ++x)
            for (std::size_t c = 0; c < 3; ++c)
                samples[3 * (area(kWidth, y) + static_cast<std::size_t>(x)) + c] = colour[c];
}

/// Share of the samples in a box that differ by more than 0.01.
double shareDifferent(const Samples& a, const Samples& b, const Box& box)
{
    std::size_t count = 0;
    std::size_t different = 0;
    for (int y = box.top; y < box.bottom; ++y)
        for (int x = box.left; x < box.right; ++x)
            for (std::size_t c = 0; c < 3; ++c) {
                const std::size_t i = 3 * (area(kWidth, y) + static_cast<std::size_t>(x)) + c;
                ++count;
                different += std::abs(a[i] - b[i]) > 0.01f ? 1 : 0;
            }
    return static_cast<double>(different) / static_cast<double>(count);
}

constexpr Box kWhole{0, 0, kWidth, kHeight};

} // namespace

TEST(AutoExposure, EqualFramesAreLeftBitEqual)
{
    const Samples a = scene(0, 0.01f, 1);
    EXPECT_TRUE(planes::sameBytes(adjusted(a, a), a));
    auto_exposure_data_t data;
    data.expV = 3.0f;
    orvo::autoExposureEstimateRGB(a.data(), a.data(), kWidth, kHeight, data, 7);
    EXPECT_EQ(data.expV, 1.0f);
    EXPECT_EQ(data.contr, 1.0f);
    EXPECT_EQ(data.curves[0].knots, 0);
}

TEST(AutoExposure, BringsBackAKnownLinearGain)
{
    const Samples original = scene(0, 0.0f, 1);
    for (const double ev : {-4.0, -2.5, -1.0, -0.2, 0.3, 1.0, 2.0, 3.0, 4.0}) {
        const Samples b = byLinearGain(original, ev);
        EXPECT_LT(shareOff(original, b, adjusted(original, b), 0.02f), 0.001) << ev;
        auto_exposure_data_t data;
        orvo::autoExposureEstimateRGB(original.data(), b.data(), kWidth, kHeight, data, 0);
        EXPECT_NEAR((data.expV - 1.0f) * 10.0f, -ev, 0.05) << ev;
        EXPECT_NEAR(data.contr, 1.0f, 0.02f) << ev;
    }
}

TEST(AutoExposure, BringsBackTheExposureCurve)
{
    const Samples original = scene(0, 0.0f, 1);
    for (const float ev : {-4.0f, -2.0f, -1.0f, -0.2f, 0.3f, 1.0f, 2.0f, 4.0f}) {
        Samples b = original;
        orvo::applyExposureInPlace(b.data(), b.size(), 1.0f + 0.1f * ev, 0.9f, 0.5f);
        // All tones except the nearly white ones, where the curve bends hard and only a few patches define it.
        EXPECT_EQ(shareOff(original, b, adjusted(original, b), 0.02f, 0.85f), 0.0) << ev;
        EXPECT_EQ(shareOff(b, original, adjusted(b, original), 0.02f, 0.85f), 0.0) << ev;
        EXPECT_LT(shareOff(original, b, adjusted(original, b), 0.02f), 0.02) << ev;
        EXPECT_LT(shareOff(b, original, adjusted(b, original), 0.02f), 0.02) << ev;
    }
}

TEST(AutoExposure, FollowsACameraCurveOfEachChannel)
{
    const Samples original = scene(0, 0.0f, 1);
    const auto camera = [](float v, std::size_t channel) {
        const double gained = decode(static_cast<double>(v)) * std::exp2(1.2 + 0.3 * static_cast<double>(channel));
        const double squeezed = gained / (1 + 0.5 * gained); // a shoulder, like film
        return static_cast<float>(std::min(1.0, std::pow(encode(squeezed), 1.15)));
    };
    Samples b = original;
    for (std::size_t i = 0; i < b.size(); ++i)
        b[i] = camera(b[i], i % 3);
    EXPECT_LT(shareOff(original, b, adjusted(original, b), 0.03f), 0.02);
    EXPECT_LT(shareOff(b, original, adjusted(b, original), 0.03f), 0.02);
}

TEST(AutoExposure, NoiseAndASmallShiftDoNotMatter)
{
    const Samples a = scene(0, 0.0f, 1);
    const Samples clean = byLinearGain(a, -2.0);
    for (const int dx : {0, 3}) {
        Samples b = byLinearGain(scene(dx, 0.0f, 2), -2.0);
        planes::Random random(3);
        for (float& v : b)
            v = std::max(0.0f, v + 0.02f * random.normal());
        auto_exposure_data_t data;
        orvo::autoExposureEstimateRGB(a.data(), b.data(), kWidth, kHeight, data, 7);
        Samples result = clean;
        orvo::autoExposureApplyRGB(nullptr, result.data(), kWidth, kHeight, data);
        EXPECT_LT(shareOff(a, clean, result, 0.05f), 0.12) << dx;
        EXPECT_NEAR(data.expV, 1.2f, 0.01f) << dx;
    }
}

TEST(AutoExposure, ALargeShiftStillGivesTheExposure)
{
    const Samples a = scene(0, 0.0f, 1);
    const Samples b = byLinearGain(scene(60, 0.0f, 1), -1.5);
    auto_exposure_data_t data;
    orvo::autoExposureEstimateRGB(a.data(), b.data(), kWidth, kHeight, data, 0);
    EXPECT_NEAR(data.expV, 1.15f, 0.05f);
}

TEST(AutoExposure, AMovingSubjectDoesNotPullTheCurve)
{
    const Samples a = scene(0, 0.0f, 1);
    for (const double ev : {-2.0, 1.5}) {
        const Samples clean = byLinearGain(a, ev);
        Samples b = clean;
        for (int y = 60; y < 260; ++y) // a seventh of the picture turns dark
            for (int x = 100; x < 210; ++x)
                for (std::size_t c = 0; c < 3; ++c)
                    b[3 * (area(kWidth, y) + static_cast<std::size_t>(x)) + c] = 0.08f;
        auto_exposure_data_t data;
        orvo::autoExposureEstimateRGB(a.data(), b.data(), kWidth, kHeight, data, 7);
        Samples result = clean;
        orvo::autoExposureApplyRGB(nullptr, result.data(), kWidth, kHeight, data);
        EXPECT_LT(shareOff(a, clean, result, 0.03f), 0.03) << ev;
    }
}

TEST(AutoExposure, CurvesRiseAndStartAtBlack)
{
    const Samples a = scene(0, 0.03f, 1);
    Samples ramp(3 * area(kWidth, kHeight));
    for (std::size_t i = 0; i < ramp.size(); ++i)
        ramp[i] = static_cast<float>(i / 3) * 1.5f / static_cast<float>(area(kWidth, kHeight));
    for (const double ev : {-5.0, -1.0, 2.0, 5.0}) {
        const Samples b = byLinearGain(scene(20, 0.03f, 8), ev);
        auto_exposure_data_t data;
        orvo::autoExposureEstimateRGB(a.data(), b.data(), kWidth, kHeight, data, 7);
        Samples mapped = ramp;
        orvo::autoExposureApplyRGB(nullptr, mapped.data(), kWidth, kHeight, data);
        for (std::size_t c = 0; c < 3; ++c)
            EXPECT_EQ(mapped[c], 0.0f);
        for (std::size_t i = 3; i < mapped.size(); ++i)
            ASSERT_GE(mapped[i], mapped[i - 3] - 1e-6f) << ev << " at " << ramp[i];
    }
}

TEST(AutoExposure, ModeChoosesTheChannelsWithACurveOfTheirOwn)
{
    const Samples a = scene(0, 0.0f, 1);
    Samples b = byLinearGain(a, -1.0);
    for (std::size_t i = 1; i < b.size(); i += 3) // green is darker still
        b[i] = static_cast<float>(encode(decode(static_cast<double>(b[i])) * 0.7));
    auto_exposure_data_t one;
    auto_exposure_data_t green;
    orvo::autoExposureEstimateRGB(a.data(), b.data(), kWidth, kHeight, one, 0);
    orvo::autoExposureEstimateRGB(a.data(), b.data(), kWidth, kHeight, green, 2);
    EXPECT_EQ(one.curves[0].ev, one.curves[1].ev);
    EXPECT_EQ(one.curves[1].ev, one.curves[2].ev);
    EXPECT_EQ(green.curves[0].ev, one.curves[0].ev);
    EXPECT_NEAR(green.curves[1].ev, 1.0 - std::log2(0.7), 0.03);
}

TEST(AutoExposure, NoiseOfARaisedPictureStaysOutOfAFrameThatShowsTheSame)
{
    const Samples clean = scene(0, 0.0f, 1);
    for (const double ev : {-2.0, -3.0, -4.0, -5.0}) {
        const Samples a = stored(clean, 0.004f, 1);
        const Samples b = stored(byLinearGain(clean, ev), 0.012f, 2);
        EXPECT_LT(shareDifferent(reexposed(a, b, a.data()), a, kWhole), 0.005) << ev;
        EXPECT_GT(shareDifferent(reexposed(a, b, nullptr), a, kWhole), 0.4) << ev << ": the map alone raises noise";
    }
}

TEST(AutoExposure, WhatMovedComesFromThePictureThatIsReexposed)
{
    const Samples clean = scene(0, 0.0f, 1);
    for (const double ev : {-3.0, -1.0, 2.0}) {
        Samples there = clean;
        const Box box{150, 110, 190, 180};
        paint(there, box, {0.55f, 0.4f, 0.3f});
        const Samples a = stored(clean, 0.004f, 1);
        const Samples b = stored(byLinearGain(there, ev), 0.006f, 2);
        EXPECT_LT(shareDifferent(reexposed(a, b, a.data()), mappedAboveBlack(a, b), box), 0.01) << ev;
        // And the other way round: the frame's moving parts must go.
        const Samples a2 = stored(there, 0.004f, 1);
        const Samples b2 = stored(byLinearGain(clean, ev), 0.006f, 2);
        EXPECT_LT(shareDifferent(reexposed(a2, b2, a2.data()), mappedAboveBlack(a2, b2), box), 0.01) << ev;
    }
}

TEST(AutoExposure, RaisedNoiseStaysAboveTheBlackOfTheFrame)
{
    const Samples clean = scene(0, 0.0f, 1);
    Samples there = clean;
    const Box box{150, 110, 190, 180};
    paint(there, box, {0.55f, 0.4f, 0.3f});
    const Samples frame = stored(there, 0.004f, 1);
    const Samples reference = stored(byLinearGain(clean, -3.0), 0.006f, 2);
    auto_exposure_data_t data;
    orvo::autoExposureEstimateRGB(frame.data(), reference.data(), kWidth, kHeight, data, 7);
    const auto shareBelow = [&](const Samples& picture) {
        int below = 0;
        for (int y = box.top; y < box.bottom; ++y)
            for (int x = box.left; x < box.right; ++x)
                below +=
                    picture[3 * (area(kWidth, y) + static_cast<std::size_t>(x)) + 1] < data.curves[1].black ? 1 : 0;
        return static_cast<double>(below) / ((box.right - box.left) * (box.bottom - box.top));
    };
    EXPECT_GT(data.curves[1].black, 0.01f);
    EXPECT_GT(shareBelow(reexposed(frame, reference, nullptr)), 0.03);
    EXPECT_EQ(shareBelow(reexposed(frame, reference, frame.data())), 0.0);
    // What is raised by less is not noisy.
    const Samples near = stored(byLinearGain(clean, -0.4), 0.006f, 2);
    orvo::autoExposureEstimateRGB(frame.data(), near.data(), kWidth, kHeight, data, 7);
    EXPECT_EQ(data.curves[1].black, 0.0f);
}

TEST(AutoExposure, AWindowThatIsPartlyClippedKeepsTheColourOfTheFrame)
{
    Samples a = scene(0, 0.0f, 1);
    const Box window{80, 40, 300, 200};
    for (int y = window.top; y < window.bottom; ++y)
        for (int x = window.left; x < window.right; ++x) {
            // Evening sky, which the longer exposure clips in red, in red and green, and in all channels.
            const float light = 0.45f + 0.45f * static_cast<float>(x - window.left) / 220.0f;
            paint(a, {x, y, x + 1, y + 1}, {light, 0.8f * light, 0.55f * light});
        }
    a = stored(a, 0.004f, 1);
    for (const double ev : {1.5, 2.5}) {
        const Samples b = stored(byLinearGain(a, ev), 0.004f, 2);
        EXPECT_LT(shareDifferent(reexposed(a, b, a.data()), a, window), 0.02) << ev;
    }
}

TEST(AutoExposure, ColoursThatClippingLeavesPaleTurnWhiteWithoutAStep)
{
    const Samples a = scene(0, 0.0f, 1);
    const Samples b = byLinearGain(a, 2.0);
    auto_exposure_data_t data;
    orvo::autoExposureEstimateRGB(a.data(), b.data(), kWidth, kHeight, data, 7);
    constexpr std::size_t kSteps = 400; // green from 0.6 to 1, between two clipped channels
    Samples ramp;
    for (std::size_t i = 0; i <= kSteps; ++i) {
        const float green = 0.6f + 0.4f * static_cast<float>(i) / static_cast<float>(kSteps);
        ramp.insert(ramp.end(), {1.0f, green, 1.0f});
    }
    orvo::autoExposureApplyRGB(nullptr, ramp.data(), static_cast<int>(kSteps + 1), 1, data);
    const auto tint = [&](std::size_t i) { return ramp[3 * i] - ramp[3 * i + 1]; };
    for (std::size_t i = 1; i <= kSteps; ++i) {
        EXPECT_LE(tint(i), tint(i - 1) + 1e-4f) << i;
        EXPECT_NEAR(tint(i), tint(i - 1), 0.02f) << i;
    }
    EXPECT_GT(tint(0), 0.1f) << "a strong colour is no effect of clipping";
    EXPECT_NEAR(tint(kSteps * 9 / 10), 0.0f, 0.05f);
    EXPECT_NEAR(tint(kSteps), 0.0f, 1e-6f);
}

TEST(AutoExposure, TooFewUsablePatchesGiveTheNeutralRecord)
{
    const auto unchanged = [](Samples a, Samples b, int width, int height) {
        const Samples before = b;
        orvo::autoExposureAdjustRGB(a.data(), b.data(), width, height);
        return planes::sameBytes(before, b);
    };
    EXPECT_TRUE(unchanged(Samples(12, 0.2f), Samples(12, 0.4f), 2, 2));
    EXPECT_TRUE(unchanged({}, {}, 0, 0));
    EXPECT_TRUE(unchanged({}, {}, 0, 7));
    const std::size_t count = 3 * area(100, 100);
    EXPECT_TRUE(unchanged(Samples(count, 1.0f), Samples(count, 0.4f), 100, 100));
    EXPECT_TRUE(unchanged(Samples(count, 0.5f), Samples(count, 0.0f), 100, 100));
    EXPECT_TRUE(unchanged(Samples(count, std::nanf("")), Samples(count, 0.4f), 100, 100));
}

TEST(AutoExposure, FlatFramesMeet)
{
    const std::size_t count = 3 * area(100, 100);
    Samples b(count, 0.4f);
    const Samples a(count, 0.2f);
    orvo::autoExposureAdjustRGB(a.data(), b.data(), 100, 100);
    EXPECT_NEAR(b[5], 0.2f, 1e-3f);
}

TEST(AutoExposure, HandlesInvalidSamples)
{
    const float inf = std::numeric_limits<float>::infinity();
    const Samples a = scene(0, 0.0f, 1);
    Samples b = byLinearGain(a, -1.0);
    const Samples clean = b;
    b[1000] = std::nanf("");
    b[2000] = inf;
    b[3000] = -4.0f;
    b[4000] = 50.0f;
    orvo::autoExposureAdjustRGB(a.data(), b.data(), kWidth, kHeight);
    EXPECT_EQ(b[1000], 0.0f);
    EXPECT_EQ(b[3000], 0.0f);
    EXPECT_TRUE(std::isfinite(b[2000]));
    EXPECT_TRUE(std::isfinite(b[4000]));
    EXPECT_GE(b[4000], 0.9f);
    EXPECT_LT(shareOff(a, clean, b, 0.02f), 0.002);
    for (const auto& [width, height] : planes::awkwardSizes()) {
        const Samples x = planes::noise(3 * area(width, height), 1);
        Samples y = planes::noise(3 * area(width, height), 2);
        orvo::autoExposureAdjustRGB(x.data(), y.data(), width, height);
        for (const float v : y)
            ASSERT_TRUE(v >= 0.0f && v < 4.0f) << width << 'x' << height;
        auto_exposure_data_t data;
        orvo::autoExposureEstimateRGB(x.data(), y.data(), width, height, data, 7);
        orvo::autoExposureApplyRGB(x.data(), y.data(), width, height, data);
        for (const float v : y)
            ASSERT_TRUE(v >= 0.0f && v < 4.0f) << width << 'x' << height;
    }
}

TEST(AutoExposure, SameForAnyWorkersAndLeavesNoPlane)
{
    const Samples a = scene(0, 0.01f, 1);
    const Samples b = byLinearGain(scene(0, 0.01f, 2), -1.0);
    planes::expectSameForAnyWorkers([&] { return adjusted(a, b); });
    Samples moved = b;
    paint(moved, {150, 110, 190, 180}, {0.55f, 0.4f, 0.3f});
    planes::expectSameForAnyWorkers([&] { return reexposed(a, moved, a.data()); });
}

TEST(AutoExposure, PixelsAndSamplesAreTheSame)
{
    const Samples a = scene(0, 0.01f, 1);
    const Samples b = byLinearGain(a, -1.0);
    const auto pa = planes::asPixels(a);
    auto pb = planes::asPixels(b);
    orvo::autoExposureAdjustRGB(pa.data(), pb.data(), kWidth, kHeight);
    EXPECT_EQ(std::memcmp(pb.data(), adjusted(a, b).data(), b.size() * sizeof(float)), 0);
}
