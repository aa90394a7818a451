// orvo frames
#include "brackets.hpp"
#include "program.hpp"

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

#include <regex>

namespace orvo::test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

class Frames : public testing::Test
{
protected:
    Finished list(std::vector<std::string> arguments)
    {
        arguments.insert(arguments.begin(), "frames");
        return runOrvo(arguments, {.workingFolder = folder.path()});
    }

    /// Files of the table from top to bottom.
    static std::vector<std::string> filesOf(const std::string& table)
    {
        std::vector<std::string> files;
        const std::regex row(R"(\s*[-+]\d+\.\d\d EV\s+\d+  (.*))");
        std::istringstream lines(table);
        for (std::string line; std::getline(lines, line);) {
            std::smatch parts;
            EXPECT_TRUE(std::regex_match(line, parts, row)) << line;
            files.push_back(parts[1]);
        }
        return files;
    }

    TemporaryFolder folder;
};

TEST_F(Frames, SortsByExposureData)
{
    const auto bracket = names(writeBracket(folder.path())); // dark, middle, bright
    const Finished run = list({bracket[2], bracket[0], bracket[1]});
    EXPECT_EQ(run.exitCode, 0);
    EXPECT_THAT(run.err, IsEmpty());
    EXPECT_THAT(filesOf(run.out), ElementsAre(bracket[0], bracket[1], bracket[2]));
}

TEST_F(Frames, SortsByBrightnessWithoutExposureData)
{
    const auto bracket = names(writeBracket(folder.path(), {.exposureData = false}));
    const Finished run = list({bracket[1], bracket[2], bracket[0]});
    EXPECT_EQ(run.exitCode, 0);
    EXPECT_THAT(filesOf(run.out), ElementsAre(bracket[0], bracket[1], bracket[2]));
}

TEST_F(Frames, JsonContainsExposureAndTheGivenOrder)
{
    const auto bracket = names(writeBracket(folder.path()));
    const Finished run = list({bracket[2], bracket[0], bracket[1], "--json"});
    ASSERT_EQ(run.exitCode, 0);
    const auto json = nlohmann::json::parse(run.out);
    EXPECT_THAT(json.at("unreadable"), IsEmpty());
    const auto& frames = json.at("frames");
    ASSERT_EQ(frames.size(), 3u);
    EXPECT_EQ(frames[0].at("path"), bracket[0]);
    constexpr double kEvTolerance = 0.05; // exposure times in files are fractions of small numbers
    EXPECT_NEAR(frames[0].at("ev").get<double>(), -kStepEv, kEvTolerance);
    EXPECT_NEAR(frames[1].at("ev").get<double>(), 0.0, kEvTolerance);
    EXPECT_NEAR(frames[2].at("ev").get<double>(), kStepEv, kEvTolerance);
    EXPECT_EQ(frames[0].at("number"), 2);
    EXPECT_EQ(frames[1].at("number"), 3);
    EXPECT_EQ(frames[2].at("number"), 1);
}

TEST_F(Frames, NamesUnreadableFilesAfterTheRest)
{
    const auto bracket = names(writeBracket(folder.path()));
    writeText(folder / "letter.jpg", "no picture");
    const Finished run = list({"letter.jpg", bracket[1], "nowhere.jpg", bracket[0]});
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_THAT(filesOf(run.out), ElementsAre(bracket[0], bracket[1]));
    EXPECT_THAT(run.errLines(), ElementsAre(HasSubstr("letter.jpg"), HasSubstr("nowhere.jpg")));

    const auto json = nlohmann::json::parse(list({"--json", "letter.jpg", bracket[1]}).out);
    EXPECT_EQ(json.at("frames")[0].at("number"), 2);
    EXPECT_EQ(json.at("unreadable")[0].at("path"), "letter.jpg");
    EXPECT_THAT(json.at("unreadable")[0].at("reason").get<std::string>(), HasSubstr("letter.jpg"));
}

TEST_F(Frames, OneFileTwiceHasTwoPlaces)
{
    const auto bracket = names(writeBracket(folder.path()));
    const auto json = nlohmann::json::parse(list({"--json", bracket[0], bracket[0]}).out);
    EXPECT_EQ(json.at("frames")[0].at("number"), 1);
    EXPECT_EQ(json.at("frames")[1].at("number"), 2);
}

TEST_F(Frames, NoFiles)
{
    const Finished run = list({});
    EXPECT_EQ(run.exitCode, 2);
    EXPECT_THAT(run.errLines(), ElementsAre(HasSubstr("FILES"), HasSubstr("orvo frames --help")));
}

} // namespace
} // namespace orvo::test
