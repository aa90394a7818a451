// Inputs that cannot be merged, in addition to those that every command rejects: one line, the right exit code, and no
// files left.
#include "picture_commands.hpp"

namespace orvo::test {
namespace {

class HdrInputs : public testing::Test
{
protected:
    /// Merges three good frames and `bad`, which fails with one line that contains `file` and `reason`.
    void expectFailure(const std::string& bad, const std::string& reason) { expectEnd({bad}, 1, bad, reason); }

    void expectEnd(const std::vector<std::string>& more, int exitCode, const std::string& file,
                   const std::string& reason)
    {
        std::vector<std::string> arguments{"hdr", "-o", "out.jpg"};
        arguments.insert(arguments.end(), bracket.begin(), bracket.end());
        arguments.insert(arguments.end(), more.begin(), more.end());
        expectRefusal(arguments, folder.path(), exitCode, {file, reason});
    }

    TemporaryFolder folder;
    std::vector<std::string> bracket = names(writeBracket(folder.path()));
};

TEST_F(HdrInputs, TruncatedJpegAlone)
{
    const std::string whole = fileText(folder / bracket[1]);
    writeText(folder / "cut.jpg", whole.substr(0, whole.size() * 6 / 10));
    bracket.clear();
    expectFailure("cut.jpg", "");
}

TEST_F(HdrInputs, AnotherSize)
{
    writeFrame(folder / "other.jpg", {.width = 150, .height = 100});
    expectFailure("other.jpg", "150 x 100");
    expectFailure("other.jpg", bracket[0]); // both files are named
}

TEST_F(HdrInputs, AResultAmongTheFramesIsNoted)
{
    const std::string result = std::filesystem::path(bracket[0]).stem().string() + "-merged.jpg";
    std::filesystem::copy_file(folder / bracket[0], folder / result);
    std::vector<std::string> arguments{"hdr", "-o", "out.jpg", result};
    arguments.insert(arguments.end(), bracket.begin(), bracket.end());
    const Finished noted = runOrvo(arguments, {.workingFolder = folder.path()});
    EXPECT_EQ(noted.exitCode, 0);
    EXPECT_THAT(noted.errLines(),
                testing::ElementsAre(testing::HasSubstr("note: " + result + ": by its name a result")));
    arguments.emplace_back("--quiet");
    EXPECT_EQ(runOrvo(arguments, {.workingFolder = folder.path()}).err, "");
}

TEST_F(HdrInputs, GhostReferenceBeyondTheFrames)
{
    expectEnd({"--deghost", "1", "--ghost-reference", "4"}, 2, "4", "only 3 were given");
}

TEST_F(HdrInputs, GhostReferenceWithoutRemoval)
{
    expectEnd({"--ghost-reference", "1"}, 2, "ghost", "without ghost removal");
}

TEST_F(HdrInputs, NumbersOfThingsAreWhole)
{
    for (const char* const number : {"1e3", "2.5", "two", "0x10"})
        expectEnd({"--threads", number}, 2, "--threads", "expected 1 to 1024, found " + std::string(number));
}

TEST_F(HdrInputs, ValueOutOfRange) { expectEnd({"--details", "1.5"}, 2, "--details", "expected 0 to 1, found 1.5"); }

} // namespace
} // namespace orvo::test
