// Inputs that cannot be merged: one line, the right exit code, and nothing left behind.
#include "brackets.hpp"
#include "program.hpp"

#include <gmock/gmock.h>

#include <filesystem>

namespace orvo::test {
namespace {

using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

class HdrInputs : public testing::Test
{
protected:
    /// Merges three good frames and `bad`, which fails with one line that holds `file` and `reason`.
    void expectFailure(const std::string& bad, const std::string& reason) { expectEnd({bad}, 1, bad, reason); }

    void expectEnd(const std::vector<std::string>& more, int exitCode, const std::string& file,
                   const std::string& reason)
    {
        const auto before = namesIn(folder.path());
        std::vector<std::string> arguments{"hdr", "-o", "out.jpg"};
        arguments.insert(arguments.end(), bracket.begin(), bracket.end());
        arguments.insert(arguments.end(), more.begin(), more.end());
        const Finished run = runOrvo(arguments, {.workingFolder = folder.path()});
        EXPECT_EQ(run.exitCode, exitCode);
        const auto lines = run.errLines();
        ASSERT_FALSE(lines.empty());
        EXPECT_EQ(lines.size(), exitCode == 1 ? 1u : 2u) << run.err;
        EXPECT_THAT(lines[0], AllOf(HasSubstr(file), HasSubstr(reason)));
        EXPECT_EQ(namesIn(folder.path()), before) << "something was left behind";
        EXPECT_LT(run.peakMemoryKiB, kFewPicturesKiB);
    }

    // Small frames and the libraries take well below this; a picture of 60000 x 60000 would take 43 GB.
    static constexpr long kFewPicturesKiB = 600'000;
    TemporaryFolder folder;
    std::vector<std::string> bracket = names(writeBracket(folder.path()));
};

TEST_F(HdrInputs, MissingFile) { expectFailure("nowhere.jpg", "no such file"); }

TEST_F(HdrInputs, Folder)
{
    std::filesystem::create_directory(folder / "pictures");
    expectFailure("pictures", "folder");
}

TEST_F(HdrInputs, Pipe) { expectFailure("/dev/null", "device"); }

TEST_F(HdrInputs, EmptyFile)
{
    writeText(folder / "empty.jpg", "");
    expectFailure("empty.jpg", "empty");
}

TEST_F(HdrInputs, TextNamedJpeg)
{
    writeText(folder / "letter.jpg", "Dear photographer,\nthis is no picture.\n");
    expectFailure("letter.jpg", "");
}

TEST_F(HdrInputs, TruncatedJpeg)
{
    const std::string whole = fileText(folder / bracket[1]);
    writeText(folder / "cut.jpg", whole.substr(0, whole.size() * 6 / 10));
    expectFailure("cut.jpg", "");
}

TEST_F(HdrInputs, TruncatedJpegAlone)
{
    const std::string whole = fileText(folder / bracket[1]);
    writeText(folder / "cut.jpg", whole.substr(0, whole.size() * 6 / 10));
    bracket.clear();
    expectFailure("cut.jpg", "");
}

TEST_F(HdrInputs, GiganticPngHeader)
{
    writeText(folder / "giant.png", pngHeader(60000, 60000));
    expectFailure("giant.png", "60000");
}

TEST_F(HdrInputs, GiganticJpegHeader)
{
    writeText(folder / "giant.jpg", jpegHeader(60000, 60000));
    expectFailure("giant.jpg", "60000");
}

TEST_F(HdrInputs, AnotherSize)
{
    writeFrame(folder / "other.jpg", {.width = 150, .height = 100});
    expectFailure("other.jpg", "150 x 100");
    expectFailure("other.jpg", bracket[0]); // both files are named
}

TEST_F(HdrInputs, OnePathTwice) { expectEnd({bracket[1]}, 2, bracket[1], "twice"); }

TEST_F(HdrInputs, OneFileThroughAnotherSpelling) { expectEnd({"./" + bracket[1]}, 2, bracket[1], "same file"); }

TEST_F(HdrInputs, OneFileThroughALink)
{
    std::filesystem::create_symlink(bracket[1], folder / "link.jpg");
    expectEnd({"link.jpg"}, 2, "link.jpg", "same file");
}

TEST_F(HdrInputs, GhostReferenceBeyondTheFrames)
{
    expectEnd({"--deghost", "1", "--ghost-reference", "4"}, 2, "4", "only 3 were given");
}

TEST_F(HdrInputs, GhostReferenceWithoutRemoval) { expectEnd({"--ghost-reference", "1"}, 2, "ghost", "no removal"); }

TEST_F(HdrInputs, ValueOutOfRange) { expectEnd({"--details", "1.5"}, 2, "--details", "expected 0 to 1, found 1.5"); }

TEST_F(HdrInputs, UnknownOption) { expectEnd({"--brackets"}, 2, "--brackets", "not expected"); }

TEST_F(HdrInputs, EmptyName) { expectEnd({""}, 2, "", "empty"); }

TEST_F(HdrInputs, LineBreakInAName) { expectEnd({"two\nlines.jpg"}, 1, "two?lines.jpg", "no such file"); }

TEST(HdrUsage, NoFiles)
{
    const Finished run = runOrvo({"hdr", "-o", "out.jpg"});
    EXPECT_EQ(run.exitCode, 2);
    EXPECT_THAT(run.errLines(), ElementsAre(HasSubstr("FILES"), HasSubstr("orvo hdr --help")));
    EXPECT_THAT(run.out, IsEmpty());
}

TEST(HdrUsage, NoOutput)
{
    const Finished run = runOrvo({"hdr", "a.jpg"});
    EXPECT_EQ(run.exitCode, 2);
    EXPECT_THAT(run.errLines(), ElementsAre(HasSubstr("--output"), HasSubstr("orvo hdr --help")));
}

} // namespace
} // namespace orvo::test
