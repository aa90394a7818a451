// Built without NDEBUG in every preset, where a pixel outside of the picture ends the program.
#undef NDEBUG

#include <orvo_extensions/masked_image.hpp>

#include <gtest/gtest.h>

namespace {

TEST(MaskedImageDeathTest, PixelsOutsideAreAsserted)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    MaskedImage image(3, 2);
    EXPECT_DEATH(static_cast<void>(image.getMask(3, 0)), "imageWidth");
    EXPECT_DEATH(static_cast<void>(image.getSample(-1, 0)), "imageWidth");
    EXPECT_DEATH(image.setMask(0, 2, 1), "imageHeight");
    EXPECT_DEATH(image.setSample(0, -1, pixel_t(0, 0, 0)), "imageHeight");
    EXPECT_DEATH(static_cast<void>(image.isClear(0, 2)), "imageHeight");
    EXPECT_TRUE(image.isClear(2, 1));
}

} // namespace
