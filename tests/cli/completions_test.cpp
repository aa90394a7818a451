// The man page and the shell completions have exactly the options of the program.
#include "program.hpp"

#include <gmock/gmock.h>

#include <regex>
#include <set>

namespace orvo::test {
namespace {

using testing::IsSupersetOf;
using testing::UnorderedElementsAreArray;

std::set<std::string> matches(const std::string& text, const std::string& pattern)
{
    std::set<std::string> found;
    const std::regex expression(pattern);
    for (std::sregex_iterator at(text.begin(), text.end(), expression), end; at != end; ++at)
        found.insert((*at)[1]);
    return found;
}

/// Long options of the program and of all its commands, without the dashes.
std::set<std::string> optionsOfTheProgram()
{
    std::set<std::string> options;
    for (const std::vector<std::string>& words : {std::vector<std::string>{"--help"},
                                                  {"hdr", "--help"},
                                                  {"stack", "--help"},
                                                  {"label", "--help"},
                                                  {"upscale", "--help"},
                                                  {"fill", "--help"},
                                                  {"erase", "--help"},
                                                  {"expand", "--help"},
                                                  {"restore", "--help"},
                                                  {"serve", "--help"},
                                                  {"pano", "--help"},
                                                  {"frames", "--help"},
                                                  {"demo", "--help"}})
        // An option is at the start of its line of the help, possibly after its short form.
        options.merge(matches(runOrvo(words).out, R"(\n  (?:-\w,)?--([a-z][a-z-]*))"));
    return options;
}

std::string document(const std::string& name) { return fileText(std::filesystem::path(ORVO_DOCUMENTS) / name); }

TEST(Completions, TheProgramHasTheOptionsOfThisTest)
{
    EXPECT_THAT(optionsOfTheProgram(),
                IsSupersetOf({"help", "version", "output", "align", "json", "size", "keep", "reference", "format",
                              "model", "mask", "projection", "max-size", "service", "port"}));
}

TEST(Completions, ManPage)
{
    const std::string page = std::regex_replace(document("man/orvo.1"), std::regex(R"(\\-)"), "-");
    EXPECT_THAT(matches(page, "--([a-z][a-z-]*)"), UnorderedElementsAreArray(optionsOfTheProgram()));
}

TEST(Completions, Bash)
{
    EXPECT_THAT(matches(document("completions/orvo.bash"), "--([a-z][a-z-]*)"),
                UnorderedElementsAreArray(optionsOfTheProgram()));
}

TEST(Completions, Zsh)
{
    EXPECT_THAT(matches(document("completions/_orvo"), "--([a-z][a-z-]*)"),
                UnorderedElementsAreArray(optionsOfTheProgram()));
}

TEST(Completions, Fish)
{
    EXPECT_THAT(matches(document("completions/orvo.fish"), " -l ([a-z][a-z-]*)"),
                UnorderedElementsAreArray(optionsOfTheProgram()));
}

/// The values that a completion offers for --passes.
std::string passesIn(const std::string& name, const std::string& pattern)
{
    const auto found = matches(document(name), pattern);
    return found.size() == 1 ? *found.begin() : std::string();
}

TEST(Completions, PassesAreThoseOfTheProgram)
{
    const std::string range = R"(1 to (\d))";
    const auto most = matches(runOrvo({"upscale", "-o", "x.jpg", "x.jpg", "--passes", "99"}).err, "expected " + range);
    ASSERT_EQ(most.size(), 1u);
    std::string values = "1";
    for (int i = 2; i <= std::stoi(*most.begin()); ++i)
        values.append(" ").append(std::to_string(i));
    EXPECT_EQ(passesIn("completions/orvo.bash", R"(--passes\)[^']*'([^']*)')"), values);
    EXPECT_EQ(passesIn("completions/_orvo", R"(--passes[^:]*:passes:\(([^)]*)\))"), values);
    EXPECT_EQ(passesIn("completions/orvo.fish", "-l passes -x -a '([^']*)'"), values);
    EXPECT_EQ(passesIn("man/orvo.1", R"(Number of doublings, )" + range), *most.begin());
    EXPECT_EQ(matches(runOrvo({"upscale", "--help"}).out, R"(number of doublings, )" + range), most);
}

} // namespace
} // namespace orvo::test
