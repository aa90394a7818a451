#include "raw/white_point.hpp"

#include <orvo/raw_development.hpp>

#include <gtest/gtest.h>

using namespace orvo;

namespace {

const PixelRGB<float> kGray{0.2f, 0.2f, 0.2f};

float luminance(const PixelRGB<float>& p) { return 0.2880402f * p.r + 0.7118741f * p.g + 0.0000857f * p.b; }

} // namespace

TEST(WhitePoint, NothingShiftsIfNothingIsRequestedOrKnown)
{
    EXPECT_FALSE(whiteBalanceShift({5000, 3}, {5000, 3}));
    EXPECT_FALSE(whiteBalanceShift({0, 0}, {5000, 0}));
    EXPECT_FALSE(whiteBalanceShift({5000, 0}, {0, 0}));
    EXPECT_FALSE(whiteBalanceShift({5000, 0}, {std::numeric_limits<float>::quiet_NaN(), 0}));
}

TEST(WhitePoint, AHigherTemperatureIsWarmer)
{
    const auto shift = whiteBalanceShift({5000, 0}, {6500, 0});
    ASSERT_TRUE(shift);
    const auto p = shifted(kGray, *shift);
    EXPECT_GT(p.r, p.b * 1.2f);
    EXPECT_NEAR(luminance(p), 0.2f, 1e-5f);
}

TEST(WhitePoint, APositiveTintTurnsToMagenta)
{
    // Declaring the light more magenta than the camera assumed removes magenta: gray turns green.
    const auto shift = whiteBalanceShift({5500, 0}, {5500, 30});
    ASSERT_TRUE(shift);
    const auto p = shifted(kGray, *shift);
    EXPECT_GT(p.g, p.r);
    EXPECT_GT(p.g, p.b);
}

TEST(WhitePoint, RoundTripIsTheIdentity)
{
    const auto there = whiteBalanceShift({3200, 12}, {7000, -8});
    const auto back = whiteBalanceShift({7000, -8}, {3200, 12});
    ASSERT_TRUE(there && back);
    const PixelRGB<float> colour{0.3f, 0.15f, 0.4f};
    const auto p = shifted(shifted(colour, *there), *back);
    const float scale = p.g / colour.g; // the luminance of grays is exact, that of colours approximate
    EXPECT_NEAR(p.r / scale, colour.r, 1e-4f);
    EXPECT_NEAR(p.b / scale, colour.b, 1e-4f);
    EXPECT_NEAR(scale, 1.0f, 0.1f);
}

TEST(WhitePoint, DevelopmentAppliesIt)
{
    const auto developed = [](const RawImageDevelop& developer) {
        auto picture = std::make_shared<_ImageData<PixelRGB<float>>>(_Size<int>(8, 8), kGray,
                                                                     ColorProfileType::linearMelissaRGB());
        auto metadata = std::make_shared<ImageMetadata>();
        metadata->cameraTemperature = 5000.0f;
        developer.develop(picture, picture, nullptr, metadata, 0.0f, 1.0f, {}, false, nullptr);
        return picture->row(4)[4];
    };
    const auto plain = developed(RawImageDevelop());
    EXPECT_NEAR(plain.r, plain.b, 1e-5f);
    const auto same = developed(RawImageDevelop(5000.0f, 0.0f, 0.0f));
    EXPECT_EQ(same.r, plain.r);
    const auto warm = developed(RawImageDevelop(6500.0f, 0.0f, 0.0f));
    EXPECT_GT(warm.r, warm.b * 1.05f);
    EXPECT_GT(developed(RawImageDevelop(0.0f, 0.0f, 1.0f)).g, plain.g * 1.2f);
}
