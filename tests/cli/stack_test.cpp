// orvo stack
#include "brackets.hpp"
#include "program.hpp"

#include <orvo_io/image_reader.hpp>
#include <orvo_io/image_writer.hpp>

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <filesystem>

namespace orvo::test {
namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

class Stack : public testing::Test
{
protected:
    [[nodiscard]] Finished stack(std::vector<std::string> more) const
    {
        more.insert(more.begin(), "stack");
        more.insert(more.end(), series.begin(), series.end());
        return runOrvo(more, {.workingFolder = folder.path()});
    }

    /// Wrong usage is reported before anything is read.
    void expectWrongUsage(const std::vector<std::string>& more, const std::string& reason) const
    {
        auto arguments = more;
        arguments.insert(arguments.begin(), {"-o", "out.jpg"});
        const Finished run = stack(arguments);
        EXPECT_EQ(run.exitCode, 2);
        EXPECT_THAT(run.errLines(), testing::ElementsAre(HasSubstr(reason), HasSubstr("orvo stack --help")));
        EXPECT_FALSE(std::filesystem::exists(folder / "out.jpg"));
    }

    [[nodiscard]] std::shared_ptr<const ImageMetadata> metadataOf(const std::string& name) const
    {
        return ImageReader::readMetadata(folder / name);
    }

    TemporaryFolder folder;
    std::vector<std::string> series = names(writeFocusSeries(folder.path()));
};

TEST_F(Stack, EveryFormatCanBeReadAgain)
{
    for (const char* const name : {"out.jpg", "out.png", "out.tif", "out.exr"}) {
        SCOPED_TRACE(name);
        const Finished run = stack({"-o", name, "--no-align"});
        EXPECT_EQ(run.exitCode, 0) << run.err;
        EXPECT_THAT(run.err, IsEmpty());
        EXPECT_THAT(run.out, HasSubstr(std::string(name) + ": 240 x 160 pixels from 4 frames in "));
        const auto metadata = metadataOf(name);
        ASSERT_TRUE(metadata);
        EXPECT_EQ(metadata->size, (_Size<int>{240, 160}));
    }
}

TEST_F(Stack, AligningCropsToWhatAllFramesShow)
{
    ASSERT_EQ(stack({"-o", "out.jpg"}).exitCode, 0);
    const auto metadata = metadataOf("out.jpg");
    ASSERT_TRUE(metadata);
    EXPECT_LT(metadata->size.width, 240); // the hand shakes by pixels
    EXPECT_GT(metadata->size.width, 200);
}

TEST_F(Stack, CopiesMetadataOfTheReference)
{
    const auto distance = [this](const std::string& name) { return metadataOf(name)->subjectDistance; };
    ASSERT_EQ(stack({"-o", "out.jpg"}).exitCode, 0);
    EXPECT_FLOAT_EQ(distance("out.jpg"), distance(series[2])); // of four the third is the middle
    ASSERT_EQ(stack({"-o", "first.jpg", "--reference", "1"}).exitCode, 0);
    EXPECT_FLOAT_EQ(distance("first.jpg"), distance(series[0]));
    EXPECT_NE(distance("first.jpg"), distance("out.jpg"));
}

TEST_F(Stack, FilesKeepTheirOrder)
{
    std::swap(series[0], series[3]);
    const auto json = nlohmann::json::parse(stack({"-o", "out.tif", "--json"}).out);
    ASSERT_THAT(json.at("frames"), SizeIs(4));
    for (std::size_t i = 0; i < 4; ++i) {
        EXPECT_EQ(json.at("frames")[i].at("path"), series[i]);
        EXPECT_EQ(json.at("frames")[i].at("number"), i + 1);
    }
    EXPECT_EQ(json.at("reference"), 3);
    EXPECT_EQ(json.at("bits"), 8);
    EXPECT_EQ(json.at("size").at("width"), metadataOf("out.tif")->size.width);
    EXPECT_THAT(json.at("profile").get<std::string>(), HasSubstr("sRGB"));
}

TEST_F(Stack, AllOptionsTogether)
{
    const Finished run = stack({"-o", "out.png", "--reference", "2", "--deghost", "2", "--chromatic", "--lens",
                                "--bits", "8", "--threads", "2"});
    EXPECT_EQ(run.exitCode, 0) << run.err;
    EXPECT_TRUE(metadataOf("out.png"));
}

TEST_F(Stack, DeghostingChangesTheResultWhereSomethingMoves)
{
    // Something dark stands in one frame alone; the ghost reference is the first.
    const auto image =
        ImageReader::instance().open({folder / series[2], {}}, {}, ImageReaderOpenFlag::Bracket, nullptr, {}, -1);
    const auto pixels = image->imageData({}, {}, true);
    for (int y = 50; y < 110; ++y)
        std::fill_n(pixels->row(y) + 90, 50, PixelRGB<float>{0.02f, 0.02f, 0.02f});
    ImageWriteSettings settings = writeSettingsForPath(folder / series[2]);
    settings.profile = pixels->colorProfile();
    writeImage(folder / series[2], *pixels, settings);
    ASSERT_EQ(stack({"-o", "plain.tif", "--no-align"}).exitCode, 0);
    ASSERT_EQ(stack({"-o", "deghosted.tif", "--no-align", "--deghost", "4"}).exitCode, 0);
    EXPECT_FALSE(fileText(folder / "plain.tif") == fileText(folder / "deghosted.tif"));
}

TEST_F(Stack, SameBytesForAnyNumberOfThreads)
{
    for (const char* const threads : {"1", "2"})
        ASSERT_EQ(stack({"-o", std::string(threads) + ".tif", "--threads", threads}).exitCode, 0);
    EXPECT_TRUE(fileText(folder / "1.tif") == fileText(folder / "2.tif"));
}

TEST_F(Stack, ASingleFrameIsTheResult)
{
    series.resize(1);
    const Finished run = stack({"-o", "out.png"});
    EXPECT_EQ(run.exitCode, 0) << run.err;
    EXPECT_EQ(metadataOf("out.png")->size, (_Size<int>{240, 160}));
    EXPECT_THAT(run.errLines(), testing::ElementsAre(AllOf(HasSubstr("note: "), HasSubstr(series[0]))));
}

TEST_F(Stack, ReferenceOutOfRange)
{
    expectWrongUsage({"--reference", "5"}, "the reference is frame number 5, but only 4 were given");
    expectWrongUsage({"--reference", "0"}, "--reference");
    expectWrongUsage({"--reference", "-1"}, "--reference");
}

TEST_F(Stack, FastAlignmentIsAnotherOne)
{
    ASSERT_EQ(stack({"-o", "fine.tif"}).exitCode, 0);
    ASSERT_EQ(stack({"-o", "fast.tif", "--fast"}).exitCode, 0);
    EXPECT_FALSE(fileText(folder / "fine.tif") == fileText(folder / "fast.tif"));
}

TEST_F(Stack, FastWithoutAlignment) { expectWrongUsage({"--no-align", "--fast"}, "fast alignment"); }

TEST_F(Stack, ReferenceThatIsNotUsed) { expectWrongUsage({"--no-align", "--reference", "1"}, "reference"); }

TEST_F(Stack, DeghostOutOfRange) { expectWrongUsage({"--deghost", "5"}, "highest, 0, 1, 2, 3, 4, found 5"); }

TEST_F(Stack, FramesOfDifferentSizes)
{
    writeFrame(folder / "other.jpg", {.width = 150, .height = 100});
    series.emplace_back("other.jpg");
    const Finished run = stack({"-o", "out.jpg"});
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_THAT(run.errLines(),
                testing::ElementsAre(AllOf(HasSubstr("other.jpg"), HasSubstr("150 x 100"), HasSubstr(series[0]))));
    EXPECT_THAT(run.out, testing::Not(HasSubstr("stacking"))) << "it is known before";
    EXPECT_FALSE(std::filesystem::exists(folder / "out.jpg"));
}

TEST_F(Stack, FailureKeepsTheExistingFile)
{
    writeText(folder / "out.jpg", "yesterday's picture");
    const std::string whole = fileText(folder / series[1]);
    writeText(folder / series[1], whole.substr(0, whole.size() * 6 / 10));
    EXPECT_EQ(stack({"-o", "out.jpg"}).exitCode, 1);
    EXPECT_EQ(fileText(folder / "out.jpg"), "yesterday's picture");
}

} // namespace
} // namespace orvo::test
