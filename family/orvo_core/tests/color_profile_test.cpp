#include "test_pictures.hpp"

#include <orvo_core/color_profile.hpp>
#include <orvo_core/color_transform.hpp>
#include <orvo_core/parallel.hpp>

#include <gtest/gtest.h>
#include <lcms2.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <stdexcept>

using namespace orvo;
using test::Picture;
using test::PictureRGBA;
using Profile = std::shared_ptr<ColorProfile>;
using Bytes = std::vector<unsigned char>;

namespace {

constexpr float kLikeLcms = 1.0f / 4096;
constexpr float kThereAndBack = 1.0f / 8192;

struct Primaries
{
    double rx, ry, gx, gy, bx, by, wx, wy;
};
constexpr Primaries kP3 = {0.680, 0.320, 0.265, 0.690, 0.150, 0.060, 0.3127, 0.3290};
constexpr Primaries kAdobe = {0.64, 0.33, 0.21, 0.71, 0.15, 0.06, 0.3127, 0.3290};
constexpr double kSrgbCurve[] = {2.4, 1.0 / 1.055, 0.055 / 1.055, 1.0 / 12.92, 0.04045};

Bytes savedProfile(cmsHPROFILE profile, double version = 4.3)
{
    cmsSetProfileVersion(profile, version);
    cmsUInt32Number size = 0;
    cmsSaveProfileToMem(profile, nullptr, &size);
    Bytes bytes(size);
    cmsSaveProfileToMem(profile, bytes.data(), &size);
    cmsCloseProfile(profile);
    return bytes;
}

// Takes ownership of the curve. Version 2 stores curves as tables, 4 as formulas.
Bytes rgbIcc(const Primaries& p, cmsToneCurve* curve, double version = 4.3)
{
    const cmsCIExyY white = {p.wx, p.wy, 1.0};
    const cmsCIExyYTRIPLE primaries = {{p.rx, p.ry, 1.0}, {p.gx, p.gy, 1.0}, {p.bx, p.by, 1.0}};
    cmsToneCurve* curves[] = {curve, curve, curve};
    const cmsHPROFILE profile = cmsCreateRGBProfile(&white, &primaries, curves);
    cmsFreeToneCurve(curve);
    return savedProfile(profile, version);
}

cmsToneCurve* srgbCurve() { return cmsBuildParametricToneCurve(nullptr, 4, kSrgbCurve); }
cmsToneCurve* gammaCurve(double gamma) { return cmsBuildGamma(nullptr, gamma); }

// An S of 256 entries that is neither a power nor that of sRGB.
cmsToneCurve* sampledCurve()
{
    std::vector<float> values;
    for (int i = 0; i < 256; ++i) {
        const double x = i / 255.0;
        values.push_back(static_cast<float>(0.3 * x + 0.7 * x * x * (3.0 - 2.0 * x) * x));
    }
    return cmsBuildTabulatedToneCurveFloat(nullptr, 256, values.data());
}

Bytes grayIcc(double gamma)
{
    cmsToneCurve* const curve = gammaCurve(gamma);
    const cmsHPROFILE profile = cmsCreateGrayProfile(cmsD50_xyY(), curve);
    cmsFreeToneCurve(curve);
    return savedProfile(profile);
}

// Ink to Lab only: full light on paper, less with each ink.
Bytes cmykIcc()
{
    const cmsHPROFILE profile = cmsCreateProfilePlaceholder(nullptr);
    cmsSetDeviceClass(profile, cmsSigInputClass);
    cmsSetColorSpace(profile, cmsSigCmykData);
    cmsSetPCS(profile, cmsSigLabData);
    cmsPipeline* const pipeline = cmsPipelineAlloc(nullptr, 4, 3);
    cmsStage* const table = cmsStageAllocCLut16bit(nullptr, 9, 4, 3, nullptr);
    cmsStageSampleCLut16bit(
        table,
        [](const cmsUInt16Number ink[], cmsUInt16Number out[], void*) {
            cmsCIELab lab;
            lab.L = 100.0 * (1.0 - ink[3] / 65535.0) * (1.0 - (ink[0] + ink[1] + ink[2]) / (4.0 * 65535.0));
            lab.a = 60.0 * (ink[1] - ink[0]) / 65535.0;
            lab.b = 60.0 * (ink[2] - 0.5 * (ink[0] + ink[1])) / 65535.0;
            cmsFloat2LabEncoded(out, &lab);
            return 1;
        },
        nullptr, 0);
    // The file's type has curves on both sides of the table.
    cmsPipelineInsertStage(pipeline, cmsAT_BEGIN, cmsStageAllocToneCurves(nullptr, 4, nullptr));
    cmsPipelineInsertStage(pipeline, cmsAT_END, table);
    cmsPipelineInsertStage(pipeline, cmsAT_END, cmsStageAllocToneCurves(nullptr, 3, nullptr));
    cmsWriteTag(profile, cmsSigAToB0Tag, pipeline);
    cmsPipelineFree(pipeline);
    return savedProfile(profile);
}

Profile p3() { return ColorProfile::fromIcc(rgbIcc(kP3, srgbCurve())); }
Profile adobe() { return ColorProfile::fromIcc(rgbIcc(kAdobe, gammaCurve(563.0 / 256))); }
Profile sampled() { return ColorProfile::fromIcc(rgbIcc(kP3, sampledCurve())); }

std::vector<Profile> matrixProfiles()
{
    return {ColorProfileType::sRGB(),
            ColorProfileType::melissaRGB(),
            ColorProfileType::linearMelissaRGB(),
            ColorProfileType::linearSRGB(),
            p3(),
            adobe(),
            sampled()};
}

std::shared_ptr<Picture> grid(const Profile& profile)
{
    constexpr int kSteps = 17;
    auto result = std::make_shared<Picture>(_Size<int>(kSteps * kSteps, kSteps), profile);
    for (int i = 0; i < kSteps * kSteps * kSteps; ++i)
        result->data()[i] = {static_cast<float>(i % kSteps) / (kSteps - 1),
                             static_cast<float>(i / kSteps % kSteps) / (kSteps - 1),
                             static_cast<float>(i / kSteps / kSteps) / (kSteps - 1)};
    return result;
}

std::shared_ptr<Picture> converted(const Picture& source, const Profile& profile)
{
    std::shared_ptr<Picture> result;
    source.colorTransform(result, profile, true);
    return result;
}

std::vector<PixelRGB<float>> byLcms(const Picture& source, const Profile& profile)
{
    const auto open = [](const Bytes& icc) {
        return cmsOpenProfileFromMem(icc.data(), static_cast<cmsUInt32Number>(icc.size()));
    };
    const cmsHPROFILE from = open(source.colorProfile()->icc());
    const cmsHPROFILE to = open(profile->icc());
    const cmsHTRANSFORM transform =
        cmsCreateTransform(from, TYPE_RGB_FLT, to, TYPE_RGB_FLT, INTENT_RELATIVE_COLORIMETRIC, cmsFLAGS_NOOPTIMIZE);
    std::vector<PixelRGB<float>> result(source.pixelCount());
    cmsDoTransform(transform, source.data(), result.data(), static_cast<cmsUInt32Number>(result.size()));
    cmsDeleteTransform(transform);
    cmsCloseProfile(from);
    cmsCloseProfile(to);
    return result;
}

bool isInside(const PixelRGB<float>& pixel)
{
    const auto inside = [](float v) { return v >= 0.0f && v <= 1.0f; };
    return inside(pixel.r) && inside(pixel.g) && inside(pixel.b);
}

float difference(const PixelRGB<float>& a, const PixelRGB<float>& b)
{
    return std::max({std::abs(a.r - b.r), std::abs(a.g - b.g), std::abs(a.b - b.b)});
}

constexpr double kSumRounding = 5e-7;         // of light, in float sums
constexpr double kFileRounding = 1.0 / 65536; // of the primaries in an ICC file

// As difference(), except for samples whose light is equal within `lightRounding`. A plain power is infinitely steep at
// black, so an encoded value there cannot be resolved more precisely.
float visibleDifference(const Profile& profile, const PixelRGB<float>& a, const PixelRGB<float>& b,
                        double lightRounding)
{
    const bool isPower = profile->hash().find("gamma") != std::string::npos;
    const auto of = [=](float u, float v) {
        const bool sameLight =
            isPower && std::abs(std::pow(std::abs(u), 2.2) - std::pow(std::abs(v), 2.2)) <= lightRounding;
        return sameLight ? 0.0f : std::abs(u - v);
    };
    return std::max({of(a.r, b.r), of(a.g, b.g), of(a.b, b.b)});
}

std::string pair(const Profile& from, const Profile& to) { return from->hash() + " to " + to->hash(); }

} // namespace

TEST(ColorTransform, AgreesWithLittleCms)
{
    for (const Profile& from : matrixProfiles())
        for (const Profile& to : matrixProfiles()) {
            const auto source = grid(from);
            const auto ours = converted(*source, to);
            const auto theirs = byLcms(*source, to);
            float worst = 0.0f;
            std::size_t compared = 0;
            for (std::size_t i = 0; i < theirs.size(); ++i)
                // Outside the space LittleCMS clips some curves that ours continue.
                if (isInside(theirs[i]) && isInside(ours->data()[i])) {
                    worst = std::max(worst, visibleDifference(to, ours->data()[i], theirs[i], kFileRounding));
                    ++compared;
                }
            EXPECT_LE(worst, kLikeLcms) << pair(from, to);
            EXPECT_GT(compared, theirs.size() / 8) << pair(from, to);
        }
}

TEST(ColorTransform, RoundTripIsTheIdentity)
{
    for (const Profile& from : matrixProfiles())
        for (const Profile& to : matrixProfiles()) {
            const auto source = grid(from);
            const auto back = converted(*converted(*source, to), from);
            float worst = 0.0f;
            for (std::size_t i = 0; i < source->pixelCount(); ++i)
                worst = std::max(worst, visibleDifference(from, back->data()[i], source->data()[i], kSumRounding));
            EXPECT_LE(worst, kThereAndBack) << pair(from, to);
        }
}

TEST(ColorTransform, ValuesBeyondTheRangeSurviveTheRoundTrip)
{
    for (const Profile& to : matrixProfiles()) {
        const auto source = test::noise<PixelRGB<float>>({64, 64}, 3, -0.5f, 4.0f, ColorProfileType::sRGB());
        const auto back = converted(*converted(*source, to), source->colorProfile());
        for (std::size_t i = 0; i < source->pixelCount(); ++i)
            ASSERT_LE(difference(back->data()[i], source->data()[i]), kThereAndBack) << to->hash();
    }
}

TEST(ColorTransform, CurvesAreMirroredBelowZeroAndContinueAboveOne)
{
    const Picture source({1, 1}, {-0.5f, 2.0f, -0.001f}, ColorProfileType::sRGB());
    const auto linear = converted(source, ColorProfileType::linearSRGB());
    EXPECT_NEAR(linear->data()->r, -std::pow((0.5 + 0.055) / 1.055, 2.4), 1e-5);
    EXPECT_NEAR(linear->data()->g, std::pow((2.0 + 0.055) / 1.055, 2.4), 1e-5);
    EXPECT_NEAR(linear->data()->b, -0.001 / 12.92, 1e-5);
}

TEST(ColorTransform, KnownColoursOfSRGBInTheWorkingSpace)
{
    // ProPhoto coordinates of linear sRGB red, from the primaries of both and Bradford's adaptation (Lindbloom 2012).
    const Picture red({1, 1}, {1.0f, 0.0f, 0.0f}, ColorProfileType::linearSRGB());
    const auto result = converted(red, ColorProfileType::linearMelissaRGB());
    EXPECT_NEAR(result->data()->r, 0.5293, 5e-4);
    EXPECT_NEAR(result->data()->g, 0.0984, 5e-4);
    EXPECT_NEAR(result->data()->b, 0.0169, 5e-4);
}

TEST(ColorTransform, NeutralStaysNeutral)
{
    auto profiles = matrixProfiles();
    profiles.push_back(ColorProfile::fromIcc(grayIcc(1.8)));
    for (const Profile& from : profiles)
        for (const Profile& to : profiles) {
            Picture source({257, 1}, from);
            for (int i = 0; i < 257; ++i) {
                const float v = static_cast<float>(i) / 256;
                source.data()[i] = {v, v, v};
            }
            const auto result = converted(source, to);
            for (int i = 0; i < 257; ++i) {
                const PixelRGB<float>& p = result->data()[i];
                ASSERT_NEAR(p.r, p.g, 1e-5f) << pair(from, to) << " " << i;
                ASSERT_NEAR(p.b, p.g, 1e-5f) << pair(from, to) << " " << i;
            }
            EXPECT_NEAR(result->data()[256].g, 1.0f, 1e-5f) << pair(from, to);
        }
}

TEST(ColorTransform, EqualProfilesAndNoneCopy)
{
    const auto source = test::noise<PixelRGB<float>>({641, 3}, 4, -1.0f, 2.0f, ColorProfileType::sRGB());
    const auto twin = ColorProfile::fromIcc(ColorProfileType::sRGB()->icc());
    for (const Profile& profile : {ColorProfileType::sRGB(), twin, ColorProfileType::None(), Profile()}) {
        const auto result = converted(*source, profile);
        EXPECT_TRUE(test::bytesEqual(*result, *source));
        EXPECT_EQ(result->colorProfile(), profile);
    }
    const auto unknown = test::noise<PixelRGB<float>>({641, 3}, 4, -1.0f, 2.0f, ColorProfileType::None());
    EXPECT_TRUE(test::bytesEqual(*converted(*unknown, ColorProfileType::melissaRGB()), *unknown));
}

TEST(ColorTransform, AllFormsGiveTheSame)
{
    for (const auto size : test::kAwkwardSizes) {
        const auto source = test::noise<PixelRGB<float>>(size, 5, -0.1f, 1.5f, ColorProfileType::sRGB());
        const auto expected = converted(*source, ColorProfileType::melissaRGB());
        auto target = std::make_shared<Picture>(size, ColorProfileType::melissaRGB());
        source->colorTransform(target, true);
        EXPECT_TRUE(test::bytesEqual(*target, *expected));
        const auto inPlace = source->copy({});
        inPlace->convertTo(ColorProfileType::melissaRGB());
        EXPECT_TRUE(test::bytesEqual(*inPlace, *expected));
        EXPECT_EQ(inPlace->colorProfile(), ColorProfileType::melissaRGB());
        const RowConverter rows(source->colorProfile(), 3, ColorProfileType::melissaRGB());
        Picture byRows(size, nullptr);
        for (int y = 0; y < size.height; ++y)
            rows.convert(&source->row(y)->r, byRows.row(y), size.width);
        EXPECT_TRUE(test::bytesEqual(byRows, *expected));
    }
}

TEST(ColorTransform, AlphaIsCopied)
{
    const auto source = test::noise<PixelRGBA<float>>({641, 3}, 6, 0.0f, 1.0f, ColorProfileType::sRGB());
    std::shared_ptr<PictureRGBA> result;
    source->colorTransform(result, ColorProfileType::melissaRGB(), true);
    Picture opaque({641, 3}, ColorProfileType::sRGB());
    for (std::size_t i = 0; i < source->pixelCount(); ++i)
        opaque.data()[i] = {source->data()[i].r, source->data()[i].g, source->data()[i].b};
    opaque.convertTo(ColorProfileType::melissaRGB());
    for (std::size_t i = 0; i < source->pixelCount(); ++i) {
        const auto& p = result->data()[i];
        ASSERT_EQ((PixelRGB<float>{p.r, p.g, p.b}), opaque.data()[i]);
        ASSERT_EQ(p.a, source->data()[i].a);
    }
}

TEST(ColorTransform, MasksAreCopied)
{
    const auto mask = test::noise<float>({64, 64}, 7, 0.0f, 1.0f, ColorProfileType::sRGB());
    std::shared_ptr<_ImageData<float>> result;
    mask->colorTransform(result, ColorProfileType::melissaRGB(), true);
    EXPECT_TRUE(test::bytesEqual(*result, *mask));
}

TEST(ColorTransform, AnyNumberOfWorkersGivesTheSamePixels)
{
    const auto source = test::noise<PixelRGB<float>>({641, 303}, 8, -0.1f, 1.5f, ColorProfileType::sRGB());
    std::shared_ptr<Picture> single;
    {
        const WorkerLimit limit(1);
        single = converted(*source, adobe());
    }
    const WorkerLimit limit(2);
    EXPECT_TRUE(test::bytesEqual(*single, *converted(*source, adobe())));
}

TEST(ColorTransform, NotANumberStaysInItsPixel)
{
    constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();
    constexpr float kInfinity = std::numeric_limits<float>::infinity();
    for (const Profile& to : matrixProfiles()) {
        Picture source({5, 1}, {0.5f, 0.5f, 0.5f}, ColorProfileType::sRGB());
        source.data()[1].g = kNaN;
        source.data()[3].r = kInfinity;
        source.data()[4].b = -kInfinity;
        const auto result = converted(source, to);
        EXPECT_NEAR(result->data()[0].g, result->data()[2].g, 1e-6f);
        EXPECT_TRUE(std::isnan(result->data()[1].g) || to->hash() == "matrix sRGB srgb") << to->hash();
    }
}

TEST(ColorTransform, MismatchesAreRefused)
{
    const Picture source({4, 4}, {}, ColorProfileType::sRGB());
    std::shared_ptr<Picture> target;
    EXPECT_THROW(source.colorTransform(target, true), std::invalid_argument);
    target = std::make_shared<Picture>(_Size<int>(4, 5), ColorProfileType::sRGB());
    EXPECT_THROW(source.colorTransform(target, true), std::invalid_argument);
    const auto cmyk = ColorProfile::fromIcc(cmykIcc());
    ASSERT_TRUE(cmyk);
    EXPECT_THROW(source.colorTransform(target, cmyk, true), std::invalid_argument);
    EXPECT_THROW(RowConverter(ColorProfileType::sRGB(), 4, ColorProfileType::sRGB()), std::invalid_argument);
    EXPECT_THROW(RowConverter(ColorProfileType::None(), 4, ColorProfileType::sRGB()), std::invalid_argument);
    EXPECT_THROW(RowConverter(cmyk, 3, ColorProfileType::sRGB()), std::invalid_argument);
    EXPECT_THROW(RowConverter(cmyk, 4, ColorProfileType::None()), std::invalid_argument);
    EXPECT_THROW(RowConverter(ColorProfileType::sRGB(), 2, ColorProfileType::sRGB()), std::invalid_argument);
}

TEST(RowConverter, BytesGiveTheSameAsTheirFloats)
{
    constexpr int kCount = 1500; // blocks, and a part of one
    const std::vector<std::pair<Profile, int>> sources = {{ColorProfileType::sRGB(), 3},
                                                          {ColorProfileType::melissaRGB(), 3}, // only copied
                                                          {nullptr, 3},
                                                          {adobe(), 3},
                                                          {sampled(), 3},
                                                          {ColorProfile::fromIcc(grayIcc(2.2)), 1},
                                                          {ColorProfile::fromIcc(cmykIcc()), 4}};
    for (const auto& [profile, channels] : sources) {
        std::vector<std::uint8_t> bytes(static_cast<std::size_t>(channels * kCount));
        for (std::size_t i = 0; i < bytes.size(); ++i)
            bytes[i] = static_cast<std::uint8_t>(i * 37 + i / 256); // every value in every channel
        std::vector<float> floats(bytes.size());
        std::transform(bytes.begin(), bytes.end(), floats.begin(),
                       [](std::uint8_t v) { return static_cast<float>(v) * static_cast<float>(1.0 / 255.0); });
        const RowConverter converter(profile, channels, ColorProfileType::melissaRGB());
        Picture expected({kCount, 1}, nullptr);
        Picture found({kCount, 1}, nullptr);
        converter.convert(floats.data(), expected.row(0), kCount);
        converter.convert(bytes.data(), found.row(0), kCount);
        EXPECT_TRUE(test::bytesEqual(found, expected)) << channels;
    }
}

TEST(RowConverter, GrayBecomesNeutral)
{
    const std::vector<float> samples = {0.0f, 0.25f, 0.5f, 1.0f};
    std::vector<PixelRGB<float>> pixels(samples.size());
    const auto gray = ColorProfile::fromIcc(grayIcc(2.2));
    ASSERT_TRUE(gray);
    EXPECT_EQ(gray->channelCount(), 1);
    RowConverter(gray, 1, ColorProfileType::linearSRGB()).convert(samples.data(), pixels.data(), 4);
    for (std::size_t i = 0; i < samples.size(); ++i) {
        EXPECT_NEAR(pixels[i].g, std::pow(samples[i], 2.2f), 1e-5f);
        EXPECT_NEAR(pixels[i].r, pixels[i].g, 1e-6f);
    }
    // Gray samples of an RGB space, and of none.
    RowConverter(ColorProfileType::sRGB(), 1, ColorProfileType::linearSRGB()).convert(samples.data(), pixels.data(), 4);
    EXPECT_NEAR(pixels[2].b, linearFromSRGBCurve(0.5f), 1e-5f);
    RowConverter(nullptr, 1, ColorProfileType::sRGB()).convert(samples.data(), pixels.data(), 4);
    EXPECT_EQ(pixels[1], (PixelRGB<float>{0.25f, 0.25f, 0.25f}));
}

TEST(RowConverter, InkBecomesColour)
{
    const auto cmyk = ColorProfile::fromIcc(cmykIcc());
    ASSERT_TRUE(cmyk);
    EXPECT_EQ(cmyk->channelCount(), 4);
    const RowConverter converter(cmyk, 4, ColorProfileType::sRGB());
    const std::vector<float> ink = {0, 0, 0, 0, /**/ 0, 0, 0, 1, /**/ 0, 1, 0, 0, /**/ 0, 0, 0, 0.5f};
    std::vector<PixelRGB<float>> pixels(4);
    converter.convert(ink.data(), pixels.data(), 4);
    EXPECT_LE(difference(pixels[0], {1.0f, 1.0f, 1.0f}), 2e-3f);
    EXPECT_LE(difference(pixels[1], {0.0f, 0.0f, 0.0f}), 2e-3f);
    EXPECT_GT(pixels[2].r, pixels[2].g + 0.2f); // magenta
    EXPECT_NEAR(pixels[3].g, 0.4663f, 2e-3f);   // L* of 50
    // Rows longer than a block, from several threads.
    const int count = 5000;
    std::vector<float> many(static_cast<std::size_t>(count) * 4, 0.0f);
    for (std::size_t i = 3; i < many.size(); i += 4)
        many[i] = 0.5f;
    std::vector<std::vector<PixelRGB<float>>> rows(8, std::vector<PixelRGB<float>>(count));
    forEachRow(8, [&](int y) { converter.convert(many.data(), rows[static_cast<std::size_t>(y)].data(), count); });
    for (const auto& row : rows)
        for (const auto& pixel : row)
            ASSERT_EQ(pixel, pixels[3]);
}

TEST(ColorProfile, HashDistinguishesSpacesNotFiles)
{
    const auto profiles = matrixProfiles();
    for (std::size_t i = 0; i < profiles.size(); ++i)
        for (std::size_t k = 0; k < profiles.size(); ++k)
            EXPECT_EQ(*profiles[i] == *profiles[k], i == k) << pair(profiles[i], profiles[k]);
    EXPECT_FALSE(*ColorProfileType::None() == *ColorProfileType::sRGB());
    EXPECT_FALSE(*ColorProfile::fromIcc(grayIcc(1.0)) == *ColorProfileType::linearSRGB());

    // Other vendors' files of sRGB: one with a table for its curve, one with a differently rounded white.
    Primaries rounded = {0.6400, 0.3300, 0.3000, 0.6000, 0.1500, 0.0600, 0.31271, 0.32902};
    EXPECT_EQ(*ColorProfile::fromIcc(rgbIcc(rounded, srgbCurve(), 2.1)), *ColorProfileType::sRGB());
    cmsHPROFILE builtIn = cmsCreate_sRGBProfile();
    EXPECT_EQ(*ColorProfile::fromIcc(savedProfile(builtIn)), *ColorProfileType::sRGB());
    EXPECT_EQ(*ColorProfile::fromIcc(rgbIcc(kAdobe, gammaCurve(2.2))), *adobe());
}

TEST(ColorProfile, BuiltInFilesAreStableAndNamed)
{
    for (const Profile& profile : {ColorProfileType::sRGB(), ColorProfileType::melissaRGB(),
                                   ColorProfileType::linearMelissaRGB(), ColorProfileType::linearSRGB()}) {
        const Bytes& icc = profile->icc();
        ASSERT_GT(icc.size(), 128u);
        EXPECT_EQ(std::string(icc.begin() + 36, icc.begin() + 40), "acsp");
        EXPECT_EQ(Bytes(icc.begin() + 24, icc.begin() + 28), (Bytes{7, 234, 0, 1})) << "the date is fixed";
        const auto back = ColorProfile::fromIcc(icc);
        ASSERT_TRUE(back);
        EXPECT_EQ(*back, *profile);
        EXPECT_EQ(back->description(), profile->description());
        EXPECT_FALSE(profile->description().empty());
        EXPECT_EQ(profile->channelCount(), 3);
    }
    EXPECT_TRUE(ColorProfileType::None()->icc().empty());
    EXPECT_EQ(ColorProfileType::sRGB(), ColorProfileType::sRGB());
    EXPECT_EQ(ColorProfileType::sRGB()->description(), "sRGB");
}

TEST(ColorProfile, KnowsWhetherSamplesAreLight)
{
    EXPECT_TRUE(ColorProfileType::linearMelissaRGB()->isLinear());
    EXPECT_TRUE(ColorProfileType::linearSRGB()->isLinear());
    EXPECT_TRUE(ColorProfile::fromIcc(grayIcc(1.0))->isLinear());
    EXPECT_FALSE(ColorProfileType::melissaRGB()->isLinear());
    EXPECT_FALSE(adobe()->isLinear());
    EXPECT_FALSE(ColorProfileType::None()->isLinear());
    EXPECT_FALSE(ColorProfile::fromIcc(cmykIcc())->isLinear());
}

TEST(ColorProfile, GarbageIsNotAProfile)
{
    testing::internal::CaptureStderr();
    EXPECT_FALSE(ColorProfile::fromIcc({}));
    EXPECT_FALSE(ColorProfile::fromIcc(Bytes(4, 0)));
    EXPECT_FALSE(ColorProfile::fromIcc(Bytes(5000, 0)));
    EXPECT_FALSE(ColorProfile::fromIcc(Bytes(5000, 255)));
    const cmsHPROFILE lab = cmsCreateLab4Profile(nullptr);
    EXPECT_FALSE(ColorProfile::fromIcc(savedProfile(lab)));
    // The same primary three times is degenerate.
    const cmsHPROFILE flat = cmsCreate_sRGBProfile();
    const cmsCIEXYZ colorant = {0.3, 0.33, 0.27};
    for (const auto tag : {cmsSigRedColorantTag, cmsSigGreenColorantTag, cmsSigBlueColorantTag})
        cmsWriteTag(flat, tag, &colorant);
    EXPECT_FALSE(ColorProfile::fromIcc(savedProfile(flat)));
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

TEST(ColorProfile, TruncatedFilesDoNoHarm)
{
    testing::internal::CaptureStderr();
    for (const Bytes& whole :
         {ColorProfileType::sRGB()->icc(), cmykIcc(), grayIcc(2.2), rgbIcc(kP3, sampledCurve(), 2.1)})
        for (std::size_t size = 0; size < whole.size(); size += 1 + size / 24) {
            const auto profile = ColorProfile::fromIcc(std::span(whole).first(size));
            // The header contains the size of the file, so nothing shorter is valid.
            EXPECT_FALSE(profile) << size << " of " << whole.size();
        }
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

TEST(ColorProfile, DamagedFilesDoNoHarm)
{
    testing::internal::CaptureStderr();
    std::mt19937 random(9);
    const float pixel[4] = {0.2f, 0.4f, 0.6f, 0.1f};
    for (const Bytes& whole :
         {ColorProfileType::sRGB()->icc(), cmykIcc(), grayIcc(2.2), rgbIcc(kP3, sampledCurve(), 2.1)})
        for (int round = 0; round < 300; ++round) {
            Bytes damaged = whole;
            const std::size_t reach = round % 2 == 0 ? std::min<std::size_t>(300, whole.size()) : whole.size();
            for (int k = 0; k < 1 + round % 7; ++k)
                damaged[random() % reach] = static_cast<unsigned char>(random());
            const auto profile = ColorProfile::fromIcc(damaged);
            if (!profile)
                continue;
            PixelRGB<float> result;
            try {
                RowConverter(profile, profile->channelCount(), ColorProfileType::melissaRGB())
                    .convert(pixel, &result, 1);
            } catch (const std::runtime_error&) { // a table that supports one direction only
            }
        }
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

TEST(SrgbCurve, SinglesAndRowsAgreeAndInvert)
{
    std::vector<float> values;
    for (int i = -2000; i <= 20000; ++i)
        values.push_back(static_cast<float>(i) / 10000.0f);
    auto light = values;
    linearFromSRGBCurve(light.data(), static_cast<int>(light.size()));
    auto encoded = values;
    srgbCurveFromLinear(encoded.data(), static_cast<int>(encoded.size()));
    for (std::size_t i = 0; i < values.size(); ++i) {
        const float reach = std::max(1.0f, std::abs(light[i]));
        ASSERT_NEAR(light[i], linearFromSRGBCurve(values[i]), 1e-6f * reach) << values[i];
        ASSERT_NEAR(encoded[i], srgbCurveFromLinear(values[i]), 1e-6f) << values[i];
        ASSERT_NEAR(srgbCurveFromLinear(linearFromSRGBCurve(values[i])), values[i], 1e-6f) << values[i];
    }
    EXPECT_EQ(linearFromSRGBCurve(0.0f), 0.0f);
    EXPECT_EQ(linearFromSRGBCurve(1.0f), 1.0f);
    EXPECT_NEAR(linearFromSRGBCurve(0.5f), 0.21404114f, 1e-7f);
    EXPECT_NEAR(srgbCurveFromLinear(0.18f), 0.46135613f, 1e-6f);
}
