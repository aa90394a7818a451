// orvo label
#include "brackets.hpp"
#include "program.hpp"

#include <orvo_io/image_reader.hpp>

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

#include <filesystem>

namespace orvo::test {
namespace {

namespace fs = std::filesystem;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

class Label : public testing::Test
{
protected:
    [[nodiscard]] Finished label(const std::vector<std::string>& files, const std::string& output,
                                 std::vector<std::string> more = {}) const
    {
        more.insert(more.begin(), {"label", "-o", output});
        more.insert(more.end(), files.begin(), files.end());
        return runOrvo(more, {.workingFolder = folder.path()});
    }

    /// Copies the first frame to further names.
    void copyAs(const std::vector<std::string>& copies) const
    {
        for (const auto& copy : copies) {
            fs::create_directories((folder / copy).parent_path());
            fs::copy_file(folder / series[0], folder / copy);
        }
    }

    TemporaryFolder folder;
    std::vector<std::string> series =
        names(writeFocusSeries(folder.path(), {.width = 240, .height = 160, .frames = 3}));
};

TEST_F(Label, OnePictureForEachFile)
{
    const Finished run = label(series, "deep/out");
    EXPECT_EQ(run.exitCode, 0) << run.err;
    EXPECT_THAT(run.err, IsEmpty());
    EXPECT_EQ(namesIn(folder / "deep/out"), series);
    for (const auto& name : series) {
        EXPECT_THAT(run.out, HasSubstr("deep/out/" + name + ": 240 x 160 pixels\n"));
        const auto metadata = ImageReader::readMetadata(folder / "deep/out" / name);
        ASSERT_TRUE(metadata);
        EXPECT_EQ(metadata->size, (_Size<int>{240, 160}));
        EXPECT_FLOAT_EQ(metadata->subjectDistance, ImageReader::readMetadata(folder / name)->subjectDistance);
    }
    EXPECT_THAT(run.out, HasSubstr("3 frames in "));
}

TEST_F(Label, EachFrameHasItsOwnLine)
{
    copyAs({"a.jpg", "b.jpg"}); // the same pixels, so that only the label differs
    ASSERT_EQ(label({"a.jpg", "b.jpg"}, "out", {"--format", "png"}).exitCode, 0);
    ASSERT_EQ(label({"a.jpg"}, "alone", {"--format", "png"}).exitCode, 0);
    const std::string a = fileText(folder / "out/a.png");
    EXPECT_FALSE(a == fileText(folder / "out/b.png"));
    EXPECT_FALSE(a == fileText(folder / "alone/a.png")) << "one of one, not of two";
}

TEST_F(Label, FormatAndBits)
{
    const std::vector<std::pair<std::string, std::string>> formats = {
        {"jpeg", ".jpg"}, {"png", ".png"}, {"tiff", ".tif"}, {"exr", ".exr"}};
    for (const auto& [format, ending] : formats) {
        SCOPED_TRACE(format);
        ASSERT_EQ(label({series[0]}, format, {"--format", format}).exitCode, 0);
        EXPECT_THAT(namesIn(folder / format), ElementsAre(fs::path(series[0]).stem().string() + ending));
    }
    const Finished run = label({series[0]}, "out", {"--format", "tiff", "--bits", "8", "--json"});
    EXPECT_EQ(nlohmann::json::parse(run.out).at("frames")[0].at("bits"), 8);
    const Finished wrong = label(series, "wrong", {"--format", "bmp"});
    EXPECT_EQ(wrong.exitCode, 2);
    EXPECT_THAT(wrong.err, AllOf(HasSubstr("--format"), HasSubstr("tiff"), HasSubstr("found bmp")));
    EXPECT_FALSE(fs::exists(folder / "wrong"));
}

TEST_F(Label, FilesWithOneStemGetDifferentNames)
{
    copyAs({"one/a.jpg", "two/a.jpg", "a-2.jpg", "three/A.jpg"});
    const Finished run = label({"one/a.jpg", "two/a.jpg", "a-2.jpg", "three/A.jpg"}, "out", {"--json"});
    ASSERT_EQ(run.exitCode, 0) << run.err;
    std::vector<std::string> outputs;
    const auto json = nlohmann::json::parse(run.out);
    for (const auto& frame : json.at("frames"))
        outputs.push_back(frame.at("output"));
    EXPECT_THAT(outputs, ElementsAre("out/a.jpg", "out/a-3.jpg", "out/a-2.jpg", "out/A-4.jpg"));
    EXPECT_EQ(namesIn(folder / "out").size(), 4u);
}

TEST_F(Label, JsonDescribesEachFrame)
{
    const auto json = nlohmann::json::parse(label(series, "out", {"--json"}).out);
    ASSERT_EQ(json.at("frames").size(), 3u);
    const auto& second = json.at("frames")[1];
    EXPECT_EQ(second.at("path"), series[1]);
    EXPECT_EQ(second.at("number"), 2);
    EXPECT_EQ(second.at("output"), "out/" + series[1]);
    EXPECT_EQ(second.at("size").at("height"), 160);
    EXPECT_EQ(second.at("bits"), 8);
    EXPECT_THAT(second.at("profile").get<std::string>(), HasSubstr("sRGB"));
}

TEST_F(Label, FramesMayDifferInSize)
{
    writeFrame(folder / "other.jpg", {.width = 150, .height = 100});
    ASSERT_EQ(label({series[0], "other.jpg"}, "out").exitCode, 0);
    EXPECT_EQ(ImageReader::readMetadata(folder / "out/other.jpg")->size, (_Size<int>{150, 100}));
}

TEST_F(Label, AnExistingFolderRemains)
{
    fs::create_directory(folder / "out");
    EXPECT_EQ(label({series[0], "nowhere.jpg"}, "out").exitCode, 1);
    EXPECT_TRUE(fs::is_directory(folder / "out"));
    EXPECT_EQ(label(series, "out").exitCode, 0);
    EXPECT_EQ(label(series, "out").exitCode, 0) << "existing pictures are replaced";
    EXPECT_EQ(namesIn(folder / "out"), series);
}

} // namespace
} // namespace orvo::test
