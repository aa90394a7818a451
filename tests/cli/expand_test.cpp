// orvo expand
#include "loopback.hpp"
#include "one_picture.hpp"

#include <orvo_io/image_reader.hpp>
#include <orvo_io/image_writer.hpp>

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>
#include <service/built_in_answers.hpp>

#include <cmath>
#include <filesystem>
#include <fstream>

namespace orvo::test {
namespace {

using testing::HasSubstr;
using testing::IsEmpty;

using Picture = _ImageData<PixelRGB<float>>;

constexpr _Size<int> kSize{201, 135};
constexpr int kRim = 24; // pixels: the answer is tied to the picture within it

class Expand : public OnePictureTest
{
protected:
    Expand() : OnePictureTest("expand", "in.png", "out.png") // stripes over a gradient
    {
        Picture picture(kSize, ColorProfileType::sRGB());
        for (int y = 0; y < kSize.height; ++y)
            for (int x = 0; x < kSize.width; ++x)
                picture.row(y)[x] = y % 12 < 5 ? PixelRGB<float>{0.2f + 0.001f * float(x), 0.3f, 0.7f}
                                               : PixelRGB<float>{0.3f + 0.001f * float(x), 0.6f, 0.2f};
        ImageWriteSettings settings = writeSettingsForPath(folder / "in.png");
        settings.bits = 8;
        writeImage(folder / "in.png", picture, settings);
    }

    [[nodiscard]] Finished expand(std::vector<std::string> more) const { return runOn("in.png", std::move(more)); }

    // The canvas has its size, shows the picture within a step at its place, and stripes like it everywhere.
    void expectExpanded(const std::string& output, const _Rect<int>& canvas) const
    {
        const auto before = read("in.png");
        const auto after = read(output);
        ASSERT_TRUE(before && after);
        ASSERT_EQ(after->size(), canvas.size());
        constexpr float kStep = 1.001f / 255.0f;
        for (int y = 0; y < canvas.height; ++y)
            for (int x = 0; x < canvas.width; ++x) {
                const PixelRGB<float>& p = after->row(y)[x];
                const int px = x + canvas.x;
                const int py = y + canvas.y;
                const bool gray = std::abs(p.r - p.g) < 0.02f && std::abs(p.g - p.b) < 0.02f;
                ASSERT_FALSE(gray) << x << ", " << y << ": not painted";
                if (px < kRim || py < kRim || px >= kSize.width - kRim || py >= kSize.height - kRim)
                    continue;
                ASSERT_NEAR(p.r, before->row(py)[px].r, kStep) << x << ", " << y;
                ASSERT_NEAR(p.g, before->row(py)[px].g, kStep) << x << ", " << y;
                ASSERT_NEAR(p.b, before->row(py)[px].b, kStep) << x << ", " << y;
            }
    }
};

TEST_F(Expand, ToAllSides)
{
    const Finished run = expand({"--add", "17,10%,20,5", "-o", "out.png", "--bits", "8"});
    EXPECT_EQ(run.exitCode, 0) << run.err;
    EXPECT_THAT(run.err, IsEmpty());
    expectExpanded("out.png", {-17, -14, 17 + 201 + 20, 14 + 135 + 5}); // 13.5 pixels are 14
}

TEST_F(Expand, ToOneSide)
{
    ASSERT_EQ(expand({"--add", "0,0,15%,0", "-o", "out.png", "--bits", "8"}).exitCode, 0);
    expectExpanded("out.png", {0, 0, 231, 135});
}

TEST_F(Expand, ACropIsTheSameAsItsWidths)
{
    ASSERT_EQ(expand({"--add", "17,14,20,5", "-o", "added.png"}).exitCode, 0);
    ASSERT_EQ(expand({"--crop", "-17,-14,238,154", "-o", "cropped.png"}).exitCode, 0);
    EXPECT_TRUE(fileText(folder / "added.png") == fileText(folder / "cropped.png"));
}

TEST_F(Expand, ACropMayCutAPartOff)
{
    ASSERT_EQ(expand({"--crop", "-20,30,150,105", "-o", "out.png", "--bits", "8"}).exitCode, 0);
    expectExpanded("out.png", {-20, 30, 150, 105});
}

TEST_F(Expand, InHalvesAndThroughAServiceTheSameBytes)
{
    const std::vector<std::string> canvas{"--add", "20,20,20,20"};
    const auto with = [&](std::vector<std::string> more) {
        more.insert(more.end(), canvas.begin(), canvas.end());
        return expand(more);
    };
    ASSERT_EQ(with({"-o", "own.png"}).exitCode, 0);
    ASSERT_EQ(with({"--request-only", "request.json"}).exitCode, 0);
    const auto request = service::parsedRequest(service::Tool::Expand, fileText(folder / "request.json"));
    std::ofstream(folder / "answer.json")
        << service::answerText(request.id, service::builtInAnswer(request, RunControl::none()));
    ASSERT_EQ(with({"--response", "answer.json", "-o", "halves.png"}).exitCode, 0);
    EXPECT_TRUE(fileText(folder / "halves.png") == fileText(folder / "own.png"));
    expectEnd({"--add", "20,20,20,21", "--response", "answer.json"}, 1, {"answer.json", "another request"});

    std::string path;
    const LoopbackService service([&](Wire& wire, int) {
        const std::string message = wire.receiveMessage();
        path = message.substr(0, message.find(" HTTP"));
        wire.send(httpAnswer("200 OK", "", fileText(folder / "answer.json")));
    });
    ASSERT_EQ(with({"--service", service.url() + "/", "-o", "served.png"}).exitCode, 0);
    EXPECT_EQ(path, "POST /expand");
    EXPECT_TRUE(fileText(folder / "served.png") == fileText(folder / "own.png"));
}

TEST_F(Expand, CanvasesThatCannotBeUsed)
{
    expectEnd({}, 2, {"either --add or --crop is needed"});
    expectEnd({"--add", "1,1,1,1", "--crop", "-1,-1,300,300"}, 2, {"either --add or --crop is needed"});
    for (const char* const add :
         {"1,2,3", "1,2,3,4,5", "1,2,3,-4", "1,2,3,4,", "a,b,c,d", "1,2,3,%", "1,2,3,4%%", "1,2,3,nan"})
        expectEnd({"--add=" + std::string(add)}, 2, {"--add"});
    expectEnd({"--crop", "1,2,3"}, 2, {"--crop"});
    expectEnd({"--add", "0,0,0,0"}, 1, {"in.png", "nothing is to be painted"});
    expectEnd({"--crop", "10,10,50,50"}, 1, {"in.png", "nothing is to be painted"});
    expectEnd({"--crop", "300,10,50,50"}, 1, {"in.png", "shows nothing of the picture"});
    expectEnd({"--add", "100000000%,0,0,0"}, 1, {"in.png", "million are possible"});
    expectEnd({"--add", "1e300,0,0,1e300"}, 1, {"in.png", "million are possible"});
}

} // namespace
} // namespace orvo::test
