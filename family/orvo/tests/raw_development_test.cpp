#include "orvo_test_pictures.hpp"

#include <orvo/raw_development.hpp>
#include <orvo_core/parallel.hpp>

#include <gmock/gmock.h>

namespace {

using orvo::ColorProfileType;
using orvo::PicturePointer;
using test::Pixel;

std::shared_ptr<orvo::ImageMetadata> rawMetadata(float baseline = 0.0f)
{
    auto metadata = std::make_shared<orvo::ImageMetadata>();
    metadata->isRaw = true;
    metadata->baselineExposure = baseline;
    return metadata;
}

PicturePointer row(const std::vector<Pixel>& pixels)
{
    return test::drawn({static_cast<int>(pixels.size()), 1}, ColorProfileType::linearMelissaRGB(),
                       [&](int x, int) { return pixels[static_cast<std::size_t>(x)]; });
}

Pixel developed(Pixel pixel, float exposure, float baseline = 0.0f)
{
    PicturePointer picture = row({pixel});
    orvo::develop_for_hdr(picture, rawMetadata(baseline), nullptr, exposure, false);
    return *picture->data();
}

float linear(float encoded) { return orvo::linearFromSRGBCurve(encoded); }
Pixel gray(float v) { return {v, v, v}; }

TEST(DevelopForHdr, ReturnsTheWorkingSpaceInPlace)
{
    PicturePointer picture = row({gray(0.2f)});
    const auto* const before = picture->data();
    orvo::develop_for_hdr(picture, rawMetadata(), nullptr, 0.0f, false);
    EXPECT_EQ(picture->data(), before);
    EXPECT_EQ(*picture->colorProfile(), *ColorProfileType::melissaRGB());
    EXPECT_NEAR(picture->data()->r, orvo::srgbCurveFromLinear(0.2f), 2e-6f);
}

TEST(DevelopForHdr, DoublesLinearMidTonesWithEachStop)
{
    constexpr float kTwoPercent = 0.02f;
    for (float tone = 0.004f; tone < 0.7f; tone *= 1.3f) {
        for (float exposure = -4.0f; exposure <= 3.0f; exposure += 0.5f) {
            if (tone * std::exp2(exposure + 1.0f) > 0.7f)
                continue;
            const Pixel pixel{tone, tone * 0.7f, tone * 0.4f};
            const Pixel low = developed(pixel, exposure);
            const Pixel high = developed(pixel, exposure + 1.0f);
            EXPECT_NEAR(linear(high.r) / linear(low.r), 2.0f, 2.0f * kTwoPercent) << tone << " at " << exposure;
            EXPECT_NEAR(linear(high.g) / linear(low.g), 2.0f, 2.0f * kTwoPercent) << tone << " at " << exposure;
            EXPECT_NEAR(linear(high.b) / linear(low.b), 2.0f, 2.0f * kTwoPercent) << tone << " at " << exposure;
        }
    }
}

TEST(DevelopForHdr, AddsTheBaseline) { EXPECT_EQ(developed(gray(0.1f), 0.5f, 1.0f), developed(gray(0.1f), 1.5f)); }

TEST(DevelopForHdr, KeepsNeutralTonesExactlyNeutral)
{
    for (float exposure = -4.0f; exposure <= 4.0f; exposure += 0.7f) {
        for (float tone = 0.0001f; tone < 100.0f; tone *= 1.17f) {
            const Pixel p = developed(gray(tone), exposure);
            EXPECT_EQ(p.r, p.g) << tone << " at " << exposure;
            EXPECT_EQ(p.g, p.b) << tone << " at " << exposure;
        }
    }
}

TEST(DevelopForHdr, RisesWithToneAndWithExposure)
{
    constexpr float kRounding = 3e-7f;
    for (float exposure = -4.0f; exposure <= 4.0f; exposure += 1.0f) {
        float before = 0.0f;
        for (float tone = 0.001f; tone < 8.0f; tone *= 1.01f) {
            const float v = developed(gray(tone), exposure).g;
            EXPECT_GE(v, before - kRounding) << tone << " at " << exposure;
            EXPECT_GE(developed(gray(tone), exposure + 0.25f).g, v - kRounding) << tone << " at " << exposure;
            before = v;
        }
    }
}

// A kink would be a jump of the slope that does not shrink with the step.
TEST(DevelopForHdr, HasNoKink)
{
    for (const float exposure : {-3.0f, -1.0f, 0.0f, 1.5f}) {
        const auto light = [&](double tone) {
            return static_cast<double>(linear(developed(gray(static_cast<float>(tone)), exposure).g));
        };
        constexpr double kStep = 4e-3;
        const double scale = std::exp2(exposure);
        double steepest = 0.0;
        double largestJump = 0.0;
        for (double tone = 0.05; tone < 1.6; tone += kStep) {
            const double before = (light(tone) - light(tone - kStep)) / kStep;
            const double after = (light(tone + kStep) - light(tone)) / kStep;
            steepest = std::max({steepest, after, scale});
            largestJump = std::max(largestJump, std::abs(after - before));
        }
        EXPECT_LT(largestJump, 0.1 * steepest) << exposure;
    }
}

TEST(DevelopForHdr, TurnsClippedColourToNeutralWhite)
{
    // A saturated sensor after white balance: green at the limit, red and blue beyond it.
    for (const Pixel& clipped : {Pixel{2.0f, 1.0f, 1.5f}, Pixel{1.2f, 1.0f, 1.4f}, Pixel{1.0f, 1.0f, 1.0f}}) {
        for (float exposure = -3.0f; exposure <= 3.0f; exposure += 1.0f) {
            const Pixel p = developed(clipped, exposure);
            const float most = std::max({p.r, p.g, p.b});
            const float least = std::min({p.r, p.g, p.b});
            EXPECT_LT(most - least, 1e-5f) << exposure;
            EXPECT_LE(most, 1.0f);
            // Brighter than with the gain alone, and not gray even three stops down.
            EXPECT_GT(least, exposure >= 0.0f ? 0.94f : 0.6f) << exposure;
        }
    }
}

TEST(DevelopForHdr, RemovesMagentaFromTheRimOfClippedAreas)
{
    const Pixel rim = developed({1.0f, 0.75f, 0.95f}, 0.0f);
    EXPECT_GE(rim.g, std::min(rim.r, rim.b) - 1e-5f);
    const Pixel lamp = developed({0.9f, 0.2f, 0.9f}, 0.0f);
    EXPECT_LT(lamp.g, 0.7f * lamp.r);
}

TEST(DevelopForHdr, KeepsAStrongColourAtTheLimit)
{
    const Pixel lamp = developed({0.15f, 0.3f, 1.2f}, 0.0f);
    EXPECT_GT(lamp.b, 0.9f);
    EXPECT_LT(lamp.r, 0.75f);
    EXPECT_LT(lamp.r, lamp.g);
}

TEST(DevelopForHdr, RunsToWhiteWithoutTurningHue)
{
    float before = 1.0f;
    for (float exposure = 0.0f; exposure <= 8.0f; exposure += 0.25f) {
        const Pixel p = developed({0.5f, 0.3f, 0.1f}, exposure);
        EXPECT_GE(p.r, p.g);
        EXPECT_GE(p.g, p.b);
        const float colour = (linear(p.r) - linear(p.b)) / linear(p.r);
        EXPECT_LE(colour, before + 1e-5f);
        before = colour;
    }
    EXPECT_LT(before, 0.02f);
}

TEST(DevelopForHdr, StaysFinite)
{
    constexpr float kHuge = std::numeric_limits<float>::max();
    for (const float bad : {test::kNaN, test::kInfinity, -test::kInfinity, kHuge, -kHuge, 1e-42f, -0.01f}) {
        for (const float exposure : {-4.0f, 0.0f, 4.0f, 1e30f, -1e30f, test::kNaN, test::kInfinity}) {
            PicturePointer picture = row({{bad, 0.5f, 0.5f}, {0.5f, bad, 0.5f}, {0.5f, 0.5f, bad}, gray(bad)});
            orvo::develop_for_hdr(picture, rawMetadata(), nullptr, exposure, false);
            EXPECT_TRUE(test::finite(*picture)) << bad << " at " << exposure;
        }
    }
    EXPECT_EQ(developed(gray(test::kNaN), 0.0f).r, 0.0f);
}

TEST(DevelopForHdr, LeavesDevelopedPicturesUnchanged)
{
    PicturePointer picture = test::noise({9, 5}, ColorProfileType::melissaRGB(), 1);
    const PicturePointer before = test::copyOf(picture);
    orvo::develop_for_hdr(picture, rawMetadata(), nullptr, 2.0f, true);
    EXPECT_TRUE(test::bytesEqual(*picture, *before));
    PicturePointer none;
    orvo::develop_for_hdr(none, nullptr, nullptr, 0.0f, true);
    EXPECT_EQ(none, nullptr);
}

TEST(DevelopForHdr, DoesNotDependOnThreads)
{
    for (const orvo::_Size<int> size : {orvo::_Size<int>{0, 0}, {1, 1}, {3, 2}, {641, 37}, {700, 500}}) {
        PicturePointer one = test::noise(size, ColorProfileType::linearMelissaRGB(), 7, -0.1f, 2.0f);
        PicturePointer two = test::copyOf(one);
        {
            const orvo::WorkerLimit limit(1);
            orvo::develop_for_hdr(one, rawMetadata(), nullptr, -1.0f, true);
        }
        const orvo::WorkerLimit limit(2);
        orvo::develop_for_hdr(two, rawMetadata(), nullptr, -1.0f, true);
        EXPECT_TRUE(test::bytesEqual(*one, *two)) << size.width;
    }
}

const orvo::RawImageDevelop::ThumbnailGetter kNoThumbnail;

TEST(RawImageDevelop, AppliesTheShareOfTheSuggestion)
{
    const PicturePointer source = row({gray(0.05f)});
    const auto light = [&](float tone, float strength) {
        PicturePointer target;
        orvo::RawImageDevelop().develop(source, target, kNoThumbnail, rawMetadata(), tone, strength, {}, true, nullptr);
        return linear(target->data()->g);
    };
    EXPECT_NEAR(light(2.0f, 0.0f), 0.05f, 1e-5f);
    EXPECT_NEAR(light(2.0f, 0.5f), 0.10f, 1e-5f);
    EXPECT_NEAR(light(1.0f, 1.0f), 0.10f, 1e-5f);
}

TEST(RawImageDevelop, DoesNotDependOnWhatTheFrameShows)
{
    const PicturePointer source = row({gray(0.05f)});
    const PicturePointer small = test::drawn({8, 8}, ColorProfileType::linearMelissaRGB(),
                                             [](int x, int) { return gray(x == 0 ? 1.0f : 0.05f); });
    PicturePointer target;
    orvo::RawImageDevelop().develop(
        source, target, [&] { return small; }, rawMetadata(), 3.0f, 1.0f, {}, true, nullptr);
    EXPECT_NEAR(linear(target->data()->g), 0.4f, 1e-3f) << "bright parts do not limit the tone";
    const auto developed = [](const std::vector<Pixel>& pixels) {
        PicturePointer out;
        orvo::RawImageDevelop().develop(row(pixels), out, {}, rawMetadata(), 0.5f, 1.0f, {}, false, nullptr);
        return out->data()[0];
    };
    EXPECT_EQ(developed({gray(0.1f), gray(0.0f), gray(0.0f)}), developed({gray(0.1f), gray(2.0f), gray(2.0f)}));
}

TEST(RawImageDevelop, ContrastKeepsEndsAndOrder)
{
    std::vector<Pixel> ramp;
    for (int i = 0; i <= 1000; ++i)
        ramp.push_back(gray(static_cast<float>(i) * 0.002f));
    const PicturePointer source = row(ramp);
    PicturePointer plain;
    PicturePointer contrasty;
    const orvo::RawImageDevelop developer;
    developer.develop(source, plain, kNoThumbnail, rawMetadata(), 0.0f, 1.0f, {}, true, nullptr);
    developer.develop(source, contrasty, kNoThumbnail, rawMetadata(), 0.0f, 1.0f, {}, false, nullptr);
    EXPECT_EQ(contrasty->data()[0], gray(0.0f));
    float steepest = 0.0f;
    for (std::size_t i = 1; i < ramp.size(); ++i) {
        const float rise = contrasty->data()[i].g - contrasty->data()[i - 1].g;
        const float plainRise = plain->data()[i].g - plain->data()[i - 1].g;
        EXPECT_GE(rise, -2e-7f) << i;
        EXPECT_EQ(contrasty->data()[i].r, contrasty->data()[i].b);
        if (plainRise > 1e-4f)
            steepest = std::max(steepest, rise / plainRise);
    }
    EXPECT_GT(steepest, 1.15f);
    EXPECT_LT(steepest, 1.4f);
    EXPECT_LT(contrasty->data()[20].g, plain->data()[20].g);   // shadows darker
    EXPECT_GT(contrasty->data()[250].g, plain->data()[250].g); // lights lighter
}

TEST(RawImageDevelop, WorksOnTheSamePointer)
{
    const PicturePointer source = test::noise({40, 30}, ColorProfileType::linearMelissaRGB(), 3);
    PicturePointer apart;
    PicturePointer same = test::copyOf(source);
    const orvo::RawImageDevelop developer;
    developer.develop(
        source, apart, [&] { return source; }, rawMetadata(), 1.0f, 1.0f, {}, false, nullptr);
    const auto* const pixels = same->data();
    developer.develop(
        same, same, [&] { return test::copyOf(same); }, rawMetadata(), 1.0f, 1.0f, {}, false, nullptr);
    EXPECT_EQ(same->data(), pixels);
    EXPECT_TRUE(test::bytesEqual(*apart, *same));
    EXPECT_EQ(*apart->colorProfile(), *ColorProfileType::melissaRGB());
    EXPECT_EQ(*source->colorProfile(), *ColorProfileType::linearMelissaRGB());
}

TEST(RawImageDevelop, DevelopsAPart)
{
    const PicturePointer source = test::noise({40, 30}, ColorProfileType::linearMelissaRGB(), 3);
    PicturePointer whole;
    PicturePointer part;
    const orvo::RawImageDevelop developer;
    developer.develop(source, whole, kNoThumbnail, rawMetadata(), 0.0f, 1.0f, {}, false, nullptr);
    developer.develop(source, part, kNoThumbnail, rawMetadata(), 0.0f, 1.0f, {30, 20, 100, 5}, false, nullptr);
    ASSERT_EQ(part->size(), (orvo::_Size<int>{10, 5}));
    EXPECT_TRUE(test::bytesEqual(*part, *whole->copy({30, 20, 10, 5})));
    developer.develop(source, part, kNoThumbnail, rawMetadata(), 0.0f, 1.0f, {60, 0, 5, 5}, false, nullptr);
    EXPECT_EQ(part->pixelCount(), 0u);
}

TEST(RawImageDevelop, LeavesTheTargetOnCancel)
{
    // Polled more than once, so that a cancel during the tone estimate also counts.
    for (const int yesAt : {1, 2}) {
        PicturePointer picture = test::noise({20, 10}, ColorProfileType::linearMelissaRGB(), 3);
        const PicturePointer before = test::copyOf(picture);
        int polls = 0;
        orvo::RawImageDevelop().develop(picture, picture, kNoThumbnail, rawMetadata(), 1.0f, 1.0f, {}, false,
                                        [&] { return ++polls >= yesAt; });
        EXPECT_EQ(polls, yesAt);
        EXPECT_TRUE(test::bytesEqual(*picture, *before));
        EXPECT_EQ(*picture->colorProfile(), *ColorProfileType::linearMelissaRGB());
    }
}

TEST(RawImageDevelop, PassesDevelopedPicturesThrough)
{
    const PicturePointer source = test::noise({20, 10}, ColorProfileType::sRGB(), 3);
    PicturePointer target;
    orvo::RawImageDevelop().develop(source, target, kNoThumbnail, rawMetadata(), 1.0f, 1.0f, {}, false, nullptr);
    ASSERT_NE(target, nullptr);
    EXPECT_NE(target, source);
    EXPECT_TRUE(test::bytesEqual(*target, *source));
    PicturePointer same = test::copyOf(source);
    orvo::RawImageDevelop().develop(same, same, kNoThumbnail, nullptr, 1.0f, 1.0f, {}, false, nullptr);
    EXPECT_TRUE(test::bytesEqual(*same, *source));
}

} // namespace
