// Help, version and unknown commands.
#include "program.hpp"

#include <gmock/gmock.h>

namespace orvo::test {
namespace {

using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

constexpr const char* kCommands[] = {"hdr",    "stack",   "label", "upscale", "fill",   "erase",
                                     "expand", "restore", "pano",  "serve",   "frames", "demo"};

TEST(Help, OfTheProgramNamesEveryCommand)
{
    for (const char* const option : {"--help", "-h"}) {
        const Finished run = runOrvo({option});
        EXPECT_EQ(run.exitCode, 0);
        EXPECT_THAT(run.out, HasSubstr("Examples:"));
        for (const std::string command : kCommands)
            EXPECT_THAT(run.out, HasSubstr("\n  " + command + " "));
        EXPECT_THAT(run.err, IsEmpty());
    }
}

TEST(Help, OfEveryCommandHasUsageAndExamples)
{
    for (const std::string command : kCommands) {
        const Finished run = runOrvo({command, "--help"});
        EXPECT_EQ(run.exitCode, 0);
        EXPECT_THAT(run.out, AllOf(HasSubstr("Usage: orvo " + command), HasSubstr("Examples:"),
                                   HasSubstr("  orvo " + command + " ")));
        EXPECT_THAT(run.err, IsEmpty());
    }
}

TEST(Help, FitsATerminal)
{
    constexpr std::size_t kColumns = 100;
    for (const std::string command : kCommands) {
        std::istringstream lines(runOrvo({command, "--help"}).out);
        for (std::string line; std::getline(lines, line);)
            EXPECT_LE(line.size(), kColumns) << line;
    }
}

TEST(Help, Version)
{
    const Finished run = runOrvo({"--version"});
    EXPECT_EQ(run.exitCode, 0);
    EXPECT_EQ(run.out, "orvo " ORVO_VERSION "\n");
}

TEST(Help, UnknownCommandSuggestsTheNearest)
{
    for (const auto& [typed, meant] : {std::pair{"hrd", "'hdr'"},
                                       {"HDR", "'hdr'"},
                                       {"frame", "'frames'"},
                                       {"dmeo", "'demo'"},
                                       {"stakc", "'stack'"},
                                       {"upscael", "'upscale'"},
                                       {"panorama", "'pano'"}}) {
        const Finished run = runOrvo({typed});
        EXPECT_EQ(run.exitCode, 2);
        EXPECT_THAT(run.errLines(),
                    ElementsAre(AllOf(StartsWith("orvo: "), HasSubstr(typed), HasSubstr(meant)), HasSubstr("--help")));
    }
    EXPECT_THAT(runOrvo({"timelapse"}).err, Not(HasSubstr("did you mean")));
}

TEST(Help, NoCommand)
{
    const Finished run = runOrvo({});
    EXPECT_EQ(run.exitCode, 2);
    EXPECT_THAT(run.errLines(), ElementsAre(HasSubstr("no command"), HasSubstr("--help")));
}

} // namespace
} // namespace orvo::test
