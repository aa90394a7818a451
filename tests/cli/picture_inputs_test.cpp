// Unusable inputs, for every command: one line, the right exit code, and no files left.
#include "picture_commands.hpp"

#include <gmock/gmock.h>

#include <filesystem>

namespace orvo::test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

class PictureInputs : public PictureCommandTest
{
protected:
    /// One bad file among good ones fails with one line that contains its name and `reason`.
    void expectFailure(const std::string& bad, const std::string& reason)
    {
        expectEnd(goodBeside(bad), {}, 1, bad, reason);
    }

    void expectEnd(const std::vector<std::string>& files, const std::vector<std::string>& options, int exitCode,
                   const std::string& file, const std::string& reason)
    {
        expectRefusal(argumentsOf(GetParam().output, files, options), folder.path(), exitCode, {file, reason});
    }
};

TEST_P(PictureInputs, MissingFile) { expectFailure("nowhere.jpg", "no such file"); }

TEST_P(PictureInputs, Folder)
{
    std::filesystem::create_directory(folder / "pictures");
    // A folder makes a batch of a command that takes one picture, and then the output is a folder too.
    const std::string output = GetParam().takesSeveral ? GetParam().output : ".";
    expectRefusal(argumentsOf(output, goodBeside("pictures"), {}), folder.path(), 1, {"pictures", "folder"});
}

TEST_P(PictureInputs, Pipe) { expectFailure("/dev/null", "device"); }

TEST_P(PictureInputs, EmptyFile)
{
    writeText(folder / "empty.jpg", "");
    expectFailure("empty.jpg", "empty");
}

TEST_P(PictureInputs, TextNamedJpeg)
{
    writeText(folder / "letter.jpg", "Dear photographer,\nthis is no picture.\n");
    expectFailure("letter.jpg", "picture");
}

TEST_P(PictureInputs, TruncatedJpeg)
{
    const std::string whole = fileText(folder / good[1]);
    writeText(folder / "cut.jpg", whole.substr(0, whole.size() * 6 / 10));
    expectFailure("cut.jpg", "");
}

TEST_P(PictureInputs, GiganticPngHeader)
{
    writeText(folder / "giant.png", pngHeader(60000, 60000));
    expectFailure("giant.png", "60000");
}

TEST_P(PictureInputs, GiganticJpegHeader)
{
    writeText(folder / "giant.jpg", jpegHeader(60000, 60000));
    expectFailure("giant.jpg", "60000");
}

TEST_P(PictureInputs, EmptyName) { expectEnd({""}, {}, 2, "", "empty"); }

TEST_P(PictureInputs, LineBreakInAName)
{
    expectEnd(goodBeside("two\nlines.jpg"), {}, 1, "two?lines.jpg", "no such file");
}

TEST_P(PictureInputs, UnknownOption) { expectEnd({good[0]}, {"--nonsense"}, 2, "--nonsense", "not expected"); }

TEST_P(PictureInputs, LogIsNeverWrittenIntoAPicture)
{
    const std::string before = fileText(folder / good[0]);
    expectEnd({good[0]}, {"--log", "./" + good[0]}, 2, good[0], "log");
    EXPECT_TRUE(fileText(folder / good[0]) == before);
}

TEST_P(PictureInputs, NoFiles)
{
    const Finished finished = runOrvo({GetParam().name, "-o", GetParam().output});
    EXPECT_EQ(finished.exitCode, 2);
    EXPECT_THAT(finished.errLines(),
                ElementsAre(HasSubstr("FILE"), HasSubstr("orvo " + std::string(GetParam().name) + " --help")));
    EXPECT_THAT(finished.out, IsEmpty());
}

TEST(LabelInputs, NoOutput)
{
    const Finished finished = runOrvo({"label", "a.jpg"});
    EXPECT_EQ(finished.exitCode, 2);
    EXPECT_THAT(finished.errLines(), ElementsAre(HasSubstr("--output"), HasSubstr("--help")));
}

/// Commands that take several files.
class SeveralInputs : public PictureInputs
{};

TEST_P(SeveralInputs, OnePathTwice)
{
    expectEnd(goodBeside(good[1]), {}, 2, good[1], "twice");
    expectEnd(goodBeside("./" + good[1]), {}, 2, good[1], "same file");
    std::filesystem::create_symlink(good[1], folder / "link.jpg");
    expectEnd(goodBeside("link.jpg"), {}, 2, "link.jpg", "same file");
}

INSTANTIATE_TEST_SUITE_P(Commands, SeveralInputs,
                         testing::ValuesIn(commandsThat([](const PictureCommand& c) { return c.takesSeveral; })),
                         nameOfCommand);
INSTANTIATE_TEST_SUITE_P(Commands, PictureInputs, testing::ValuesIn(kPictureCommands), nameOfCommand);
INSTANTIATE_TEST_SUITE_P(Hdr, SeveralInputs, testing::Values(kHdrCommand), nameOfCommand);
INSTANTIATE_TEST_SUITE_P(Hdr, PictureInputs, testing::Values(kHdrCommand), nameOfCommand);

} // namespace
} // namespace orvo::test
