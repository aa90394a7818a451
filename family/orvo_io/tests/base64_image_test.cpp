#include "test_files.hpp"

#include <orvo_common/memory_manager.hpp>
#include <orvo_core/parallel.hpp>
#include <orvo_io/base64.hpp>
#include <orvo_io/base64_image.hpp>
#include <orvo_logger/log_capture.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>

namespace orvo::test {
namespace {

using ::testing::HasSubstr;

std::string textOf(const Bytes& bytes) { return base64Of(bytes); }

std::string fileText(const std::filesystem::path& path) { return textOf(readBytes(path)); }

TEST(Base64, FollowsTheExamplesOfTheStandard)
{
    const std::vector<std::pair<std::string, std::string>> examples = {{"", ""},
                                                                       {"f", "Zg=="},
                                                                       {"fo", "Zm8="},
                                                                       {"foo", "Zm9v"},
                                                                       {"foob", "Zm9vYg=="},
                                                                       {"fooba", "Zm9vYmE="},
                                                                       {"foobar", "Zm9vYmFy"}};
    for (const auto& [plain, encoded] : examples) {
        const Bytes bytes(plain.begin(), plain.end());
        EXPECT_EQ(base64Of(bytes), encoded);
        EXPECT_EQ(bytesOfBase64(encoded), bytes);
        EXPECT_EQ(bytesOfBase64(encoded.substr(0, encoded.find('='))), bytes);
    }
    EXPECT_EQ(bytesOfBase64(" Zm9v\r\nYmFy\n"), (Bytes{'f', 'o', 'o', 'b', 'a', 'r'}));
    for (const char* const nonsense : {"Zm9v!", "Z", "Zg=", "Zg===", "Zg==Zg==", "Zm9v=", "====", "Zm-v", "\x80\xff"})
        EXPECT_FALSE(bytesOfBase64(nonsense)) << nonsense;
}

TEST(Base64Image, PixelsComeBack)
{
    for (const int bits : {8, 16})
        for (const auto& [width, height] : {std::pair{1, 1}, {1, 70}, {67, 1}, {61, 45}}) {
            const auto picture = gradient(width, height, bits == 8 ? 255 : 65535);
            const auto back = convertToImageData(imageToBase64(picture, {0, bits}));
            ASSERT_TRUE(back);
            EXPECT_EQ(back->size(), picture->size());
            EXPECT_EQ(*back->colorProfile(), *ColorProfileType::sRGB());
            EXPECT_LT(worstDifference(*picture, *back), 1e-6);
        }
}

TEST(Base64Image, APictureOfTheWorkingSpaceIsSentInSRGB)
{
    const auto srgb = gradient(40, 30, 255);
    std::shared_ptr<Picture> working;
    srgb->colorTransform(working, ColorProfileType::melissaRGB(), true);
    EXPECT_EQ(imageToBase64(working, {0, 8}), imageToBase64(srgb, {0, 8}));
    const auto bare = srgb->copy({});
    bare->setColorProfile(ColorProfileType::None());
    EXPECT_LT(worstDifference(*convertToImageData(imageToBase64(bare, {0, 8})), *srgb), 1e-6);
}

TEST(Base64Image, MasksAreGray)
{
    const auto mask = std::make_shared<MaskImage>(_Size<int>(33, 21));
    for (int y = 0; y < 21; ++y)
        for (int x = 0; x < 33; ++x)
            mask->row(y)[x] = static_cast<float>((x * 7 + y * 5) % 256) / 255.0f;
    for (const int bits : {8, 16}) {
        const std::string text = imageToBase64(mask, {0, bits});
        const auto bytes = bytesOfBase64(text);
        ASSERT_TRUE(bytes);
        EXPECT_EQ((*bytes)[24], bits); // of the header chunk
        EXPECT_EQ((*bytes)[25], 0);    // gray
        const auto back = convertToImageData(text);
        ASSERT_TRUE(back);
        for (std::size_t i = 0; i < mask->pixelCount(); ++i) {
            EXPECT_NEAR(back->data()[i].r, mask->data()[i], 1e-5f);
            EXPECT_EQ(back->data()[i].r, back->data()[i].b);
        }
    }
}

TEST(Base64Image, WhatLiesOutsideIsLimited)
{
    const auto picture = uniform(2, 1, -3.0f, 9.0f, 0.5f);
    picture->data()[1].r = std::numeric_limits<float>::quiet_NaN();
    const auto back = convertToImageData(imageToBase64(picture, {0, 8}));
    ASSERT_TRUE(back);
    EXPECT_EQ(back->data()[0].r, 0.0f);
    EXPECT_EQ(back->data()[0].g, 1.0f);
    EXPECT_EQ(back->data()[1].r, 0.0f);
}

TEST(Base64Image, OneThreadMakesTheSameText)
{
    const auto picture = gradient(300, 200);
    const std::string many = imageToBase64(picture, {0, 8});
    const WorkerLimit one(1);
    EXPECT_EQ(imageToBase64(picture, {0, 8}), many);
}

TEST(Base64Image, RefusesWhatIsNotOffered)
{
    const auto picture = uniform(2, 2, 0, 0, 0);
    EXPECT_THROW((void)imageToBase64(picture, {1, 8}), std::invalid_argument);
    EXPECT_THROW((void)imageToBase64(picture, {0, 12}), std::invalid_argument);
    EXPECT_THROW((void)imageToBase64(std::shared_ptr<const Picture>(), {0, 8}), std::invalid_argument);
    EXPECT_THROW((void)imageToBase64(uniform(0, 3, 0, 0, 0), {0, 8}), std::invalid_argument);
    EXPECT_EQ(Base64EncodeParameters(), Base64EncodeParameters(0, 16));
}

TEST(Base64Image, ReadsEveryKindOfPng)
{
    const TemporaryFolder folder;
    const Bytes gray = {0, 85, 170, 255};
    makePng(folder / "gray.png", 2, 2, gray, {.colorType = 0});
    makePng(folder / "palette.png", 2, 2, {0, 1, 1, 0}, {.colorType = 3, .palette = {255, 0, 0, 0, 255, 0}});
    makePng(folder / "alpha.png", 1, 1, {200, 100, 50, 0}, {.colorType = 6});
    makePng(folder / "deep.png", 1, 1, {0x80, 0x00, 0x40, 0x00, 0xff, 0xff}, {.bits = 16});
    makePng(folder / "interlaced.png", 2, 2, {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12}, {.interlaced = true});
    EXPECT_NEAR(convertToImageData(fileText(folder / "gray.png"))->data()[1].g, 85 / 255.0, 1e-6);
    EXPECT_EQ(convertToImageData(fileText(folder / "palette.png"))->data()[1].g, 1.0f);
    EXPECT_EQ(convertToImageData(fileText(folder / "alpha.png"))->data()[0].r, 0.0f);
    EXPECT_NEAR(convertToImageData(fileText(folder / "deep.png"))->data()[0].r, 0x8000 / 65535.0, 1e-6);
    EXPECT_NEAR(convertToImageData(fileText(folder / "interlaced.png"))->data()[3].b, 12 / 255.0, 1e-6);
}

TEST(Base64Image, NonsenseGivesNothingAndOneLine)
{
    const LogCapture log;
    const std::string good = imageToBase64(gradient(50, 40), {0, 8});
    const std::vector<std::string> texts = {"",
                                            "!!!",
                                            "aGVsbG8=",
                                            good.substr(0, good.size() / 2 / 4 * 4),
                                            good.substr(0, 60),
                                            textOf({0xFF, 0xD8, 0xFF, 0xE0, 0, 0, 0, 0})};
    for (const std::string& text : texts)
        EXPECT_FALSE(convertToImageData(text)) << text.substr(0, 20);
    const auto lines = log.texts(LogMessageType::Warning);
    ASSERT_EQ(lines.size(), texts.size());
    for (const std::string& line : lines)
        EXPECT_THAT(line, HasSubstr("convertToImageData: "));
}

// A PNG of zeros that decompresses to a thousand times its size.
std::string bomb(int width, int height)
{
    const TemporaryFolder folder;
    makePng(folder / "bomb.png", width, height,
            Bytes(static_cast<std::size_t>(width / 8) * static_cast<std::size_t>(height)), {.colorType = 0, .bits = 1});
    return fileText(folder / "bomb.png");
}

TEST(Base64Image, ABombTakesNoMemory)
{
    const std::string text = bomb(16000, 16000);
    EXPECT_LT(text.size(), 100'000u);
    MemoryManager::instance().resetPeak();
    const std::size_t before = MemoryManager::instance().peakBytes();
    EXPECT_FALSE(convertToImageData(text));
    EXPECT_LT(MemoryManager::instance().peakBytes(), before + 1'000'000);
}

TEST(Base64Image, DamagedTextsNeverCrash)
{
    const std::string good = imageToBase64(gradient(64, 48), {0, 8});
    std::mt19937 random(9);
    for (int i = 0; i < 300; ++i) {
        std::string text = good;
        for (int k = 0; k < 1 + i % 5; ++k)
            text[random() % text.size()] = "ABCDabcd0189+/= \x7f"[random() % 18];
        if (i % 3 == 0)
            text.resize(random() % text.size());
        const auto picture = convertToImageData(text);
        if (picture) {
            EXPECT_LE(static_cast<std::int64_t>(picture->pixelCount()), kMostDecodedPixels);
        }
    }
}

} // namespace
} // namespace orvo::test
