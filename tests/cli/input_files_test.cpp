// Files and folders as input, and lists of files.
#include "support/temporary_folder.hpp"

#include <jobs/input_files.hpp>
#include <jobs/list_file.hpp>
#include <orvo_extensions/failure.hpp>
#include <orvo_io/image_writer.hpp>
#include <scenes/dng.hpp>

#include <gmock/gmock.h>

#include <fstream>

namespace orvo::jobs {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

using Paths = std::vector<std::filesystem::path>;

void writePicture(const std::filesystem::path& path)
{
    ImageWriteSettings settings = writeSettingsForPath(path);
    settings.profile = ColorProfileType::sRGB();
    writeImage(path, _ImageData<PixelRGB<float>>({8, 8}, PixelRGB<float>{}, ColorProfileType::sRGB()), settings);
}

void writeBytes(const std::filesystem::path& path, const std::string& bytes)
{
    std::ofstream(path, std::ios::binary) << bytes;
}

class InputFilesTest : public testing::Test
{
protected:
    Paths write(const std::vector<std::string>& names)
    {
        Paths paths;
        for (const std::string& name : names) {
            paths.push_back(folder / name);
            writePicture(paths.back());
        }
        return paths;
    }
    template <typename Call>
    static std::string complaint(const Call& call)
    {
        try {
            call();
        } catch (const FailureError& error) {
            return error.what();
        }
        return "none";
    }

    test::TemporaryFolder folder;
};

MATCHER_P2(LeftOut, path, reason, "") { return arg.path == path && arg.reason == reason; }

TEST_F(InputFilesTest, AFolderIsItsPicturesAsPeopleCount)
{
    write({"IMG_10.jpg", "IMG_9.jpg", "img_11.jpg", "IMG_2.png"});
    const InputFiles input = inputFiles({folder.path()});
    EXPECT_THAT(input.files,
                ElementsAre(folder / "IMG_2.png", folder / "IMG_9.jpg", folder / "IMG_10.jpg", folder / "img_11.jpg"));
    EXPECT_THAT(input.leftOut, IsEmpty());
    EXPECT_THAT(leftOutNotes(input.leftOut), IsEmpty());
}

TEST_F(InputFilesTest, FilesStayAsGiven)
{
    const Paths files = write({"b.jpg", "a.jpg"});
    writeBytes(folder / "notes.txt", "text");
    const Paths given{files[0], folder / "notes.txt", files[1], folder / "missing.jpg"};
    EXPECT_EQ(inputFiles(given).files, given);
}

TEST_F(InputFilesTest, WhatIsNoPictureIsLeftOut)
{
    write({"a.jpg", ".hidden.jpg", "MVI_1.thm.jpg"});
    std::filesystem::rename(folder / "MVI_1.thm.jpg", folder / "MVI_1.THM");
    writeBytes(folder / "clip.mp4", std::string("\0\0\0\x18"
                                                "ftypisom",
                                                12) +
                                        std::string(64, 'x'));
    writeBytes(folder / "notes.txt", "text");
    std::filesystem::create_directory(folder / "inner");
    writePicture(folder / "inner/deep.jpg");
    const InputFiles input = inputFiles({folder.path()});
    EXPECT_THAT(input.files, ElementsAre(folder / "a.jpg"));
    EXPECT_THAT(input.leftOut, ElementsAre(LeftOut(folder / "clip.mp4", LeftOutReason::Video),
                                           LeftOut(folder / "MVI_1.THM", LeftOutReason::NoPicture),
                                           LeftOut(folder / "notes.txt", LeftOutReason::NoPicture),
                                           LeftOut(folder / "inner", LeftOutReason::Folder)));
    EXPECT_THAT(leftOutNotes(input.leftOut),
                ElementsAre(folder.path().string() +
                            ": left out clip.mp4 (a video), MVI_1.THM (no picture), notes.txt (no picture), inner (a "
                            "folder)"));
}

TEST_F(InputFilesTest, ResultsAreLeftOut)
{
    write({"IMG_1.jpg", "IMG_1-merged.jpg", "IMG_1-merged-large.jpg", "beach-panorama.jpg", "out.jpg"});
    const InputFiles input = inputFiles({folder.path()}, folder / "out.jpg");
    EXPECT_THAT(input.files, ElementsAre(folder / "beach-panorama.jpg", folder / "IMG_1.jpg"))
        << "without its input a picture with such a name is one of the user's";
    EXPECT_THAT(input.leftOut, testing::Each(testing::Field(&LeftOutFile::reason, LeftOutReason::Result)));
    EXPECT_EQ(input.leftOut.size(), 3u);
}

TEST_F(InputFilesTest, OfARawFileAndItsJpegTheRawFileCounts)
{
    write({"IMG_1.jpg", "IMG_2.jpg"});
    scenes::SceneSettings scene;
    scene.size = {64, 48};
    scenes::writeDng(folder / "img_1.DNG", scenes::RadianceScene(scene), {}, {}, {});
    const InputFiles input = inputFiles({folder.path()});
    EXPECT_THAT(input.files, ElementsAre(folder / "img_1.DNG", folder / "IMG_2.jpg"));
    EXPECT_THAT(input.leftOut, ElementsAre(LeftOut(folder / "IMG_1.jpg", LeftOutReason::Double)));
}

TEST_F(InputFilesTest, AFolderWithoutPicturesIsAnError)
{
    EXPECT_EQ(complaint([&] { (void)inputFiles({folder.path()}); }),
              folder.path().string() + ": there are no pictures in this folder");
    writeBytes(folder / "notes.txt", "text");
    std::filesystem::create_directory(folder / "100CANON");
    EXPECT_EQ(complaint([&] { (void)inputFiles({folder.path()}); }),
              folder.path().string() +
                  ": there are no pictures in this folder, only 1 other file; 1 folder in it, such "
                  "as 100CANON, must be given by name");
}

TEST_F(InputFilesTest, ResultsAmongFilesAreFoundByTheirNames)
{
    const Paths files{"a/IMG_1-merged.jpg", "a/img_1.JPG", "a/IMG_2.jpg", "b/IMG_2-merged.jpg", "a/IMG_2-mine.jpg"};
    EXPECT_THAT(resultsAmong(files), ElementsAre("a/IMG_1-merged.jpg"));
    EXPECT_EQ(inputFiles(files).files, files) << "they are used all the same";
}

TEST_F(InputFilesTest, GivenFilesOfACardAreSiftedToo)
{
    const Paths files = write({"IMG_1.jpg", "IMG_1-merged.jpg"});
    writeBytes(folder / "notes.txt", "text");
    const InputFiles card = cardFiles({files[0], files[1], folder / "notes.txt", folder / "missing.jpg"});
    EXPECT_THAT(card.files, ElementsAre(files[0], folder / "missing.jpg"));
    EXPECT_THAT(card.leftOut, ElementsAre(LeftOut(files[1], LeftOutReason::Result),
                                          LeftOut(folder / "notes.txt", LeftOutReason::NoPicture)));
}

TEST(OrderedByName, ComparesNumbersByValue)
{
    EXPECT_TRUE(orderedByName("a2", "a10"));
    EXPECT_TRUE(orderedByName("a002", "a10"));
    EXPECT_TRUE(orderedByName("A1", "b1"));
    EXPECT_TRUE(orderedByName("a", "a1"));
    EXPECT_FALSE(orderedByName("a1", "a1"));
    EXPECT_TRUE(orderedByName("a01", "a1") != orderedByName("a1", "a01")) << "an order, whatever the zeros";
    EXPECT_TRUE(orderedByName("9999999999999999999998", "9999999999999999999999")) << "beyond any integer";
}

class ListFile : public InputFilesTest
{
protected:
    std::vector<ListLine> read(const std::string& text)
    {
        writeBytes(folder / "list", text);
        return readListFile(folder / "list");
    }
};

MATCHER_P2(Line, number, files, "") { return arg.number == number && arg.files == files; }

TEST_F(ListFile, IsQuotedAsInAShell)
{
    EXPECT_THAT(read("a.jpg b.jpg\n"
                     "\n"
                     "# a comment\n"
                     "'with blank.jpg' \"with \\\"quotes\\\".jpg\" back\\ slash.jpg # the rest\r\n"
                     "  it''s.jpg a\"b'c\".jpg 'a\\b'\tx#y.jpg"),
                ElementsAre(Line(1, Paths{"a.jpg", "b.jpg"}),
                            Line(4, Paths{"with blank.jpg", "with \"quotes\".jpg", "back slash.jpg"}),
                            Line(5, Paths{"its.jpg", "ab'c.jpg", "a\\b", "x#y.jpg"})));
    EXPECT_THAT(read("# nothing\n"), IsEmpty());
    EXPECT_THAT(read("*.jpg $HOME"), ElementsAre(Line(1, Paths{"*.jpg", "$HOME"}))) << "nothing is expanded";
}

TEST_F(ListFile, NamesTheLineOfAMistake)
{
    EXPECT_THAT(complaint([&] { (void)read("a.jpg\n'b.jpg"); }), HasSubstr("list: line 2 ends"));
    EXPECT_THAT(complaint([&] { (void)read("a.jpg \\"); }), HasSubstr("line 1 ends with a backslash"));
    EXPECT_THAT(complaint([&] { (void)read("a.jpg ''"); }), HasSubstr("line 1 has an empty file name"));
    EXPECT_THAT(complaint([&] { (void)read(std::string("a\0b", 3)); }), HasSubstr("no text"));
    EXPECT_THAT(complaint([&] { (void)readListFile(folder / "none"); }), HasSubstr("there is no such file"));
    EXPECT_THAT(complaint([&] { (void)read(""); }), HasSubstr("a list was expected"));
}

} // namespace
} // namespace orvo::jobs
