// orvo fill
#include "one_picture.hpp"
#include "onnx_writer.hpp"

#include <orvo_io/image_reader.hpp>
#include <orvo_io/image_writer.hpp>

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

#include <cmath>
#include <filesystem>
#include <functional>

namespace orvo::test {
namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::IsEmpty;

using Picture = _ImageData<PixelRGB<float>>;

constexpr _Size<int> kSize{120, 80};
constexpr _Rect<int> kHole{50, 30, 20, 16};

bool inHole(int x, int y)
{
    return x >= kHole.x && y >= kHole.y && x < kHole.x + kHole.width && y < kHole.y + kHole.height;
}

class Fill : public OnePictureTest
{
protected:
    Fill() : OnePictureTest("fill", "in.png", "out.png")
    {
        writeFrame(folder / "photo.jpg", {.width = kSize.width, .height = kSize.height});
        draw("in.png", kSize, [](int x, int y) { // stripes with a red thing before them
            if (x >= kHole.x + 3 && y >= kHole.y + 3 && x < kHole.x + 17 && y < kHole.y + 13)
                return PixelRGB<float>{1.0f, 0.0f, 0.0f};
            return (x + y) % 12 < 5 ? PixelRGB<float>{0.2f, 0.4f, 0.8f} : PixelRGB<float>{0.2f, 0.8f, 0.4f};
        });
        drawMask("mask.png", kSize, inHole);
    }

    void draw(const std::string& name, _Size<int> size, const std::function<PixelRGB<float>(int, int)>& colour) const
    {
        Picture picture(size, ColorProfileType::sRGB());
        for (int y = 0; y < size.height; ++y)
            for (int x = 0; x < size.width; ++x)
                picture.row(y)[x] = colour(x, y);
        ImageWriteSettings settings = writeSettingsForPath(folder / name);
        settings.bits = 8;
        writeImage(folder / name, picture, settings);
    }

    void drawMask(const std::string& name, _Size<int> size, const std::function<bool(int, int)>& inside) const
    {
        draw(name, size, [&](int x, int y) {
            return inside(x, y) ? PixelRGB<float>{1.0f, 1.0f, 1.0f} : PixelRGB<float>{};
        });
    }

    [[nodiscard]] Finished fill(std::vector<std::string> more, const std::string& input = "in.png") const
    {
        return runOn(input, std::move(more));
    }
};

TEST_F(Fill, TakesOutWhatTheMaskMarksAndKeepsTheRest)
{
    const Finished run = fill({"--mask", "mask.png", "-o", "out.png", "--bits", "8"});
    EXPECT_EQ(run.exitCode, 0) << run.err;
    EXPECT_THAT(run.err, IsEmpty());
    EXPECT_THAT(run.out, HasSubstr("out.png: 120 x 80 pixels in "));
    const auto before = read("in.png");
    const auto after = read("out.png");
    ASSERT_TRUE(before && after);
    ASSERT_EQ(after->size(), kSize);
    for (int y = 0; y < kSize.height; ++y)
        for (int x = 0; x < kSize.width; ++x) {
            const PixelRGB<float>& p = after->row(y)[x];
            if (!inHole(x, y))
                ASSERT_EQ(p, before->row(y)[x]) << x << ", " << y;
            else
                ASSERT_NEAR(p.b, (x + y) % 12 < 5 ? 0.8f : 0.4f, 0.05f) << x << ", " << y;
        }
}

TEST_F(Fill, InEveryFormat)
{
    for (const char* const name : {"out.jpg", "out.png", "out.tif", "out.exr"}) {
        SCOPED_TRACE(name);
        ASSERT_EQ(fill({"--mask", "mask.png", "-o", name}).exitCode, 0);
        const auto metadata = ImageReader::readMetadata(folder / name);
        ASSERT_TRUE(metadata);
        EXPECT_EQ(metadata->size, kSize);
    }
}

TEST_F(Fill, TheMaskMayHaveAnotherSize)
{
    drawMask("small.png", {12, 40}, [](int x, int y) { return x >= 5 && x < 7 && y >= 15 && y < 23; });
    ASSERT_EQ(fill({"--mask", "small.png", "-o", "small_out.png"}).exitCode, 0);
    ASSERT_EQ(fill({"--mask", "mask.png", "-o", "out.png"}).exitCode, 0);
    EXPECT_TRUE(fileText(folder / "small_out.png") == fileText(folder / "out.png"));
}

TEST_F(Fill, CarriesMetadata)
{
    ASSERT_EQ(fill({"--mask", "mask.png", "-o", "out.jpg"}, "photo.jpg").exitCode, 0);
    const auto before = ImageReader::readMetadata(folder / "photo.jpg");
    const auto after = ImageReader::readMetadata(folder / "out.jpg");
    ASSERT_TRUE(before && after);
    ASSERT_TRUE(before->hasExposure());
    EXPECT_FLOAT_EQ(after->shutterSeconds, before->shutterSeconds);
    EXPECT_EQ(after->fileProfile->hash(), before->fileProfile->hash());
}

TEST_F(Fill, SameBytesForAnyNumberOfThreads)
{
    for (const char* const threads : {"1", "2"})
        ASSERT_EQ(fill({"--mask", "mask.png", "-o", std::string(threads) + ".png", "--threads", threads}).exitCode, 0);
    EXPECT_TRUE(fileText(folder / "1.png") == fileText(folder / "2.png"));
}

TEST_F(Fill, ByANetwork)
{
    namespace onnx = ::test::onnx;
    // Gives a quarter in all channels, whatever it sees: the picture times 0, the mask times a quarter.
    std::vector<float> weights(12, 0.0f);
    for (std::size_t channel = 0; channel < 3; ++channel)
        weights[4 * channel + 3] = 0.25f;
    onnx::Message graph;
    graph.message(1, onnx::node("Concat", {"image", "mask"}, "both", {onnx::integer("axis", 1)}));
    graph.message(1, onnx::node("Conv", {"both", "w"}, "out",
                                {onnx::integers("kernel_shape", {1, 1}), onnx::integers("strides", {1, 1}),
                                 onnx::integers("pads", {0, 0, 0, 0}), onnx::integers("dilations", {1, 1}),
                                 onnx::integer("group", 1)}));
    graph.text(2, "quarter").message(5, onnx::tensor("w", {3, 4, 1, 1}, weights));
    graph.message(11, onnx::values("image", 3, {64, 64})).message(11, onnx::values("mask", 1, {64, 64}));
    graph.message(12, onnx::values("out", 3, {}));
    writeText(
        folder / "quarter.onnx",
        onnx::Message().number(1, 7).message(8, onnx::Message().text(1, "").number(2, 11)).message(7, graph).bytes);
    const Finished run = fill({"--mask", "mask.png", "-o", "out.png", "--bits", "8", "--model", "quarter.onnx"});
    EXPECT_EQ(run.exitCode, 0) << run.err;
    const auto after = read("out.png");
    ASSERT_TRUE(after);
    EXPECT_NEAR(after->row(38)[60].g, 0.25f, 0.01f);
    EXPECT_EQ(after->row(10)[10], read("in.png")->row(10)[10]);
}

TEST_F(Fill, NetworkThatCannotBeUsed)
{
    expectEnd({"--mask", "mask.png", "--model", "nowhere.onnx"}, 1, {"nowhere.onnx", "no such file"});
    writeText(folder / "letter.onnx", "Dear photographer,\nthis is no network.\n");
    expectEnd({"--mask", "mask.png", "--model", "letter.onnx"}, 1, {"letter.onnx", "ONNX"});
}

TEST_F(Fill, MasksThatCannotBeUsed)
{
    expectEnd({"--mask", "nowhere.png"}, 1, {"nowhere.png", "no such file"});
    expectEnd({"--mask", "in.png"}, 2, {"in.png", "given twice"}); // the picture itself
    writeText(folder / "letter.png", "Dear photographer");
    expectEnd({"--mask", "letter.png"}, 1, {"letter.png"});
    drawMask("white.png", {3, 3}, [](int, int) { return true; });
    expectEnd({"--mask", "white.png"}, 1, {"white.png", "marks all of 120 x 80 pixels"});
    expectEnd({}, 2, {"--mask"});
}

TEST_F(Fill, DoesNotWriteOverItsInputs)
{
    const auto expectRefusal = [&](const std::string& output) {
        const std::string before = fileText(folder / output);
        EXPECT_NE(fill({"--mask", "mask.png", "-o", output}).exitCode, 0);
        EXPECT_TRUE(fileText(folder / output) == before);
    };
    expectRefusal("in.png");
    expectRefusal("mask.png");
    expectEnd({"--mask", "mask.png", "--log", "./mask.png"}, 2, {"mask.png", "log"});
}

TEST_F(Fill, JsonNamesItsInputs)
{
    const auto json = nlohmann::json::parse(fill({"--mask", "mask.png", "-o", "out.tif", "--json"}).out);
    EXPECT_EQ(json.at("size").at("width"), kSize.width);
    EXPECT_EQ(json.at("input").at("path"), "in.png");
    EXPECT_EQ(json.at("mask").at("path"), "mask.png");
    EXPECT_FALSE(json.contains("model"));
    EXPECT_EQ(json.at("phases").at(2).at("name"), "fill");
}

} // namespace
} // namespace orvo::test
