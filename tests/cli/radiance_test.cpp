// orvo hdr --radiance
#include "brackets.hpp"
#include "program.hpp"

#include <orvo_io/image_reader.hpp>

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

#include <filesystem>

namespace orvo::test {
namespace {

using testing::AllOf;
using testing::HasSubstr;

class HdrRadiance : public testing::Test
{
protected:
    [[nodiscard]] Finished radiance(std::vector<std::string> more) const
    {
        more.insert(more.begin(), "hdr");
        more.insert(more.end(), bracket.begin(), bracket.end());
        return runOrvo(more, {.workingFolder = folder.path()});
    }

    void expectEnd(const std::vector<std::string>& more, int exitCode, const std::vector<std::string>& words) const
    {
        const auto before = namesIn(folder.path());
        const Finished run = radiance(more);
        EXPECT_EQ(run.exitCode, exitCode) << run.err;
        ASSERT_EQ(run.errLines().size(), exitCode == 1 ? 1u : 2u) << run.err;
        for (const auto& word : words)
            EXPECT_THAT(run.errLines()[0], HasSubstr(word));
        EXPECT_EQ(namesIn(folder.path()), before) << "something was left behind";
    }

    TemporaryFolder folder;
    std::vector<std::string> bracket = names(writeBracket(folder.path()));
};

TEST_F(HdrRadiance, IsLinearAndDescribed)
{
    const Finished run = radiance({"--radiance", "out.exr", "--json", "--align"});
    ASSERT_EQ(run.exitCode, 0) << run.err;
    const auto json = nlohmann::json::parse(run.out);
    EXPECT_EQ(json.at("output"), "out.exr");
    EXPECT_EQ(json.at("bits"), 16);
    EXPECT_GT(json.at("white_luminance").get<double>(), 0.0);
    ASSERT_EQ(json.at("frames").size(), 3u);
    EXPECT_EQ(json.at("frames")[kMiddleFrame].at("ev"), 0.0);
    const auto image =
        ImageReader::instance().open({folder / "out.exr", {}}, {}, ImageReaderOpenFlag::Upright, {}, {}, -1);
    ASSERT_TRUE(image);
    EXPECT_TRUE(image->metadata()->fileProfile->isLinear());
    EXPECT_TRUE(image->metadata()->hasExposure());
    float most = 0.0f;
    const auto pixels = image->imageData({}, {}, true);
    for (std::size_t i = 0; i < pixels->pixelCount(); ++i)
        most = std::max(most, pixels->data()[i].g);
    EXPECT_GT(most, 2.0f) << "the window is brighter than the middle frame can show";
    EXPECT_THAT(fileText(folder / "out.exr"), HasSubstr("whiteLuminance"));
}

TEST_F(HdrRadiance, NeedsExposures)
{
    bracket = names(writeBracket(folder.path(), {.exposureData = false}));
    expectEnd({"--radiance", "out.exr"}, 1, {bracket[0], "exposure time", "--evs"});
    expectEnd({"--radiance", "out.exr", "--evs", "-2,0"}, 2, {"2 frames", "3"});
    expectEnd({"--radiance", "out.exr", "--evs", "-2,x,2"}, 2, {"-2,x,2"});
    EXPECT_EQ(radiance({"--radiance", "out.exr", "--evs", "-2,0,2"}).exitCode, 0);
}

TEST_F(HdrRadiance, RefusesWhatBelongsToAPictureToLookAt)
{
    expectEnd({"--radiance", "out.jpg"}, 2, {"out.jpg", ".exr"});
    expectEnd({"--radiance", "out.exr", "-o", "out.jpg"}, 2, {"--output"});
    expectEnd({"--radiance", "out.exr", "--deghost", "medium"}, 2, {"--deghost"});
    expectEnd({"-o", "out.jpg", "--evs", "-2,0,2"}, 2, {"--radiance"});
    expectEnd({"--radiance", bracket[0]}, 2, {bracket[0], "OpenEXR"});
}

} // namespace
} // namespace orvo::test
