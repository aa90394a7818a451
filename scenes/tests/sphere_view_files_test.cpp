#include "support/temporary_folder.hpp"

#include <orvo_io/image_reader.hpp>
#include <scenes/sphere_view_files.hpp>

#include <gmock/gmock.h>

namespace orvo::scenes {
namespace {

class SphereViewFiles : public testing::Test
{
protected:
    SphereViewFiles()
    {
        view.size = {120, 80};
        view.focal = 100.0;
        view.ev = 1.0;
    }

    const SphereScene scene;
    SphereView view;
    test::TemporaryFolder folder;
};

TEST_F(SphereViewFiles, ExifHasExposureAndFocalLength)
{
    for (const char* const name : {"a.jpg", "a.tif"}) {
        writeSphereView(scene, view, folder / name);
        const auto metadata = ImageReader::readMetadata(folder / name);
        ASSERT_TRUE(metadata) << name;
        EXPECT_NEAR(metadata->shutterSeconds, 2.0 / 60.0, 1e-6) << name;
        EXPECT_FLOAT_EQ(metadata->focalLength, 30.0f) << name;
        EXPECT_EQ(metadata->size, view.size) << name;
        EXPECT_EQ(metadata->fileProfile->hash(), ColorProfileType::sRGB()->hash()) << name;
    }
}

TEST_F(SphereViewFiles, StrippedFileHasNoExif)
{
    writeSphereView(scene, view, folder / "a.jpg", {.exif = false});
    const auto metadata = ImageReader::readMetadata(folder / "a.jpg");
    ASSERT_TRUE(metadata);
    EXPECT_FALSE(metadata->hasExposure());
}

TEST_F(SphereViewFiles, PictureSurvivesTheFile)
{
    writeSphereView(scene, view, folder / "a.tif", {.noiseSeed = 3});
    ImageReadOptions options;
    options.profile = ColorProfileType::sRGB();
    const auto image =
        ImageReader::instance().open({folder / "a.tif", {}}, options, ImageReaderOpenFlag::Bracket, nullptr, {}, -1);
    ASSERT_TRUE(image);
    const auto back = image->imageData({}, {}, true);
    const auto truth = scene.see(view, 3);
    constexpr float kStep = 1.0f / 65535.0f;
    for (int y = 0; y < view.size.height; ++y)
        for (int x = 0; x < view.size.width; ++x)
            ASSERT_NEAR(back->row(y)[x].g, truth->row(y)[x].g, 4 * kStep) << x << ' ' << y;
}

TEST_F(SphereViewFiles, UnknownExtension)
{
    EXPECT_THROW(writeSphereView(scene, view, folder / "a.xyz"), std::invalid_argument);
}

} // namespace
} // namespace orvo::scenes
