#include "lens/chromatic_fit.hpp"
#include "orvo_test_pictures.hpp"

#include <orvo/lens_correction.hpp>
#include <orvo_common/memory_manager.hpp>
#include <orvo_core/parallel.hpp>

#include <gmock/gmock.h>

namespace {

using orvo::ColorProfileType;
using orvo::PicturePointer;
using orvo::details::Channel;
using orvo::details::RadialScale;
using test::Pixel;

constexpr orvo::_Size<int> kSize{900, 640};
constexpr float kNoiseSpread = 0.006f; // encoded, of a typical picture

// Discs with red and blue drawn at other scales than green; each channel has its own brightness.
PicturePointer aberrated(const RadialScale& red, const RadialScale& blue, bool linear = false,
                         float noiseSpread = kNoiseSpread)
{
    const test::Discs discs(kSize);
    const double cx = (kSize.width - 1) / 2.0;
    const double cy = (kSize.height - 1) / 2.0;
    const double half = std::hypot(cx, cy);
    std::mt19937 random(11);
    std::normal_distribution<float> noise(0.0f, 1.0f);
    const auto channel = [&](double x, double y, const RadialScale& scale) {
        // The position in green whose light ends up here: one fixed-point step is exact to 1e-6 px at these scales.
        const double radius = std::hypot(x - cx, y - cy);
        double inner = radius;
        for (int i = 0; i < 4; ++i)
            inner = radius - scale.shift(inner, half);
        const double factor = radius > 0.0 ? inner / radius : 1.0;
        return static_cast<float>(discs.at(cx + (x - cx) * factor, cy + (y - cy) * factor));
    };
    return test::drawn(
        kSize, linear ? ColorProfileType::linearMelissaRGB() : ColorProfileType::melissaRGB(), [&](int x, int y) {
            Pixel p{0.8f * channel(x, y, red) + 0.05f + noiseSpread * noise(random),
                    channel(x, y, {}) + noiseSpread * noise(random),
                    0.9f * channel(x, y, blue) - 0.02f + noiseSpread * noise(random)};
            if (linear)
                p = {orvo::linearFromSRGBCurve(p.r), orvo::linearFromSRGBCurve(p.g), orvo::linearFromSRGBCurve(p.b)};
            return p;
        });
}

double cornerShift(const orvo::_ImageData<Pixel>& picture, Channel channel)
{
    const double half = std::hypot((picture.width() - 1) / 2.0, (picture.height() - 1) / 2.0);
    return orvo::details::fitRadialScale(picture, channel, orvo::details::findEdgePatches(picture)).shift(half, half);
}

const double kHalf = std::hypot((kSize.width - 1) / 2.0, (kSize.height - 1) / 2.0);

TEST(ChromaticAberration, IsMeasuredWithinATenthOfAPixelAtTheCorners)
{
    const RadialScale red{0.0008, 0.0};
    const RadialScale blue{-0.0007, 0.0003};
    const PicturePointer picture = aberrated(red, blue);
    EXPECT_NEAR(cornerShift(*picture, Channel::Red), red.shift(kHalf, kHalf), 0.1);
    EXPECT_NEAR(cornerShift(*picture, Channel::Blue), blue.shift(kHalf, kHalf), 0.1);
}

// Compares the result with the picture drawn without aberration, not with a measurement by the same fit.
TEST(ChromaticAberration, IsRemoved)
{
    const PicturePointer truth = aberrated({}, {}, false, 0.0f);
    for (const auto& [red, blue] :
         {std::pair<RadialScale, RadialScale>{{0.0008, 0.0}, {-0.0007, 0.0}}, {{-0.0012, 0.0004}, {0.0003, 0.0009}}}) {
        PicturePointer picture = aberrated(red, blue, false, 0.0f);
        const PicturePointer before = test::copyOf(picture);
        orvo::applyChromaticAbberationsCorrection(picture);
        double fringesBefore = 0.0;
        double fringesAfter = 0.0;
        for (std::size_t i = 0; i < picture->pixelCount(); ++i) {
            const Pixel& t = truth->data()[i];
            const Pixel& b = before->data()[i];
            const Pixel& a = picture->data()[i];
            ASSERT_EQ(a.g, b.g);
            fringesBefore += std::pow(b.r - t.r, 2) + std::pow(b.b - t.b, 2);
            fringesAfter += std::pow(a.r - t.r, 2) + std::pow(a.b - t.b, 2);
        }
        EXPECT_LT(std::sqrt(fringesAfter), 0.2 * std::sqrt(fringesBefore));
    }
}

TEST(ChromaticAberration, IsRemovedFromLinearPictures)
{
    PicturePointer picture = aberrated({0.0008, 0.0}, {-0.0007, 0.0}, true);
    orvo::applyChromaticAbberationsCorrection(picture);
    EXPECT_EQ(cornerShift(*picture, Channel::Red), 0.0); // nothing significant remains
    EXPECT_EQ(cornerShift(*picture, Channel::Blue), 0.0);
}

TEST(ChromaticAberration, LeavesAPictureWithoutItBitIdentical)
{
    PicturePointer picture = aberrated({}, {});
    const PicturePointer before = test::copyOf(picture);
    orvo::applyChromaticAbberationsCorrection(picture);
    EXPECT_TRUE(test::bytesEqual(*picture, *before));
}

TEST(ChromaticAberration, FindsNoneInNoiseFlatAreasAndTinyPictures)
{
    std::vector<PicturePointer> pictures{test::noise({500, 400}, ColorProfileType::melissaRGB(), 3),
                                         test::drawn({300, 300}, ColorProfileType::melissaRGB(),
                                                     [](int, int) {
                                                         return Pixel{0.3f, 0.4f, 0.5f};
                                                     }),
                                         test::drawn({300, 300}, nullptr, [](int, int) {
                                             return Pixel{test::kNaN, test::kNaN, 0.5f};
                                         })};
    for (const orvo::_Size<int>& size : test::kAwkwardSizes)
        pictures.push_back(test::noise(size, ColorProfileType::melissaRGB(), 4));
    for (PicturePointer& picture : pictures) {
        const PicturePointer before = test::copyOf(picture);
        orvo::applyChromaticAbberationsCorrection(picture);
        EXPECT_TRUE(test::bytesEqual(*picture, *before)) << picture->width();
    }
    PicturePointer none;
    orvo::applyChromaticAbberationsCorrection(none);
    EXPECT_EQ(none, nullptr);
}

TEST(ChromaticAberration, DoesNotDependOnThreadsAndUsesOnePlane)
{
    PicturePointer one = aberrated({0.0008, 0.0}, {-0.0007, 0.0});
    PicturePointer two = test::copyOf(one);
    {
        const orvo::WorkerLimit limit(1);
        orvo::applyChromaticAbberationsCorrection(one);
    }
    const std::size_t live = orvo::MemoryManager::instance().liveBytes();
    orvo::MemoryManager::instance().resetPeak();
    const orvo::WorkerLimit limit(2);
    orvo::applyChromaticAbberationsCorrection(two);
    EXPECT_TRUE(test::bytesEqual(*one, *two));
    EXPECT_EQ(orvo::MemoryManager::instance().liveBytes(), live);
    const std::size_t plane = two->pixelCount() * sizeof(float);
    EXPECT_LE(orvo::MemoryManager::instance().peakBytes() - live, plane + plane / 16);
}

TEST(RawChromaticAberration, IsCorrectedOnceAndDismissed)
{
    const PicturePointer original = aberrated({0.0008, 0.0}, {-0.0007, 0.0});
    const auto raw = std::make_shared<orvo::AdditionalRawMetadataSync>();
    PicturePointer picture = test::copyOf(original);
    orvo::LensCorrectionUnit::applyAndDismissRawCA(picture, nullptr, raw, true);
    EXPECT_FALSE(test::bytesEqual(*picture, *original));
    EXPECT_FALSE(raw->hasPendingChromaticAberration());
    PicturePointer again = test::copyOf(original);
    orvo::LensCorrectionUnit::applyAndDismissRawCA(again, nullptr, raw, true);
    EXPECT_TRUE(test::bytesEqual(*again, *original));
}

TEST(RawChromaticAberration, StaysPendingWhenNotRequested)
{
    const PicturePointer original = aberrated({0.0008, 0.0}, {-0.0007, 0.0});
    const auto raw = std::make_shared<orvo::AdditionalRawMetadataSync>();
    PicturePointer picture = test::copyOf(original);
    orvo::LensCorrectionUnit::applyAndDismissRawCA(picture, nullptr, raw, false);
    EXPECT_TRUE(test::bytesEqual(*picture, *original));
    EXPECT_TRUE(raw->hasPendingChromaticAberration());
    orvo::LensCorrectionUnit::applyAndDismissRawCA(picture, nullptr, nullptr, true);
    EXPECT_TRUE(test::bytesEqual(*picture, *original));
    orvo::LensCorrectionUnit::applyAndDismissRawCA(picture, nullptr, raw, true);
    EXPECT_FALSE(test::bytesEqual(*picture, *original)) << "requested later";
}

} // namespace
