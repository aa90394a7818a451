// Results without a given name, options in vain, strictness, and words for options.
#include "brackets.hpp"
#include "picture_commands.hpp"
#include "program.hpp"

#include <orvo_io/image_reader.hpp>

#include <gmock/gmock.h>

#include <filesystem>
#include <string>
#include <vector>

namespace orvo::test {
namespace {

using testing::AllOf;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

using Words = std::vector<std::string>;

class CommandOptions : public testing::Test
{
protected:
    [[nodiscard]] Finished run(const Words& words) const { return runOrvo(words, {.workingFolder = folder.path()}); }
    [[nodiscard]] Finished runOn(Words words, const std::vector<std::filesystem::path>& files) const
    {
        const Words more = names(files);
        words.insert(words.end(), more.begin(), more.end());
        return run(words);
    }
    [[nodiscard]] bool has(const std::string& name) const { return std::filesystem::exists(folder / name); }

    TemporaryFolder folder;
};

TEST_F(CommandOptions, AResultIsNamedAfterTheFirstInputAndWhatWasDone)
{
    writeFrame(folder / "a.b.jpg", {.width = 60, .height = 40});
    writeFrame(folder / "mask.png", {.width = 60, .height = 40});
    for (const auto& [words, name] : {std::pair<Words, std::string>{{"hdr", "a.b.jpg"}, "a.b-merged.jpg"},
                                      {{"stack", "a.b.jpg"}, "a.b-stacked.jpg"},
                                      {{"upscale", "a.b.jpg"}, "a.b-large.jpg"},
                                      {{"erase", "a.b.jpg", "--box", "20,10,9,9"}, "a.b-erased.jpg"},
                                      {{"expand", "a.b.jpg", "--add", "8,0,0,0"}, "a.b-expanded.jpg"},
                                      {{"restore", "a.b.jpg"}, "a.b-restored.jpg"}}) {
        const Finished finished = run(words);
        EXPECT_EQ(finished.exitCode, 0) << finished.err;
        EXPECT_THAT(finished.out, HasSubstr(name + ": "));
        EXPECT_TRUE(has(name)) << name;
    }
    const auto views = writeViews(folder.path());
    EXPECT_EQ(runOn({"pano"}, views).exitCode, 0);
    EXPECT_TRUE(has(views[0].stem().string() + "-panorama.jpg"));
}

TEST_F(CommandOptions, AResultLiesBesideTheInput)
{
    std::filesystem::create_directory(folder / "card");
    writeFrame(folder / "card/a.png", {.width = 60, .height = 40});
    EXPECT_EQ(run({"hdr", "card/a.png"}).exitCode, 0);
    EXPECT_TRUE(has("card/a-merged.png"));
}

TEST_F(CommandOptions, AResultReplacesNothingUnlessForced)
{
    writeFrame(folder / "a.jpg", {.width = 60, .height = 40});
    writeText(folder / "a-merged.jpg", "yesterday's picture");
    const Finished refused = run({"hdr", "a.jpg"});
    EXPECT_EQ(refused.exitCode, 1);
    EXPECT_THAT(refused.errLines(), ElementsAre(AllOf(HasSubstr("a-merged.jpg"), HasSubstr("exists already"))));
    EXPECT_EQ(fileText(folder / "a-merged.jpg"), "yesterday's picture");
    EXPECT_EQ(run({"hdr", "a.jpg", "--force"}).exitCode, 0);
    EXPECT_NE(fileText(folder / "a-merged.jpg"), "yesterday's picture");
    EXPECT_EQ(run({"hdr", "a.jpg", "-o", "a-merged.jpg"}).exitCode, 0) << "a given name is meant";
}

TEST_F(CommandOptions, ARequestHasNoResult)
{
    writeFrame(folder / "a.jpg", {.width = 60, .height = 40});
    EXPECT_EQ(run({"erase", "a.jpg", "--box", "20,10,9,9", "--request-only", "request.json"}).exitCode, 0);
    EXPECT_TRUE(has("request.json"));
    EXPECT_FALSE(has("a-erased.jpg"));
}

TEST_F(CommandOptions, AFrameThatCannotBeAlignedIsNamed)
{
    const auto first = writeViews(folder.path(), {.views = 1, .prefix = "one"});
    const auto second = writeViews(folder.path(), {.views = 1, .scene = 2, .prefix = "two"});
    const std::vector<std::filesystem::path> frames{first[0], second[0]};
    for (const Words& words : {Words{"hdr", "--align"}, {"hdr", "--align", "--fast"}, {"stack"}}) {
        Words withOutput = words;
        withOutput.insert(withOutput.end(), {"-o", "out.jpg"});
        const Finished finished = runOn(withOutput, frames);
        EXPECT_EQ(finished.exitCode, 0) << finished.err;
        EXPECT_THAT(finished.errLines(),
                    ElementsAre(AllOf(HasSubstr("note: "), HasSubstr(".jpg: stays where it is, since "))))
            << words.front();
        EXPECT_TRUE(std::filesystem::remove(folder / "out.jpg"));

        withOutput.emplace_back("--strict");
        const Finished strict = runOn(withOutput, frames);
        EXPECT_EQ(strict.exitCode, 1);
        EXPECT_THAT(strict.errLines(), ElementsAre(AllOf(Not(HasSubstr("note")), HasSubstr("stays where it is"))));
        EXPECT_FALSE(has("out.jpg"));
    }
}

TEST_F(CommandOptions, APictureThatMatchesNoOtherIsAFailureIfStrict)
{
    auto views = writeViews(folder.path());
    views.push_back(writeViews(folder.path(), {.views = 1, .scene = 2, .prefix = "stranger"})[0]);
    EXPECT_EQ(runOn({"pano", "-o", "out.jpg"}, views).exitCode, 0);
    EXPECT_TRUE(std::filesystem::remove(folder / "out.jpg"));
    const Finished strict = runOn({"pano", "-o", "out.jpg", "--strict"}, views);
    EXPECT_EQ(strict.exitCode, 1);
    EXPECT_THAT(strict.errLines(), ElementsAre(AllOf(HasSubstr("stranger"), HasSubstr("matches no other picture"))));
    EXPECT_FALSE(has("out.jpg"));
}

TEST_F(CommandOptions, OptionsInVainAreMentioned)
{
    writeFrame(folder / "a.jpg", {.width = 60, .height = 40});
    const auto notes = [&](Words words) {
        words.insert(words.end(), {"-o", "out.jpg"});
        return run(words).errLines();
    };
    EXPECT_THAT(notes({"hdr", "a.jpg"}), IsEmpty());
    EXPECT_THAT(notes({"hdr", "a.jpg", "--lens"}), ElementsAre(HasSubstr("none of the files is raw")));
    EXPECT_THAT(notes({"stack", "a.jpg", "--lens"}), Contains(HasSubstr("none of the files is raw")));
    EXPECT_THAT(notes({"hdr", "a.jpg", "--align", "--deghost", "low"}),
                ElementsAre(HasSubstr("nothing to be aligned with"), HasSubstr("no ghosts")));
}

TEST_F(CommandOptions, StrengthsHaveNames)
{
    const auto frames = writeBracket(folder.path());
    for (const auto& [name, number] : {std::pair{"lowest", "0"}, {"medium", "2"}, {"highest", "4"}}) {
        ASSERT_EQ(runOn({"hdr", "--deghost", name, "-o", "name.tif"}, frames).exitCode, 0);
        ASSERT_EQ(runOn({"hdr", "--deghost", number, "-o", "number.tif"}, frames).exitCode, 0);
        EXPECT_TRUE(fileText(folder / "name.tif") == fileText(folder / "number.tif")) << name;
    }
    ASSERT_EQ(runOn({"hdr", "--deghost", "none", "-o", "none.tif"}, frames).exitCode, 0);
    ASSERT_EQ(runOn({"hdr", "-o", "without.tif"}, frames).exitCode, 0);
    EXPECT_TRUE(fileText(folder / "none.tif") == fileText(folder / "without.tif"));
}

TEST_F(CommandOptions, ProjectionsHaveTheNamesOfOtherPrograms)
{
    const auto views = writeViews(folder.path());
    for (const auto& [name, own] :
         {std::pair{"rectilinear", "plane"}, {"equirectangular", "spherical"}, {"little-planet", "planet"}}) {
        const Finished finished = runOn({"pano", "--json", "--quiet", "--projection", name, "-o", "out.jpg"}, views);
        EXPECT_EQ(finished.exitCode, 0) << finished.err;
        EXPECT_THAT(finished.out, HasSubstr("\"projection\": \"" + std::string(own) + "\""));
    }
}

TEST(MistypedOptions, SuggestTheNearest)
{
    for (const auto& [typed, meant] :
         {std::pair{"--algin", "--align"}, {"--deghost-reference=2", "--ghost-reference"}, {"--ouput", "--output"}}) {
        const Finished finished = runOrvo({"hdr", "a.jpg", typed, "-o", "out.jpg"});
        EXPECT_EQ(finished.exitCode, 2);
        EXPECT_THAT(finished.errLines(),
                    ElementsAre(HasSubstr("did you mean " + std::string(meant) + "?"), HasSubstr("orvo hdr --help")));
    }
    EXPECT_THAT(runOrvo({"hdr", "a.jpg", "--zzzzzz", "-o", "out.jpg"}).err, Not(HasSubstr("did you mean")));
}

TEST(HelpCommand, ExplainsACommand)
{
    EXPECT_EQ(runOrvo({"help", "stack"}).out, runOrvo({"stack", "--help"}).out);
    EXPECT_EQ(runOrvo({"help"}).out, runOrvo({"--help"}).out);
    const Finished unknown = runOrvo({"help", "stakc"});
    EXPECT_EQ(unknown.exitCode, 2);
    EXPECT_THAT(unknown.err, HasSubstr("did you mean 'stack'?"));
}

} // namespace
} // namespace orvo::test
