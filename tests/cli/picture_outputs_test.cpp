// Outputs that cannot be written, and the file at their path afterwards, for every command.
#include "picture_commands.hpp"
#include "small_disk.hpp"

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>
#include <unistd.h>

#include <filesystem>

namespace orvo::test {
namespace {

namespace fs = std::filesystem;
using testing::AllOf;
using testing::HasSubstr;
using testing::IsEmpty;

class PictureOutputs : public PictureCommandTest
{
protected:
    [[nodiscard]] std::vector<std::string> files() const
    {
        return GetParam().takesSeveral ? good : std::vector<std::string>{good[0]};
    }

    void expectEnd(const std::string& output, int exitCode, const std::string& reason,
                   const std::vector<std::string>& options = {})
    {
        const auto before = namesIn(folder.path());
        const Finished finished = run(output, files(), options);
        EXPECT_EQ(finished.exitCode, exitCode);
        EXPECT_EQ(finished.errLines().size(), exitCode == 1 ? 1u : 2u) << finished.err;
        EXPECT_THAT(finished.err, AllOf(HasSubstr(output), HasSubstr(reason)));
        EXPECT_EQ(namesIn(folder.path()), before) << "something was left behind";
    }
};

TEST_P(PictureOutputs, WouldReplaceAnInput)
{
    const std::string before = fileText(folder / good[0]);
    expectEnd(GetParam().intoFolder ? "." : good[0], 2, "input");
    EXPECT_TRUE(fileText(folder / good[0]) == before);
}

TEST_P(PictureOutputs, IsAFileInsteadOfAFolderOrTheReverse)
{
    fs::create_directory(folder / "folder.jpg");
    writeText(folder / "file", "no folder");
    expectEnd(GetParam().intoFolder ? "file" : "folder.jpg", 1, "folder");
}

TEST_P(PictureOutputs, BitsThatTheFormatCannotHold) { expectEnd(GetParam().output, 2, "16", {"--bits", "16"}); }

TEST_P(PictureOutputs, FolderCannotContainFiles) // not even from root
{
    if (!fs::exists("/proc/self"))
        GTEST_SKIP() << "there is no /proc, in which no file can be created";
    expectEnd(GetParam().intoFolder ? "/proc/out" : "/proc/out.jpg", 1, "/proc");
}

TEST_P(PictureOutputs, FolderIsWriteProtected)
{
    if (::geteuid() == 0)
        GTEST_SKIP() << "root may write in any folder";
    fs::create_directory(folder / "locked");
    fs::permissions(folder / "locked", fs::perms::owner_read | fs::perms::owner_exec);
    expectEnd("locked/" + std::string(GetParam().output), 1, "denied");
}

TEST_P(PictureOutputs, WorkingFolderIsMissing)
{
    std::vector<std::string> arguments{GetParam().name, "-o", GetParam().output};
    for (const std::string& file : files())
        arguments.push_back(folder / file);
    const fs::path before = fs::current_path();
    fs::create_directory(folder / "gone");
    fs::current_path(folder / "gone");
    fs::remove(folder / "gone");
    const Finished finished = runOrvo(arguments, {.workingFolder = "."});
    fs::current_path(before);
    EXPECT_EQ(finished.exitCode, 1);
    EXPECT_THAT(finished.errLines(),
                testing::ElementsAre(AllOf(HasSubstr(GetParam().output), HasSubstr("the working folder is missing"))));
}

TEST_P(PictureOutputs, DiskIsFull)
{
    const SmallDisk disk(folder / "disk");
    if (!disk.mounted)
        GTEST_SKIP() << "no right to mount a small disk";
    writeText(folder / "disk/filler", std::string(60 * 1024, 'x')); // leaves space for a page
    expectEnd("disk/" + std::string(GetParam().output), 1, "space");
    EXPECT_THAT(namesIn(folder / "disk"), testing::ElementsAre("filler"));
}

TEST_P(PictureOutputs, QuietPrintsNothing)
{
    const Finished finished = run(GetParam().output, files(), {"--quiet"});
    EXPECT_EQ(finished.exitCode, 0);
    EXPECT_THAT(finished.out, IsEmpty());
    EXPECT_THAT(finished.err, IsEmpty());
    EXPECT_TRUE(fs::exists(folder / GetParam().output));
}

TEST_P(PictureOutputs, JsonDescribesTheRun)
{
    const Finished finished = run(GetParam().output, files(), {"--json"});
    ASSERT_EQ(finished.exitCode, 0) << finished.err;
    const auto json = nlohmann::json::parse(finished.out);
    EXPECT_EQ(json.at("output"), GetParam().output);
    double sum = 0.0;
    std::vector<std::string> phases;
    for (const auto& phase : json.at("phases")) {
        phases.push_back(phase.at("name"));
        sum += phase.at("milliseconds").get<double>();
    }
    EXPECT_THAT(phases, testing::ElementsAre("check", GetParam().phase, "write"));
    EXPECT_NEAR(json.at("milliseconds").get<double>(), sum, 1e-6);
    constexpr std::uint64_t kOnePicture = 120 * 80 * 12; // bytes of one picture of floats
    EXPECT_GT(json.at("peak_memory_bytes").at("planes").get<std::uint64_t>(), 2 * kOnePicture);
    EXPECT_GT(json.at("peak_memory_bytes").at("process").get<std::uint64_t>(), 2 * kOnePicture);
    EXPECT_TRUE(json.at("warnings").is_array());
}

TEST_P(PictureOutputs, LogIsWritten)
{
    ASSERT_EQ(run(GetParam().output, files(), {"--log", "run.txt"}).exitCode, 0);
    EXPECT_THAT(fileText(folder / "run.txt"),
                AllOf(HasSubstr("orvo"), HasSubstr(std::string(GetParam().name) + ": done")));
}

/// Commands whose result is a file.
class FileOutputs : public PictureOutputs
{};

TEST_P(FileOutputs, UnknownEnding)
{
    expectEnd("out.xyz", 2, ".tif");
    expectEnd("out", 2, ".tif");
}

INSTANTIATE_TEST_SUITE_P(Commands, FileOutputs,
                         testing::ValuesIn(commandsThat([](const PictureCommand& c) { return !c.intoFolder; })),
                         nameOfCommand);
INSTANTIATE_TEST_SUITE_P(Commands, PictureOutputs, testing::ValuesIn(kPictureCommands), nameOfCommand);

} // namespace
} // namespace orvo::test
