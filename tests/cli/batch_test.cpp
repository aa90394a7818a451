// orvo hdr, stack and pano with --batch.
#include "brackets.hpp"
#include "program.hpp"
#include "support/cards.hpp"

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

#include <csignal>

namespace orvo::test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

class Batch : public testing::Test
{
protected:
    void SetUp() override
    {
        std::filesystem::create_directory(folder / "card");
        std::filesystem::create_directory(folder / "single");
    }
    Finished run(const std::vector<std::string>& arguments) const
    {
        return runOrvo(arguments, {.workingFolder = folder.path()});
    }
    /// The same by a command of its own; `arguments` end before the files.
    std::string single(std::vector<std::string> arguments, const std::vector<std::string>& files) const
    {
        arguments.insert(arguments.end(), {"-o", "single/out.jpg", "--quiet"});
        for (const std::string& file : files)
            arguments.push_back("card/" + file);
        const Finished finished = run(arguments);
        EXPECT_EQ(finished.exitCode, 0) << finished.err;
        return fileText(folder / "single/out.jpg");
    }
    [[nodiscard]] std::string text(const std::string& name) const { return fileText(folder / name); }

    TemporaryFolder folder;
};

TEST_F(Batch, MakesWhatSingleCommandsMake)
{
    Card card(folder / "card");
    card.bracket({0.0, -2.0, 2.0}, 1, 4.0);
    card.wait(60);
    card.bracket({0.0, -2.0, 2.0}, 2, 4.0);
    card.wait(60);
    card.focusSeries(3, true);
    card.wait(60);
    card.panorama(2, 27.0);
    const Finished hdr = run({"hdr", "--batch", "card", "--align"});
    ASSERT_EQ(hdr.exitCode, 0) << hdr.err;
    EXPECT_THAT(hdr.out, HasSubstr("2 done, 0 skipped, 0 failed in "));
    EXPECT_THAT(hdr.err, HasSubstr("groups of other kinds: 1 focus, 1 panorama"));
    EXPECT_EQ(text("card/IMG_0001-merged.jpg"),
              single({"hdr", "--align"}, {"IMG_0001.jpg", "IMG_0002.jpg", "IMG_0003.jpg"}));
    EXPECT_EQ(text("card/IMG_0004-merged.jpg"),
              single({"hdr", "--align"}, {"IMG_0004.jpg", "IMG_0005.jpg", "IMG_0006.jpg"}));
    ASSERT_EQ(run({"stack", "--batch", "card", "--quiet"}).err, "");
    EXPECT_EQ(text("card/IMG_0007-stacked.jpg"), single({"stack"}, {"IMG_0007.jpg", "IMG_0008.jpg", "IMG_0009.jpg"}));
    ASSERT_EQ(run({"pano", "card", "--batch", "--quiet"}).err, "");
    EXPECT_EQ(text("card/IMG_0010-panorama.jpg"), single({"pano"}, {"IMG_0010.jpg", "IMG_0011.jpg"}));
}

TEST_F(Batch, PanoramasOfBrackets)
{
    Card card(folder / "card");
    card.panorama(2, 27.0, {-1.5, 1.5});
    ASSERT_EQ(run({"pano", "--batch", "card", "--quiet"}).err, "");
    EXPECT_EQ(text("card/IMG_0001-panorama.jpg"),
              single({"pano", "--brackets", "--bracket-size", "2"},
                     {"IMG_0001.jpg", "IMG_0002.jpg", "IMG_0003.jpg", "IMG_0004.jpg"}));
}

TEST_F(Batch, OfAListInAFolderOfResults)
{
    std::filesystem::create_directory(folder / "results");
    Card card(folder / "card");
    card.bracket({0.0, -2.0}, 1);
    card.bracket({0.0, -2.0}, 2);
    std::filesystem::rename(folder / "card/IMG_0003.jpg", folder / "card/with blank.jpg");
    writeText(folder / "list.txt", "# two brackets\n"
                                   "card/IMG_0001.jpg card/IMG_0002.jpg\n"
                                   "'card/with blank.jpg' card/IMG_0004.jpg\n");
    const Finished finished = run({"hdr", "--batch", "list.txt", "-o", "results", "--json"});
    ASSERT_EQ(finished.exitCode, 0) << finished.err;
    EXPECT_THAT(namesIn(folder / "results"), ElementsAre("IMG_0001-merged.jpg", "with blank-merged.jpg"));
    const auto json = nlohmann::json::parse(finished.out);
    EXPECT_EQ(json.at("done"), 2);
    EXPECT_EQ(json.at("jobs")[1].at("state"), "done");
    EXPECT_EQ(json.at("jobs")[1].at("output"), "results/with blank-merged.jpg");
    EXPECT_EQ(json.at("jobs")[1].at("files")[1].at("path"), "card/IMG_0004.jpg");
    EXPECT_EQ(json.at("jobs")[1].at("size").at("width"), 480);
    EXPECT_GT(json.at("peak_memory_bytes").at("process"), 0);
}

TEST_F(Batch, AFailingJobIsNamedAndTheOthersAreMade)
{
    Card card(folder / "card");
    card.bracket({0.0, -2.0}, 1);
    card.bracket({0.0, -2.0}, 2);
    std::filesystem::resize_file(folder / "card/IMG_0001.jpg", 3000);
    writeText(folder / "list.txt", "card/IMG_0001.jpg card/IMG_0002.jpg\n"
                                   "card/IMG_0003.jpg card/IMG_0004.jpg\n"
                                   "card/missing.jpg card/IMG_0004.jpg\n");
    const Finished finished = run({"hdr", "--batch", "list.txt"});
    EXPECT_EQ(finished.exitCode, 1);
    EXPECT_THAT(finished.out, HasSubstr("1 done, 0 skipped, 2 failed in "));
    EXPECT_THAT(finished.err, HasSubstr("IMG_0001.jpg: "));
    EXPECT_THAT(finished.err, HasSubstr("card/missing.jpg: there is no such file"));
    EXPECT_TRUE(std::filesystem::exists(folder / "card/IMG_0003-merged.jpg"));
    EXPECT_FALSE(std::filesystem::exists(folder / "card/IMG_0001-merged.jpg"));
}

TEST_F(Batch, GoesOnWhereItStopped)
{
    Card card(folder / "card");
    card.bracket({0.0, -2.0}, 1);
    card.wait(60);
    card.bracket({0.0, -2.0}, 2);
    ASSERT_EQ(run({"hdr", "--batch", "card", "--quiet"}).exitCode, 0);
    std::filesystem::remove(folder / "card/IMG_0003-merged.jpg");
    const Finished again = run({"hdr", "--batch", "card"});
    EXPECT_EQ(again.exitCode, 0) << again.err;
    EXPECT_THAT(again.out, HasSubstr("skipped      card/IMG_0001-merged.jpg: exists, and no input is newer\n"));
    EXPECT_THAT(again.out, HasSubstr("1 done, 1 skipped, 0 failed in "));
    EXPECT_THAT(run({"hdr", "--batch", "card", "--force"}).out, HasSubstr("2 done, 0 skipped, 0 failed in "));
}

TEST_F(Batch, StaysWithinItsMemory)
{
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "a sanitizer needs much more memory than the program";
#endif
    Card card(folder / "card", {.size = {1800, 1200}});
    std::string list;
    for (int i = 1; i <= 8; i += 2) {
        card.bracket({0.0, -2.0}, 1);
        list += "card/IMG_000" + std::to_string(i) + ".jpg card/IMG_000" + std::to_string(i + 1) + ".jpg\n";
    }
    writeText(folder / "list.txt", list);
    const auto most = [&](const std::string& memory) {
        const Finished finished =
            run({"hdr", "--batch", "list.txt", "--force", "--json", "--threads", "8", "--memory", memory});
        EXPECT_EQ(finished.exitCode, 0) << finished.err;
        constexpr long kKiBPerMiB = 1024;
        EXPECT_LT(finished.peakMemoryKiB, std::stol(memory) * kKiBPerMiB);
        return nlohmann::json::parse(finished.out).at("most_at_once").get<int>();
    };
    EXPECT_EQ(most("200M"), 1);
    EXPECT_EQ(most("300M"), 2);
    EXPECT_EQ(most("2000M"), 4);
}

TEST_F(Batch, KilledInTheMiddleLeavesNoHalfFile)
{
    Card card(folder / "card", {.size = {1200, 800}});
    std::string list;
    for (int i = 1; i <= 8; i += 2) {
        card.bracket({0.0, -2.0}, 1);
        list += "card/IMG_000" + std::to_string(i) + ".jpg card/IMG_000" + std::to_string(i + 1) + ".jpg\n";
    }
    writeText(folder / "list.txt", list);
    const std::vector<std::string> arguments{"hdr", "--batch", "list.txt", "--align", "--deghost", "medium"};
    for (const int signal : {SIGINT, SIGTERM, SIGKILL}) {
        Program program(arguments, {.workingFolder = folder.path()});
        program.waitFor("running the jobs");
        program.send(signal);
        const Finished finished = program.wait();
        if (signal != SIGKILL) {
            EXPECT_EQ(finished.exitCode, 130) << finished.err;
            EXPECT_THAT(finished.out, HasSubstr(" not made in "));
        }
        for (const std::string& name : namesIn(folder / "card")) {
            EXPECT_THAT(name, testing::StartsWith("IMG_"));
            if (name.find("-merged") != std::string::npos) {
                EXPECT_EQ(run({"frames", "card/" + name}).exitCode, 0) << name << " is not whole";
            }
        }
    }
    const Finished rest = run(arguments);
    EXPECT_EQ(rest.exitCode, 0) << rest.err;
    EXPECT_THAT(rest.out, HasSubstr(" skipped, 0 failed in "));
    EXPECT_THAT(namesIn(folder / "card"), testing::SizeIs(12));
}

TEST_F(Batch, WrongUsage)
{
    Card card(folder / "card");
    card.bracket({0.0, -2.0}, 1);
    writeText(folder / "list.txt", "'card/IMG_0001.jpg\n");
    const auto expect = [&](const std::vector<std::string>& arguments, int exitCode, const std::string& message) {
        const Finished finished = run(arguments);
        EXPECT_EQ(finished.exitCode, exitCode) << message;
        EXPECT_THAT(finished.err, HasSubstr(message));
    };
    expect({"hdr", "--batch"}, 2, "--batch needs a list, files or folders");
    expect({"hdr", "--batch", "list.txt"}, 1, "list.txt: line 1 ends");
    expect({"hdr", "--batch", "list.txt", "card"}, 2, "list.txt: this is a list");
    expect({"hdr", "--batch", "card", "-o", "none"}, 1, "none: there is no such folder");
    expect({"hdr", "--batch", "card", "--memory", "much"}, 2,
           "expected a number of bytes such as 8G or 500M, found much");
    expect({"hdr", "card", "--memory", "8G"}, 2, "--batch");
    expect({"pano", "--batch", "card", "--video", "card/IMG_0001.jpg"}, 2, "not a video");
    expect({"hdr"}, 2, "FILES is required");
}

} // namespace
} // namespace orvo::test
