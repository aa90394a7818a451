#include "fast_power.hpp"
#include "test_planes.hpp"

#include <orvo_image_processing/exposure_curve.hpp>

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

using orvo::apply_exposure;
using orvo::PixelRGB;

namespace {

constexpr float kStart = 0.9f;
constexpr float kPivot = 0.5f;
const std::vector<float> kSteps = {-6.0f, -4.0f, -2.0f, -1.0f, -0.3f, 0.3f, 1.0f, 2.0f, 4.0f, 6.0f};

float byEv(float v, float ev) { return apply_exposure(v, 1.0f + ev * 0.1f, kStart, kPivot); }

// The slope of the linear piece at full precision: with the rounded one the pieces differ by 1e-10.
const double kToeSlope = std::pow(1.055, 2.4) * std::pow(1.4, 1.4) / (std::pow(0.055, 1.4) * std::pow(2.4, 2.4));

double encode(double linear)
{
    return linear <= 0.055 / 1.4 / kToeSlope ? linear * kToeSlope : 1.055 * std::pow(linear, 1 / 2.4) - 0.055;
}

double decode(double v) { return v <= 0.055 / 1.4 ? v / kToeSlope : std::pow((v + 0.055) / 1.055, 2.4); }

/// A reference implementation in double and with powers.
double slowCurve(double v, double ev, double start, double pivot)
{
    const auto plain = [ev](double x) { return encode(decode(x) * std::exp2(ev)); };
    if (ev > 0) {
        const double knee = std::max(start, plain(pivot));
        const double span = plain(1.0) - knee;
        const double room = std::max(1.0, knee + 0.1 * span) - knee;
        if (plain(v) <= knee || span <= room)
            return plain(v);
        const double m = span / room;
        const double t = (plain(v) - knee) / span;
        return knee + room * m * t / (1 + (m - 1) * t);
    }
    const double knee = std::max(start, pivot);
    if (v <= knee || knee >= 1)
        return plain(v);
    const double t = (v - knee) / (1 - knee);
    return plain(v) + 0.4 * (1 - plain(1.0)) * (t < 1 ? t * t : 2 * t - 1);
}

} // namespace

TEST(FastPower, KeepsItsErrorBounds)
{
    for (float x = 1e-30f; x < 1e30f; x *= 1.0137f)
        ASSERT_NEAR(orvo::detail::fastLog2(x), std::log2(static_cast<double>(x)),
                    2e-6 + 6e-8 * std::abs(std::log2(static_cast<double>(x))))
            << x;
    for (float x = -100.0f; x < 100.0f; x += 0.0173f)
        ASSERT_NEAR(orvo::detail::fastExp2(x) / std::exp2(static_cast<double>(x)), 1.0, 3e-7) << x;
    EXPECT_EQ(orvo::detail::fastExp2(0.0f), 1.0f);
    EXPECT_TRUE(std::isfinite(orvo::detail::fastExp2(1e30f)));
    EXPECT_TRUE(std::isfinite(orvo::detail::fastExp2(-1e30f)));
}

TEST(ExposureCurve, NeutralIsTheExactIdentity)
{
    for (const float v : {-3.0f, 0.0f, 1e-7f, 0.018f, 0.5f, 0.95f, 1.0f, 7.5f, 1e9f})
        EXPECT_EQ(apply_exposure(v, 1.0f, kStart, kPivot), v);
    EXPECT_TRUE(orvo::ExposureCurve(1.0f, 0.1f, 0.2f).isIdentity());
    EXPECT_EQ(apply_exposure(0.25f, std::nanf(""), kStart, kPivot), 0.25f);
}

TEST(ExposureCurve, AgreesWithTheReference)
{
    for (const float ev : kSteps)
        for (const auto& [start, pivot] : {std::pair{0.9, 0.5}, {0.6, 0.2}, {0.3, 0.95}, {1.0, 1.0}, {0.0, 0.0}})
            for (int i = 0; i <= 3000; ++i) {
                const float v = static_cast<float>(i) * 0.0006f;
                const double expected = slowCurve(static_cast<double>(v), static_cast<double>(ev), start, pivot);
                ASSERT_NEAR(apply_exposure(v, 1.0f + ev * 0.1f, static_cast<float>(start), static_cast<float>(pivot)),
                            expected, 1e-5 * std::max(1.0, std::abs(expected)))
                    << v << " by " << ev << " EV, " << start << ", " << pivot;
            }
}

TEST(ExposureCurve, ReferenceIsWithinAPartIn10000OfTheStandardCurve)
{
    const auto standard = [](double v) { return v <= 0.04045 ? v / 12.92 : std::pow((v + 0.055) / 1.055, 2.4); };
    for (double v = 0.0; v <= 1.0; v += 0.001)
        EXPECT_NEAR(encode(standard(v)), v, 1e-4);
}

TEST(ExposureCurve, RisesWithTheValueAndWithTheExposure)
{
    for (const float ev : kSteps) {
        float before = byEv(0.0f, ev);
        for (int i = 1; i <= 4000; ++i) {
            const float v = static_cast<float>(i) * 0.0005f;
            const float now = byEv(v, ev);
            ASSERT_GE(now, before) << v << " by " << ev;
            before = now;
        }
    }
    for (int i = 1; i <= 100; ++i) {
        const float v = static_cast<float>(i) * 0.01f;
        float before = 0.0f;
        for (int step = -120; step <= 120; ++step) {
            const float now = byEv(v, static_cast<float>(step) * 0.05f);
            ASSERT_GE(now, before - 1e-6f) << v << " at step " << step; // white stays at 1 but for rounding
            before = now;
        }
    }
}

TEST(ExposureCurve, HasNoKink)
{
    // On the reference, in double, where a small step still resolves the slope: the slopes on both sides agree.
    constexpr double h = 1e-7;
    for (const float step : kSteps) {
        const auto ev = static_cast<double>(step);
        const auto f = [ev](double v) { return slowCurve(v, ev, 0.9, 0.5); };
        const double g = std::exp2(ev);
        const double kneeValue = std::max(0.9, encode(decode(0.5) * g));
        for (const double v : {0.055 / 1.4, encode(decode(0.055 / 1.4) / g), encode(decode(kneeValue) / g), 0.9, 1.0}) {
            const double left = (f(v) - f(v - h)) / h;
            const double right = (f(v + h) - f(v)) / h;
            EXPECT_NEAR(right / left, 1.0, 1e-3) << v << " by " << ev;
        }
    }
}

TEST(ExposureCurve, KeepsTheGainUpToThePivot)
{
    for (const float ev : kSteps)
        for (const float v : {0.001f, 0.03f, 0.2f, 0.5f}) {
            const double plain = encode(decode(static_cast<double>(v)) * std::exp2(static_cast<double>(ev)));
            EXPECT_NEAR(byEv(v, ev), plain, 1e-5 * std::max(1.0, plain)) << v << " by " << ev;
        }
}

TEST(ExposureCurve, BrighteningKeepsWhiteAndTheSeparationOfHighlights)
{
    for (const float ev : {0.5f, 1.0f, 1.5f})
        EXPECT_NEAR(byEv(1.0f, ev), 1.0f, 1e-6f) << ev;
    for (const float ev : {0.5f, 1.0f, 2.0f, 4.0f, 6.0f})
        for (const float v : {0.7f, 0.8f, 0.9f, 0.98f})
            EXPECT_GT(byEv(v + 0.02f, ev) - byEv(v, ev), 1e-4f) << v << " by " << ev;
    EXPECT_LT(byEv(1.0f, 2.0f), 1.05f);
}

TEST(ExposureCurve, DarkenedWhiteIsALightGrey)
{
    EXPECT_NEAR(byEv(1.0f, -2.0f), 0.72f, 0.01f);
    EXPECT_GT(byEv(1.0f, -1.0f), 0.83f);
    EXPECT_LT(byEv(1.0f, -1.0f), 1.0f);
    EXPECT_NEAR(byEv(0.9f, -2.0f), encode(decode(0.9) / 4), 1e-5); // only nearly clipped tones are lifted
}

TEST(ExposureCurve, HandlesInvalidSamples)
{
    for (const float ev : kSteps) {
        EXPECT_EQ(byEv(0.0f, ev), 0.0f);
        EXPECT_LT(byEv(-0.5f, ev), 0.0f);
        EXPECT_EQ(byEv(std::nanf(""), ev), 0.0f);
        EXPECT_TRUE(std::isfinite(byEv(std::numeric_limits<float>::infinity(), ev)));
        EXPECT_TRUE(std::isfinite(byEv(100.0f, ev)));
    }
    const float inf = std::numeric_limits<float>::infinity();
    for (const float a : {inf, -inf, 1e30f, 0.9f})
        for (const float b : {inf, -1.0f, std::nanf("")})
            EXPECT_TRUE(std::isfinite(apply_exposure(0.4f, a, b, b))) << a << ' ' << b;
}

TEST(ExposureCurve, ManySamplesAtOnceGiveTheSameBits)
{
    for (const float ev : {-3.0f, 1.3f, 5.0f}) {
        std::vector<float> samples = planes::noise(100003, 5);
        samples[17] = -0.2f;
        samples[18] = 3.0f;
        samples[19] = std::nanf("");
        const std::vector<float> original = samples;
        const float a = 1.0f + 0.1f * ev;
        orvo::applyExposureInPlace(samples.data(), samples.size(), a, kStart, kPivot);
        for (std::size_t i = 0; i < samples.size(); i += i < 64 ? 1 : 97)
            ASSERT_EQ(samples[i], apply_exposure(original[i], a, kStart, kPivot)) << i;
        planes::expectSameForAnyWorkers([&] {
            std::vector<float> again = original;
            orvo::applyExposureInPlace(again.data(), again.size(), a, kStart, kPivot);
            return again;
        });
    }
    orvo::applyExposureInPlace(nullptr, 0, 1.2f, kStart, kPivot);
}

TEST(ExposureCurve, PixelsThatAreGrayOrNotBentAreBitEqual)
{
    for (const float ev : kSteps) {
        const orvo::ExposureCurve curve(1.0f + 0.1f * ev, kStart, kPivot);
        std::vector<PixelRGB<float>> pixels;
        for (int i = 0; i <= 1000; ++i) {
            const float gray = static_cast<float>(i) * 0.001f;
            pixels.push_back({gray, gray, gray});
            const float dim = 0.2f * gray; // below the roll-off up to +3 EV
            pixels.push_back({dim, 0.3f * dim, 0.9f * dim});
        }
        const auto before = pixels;
        curve.applyToPixels(pixels.data(), pixels.size());
        for (std::size_t i = 0; i < pixels.size(); ++i) {
            if (ev > 3.0f && i % 2 == 1)
                continue;
            ASSERT_EQ(pixels[i].r, curve(before[i].r)) << i << " by " << ev;
            ASSERT_EQ(pixels[i].g, curve(before[i].g)) << i << " by " << ev;
            ASSERT_EQ(pixels[i].b, curve(before[i].b)) << i << " by " << ev;
        }
    }
}

TEST(ExposureCurve, PixelsKeepTheOrderAndThePlaceOfTheirChannels)
{
    for (const float ev : kSteps) {
        const orvo::ExposureCurve curve(1.0f + 0.1f * ev, kStart, kPivot);
        PixelRGB<float> pixel{0.98f, 0.8f, 0.5f};
        const auto place = [](const PixelRGB<float>& p) {
            const auto light = [](float v) { return decode(static_cast<double>(v)); };
            return (light(p.g) - light(p.b)) / (light(p.r) - light(p.b));
        };
        const double before = place(pixel);
        const float bent = curve(pixel.r);
        curve.applyToPixels(&pixel, 1);
        EXPECT_EQ(pixel.r, bent) << "the strongest follows the curve";
        EXPECT_GT(pixel.r, pixel.g);
        EXPECT_GT(pixel.g, pixel.b);
        // Exact when darkening; on the way to white the encoded values converge, which moves it slightly.
        EXPECT_NEAR(place(pixel), before, ev < 0.0f ? 1e-3 : 0.08) << ev;
    }
}

// Sweeps a colour through the knee and through white: no step in any channel.
TEST(ExposureCurve, PixelsChangeSmoothly)
{
    constexpr float kStep = 1e-4f;
    for (const float ev : {-2.0f, -1.0f, 1.0f, 2.0f}) {
        const orvo::ExposureCurve curve(1.0f + 0.1f * ev, kStart, kPivot);
        const auto at = [&](float v) {
            PixelRGB<float> pixel{v, v - 0.04f, 0.9f * v};
            curve.applyToPixels(&pixel, 1);
            return pixel;
        };
        for (float v = 0.8f; v < 1.1f; v += kStep) {
            const PixelRGB<float> a = at(v);
            const PixelRGB<float> b = at(v + kStep);
            constexpr float kSteepest = 40.0f; // of pale pixels between nearly and fully clipped
            ASSERT_NEAR(a.r, b.r, kSteepest * kStep) << v << " by " << ev;
            ASSERT_NEAR(a.g, b.g, kSteepest * kStep) << v << " by " << ev;
            ASSERT_NEAR(a.b, b.b, kSteepest * kStep) << v << " by " << ev;
        }
    }
}

TEST(ExposureCurve, APaleClippedPixelDarkensToNeutral)
{
    PixelRGB<float> window{1.0f, 0.97f, 1.0f};
    PixelRGB<float> lamp{1.0f, 0.5f, 0.2f};
    const orvo::ExposureCurve curve(0.8f, kStart, kPivot);
    curve.applyToPixels(&window, 1);
    curve.applyToPixels(&lamp, 1);
    EXPECT_NEAR(window.g, window.r, 1e-3f);
    EXPECT_LT(lamp.g, 0.6f * lamp.r);
}

TEST(ExposureCurve, PixelsAreTheSameForAnyThreadsAndBlocks)
{
    for (const float ev : {-3.0f, 1.3f, 5.0f}) {
        std::vector<float> samples = planes::noise(3 * 100003, 5);
        samples[17] = -0.2f;
        samples[18] = 3.0f;
        samples[19] = std::nanf("");
        auto pixels = planes::asPixels(samples);
        const orvo::ExposureCurve curve(1.0f + 0.1f * ev, kStart, kPivot);
        auto single = pixels;
        for (auto& pixel : single)
            curve.applyToPixels(&pixel, 1);
        curve.applyToPixels(pixels.data(), pixels.size());
        for (std::size_t i = 0; i < pixels.size(); ++i)
            ASSERT_EQ(pixels[i], single[i]) << i;
        planes::expectSameForAnyWorkers([&] {
            auto again = samples;
            curve.applyToPixels(reinterpret_cast<PixelRGB<float>*>(again.data()), again.size() / 3);
            return again;
        });
    }
    orvo::ExposureCurve(1.2f, kStart, kPivot).applyToPixels(nullptr, 0);
}
