// orvo frames --group, and folders as input.
#include "brackets.hpp"
#include "program.hpp"
#include "support/cards.hpp"

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

namespace orvo::test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::MatchesRegex;

class Groups : public testing::Test
{
protected:
    Finished run(const std::vector<std::string>& arguments) const
    {
        return runOrvo(arguments, {.workingFolder = folder.path()});
    }
    static std::vector<std::string> linesOf(const std::string& text)
    {
        std::vector<std::string> lines;
        std::istringstream stream(text);
        for (std::string line; std::getline(stream, line);)
            lines.push_back(line);
        return lines;
    }

    TemporaryFolder folder;
};

TEST_F(Groups, OneLineForEachWithItsReasons)
{
    Card card(folder);
    card.bracket({0.0, -2.0, 2.0});
    card.wait(60);
    card.panorama(3, 27.0);
    card.wait(60);
    card.focusSeries(4, true);
    card.wait(60);
    card.single(1);
    writeText(folder / "clip.mp4", std::string("\0\0\0\x18"
                                               "ftypisom",
                                               12) +
                                       std::string(64, 'x'));
    const Finished finished = run({"frames", "--group", "."});
    EXPECT_EQ(finished.exitCode, 0) << finished.err;
    EXPECT_THAT(
        linesOf(finished.out),
        ElementsAre(MatchesRegex("bracket +3  ./IMG_0001.jpg .. IMG_0003.jpg: EV .0.0 -2.0 .2.0, same framing .*"
                                 "%, within 2.0 s"),
                    MatchesRegex("panorama +3  ./IMG_0004.jpg .. IMG_0006.jpg: neighbours overlap .* %, same "
                                 "exposure, within 2.0 s"),
                    MatchesRegex("focus +4  ./IMG_0007.jpg .. IMG_0010.jpg: focus 0.40 to 0.65 m, same "
                                 "exposure, same framing .* %, within 3.0 s"),
                    "single             1  ./IMG_0011.jpg: no neighbour belongs to it"));
    EXPECT_THAT(finished.errLines(), ElementsAre(HasSubstr("left out clip.mp4 (a video)")));
}

TEST_F(Groups, JsonHasTheValues)
{
    Card card(folder, {.exif = false});
    card.panorama(3, 27.0, {-1.5, 0.0, 1.5});
    const Finished finished = run({"frames", "--json", "--group", "."});
    ASSERT_EQ(finished.exitCode, 0) << finished.err;
    const auto json = nlohmann::json::parse(finished.out);
    ASSERT_EQ(json.at("groups").size(), 1u);
    const auto& group = json.at("groups")[0];
    EXPECT_EQ(group.at("kind"), "bracket-panorama");
    EXPECT_EQ(group.at("bracket_size"), 3);
    EXPECT_EQ(group.at("files").size(), 9u);
    EXPECT_EQ(group.at("evidence").at("exposure"), "brightness");
    EXPECT_EQ(group.at("evidence").at("order"), "given");
    EXPECT_LT(group.at("evidence").at("overlap").at("most"), 0.75);
    EXPECT_THAT(json.at("left_out"), IsEmpty());
    EXPECT_THAT(json.at("unreadable"), IsEmpty());
}

TEST_F(Groups, AnUnreadableFileFailsAndTheRestIsListed)
{
    Card card(folder);
    card.single(1);
    const Finished finished = run({"frames", "--group", ".", "missing.jpg"});
    EXPECT_EQ(finished.exitCode, 1);
    EXPECT_THAT(linesOf(finished.out), ElementsAre(HasSubstr("single")));
    EXPECT_THAT(finished.err, HasSubstr("missing.jpg: there is no such file"));
}

TEST_F(Groups, FoldersAreInputOfEachCommand)
{
    std::filesystem::create_directory(folder / "card");
    const auto bracket = names(writeBracket(folder / "card"));
    writeText(folder / "card/notes.txt", "text");
    const Finished hdr = run({"hdr", "card"});
    EXPECT_EQ(hdr.exitCode, 0) << hdr.err;
    EXPECT_THAT(hdr.errLines(), ElementsAre(HasSubstr("note: card: left out notes.txt (no picture)")));
    EXPECT_TRUE(std::filesystem::exists(folder / "card/frame_0-merged.jpg"));

    const Finished frames = run({"frames", "card"});
    EXPECT_EQ(frames.exitCode, 0);
    EXPECT_THAT(linesOf(frames.out), testing::SizeIs(3)) << "the result is no frame";
    EXPECT_THAT(frames.errLines(), ElementsAre(HasSubstr("frame_0-merged.jpg (a result)")));

    EXPECT_EQ(run({"stack", "--no-align", "card", "-o", "card/stack.jpg", "--quiet"}).exitCode, 0);
    EXPECT_THAT(run({"stack", "--no-align", "card", "-o", "card/stack.jpg"}).err, HasSubstr("stack.jpg (a result)"))
        << "made again, it is no input";
    EXPECT_EQ(run({"label", "card", "-o", "labelled", "--quiet"}).err, "");
}

TEST_F(Groups, AFolderWithoutPicturesIsNamed)
{
    std::filesystem::create_directory(folder / "empty");
    for (const std::string command : {"hdr", "stack", "pano", "frames"}) {
        const Finished finished = run({command, "empty"});
        EXPECT_EQ(finished.exitCode, 1) << command;
        EXPECT_THAT(finished.errLines(), ElementsAre("orvo: empty: there are no pictures in this folder")) << command;
    }
}

} // namespace
} // namespace orvo::test
