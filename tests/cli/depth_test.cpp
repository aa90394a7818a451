// Bits per sample of the result without --bits.
#include "brackets.hpp"
#include "program.hpp"

#include <orvo_io/image_reader.hpp>
#include <orvo_io/image_writer.hpp>
#include <orvo_io/picture_file.hpp>

#include <gtest/gtest.h>

#include <filesystem>

namespace orvo::test {
namespace {

namespace fs = std::filesystem;

class Depth : public testing::Test
{
protected:
    /// Runs a command in the folder and returns the bits of its result.
    [[nodiscard]] int bitsAfter(std::vector<std::string> arguments, const std::string& output = "out.png") const
    {
        fs::remove(folder / output);
        arguments.insert(arguments.end(), {"-o", output});
        const Finished run = runOrvo(arguments, {.workingFolder = folder.path()});
        EXPECT_EQ(run.exitCode, 0) << run.err;
        return sampleBitsOf(folder / output);
    }

    [[nodiscard]] static std::vector<std::string> with(std::vector<std::string> command,
                                                       const std::vector<std::string>& files)
    {
        command.insert(command.end(), files.begin(), files.end());
        return command;
    }

    /// The same picture in a file of 16 bits.
    [[nodiscard]] std::string deepened(const std::string& name) const
    {
        const auto image =
            ImageReader::instance().open({folder / name, {}}, {}, ImageReaderOpenFlag::Bracket, {}, {}, -1);
        ImageWriteSettings settings = writeSettingsForPath("deep.tif");
        settings.metadata = image->metadata();
        writeImage(folder / (name + ".tif"), *image->developedOriginalImageData({}), settings);
        EXPECT_EQ(sampleBitsOf(folder / (name + ".tif")), 16);
        return name + ".tif";
    }

    TemporaryFolder folder;
};

TEST_F(Depth, FollowsOnePicture)
{
    writeFrame(folder / "in.jpg", {.width = 120, .height = 80});
    const std::string deep = deepened("in.jpg");
    for (const std::string command : {"upscale", "hdr", "restore", "stack"}) {
        SCOPED_TRACE(command);
        EXPECT_EQ(bitsAfter({command, "in.jpg"}), 8);
        EXPECT_EQ(bitsAfter({command, "in.jpg"}, "out.tif"), 8);
        EXPECT_EQ(bitsAfter({command, deep}), 16);
    }
    EXPECT_EQ(bitsAfter({"upscale", "in.jpg", "--bits", "16"}), 16);
    EXPECT_EQ(bitsAfter({"upscale", deep, "--bits", "8"}), 8);
    EXPECT_EQ(bitsAfter({"upscale", "in.jpg"}, "out.exr"), 16) << "of EXR, which has no 8";
}

TEST_F(Depth, FollowsTheDeepestOfSeveralPictures)
{
    auto series = names(writeFocusSeries(folder.path(), {.width = 120, .height = 80, .frames = 3}));
    EXPECT_EQ(bitsAfter(with({"stack", "--no-align"}, series)), 8);
    series[1] = deepened(series[1]);
    EXPECT_EQ(bitsAfter(with({"stack", "--no-align"}, series)), 16);

    auto views = names(writeViews(folder.path(), {.views = 2}));
    EXPECT_EQ(bitsAfter(with({"pano", "--max-size", "300"}, views)), 8);
    EXPECT_EQ(bitsAfter(with({"pano", "--max-size", "300", "--crop", "auto"}, views)), 8);
    views[0] = deepened(views[0]);
    EXPECT_EQ(bitsAfter(with({"pano", "--max-size", "300"}, views)), 16);
}

TEST_F(Depth, MergedExposuresHaveMoreTonesThanTheirFrames)
{
    EXPECT_EQ(bitsAfter(with({"hdr"}, names(writeBracket(folder.path())))), 16);
}

TEST_F(Depth, TheMaskOfAFillDoesNotCount)
{
    writeFrame(folder / "in.jpg", {.width = 64, .height = 48});
    _ImageData<PixelRGB<float>> mask({64, 48}, ColorProfileType::sRGB());
    for (int y = 0; y < 48; ++y)
        std::fill_n(mask.row(y), 64, PixelRGB<float>{});
    for (int y = 20; y < 26; ++y)
        std::fill_n(mask.row(y) + 30, 6, PixelRGB<float>{1.0f, 1.0f, 1.0f});
    writeImage(folder / "mask.png", mask, writeSettingsForPath("mask.png"));
    ASSERT_EQ(sampleBitsOf(folder / "mask.png"), 16);
    EXPECT_EQ(bitsAfter({"fill", "in.jpg", "--mask", "mask.png"}), 8);
}

} // namespace
} // namespace orvo::test
