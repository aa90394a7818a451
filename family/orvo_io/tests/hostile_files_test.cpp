// Files that are truncated, damaged, gigantic or not pictures.
#include "test_files.hpp"

#include <orvo_common/memory_manager.hpp>
#include <orvo_logger/log_capture.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <cmath>
#include <fstream>
#include <random>

namespace orvo::test {
namespace {

using ::testing::HasSubstr;

constexpr auto kAsIs = static_cast<ImageReaderOpenFlag>(static_cast<int>(ImageReaderOpenFlag::Bracket) &
                                                        ~static_cast<int>(ImageReaderOpenFlag::Complete));

class HostileFiles : public ::testing::Test
{
protected:
    // One file of each kind, a few kilobytes each: noise, so that pixels fill most of the file.
    std::vector<std::filesystem::path> makeAll()
    {
        const int w = 64;
        const int h = 48;
        auto picture = gradient(w, h);
        std::mt19937 random(5);
        for (std::size_t i = 0; i < picture->pixelCount(); ++i)
            picture->data()[i].g = static_cast<float>(random() % 256) / 255.0f;
        std::vector<std::filesystem::path> files;
        for (const char* const name : {"a.jpg", "a.png", "a.tif", "a.exr"}) {
            ImageWriteSettings settings = writeSettingsForPath(name);
            auto metadata = std::make_shared<ImageMetadata>();
            EmbeddedMetadata blocks;
            blocks.exif = exifBlock({.orientation = 6, .timeAbove = 1, .timeBelow = 50, .make = "Maker"});
            metadata->embedded = std::make_shared<const EmbeddedMetadata>(blocks);
            settings.metadata = metadata;
            files.push_back(folder / name);
            writeImage(files.back(), *picture, settings);
        }
        Bytes rgb;
        Bytes rgba;
        for (std::size_t i = 0; i < picture->pixelCount(); ++i) {
            const auto& p = picture->data()[i];
            for (const float v : {p.r, p.g, p.b, 1.0f}) {
                rgba.push_back(static_cast<unsigned char>(std::lround(v * 255.0f)));
                if (rgba.size() % 4 != 0)
                    rgb.push_back(rgba.back());
            }
        }
        files.push_back(folder / "progressive.jpg");
        makeJpeg(files.back(), w, h, rgb, {.progressive = true, .quality = 90});
        files.push_back(folder / "interlaced.png");
        makePng(files.back(), w, h, rgb, {.interlaced = true});
        files.push_back(folder / "tiled.tif");
        makeTiff(files.back(), w, h, rgb, {.tiled = true});
        files.push_back(folder / "planar.tif");
        makeTiff(files.back(), w, h, rgb, {.planar = true});
        files.push_back(folder / "a.webp");
        makeWebP(files.back(), w, h, rgba);
        return files;
    }

    // Runs every read operation on the file; none may crash or throw.
    static void tryEverything(const std::filesystem::path& path)
    {
        (void)openFile(path);
        (void)openFile(path, kAsIs);
        (void)ImageReader::readMetadata(path);
        (void)ImageReader::instance().getThumbnailBySide(path, 16, true, nullptr, {});
        (void)isRawImageFile(path);
    }

    void expectRefused(const std::filesystem::path& path, const std::string& reason)
    {
        const LogCapture log;
        EXPECT_FALSE(openFile(path)) << path;
        const auto lines = log.texts(LogMessageType::Warning);
        ASSERT_EQ(lines.size(), 1u) << path;
        EXPECT_THAT(lines[0], HasSubstr(path.string()));
        EXPECT_THAT(lines[0], HasSubstr(reason));
    }

    TemporaryFolder folder;
};

TEST_F(HostileFiles, CutOffAnywhere)
{
    for (const auto& file : makeAll()) {
        ASSERT_TRUE(openFile(file)) << file;
        const Bytes whole = readBytes(file);
        const auto cut = folder / ("cut" + file.extension().string());
        for (int part = 1; part < 40; ++part) {
            const std::size_t length = whole.size() * static_cast<std::size_t>(part) / 40;
            writeBytes(cut, Bytes(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(length)));
            {
                const LogCapture log;
                EXPECT_FALSE(openFile(cut)) << file << " cut to " << length << " of " << whole.size();
                const auto lines = log.texts(LogMessageType::Warning);
                ASSERT_EQ(lines.size(), 1u) << file << length;
                EXPECT_THAT(lines[0], HasSubstr(cut.string()));
            }
            tryEverything(cut);
        }
    }
    EXPECT_EQ(MemoryManager::instance().liveBytes(), 0u);
}

TEST_F(HostileFiles, TruncatedFileReportsRowsAndKeepsThem)
{
    auto picture = gradient(200, 160, 255);
    std::mt19937 random(3); // noise, so that the rows fill the file
    for (std::size_t i = 0; i < picture->pixelCount(); ++i)
        picture->data()[i].g += static_cast<float>(random() % 3) / 255.0f;
    ImageWriteSettings settings = writeSettingsForPath("a.png");
    for (const char* const name : {"a.jpg", "a.png"}) {
        settings = writeSettingsForPath(name);
        const auto file = folder / name;
        writeImage(file, *picture, settings);
        Bytes whole = readBytes(file);
        whole.resize(whole.size() * 6 / 10);
        writeBytes(file, whole);
        expectRefused(file, "the picture is truncated: ");
        expectRefused(file, " of 160 rows are there");
        const LogCapture log;
        const auto read = openAsSRGB(file, kAsIs);
        ASSERT_TRUE(read) << name;
        EXPECT_EQ(log.texts(LogMessageType::Warning).size(), 1u);
        const auto top = read->copy({0, 0, 200, 32});
        EXPECT_LT(worstDifference(*top, *picture->copy({0, 0, 200, 32})), 0.03) << name;
        EXPECT_TRUE(ImageReader::instance().getThumbnailBySide(file, 20, true, nullptr, {})) << name;
    }
}

TEST_F(HostileFiles, FlippedBytes)
{
    std::mt19937 random(11);
    for (const auto& file : makeAll()) {
        const Bytes whole = readBytes(file);
        const auto bent = folder / ("bent" + file.extension().string());
        for (int round = 0; round < 60; ++round) {
            Bytes bytes = whole;
            // Half of the rounds hit the headers, where damage has the largest effect.
            const std::size_t reach = round % 2 == 0 ? std::min<std::size_t>(bytes.size(), 300) : bytes.size();
            for (int flips = 0; flips < 1 + round % 8; ++flips)
                bytes[random() % reach] = static_cast<unsigned char>(random());
            writeBytes(bent, bytes);
            tryEverything(bent);
        }
    }
    EXPECT_EQ(MemoryManager::instance().liveBytes(), 0u);
}

TEST_F(HostileFiles, ProfileWithAnImpossibleCurveGivesFiniteSamples)
{
    // All values: near white the curve exceeds the range of a float, further down LittleCMS clamps.
    Picture ramp(_Size<int>(256, 12), ColorProfileType::sRGB());
    for (int y = 0; y < 12; ++y)
        for (int x = 0; x < 256; ++x) {
            const float value = static_cast<float>(x) / 255.0f;
            ramp.row(y)[x] = {value, value, y < 6 ? value : 1.0f - value};
        }
    for (const char* const name : {"a.jpg", "a.tif"}) {
        const auto file = folder / name;
        writeImage(file, ramp, writeSettingsForPath(file));
        Bytes bytes = readBytes(file);
        // The exponent of a parametric curve is 12 bytes after its name (ICC.1:2022, 10.18): now -32766.
        const std::string curve = "para";
        const auto found = std::search(bytes.begin(), bytes.end(), curve.begin(), curve.end());
        ASSERT_GT(bytes.end() - found, 12) << name;
        found[12] = 0x80;
        writeBytes(file, bytes);
        const auto picture = pixelsOf(openFile(file));
        ASSERT_TRUE(picture) << name;
        for (std::size_t i = 0; i < picture->pixelCount() * 3; ++i)
            ASSERT_TRUE(std::isfinite((&picture->data()->r)[i])) << name << ", sample " << i;
        const auto small = ImageReader::instance().getThumbnailBySide(file, 200, true, nullptr, {});
        ASSERT_TRUE(small) << name;
        for (std::size_t i = 0; i < small->pixelCount() * 3; ++i)
            ASSERT_TRUE(std::isfinite((&small->data()->r)[i])) << name << ", sample " << i;
    }
}

TEST_F(HostileFiles, GiganticAttributeOfExrIsRefused)
{
    writeImage(folder / "a.exr", *gradient(16, 16), writeSettingsForPath("a.exr"));
    const Bytes whole = readBytes(folder / "a.exr");
    // Name, type and the lowest byte of the size, which is 1.
    const std::string attribute("lineOrder\0lineOrder\0\1", 21);
    const auto found = std::search(whole.begin(), whole.end(), attribute.begin(), attribute.end());
    ASSERT_NE(found, whole.end());
    const std::ptrdiff_t size = found - whole.begin() + 20;
    Bytes bytes = whole;
    bytes[static_cast<std::size_t>(size) + 3] = 0x40; // little endian: 2^30 + 1
    writeBytes(folder / "huge.exr", bytes);
    expectRefused(folder / "huge.exr", "the file announces an attribute of 1073741825 bytes but has only " +
                                           std::to_string(static_cast<std::ptrdiff_t>(bytes.size()) - size - 4) +
                                           " more");
    bytes[static_cast<std::size_t>(size) + 3] = 0xFF; // negative if read as signed
    writeBytes(folder / "negative.exr", bytes);
    expectRefused(folder / "negative.exr", "the file announces an attribute of 4278190081 bytes");
    EXPECT_FALSE(ImageReader::readMetadata(folder / "negative.exr"));
}

TEST_F(HostileFiles, GiganticIsRefusedBeforeItCosts)
{
    const auto picture = gradient(16, 16, 255);
    writeImage(folder / "a.png", *picture, writeSettingsForPath("a.png"));
    Bytes bytes = readBytes(folder / "a.png");
    const auto setSize = [&bytes](std::uint32_t side) {
        for (const std::size_t at : {16u, 20u})
            for (std::size_t i = 0; i < 4; ++i)
                bytes[at + i] = static_cast<unsigned char>(side >> (24 - 8 * i));
        std::uint32_t crc = 0xFFFFFFFFu; // of the header chunk (PNG, annex D)
        for (std::size_t i = 12; i < 29; ++i) {
            crc ^= bytes[i];
            for (int bit = 0; bit < 8; ++bit)
                crc = (crc & 1u) != 0 ? 0xEDB88320u ^ (crc >> 1) : crc >> 1;
        }
        crc = ~crc;
        for (std::size_t i = 0; i < 4; ++i)
            bytes[29 + i] = static_cast<unsigned char>(crc >> (24 - 8 * i));
    };
    MemoryManager::instance().resetPeak();
    setSize(60000);
    writeBytes(folder / "huge.png", bytes);
    expectRefused(folder / "huge.png", "60000 x 60000 pixels is larger than the limit of 1000000000 pixels");
    EXPECT_FALSE(ImageReader::readMetadata(folder / "huge.png"));
    EXPECT_FALSE(ImageReader::instance().getThumbnailBySide(folder / "huge.png", 32, true, nullptr, {}));
    setSize(30000);
    writeBytes(folder / "bomb.png", bytes);
    expectRefused(folder / "bomb.png", "the file announces a picture of 30000 x 30000 pixels but has only");
    EXPECT_LT(MemoryManager::instance().peakBytes(), std::size_t{1} << 20);

    Bytes jpeg;
    makeJpeg(folder / "a.jpg", 16, 16, Bytes(768, 99), {});
    jpeg = readBytes(folder / "a.jpg");
    for (std::size_t i = 0; i + 9 < jpeg.size(); ++i)
        if (jpeg[i] == 0xFF && jpeg[i + 1] == 0xC0) {
            for (const std::size_t at : {i + 5, i + 7}) {
                jpeg[at] = 0xEA; // 60000
                jpeg[at + 1] = 0x60;
            }
            break;
        }
    writeBytes(folder / "huge.jpg", jpeg);
    expectRefused(folder / "huge.jpg", "60000 x 60000 pixels is larger");

    ImageReadOptions small;
    small.maxPixels = 255;
    EXPECT_FALSE(
        ImageReader::instance().open({folder / "a.png", ""}, small, ImageReaderOpenFlag::Bracket, nullptr, "", -1));
    small.maxPixels = 256;
    EXPECT_TRUE(
        ImageReader::instance().open({folder / "a.png", ""}, small, ImageReaderOpenFlag::Bracket, nullptr, "", -1));
}

// Sets a number of the first directory of a little-endian TIFF as LibTIFF writes it.
void setTag(Bytes& tiff, std::uint16_t tag, std::uint32_t value)
{
    const auto number = [&](std::size_t at, std::size_t bytes) {
        std::size_t result = 0;
        for (std::size_t i = bytes; i > 0; --i)
            result = result << 8 | tiff.at(at + i - 1);
        return result;
    };
    const std::size_t directory = number(4, 4);
    for (std::size_t i = 0; i < number(directory, 2); ++i) {
        const std::size_t entry = directory + 2 + 12 * i;
        if (number(entry, 2) != tag)
            continue;
        tiff.at(entry + 2) = 4; // LONG
        for (std::size_t b = 0; b < 4; ++b)
            tiff.at(entry + 8 + b) = static_cast<unsigned char>(value >> (8 * b));
        return;
    }
    FAIL() << "no tag " << tag;
}

TEST_F(HostileFiles, TilesOfATiffAreBoundedByItsPictureAndItsLength)
{
    makeTiff(folder / "a.tif", 16, 16, Bytes(768, 99), {.tiled = true});
    const Bytes whole = readBytes(folder / "a.tif");
    const auto withTiles = [&](std::uint32_t width, std::uint32_t height) {
        Bytes bytes = whole;
        setTag(bytes, 322, width);
        setTag(bytes, 323, height);
        writeBytes(folder / "huge.tif", bytes);
        return folder / "huge.tif";
    };
    ASSERT_TRUE(openFile(withTiles(16, 16)));
    MemoryManager::instance().resetPeak();
    expectRefused(withTiles(65536, 65536), "tiles of 65536 x 65536");
    expectRefused(withTiles(16, 1u << 20), "tiles of 16 x 1048576");
    // Many programs write tiles larger than a small picture; these still need bytes of the file.
    expectRefused(withTiles(4096, 4096),
                  "the file announces tiles of 50331648 bytes but has only " + std::to_string(whole.size()));
    EXPECT_LT(MemoryManager::instance().peakBytes(), std::size_t{1} << 20);
}

TEST_F(HostileFiles, StripsOfATiffAreBoundedByItsPictureAndItsLength)
{
    for (const bool planar : {false, true}) {
        makeTiff(folder / "a.tif", 16, 7, Bytes(336, 99), {.planar = planar}); // one strip of 7 rows a plane
        const Bytes whole = readBytes(folder / "a.tif");
        const auto with = [&](std::initializer_list<std::pair<std::uint16_t, std::uint32_t>> tags) {
            Bytes bytes = whole;
            for (const auto& [tag, value] : tags)
                setTag(bytes, tag, value);
            writeBytes(folder / "huge.tif", bytes);
            return folder / "huge.tif";
        };
        MemoryManager::instance().resetPeak();
        EXPECT_TRUE(openFile(with({{278, 0xFFFFFFFFu}}))) << "rows that a strip may have";
        expectRefused(with({{256, 30000}, {257, 30000}, {278, 30000}}),
                      "the file announces a picture of 30000 x 30000 pixels but has only " +
                          std::to_string(whole.size()));
        EXPECT_LT(MemoryManager::instance().peakBytes(), std::size_t{1} << 20) << planar;
    }
}

TEST_F(HostileFiles, TilesLargerThanASmallPictureAreRead)
{
    makeTiff(folder / "a.tif", 20, 10, Bytes(600, 99), {.tiled = true, .tileSide = 256});
    EXPECT_TRUE(openFile(folder / "a.tif"));
}

TEST_F(HostileFiles, NoPicturesAreRefusedWithAReason)
{
    expectRefused(folder / "missing.jpg", "No such file");
    expectRefused(folder.path(), "found a folder");
    writeBytes(folder / "empty.jpg", {});
    expectRefused(folder / "empty.jpg", "found an empty file");
    std::ofstream(folder / "text.jpg") << "hello, this is no picture\n";
    expectRefused(folder / "text.jpg", "it begins with 68 65 6c 6c 6f");
    ASSERT_EQ(::mkfifo((folder / "pipe.jpg").c_str(), 0600), 0);
    expectRefused(folder / "pipe.jpg", "found a pipe or device");
    expectRefused("/dev/zero", "found a pipe or device");
    for (const char* const name : {"missing.jpg", "empty.jpg", "text.jpg", "pipe.jpg"}) {
        EXPECT_FALSE(isRawImageFile(folder / name)) << name;
        EXPECT_FALSE(ImageReader::readMetadata(folder / name)) << name;
        EXPECT_FALSE(ImageReader::instance().getThumbnailBySide(folder / name, 32, true, nullptr, {})) << name;
    }
}

TEST_F(HostileFiles, ContentCountsNotTheName)
{
    writeImage(folder / "a.png", *gradient(20, 10, 255), writeSettingsForPath("a.png"));
    std::filesystem::rename(folder / "a.png", folder / "a.jpg");
    EXPECT_TRUE(openFile(folder / "a.jpg"));
}

TEST_F(HostileFiles, FinishedPicturesAreNotRaw)
{
    for (const auto& file : makeAll())
        EXPECT_FALSE(isRawImageFile(file)) << file;
    // A developed TIFF that names a camera is still not a raw file, gray or not.
    auto metadata = std::make_shared<ImageMetadata>();
    EmbeddedMetadata blocks;
    blocks.exif = exifBlock({.timeAbove = 1, .timeBelow = 50, .make = "Canon"});
    metadata->embedded = std::make_shared<const EmbeddedMetadata>(blocks);
    for (const int bits : {8, 16}) {
        ImageWriteSettings settings = writeSettingsForPath("c.tif");
        settings.bits = bits;
        settings.metadata = metadata;
        writeImage(folder / "c.tif", *gradient(64, 48), settings);
        EXPECT_EQ(ImageReader::readMetadata(folder / "c.tif")->cameraMake, "Canon");
        EXPECT_FALSE(isRawImageFile(folder / "c.tif"));
    }
    for (const int bits : {8, 16}) {
        makeTiff(folder / "g.tif", 64, 48, Bytes(64u * 48u * static_cast<unsigned>(bits) / 8u, 77),
                 {.channels = 1, .bits = bits, .photometric = 1});
        EXPECT_FALSE(isRawImageFile(folder / "g.tif")) << bits;
        EXPECT_TRUE(openFile(folder / "g.tif")) << bits;
    }
}

TEST_F(HostileFiles, MissingPartsAreRefused)
{
    writeImage(folder / "a.png", *gradient(20, 10, 255), writeSettingsForPath("a.png"));
    const auto open = [&](const std::string& part, int index) {
        return ImageReader::instance().open({folder / "a.png", part}, {}, ImageReaderOpenFlag::Bracket, nullptr, "",
                                            index);
    };
    EXPECT_TRUE(open("", 0));
    EXPECT_FALSE(open("", 1));
    EXPECT_FALSE(open("left", -1));
}

} // namespace
} // namespace orvo::test
