// orvo pano
#include "brackets.hpp"
#include "program.hpp"

#include <orvo_io/image_reader.hpp>
#include <scenes/sphere_scene.hpp>

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

#include <filesystem>

namespace orvo::test {
namespace {

using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

class Pano : public testing::Test
{
protected:
    [[nodiscard]] Finished pano(std::vector<std::string> more) const
    {
        more.insert(more.begin(), "pano");
        more.insert(more.end(), views.begin(), views.end());
        return runOrvo(more, {.workingFolder = folder.path()});
    }

    [[nodiscard]] nlohmann::json jsonResult(std::vector<std::string> more) const
    {
        more.insert(more.begin(), {"-o", "out.tif", "--json"});
        const Finished run = pano(more);
        EXPECT_EQ(run.exitCode, 0) << run.err;
        return nlohmann::json::parse(run.out);
    }

    void expectEnd(const std::vector<std::string>& more, int exitCode, const std::vector<std::string>& words) const
    {
        auto arguments = more;
        arguments.insert(arguments.end(), {"-o", "out.jpg"});
        const auto before = namesIn(folder.path());
        const Finished run = pano(arguments);
        EXPECT_EQ(run.exitCode, exitCode) << run.err;
        ASSERT_EQ(run.errLines().size(), exitCode == 1 ? 1u : 2u) << run.err;
        for (const auto& word : words)
            EXPECT_THAT(run.errLines()[0], HasSubstr(word));
        EXPECT_EQ(namesIn(folder.path()), before) << "something was left behind";
    }

    [[nodiscard]] std::shared_ptr<const ImageMetadata> metadataOf(const std::string& name) const
    {
        return ImageReader::readMetadata(folder / name);
    }

    [[nodiscard]] std::string stranger() const
    {
        return names(writeViews(folder.path(), {.views = 1, .scene = 99, .prefix = "stranger"}))[0];
    }

    TemporaryFolder folder;
    std::vector<std::string> views = names(writeViews(folder.path()));
};

scenes::Rotation rotationIn(const nlohmann::json& file)
{
    const auto numbers = file.at("rotation").get<std::vector<double>>();
    EXPECT_THAT(numbers, SizeIs(9));
    scenes::Rotation rotation{};
    std::copy_n(numbers.begin(), std::min<std::size_t>(numbers.size(), 9), rotation.begin());
    return rotation;
}

TEST_F(Pano, EveryFormatCanBeReadAgain)
{
    for (const char* const name : {"out.jpg", "out.png", "out.tif", "out.exr"}) {
        SCOPED_TRACE(name);
        const Finished run = pano({"-o", name, "--max-size", "300"});
        EXPECT_EQ(run.exitCode, 0) << run.err;
        EXPECT_THAT(run.err, IsEmpty());
        EXPECT_THAT(run.out, AllOf(HasSubstr(std::string(name) + ": "), HasSubstr(" pixels from 3 pictures in ")));
        const auto metadata = metadataOf(name);
        ASSERT_TRUE(metadata);
        EXPECT_LE(metadata->size.width, 300);
        EXPECT_GE(metadata->size.width, 290) << "the limit is used";
    }
}

TEST_F(Pano, HasTheResolutionOfThePictures)
{
    const auto json = jsonResult({});
    // Two steps of 22 degrees and half a view on each side, at 400 pixels a radian.
    EXPECT_NEAR(json.at("size").at("width").get<double>(), 679, 25);
    EXPECT_NEAR(json.at("focal_length_pixels").get<double>(), 400, 12);
    EXPECT_EQ(json.at("size").at("width"), metadataOf("out.tif")->size.width);
    EXPECT_EQ(json.at("size").at("height"), metadataOf("out.tif")->size.height);
    EXPECT_EQ(json.at("projection"), "spherical");
    EXPECT_EQ(json.at("bits"), 8);
}

TEST_F(Pano, ReportsPlacesInTheGivenOrder)
{
    std::swap(views[0], views[2]);
    const auto json = jsonResult({"--max-size", "200"});
    ASSERT_THAT(json.at("files"), SizeIs(3));
    for (std::size_t i = 0; i < 3; ++i) {
        EXPECT_EQ(json.at("files")[i].at("path"), views[i]);
        EXPECT_EQ(json.at("files")[i].at("placed"), true);
    }
    const auto left = rotationIn(json.at("files")[2]);
    const auto right = rotationIn(json.at("files")[0]);
    EXPECT_NEAR(scenes::angleBetween(left, right), 2 * kViewStep, 3.0); // the hand shakes by a degree
    EXPECT_LT(left[2], right[2]) << "the camera's axis points to the left of the other's";
}

TEST_F(Pano, NumbersHaveNoMoreDigitsThanTheirAccuracy)
{
    const Finished run = pano({"-o", "out.tif", "--json", "--max-size", "200"});
    const std::string files = run.out.substr(run.out.find("focal_length_pixels"),
                                             run.out.find("\"phases\"") - run.out.find("focal_length_pixels"));
    EXPECT_THAT(files, testing::Not(testing::ContainsRegex("[.][0-9]{8}")));
    EXPECT_THAT(files, testing::Not(HasSubstr("e-")));
    EXPECT_THAT(files, testing::ContainsRegex("[.][0-9]{6}"));
}

TEST_F(Pano, PictureDoesNotDependOnTheOrder)
{
    views = names(writeViews(folder.path(), {.ending = ".png", .exif = false}));
    ASSERT_EQ(pano({"-o", "a.tif", "--max-size", "300"}).exitCode, 0);
    std::swap(views[0], views[1]);
    ASSERT_EQ(pano({"-o", "b.tif", "--max-size", "300"}).exitCode, 0);
    EXPECT_TRUE(fileText(folder / "a.tif") == fileText(folder / "b.tif"));
}

TEST_F(Pano, CopiesMetadataOfTheFirstPlacedPicture)
{
    views.insert(views.begin(), stranger());
    std::swap(views[1], views[3]);
    ASSERT_EQ(pano({"-o", "out.jpg", "--max-size", "200"}).exitCode, 0);
    const auto shutter = [this](const std::string& name) { return metadataOf(name)->shutterSeconds; };
    EXPECT_FLOAT_EQ(shutter("out.jpg"), shutter(views[1]));
    EXPECT_NE(shutter("out.jpg"), shutter(views[0]));
    EXPECT_NE(shutter("out.jpg"), shutter(views[3]));
}

TEST_F(Pano, EveryProjectionGivesItsOwnPicture)
{
    std::vector<std::string> pictures;
    for (const char* const name : {"plane", "cylindrical", "spherical", "fisheye", "planet", "mercator"}) {
        const auto json = jsonResult({"--projection", name, "--max-size", "300"});
        EXPECT_EQ(json.at("projection"), name);
        EXPECT_THAT(json.at("warnings"), IsEmpty());
        pictures.push_back(fileText(folder / "out.tif"));
    }
    for (std::size_t i = 0; i < pictures.size(); ++i)
        for (std::size_t j = 0; j < i; ++j)
            EXPECT_FALSE(pictures[i] == pictures[j]) << i << ' ' << j;
}

TEST_F(Pano, AllOptionsTogether)
{
    const Finished run = pano({"-o", "out.png", "--projection", "cylindrical", "--max-size", "400", "--devignette",
                               "--chromatic", "--lens", "--bits", "8", "--threads", "2"});
    EXPECT_EQ(run.exitCode, 0) << run.err;
    EXPECT_TRUE(metadataOf("out.png"));
}

TEST_F(Pano, SameBytesForAnyNumberOfThreads)
{
    for (const char* const projection : {"spherical", "plane"}) {
        for (const char* const threads : {"1", "2"})
            ASSERT_EQ(
                pano({"-o", std::string(threads) + ".tif", "--threads", threads, "--projection", projection}).exitCode,
                0);
        EXPECT_TRUE(fileText(folder / "1.tif") == fileText(folder / "2.tif")) << projection;
    }
}

TEST_F(Pano, UnrelatedPictureIsLeftOutAndReported)
{
    views.insert(views.begin() + 1, stranger());
    const Finished run = pano({"-o", "out.tif", "--json", "--max-size", "200"});
    ASSERT_EQ(run.exitCode, 0) << run.err;
    EXPECT_THAT(run.errLines(), ElementsAre(AllOf(HasSubstr("note: "), HasSubstr(views[1]), HasSubstr("left out"))));
    const auto json = nlohmann::json::parse(run.out);
    ASSERT_THAT(json.at("files"), SizeIs(4));
    for (std::size_t i = 0; i < 4; ++i)
        EXPECT_EQ(json.at("files")[i].at("placed"), i != 1);
    EXPECT_EQ(rotationIn(json.at("files")[1]), scenes::Rotation{});
    ASSERT_THAT(json.at("warnings"), SizeIs(1));
    EXPECT_THAT(json.at("warnings")[0].get<std::string>(), HasSubstr(views[1]));
    EXPECT_THAT(pano({"-o", "out.tif", "--max-size", "200"}).out, HasSubstr("from 3 pictures"));
    EXPECT_THAT(pano({"-o", "out.tif", "--max-size", "200", "--quiet"}).err, IsEmpty());
}

TEST_F(Pano, PicturesThatDoNotFitTogether)
{
    views = {views[0], stranger()};
    expectEnd({}, 1, {"do not fit together", "neighbours"});
}

TEST_F(Pano, OnePictureAlone)
{
    views.resize(1);
    expectEnd({}, 2, {"two pictures or more"});
}

TEST_F(Pano, UnknownProjection)
{
    expectEnd({"--projection", "globe"}, 2, {"--projection", "globe", "planet"});
    expectEnd({"--projection", ""}, 2, {"--projection"});
}

TEST_F(Pano, MaxSizeOutOfRange)
{
    for (const char* const size : {"0", "-1", "32001", "wide"})
        expectEnd({"--max-size", size}, 2, {"--max-size", size});
}

TEST_F(Pano, SmallestSizes)
{
    for (const int size : {1, 2, 7}) {
        const Finished run = pano({"-o", "out.png", "--max-size", std::to_string(size)});
        ASSERT_EQ(run.exitCode, 0) << run.err;
        EXPECT_EQ(metadataOf("out.png")->size.width, size);
    }
}

TEST_F(Pano, UnreadablePictureIsNamed)
{
    const std::string whole = fileText(folder / views[1]);
    writeText(folder / views[1], whole.substr(0, whole.size() * 6 / 10));
    writeText(folder / "out.jpg", "yesterday's picture");
    expectEnd({}, 1, {views[1]});
    EXPECT_EQ(fileText(folder / "out.jpg"), "yesterday's picture");
}

TEST_F(Pano, BarAndTextFitTheLine)
{
    const auto arguments = [this] {
        std::vector<std::string> all{"pano", "-o", "out.jpg", "--max-size", "200"};
        all.insert(all.end(), views.begin(), views.end());
        return all;
    }();
    const Finished run = runOrvo(arguments, {.workingFolder = folder.path(), .errorIsTerminal = true});
    ASSERT_EQ(run.exitCode, 0) << run.err;
    EXPECT_THAT(run.err, AllOf(HasSubstr("% stitching the pictures"), HasSubstr("100 %")));
    constexpr std::size_t kColumns = 80; // of the test's terminal
    constexpr std::string_view kLineEnd = "\033[K";
    std::size_t begin = 0;
    for (std::size_t end = run.err.find(kLineEnd); end != std::string::npos; end = run.err.find(kLineEnd, begin)) {
        EXPECT_LE(end - begin, kColumns) << run.err.substr(begin, end - begin);
        begin = end + kLineEnd.size();
    }
}

} // namespace
} // namespace orvo::test
