// orvo erase
#include "one_picture.hpp"

#include <orvo_io/base64.hpp>
#include <orvo_io/image_reader.hpp>
#include <orvo_io/image_writer.hpp>

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>
#include <service/built_in_answers.hpp>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <functional>

namespace orvo::test {
namespace {

using testing::HasSubstr;
using testing::IsEmpty;

using Json = nlohmann::json;
using Picture = _ImageData<PixelRGB<float>>;

constexpr _Size<int> kSize{240, 160};
constexpr _Rect<int> kThing{100, 60, 36, 28};
constexpr int kFeather = 4; // pixels; at least three hundredths of the extent of the marks below

bool isWithin(const _Rect<int>& rect, int x, int y, int margin = 0)
{
    return x >= rect.x - margin && y >= rect.y - margin && x < rect.x + rect.width + margin &&
           y < rect.y + rect.height + margin;
}

class Erase : public OnePictureTest
{
protected:
    Erase() : OnePictureTest("erase", "in.png") { drawScene("in.png", ColorProfileType::sRGB(), 8); }

    // A red thing before a smooth ground with stripes.
    void drawScene(const std::string& name, const std::shared_ptr<ColorProfile>& profile, int bits) const
    {
        Picture picture(kSize, profile);
        for (int y = 0; y < kSize.height; ++y)
            for (int x = 0; x < kSize.width; ++x)
                picture.row(y)[x] = isWithin(kThing, x, y) ? PixelRGB<float>{0.95f, 0.05f, 0.02f}
                                    : (x + y) % 24 < 11    ? PixelRGB<float>{0.2f, 0.4f, 0.3f + 0.002f * float(y)}
                                                           : PixelRGB<float>{0.2f, 0.6f, 0.3f + 0.002f * float(y)};
        ImageWriteSettings settings = writeSettingsForPath(folder / name);
        settings.bits = bits;
        settings.profile = profile;
        writeImage(folder / name, picture, settings);
    }

    void drawMask(const std::string& name, _Size<int> size, const std::function<bool(int, int)>& inside) const
    {
        Picture picture(size, ColorProfileType::sRGB());
        for (int y = 0; y < size.height; ++y)
            for (int x = 0; x < size.width; ++x)
                picture.row(y)[x] = inside(x, y) ? PixelRGB<float>{1.0f, 1.0f, 1.0f} : PixelRGB<float>{};
        writeImage(folder / name, picture, writeSettingsForPath(folder / name));
    }

    [[nodiscard]] Finished erase(std::vector<std::string> more, const std::string& input = "in.png") const
    {
        return runOn(input, std::move(more));
    }

    // Nothing red is left in the thing, and what lies outside of the marks and their feather is as in the input within
    // one step of the file.
    void expectErased(const std::string& output, const std::function<bool(int, int)>& mayChange, int bits,
                      const std::string& input = "in.png") const
    {
        const auto before = read(input);
        const auto after = read(output);
        ASSERT_TRUE(before && after);
        ASSERT_EQ(after->size(), kSize);
        const float step = 1.001f / static_cast<float>((1 << bits) - 1);
        for (int y = 0; y < kSize.height; ++y)
            for (int x = 0; x < kSize.width; ++x) {
                const PixelRGB<float>& was = before->row(y)[x];
                const PixelRGB<float>& is = after->row(y)[x];
                if (isWithin(kThing, x, y)) {
                    ASSERT_LT(is.r, is.g + 0.1f) << x << ", " << y;
                } else if (!mayChange(x, y)) {
                    ASSERT_NEAR(is.r, was.r, step) << x << ", " << y;
                    ASSERT_NEAR(is.g, was.g, step) << x << ", " << y;
                    ASSERT_NEAR(is.b, was.b, step) << x << ", " << y;
                }
            }
    }

    void expectSame(const std::string& a, const std::string& b) const
    {
        EXPECT_TRUE(fileText(folder / a) == fileText(folder / b)) << a << " and " << b;
    }
};

constexpr _Rect<int> kBox{96, 56, 44, 36};
constexpr const char* kBoxText = "96,56,44,36";

bool nearBox(int x, int y) { return isWithin(kBox, x, y, kFeather); }

TEST_F(Erase, TakesOutWhatABoxHolds)
{
    const Finished run = erase({"--box", kBoxText, "-o", "out.png", "--bits", "8"});
    EXPECT_EQ(run.exitCode, 0) << run.err;
    EXPECT_THAT(run.err, IsEmpty());
    EXPECT_THAT(run.out, HasSubstr("out.png: 240 x 160 pixels in "));
    expectErased("out.png", nearBox, 8);
}

TEST_F(Erase, AMaskIsTheSameAsItsBox)
{
    drawMask("mask.png", kSize, [](int x, int y) { return isWithin(kBox, x, y); });
    drawMask("small.png", {kSize.width / 4, kSize.height / 4},
             [](int x, int y) { return isWithin(kBox, 4 * x, 4 * y); });
    ASSERT_EQ(erase({"--box", kBoxText, "-o", "box.png"}).exitCode, 0);
    ASSERT_EQ(erase({"--mask", "mask.png", "-o", "masked.png"}).exitCode, 0);
    ASSERT_EQ(erase({"--mask", "small.png", "-o", "small_masked.png"}).exitCode, 0);
    expectSame("masked.png", "box.png");
    expectSame("small_masked.png", "box.png");
}

TEST_F(Erase, MarksAddUp)
{
    drawMask("left.png", kSize, [](int x, int y) { return isWithin({96, 56, 20, 36}, x, y); });
    drawMask("middle.png", kSize, [](int x, int y) { return isWithin({110, 56, 10, 36}, x, y); });
    ASSERT_EQ(erase({"--box", kBoxText, "-o", "box.png"}).exitCode, 0);
    ASSERT_EQ(erase({"--mask", "left.png", "--mask", "middle.png", "--box", "116,56,24,20", "--box", "116,70,24,22",
                     "-o", "all.png"})
                  .exitCode,
              0);
    expectSame("all.png", "box.png");
}

TEST_F(Erase, Strokes)
{
    ASSERT_EQ(erase({"--stroke", "96,67,13;140,67,13", "--stroke", "96,81,13;118,81,11;140,81,13", "-o", "out.png",
                     "--bits", "8"})
                  .exitCode,
              0);
    expectErased(
        "out.png",
        [](int x, int y) {
            return isWithin({82, 53, 72, 42}, x, y, kFeather);
        },
        8);
}

TEST_F(Erase, InAWideProfileAndSixteenBits)
{
    drawScene("wide.tif", ColorProfileType::melissaRGB(), 16);
    ASSERT_EQ(erase({"--box", kBoxText, "-o", "out.tif"}, "wide.tif").exitCode, 0);
    expectErased("out.tif", nearBox, 16, "wide.tif");
    EXPECT_EQ(ImageReader::readMetadata(folder / "out.tif")->fileProfile->hash(),
              ImageReader::readMetadata(folder / "wide.tif")->fileProfile->hash());
}

TEST_F(Erase, CarriesMetadata)
{
    writeFrame(folder / "photo.jpg", {.width = 240, .height = 160});
    ASSERT_EQ(erase({"--box", kBoxText, "-o", "out.jpg"}, "photo.jpg").exitCode, 0);
    const auto before = ImageReader::readMetadata(folder / "photo.jpg");
    const auto after = ImageReader::readMetadata(folder / "out.jpg");
    ASSERT_TRUE(before && after);
    ASSERT_TRUE(before->hasExposure());
    EXPECT_FLOAT_EQ(after->shutterSeconds, before->shutterSeconds);
    EXPECT_EQ(after->fileProfile->hash(), before->fileProfile->hash());
}

TEST_F(Erase, SameBytesForAnyNumberOfThreads)
{
    for (const char* const threads : {"1", "2"})
        ASSERT_EQ(erase({"--box", kBoxText, "-o", std::string(threads) + ".png", "--threads", threads}).exitCode, 0);
    expectSame("1.png", "2.png");
}

TEST_F(Erase, ASecondTimeOverTheFirst)
{
    ASSERT_EQ(erase({"--box", "96,56,30,36", "-o", "once.png", "--bits", "8"}).exitCode, 0);
    ASSERT_EQ(erase({"--box", "110,56,30,36", "-o", "twice.png", "--bits", "8"}, "once.png").exitCode, 0);
    expectErased("twice.png", nearBox, 8);
}

TEST_F(Erase, APictureOfOneColourStaysAsItIs)
{
    drawMask("white.png", {60, 40}, [](int, int) { return true; });
    ASSERT_EQ(erase({"--box", "20,10,10,10", "-o", "out.png", "--bits", "8"}, "white.png").exitCode, 0);
    const auto after = read("out.png");
    for (std::size_t i = 0; i < after->pixelCount(); ++i)
        ASSERT_EQ(after->data()[i], (PixelRGB<float>{1.0f, 1.0f, 1.0f}));
}

// The halves: the request in a file, its answer in another.
class EraseHalves : public Erase
{
protected:
    EraseHalves()
    {
        const Finished run = erase({"--box", kBoxText, "--request-only", "request.json"});
        if (run.exitCode != 0)
            throw std::runtime_error(run.err);
        request = service::parsedRequest(service::Tool::Erase, fileText(folder / "request.json"));
        picture = service::builtInAnswer(request, RunControl::none());
    }

    void write(const std::string& name, const std::string& bytes) const
    {
        std::ofstream(folder / name, std::ios::binary) << bytes;
    }

    service::PictureRequest request;
    std::string picture;
};

TEST_F(EraseHalves, TogetherGiveTheWhole)
{
    ASSERT_EQ(erase({"--box", kBoxText, "-o", "own.png"}).exitCode, 0);
    const auto bytes = bytesOfBase64(picture);
    write("answer.json", service::answerText(request.id, picture));
    write("answer.txt", "data:image/png;base64," + picture);
    write("answer.png", std::string(bytes->begin(), bytes->end()));
    for (const std::string name : {"answer.json", "answer.txt", "answer.png"}) {
        const Finished run = erase({"--box", kBoxText, "--response", name, "-o", "out.png"});
        ASSERT_EQ(run.exitCode, 0) << run.err;
        expectSame("out.png", "own.png");
    }
}

TEST_F(EraseHalves, AnswersThatCannotBeUsed)
{
    write("answer.json", service::answerText(request.id, picture));
    expectEnd({"--box", "90,56,44,36", "--response", "answer.json", "-o", "out.png"}, 1,
              {"answer.json", "another request"});
    write("letter.txt", "Dear photographer");
    expectEnd({"--box", kBoxText, "--response", "letter.txt", "-o", "out.png"}, 1, {"letter.txt", "neither JSON"});
    write("half.txt", "data:image/png;base64," + picture.substr(0, picture.size() / 2));
    expectEnd({"--box", kBoxText, "--response", "half.txt", "-o", "out.png"}, 1, {"half.txt", "damaged"});
    expectEnd({"--box", kBoxText, "--response", "nowhere.txt", "-o", "out.png"}, 1, {"nowhere.txt", "no such file"});
}

TEST_F(EraseHalves, OutputsThatCannotBeUsed)
{
    write("answer.json", service::answerText(request.id, picture));
    const std::string answer = fileText(folder / "answer.json");
    EXPECT_EQ(erase({"--box", kBoxText, "--response", "answer.json", "-o", "answer.json"}).exitCode, 2);
    EXPECT_TRUE(fileText(folder / "answer.json") == answer);
    expectEnd({"--box", kBoxText, "--request-only", "in.png"}, 2, {"in.png", "replace an input"});
    expectEnd({"--box", kBoxText, "--request-only", "nowhere/request.json"}, 1, {"no folder"});
    expectEnd({"--box", kBoxText, "--request-only", "r.json", "-o", "out.png"}, 2, {"out.png", "no other output"});
    expectEnd({"--box", kBoxText, "--request-only", "r.json", "--response", "answer.json"}, 2, {"not both"});
    expectEnd({"--box", kBoxText, "--service", "http://localhost/", "--response", "answer.json", "-o", "out.png"}, 2,
              {"together with a request or response file"});
}

TEST_F(Erase, MarksThatCannotBeUsed)
{
    expectEnd({"-o", "out.png"}, 2, {"nothing is marked"});
    for (const char* const box : {"1,2,3", "1,2,3,4,5", "1,2,0,4", "1,2,3,-4", "1.5,2,3,4", "a,b,c,d", "1,2,3,4 ",
                                  "9999999999,2,3,4", "nan,2,3,4"})
        expectEnd({"--box=" + std::string(box), "-o", "out.png"}, 2, {"--box"});
    for (const char* const stroke : {"1,2", "1,2,0", "1,2,-3", ";", "1,2,3;4", "x,2,3", "1,2,inf"})
        expectEnd({"--stroke=" + std::string(stroke), "-o", "out.png"}, 2, {"--stroke"});
    expectEnd({"--box", "-500,-500,100,100", "-o", "out.png"}, 1, {"in.png", "nothing of the picture is marked"});
    expectEnd({"--stroke", "5000,5000,10", "-o", "out.png"}, 1, {"in.png", "nothing of the picture is marked"});
    expectEnd({"--box", "-5,-5,1000,1000", "-o", "out.png"}, 1, {"in.png", "marks all"});
    drawMask("black.png", {8, 8}, [](int, int) { return false; });
    expectEnd({"--mask", "black.png", "-o", "out.png"}, 1, {"in.png", "nothing of the picture is marked"});
    expectEnd({"--mask", "nowhere.png", "-o", "out.png"}, 1, {"nowhere.png", "no such file"});
}

TEST_F(Erase, JsonNamesTheRequest)
{
    const auto json = Json::parse(erase({"--box", kBoxText, "-o", "out.tif", "--json"}).out);
    EXPECT_EQ(json.at("size").at("width"), kSize.width);
    EXPECT_EQ(json.at("input").at("path"), "in.png");
    EXPECT_THAT(json.at("request").at("id").get<std::string>(), testing::StartsWith("erase-"));
    EXPECT_FALSE(json.contains("service"));
    EXPECT_EQ(json.at("phases").at(3).at("name"), "answer");
}

} // namespace
} // namespace orvo::test
