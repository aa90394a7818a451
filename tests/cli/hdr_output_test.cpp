// Outputs that cannot be written, and the file at their path afterwards.
#include "brackets.hpp"
#include "program.hpp"
#include "small_disk.hpp"

#include <gmock/gmock.h>
#include <sys/resource.h>
#include <unistd.h>

#include <filesystem>

namespace orvo::test {
namespace {

namespace fs = std::filesystem;
using testing::AllOf;
using testing::HasSubstr;
using testing::IsEmpty;

class HdrOutput : public testing::Test
{
protected:
    Finished merge(const std::string& output, const std::vector<std::string>& more = {})
    {
        std::vector<std::string> arguments{"hdr", "--output=" + output};
        arguments.insert(arguments.end(), bracket.begin(), bracket.end());
        arguments.insert(arguments.end(), more.begin(), more.end());
        return runOrvo(arguments, {.workingFolder = folder.path()});
    }

    void expectEnd(const std::string& output, int exitCode, const std::string& reason,
                   const std::vector<std::string>& more = {})
    {
        const auto before = namesIn(folder.path());
        const Finished run = merge(output, more);
        EXPECT_EQ(run.exitCode, exitCode);
        EXPECT_EQ(run.errLines().size(), exitCode == 1 ? 1u : 2u) << run.err;
        EXPECT_THAT(run.err, AllOf(HasSubstr(output), HasSubstr(reason)));
        EXPECT_EQ(namesIn(folder.path()), before) << "something was left behind";
    }

    TemporaryFolder folder;
    std::vector<std::string> bracket = names(writeBracket(folder.path()));
};

TEST_F(HdrOutput, UnknownEnding) { expectEnd("out.xyz", 2, ".tif"); }

TEST_F(HdrOutput, NoEnding) { expectEnd("out", 2, ".tif"); }

TEST_F(HdrOutput, IsAnInput)
{
    const std::string before = fileText(folder / bracket[0]);
    expectEnd(bracket[0], 2, "input");
    fs::create_symlink(bracket[0], folder / "link.jpg");
    expectEnd("link.jpg", 2, bracket[0]);
    EXPECT_EQ(fileText(folder / bracket[0]), before);
}

TEST_F(HdrOutput, IsAFolder)
{
    fs::create_directory(folder / "out.jpg");
    expectEnd("out.jpg", 1, "folder");
}

TEST_F(HdrOutput, FolderIsMissing) { expectEnd("nowhere/out.jpg", 1, "there is no folder nowhere"); }

TEST_F(HdrOutput, BitsThatTheFormatCannotHold)
{
    expectEnd("out.jpg", 2, "16", {"--bits", "16"});
    expectEnd("out.png", 2, "32", {"--bits", "32"});
}

TEST_F(HdrOutput, QualityOfAFormatWithoutOne) { expectEnd("out.tif", 2, "JPEG", {"--quality", "80"}); }

TEST_F(HdrOutput, FolderCannotContainFiles) // not even from root
{
    if (!fs::exists("/proc/self"))
        GTEST_SKIP() << "there is no /proc, in which no file can be created";
    expectEnd("/proc/out.jpg", 1, "cannot create a file in the folder");
}

TEST_F(HdrOutput, FolderIsWriteProtected)
{
    if (::geteuid() == 0)
        GTEST_SKIP() << "root may write in any folder";
    fs::create_directory(folder / "locked");
    fs::permissions(folder / "locked", fs::perms::owner_read | fs::perms::owner_exec);
    expectEnd("locked/out.jpg", 1, "denied");
}

TEST_F(HdrOutput, DiskIsFull)
{
    const SmallDisk disk(folder / "disk");
    if (!disk.mounted)
        GTEST_SKIP() << "no right to mount a small disk";
    for (const char* const output : {"disk/out.tif", "disk/out.png", "disk/out.exr", "disk/out.jpg"}) {
        SCOPED_TRACE(output);
        writeText(folder / "disk/filler", std::string(60 * 1024, 'x')); // leaves space for a page
        expectEnd(output, 1, "space", {"--threads", "1"});
        EXPECT_THAT(namesIn(folder / "disk"), testing::ElementsAre("filler"));
    }
}

TEST_F(HdrOutput, FailureKeepsTheExistingFile)
{
    writeText(folder / "out.jpg", "yesterday's picture");
    const std::string whole = fileText(folder / bracket[1]);
    writeText(folder / bracket[1], whole.substr(0, whole.size() * 6 / 10));
    EXPECT_EQ(merge("out.jpg").exitCode, 1);
    EXPECT_EQ(fileText(folder / "out.jpg"), "yesterday's picture");
}

TEST_F(HdrOutput, ReplacesAFileAndKeepsItsPermissions)
{
    writeText(folder / "out.jpg", "yesterday's picture");
    const auto mine = fs::perms::owner_read | fs::perms::owner_write;
    fs::permissions(folder / "out.jpg", mine);
    EXPECT_EQ(merge("out.jpg").exitCode, 0);
    EXPECT_GT(fs::file_size(folder / "out.jpg"), 500u);
    EXPECT_EQ(fs::status(folder / "out.jpg").permissions(), mine);
}

TEST_F(HdrOutput, WritesThroughALink)
{
    fs::create_directory(folder / "archive");
    writeText(folder / "archive/real.jpg", "yesterday's picture");
    fs::create_symlink("archive/real.jpg", folder / "out.jpg");
    EXPECT_EQ(merge("out.jpg").exitCode, 0);
    EXPECT_TRUE(fs::is_symlink(folder / "out.jpg"));
    EXPECT_GT(fs::file_size(folder / "archive/real.jpg"), 500u);
    EXPECT_THAT(namesIn(folder / "archive"), testing::ElementsAre("real.jpg"));
}

TEST_F(HdrOutput, WritesThroughADanglingLink)
{
    fs::create_directory(folder / "archive");
    fs::create_symlink("archive/real.jpg", folder / "out.jpg");
    EXPECT_EQ(merge("out.jpg").exitCode, 0);
    EXPECT_TRUE(fs::is_symlink(folder / "out.jpg"));
    EXPECT_GT(fs::file_size(folder / "archive/real.jpg"), 500u);
}

TEST_F(HdrOutput, NameTooLongForItsFolder) { expectEnd(std::string(252, 'n') + ".jpg", 1, "256 bytes"); }

TEST_F(HdrOutput, FileThatReachesTheLimitOfItsSize)
{
    rlimit before{};
    ::getrlimit(RLIMIT_FSIZE, &before);
    rlimit small = before;
    small.rlim_cur = 4096; // of the program, which inherits it
    ::setrlimit(RLIMIT_FSIZE, &small);
    const auto names = namesIn(folder.path());
    const Finished run = merge("out.tif");
    ::setrlimit(RLIMIT_FSIZE, &before);
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_THAT(run.err, HasSubstr("out.tif"));
    EXPECT_EQ(namesIn(folder.path()), names);
}

TEST_F(HdrOutput, NameOfMaximumLength)
{
    const std::string name = std::string(251, 'n') + ".jpg"; // 255 bytes is the limit of a folder
    EXPECT_EQ(merge(name).exitCode, 0);
    EXPECT_TRUE(fs::exists(folder / name));
}

} // namespace
} // namespace orvo::test
