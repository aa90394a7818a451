#include "deflate.hpp"
#include "test_files.hpp"

#include <orvo_common/memory_manager.hpp>
#include <orvo_core/parallel.hpp>

#include <exiv2/exiv2.hpp>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <jpeglib.h>
#include <sys/resource.h>
#include <tiffio.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <csignal>
#include <cstdlib>
#include <limits>
#include <random>
#include <vector>

namespace orvo::test {
namespace {

using ::testing::HasSubstr;

std::string messageOf(const std::function<void()>& call)
{
    try {
        call();
    } catch (const std::exception& error) {
        return error.what();
    }
    return "nothing was thrown";
}

class ImageWriterTest : public ::testing::Test
{
protected:
    TemporaryFolder folder;
};

TEST_F(ImageWriterTest, RoundTrips)
{
    struct Case
    {
        const char* name;
        int bits;
        double tolerance;
    };
    // Half a quantisation step, plus the error of floats.
    const double kHalf8 = 0.5 / 255 + 1e-6;
    const double kHalf16 = 0.5 / 65535 + 1e-6;
    for (const _Size<int> size : {_Size<int>(1, 1), _Size<int>(1, 9), _Size<int>(333, 5), _Size<int>(130, 97)}) {
        const auto picture = gradient(size.width, size.height);
        for (const Case& c : {Case{"a.png", 8, kHalf8}, Case{"a.png", 16, kHalf16}, Case{"a.tif", 8, kHalf8},
                              Case{"a.tif", 16, kHalf16}, Case{"a.exr", 32, 1e-5}, Case{"a.exr", 16, 1e-3},
                              Case{"a.jpg", 8, 3.5 / 255}}) {
            ImageWriteSettings settings = writeSettingsForPath(c.name);
            settings.bits = c.bits;
            settings.jpegQuality = 100;
            ASSERT_TRUE(writeImage(folder / c.name, *picture, settings));
            const auto read = openAsSRGB(folder / c.name);
            ASSERT_TRUE(read) << c.name;
            EXPECT_LE(worstDifference(*read, *picture), c.tolerance) << c.name << c.bits << " " << size.width;
        }
    }
}

// The reader composites alpha over black in the encoded values, which multiplies plain colours by it; colours that the
// format stores premultiplied in linear light are read as they are.
TEST_F(ImageWriterTest, Alpha)
{
    const auto picture = gradient(70, 41);
    auto alpha = std::make_shared<MaskImage>(picture->size());
    auto expected = std::make_shared<Picture>(picture->size(), ColorProfileType::sRGB());
    auto light = picture->copy({});
    light->convertTo(ColorProfileType::linearSRGB());
    for (int y = 0; y < 41; ++y)
        for (int x = 0; x < 70; ++x) {
            const float a = alpha->row(y)[x] = x < 10 ? 0.0f : x < 20 ? 1.0f : 0.02f * static_cast<float>(y);
            const auto& p = picture->row(y)[x];
            expected->row(y)[x] = {p.r * a, p.g * a, p.b * a};
            auto& l = light->row(y)[x];
            l = {l.r * a, l.g * a, l.b * a};
        }
    light->convertTo(ColorProfileType::sRGB());
    struct Case
    {
        const char* name;
        int bits;
        double tolerance;
    };
    for (const Case& c : {Case{"a.png", 8, 1.01 / 255}, Case{"a.png", 16, 1.01 / 65535}, Case{"a.tif", 8, 1.01 / 255},
                          Case{"a.tif", 16, 1.01 / 65535}, Case{"a.exr", 16, 1e-3}, Case{"a.exr", 32, 1e-5}}) {
        SCOPED_TRACE(c.name + std::to_string(c.bits));
        ImageWriteSettings settings = writeSettingsForPath(c.name);
        settings.bits = c.bits;
        settings.alpha = alpha;
        ASSERT_TRUE(writeImage(folder / c.name, *picture, settings));
        const auto read = openAsSRGB(folder / c.name);
        ASSERT_TRUE(read);
        EXPECT_LE(worstDifference(*read, settings.format == ImageFileFormat::Exr ? *light : *expected), c.tolerance);
    }
    const auto tiff = std::unique_ptr<TIFF, void (*)(TIFF*)>(TIFFOpen((folder / "a.tif").c_str(), "r"), TIFFClose);
    std::uint16_t count = 0;
    std::uint16_t* kinds = nullptr;
    ASSERT_EQ(TIFFGetField(tiff.get(), TIFFTAG_EXTRASAMPLES, &count, &kinds), 1);
    ASSERT_EQ(count, 1);
    EXPECT_EQ(kinds[0], EXTRASAMPLE_UNASSALPHA);

    ImageWriteSettings settings = writeSettingsForPath("a.jpg");
    settings.alpha = alpha;
    EXPECT_THROW(writeImage(folder / "a.jpg", *picture, settings), std::invalid_argument);
    settings = writeSettingsForPath("b.png");
    settings.alpha = std::make_shared<MaskImage>(_Size<int>(41, 70));
    EXPECT_THROW(writeImage(folder / "b.png", *picture, settings), std::invalid_argument);
}

TEST_F(ImageWriterTest, ConvertsToTheRequestedProfileAndEmbedsIt)
{
    auto picture = uniform(30, 20, 0.3f, 0.6f, 0.4f);
    picture->convertTo(ColorProfileType::melissaRGB());
    for (const char* const name : {"a.png", "a.tif", "a.jpg"})
        for (const auto& profile : {ColorProfileType::sRGB(), ColorProfileType::melissaRGB()}) {
            ImageWriteSettings settings = writeSettingsForPath(name);
            settings.profile = profile;
            writeImage(folder / name, *picture, settings);
            const auto image = openFile(folder / name);
            ASSERT_TRUE(image) << name;
            EXPECT_EQ(*image->metadata()->fileProfile, *profile) << name;
            EXPECT_LT(worstDifference(*pixelsOf(image), *picture), 2.0 / 255) << name;
        }
}

TEST_F(ImageWriterTest, RoundsAndClamps)
{
    auto picture = uniform(4, 1, 0.0f, 0.0f, 0.0f);
    picture->row(0)[0] = {-1.0f, 2.0f, std::numeric_limits<float>::quiet_NaN()};
    picture->row(0)[1] = {0.49f / 255, 0.51f / 255, 254.49f / 255};
    picture->row(0)[2] = {254.51f / 255, std::numeric_limits<float>::infinity(), 0.5f};
    ImageWriteSettings settings = writeSettingsForPath("a.png");
    settings.bits = 8;
    writeImage(folder / "a.png", *picture, settings);
    const auto read = openAsSRGB(folder / "a.png");
    const auto at = [&](int x, float r, float g, float b) {
        EXPECT_NEAR(read->row(0)[x].r * 255, r, 1e-3) << x;
        EXPECT_NEAR(read->row(0)[x].g * 255, g, 1e-3) << x;
        EXPECT_NEAR(read->row(0)[x].b * 255, b, 1e-3) << x;
    };
    at(0, 0, 255, 0);
    at(1, 0, 1, 254);
    at(2, 255, 255, 128);
}

TEST_F(ImageWriterTest, ExrKeepsValuesBeyondTheRange)
{
    auto picture = uniform(8, 4, 4.0f, -0.5f, 0.25f);
    picture->setColorProfile(ColorProfileType::linearSRGB());
    picture->row(0)[0] = {std::numeric_limits<float>::quiet_NaN(), 1e9f, 0.0f};
    ImageWriteSettings settings = writeSettingsForPath("a.exr");
    auto metadata = std::make_shared<ImageMetadata>();
    metadata->shutterSeconds = 0.01f;
    metadata->aperture = 4.0f;
    metadata->isoSpeed = 200.0f;
    settings.metadata = metadata;
    writeImage(folder / "a.exr", *picture, settings);
    const auto image = openFile(folder / "a.exr", ImageReaderOpenFlag::Bracket, ColorProfileType::linearSRGB());
    ASSERT_TRUE(image);
    EXPECT_TRUE(image->metadata()->fileProfile->isLinear());
    EXPECT_EQ(pixelsOf(image)->row(3)[7], (PixelRGB<float>{4.0f, -0.5f, 0.25f}));
    EXPECT_EQ(pixelsOf(image)->row(0)[0], (PixelRGB<float>{0.0f, 65504.0f, 0.0f}));
    EXPECT_FLOAT_EQ(image->metadata()->shutterSeconds, 0.01f);
    EXPECT_TRUE(image->metadata()->hasExposure());
}

TEST_F(ImageWriterTest, CarriesMetadata)
{
    Exiv2::ExifData exif;
    exif["Exif.Image.Make"] = "Maker";
    exif["Exif.Image.Model"] = "Model 7";
    exif["Exif.Image.Copyright"] = "somebody";
    exif["Exif.Image.Software"] = "Camera Ver.1.10";
    exif["Exif.Image.Orientation"] = std::uint16_t{6};
    exif["Exif.Image.StripOffsets"] = std::uint32_t{8};
    exif["Exif.Photo.ExposureTime"] = Exiv2::URational(1, 125);
    exif["Exif.Photo.FNumber"] = Exiv2::URational(8, 1);
    exif["Exif.Photo.ISOSpeedRatings"] = std::uint16_t{320};
    exif["Exif.Photo.LensModel"] = "Lens 50mm";
    exif["Exif.Photo.PixelXDimension"] = std::uint32_t{9999};
    exif["Exif.GPSInfo.GPSLatitudeRef"] = "N";
    exif["Exif.GPSInfo.GPSLatitude"] = "48/1 30/1 0/1";
    Exiv2::ExifThumb(exif).setJpegThumbnail(reinterpret_cast<const Exiv2::byte*>("\xFF\xD8\xFF\xD9"), 4);
    Exiv2::Blob blob;
    Exiv2::ExifParser::encode(blob, Exiv2::littleEndian, exif);
    Exiv2::IptcData iptc;
    iptc["Iptc.Application2.Caption"] = "a caption";
    Exiv2::XmpData xmp;
    xmp["Xmp.dc.creator"] = "the creator";
    xmp["Xmp.tiff.Orientation"] = "6";
    xmp["Xmp.tiff.Software"] = "Camera Ver.1.10";
    EmbeddedMetadata blocks;
    blocks.exif = blob;
    const Exiv2::DataBuf iptcBytes = Exiv2::IptcParser::encode(iptc);
    blocks.iptc.assign(iptcBytes.pData_, iptcBytes.pData_ + iptcBytes.size_);
    Exiv2::XmpParser::encode(blocks.xmp, xmp);
    auto metadata = std::make_shared<ImageMetadata>();
    metadata->embedded = std::make_shared<const EmbeddedMetadata>(blocks);

    const auto picture = gradient(60, 40);
    for (const char* const name : {"a.jpg", "a.png", "a.tif"}) {
        ImageWriteSettings settings = writeSettingsForPath(name);
        settings.metadata = metadata;
        writeImage(folder / name, *picture, settings);
        const auto read = ImageReader::readMetadata(folder / name);
        ASSERT_TRUE(read) << name;
        EXPECT_EQ(read->size, _Size<int>(60, 40)) << name;
        EXPECT_EQ(read->cameraMake, "Maker") << name;
        EXPECT_EQ(read->cameraModel, "Model 7") << name;
        EXPECT_EQ(read->lensModel, "Lens 50mm") << name;
        EXPECT_FLOAT_EQ(read->shutterSeconds, 0.008f) << name;
        EXPECT_FLOAT_EQ(read->aperture, 8.0f) << name;
        EXPECT_FLOAT_EQ(read->isoSpeed, 320.0f) << name;
        ASSERT_TRUE(read->embedded) << name;

        // The file as seen by another program.
        const auto other = Exiv2::ImageFactory::open((folder / name).string());
        other->readMetadata();
        Exiv2::ExifData& seen = other->exifData();
        EXPECT_EQ(seen["Exif.Image.Orientation"].toLong(), 1) << name;
        EXPECT_EQ(seen["Exif.Photo.PixelXDimension"].toLong(), 60) << name;
        EXPECT_EQ(seen["Exif.Image.Copyright"].toString(), "somebody") << name;
        EXPECT_EQ(seen["Exif.Image.Software"].toString(), writingSoftware()) << name;
        EXPECT_EQ(other->xmpData()["Xmp.tiff.Software"].toString(), writingSoftware()) << name;
        EXPECT_EQ(seen["Exif.GPSInfo.GPSLatitude"].toString(), "48/1 30/1 0/1") << name;
        EXPECT_EQ(Exiv2::ExifThumbC(seen).copy().size_, 0) << name;
        if (std::string(name) != "a.tif") {
            EXPECT_EQ(seen.findKey(Exiv2::ExifKey("Exif.Image.StripOffsets")), seen.end()) << name;
        }
        EXPECT_EQ(other->xmpData()["Xmp.dc.creator"].toString(), "the creator") << name;
        EXPECT_EQ(other->xmpData()["Xmp.tiff.Orientation"].toString(), "1") << name;
        EXPECT_EQ(other->iptcData()["Iptc.Application2.Caption"].toString(), "a caption") << name;

        // Copied once more, into the next file.
        ImageWriteSettings next = writeSettingsForPath("again.jpg");
        next.metadata = read;
        writeImage(folder / "again.jpg", *picture, next);
        const auto again = ImageReader::readMetadata(folder / "again.jpg");
        EXPECT_EQ(again->lensModel, "Lens 50mm") << name;
        EXPECT_FALSE(again->embedded->xmp.empty()) << name;
        EXPECT_FALSE(again->embedded->iptc.empty()) << name;
    }
}

TEST_F(ImageWriterTest, NamesTheSoftware)
{
    EXPECT_EQ(writingSoftware().rfind("orvo_extensions ", 0), 0u);
    const auto softwareOf = [this](const std::string& name) {
        const auto other = Exiv2::ImageFactory::open((folder / name).string());
        other->readMetadata();
        const auto found = other->exifData().findKey(Exiv2::ExifKey("Exif.Image.Software"));
        return found == other->exifData().end() ? std::string() : found->toString();
    };
    const auto contains = [this](const std::string& name, const std::string& text) {
        const Bytes bytes = readBytes(folder / name);
        return std::search(bytes.begin(), bytes.end(), text.begin(), text.end()) != bytes.end();
    };
    for (const std::string name : {"a.jpg", "a.png", "a.tif", "a.exr"}) {
        SCOPED_TRACE(name);
        ImageWriteSettings settings = writeSettingsForPath(name);
        writeImage(folder / name, *gradient(20, 10), settings); // without metadata
        EXPECT_TRUE(contains(name, writingSoftware()));
        if (name != "a.exr") {
            EXPECT_EQ(softwareOf(name), writingSoftware());
        }
        settings.software = "an editor 2";
        writeImage(folder / name, *gradient(20, 10), settings);
        EXPECT_TRUE(contains(name, "an editor 2"));
        settings.software.clear();
        writeImage(folder / name, *gradient(20, 10), settings);
        EXPECT_FALSE(contains(name, "oftware"));
    }
}

TEST_F(ImageWriterTest, SoftwareOfTheMetadataStaysWhereNoneIsGiven)
{
    Exiv2::ExifData exif;
    exif["Exif.Image.Software"] = "Camera Ver.1.10";
    EmbeddedMetadata blocks;
    Exiv2::ExifParser::encode(blocks.exif, Exiv2::littleEndian, exif);
    auto metadata = std::make_shared<ImageMetadata>();
    metadata->embedded = std::make_shared<const EmbeddedMetadata>(blocks);
    for (const std::string name : {"a.jpg", "a.png", "a.tif"}) {
        ImageWriteSettings settings = writeSettingsForPath(name);
        settings.metadata = metadata;
        settings.software.clear();
        writeImage(folder / name, *gradient(20, 10), settings);
        const auto other = Exiv2::ImageFactory::open((folder / name).string());
        other->readMetadata();
        EXPECT_EQ(other->exifData()["Exif.Image.Software"].toString(), "Camera Ver.1.10") << name;
    }
}

TEST_F(ImageWriterTest, GarbageMetadataIsLeftOut)
{
    auto metadata = std::make_shared<ImageMetadata>();
    EmbeddedMetadata blocks;
    blocks.exif = Bytes(500, 0xAB);
    blocks.iptc = Bytes(500, 0xCD);
    blocks.xmp = "<this is not XMP";
    metadata->embedded = std::make_shared<const EmbeddedMetadata>(blocks);
    for (const char* const name : {"a.jpg", "a.png", "a.tif", "a.exr"}) {
        ImageWriteSettings settings = writeSettingsForPath(name);
        settings.metadata = metadata;
        EXPECT_TRUE(writeImage(folder / name, *gradient(20, 10), settings)) << name;
        EXPECT_TRUE(openFile(folder / name)) << name;
    }
}

TEST_F(ImageWriterTest, FailuresNameFileAndCause)
{
    const auto picture = gradient(400, 300);
    for (const char* const name : {"a.jpg", "a.png", "a.tif", "a.exr"}) {
        const ImageWriteSettings settings = writeSettingsForPath(name);
        const auto missing = folder / "nowhere" / name;
        EXPECT_THAT(messageOf([&] { writeImage(missing, *picture, settings); }),
                    ::testing::AllOf(HasSubstr(missing.string()), HasSubstr("No such file or directory")));
        EXPECT_THAT(messageOf([&] { writeImage(folder.path(), *picture, settings); }), HasSubstr("Is a directory"));
        EXPECT_THAT(messageOf([&] { writeImage("/dev/full", *picture, settings); }),
                    ::testing::AllOf(HasSubstr("/dev/full"), HasSubstr("No space left on device")))
            << name;
        EXPECT_TRUE(std::filesystem::exists("/dev/full"));
    }
    if (::geteuid() != 0) {
        std::filesystem::create_directory(folder / "shut");
        std::filesystem::permissions(folder / "shut",
                                     std::filesystem::perms::owner_read | std::filesystem::perms::owner_exec);
        EXPECT_THAT(messageOf([&] { writeImage(folder / "shut" / "a.png", *picture, writeSettingsForPath("a.png")); }),
                    HasSubstr("Permission denied"));
    }
}

TEST_F(ImageWriterTest, PartlyWrittenFileIsRemoved)
{
    // A limit on the size of files simulates a disk that fills up half way.
    auto picture = gradient(400, 300);
    std::mt19937 random(2); // noise, so that every format needs more than the limit
    for (std::size_t i = 0; i < picture->pixelCount(); ++i)
        picture->data()[i].g = static_cast<float>(random() % 1000) / 999.0f;
    const auto oldHandler = std::signal(SIGXFSZ, SIG_IGN);
    rlimit old{};
    ASSERT_EQ(::getrlimit(RLIMIT_FSIZE, &old), 0);
    for (const char* const name : {"a.jpg", "a.png", "a.tif", "a.exr"}) {
        rlimit limited = old;
        limited.rlim_cur = 40'000; // bytes
        ::setrlimit(RLIMIT_FSIZE, &limited);
        const std::string message = messageOf([&] { writeImage(folder / name, *picture, writeSettingsForPath(name)); });
        ::setrlimit(RLIMIT_FSIZE, &old);
        EXPECT_THAT(message, ::testing::AllOf(HasSubstr((folder / name).string()), HasSubstr("File too large")));
        EXPECT_FALSE(std::filesystem::exists(folder / name)) << name;
    }
    std::signal(SIGXFSZ, oldHandler);
}

TEST_F(ImageWriterTest, CancelRemovesTheFile)
{
    const auto picture = gradient(200, 300);
    for (const char* const name : {"a.jpg", "a.png", "a.tif", "a.exr"}) {
        ImageWriteSettings settings = writeSettingsForPath(name);
        int polls = 0;
        settings.cancel = [&polls] { return ++polls > 3; };
        EXPECT_FALSE(writeImage(folder / name, *picture, settings)) << name;
        EXPECT_EQ(polls, 4) << name;
        EXPECT_FALSE(std::filesystem::exists(folder / name)) << name;
    }
}

TEST_F(ImageWriterTest, RefusesSettingsThatDoNotFit)
{
    const auto picture = gradient(10, 10);
    const auto attempt = [&](ImageFileFormat format, int bits, int quality = 95) {
        ImageWriteSettings settings;
        settings.format = format;
        settings.bits = bits;
        settings.jpegQuality = quality;
        writeImage(folder / "a", *picture, settings);
    };
    EXPECT_THROW(attempt(ImageFileFormat::Jpeg, 16), std::invalid_argument);
    EXPECT_THROW(attempt(ImageFileFormat::Jpeg, 8, 0), std::invalid_argument);
    EXPECT_THROW(attempt(ImageFileFormat::Jpeg, 8, 101), std::invalid_argument);
    EXPECT_THROW(attempt(ImageFileFormat::Png, 32), std::invalid_argument);
    EXPECT_THROW(attempt(ImageFileFormat::Tiff, 1), std::invalid_argument);
    EXPECT_THROW(attempt(ImageFileFormat::Exr, 8), std::invalid_argument);
    EXPECT_FALSE(std::filesystem::exists(folder / "a"));
    const Picture empty({0, 5}, ColorProfileType::sRGB());
    EXPECT_THROW(writeImage(folder / "a.png", empty, writeSettingsForPath("a.png")), std::invalid_argument);
    EXPECT_EQ(writeSettingsForPath("x.JPEG").format, ImageFileFormat::Jpeg);
    EXPECT_EQ(writeSettingsForPath("x.TIF").bits, 16);
    EXPECT_THROW((void)writeSettingsForPath("x.bmp"), std::invalid_argument);
    EXPECT_THROW((void)writeSettingsForPath("x"), std::invalid_argument);
}

TEST_F(ImageWriterTest, AnyNumberOfThreadsWritesTheSameBytes)
{
    const auto picture = gradient(911, 1200); // several parts of a compressed file
    for (const char* const name : {"a.jpg", "a.png", "a.tif", "a.exr"}) {
        Bytes single;
        for (const int workers : {1, 2}) {
            const WorkerLimit limit(workers);
            ImageWriteSettings settings = writeSettingsForPath(name);
            settings.profile = ColorProfileType::melissaRGB();
            writeImage(folder / name, *picture, settings);
            if (workers == 1)
                single = readBytes(folder / name);
            else
                EXPECT_EQ(readBytes(folder / name), single) << name;
        }
    }
}

// A field of the compressor's state that nobody sets holds what its memory held before: files then differ from run to
// run.
TEST(Deflate, WhatMemoryHeldBeforeDoesNotMatter)
{
    Bytes in(250'000);
    std::minstd_rand random(1);
    for (std::size_t i = 0; i < in.size(); ++i)
        in[i] = static_cast<unsigned char>(i % 6 == 0 ? random() % 4 : 0);
    Bytes first;
    Bytes out;
    out.reserve(2 * in.size());
    for (const int word : {0, 0, 1, 2, 9, 300}) { // the first block of its size goes back to the system
        constexpr std::size_t kWords = 220'000;   // slightly more than the compressor takes
        {
            const std::vector<std::uint16_t> before(kWords, static_cast<std::uint16_t>(word));
        }
        io::deflateWhole(in, out);
        if (first.empty())
            first = out;
        EXPECT_EQ(out.size(), first.size()) << word;
        EXPECT_TRUE(out == first) << word;
    }
}

// Compressed in parts and bands of parts: every row must be in its place across all their borders.
TEST_F(ImageWriterTest, LargePicturesComeBackExactly)
{
    constexpr int kWidth = 701;
    constexpr int kHeight = 4300; // more than two bands of 16 bits
    auto picture = uniform(kWidth, kHeight, 0.0f, 0.0f, 0.0f);
    std::minstd_rand random(1);
    for (int y = 0; y < kHeight; ++y)
        for (int x = 0; x < kWidth; ++x) {
            // Noise now and then, which no filter of PNG helps; else columns, which only a look at the row above makes
            // small: a wrong row above shows.
            const auto sample = [&](int c) {
                const unsigned columns = static_cast<unsigned>((x % 2) * 10280 + c * 257);
                const unsigned value = y % 7 == 0 ? static_cast<unsigned>(random() % 65536u) : columns;
                return static_cast<float>(value) / 65535.0f;
            };
            picture->row(y)[x] = {sample(0), sample(1), sample(2)};
        }
    picture->setColorProfile(ColorProfileType::sRGB());
    for (const char* const name : {"a.png", "a.tif"})
        for (const int bits : {8, 16}) {
            ImageWriteSettings settings = writeSettingsForPath(name);
            settings.bits = bits;
            writeImage(folder / name, *picture, settings);
            const auto read = openAsSRGB(folder / name);
            ASSERT_TRUE(read) << name;
            EXPECT_LE(worstDifference(*read, *picture), 0.5 / ((1 << bits) - 1) + 1e-6) << name << bits;
        }
}

// libjpeg's own file of a picture in sRGB, encoded in one piece.
Bytes encodedByLibjpeg(const Picture& picture, int quality)
{
    jpeg_compress_struct info = {};
    jpeg_error_mgr errors = {};
    info.err = jpeg_std_error(&errors);
    jpeg_create_compress(&info);
    unsigned char* bytes = nullptr;
    unsigned long count = 0;
    jpeg_mem_dest(&info, &bytes, &count);
    info.image_width = static_cast<JDIMENSION>(picture.width());
    info.image_height = static_cast<JDIMENSION>(picture.height());
    info.input_components = 3;
    info.in_color_space = JCS_RGB;
    jpeg_set_defaults(&info);
    jpeg_set_quality(&info, quality, TRUE);
    if (quality >= 90)
        info.comp_info[0].h_samp_factor = info.comp_info[0].v_samp_factor = 1;
    jpeg_start_compress(&info, TRUE);
    std::vector<unsigned char> row(3 * static_cast<std::size_t>(picture.width()));
    for (int y = 0; y < picture.height(); ++y) {
        const float* const samples = &picture.row(y)->r;
        for (std::size_t i = 0; i < row.size(); ++i)
            row[i] = static_cast<unsigned char>(samples[i] * 255.0f + 0.5f);
        JSAMPROW line = row.data();
        jpeg_write_scanlines(&info, &line, 1);
    }
    jpeg_finish_compress(&info);
    const Bytes encoded(bytes, bytes + count);
    jpeg_destroy_compress(&info);
    std::free(bytes);
    return encoded;
}

// Encoded in parts: the pixels are those of one piece, with chroma at either resolution and an incomplete last block. A
// file of one part has the same bytes.
TEST_F(ImageWriterTest, JpegInPartsHasThePixelsOfOnePiece)
{
    for (const _Size<int> size : {_Size<int>(2001, 1003), _Size<int>(37, 5000), _Size<int>(90, 71)}) {
        const auto picture = gradient(size.width, size.height, 255);
        std::minstd_rand random(1);
        for (std::size_t i = 0; i < picture->pixelCount(); i += 3)
            picture->data()[i].g = static_cast<float>(random() % 256u) / 255.0f;
        for (const int quality : {75, 95}) {
            ImageWriteSettings settings = writeSettingsForPath("a.jpg");
            settings.jpegQuality = quality;
            ASSERT_TRUE(writeImage(folder / "a.jpg", *picture, settings));
            writeBytes(folder / "one.jpg", encodedByLibjpeg(*picture, quality));
            const auto parts = openAsSRGB(folder / "a.jpg");
            const auto one = openAsSRGB(folder / "one.jpg");
            ASSERT_TRUE(parts && one);
            EXPECT_EQ(worstDifference(*parts, *one), 0.0) << size.width << " " << quality;
        }
    }
}

TEST_F(ImageWriterTest, NoSecondPlane)
{
    constexpr std::size_t kBand = 12u << 20; // writers convert and compress a band at a time
    const auto picture = gradient(2000, 1500);
    for (const char* const name : {"a.jpg", "a.png", "a.tif", "a.exr"}) {
        MemoryManager::instance().trim(); // a kept plane may be larger than requested
        const std::size_t before = MemoryManager::instance().liveBytes();
        MemoryManager::instance().resetPeak();
        writeImage(folder / name, *picture, writeSettingsForPath(name));
        EXPECT_LT(MemoryManager::instance().peakBytes() - before, kBand) << name;
        EXPECT_EQ(MemoryManager::instance().liveBytes(), before) << name;
        MemoryManager::instance().resetPeak();
        const auto image = openFile(folder / name);
        ASSERT_TRUE(image);
        EXPECT_LT(MemoryManager::instance().peakBytes() - before, picture->pixelCount() * 13) << name;
    }
}

} // namespace
} // namespace orvo::test
