#include "bracket/kept_picture.hpp"
#include "support/pictures.hpp"

#include <orvo_common/memory_manager.hpp>

#include <gtest/gtest.h>

using namespace orvo;
using namespace orvo::test;

namespace {

// All steps, in another order in each channel, as a reader gives them without a conversion.
std::shared_ptr<Picture> inSteps(int most, const std::shared_ptr<ColorProfile>& profile)
{
    const auto scale = static_cast<float>(1.0 / most);
    auto picture = drawn(256, (most + 1) / 256, [&](int x, int y) {
        const int step = y * 256 + x;
        const auto value = [&](int offset) { return static_cast<float>((step + offset) % (most + 1)) * scale; };
        return PixelRGB<float>{value(0), value(most / 3), value(most / 2)};
    });
    picture->setColorProfile(profile);
    return picture;
}

} // namespace

TEST(KeptPicture, GivesTheBitsOfTheWholeConversion)
{
    for (const int most : {255, 65535})
        for (const auto& profile : {ColorProfileType::sRGB(), ColorProfileType::melissaRGB()}) {
            const auto kept = KeptPicture::of(*inSteps(most, profile));
            ASSERT_TRUE(kept) << most;
            const auto expected = inSteps(most, profile);
            expected->convertTo(ColorProfileType::melissaRGB());
            const auto found = kept->inWorkingSpace();
            EXPECT_TRUE(sameBytes(*found, *expected)) << most;
            EXPECT_TRUE(*found->colorProfile() == *ColorProfileType::melissaRGB());
        }
}

TEST(KeptPicture, TakesAByteOrTwoOfASample)
{
    for (const int most : {255, 65535}) {
        const auto picture = inSteps(most, ColorProfileType::sRGB());
        const std::size_t before = MemoryManager::instance().liveBytes();
        const auto kept = KeptPicture::of(*picture);
        const std::size_t samples = 3 * picture->pixelCount();
        EXPECT_LE(MemoryManager::instance().liveBytes() - before, (most == 255 ? samples : 2 * samples) + 4096) << most;
    }
}

TEST(KeptPicture, IsNoneWhereAConversionWouldDiffer)
{
    const auto gray = plain(20, 10, 51.0f * static_cast<float>(1.0 / 255));
    EXPECT_FALSE(KeptPicture::of(*gray)) << "perhaps of one channel";
    const auto picture = inSteps(255, ColorProfileType::sRGB());
    for (const float value : {0.1234567f, -0.5f, 1.5f, 1e30f}) {
        const float before = std::exchange(picture->row(0)[77].g, value);
        EXPECT_FALSE(KeptPicture::of(*picture)) << value;
        picture->row(0)[77].g = before;
    }
    EXPECT_TRUE(KeptPicture::of(*picture));
}
