#include "test_files.hpp"

#include <orvo_common/failure.hpp>
#include <orvo_core/chromaticities.hpp>
#include <orvo_io/image_writer.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>

namespace orvo::test {
namespace {

using Samples = MemoryPicture::Samples;

constexpr int kWidth = 37; // odd, and more rows than are converted at once
constexpr int kHeight = 70;

// Different bytes for every sample.
Bytes someBytes(int channels, std::size_t bytesPerSample)
{
    Bytes bytes(static_cast<std::size_t>(kWidth * kHeight * channels) * bytesPerSample);
    unsigned value = 17;
    for (unsigned char& byte : bytes) {
        value = value * 1103515245u + 12345u; // the linear congruence of the C standard's rand()
        byte = static_cast<unsigned char>(value >> 16);
    }
    return bytes;
}

// Values below and above full scale too.
Bytes someFloats(int channels)
{
    Bytes bytes(static_cast<std::size_t>(kWidth * kHeight * channels) * sizeof(float));
    for (std::size_t i = 0; i < bytes.size() / sizeof(float); ++i) {
        const float value = static_cast<float>(i % 1013) / 900.0f - 0.05f;
        std::memcpy(&bytes[i * sizeof(float)], &value, sizeof(float));
    }
    return bytes;
}

Bytes swapped(Bytes bytes)
{
    for (std::size_t i = 0; i + 1 < bytes.size(); i += 2)
        std::swap(bytes[i], bytes[i + 1]);
    return bytes;
}

MemoryPicture memoryOf(const Bytes& bytes, int channels, Samples samples = Samples::UInt8)
{
    MemoryPicture picture;
    picture.name = "layer";
    picture.data = bytes.data();
    picture.width = kWidth;
    picture.height = kHeight;
    picture.channels = channels;
    picture.samples = samples;
    return picture;
}

std::shared_ptr<Image> opened(const MemoryPicture& picture)
{
    return ImageReader::instance().open({picture.name, {}, &picture}, {}, ImageReaderOpenFlag::Bracket, nullptr, {},
                                        -1);
}

void expectSame(const MemoryPicture& picture, const std::filesystem::path& file)
{
    const auto fromMemory = opened(picture);
    const auto fromFile = openFile(file);
    ASSERT_TRUE(fromMemory && fromFile);
    const auto expected = pixelsOf(fromFile);
    const auto found = pixelsOf(fromMemory);
    ASSERT_EQ(found->size(), expected->size());
    EXPECT_EQ(std::memcmp(found->data(), expected->data(), expected->pixelCount() * sizeof(PixelRGB<float>)), 0);
    EXPECT_EQ(*found->colorProfile(), *expected->colorProfile());
    EXPECT_EQ(fromMemory->metadata()->exposureOffset, fromFile->metadata()->exposureOffset);
    EXPECT_EQ(*fromMemory->metadata()->fileProfile, *fromFile->metadata()->fileProfile);
}

// The sentence of the failure.
std::string refusalOf(const MemoryPicture& picture)
{
    EXPECT_FALSE(opened(picture));
    const auto failure = lastFailure();
    EXPECT_TRUE(failure && failure->kind == FailureKind::UnreadableFile && failure->file == picture.name);
    return failure ? failure->sentence : std::string();
}

} // namespace

TEST(MemoryPicture, GivesThePixelsOfAFileOfEachKindOfSamples)
{
    const TemporaryFolder folder;
    const auto file = folder / "file.png";
    const struct
    {
        int channels;
        int colorType;
    } kinds[] = {{1, 0}, {2, 4}, {3, 2}, {4, 6}};
    for (const auto& kind : kinds) {
        SCOPED_TRACE(kind.channels);
        const Bytes eight = someBytes(kind.channels, 1);
        makePng(file, kWidth, kHeight, eight, {.colorType = kind.colorType});
        expectSame(memoryOf(eight, kind.channels), file);
        const Bytes sixteen = someBytes(kind.channels, 2);
        makePng(file, kWidth, kHeight, swapped(sixteen), {.colorType = kind.colorType, .bits = 16});
        expectSame(memoryOf(sixteen, kind.channels, Samples::UInt16), file);
    }
    const Bytes floats = someFloats(3);
    makeTiff(folder / "file.tif", kWidth, kHeight, floats, {.bits = 32, .floats = true});
    expectSame(memoryOf(floats, 3, Samples::Float32), folder / "file.tif");
}

TEST(MemoryPicture, GivesThePixelsOfAFileWithItsProfile)
{
    const TemporaryFolder folder;
    const Bytes bytes = someBytes(3, 1);
    makePng(folder / "file.png", kWidth, kHeight, bytes, {.icc = adobeRGB()->icc()});
    MemoryPicture picture = memoryOf(bytes, 3);
    picture.profile = adobeRGB();
    expectSame(picture, folder / "file.png");
}

TEST(MemoryPicture, TakesPremultipliedColoursAsTheyAre)
{
    const Bytes bytes = someBytes(4, 1);
    Bytes colours;
    for (std::size_t i = 0; i < bytes.size(); i += 4)
        colours.insert(colours.end(), {bytes[i], bytes[i + 1], bytes[i + 2]});
    MemoryPicture picture = memoryOf(bytes, 4);
    picture.premultiplied = true;
    const auto expected = opened(memoryOf(colours, 3));
    const auto found = opened(picture);
    ASSERT_TRUE(expected && found);
    EXPECT_EQ(worstDifference(*pixelsOf(found), *pixelsOf(expected)), 0.0);
}

TEST(MemoryPicture, SkipsTheBytesBetweenRows)
{
    const Bytes bytes = someBytes(3, 1);
    constexpr std::size_t kRow = std::size_t{3} * kWidth;
    constexpr std::size_t kGap = 5;
    Bytes apart;
    for (std::size_t at = 0; at < bytes.size(); at += kRow) {
        apart.insert(apart.end(), &bytes[at], &bytes[at] + kRow);
        apart.insert(apart.end(), kGap, 255);
    }
    apart.resize(apart.size() - kGap); // nothing behind the last row is read
    MemoryPicture picture = memoryOf(apart, 3);
    picture.rowBytes = kRow + kGap;
    const auto expected = opened(memoryOf(bytes, 3));
    const auto found = opened(picture);
    ASSERT_TRUE(expected && found);
    EXPECT_EQ(worstDifference(*pixelsOf(found), *pixelsOf(expected)), 0.0);
}

TEST(MemoryPicture, KeepsItsMetadataButNoneOfPixelsThatItHasNot)
{
    const Bytes bytes = someBytes(3, 1);
    auto given = std::make_shared<ImageMetadata>();
    given->shutterSeconds = 0.5f;
    given->aperture = 4.0f;
    given->isoSpeed = 200.0f;
    given->cameraModel = "a camera";
    given->isRaw = true;
    given->size = {1, 2};
    MemoryPicture picture = memoryOf(bytes, 3);
    picture.metadata = given;
    for (const auto& metadata : {opened(picture)->metadata(), ImageReader::readMetadata(picture)}) {
        EXPECT_EQ(metadata->shutterSeconds, 0.5f);
        EXPECT_EQ(metadata->cameraModel, "a camera");
        EXPECT_EQ(metadata->exposureOffset, 0.0f);
        EXPECT_FALSE(metadata->isRaw);
        EXPECT_EQ(metadata->size, _Size<int>(kWidth, kHeight));
        EXPECT_EQ(*metadata->fileProfile, *ColorProfileType::sRGB());
    }
}

TEST(MemoryPicture, ItsBrightnessIsMeasuredWithoutExposureData)
{
    const Bytes dark(static_cast<std::size_t>(3 * kWidth * kHeight), 55); // linear 0.0382, 4.71 EV below white
    EXPECT_NEAR(ImageReader::readMetadata(memoryOf(dark, 3))->exposureOffset, -4.71, 0.02);
}

TEST(MemoryPicture, IsRefusedWithTheFieldThatDoesNotFit)
{
    using testing::HasSubstr;
    const Bytes bytes = someBytes(3, 1);
    const MemoryPicture good = memoryOf(bytes, 3);
    MemoryPicture bad = good;
    bad.data = nullptr;
    EXPECT_EQ(refusalOf(bad), "MemoryPicture.data: expected samples, found none");
    bad = good;
    bad.width = 0;
    EXPECT_THAT(refusalOf(bad), HasSubstr("0 x 70"));
    bad.width = std::numeric_limits<std::int32_t>::max();
    EXPECT_THAT(refusalOf(bad), HasSubstr("larger than the limit"));
    bad = good;
    bad.channels = 5;
    EXPECT_EQ(refusalOf(bad), "MemoryPicture.channels: expected 1 to 4, found 5");
    bad = good;
    bad.samples = static_cast<Samples>(9);
    EXPECT_THAT(refusalOf(bad), HasSubstr("MemoryPicture.samples"));
    bad = good;
    bad.rowBytes = 110;
    EXPECT_EQ(refusalOf(bad), "MemoryPicture.rowBytes: expected at least 111, found 110");
    EXPECT_FALSE(ImageReader::readMetadata(bad));
}

} // namespace orvo::test
