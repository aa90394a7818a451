// Inputs of orvo pano that give no panorama: exit code, one line with the cause, no file.
#include "brackets.hpp"
#include "program.hpp"

#include <scenes/pan_file.hpp>
#include <scenes/sphere_view_files.hpp>

#include <gmock/gmock.h>

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

namespace orvo::test {
namespace {

using testing::AllOf;
using testing::HasSubstr;

constexpr int kFailed = 1;
constexpr int kWrongUsage = 2;

class PanoInputs : public testing::Test
{
protected:
    [[nodiscard]] Finished pano(std::vector<std::string> arguments, const std::vector<std::string>& inputs) const
    {
        arguments.insert(arguments.begin(), {"pano", "-o", "out.jpg"});
        arguments.insert(arguments.end(), inputs.begin(), inputs.end());
        return runOrvo(arguments, {.workingFolder = folder.path()});
    }
    /// The line with the cause, below which wrong usage has a hint.
    std::string failure(const std::vector<std::string>& arguments, const std::vector<std::string>& inputs,
                        int exitCode = kFailed) const
    {
        const auto before = namesIn(folder.path());
        const Finished run = pano(arguments, inputs);
        EXPECT_EQ(run.exitCode, exitCode) << run.err;
        EXPECT_EQ(run.errLines().size(), exitCode == kWrongUsage ? 2u : 1u) << run.err;
        EXPECT_EQ(namesIn(folder.path()), before) << "something was left behind";
        return run.errLines().empty() ? std::string() : run.errLines()[0];
    }
    void expectPanorama(const std::vector<std::string>& arguments, const std::vector<std::string>& inputs) const
    {
        const Finished run = pano(arguments, inputs);
        EXPECT_EQ(run.exitCode, 0) << run.err;
        EXPECT_TRUE(std::filesystem::exists(folder / "out.jpg"));
        std::filesystem::remove(folder / "out.jpg");
    }

    /// A pan to the right.
    [[nodiscard]] std::string video(const std::string& name, std::size_t frames,
                                    const scenes::VideoFileSettings& settings = {}) const
    {
        return scenes::writePan(folder / name, frames, settings).string();
    }
    void cutOff(const std::filesystem::path& path, double share) const
    {
        const auto size = static_cast<double>(std::filesystem::file_size(path));
        std::filesystem::resize_file(path, static_cast<std::uintmax_t>(share * size));
    }
    /// Three exposures of each of three views, in this order.
    [[nodiscard]] std::vector<std::string> brackets() const
    {
        scenes::SphereView like;
        like.size = {400, 300};
        like.focal = 400.0;
        std::vector<std::string> files;
        for (scenes::SphereView view : scenes::rowOfViews(3, 22.0, 3.0, like, 1.0, 7))
            for (const double ev : {0.0, -2.0, 2.0}) {
                view.ev = ev;
                files.push_back((folder / ("shot_" + std::to_string(files.size()) + ".jpg")).string());
                scenes::writeSphereView(scenes::SphereScene(), view, files.back());
            }
        return files;
    }

    /// The straight way, and that of the composer.
    const std::vector<std::vector<std::string>> bothWays = {{}, {"--crop", "auto"}};
    TemporaryFolder folder;
};

TEST_F(PanoInputs, OnePicture)
{
    for (const auto& way : bothWays)
        EXPECT_THAT(failure(way, names(writeViews(folder.path(), {.views = 1})), kWrongUsage),
                    HasSubstr("a panorama needs two pictures or more"));
}

TEST_F(PanoInputs, PicturesWithoutOverlap)
{
    auto inputs = names(writeViews(folder.path(), {.views = 1}));
    inputs.push_back(names(writeViews(folder.path(), {.views = 1, .scene = 99, .prefix = "stranger"}))[0]);
    for (const auto& way : bothWays)
        EXPECT_THAT(failure(way, inputs), HasSubstr("the pictures do not fit together"));
}

TEST_F(PanoInputs, OneUnreadableAmongTen)
{
    auto inputs = names(writeViews(folder.path(), {.views = 10}));
    cutOff(folder / inputs[6], 0.02);
    for (const auto& way : bothWays)
        EXPECT_THAT(failure(way, inputs), HasSubstr(inputs[6]));
    writeText(folder / inputs[6], "no picture");
    for (const auto& way : bothWays)
        EXPECT_THAT(failure(way, inputs), AllOf(HasSubstr(inputs[6]), HasSubstr("expected a picture file")));
    std::filesystem::remove(folder / inputs[6]);
    for (const auto& way : bothWays)
        EXPECT_THAT(failure(way, inputs), AllOf(HasSubstr(inputs[6]), HasSubstr("there is no such file")));
}

TEST_F(PanoInputs, MixedSizesFit)
{
    auto inputs = names(writeViews(folder.path(), {.views = 3}));
    inputs[1] = names(writeViews(folder.path(), {.width = 500, .height = 375, .prefix = "larger"}))[1];
    for (const auto& way : bothWays)
        expectPanorama(way, inputs);
}

TEST_F(PanoInputs, BracketsThatAreIncompleteOrOfMixedSizes)
{
    auto inputs = brackets();
    const std::string missing = inputs[4];
    inputs.erase(inputs.begin() + 4);
    EXPECT_THAT(failure({"--brackets"}, inputs), AllOf(HasSubstr("shot_3.jpg"), HasSubstr("2 frames")));
    inputs = brackets();
    std::filesystem::copy_file(writeViews(folder.path(), {.width = 300, .height = 200, .views = 1})[0], inputs[4],
                               std::filesystem::copy_options::overwrite_existing);
    EXPECT_THAT(failure({"--brackets", "--bracket-size", "3"}, inputs), HasSubstr("shot_4.jpg"));
    cutOff(inputs[4], 0.02);
    EXPECT_THAT(failure({"--brackets", "--bracket-size", "3"}, inputs), HasSubstr(missing));
}

TEST_F(PanoInputs, AVideoOfOneFrame)
{
    EXPECT_THAT(failure({"--video", video("one.mp4", 1)}, {}),
                AllOf(HasSubstr("one.mp4"), HasSubstr("fewer than two views that fit together")));
}

TEST_F(PanoInputs, AVideoOfSoundOnly)
{
    scenes::writeSound(folder / "sound.mkv");
    EXPECT_THAT(failure({"--video", (folder / "sound.mkv").string()}, {}),
                AllOf(HasSubstr("sound.mkv"), HasSubstr("expected a video that can be decoded")));
}

TEST_F(PanoInputs, AVideoThatIsCutOff)
{
    // The index is at the end of an MP4 file.
    const std::string mp4 = video("cut.mp4", 40);
    cutOff(mp4, 0.6);
    EXPECT_THAT(failure({"--video", mp4}, {}),
                AllOf(HasSubstr("cut.mp4"), HasSubstr("expected a video that can be decoded")));
    // Of other files the part that is there is used.
    const std::string mkv = video("cut.mkv", 40);
    cutOff(mkv, 0.6);
    expectPanorama({"--video", mkv}, {});
    cutOff(mkv, 0.05);
    EXPECT_THAT(failure({"--video", mkv}, {}), AllOf(HasSubstr("cut.mkv"), HasSubstr("expected")));
}

TEST_F(PanoInputs, AVideoThatIsMissingOrEmpty)
{
    EXPECT_THAT(failure({"--video", (folder / "nowhere.mp4").string()}, {}),
                AllOf(HasSubstr("nowhere.mp4"), HasSubstr("there is no such file")));
    writeText(folder / "empty.mp4", "");
    EXPECT_THAT(failure({"--video", (folder / "empty.mp4").string()}, {}), HasSubstr("empty.mp4"));
}

TEST_F(PanoInputs, AnIntervalBehindTheEndOfTheVideo)
{
    EXPECT_THAT(failure({"--video", video("short.mp4", 20), "--from", "500"}, {}),
                AllOf(HasSubstr("short.mp4"), HasSubstr("expected frame 500, found none that can be read")));
}

} // namespace
} // namespace orvo::test
