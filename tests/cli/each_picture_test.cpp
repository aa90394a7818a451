// orvo upscale, expand and restore on several pictures: each is a job of its own.
#include "brackets.hpp"
#include "loopback.hpp"
#include "onnx_writer.hpp"
#include "program.hpp"

#include <orvo_io/image_reader.hpp>

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>
#include <service/built_in_answers.hpp>

#include <chrono>

namespace orvo::test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

namespace fs = std::filesystem;

struct EachCommand
{
    std::string name;
    std::string done; ///< in the names of results
    std::vector<std::string> options;
};

void PrintTo(const EachCommand& command, std::ostream* out) { *out << command.name; }

class Folders : public testing::Test
{
protected:
    void SetUp() override
    {
        fs::create_directory(folder / "scans");
        for (const char* const name : {"one.jpg", "two.jpg", "three.jpg"})
            writePicture(name, name[1] == 'n' ? 96 : 120);
    }

    void writePicture(const std::string& name, int width) const
    {
        writeFrame(folder / "scans" / name, {.width = width, .height = 72});
    }
    [[nodiscard]] Finished run(const std::vector<std::string>& arguments) const
    {
        return runOrvo(arguments, {.workingFolder = folder.path()});
    }
    [[nodiscard]] std::string text(const std::string& name) const { return fileText(folder / name); }
    [[nodiscard]] _Size<int> sizeOf(const std::string& name) const
    {
        const auto metadata = ImageReader::readMetadata(folder / name);
        return metadata ? metadata->size : _Size<int>();
    }

    TemporaryFolder folder;
};

class EachPicture : public Folders, public testing::WithParamInterface<EachCommand>
{
protected:
    [[nodiscard]] Finished runEach(const std::vector<std::string>& files, std::vector<std::string> more = {}) const
    {
        std::vector<std::string> arguments{GetParam().name};
        arguments.insert(arguments.end(), GetParam().options.begin(), GetParam().options.end());
        arguments.insert(arguments.end(), files.begin(), files.end());
        arguments.insert(arguments.end(), more.begin(), more.end());
        return run(arguments);
    }
    [[nodiscard]] std::string resultOf(const std::string& stem) const
    {
        return "scans/" + stem + "-" + GetParam().done + ".jpg";
    }
};

TEST_P(EachPicture, OfAFolderBecomesWhatASingleCommandMakes)
{
    writeText(folder / "scans/notes.txt", "no picture");
    const Finished all = runEach({"scans"});
    ASSERT_EQ(all.exitCode, 0) << all.err;
    EXPECT_THAT(all.out, HasSubstr("3 done, 0 skipped, 0 failed in "));
    EXPECT_THAT(all.err, HasSubstr("left out notes.txt (no picture)"));
    for (const std::string stem : {"one", "two", "three"}) {
        ASSERT_EQ(runEach({"scans/" + stem + ".jpg"}, {"-o", "single.jpg", "--quiet"}).exitCode, 0);
        EXPECT_TRUE(text(resultOf(stem)) == text("single.jpg")) << stem;
    }
}

TEST_P(EachPicture, ThatIsDoneIsSkippedAndResultsAreNoInputs)
{
    ASSERT_EQ(runEach({"scans"}, {"--quiet"}).exitCode, 0);
    fs::remove(folder / resultOf("two"));
    const Finished again = runEach({"scans/one.jpg", resultOf("one"), "scans/two.jpg"});
    EXPECT_EQ(again.exitCode, 0) << again.err;
    EXPECT_THAT(again.out, HasSubstr("1 done, 1 skipped, 0 failed in "));
    EXPECT_THAT(again.err, HasSubstr("(a result)"));
    EXPECT_THAT(runEach({"scans"}, {"--force"}).out, HasSubstr("3 done, 0 skipped, 0 failed in "));
}

TEST_P(EachPicture, ThatFailsDoesNotStopTheOthers)
{
    fs::resize_file(folder / "scans/two.jpg", 700);
    const Finished finished = runEach({"scans/two.jpg", "scans/missing.jpg", "scans/one.jpg"}, {"--json"});
    EXPECT_EQ(finished.exitCode, 1);
    EXPECT_THAT(finished.err, HasSubstr("scans/two.jpg: "));
    EXPECT_THAT(finished.err, HasSubstr("scans/missing.jpg: there is no such file"));
    EXPECT_THAT(finished.err, HasSubstr("2 of 3 jobs failed"));
    const auto json = nlohmann::json::parse(finished.out);
    EXPECT_EQ(json.at("done"), 1);
    EXPECT_EQ(json.at("failed"), 2);
    EXPECT_EQ(json.at("jobs")[0].at("state"), "failed");
    EXPECT_EQ(json.at("jobs")[2].at("output"), resultOf("one"));
    EXPECT_EQ(json.at("jobs")[2].at("files")[0].at("path"), "scans/one.jpg");
    EXPECT_TRUE(fs::exists(folder / resultOf("one")));
    EXPECT_FALSE(fs::exists(folder / resultOf("two")));
}

TEST_P(EachPicture, ReplacesNoFileUnlessForced)
{
    writeText(folder / resultOf("one"), "mine");
    fs::last_write_time(folder / resultOf("one"), fs::file_time_type::clock::now() - std::chrono::hours(1));
    const Finished finished = runEach({"scans/one.jpg", "scans/two.jpg"});
    EXPECT_EQ(finished.exitCode, 1);
    EXPECT_THAT(finished.err, HasSubstr(resultOf("one") + ": the file exists already"));
    EXPECT_EQ(text(resultOf("one")), "mine");
    EXPECT_TRUE(fs::exists(folder / resultOf("two")));
    EXPECT_EQ(runEach({"scans/one.jpg", "scans/two.jpg"}, {"--force", "--quiet"}).exitCode, 0);
    EXPECT_NE(text(resultOf("one")), "mine");
}

TEST_P(EachPicture, IntoAFolderThatExists)
{
    const Finished missing = runEach({"scans"}, {"-o", "results"});
    EXPECT_EQ(missing.exitCode, 1);
    EXPECT_THAT(missing.err, HasSubstr("results: there is no such folder"));
    fs::create_directory(folder / "results");
    ASSERT_EQ(runEach({"scans"}, {"-o", "results", "--quiet"}).exitCode, 0);
    const std::string ending = "-" + GetParam().done + ".jpg";
    EXPECT_THAT(namesIn(folder / "results"), ElementsAre("one" + ending, "three" + ending, "two" + ending));
}

TEST_P(EachPicture, OfAListOrASingleOneByBatch)
{
    writeText(folder / "list.txt", "scans/one.jpg scans/two.jpg # two of a line\nscans/three.jpg\n");
    EXPECT_THAT(runEach({}, {"--batch", "list.txt"}).out, HasSubstr("3 done, 0 skipped, 0 failed in "));
    const Finished one = runEach({"scans/one.jpg"}, {"--batch", "--json"});
    EXPECT_EQ(nlohmann::json::parse(one.out).at("skipped"), 1) << one.err;
}

INSTANTIATE_TEST_SUITE_P(Commands, EachPicture,
                         testing::Values(EachCommand{"upscale", "large", {}}, EachCommand{"restore", "restored", {}},
                                         EachCommand{"expand", "expanded", {"--add", "0,0,10%,0"}}),
                         [](const auto& command) { return command.param.name; });

TEST_F(Folders, EveryPictureIsEnlargedByTheNetwork)
{
    for (int i = 0; i < 8; ++i) // of different sizes, so that jobs begin and end beside others
        writePicture("more" + std::to_string(i) + ".jpg", 60 + 40 * (i % 3));
    writeText(folder / "three.onnx", ::test::onnx::convolveAndEnlarge(3, {1.0f}, 1, 3));
    const Finished finished =
        run({"upscale", "scans", "--model", "three.onnx", "--no-faces", "--threads", "8", "--json"});
    ASSERT_EQ(finished.exitCode, 0) << finished.err;
    const auto json = nlohmann::json::parse(finished.out);
    ASSERT_EQ(json.at("done"), 11);
    for (const auto& job : json.at("jobs"))
        EXPECT_EQ(job.at("size").at("width").get<int>(),
                  3 * sizeOf(job.at("files")[0].at("path").get<std::string>()).width);
}

TEST_F(Folders, AServiceGetsOnePictureAtATime)
{
    const LoopbackService service([](Wire& wire, int) {
        const std::string answer = service::builtInAnswer(
            service::parsedRequest(service::Tool::Restore, bodyOf(wire.receiveMessage())), RunControl::none());
        wire.send(httpAnswer("200 OK", "Content-Type: text/plain\r\n", "data:image/png;base64," + answer));
    });
    const Finished finished = run({"restore", "scans", "--service", service.url(), "--threads", "8", "--json"});
    ASSERT_EQ(finished.exitCode, 0) << finished.err;
    const auto json = nlohmann::json::parse(finished.out);
    EXPECT_EQ(json.at("done"), 3);
    EXPECT_EQ(json.at("most_at_once"), 1);
    EXPECT_EQ(service.connections(), 3);
}

TEST_F(Folders, WhatIsForOnePictureIsRefused)
{
    const auto expect = [&](const std::vector<std::string>& arguments, int exitCode, const std::string& message) {
        const Finished finished = run(arguments);
        EXPECT_EQ(finished.exitCode, exitCode) << message;
        EXPECT_THAT(finished.err, HasSubstr(message));
    };
    expect({"restore", "scans", "--request-only", "x.json"}, 2, "are for one picture");
    expect({"expand", "scans", "--add", "1,1,1,1", "--response", "x.json"}, 2, "are for one picture");
    expect({"fill", "scans", "--mask", "scans/one.jpg"}, 2, "scans: this is a folder, but orvo fill works on one");
    expect({"erase", "scans", "--box", "1,1,9,9"}, 2, "scans: this is a folder, but orvo erase works on one");
    expect({"expand", "scans"}, 2, "either --add or --crop is needed");
    expect({"upscale", "scans/one.jpg", "--memory", "8G"}, 2, "--memory is for several pictures");
    expect({"upscale"}, 2, "FILES is required");
    expect({"upscale", "--batch"}, 2, "--batch needs a list, files or folders");
}

} // namespace
} // namespace orvo::test
