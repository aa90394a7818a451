#include "test_files.hpp"

#include <orvo_common/memory_manager.hpp>
#include <orvo_core/parallel.hpp>
#include <orvo_io/picture_file.hpp>
#include <orvo_logger/log_capture.hpp>

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <cmath>
#include <cstring>

namespace orvo::test {
namespace {

// Samples of 8 bit are read as n / 255; converting a profile to itself changes nothing.
constexpr double kExact = 1e-6;
// Quantisation of JPEG at quality 100 on smooth colours, three roundings of 1/255.
constexpr double kJpeg = 3.5 / 255.0;

Bytes bytesOf(const Picture& picture)
{
    Bytes out;
    for (std::size_t i = 0; i < picture.pixelCount(); ++i)
        for (const float v : {picture.data()[i].r, picture.data()[i].g, picture.data()[i].b})
            out.push_back(static_cast<unsigned char>(std::lround(v * 255.0f)));
    return out;
}

std::shared_ptr<Picture> gray(const Picture& picture)
{
    auto out = picture.copy({});
    for (std::size_t i = 0; i < out->pixelCount(); ++i)
        out->data()[i].r = out->data()[i].b = out->data()[i].g;
    return out;
}

// Position of pixel (x, y) of a file of size w x h in the upright picture.
std::shared_ptr<Picture> turned(const Picture& stored, int orientation)
{
    const int w = stored.width();
    const int h = stored.height();
    const bool swaps = orientation >= 5;
    auto out = std::make_shared<Picture>(swaps ? _Size<int>(h, w) : _Size<int>(w, h), stored.colorProfile());
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
            const std::array<std::array<int, 2>, 8> places = {{{x, y},
                                                               {w - 1 - x, y},
                                                               {w - 1 - x, h - 1 - y},
                                                               {x, h - 1 - y},
                                                               {y, x},
                                                               {h - 1 - y, x},
                                                               {h - 1 - y, w - 1 - x},
                                                               {y, w - 1 - x}}};
            const auto [tx, ty] = places[static_cast<std::size_t>(orientation - 1)];
            out->row(ty)[tx] = stored.row(y)[x];
        }
    return out;
}

class ImageReaderTest : public ::testing::Test
{
protected:
    TemporaryFolder folder;
};

TEST_F(ImageReaderTest, ReadsPlainKinds)
{
    const auto picture = gradient(101, 67, 255);
    const Bytes rgb = bytesOf(*picture);
    makeJpeg(folder / "a.jpg", 101, 67, rgb, {});
    makePng(folder / "a.png", 101, 67, rgb, {});
    makePng(folder / "i.png", 101, 67, rgb, {.interlaced = true});
    for (const bool tiled : {false, true})
        makeTiff(folder / (tiled ? "tiled.tif" : "a.tif"), 101, 67, rgb, {.tiled = tiled});
    makeTiff(folder / "planar.tif", 101, 67, rgb, {.planar = true});
    Bytes rgba;
    for (std::size_t i = 0; i < rgb.size(); ++i) {
        rgba.push_back(rgb[i]);
        if (i % 3 == 2)
            rgba.push_back(255);
    }
    makeWebP(folder / "a.webp", 101, 67, rgba);
    for (const char* const name : {"a.png", "i.png", "a.tif", "tiled.tif", "planar.tif", "a.webp"}) {
        const auto read = openAsSRGB(folder / name);
        ASSERT_TRUE(read) << name;
        EXPECT_LT(worstDifference(*read, *picture), kExact) << name;
    }
    const auto jpeg = openAsSRGB(folder / "a.jpg");
    ASSERT_TRUE(jpeg);
    EXPECT_LT(worstDifference(*jpeg, *picture), kJpeg);
}

TEST_F(ImageReaderTest, DefaultsToTheWorkingSpace)
{
    const auto picture = gradient(33, 20, 255);
    makePng(folder / "a.png", 33, 20, bytesOf(*picture), {});
    const auto read = pixelsOf(openFile(folder / "a.png"));
    ASSERT_TRUE(read);
    EXPECT_EQ(*read->colorProfile(), *ColorProfileType::melissaRGB());
    std::shared_ptr<Picture> expected;
    picture->colorTransform(expected, ColorProfileType::melissaRGB(), true);
    EXPECT_LT(worstDifference(*read, *expected), 1e-5);
    const auto asStored = openFile(folder / "a.png", ImageReaderOpenFlag::Upright);
    EXPECT_EQ(*pixelsOf(asStored)->colorProfile(), *ColorProfileType::sRGB());
    EXPECT_LT(worstDifference(*pixelsOf(asStored), *picture), kExact);
}

TEST_F(ImageReaderTest, KeepsExactlySRGBIfAsked)
{
    const auto picture = gradient(33, 20, 255);
    const auto openKept = [&](const std::filesystem::path& path) {
        ImageReadOptions options;
        options.keepsSRGB = true;
        return pixelsOf(
            ImageReader::instance().open({path, {}}, options, ImageReaderOpenFlag::Bracket, nullptr, {}, -1));
    };
    makePng(folder / "plain.png", 33, 20, bytesOf(*picture), {});
    const auto kept = openKept(folder / "plain.png");
    ASSERT_TRUE(kept);
    EXPECT_EQ(kept->colorProfile()->icc(), ColorProfileType::sRGB()->icc());
    EXPECT_EQ(worstDifference(*kept, *pixelsOf(openFile(folder / "plain.png", ImageReaderOpenFlag::Upright))), 0.0);

    makePng(folder / "linear.png", 33, 20, bytesOf(*picture), {.icc = ColorProfileType::linearSRGB()->icc()});
    const auto converted = openKept(folder / "linear.png");
    ASSERT_TRUE(converted);
    EXPECT_EQ(*converted->colorProfile(), *ColorProfileType::melissaRGB());
}

TEST_F(ImageReaderTest, ReadsProgressiveJpegAndGray)
{
    const auto picture = gradient(90, 70, 255);
    makeJpeg(folder / "p.jpg", 90, 70, bytesOf(*picture), {.progressive = true});
    EXPECT_LT(worstDifference(*openAsSRGB(folder / "p.jpg"), *picture), kJpeg);
    const auto plain = gray(*picture);
    Bytes samples;
    for (std::size_t i = 0; i < plain->pixelCount(); ++i)
        samples.push_back(static_cast<unsigned char>(std::lround(plain->data()[i].g * 255.0f)));
    makeJpeg(folder / "g.jpg", 90, 70, samples, {.channels = 1});
    makePng(folder / "g.png", 90, 70, samples, {.colorType = 0});
    makeTiff(folder / "g.tif", 90, 70, samples, {.channels = 1, .photometric = 1});
    EXPECT_LT(worstDifference(*openAsSRGB(folder / "g.jpg"), *plain), kJpeg);
    EXPECT_LT(worstDifference(*openAsSRGB(folder / "g.png"), *plain), kExact);
    EXPECT_LT(worstDifference(*openAsSRGB(folder / "g.tif"), *plain), kExact);
    for (auto& sample : samples)
        sample = static_cast<unsigned char>(255 - sample);
    makeTiff(folder / "w.tif", 90, 70, samples, {.channels = 1, .photometric = 0});
    EXPECT_LT(worstDifference(*openAsSRGB(folder / "w.tif"), *plain), kExact);
}

TEST_F(ImageReaderTest, ReadsInk)
{
    // Remaining light as Adobe stores it: 255 minus the ink.
    const Bytes ink = {51, 102, 0, 25};
    const PixelRGB<float> expected = {(1 - 0.2f) * (1 - 25 / 255.0f), (1 - 0.4f) * (1 - 25 / 255.0f), 1 - 25 / 255.0f};
    for (const bool adobe : {false, true}) {
        Bytes samples;
        for (int i = 0; i < 40 * 30; ++i)
            for (const unsigned char c : ink)
                samples.push_back(adobe ? static_cast<unsigned char>(255 - c) : c);
        makeJpeg(folder / "c.jpg", 40, 30, samples, {.channels = 4, .adobe = adobe});
        const auto read = openAsSRGB(folder / "c.jpg");
        ASSERT_TRUE(read) << adobe;
        const auto reference = uniform(40, 30, expected.r, expected.g, expected.b);
        EXPECT_LT(worstDifference(*read, *reference), kJpeg) << adobe;
        // Ink has no three channels to keep.
        const auto stored = pixelsOf(openFile(folder / "c.jpg", ImageReaderOpenFlag::None));
        EXPECT_EQ(*stored->colorProfile(), *ColorProfileType::sRGB());
    }
    Bytes samples;
    for (int i = 0; i < 40 * 30; ++i)
        samples.insert(samples.end(), ink.begin(), ink.end());
    makeTiff(folder / "c.tif", 40, 30, samples, {.channels = 4, .photometric = 5});
    EXPECT_LT(worstDifference(*openAsSRGB(folder / "c.tif"), *uniform(40, 30, expected.r, expected.g, expected.b)),
              1e-5);
}

TEST_F(ImageReaderTest, ReadsPalettes)
{
    const std::vector<std::uint8_t> palette = {255, 0, 0, 0, 255, 0, 0, 0, 255, 10, 20, 30};
    // Four pixels of two bits in a byte: entries 0 1 2 3.
    const Bytes packed = {0x1B, 0x1B};
    makePng(folder / "p.png", 4, 2, packed, {.colorType = 3, .bits = 2, .palette = palette, .paletteAlpha = {255, 0}});
    const auto read = openAsSRGB(folder / "p.png");
    ASSERT_TRUE(read);
    EXPECT_EQ(read->row(1)[0], (PixelRGB<float>{1, 0, 0}));
    EXPECT_EQ(read->row(1)[1], (PixelRGB<float>{0, 0, 0})) << "transparent";
    EXPECT_EQ(read->row(1)[2], (PixelRGB<float>{0, 0, 1}));
    EXPECT_NEAR(read->row(1)[3].b, 30 / 255.0, kExact);
    std::vector<std::uint16_t> map(768);
    for (std::size_t i = 0; i < 256; ++i) {
        map[i] = static_cast<std::uint16_t>(i * 257);
        map[256 + i] = static_cast<std::uint16_t>((255 - i) * 257);
        map[512 + i] = 12345;
    }
    makeTiff(folder / "p.tif", 3, 1, {0, 100, 255}, {.channels = 1, .photometric = 3, .palette = map});
    const auto tiff = openAsSRGB(folder / "p.tif");
    ASSERT_TRUE(tiff);
    EXPECT_NEAR(tiff->row(0)[1].r, 100 / 255.0, kExact);
    EXPECT_NEAR(tiff->row(0)[1].g, 155 / 255.0, kExact);
    EXPECT_NEAR(tiff->row(0)[1].b, 12345 / 65535.0, kExact);
}

TEST_F(ImageReaderTest, LaysAlphaOverBlack)
{
    // 16-bit gray with alpha: 0.5 at alpha 0.25.
    Bytes grayAlpha;
    for (int i = 0; i < 6; ++i)
        grayAlpha.insert(grayAlpha.end(), {0x80, 0x00, 0x40, 0x00});
    makePng(folder / "ga.png", 3, 2, grayAlpha, {.colorType = 4, .bits = 16});
    const float expected = 32768.0f / 65535.0f * (16384.0f / 65535.0f);
    EXPECT_LT(worstDifference(*openAsSRGB(folder / "ga.png"), *uniform(3, 2, expected, expected, expected)), 1e-5);
    Bytes rgba;
    for (int i = 0; i < 6; ++i)
        rgba.insert(rgba.end(), {200, 100, 50, 51});
    makeTiff(folder / "u.tif", 3, 2, rgba, {.channels = 4, .alpha = 2});
    makeTiff(folder / "a.tif", 3, 2, rgba, {.channels = 4, .alpha = 1});
    makeTiff(folder / "n.tif", 3, 2, rgba, {.channels = 4, .alpha = 0});
    makeWebP(folder / "u.webp", 3, 2, rgba);
    const auto full = uniform(3, 2, 200 / 255.0f, 100 / 255.0f, 50 / 255.0f);
    const auto fifth = uniform(3, 2, 40 / 255.0f, 20 / 255.0f, 10 / 255.0f);
    EXPECT_LT(worstDifference(*openAsSRGB(folder / "u.tif"), *fifth), kExact);
    EXPECT_LT(worstDifference(*openAsSRGB(folder / "u.webp"), *fifth), kExact);
    EXPECT_LT(worstDifference(*openAsSRGB(folder / "a.tif"), *full), kExact) << "premultiplied";
    EXPECT_LT(worstDifference(*openAsSRGB(folder / "n.tif"), *full), kExact) << "an unknown fourth sample";
}

TEST_F(ImageReaderTest, ReadsDeepSamples)
{
    const auto picture = gradient(41, 23);
    std::vector<std::uint16_t> words;
    std::vector<float> floats;
    std::vector<double> doubles;
    const float* const in = &picture->data()->r;
    for (std::size_t i = 0; i < picture->pixelCount() * 3; ++i) {
        words.push_back(static_cast<std::uint16_t>(std::lround(in[i] * 65535.0f)));
        floats.push_back(in[i] * 3.0f - 1.0f);
        doubles.push_back(static_cast<double>(in[i]));
    }
    const auto raw = [](const auto& values) {
        Bytes out(values.size() * sizeof(values[0]));
        std::memcpy(out.data(), values.data(), out.size());
        return out;
    };
    makeTiff(folder / "16.tif", 41, 23, raw(words), {.bits = 16, .tiled = true});
    makeTiff(folder / "16p.tif", 41, 23, raw(words), {.bits = 16, .planar = true});
    makeTiff(folder / "64.tif", 41, 23, raw(doubles), {.bits = 64, .floats = true});
    for (const char* const name : {"16.tif", "16p.tif", "64.tif"})
        EXPECT_LT(worstDifference(*openAsSRGB(folder / name), *picture), 1.0 / 65535.0) << name;
    // Floats keep values beyond full scale.
    makeTiff(folder / "32.tif", 41, 23, raw(floats), {.bits = 32, .floats = true});
    auto stretched = picture->copy({});
    std::memcpy(static_cast<void*>(stretched->data()), floats.data(), floats.size() * sizeof(float));
    EXPECT_LT(worstDifference(*openAsSRGB(folder / "32.tif"), *stretched), kExact);
    floats[0] = std::nanf("");
    floats[1] = INFINITY;
    makeTiff(folder / "nan.tif", 41, 23, raw(floats), {.bits = 32, .floats = true});
    const auto cleaned = openAsSRGB(folder / "nan.tif");
    EXPECT_EQ(cleaned->row(0)[0].r, 0.0f);
    EXPECT_EQ(cleaned->row(0)[0].g, 65504.0f);
}

TEST_F(ImageReaderTest, TurnsUpright)
{
    const auto picture = gradient(75, 38, 255);
    const Bytes rgb = bytesOf(*picture);
    for (int orientation = 1; orientation <= 8; ++orientation) {
        makeTiff(folder / "o.tif", 75, 38, rgb, {.orientation = orientation});
        makeJpeg(folder / "o.jpg", 75, 38, rgb, {.exif = exifBlock({.orientation = orientation})});
        const auto expected = turned(*picture, orientation);
        for (const char* const name : {"o.tif", "o.jpg"}) {
            const auto image = openFile(folder / name, ImageReaderOpenFlag::Bracket, ColorProfileType::sRGB());
            ASSERT_TRUE(image) << name << orientation;
            EXPECT_LT(worstDifference(*pixelsOf(image), *expected), name[2] == 't' ? kExact : kJpeg)
                << name << orientation;
            EXPECT_EQ(image->metadata()->size, expected->size());
            EXPECT_EQ(ImageReader::readMetadata(folder / name)->size, expected->size());
            const auto thumbnail = ImageReader::instance().getThumbnailBySide(folder / name, 20, true, nullptr, {});
            ASSERT_TRUE(thumbnail);
            EXPECT_LT(worstDifference(*thumbnail, *expected->resize(thumbnail->size(), {}, true)), 0.04)
                << name << orientation;
        }
        const auto stored = pixelsOf(openFile(folder / "o.tif", ImageReaderOpenFlag::None));
        EXPECT_LT(worstDifference(*stored, *picture), kExact) << orientation;
    }
}

TEST_F(ImageReaderTest, ReadsProfiles)
{
    const auto inMelissa = uniform(20, 10, 0.4f, 0.5f, 0.3f);
    inMelissa->setColorProfile(ColorProfileType::melissaRGB());
    const Bytes rgb = bytesOf(*inMelissa);
    const Bytes& icc = ColorProfileType::melissaRGB()->icc();
    makePng(folder / "m.png", 20, 10, rgb, {.icc = icc});
    makeTiff(folder / "m.tif", 20, 10, rgb, {.icc = icc});
    makeJpeg(folder / "m.jpg", 20, 10, rgb, {.icc = icc});
    for (const char* const name : {"m.png", "m.tif", "m.jpg"}) {
        const auto image = openFile(folder / name);
        ASSERT_TRUE(image) << name;
        EXPECT_EQ(*image->metadata()->fileProfile, *ColorProfileType::melissaRGB()) << name;
        const auto& p = pixelsOf(image)->row(3)[3];
        EXPECT_NEAR(p.r, 0.4f, 1.1 / 255) << name;
        EXPECT_NEAR(p.g, 0.5f, 1.1 / 255) << name;
        EXPECT_NEAR(p.b, 0.3f, 1.1 / 255) << name;
        const auto thumbnail = ImageReader::instance().getThumbnailBySide(folder / name, 10, true, nullptr, {});
        EXPECT_EQ(*thumbnail->colorProfile(), *ColorProfileType::sRGB());
    }
    // A garbage block counts as missing.
    makeTiff(folder / "bad.tif", 20, 10, rgb, {.icc = Bytes(300, 7)});
    EXPECT_EQ(*openFile(folder / "bad.tif")->metadata()->fileProfile, *ColorProfileType::sRGB());
}

TEST_F(ImageReaderTest, ManyThreadsReadTheSame)
{
    const auto picture = gradient(300, 200, 255);
    makeJpeg(folder / "a.jpg", 300, 200, bytesOf(*picture), {.exif = exifBlock({.orientation = 6, .make = "Maker"})});
    std::shared_ptr<Picture> single;
    {
        const WorkerLimit one(1);
        single = pixelsOf(openFile(folder / "a.jpg"));
    }
    ASSERT_TRUE(single);
    std::atomic<int> same = 0;
    forEachRow(32, [&](int) {
        const auto image = openFile(folder / "a.jpg");
        const auto metadata = ImageReader::readMetadata(folder / "a.jpg");
        if (image && metadata && metadata->cameraMake == "Maker" && worstDifference(*pixelsOf(image), *single) == 0.0)
            ++same;
    });
    EXPECT_EQ(same, 32);
}

TEST_F(ImageReaderTest, ThumbnailsHaveTheirSide)
{
    const auto picture = gradient(1203, 805, 255);
    makeJpeg(folder / "a.jpg", 1203, 805, bytesOf(*picture), {});
    makePng(folder / "a.png", 1203, 805, bytesOf(*picture), {});
    for (const char* const name : {"a.jpg", "a.png"}) {
        for (const int side : {1, 7, 32, 333, 1203, 1500}) {
            const auto thumbnail = ImageReader::instance().getThumbnailBySide(folder / name, side, true, nullptr, {});
            ASSERT_TRUE(thumbnail) << name << side;
            EXPECT_EQ(thumbnail->width(), side);
            EXPECT_EQ(thumbnail->height(), std::max(1, static_cast<int>(std::lround(side * 805.0 / 1203.0))));
            if (side > 16) {
                EXPECT_LT(worstDifference(*thumbnail, *picture->resize(thumbnail->size(), {}, true)), 0.02)
                    << name << side;
            }
        }
        const auto larger = ImageReader::instance().getThumbnailBySide(folder / name, 100, false, nullptr, {});
        EXPECT_GE(larger->width(), 100);
        EXPECT_LT(larger->width(), 800);
        EXPECT_FALSE(
            ImageReader::instance().getThumbnailBySide(folder / name, 100, true, nullptr, [] { return true; }));
    }
    EXPECT_FALSE(ImageReader::instance().getThumbnailBySide(folder / "a.jpg", 0, true, nullptr, {}));
}

TEST_F(ImageReaderTest, ThumbnailsOfLargeInterlacedPicturesTakeTheFirstPassesOnly)
{
    // Black and white in squares of 512 pixels, one bit each.
    const int w = 4096;
    const int h = 3000;
    Bytes bits(static_cast<std::size_t>(w / 8 * h));
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w / 8; ++x)
            bits[static_cast<std::size_t>(y * (w / 8) + x)] = (x / 64 + y / 512) % 2 == 0 ? 0xFF : 0;
    makePng(folder / "plain.png", w, h, bits, {.colorType = 0, .bits = 1});
    makePng(folder / "interlaced.png", w, h, bits, {.colorType = 0, .bits = 1, .interlaced = true});
    for (const int side : {64, 128, 256, 512, 1024}) {
        const auto thumbnail = [&](const char* name) {
            MemoryManager::instance().resetPeak();
            return ImageReader::instance().getThumbnailBySide(folder / name, side, true, nullptr, {});
        };
        const auto plain = thumbnail("plain.png");
        const auto interlaced = thumbnail("interlaced.png");
        ASSERT_TRUE(plain && interlaced) << side;
        if (side <= 128) { // else much of it is needed
            EXPECT_LT(MemoryManager::instance().peakBytes(), std::size_t{w} * h / 2) << side;
        }
        ASSERT_EQ(plain->size(), interlaced->size());
        EXPECT_EQ(std::max(interlaced->width(), interlaced->height()), side);
        // The edges of the squares may lie a pixel of the passes elsewhere.
        double sum = 0.0;
        for (std::size_t i = 0; i < plain->pixelCount(); ++i)
            sum += std::abs(static_cast<double>(plain->data()[i].g - interlaced->data()[i].g));
        EXPECT_LT(sum / static_cast<double>(plain->pixelCount()), 0.04) << side;
    }
}

TEST_F(ImageReaderTest, PreviewIsUsedOnlyWhereItFits)
{
    // A red preview in a gradient shows whether it was used.
    makeJpeg(folder / "small.jpg", 160, 107, bytesOf(*uniform(160, 107, 1, 0, 0)), {});
    makeJpeg(folder / "bars.jpg", 160, 120, bytesOf(*uniform(160, 120, 1, 0, 0)), {});
    const auto isRed = [&](int side) {
        const auto t = ImageReader::instance().getThumbnailBySide(folder / "a.jpg", side, true, nullptr, {});
        return t && t->row(0)[0].r > 0.9f && t->row(0)[0].b < 0.1f;
    };
    const auto picture = gradient(600, 400, 255);
    const auto withPreview = [&](const char* preview) {
        // Appends a second directory that points at the preview to a block with one entry.
        const Bytes jpeg = readBytes(folder / preview);
        Bytes block = {'I', 'I', 42, 0, 8, 0, 0, 0};
        const auto put = [&block](std::uint32_t value, int bytes) {
            for (int i = 0; i < bytes; ++i)
                block.push_back(static_cast<unsigned char>(value >> (8 * i)));
        };
        const auto entry = [&](std::uint32_t tag, std::uint32_t type, std::uint32_t value) {
            put(tag, 2), put(type, 2), put(1, 4), put(value, 4);
        };
        put(1, 2), entry(0x0112, 3, 1), put(26, 4);
        put(3, 2), entry(0x0103, 3, 6), entry(0x0201, 4, 68), entry(0x0202, 4, static_cast<std::uint32_t>(jpeg.size())),
            put(0, 4);
        block.insert(block.end(), jpeg.begin(), jpeg.end());
        makeJpeg(folder / "a.jpg", 600, 400, bytesOf(*picture), {.exif = block});
    };
    withPreview("small.jpg");
    EXPECT_TRUE(isRed(100));
    EXPECT_FALSE(isRed(200)) << "too small";
    withPreview("bars.jpg");
    EXPECT_FALSE(isRed(100)) << "another shape";
}

TEST_F(ImageReaderTest, ReadsExposure)
{
    const Bytes rgb = bytesOf(*uniform(64, 48, 0.5f, 0.5f, 0.5f));
    const auto read = [&](const ExifTags& tags) {
        makeJpeg(folder / "a.jpg", 64, 48, rgb, {.exif = exifBlock(tags)});
        return ImageReader::readMetadata(folder / "a.jpg");
    };
    const auto full = read({.timeAbove = 1,
                            .timeBelow = 250,
                            .apertureAbove = 56,
                            .apertureBelow = 10,
                            .iso = 400,
                            .hasBias = true,
                            .biasAbove = -2,
                            .biasBelow = 3,
                            .make = "Maker"});
    EXPECT_FLOAT_EQ(full->shutterSeconds, 0.004f);
    EXPECT_FLOAT_EQ(full->aperture, 5.6f);
    EXPECT_FLOAT_EQ(full->isoSpeed, 400.0f);
    EXPECT_FLOAT_EQ(full->exposureBias, -2.0f / 3.0f);
    EXPECT_EQ(full->exposureOffset, 0.0f) << "the numbers already include the bias";
    EXPECT_EQ(full->cameraMake, "Maker");
    const double middle = std::log2((std::pow((128 / 255.0 + 0.055) / 1.055, 2.4)));
    const auto zero = read({.timeAbove = 1,
                            .timeBelow = 0,
                            .apertureAbove = 56,
                            .apertureBelow = 0,
                            .iso = 400,
                            .hasBias = true,
                            .biasAbove = 1,
                            .biasBelow = 0});
    EXPECT_EQ(zero->shutterSeconds, 0.0f);
    EXPECT_EQ(zero->aperture, 0.0f);
    EXPECT_EQ(zero->exposureBias, 0.0f);
    EXPECT_NEAR(zero->exposureOffset, middle, 0.03) << "measured, because the numbers are broken";
    const auto partly = read({.timeAbove = 1, .timeBelow = 250, .hasBias = true, .biasAbove = 2, .biasBelow = 1});
    EXPECT_FLOAT_EQ(partly->exposureBias, 2.0f);
    EXPECT_NEAR(partly->exposureOffset, middle, 0.03) << "the measurement takes precedence over the bias";
}

TEST_F(ImageReaderTest, MeasuresBrightnessWithoutExif)
{
    for (const float level : {1.0f, 0.5f, 0.1f, 0.0f}) {
        makeJpeg(folder / "a.jpg", 200, 100, bytesOf(*uniform(200, 100, level, level, level)), {});
        const double linear = linearFromSRGBCurve(std::round(level * 255.0f) / 255.0f);
        const double expected = std::log2(std::max(linear, 1.0 / 16384));
        EXPECT_NEAR(ImageReader::readMetadata(folder / "a.jpg")->exposureOffset, expected, 0.03) << level;
        EXPECT_NEAR(openFile(folder / "a.jpg")->metadata()->exposureOffset, expected, 0.03) << level;
    }
}

TEST_F(ImageReaderTest, SizeOfAFileWithoutItsPixels)
{
    const Bytes samples(6 * 4 * 3, 100);
    makeJpeg(folder / "a.jpg", 6, 4, samples, {});
    EXPECT_EQ(pictureSizeOf(folder / "a.jpg"), _Size<int>(6, 4));
    makePng(folder / "a.png", 4, 6, samples, {.bits = 8});
    EXPECT_EQ(pictureSizeOf(folder / "a.png"), _Size<int>(4, 6));
    const LogCapture log;
    writeBytes(folder / "text.jpg", Bytes(100, 'x'));
    EXPECT_EQ(pictureSizeOf(folder / "text.jpg"), _Size<int>());
    EXPECT_EQ(pictureSizeOf(folder / "missing.jpg"), _Size<int>());
    EXPECT_TRUE(log.lines().empty());
}

TEST_F(ImageReaderTest, BitsOfSamples)
{
    const Bytes samples(4 * 4 * 3 * 4, 100);
    makeJpeg(folder / "a.jpg", 4, 4, samples, {});
    EXPECT_EQ(sampleBitsOf(folder / "a.jpg"), 8);
    makePng(folder / "a.png", 4, 4, samples, {.bits = 8});
    EXPECT_EQ(sampleBitsOf(folder / "a.png"), 8);
    makePng(folder / "gray.png", 4, 4, samples, {.colorType = 0, .bits = 2});
    EXPECT_EQ(sampleBitsOf(folder / "gray.png"), 8);
    makePng(folder / "deep.png", 4, 4, samples, {.bits = 16});
    EXPECT_EQ(sampleBitsOf(folder / "deep.png"), 16);
    makeTiff(folder / "a.tif", 4, 4, samples, {.bits = 8});
    EXPECT_EQ(sampleBitsOf(folder / "a.tif"), 8);
    makeTiff(folder / "deep.tif", 4, 4, samples, {.bits = 16});
    EXPECT_EQ(sampleBitsOf(folder / "deep.tif"), 16);
    makeTiff(folder / "float.tif", 4, 4, samples, {.bits = 32, .floats = true});
    EXPECT_EQ(sampleBitsOf(folder / "float.tif"), 32);
    makeWebP(folder / "a.webp", 4, 4, samples);
    EXPECT_EQ(sampleBitsOf(folder / "a.webp"), 8);
    writeImage(folder / "a.exr", *gradient(4, 4), writeSettingsForPath("a.exr"));
    EXPECT_EQ(sampleBitsOf(folder / "a.exr"), 16);
    writeBytes(folder / "text.png", Bytes(100, 'x'));
    EXPECT_EQ(sampleBitsOf(folder / "text.png"), 0);
    EXPECT_EQ(sampleBitsOf(folder / "missing.png"), 0);
}

TEST_F(ImageReaderTest, TakesOverKnownMetadata)
{
    makeJpeg(folder / "a.jpg", 64, 48, bytesOf(*gradient(64, 48)), {});
    auto known = std::make_shared<ImageMetadata>();
    known->cameraModel = "known before";
    known->exposureOffset = 1.25f;
    const auto image =
        ImageReader::instance().open({folder / "a.jpg", ""}, {}, ImageReaderOpenFlag::Bracket, known, "", -1);
    ASSERT_TRUE(image);
    EXPECT_EQ(image->metadata()->cameraModel, "known before");
    EXPECT_EQ(image->metadata()->exposureOffset, 1.25f);
    EXPECT_EQ(image->metadata()->size, _Size<int>(64, 48));
    EXPECT_TRUE(image->metadata()->fileProfile);
}

} // namespace
} // namespace orvo::test
