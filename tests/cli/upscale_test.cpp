// orvo upscale
#include "one_picture.hpp"
#include "onnx_writer.hpp"

#include <orvo_io/image_reader.hpp>

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

#include <cstdlib>
#include <filesystem>

namespace orvo::test {
namespace {

using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

class Upscale : public OnePictureTest
{
protected:
    Upscale() : OnePictureTest("upscale", "in.jpg", "out.jpg")
    {
        writeFrame(folder / "in.jpg", {.width = 120, .height = 80});
    }

    [[nodiscard]] Finished upscale(std::vector<std::string> more) const { return runOn("in.jpg", std::move(more)); }

    [[nodiscard]] _Size<int> sizeOf(const std::string& name) const
    {
        const auto metadata = ImageReader::readMetadata(folder / name);
        return metadata ? metadata->size : _Size<int>();
    }
};

TEST_F(Upscale, DoublesInEveryFormat)
{
    for (const char* const name : {"out.jpg", "out.png", "out.tif", "out.exr"}) {
        SCOPED_TRACE(name);
        const Finished run = upscale({"-o", name});
        EXPECT_EQ(run.exitCode, 0) << run.err;
        EXPECT_THAT(run.err, IsEmpty());
        EXPECT_THAT(run.out, HasSubstr(std::string(name) + ": 240 x 160 pixels from 120 x 80 in "));
        EXPECT_EQ(sizeOf(name), (_Size<int>{240, 160}));
    }
}

TEST_F(Upscale, TwoPassesMakeItFourTimes)
{
    ASSERT_EQ(upscale({"-o", "out.jpg", "--passes", "2"}).exitCode, 0);
    EXPECT_EQ(sizeOf("out.jpg"), (_Size<int>{480, 320}));
}

TEST_F(Upscale, UpToFourPasses)
{
    writeFrame(folder / "in.jpg", {.width = 48, .height = 32});
    ASSERT_EQ(upscale({"-o", "out.jpg", "--passes", "4"}).exitCode, 0);
    EXPECT_EQ(sizeOf("out.jpg"), (_Size<int>{768, 512}));
}

TEST_F(Upscale, ResultsThatCannotBeWrittenEndBeforeTheWork)
{
    writeFrame(folder / "in.jpg", {.width = 4608, .height = 48});
    expectEnd({"--passes", "4"}, 1, {"out.jpg: a JPEG has at most 65500 pixels a side, the picture has 73728 x 768"});
    // The scale of a network is known after a trial run.
    writeText(folder / "eight.onnx", ::test::onnx::convolveAndEnlarge(3, {1.0f}, 1, 8));
    expectEnd({"--model", "eight.onnx", "--passes", "2"}, 1, {"out.jpg: a JPEG has at most 65500", "294912 x 3072"});
}

TEST_F(Upscale, CopiesMetadata)
{
    ASSERT_EQ(upscale({"-o", "out.jpg"}).exitCode, 0);
    const auto before = ImageReader::readMetadata(folder / "in.jpg");
    const auto after = ImageReader::readMetadata(folder / "out.jpg");
    ASSERT_TRUE(before && after);
    ASSERT_TRUE(before->hasExposure());
    EXPECT_FLOAT_EQ(after->shutterSeconds, before->shutterSeconds);
    EXPECT_EQ(after->fileProfile->hash(), before->fileProfile->hash());
}

TEST_F(Upscale, EachOptionChangesTheResult)
{
    ASSERT_EQ(upscale({"-o", "plain.tif"}).exitCode, 0);
    const std::string plain = fileText(folder / "plain.tif");
    for (const char* const option : {"--crisp", "--denoise=3"}) {
        SCOPED_TRACE(option);
        ASSERT_EQ(upscale({"-o", "other.tif", option}).exitCode, 0);
        EXPECT_FALSE(fileText(folder / "other.tif") == plain);
    }
    // Options without effect are allowed; there is no face in the room.
    ASSERT_EQ(upscale({"-o", "other.tif", "--no-faces", "--passes", "1", "--denoise", "0"}).exitCode, 0);
    EXPECT_TRUE(fileText(folder / "other.tif") == plain);
}

TEST_F(Upscale, SameBytesForAnyNumberOfThreads)
{
    for (const char* const threads : {"1", "2"})
        ASSERT_EQ(upscale({"-o", std::string(threads) + ".tif", "--denoise", "1", "--threads", threads}).exitCode, 0);
    EXPECT_TRUE(fileText(folder / "1.tif") == fileText(folder / "2.tif"));
}

TEST_F(Upscale, UsesTheScaleOfANetwork)
{
    writeText(folder / "three.onnx", ::test::onnx::convolveAndEnlarge(3, {1.0f}, 1, 3));
    const Finished run = upscale({"-o", "out.png", "--model", "three.onnx", "--no-faces"});
    EXPECT_EQ(run.exitCode, 0) << run.err;
    EXPECT_EQ(sizeOf("out.png"), (_Size<int>{360, 240}));
}

TEST_F(Upscale, NetworkThatCannotBeUsed)
{
    expectEnd({"--model", "nowhere.onnx"}, 1, {"nowhere.onnx", "no such file"});
    expectEnd({"--model", "."}, 1, {".: this is a folder, a network file was expected"});
    writeText(folder / "letter.onnx", "Dear photographer,\nthis is no network.\n");
    expectEnd({"--model", "letter.onnx"}, 1, {"in.jpg", "letter.onnx", "ONNX"});
}

TEST_F(Upscale, ValuesOutOfRange)
{
    expectEnd({"--passes", "5"}, 2, {"--passes", "expected 1 to 4, found 5"});
    expectEnd({"--passes", "0"}, 2, {"--passes"});
    expectEnd({"--denoise", "4"}, 2, {"--denoise", "expected 0 to 3, found 4"});
}

TEST_F(Upscale, SharpensFacesUnlessDisabled)
{
    const char* const data = std::getenv("ORVO_TEST_DATA");
    if (data == nullptr)
        GTEST_SKIP() << "ORVO_TEST_DATA is not set to a folder of real pictures";
    const std::filesystem::path photo = std::filesystem::path(data) / "single/faces_cafe/faces_cafe.jpg";
    if (!std::filesystem::exists(photo))
        GTEST_SKIP() << "there is no " << photo;
    const auto run = [&](const std::vector<std::string>& more) {
        std::vector<std::string> arguments{"upscale", photo, "--quiet", "-o"};
        arguments.insert(arguments.end(), more.begin(), more.end());
        return runOrvo(arguments, {.workingFolder = folder.path()}).exitCode;
    };
    ASSERT_EQ(run({"sharpened.jpg"}), 0);
    ASSERT_EQ(run({"plain.jpg", "--no-faces"}), 0);
    EXPECT_FALSE(fileText(folder / "sharpened.jpg") == fileText(folder / "plain.jpg"));
}

TEST_F(Upscale, JsonContainsBothSizes)
{
    const auto json = nlohmann::json::parse(upscale({"-o", "out.tif", "--json"}).out);
    EXPECT_EQ(json.at("size").at("width"), 240);
    EXPECT_EQ(json.at("size").at("height"), 160);
    EXPECT_EQ(json.at("bits"), 8);
    EXPECT_EQ(json.at("input").at("path"), "in.jpg");
    EXPECT_EQ(json.at("input").at("size").at("width"), 120);
    EXPECT_THAT(json.at("profile").get<std::string>(), HasSubstr("sRGB"));
}

TEST_F(Upscale, LogIsNotWrittenIntoTheNetwork)
{
    writeText(folder / "n.onnx", "bytes");
    expectEnd({"--model", "n.onnx", "--log", "./n.onnx"}, 2, {"n.onnx", "log"});
    EXPECT_EQ(fileText(folder / "n.onnx"), "bytes");
}

} // namespace
} // namespace orvo::test
