#include "support/temporary_folder.hpp"

#include <orvo_io/image_reader.hpp>
#include <scenes/bracket_files.hpp>
#include <scenes/metrics.hpp>

#include <gmock/gmock.h>

#include <cmath>

namespace orvo::scenes {
namespace {

class BracketFiles : public testing::Test
{
protected:
    static Bracket bracketOf(std::vector<double> evs)
    {
        BracketRecipe recipe;
        recipe.scene.size = {360, 240};
        recipe.evs = std::move(evs);
        return Bracket(recipe);
    }
    static std::shared_ptr<Picture> read(const std::filesystem::path& path,
                                         const std::shared_ptr<ColorProfile>& profile)
    {
        ImageReadOptions options;
        options.profile = profile;
        const auto image =
            ImageReader::instance().open({path, {}}, options, ImageReaderOpenFlag::Bracket, nullptr, {}, -1);
        return image ? image->imageData({}, {}, true) : nullptr;
    }

    test::TemporaryFolder folder;
};

constexpr double kExifRounding = 2e-4; // EV; times are fractions of terms up to a million

TEST_F(BracketFiles, ExifMatchesTheTruth)
{
    const Bracket bracket = bracketOf({-4.0, 0.0, 1.7});
    for (const auto format : {BracketFileFormat::Jpeg, BracketFileFormat::Tiff16, BracketFileFormat::Dng}) {
        const auto paths = writeBracket(bracket, folder, {.format = format});
        ASSERT_EQ(paths.size(), 3u);
        for (std::size_t i = 0; i < paths.size(); ++i) {
            const auto metadata = ImageReader::readMetadata(paths[i]);
            ASSERT_TRUE(metadata) << paths[i];
            ASSERT_TRUE(metadata->hasExposure()) << paths[i];
            const double ev = exposureValue({metadata->shutterSeconds, metadata->aperture, metadata->isoSpeed});
            const double truth = exposureValue(bracket.shots()[i].exposure);
            EXPECT_NEAR(ev, truth, kExifRounding) << paths[i];
            EXPECT_NEAR(metadata->exposureBias, truth, 1e-4) << paths[i];
            EXPECT_EQ(metadata->cameraMake, "Orvo");
            EXPECT_EQ(metadata->cameraModel, "Scene Camera");
            EXPECT_FLOAT_EQ(metadata->focalLength, 24.0f);
            EXPECT_EQ(metadata->isRaw, format == BracketFileFormat::Dng);
            EXPECT_EQ(metadata->size, (_Size<int>(360, 240)));
        }
    }
}

TEST_F(BracketFiles, StrippedFilesHaveNoExif)
{
    const Bracket bracket = bracketOf({0.0});
    for (const auto format : {BracketFileFormat::Jpeg, BracketFileFormat::Tiff16, BracketFileFormat::Dng}) {
        const auto path = writeFrame(bracket, 0, folder, {.format = format, .exif = false});
        const auto metadata = ImageReader::readMetadata(path);
        ASSERT_TRUE(metadata) << path;
        EXPECT_FALSE(metadata->hasExposure()) << path;
    }
}

TEST_F(BracketFiles, PicturesSurviveTheFile)
{
    const Bracket bracket = bracketOf({1.0});
    const auto truth = bracket.frame(0).picture;
    const auto tiff =
        read(writeFrame(bracket, 0, folder, {.format = BracketFileFormat::Tiff16}), ColorProfileType::sRGB());
    ASSERT_TRUE(tiff);
    EXPECT_GT(psnr(*tiff, *truth), 90.0);
    const auto jpeg = read(writeFrame(bracket, 0, folder, {.jpegQuality = 97}), ColorProfileType::sRGB());
    ASSERT_TRUE(jpeg);
    EXPECT_GT(psnr(*jpeg, *truth), 34.0);
}

// Mean linear light over a neutral part of the colour chart, and over everything far from clipping.
PixelRGB<double> meanOf(const Picture& picture, _Rect<int> part)
{
    PixelRGB<double> sum;
    for (int y = part.y; y < part.y + part.height; ++y)
        for (int x = part.x; x < part.x + part.width; ++x) {
            const auto& p = picture.row(y)[x];
            sum = {sum.r + p.r, sum.g + p.g, sum.b + p.b};
        }
    const double count = static_cast<double>(part.width) * part.height;
    return {sum.r / count, sum.g / count, sum.b / count};
}

// The second gray patch of the chart, well inside, at 360x240.
constexpr _Rect<int> kGrayPatch{133, 160, 3, 3};

TEST_F(BracketFiles, RawFilesDecodeToTheScene)
{
    const Bracket bracket = bracketOf({-1.0, 0.0, 1.0});
    const auto paths = writeBracket(bracket, folder, {.format = BracketFileFormat::Dng});
    std::vector<PixelRGB<double>> grays;
    for (const auto& path : paths) {
        EXPECT_TRUE(isRawImageFile(path));
        const auto picture = read(path, nullptr);
        ASSERT_TRUE(picture) << path;
        ASSERT_EQ(picture->size(), (_Size<int>(360, 240)));
        grays.push_back(meanOf(*picture, kGrayPatch));
        const auto& gray = grays.back();
        EXPECT_NEAR(gray.r / gray.g, 1.0, 0.02) << path; // the patch is neutral, and must stay neutral
        EXPECT_NEAR(gray.b / gray.g, 1.0, 0.02) << path;
    }
    EXPECT_NEAR(grays[1].g / grays[0].g, 2.0, 0.04);
    EXPECT_NEAR(grays[2].g / grays[1].g, 2.0, 0.04);
}

TEST_F(BracketFiles, MissingFolderIsAnError)
{
    const Bracket bracket = bracketOf({0.0});
    for (const auto format : {BracketFileFormat::Jpeg, BracketFileFormat::Dng})
        EXPECT_THROW(writeFrame(bracket, 0, folder / "missing", {.format = format}), std::runtime_error);
}

} // namespace
} // namespace orvo::scenes
