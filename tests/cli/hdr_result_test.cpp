// Merges that succeed: the file, the report, the log.
#include "brackets.hpp"
#include "program.hpp"

#include <orvo_io/image_reader.hpp>

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>
#include <sys/stat.h>

#include <filesystem>

namespace orvo::test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

class HdrResult : public testing::Test
{
protected:
    Finished merge(std::vector<std::string> more)
    {
        more.insert(more.begin(), "hdr");
        more.insert(more.end(), bracket.begin(), bracket.end());
        return runOrvo(more, {.workingFolder = folder.path()});
    }

    [[nodiscard]] std::shared_ptr<const ImageMetadata> metadataOf(const std::string& name) const
    {
        return ImageReader::readMetadata(folder / name);
    }

    TemporaryFolder folder;
    std::vector<std::string> bracket = names(writeBracket(folder.path()));
};

TEST_F(HdrResult, EveryFormatCanBeReadAgain)
{
    for (const char* const name : {"out.jpg", "out.png", "out.tif", "out.exr", "OUT.JPEG", "out.tiff"}) {
        SCOPED_TRACE(name);
        const Finished run = merge({"-o", name});
        EXPECT_EQ(run.exitCode, 0) << run.err;
        EXPECT_THAT(run.err, IsEmpty());
        EXPECT_THAT(run.out, HasSubstr(std::string(name) + ": 240 x 160 pixels from 3 frames"));
        const auto metadata = metadataOf(name);
        ASSERT_TRUE(metadata);
        EXPECT_EQ(metadata->size, (_Size<int>{240, 160}));
    }
}

TEST_F(HdrResult, AllOptionsTogether)
{
    const Finished run = merge({"-o", "out.png", "--align", "--deghost", "2", "--ghost-reference", "2", "--chromatic",
                                "--lens", "--white-balance", "0.5", "--details", "0.3", "--bits", "8"});
    EXPECT_EQ(run.exitCode, 0) << run.err;
    EXPECT_TRUE(metadataOf("out.png"));
}

TEST_F(HdrResult, CopiesMetadataOfTheMiddleFrame)
{
    ASSERT_EQ(merge({"-o", "out.jpg"}).exitCode, 0);
    const auto middle = metadataOf(bracket[kMiddleFrame]);
    const auto merged = metadataOf("out.jpg");
    ASSERT_TRUE(middle && merged);
    ASSERT_TRUE(middle->hasExposure());
    EXPECT_FLOAT_EQ(merged->shutterSeconds, middle->shutterSeconds);
    EXPECT_FLOAT_EQ(merged->isoSpeed, middle->isoSpeed);
    EXPECT_FLOAT_EQ(merged->aperture, middle->aperture);
    EXPECT_EQ(merged->cameraModel, middle->cameraModel);
    EXPECT_EQ(merged->fileProfile->hash(), middle->fileProfile->hash());
}

TEST_F(HdrResult, QuietPrintsNothing)
{
    const Finished run = merge({"-o", "out.jpg", "--quiet"});
    EXPECT_EQ(run.exitCode, 0);
    EXPECT_THAT(run.out, IsEmpty());
    EXPECT_THAT(run.err, IsEmpty());
    EXPECT_TRUE(std::filesystem::exists(folder / "out.jpg"));
}

TEST_F(HdrResult, PlainLinesReportTheSteps)
{
    const Finished run = merge({"-o", "out.jpg"});
    std::size_t at = 0;
    for (const char* const step : {"checking", "reading", "matching", "blending", "finishing", "writing", "out.jpg"}) {
        at = run.out.find(step, at);
        ASSERT_NE(at, std::string::npos) << step << " is missing or out of order in\n" << run.out;
    }
}

TEST_F(HdrResult, JsonContainsEverything)
{
    const Finished run = merge({"--json", "-o", "out.tif"});
    ASSERT_EQ(run.exitCode, 0);
    const auto json = nlohmann::json::parse(run.out);
    EXPECT_EQ(json.at("output"), "out.tif");
    EXPECT_EQ(json.at("size").at("width"), 240);
    EXPECT_EQ(json.at("size").at("height"), 160);
    EXPECT_EQ(json.at("bits"), 16);
    EXPECT_THAT(json.at("profile").get<std::string>(), HasSubstr("sRGB"));
    ASSERT_EQ(json.at("frames").size(), 3u);
    EXPECT_EQ(json.at("frames")[kMiddleFrame].at("ev"), 0.0);
    EXPECT_LT(json.at("frames")[0].at("ev").get<double>(), -1.0);
    EXPECT_GT(json.at("frames")[2].at("ev").get<double>(), 1.0);
    std::vector<std::string> phases;
    for (const auto& phase : json.at("phases")) {
        phases.push_back(phase.at("name"));
        EXPECT_GE(phase.at("milliseconds").get<double>(), 0.0);
    }
    EXPECT_THAT(phases, ElementsAre("check", "load", "ladder", "blend", "finish", "write"));
    EXPECT_GT(json.at("milliseconds").get<double>(), 0.0);
    constexpr std::uint64_t kOnePicture = 240 * 160 * 12; // bytes of one picture of floats
    // The result and one frame.
    EXPECT_GT(json.at("peak_memory_bytes").at("planes").get<std::uint64_t>(), 2 * kOnePicture);
    EXPECT_GT(json.at("peak_memory_bytes").at("process").get<std::uint64_t>(), 2 * kOnePicture);
    EXPECT_TRUE(json.at("warnings").is_array());
}

TEST_F(HdrResult, JsonOfANameThatIsNotUtf8)
{
    std::filesystem::rename(folder / bracket[0], folder / "\xff.jpg");
    bracket[0] = "\xff.jpg";
    const Finished run = merge({"--json", "-o", "out.jpg"});
    EXPECT_EQ(run.exitCode, 0) << run.err;
    const auto frames = nlohmann::json::parse(run.out).at("frames");
    EXPECT_EQ(frames[0].at("path"), "\xEF\xBF\xBD.jpg");
    EXPECT_EQ(frames[0].at("path_hex"), "ff2e6a7067");
    EXPECT_FALSE(frames[1].contains("path_hex"));
}

TEST_F(HdrResult, OneFrameAlone)
{
    bracket.resize(1);
    const Finished run = merge({"--json", "-o", "out.jpg"});
    ASSERT_EQ(run.exitCode, 0) << run.err;
    const auto json = nlohmann::json::parse(run.out);
    std::vector<std::string> phases;
    for (const auto& phase : json.at("phases"))
        phases.push_back(phase.at("name"));
    EXPECT_THAT(phases, ElementsAre("check", "load", "ladder", "blend", "finish", "write"));
}

TEST_F(HdrResult, SameBytesForAnyNumberOfThreads)
{
    for (const char* const threads : {"1", "2"})
        ASSERT_EQ(
            merge({"-o", std::string(threads) + ".tif", "--align", "--deghost", "2", "--threads", threads}).exitCode,
            0);
    EXPECT_TRUE(fileText(folder / "1.tif") == fileText(folder / "2.tif"));
}

TEST_F(HdrResult, FastAlignmentIsAnotherOne)
{
    ASSERT_EQ(merge({"-o", "fine.tif", "--align"}).exitCode, 0);
    ASSERT_EQ(merge({"-o", "fast.tif", "--align", "--fast"}).exitCode, 0);
    EXPECT_FALSE(fileText(folder / "fine.tif") == fileText(folder / "fast.tif"));
    const Finished run = merge({"-o", "out.tif", "--fast"});
    EXPECT_EQ(run.exitCode, 2);
    EXPECT_THAT(run.err, testing::HasSubstr("fast alignment"));
}

TEST_F(HdrResult, OrderOfTheFilesDoesNotMatter)
{
    ASSERT_EQ(merge({"-o", "a.tif"}).exitCode, 0);
    std::swap(bracket[0], bracket[2]);
    ASSERT_EQ(merge({"-o", "b.tif"}).exitCode, 0);
    EXPECT_TRUE(fileText(folder / "a.tif") == fileText(folder / "b.tif"));
}

TEST_F(HdrResult, QualitySetsTheSizeOfAJpeg)
{
    ASSERT_EQ(merge({"-o", "low.jpg", "--quality", "30"}).exitCode, 0);
    ASSERT_EQ(merge({"-o", "high.jpg", "--quality", "98"}).exitCode, 0);
    EXPECT_LT(2 * std::filesystem::file_size(folder / "low.jpg"), std::filesystem::file_size(folder / "high.jpg"));
}

TEST_F(HdrResult, LogIsWritten)
{
    ASSERT_EQ(merge({"-o", "out.jpg", "--log", "run.txt"}).exitCode, 0);
    EXPECT_FALSE(fileText(folder / "run.txt").empty());
    ASSERT_EQ(merge({"-o", "out.jpg", "--log", "."}).exitCode, 0);
    EXPECT_FALSE(fileText(folder / "log_orvo.txt").empty());
}

TEST_F(HdrResult, LogThatCannotBeWritten)
{
    const std::string place = bracket[0] + "/run.txt"; // a file cannot contain files
    const Finished run = merge({"-o", "out.jpg", "--log", place});
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_THAT(run.errLines(), ElementsAre(HasSubstr(place)));
}

TEST_F(HdrResult, LogIntoAPipeIsRefused)
{
    ASSERT_EQ(::mkfifo((folder / "pipe").c_str(), 0600), 0); // opening it waits for a reader
    const Finished run = merge({"-o", "out.jpg", "--log", "pipe"});
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_THAT(run.errLines(), ElementsAre(HasSubstr("pipe")));
}

TEST_F(HdrResult, LogWithoutSpaceIsANote)
{
    const Finished run = merge({"-o", "out.jpg", "--log", "/dev/full"});
    EXPECT_EQ(run.exitCode, 0);
    EXPECT_THAT(run.errLines(), ElementsAre("orvo: note: /dev/full: lines of the log could not be written"));
}

TEST_F(HdrResult, LogIsNeverWrittenIntoTheOutputHoweverItIsSpelled)
{
    std::filesystem::create_directory(folder / "below");
    std::filesystem::create_directory_symlink(".", folder / "link");
    for (const std::string log : {folder / "out.jpg", folder / "below/../out.jpg", folder / "link/out.jpg"}) {
        EXPECT_EQ(merge({"-o", "out.jpg", "--log", log}).exitCode, 2) << log;
        EXPECT_FALSE(std::filesystem::exists(folder / "out.jpg"));
    }
}

TEST_F(HdrResult, LogIsNeverWrittenIntoAPicture)
{
    const std::string before = fileText(folder / bracket[0]);
    const Finished run = merge({"-o", "out.jpg", "--log", "./" + bracket[0]});
    EXPECT_EQ(run.exitCode, 2);
    EXPECT_THAT(run.err, HasSubstr(bracket[0]));
    EXPECT_TRUE(fileText(folder / bracket[0]) == before);
    EXPECT_EQ(merge({"-o", "out.jpg", "--log", "out.jpg"}).exitCode, 2);
}

TEST_F(HdrResult, NamesWithBlanksAccentsBracketsAndDashes)
{
    const std::vector<std::string> strange{"two words.jpg", "vingt-et-un \xC3\xA9t\xC3\xA9s.jpg", "-o.jpg"};
    for (std::size_t i = 0; i < strange.size(); ++i)
        std::filesystem::rename(folder / bracket[i], folder / strange[i]);
    bracket.assign(strange.begin(), strange.end());
    bracket.insert(bracket.begin(), "--");
    EXPECT_EQ(merge({"--output=-out \xC3\xA9.jpg"}).exitCode, 0);
    EXPECT_TRUE(std::filesystem::exists(folder / "-out \xC3\xA9.jpg"));
}

TEST_F(HdrResult, NameInSquareBrackets)
{
    std::filesystem::rename(folder / bracket[0], folder / "[1,2]");
    bracket[0] = "[1,2]";
    EXPECT_EQ(merge({"-o", "out.jpg"}).exitCode, 0);
}

} // namespace
} // namespace orvo::test
