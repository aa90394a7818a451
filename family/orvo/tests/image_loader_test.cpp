#include "orvo_test_pictures.hpp"

#include <orvo/image_loader.hpp>
#include <orvo_common/memory_manager.hpp>
#include <orvo_core/identifier.hpp>
#include <orvo_core/parallel.hpp>
#include <orvo_io/image_reader.hpp>
#include <orvo_logger/log_capture.hpp>

#include <gtest/gtest.h>

#include <fstream>
#include <stdexcept>

namespace {

using orvo::copyMetadata;
using orvo::ImageLoader;
using orvo::LogCapture;
using orvo::StateSettings;
using test::Pixel;

// A temporary folder, removed at the end of the test.
class DocumentLoading : public testing::Test
{
protected:
    const std::filesystem::path folder = std::filesystem::temp_directory_path() /
                                         ("orvo_loader_" + std::to_string(reinterpret_cast<std::uintptr_t>(this)) +
                                          "_" + std::to_string(std::random_device()()));

    void SetUp() override { std::filesystem::create_directories(folder); }
    void TearDown() override
    {
        std::error_code ignored;
        std::filesystem::remove_all(folder, ignored);
    }

    [[nodiscard]] std::filesystem::path file(const std::string& name, const std::string& bytes) const
    {
        std::ofstream(folder / name, std::ios::binary) << bytes;
        return folder / name;
    }

    // An uncompressed TIFF of 8-bit RGB, `width` x 2: red increases from left to right.
    [[nodiscard]] std::filesystem::path tiff(const std::string& name, int width, std::size_t cutOff = 0) const
    {
        std::string pixels;
        for (int y = 0; y < 2; ++y)
            for (int x = 0; x < width; ++x)
                pixels += {static_cast<char>(x * 20), '\x40', '\x20'};
        std::string bytes("II*\0\x08\0\0\0", 8);
        const auto number = [&](std::uint32_t value, int length) {
            for (int i = 0; i < length; ++i)
                bytes += static_cast<char>(value >> (8 * i) & 255);
        };
        constexpr std::uint32_t kEntries = 9;
        constexpr std::uint32_t kBehind = 8 + 2 + kEntries * 12 + 4;
        const auto entry = [&](std::uint32_t tag, std::uint32_t type, std::uint32_t count, std::uint32_t value) {
            number(tag, 2);
            number(type, 2);
            number(count, 4);
            number(value, 4);
        };
        number(kEntries, 2);
        entry(256, 4, 1, static_cast<std::uint32_t>(width));
        entry(257, 4, 1, 2);
        entry(258, 3, 3, kBehind);
        entry(259, 3, 1, 1);
        entry(262, 3, 1, 2);
        entry(273, 4, 1, kBehind + 6);
        entry(277, 3, 1, 3);
        entry(278, 4, 1, 2);
        entry(279, 4, 1, static_cast<std::uint32_t>(pixels.size()));
        number(0, 4);
        for (int i = 0; i < 3; ++i)
            number(8, 2);
        bytes += pixels;
        bytes.resize(bytes.size() - cutOff);
        return file(name, bytes);
    }
};

TEST_F(DocumentLoading, LoadsOpensAndDisposes)
{
    const auto path = tiff("picture.tif", 10);
    const LogCapture log;
    const auto bytes = ImageLoader::load(path);
    EXPECT_TRUE(orvo::Identifier::deserialize(bytes));
    EXPECT_EQ(ImageLoader::getSize(bytes), orvo::_Size<int>(10, 2));
    const auto picture = orvo::open(bytes, {}, {});
    ASSERT_TRUE(picture);
    EXPECT_EQ(picture->size(), orvo::_Size<int>(10, 2));
    EXPECT_EQ(picture->colorProfile(), orvo::ColorProfileType::melissaRGB());
    EXPECT_LT(picture->row(0)[0].r, picture->row(0)[9].r);
    const auto metadata = copyMetadata(bytes);
    ASSERT_TRUE(metadata);
    EXPECT_EQ(metadata->size, orvo::_Size<int>(10, 2));
    metadata->size = {1, 1}; // the caller's copy
    EXPECT_EQ(copyMetadata(bytes)->size, orvo::_Size<int>(10, 2));
    EXPECT_NE(copyMetadata(bytes), metadata);
    ImageLoader::dispose(bytes);
    EXPECT_EQ(ImageLoader::getSize(bytes), orvo::_Size<int>());
    EXPECT_FALSE(orvo::open(bytes, {}, {}));
    EXPECT_FALSE(copyMetadata(bytes));
    ImageLoader::dispose(bytes); // harmless a second time
    EXPECT_TRUE(log.lines().empty());
}

TEST_F(DocumentLoading, EveryLoadIsANewDocument)
{
    const auto path = tiff("picture.tif", 10);
    const auto first = ImageLoader::load(path);
    const auto second = ImageLoader::load(path);
    EXPECT_NE(first, second);
    ImageLoader::dispose(first);
    EXPECT_EQ(ImageLoader::getSize(second), orvo::_Size<int>(10, 2));
    ImageLoader::dispose(second);
}

TEST_F(DocumentLoading, OtherFilesGiveNothingAndNoLogLine)
{
    const LogCapture log;
    const std::filesystem::path paths[] = {file("text.jpg", "this is no picture"),
                                           file("empty.tif", ""),
                                           file("zeros.png", std::string(5000, '\0')),
                                           file("short", "\xFF\xD8"),
                                           file("video.mp4", std::string("\0\0\0\x18"
                                                                         "ftypisom\0\0\0\0",
                                                                         16)),
                                           file("sound.wav", "RIFF1234WAVEfmt "),
                                           folder,
                                           folder / "nowhere.jpg",
                                           {}};
    for (const auto& path : paths) {
        const auto bytes = ImageLoader::load(path);
        EXPECT_EQ(ImageLoader::getSize(bytes), orvo::_Size<int>()) << path;
        EXPECT_FALSE(orvo::open(bytes, {}, {})) << path;
        EXPECT_FALSE(copyMetadata(bytes)) << path;
        ImageLoader::dispose(bytes);
    }
    EXPECT_TRUE(log.lines().empty());
}

TEST_F(DocumentLoading, GarbageBytesNameNothing)
{
    const LogCapture log;
    for (const std::vector<unsigned char>& bytes : {std::vector<unsigned char>{},
                                                    {1, 2, 3},
                                                    std::vector<unsigned char>(17, 1),
                                                    std::vector<unsigned char>(999)}) {
        EXPECT_EQ(ImageLoader::getSize(bytes), orvo::_Size<int>());
        EXPECT_FALSE(orvo::open(bytes, {}, {}));
        EXPECT_FALSE(copyMetadata(bytes));
        ImageLoader::dispose(bytes);
    }
    EXPECT_TRUE(log.lines().empty());
}

TEST_F(DocumentLoading, AFileWithoutItsPixelsIsForgotten)
{
    const auto bytes = ImageLoader::load(tiff("cut.tif", 10, 40));
    const bool wasKnown = ImageLoader::getSize(bytes) != orvo::_Size<int>();
    EXPECT_TRUE(wasKnown);
    EXPECT_FALSE(orvo::open(bytes, {}, {}));
    EXPECT_EQ(ImageLoader::getSize(bytes), orvo::_Size<int>());
}

TEST_F(DocumentLoading, AFileThatIsWrittenAgainIsRefused)
{
    for (const int width : {10, 12}) { // of the same number of bytes too
        const auto path = tiff("picture.tif", 10);
        const auto bytes = ImageLoader::load(path);
        const auto before = std::filesystem::last_write_time(path);
        (void)tiff("picture.tif", width);
        std::filesystem::last_write_time(path, before + std::chrono::seconds(1));
        EXPECT_FALSE(orvo::open(bytes, {}, {})) << width;
        ASSERT_TRUE(orvo::lastFailure());
        EXPECT_EQ(orvo::lastFailure()->file, path);
        EXPECT_EQ(orvo::lastFailure()->sentence, "expected the file that was loaded, found that it has changed since");
        EXPECT_EQ(ImageLoader::getSize(bytes), orvo::_Size<int>());
    }
}

TEST_F(DocumentLoading, StopsOnRequest)
{
    const auto bytes = ImageLoader::load(tiff("picture.tif", 10));
    StateSettings state;
    state.canceled = [] { return true; };
    EXPECT_FALSE(orvo::open(bytes, state, {}));
    EXPECT_EQ(orvo::lastFailure()->kind, orvo::FailureKind::Cancelled);
    EXPECT_EQ(ImageLoader::getSize(bytes), orvo::_Size<int>()) << "forgotten, as after any failure";
    const auto again = ImageLoader::load(tiff("picture.tif", 10));
    state.canceled = [] { return false; };
    EXPECT_TRUE(orvo::open(again, state, {}));
    ImageLoader::dispose(again);
}

TEST_F(DocumentLoading, ASavedStateThatIsNotAppliedIsAWarning)
{
    const auto bytes = ImageLoader::load(tiff("picture.tif", 10));
    StateSettings state;
    EXPECT_TRUE(orvo::open(bytes, state, {}));
    EXPECT_TRUE(orvo::lastWarnings().empty());
    EXPECT_TRUE(orvo::open(bytes, {"saved.state", {}, {}}, {}));
    EXPECT_EQ(orvo::lastWarnings().size(), 1u);
    state.composition = "{}";
    EXPECT_TRUE(orvo::open(bytes, state, {}));
    ASSERT_EQ(orvo::lastWarnings().size(), 1u);
    EXPECT_NE(orvo::lastWarnings()[0].find("picture.tif"), std::string::npos);
    ImageLoader::dispose(bytes);
}

TEST_F(DocumentLoading, IsForgottenWhereOpeningThrows)
{
    const auto bytes = ImageLoader::load(tiff("picture.tif", 10));
    StateSettings state;
    state.canceled = []() -> bool { throw std::runtime_error("no answer"); };
    EXPECT_THROW((void)orvo::open(bytes, state, {}), std::runtime_error);
    EXPECT_EQ(ImageLoader::getSize(bytes), orvo::_Size<int>());
    EXPECT_FALSE(copyMetadata(bytes));
}

TEST_F(DocumentLoading, ServesManyThreads)
{
    const auto path = tiff("picture.tif", 10);
    const std::size_t before = orvo::MemoryManager::instance().liveBytes();
    std::atomic<int> right = 0;
    orvo::forEachRow(64, [&](int) {
        const auto bytes = ImageLoader::load(path);
        const auto picture = orvo::open(bytes, {}, {});
        const auto metadata = copyMetadata(bytes);
        const bool sound = picture && metadata && ImageLoader::getSize(bytes) == picture->size();
        ImageLoader::dispose(bytes);
        right += sound && ImageLoader::getSize(bytes) == orvo::_Size<int>() ? 1 : 0;
    });
    EXPECT_EQ(right, 64);
    EXPECT_EQ(orvo::MemoryManager::instance().liveBytes(), before);
}

TEST(DocumentsOfRealFiles, DevelopsRawFiles)
{
    const auto folder = test::dataFolder();
    if (!folder)
        GTEST_SKIP() << "ORVO_TEST_DATA names no folder of test pictures";
    const auto bytes = ImageLoader::load(*folder / "raw/building_ev/building_2.dng");
    EXPECT_EQ(ImageLoader::getSize(bytes), orvo::_Size<int>(1600, 900));
    const auto metadata = copyMetadata(bytes);
    ASSERT_TRUE(metadata);
    EXPECT_TRUE(metadata->isRaw);
    EXPECT_TRUE(metadata->isDeveloped);
    const auto picture = orvo::open(bytes, {}, {});
    ASSERT_TRUE(picture);
    EXPECT_EQ(picture->colorProfile(), orvo::ColorProfileType::melissaRGB());
    ImageLoader::dispose(bytes);
}

TEST(DocumentsOfRealFiles, TurnsPicturesUpright)
{
    const auto folder = test::dataFolder();
    if (!folder)
        GTEST_SKIP() << "ORVO_TEST_DATA names no folder of test pictures";
    const auto bytes = ImageLoader::load(*folder / "single/waterfall_orientation6/waterfall_orientation6.jpg");
    EXPECT_EQ(ImageLoader::getSize(bytes), orvo::_Size<int>(1800, 1200));
    const auto picture = orvo::open(bytes, {}, {});
    ASSERT_TRUE(picture);
    EXPECT_EQ(picture->size(), orvo::_Size<int>(1800, 1200));
    ImageLoader::dispose(bytes);
}

} // namespace
