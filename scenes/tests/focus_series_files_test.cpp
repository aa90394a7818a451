#include "support/temporary_folder.hpp"

#include <orvo_io/image_reader.hpp>
#include <scenes/focus_series_files.hpp>
#include <scenes/metrics.hpp>

#include <gmock/gmock.h>

namespace orvo::scenes {
namespace {

class FocusSeriesFiles : public testing::Test
{
protected:
    static FocusSeries series()
    {
        FocusSeriesSettings settings;
        settings.size = {240, 160};
        settings.frames = 3;
        return FocusSeries(settings);
    }
    static std::shared_ptr<Picture> read(const std::filesystem::path& path)
    {
        ImageReadOptions options;
        options.profile = ColorProfileType::melissaRGB();
        const auto image =
            ImageReader::instance().open({path, {}}, options, ImageReaderOpenFlag::Bracket, nullptr, {}, -1);
        return image ? image->imageData({}, {}, true) : nullptr;
    }

    test::TemporaryFolder folder;
};

TEST_F(FocusSeriesFiles, ExifHasOneExposureAndTheFocus)
{
    const FocusSeries shown = series();
    for (const auto format : {FocusFileFormat::Jpeg, FocusFileFormat::Tiff16}) {
        const auto paths = writeFocusSeries(shown, folder, {.format = format});
        ASSERT_EQ(paths.size(), 3u);
        for (int i = 0; i < 3; ++i) {
            const auto& path = paths[static_cast<std::size_t>(i)];
            const auto metadata = ImageReader::readMetadata(path);
            ASSERT_TRUE(metadata) << path;
            EXPECT_NEAR(metadata->shutterSeconds, 1.0 / 60.0, 1e-6) << path;
            EXPECT_FLOAT_EQ(metadata->aperture, 5.6f) << path;
            EXPECT_FLOAT_EQ(metadata->isoSpeed, 100.0f) << path;
            EXPECT_FLOAT_EQ(metadata->focalLength, 35.0f) << path;
            EXPECT_NEAR(metadata->subjectDistance, shown.focusDistance(i), 1e-5) << path;
            EXPECT_EQ(metadata->size, shown.size()) << path;
            EXPECT_EQ(metadata->fileProfile->hash(), ColorProfileType::sRGB()->hash()) << path;
        }
    }
}

TEST_F(FocusSeriesFiles, StrippedFilesHaveNoExif)
{
    const auto path = writeFocusFrame(series(), 1, folder, {.exif = false, .prefix = "bare"});
    EXPECT_EQ(path, folder / "bare_1.jpg");
    const auto metadata = ImageReader::readMetadata(path);
    ASSERT_TRUE(metadata);
    EXPECT_FALSE(metadata->hasExposure());
    EXPECT_EQ(metadata->subjectDistance, 0.0f);
}

TEST_F(FocusSeriesFiles, ContainTheFrames)
{
    const FocusSeries shown = series();
    const auto frame = shown.frame(2);
    const auto tiff = read(writeFocusFrame(shown, 2, folder, {.format = FocusFileFormat::Tiff16}));
    ASSERT_TRUE(tiff);
    EXPECT_GT(psnr(*tiff, *frame), 90.0);
    const auto jpeg = read(writeFocusFrame(shown, 2, folder, {.jpegQuality = 95}));
    ASSERT_TRUE(jpeg);
    EXPECT_GT(psnr(*jpeg, *frame), 38.0);
    EXPECT_THROW((void)writeFocusFrame(shown, 3, folder, {}), std::out_of_range);
    EXPECT_THROW((void)writeFocusFrame(shown, 0, folder / "missing", {}), std::runtime_error);
}

} // namespace
} // namespace orvo::scenes
