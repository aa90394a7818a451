// Pictures of real cameras, from the folder named by ORVO_TEST_DATA.
#include "test_files.hpp"

#include <orvo_common/failure.hpp>
#include <orvo_logger/log_capture.hpp>

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <fstream>

namespace orvo::test {
namespace {

class RealFiles : public ::testing::Test
{
protected:
    void SetUp() override
    {
        if (testData().empty())
            GTEST_SKIP() << "ORVO_TEST_DATA is not set";
    }
    TemporaryFolder folder;
};

double meanLuminance(const Picture& picture, _Rect<int> rect = {})
{
    std::shared_ptr<Picture> linear;
    picture.copy(rect)->colorTransform(linear, ColorProfileType::linearSRGB(), true);
    double sum = 0.0;
    for (std::size_t i = 0; i < linear->pixelCount(); ++i)
        sum += 0.2126 * linear->data()[i].r + 0.7152 * linear->data()[i].g + 0.0722 * linear->data()[i].b;
    return sum / static_cast<double>(linear->pixelCount());
}

TEST_F(RealFiles, EverySetOpens)
{
    for (const char* const group : {"brackets", "focus", "panorama", "single"})
        for (const auto& set : std::filesystem::directory_iterator(testData() / group))
            for (const auto& entry : std::filesystem::directory_iterator(set.path())) {
                if (!entry.is_regular_file() || entry.path().extension() == ".txt")
                    continue;
                const LogCapture log;
                const auto image = openFile(entry.path());
                ASSERT_TRUE(image) << entry.path();
                EXPECT_TRUE(log.texts(LogMessageType::Warning).empty()) << entry.path();
                EXPECT_FALSE(isRawImageFile(entry.path()));
                const auto metadata = ImageReader::readMetadata(entry.path());
                ASSERT_TRUE(metadata) << entry.path();
                EXPECT_EQ(metadata->size, image->size()) << entry.path();
                EXPECT_EQ(metadata->shutterSeconds, image->metadata()->shutterSeconds);
                EXPECT_NEAR(metadata->exposureOffset, image->metadata()->exposureOffset, 0.3) << entry.path();
                const auto thumbnail = ImageReader::instance().getThumbnailBySide(entry.path(), 32, true, nullptr, {});
                ASSERT_TRUE(thumbnail) << entry.path();
                EXPECT_EQ(std::max(thumbnail->width(), thumbnail->height()), 32);
                break; // one of each set
            }
}

TEST_F(RealFiles, APngTakesTheIncorrectSRGBProfileOfACamera)
{
    const auto image = openFile(testData() / "panorama" / "ledge_vertical" / "ledge_1.jpg");
    ASSERT_TRUE(image);
    const auto path = folder.path() / "ledge.png";
    ImageWriteSettings settings = writeSettingsForPath(path);
    settings.profile = image->metadata()->fileProfile;
    ASSERT_NO_THROW(writeImage(path, *image->imageData({}, {}, true), settings));
    ASSERT_TRUE(openFile(path));
}

TEST_F(RealFiles, BracketReportsItsExposures)
{
    const auto set = testData() / "brackets" / "building_iso";
    std::vector<std::pair<float, float>> exposures;
    for (const auto& entry : std::filesystem::directory_iterator(set)) {
        if (entry.path().extension() != ".JPG")
            continue;
        const auto m = ImageReader::readMetadata(entry.path());
        ASSERT_TRUE(m->hasExposure()) << entry.path();
        EXPECT_EQ(m->exposureOffset, 0.0f);
        exposures.emplace_back(m->shutterSeconds * m->isoSpeed, m->exposureBias);
    }
    ASSERT_EQ(exposures.size(), 5u);
    std::sort(exposures.begin(), exposures.end());
    EXPECT_NEAR(exposures.front().first, 2.0f, 0.01f);
    EXPECT_NEAR(exposures.back().first, 40.0f, 0.1f);
    EXPECT_FLOAT_EQ(exposures.back().second, 2.0f);
}

TEST_F(RealFiles, OrientationSix)
{
    const auto file = testData() / "single" / "waterfall_orientation6" / "waterfall_orientation6.jpg";
    const auto image = openFile(file);
    ASSERT_TRUE(image);
    EXPECT_EQ(image->size(), _Size<int>(1800, 1200));
    const auto picture = openAsSRGB(file);
    // The sky is up: brighter and bluer than the ground.
    EXPECT_GT(meanLuminance(*picture, {0, 0, 900, 200}), 1.5 * meanLuminance(*picture, {0, 1000, 900, 200}));
}

TEST_F(RealFiles, DisplayP3IsWider)
{
    // The two files have the same samples and differ only in the profile.
    const auto set = testData() / "single" / "p3_vs_srgb";
    const auto wide = openFile(set / "iceland_p3.jpg", ImageReaderOpenFlag::Bracket, ColorProfileType::sRGB());
    const auto plain = openAsSRGB(set / "iceland_srgb.jpg");
    ASSERT_TRUE(wide && plain);
    EXPECT_FALSE(*wide->metadata()->fileProfile == *ColorProfileType::sRGB());
    EXPECT_EQ(worstDifference(*pixelsOf(openFile(set / "iceland_p3.jpg", ImageReaderOpenFlag::Upright)), *plain), 0.0);
    const auto meanRedness = [](const Picture& picture) {
        double sum = 0.0;
        for (std::size_t i = 0; i < picture.pixelCount(); ++i)
            sum += static_cast<double>(picture.data()[i].r - 0.5f * (picture.data()[i].g + picture.data()[i].b));
        return sum / static_cast<double>(picture.pixelCount());
    };
    EXPECT_GT(meanRedness(*pixelsOf(wide)), 1.1 * meanRedness(*plain));
    EXPECT_NEAR(meanLuminance(*pixelsOf(wide)), meanLuminance(*plain), 0.02);
}

TEST_F(RealFiles, HeicIsUprightAndWide)
{
    const auto file = testData() / "single" / "sign_heic_p3" / "sign_heic_p3.heic";
    const auto image = openFile(file);
    ASSERT_TRUE(image);
    EXPECT_EQ(image->size(), _Size<int>(3024, 4032));
    EXPECT_TRUE(image->metadata()->hasExposure());
    EXPECT_FALSE(*image->metadata()->fileProfile == *ColorProfileType::sRGB());
    const Bytes whole = readBytes(file);
    writeBytes(folder / "cut.heic",
               Bytes(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(whole.size() / 2)));
    const LogCapture log;
    EXPECT_FALSE(openFile(folder / "cut.heic"));
    EXPECT_EQ(log.texts(LogMessageType::Warning).size(), 1u);
}

// The decoder's threads neither wait forever nor end the process.
TEST_F(RealFiles, HeicWithoutMemoryIsAFailure)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const auto file = testData() / "single" / "sign_heic_p3" / "sign_heic_p3.heic";
    for (const std::size_t room : {8u, 24u, 48u, 120u, 300u, 400u}) { // MiB
        const auto read = [&] {
            constexpr unsigned kLongest = 30; // seconds, then SIGALRM ends it
            ::alarm(kLongest);
            std::ifstream sizes("/proc/self/statm");
            std::size_t pages = 0;
            sizes >> pages;
            rlimit limit{};
            limit.rlim_cur = limit.rlim_max = pages * static_cast<std::size_t>(::getpagesize()) + (room << 20);
            ::setrlimit(RLIMIT_AS, &limit);
            const bool isRead = openFile(file) != nullptr;
            std::_Exit(isRead || lastFailure() ? 0 : 1);
        };
        EXPECT_EXIT(read(), testing::ExitedWithCode(0), "") << room << " MiB";
    }
}

TEST_F(RealFiles, RawIsLinearAndOnACommonScale)
{
    std::vector<double> means;
    for (const char* const name : {"building_1.dng", "building_2.dng", "building_3.dng"}) {
        const auto file = testData() / "raw" / "building_ev" / name;
        EXPECT_TRUE(isRawImageFile(file));
        const auto image = openFile(file);
        ASSERT_TRUE(image) << name;
        EXPECT_EQ(image->size(), _Size<int>(1600, 900));
        EXPECT_TRUE(image->metadata()->isRaw);
        EXPECT_EQ(*pixelsOf(image)->colorProfile(), *ColorProfileType::linearMelissaRGB());
        ASSERT_TRUE(image->getAdditionalRawMetadata());
        EXPECT_EQ(image->getAdditionalRawMetadata()->getAutoDetectedTone(), 0.5f) << "whatever the frame shows";
        // A dark part that clips in none of the frames.
        means.push_back(meanLuminance(*pixelsOf(image), {700, 500, 150, 100}));
        // Pixels clipped in all channels are neutral and at least 1.
        if (std::string(name) == "building_3.dng") {
            int clipped = 0;
            const auto picture = pixelsOf(image);
            for (std::size_t i = 0; i < picture->pixelCount(); ++i) {
                const auto& p = picture->data()[i];
                if (std::min({p.r, p.g, p.b}) < 2.8f)
                    continue; // the largest multiplier is 2.83; below it, pixels at edges are partly clipped
                ++clipped;
                EXPECT_NEAR(p.r / p.g, 1.0f, 0.02f);
                EXPECT_NEAR(p.b / p.g, 1.0f, 0.02f);
            }
            EXPECT_GT(clipped, 1000);
        }
    }
    EXPECT_NEAR(std::log2(means[1] / means[0]), 2.0, 0.05);
    EXPECT_NEAR(std::log2(means[2] / means[1]), 2.0, 0.05);
}

TEST_F(RealFiles, RawOfAllKinds)
{
    for (const char* const name : {"canon_linear/canon_eos_6d.dng", "colorchart/colorchart.dng"}) {
        const auto file = testData() / "raw" / name;
        EXPECT_TRUE(isRawImageFile(file)) << name;
        const auto undeveloped = openFile(file);
        ASSERT_TRUE(undeveloped) << name;
        const auto flags = static_cast<ImageReaderOpenFlag>(static_cast<int>(ImageReaderOpenFlag::Bracket) &
                                                            ~static_cast<int>(ImageReaderOpenFlag::Undeveloped));
        const auto developed = openFile(file, flags);
        ASSERT_TRUE(developed) << name;
        EXPECT_FALSE(developed->metadata()->isRaw);
        EXPECT_TRUE(developed->metadata()->isDeveloped);
        EXPECT_EQ(developed->size(), undeveloped->size());
        const auto thumbnail = ImageReader::instance().getThumbnailBySide(file, 64, true, nullptr, {});
        ASSERT_TRUE(thumbnail) << name;
        EXPECT_EQ(thumbnail->width(), 64);
    }
    const auto metadata = ImageReader::readMetadata(testData() / "raw/canon_linear/canon_eos_6d.dng");
    EXPECT_TRUE(metadata->hasExposure());
    EXPECT_FLOAT_EQ(metadata->exposureOffset, metadata->baselineExposure);
    EXPECT_FLOAT_EQ(metadata->baselineExposure, 0.25f);
    const auto withoutExposure = ImageReader::readMetadata(testData() / "raw/colorchart/colorchart.dng");
    EXPECT_FALSE(withoutExposure->hasExposure());
    EXPECT_NEAR(withoutExposure->exposureOffset,
                openFile(testData() / "raw/colorchart/colorchart.dng")->metadata()->exposureOffset, 0.1);
}

TEST_F(RealFiles, CutOffRaw)
{
    const Bytes whole = readBytes(testData() / "raw" / "building_ev" / "building_2.dng");
    for (int part = 1; part < 10; ++part) {
        const auto length = static_cast<std::ptrdiff_t>(whole.size()) * part / 10;
        writeBytes(folder / "cut.dng", Bytes(whole.begin(), whole.begin() + length));
        const LogCapture log;
        EXPECT_FALSE(openFile(folder / "cut.dng")) << part;
        EXPECT_EQ(log.texts(LogMessageType::Warning).size(), 1u) << part;
    }
}

} // namespace
} // namespace orvo::test
