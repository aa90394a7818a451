#include "support/files.hpp"
#include "support/temporary_folder.hpp"

#include <orvo_extensions/focus_stack.hpp>
#include <orvo_image_processing/debug_drawer.hpp>
#include <orvo_io/image_reader.hpp>
#include <orvo_logger/log_capture.hpp>
#include <scenes/bracket_files.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>

using namespace orvo;
using namespace orvo::test;
using testing::HasSubstr;
using testing::SizeIs;

namespace {

class ExportAligned : public testing::Test
{
protected:
    TemporaryFolder folder;

    std::filesystem::path file(const std::string& name, const Picture& picture)
    {
        return writtenTo(folder / (name + ".tif"), picture);
    }
};

// The frame as opened, with a line of text on it.
std::shared_ptr<Picture> labelled(const std::filesystem::path& path, const std::string& text)
{
    auto picture = ImageReader::instance()
                       .open({path, {}}, {}, ImageReaderOpenFlag::Bracket, nullptr, std::string(), -1)
                       ->imageData({}, {}, true);
    writeOnFrame(picture, text);
    return picture;
}

std::shared_ptr<const Picture> pixelsOf(const Image& image) { return image.developedOriginalImageData({}); }

} // namespace

TEST_F(ExportAligned, TheLabelsCountFromOne)
{
    const std::vector<std::filesystem::path> paths = {file("a", *plain(400, 100, 0.2f)),
                                                      file("b", *plain(400, 100, 0.7f))};
    const auto images = exportAligned(paths, {});
    ASSERT_THAT(images, SizeIs(2));
    EXPECT_TRUE(sameBytes(*pixelsOf(*images[0]), *labelled(paths[0], "align result, image 1 out of 2")));
    EXPECT_TRUE(sameBytes(*pixelsOf(*images[1]), *labelled(paths[1], "align result, image 2 out of 2")));
    EXPECT_FALSE(sameBytes(*pixelsOf(*images[0]), *labelled(paths[0], "align result, image 2 out of 2")))
        << "the numbers are distinguishable";
}

TEST_F(ExportAligned, KeepsEachFramesOwnSizeAndMetadata)
{
    const auto images = exportAligned({file("a", *plain(300, 100, 0.2f)), file("b", *plain(200, 150, 0.7f))}, {});
    ASSERT_THAT(images, SizeIs(2));
    EXPECT_EQ(images[0]->size(), _Size<int>(300, 100));
    EXPECT_EQ(images[1]->size(), _Size<int>(200, 150));
    EXPECT_EQ(images[1]->metadata()->size, _Size<int>(200, 150));
}

TEST_F(ExportAligned, NothingIsAlignedOrDeghosted)
{
    const auto moved = textured(320, 240, 5, 4);
    BracketSettings::FocusStacking settings;
    settings.ghostReduction.enabled = true;
    const auto images = exportAligned({file("a", *textured(320, 240)), file("b", *moved)}, settings);
    ASSERT_THAT(images, SizeIs(2));
    const auto pixels = pixelsOf(*images[1]);
    for (int x = 0; x < 320; ++x) // the lower part is free of text
        EXPECT_NEAR(pixels->row(230)[x].g, moved->row(230)[x].g, 1e-3f);
}

TEST_F(ExportAligned, KeepsTheOrderOfThePaths)
{
    const auto images = exportAligned({file("bright", *plain(100, 80, 0.9f)), file("dark", *plain(100, 80, 0.1f))}, {});
    ASSERT_THAT(images, SizeIs(2));
    EXPECT_NEAR(pixelsOf(*images[0])->row(79)[99].r, 0.9f, 1e-3f);
    EXPECT_NEAR(pixelsOf(*images[1])->row(79)[99].r, 0.1f, 1e-3f);
}

TEST_F(ExportAligned, AnEmptyListGivesAnEmptyResult) { EXPECT_THAT(exportAligned({}, {}), SizeIs(0)); }

TEST_F(ExportAligned, AFileThatCannotBeOpenedIsAnExceptionForTheCaller)
{
    const auto broken = folder / "broken.tif";
    std::ofstream(broken) << "no picture";
    const LogCapture capture;
    try {
        (void)exportAligned({file("a", *plain(40, 30, 0.5f)), broken}, {});
        FAIL() << "expected an exception";
    } catch (const std::runtime_error& error) {
        EXPECT_THAT(error.what(), HasSubstr(broken.string()));
    }
    EXPECT_THAT(capture.texts(LogMessageType::Warning),
                testing::Contains("Can't open image at path: " + broken.string()));
}

TEST_F(ExportAligned, RawFilesThatCannotBeOpenedDropOutAndAreNotCounted)
{
    scenes::BracketRecipe recipe;
    recipe.scene.size = {192, 128};
    recipe.evs = {-1.0, 0.0, 1.0};
    const auto paths =
        scenes::writeBracket(scenes::Bracket(recipe), folder.path(), {.format = scenes::BracketFileFormat::Dng});
    std::filesystem::resize_file(paths[1], std::filesystem::file_size(paths[1]) / 2);
    const auto images = exportAligned(paths, {});
    ASSERT_THAT(images, SizeIs(2));
    EXPECT_TRUE(sameBytes(*pixelsOf(*images[1]), *labelled(paths[2], "align result, image 2 out of 2")));
}
