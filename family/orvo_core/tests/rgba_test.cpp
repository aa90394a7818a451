#include "test_pictures.hpp"

#include <orvo_core/rgba.hpp>

#include <gtest/gtest.h>

#include <stdexcept>

namespace {

TEST(RGBA, ThereAndBackIsExact)
{
    for (const auto& size : test::kAwkwardSizes) {
        const auto picture = test::noise<orvo::PixelRGB<float>>(size, 1, -1.0f, 2.0f, orvo::ColorProfileType::sRGB());
        const auto mask = test::noise<float>(size, 2);
        const auto joined = orvo::joinToRGBA(picture, mask, false);
        EXPECT_EQ(joined->colorProfile(), picture->colorProfile());
        const auto split = orvo::splitRGBA(joined);
        EXPECT_TRUE(test::bytesEqual(*split.image, *picture));
        EXPECT_TRUE(test::bytesEqual(*split.mask, *mask));
        EXPECT_EQ(split.image->colorProfile(), picture->colorProfile());
    }
}

TEST(RGBA, NothingIsPremultiplied)
{
    const auto picture =
        std::make_shared<test::Picture>(orvo::_Size<int>(1, 1), orvo::PixelRGB<float>{0.2f, 0.4f, 0.6f}, nullptr);
    const auto mask = std::make_shared<orvo::MaskImage>(orvo::_Size<int>(1, 1), 0.0f);
    EXPECT_EQ(orvo::joinToRGBA(picture, mask, false)->row(0)[0], (orvo::PixelRGBA<float>{0.2f, 0.4f, 0.6f, 0.0f}));
}

TEST(RGBA, WhatDoesNotFitIsRefused)
{
    const auto picture = test::noise<orvo::PixelRGB<float>>({4, 3}, 1);
    EXPECT_THROW((void)orvo::joinToRGBA(picture, test::noise<float>({3, 4}, 2), false), std::invalid_argument);
    EXPECT_THROW((void)orvo::joinToRGBA(picture, nullptr, false), std::invalid_argument);
    EXPECT_THROW((void)orvo::joinToRGBA(nullptr, test::noise<float>({4, 3}, 2), false), std::invalid_argument);
    EXPECT_THROW((void)orvo::splitRGBA(nullptr), std::invalid_argument);
}

} // namespace
