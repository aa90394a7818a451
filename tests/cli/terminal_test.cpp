// Behaviour that depends on the streams: bar or lines, closed pipes, full disks.
#include "brackets.hpp"
#include "program.hpp"

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

#include <regex>
#include <set>

namespace orvo::test {
namespace {

using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

class Terminal : public testing::Test
{
protected:
    Finished merge(std::vector<std::string> more, Streams streams)
    {
        more.insert(more.begin(), {"hdr", "-o", "out.jpg"});
        more.insert(more.end(), bracket.begin(), bracket.end());
        streams.workingFolder = folder.path();
        return runOrvo(more, streams);
    }

    TemporaryFolder folder;
    std::vector<std::string> bracket = names(writeBracket(folder.path()));
};

constexpr const char* kEmptyLine = "\r\033[K";

TEST_F(Terminal, ShowsOneBarAndClearsIt)
{
    const Finished run = merge({}, {.errorIsTerminal = true});
    EXPECT_EQ(run.exitCode, 0);
    EXPECT_THAT(run.err, Not(HasSubstr("\n"))) << "the bar stays on one line";
    EXPECT_THAT(run.err, EndsWith(kEmptyLine));
    std::vector<int> percents;
    const std::regex percent(R"((\d+) %)");
    for (std::sregex_iterator at(run.err.begin(), run.err.end(), percent), end; at != end; ++at)
        percents.push_back(std::stoi((*at)[1]));
    ASSERT_GE(percents.size(), 8u);
    EXPECT_TRUE(std::is_sorted(percents.begin(), percents.end()));
    EXPECT_EQ(percents.back(), 100);
    EXPECT_THAT(run.out, Not(HasSubstr("reading"))) << "the bar shows it";
}

TEST_F(Terminal, AStackShowsItsShare)
{
    const auto series = names(writeFocusSeries(folder.path(), {.width = 300, .height = 200, .frames = 6}));
    std::vector<std::string> arguments{"stack", "-o", "out.jpg"};
    arguments.insert(arguments.end(), series.begin(), series.end());
    const Finished run = runOrvo(arguments, {.workingFolder = folder.path(), .errorIsTerminal = true});
    ASSERT_EQ(run.exitCode, 0) << run.err;
    const std::regex step(R"((\d+) % stacking the frames)");
    std::set<std::string> shares;
    for (std::sregex_iterator at(run.err.begin(), run.err.end(), step), end; at != end; ++at)
        shares.insert((*at)[1]);
    EXPECT_GE(shares.size(), 10u) << run.err;
}

TEST_F(Terminal, EnlargingShowsItsShare)
{
    writeFrame(folder / "in.jpg", {.width = 600, .height = 400});
    const Finished run = runOrvo({"upscale", "in.jpg", "--passes", "2", "--threads", "1", "-o", "out.jpg"},
                                 {.workingFolder = folder.path(), .errorIsTerminal = true});
    ASSERT_EQ(run.exitCode, 0) << run.err;
    const std::regex step(R"((\d+) % enlarging the picture)");
    std::set<std::string> shares;
    for (std::sregex_iterator at(run.err.begin(), run.err.end(), step), end; at != end; ++at)
        shares.insert((*at)[1]);
    EXPECT_GE(shares.size(), 10u) << run.err;
}

TEST_F(Terminal, OpaqueStepShowsItsTimeInsteadOfAShare)
{
    writeFrame(folder / "in.jpg", {.width = 2400, .height = 1600});
    const Finished run =
        runOrvo({"label", "in.jpg", "-o", "out", "--json"}, {.workingFolder = folder.path(), .errorIsTerminal = true});
    ASSERT_EQ(run.exitCode, 0) << run.err;
    const std::regex step(R"(\r\[([#.]+)\] +\d+ s labelling the frames)");
    std::set<std::string> pictures;
    for (std::sregex_iterator at(run.err.begin(), run.err.end(), step), end; at != end; ++at)
        pictures.insert((*at)[1]);
    double milliseconds = 0.0;
    const nlohmann::json report = nlohmann::json::parse(run.out);
    for (const auto& phase : report.at("phases"))
        if (phase.at("name") == "label")
            milliseconds = phase.at("milliseconds");
    ASSERT_GT(milliseconds, 0.0);
    // The block moves four times a second if the step is long enough; twice the time for a busy machine.
    constexpr double kTwoMoves = 1000.0;
    EXPECT_GE(pictures.size(), milliseconds > kTwoMoves ? 2u : 1u) << run.err;
    EXPECT_THAT(run.err, Not(testing::ContainsRegex("% labelling")));
    EXPECT_THAT(run.err, HasSubstr("100 %"));
    EXPECT_THAT(run.err, EndsWith(kEmptyLine));
}

TEST_F(Terminal, BarBesideJson)
{
    const Finished run = merge({"--json"}, {.errorIsTerminal = true});
    EXPECT_THAT(run.err, HasSubstr("100 %"));
    EXPECT_TRUE(nlohmann::json::parse(run.out).is_object());
}

TEST_F(Terminal, QuietShowsNoBar)
{
    const Finished run = merge({"--quiet"}, {.errorIsTerminal = true});
    EXPECT_THAT(run.err, IsEmpty());
    EXPECT_THAT(run.out, IsEmpty());
}

TEST_F(Terminal, ErrorComesAfterTheBar)
{
    const Finished run = merge({"nowhere.jpg"}, {.errorIsTerminal = true});
    EXPECT_EQ(run.exitCode, 1);
    const auto bar = run.err.rfind(kEmptyLine);
    ASSERT_NE(bar, std::string::npos);
    EXPECT_THAT(run.err.substr(bar), HasSubstr("orvo: nowhere.jpg: "));
}

TEST_F(Terminal, AClosedReaderIsNoError)
{
    for (const char* const option : {"--json", "--bits=8"}) {
        const Finished run = merge({option}, {.readerGoesAway = true});
        EXPECT_EQ(run.exitCode, 0);
        EXPECT_THAT(run.err, IsEmpty());
    }
    EXPECT_EQ(runOrvo({"hdr", "--help"}, {.readerGoesAway = true}).exitCode, 0);
}

TEST_F(Terminal, AFullOutputIsAnError)
{
    const Finished run = merge({"--json"}, {.standardOutput = "/dev/full"});
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_THAT(run.errLines(), ElementsAre(HasSubstr("cannot write to standard output: No space left")));
}

} // namespace
} // namespace orvo::test
