// Real camera and player files: they open upright and give key frames that can be stitched.
#include "sources/mf_capture.hpp"
#include "sources/video_frames.hpp"

#include <gtest/gtest.h>
#include <opencv2/core.hpp>

#include <cstdlib>
#include <filesystem>
#include <string>

using namespace orvo;

namespace {

struct RealVideo
{
    std::string name;
    int width; // upright
    int height;
    float fps;
    std::uint64_t frames;
    std::uint64_t start; // of the two seconds or so searched for key frames
    std::uint64_t end;
    std::size_t fewestKeyFrames;
    std::size_t mostKeyFrames;
};

void PrintTo(const RealVideo& video, std::ostream* out) { *out << video.name; }

class RealVideos : public testing::TestWithParam<RealVideo>
{
protected:
    std::filesystem::path file;
    void SetUp() override
    {
        const char* const data = std::getenv("ORVO_TEST_DATA");
        if (data == nullptr)
            GTEST_SKIP() << "ORVO_TEST_DATA names no folder of real videos";
        file = std::filesystem::path(data) / "video" / GetParam().name / (GetParam().name + ".mp4");
    }
};

} // namespace

TEST_P(RealVideos, OpenUprightWithAllFrames)
{
    std::optional<MFCapture> video = openCapture(file);
    ASSERT_TRUE(video);
    EXPECT_NEAR(video->getFps(), GetParam().fps, 0.05f);
    cv::Mat frame;
    video->readFrame(GetParam().frames - 1, frame);
    EXPECT_EQ(frame.size(), cv::Size(GetParam().width, GetParam().height));
    video->readFrame(video->framePosition(), frame);
    EXPECT_TRUE(frame.empty()) << "more frames than there should be";
}

TEST_P(RealVideos, GiveKeyFrames)
{
    const auto frames = selectVideoFrames(
        file, GetParam().start, GetParam().end, [](float) {}, [] { return false; });
    EXPECT_GE(frames.size(), GetParam().fewestKeyFrames);
    EXPECT_LE(frames.size(), GetParam().mostKeyFrames);
    for (const cv::Mat& frame : frames)
        EXPECT_EQ(frame.size(), cv::Size(GetParam().width, GetParam().height));
}

INSTANTIATE_TEST_SUITE_P(, RealVideos,
                         testing::Values(RealVideo{"campus_pan", 1280, 720, 30.0f, 240, 90, 170, 3, 8},
                                         RealVideo{"campus_pan_rot90", 540, 960, 24.0f, 144, 60, 120, 3, 8},
                                         RealVideo{"keyboard_rotated", 720, 1280, 30.0f, 39, 0, 39, 1, 5},
                                         RealVideo{"office_walker", 1280, 720, 25.0f, 148, 0, 60, 1, 4}),
                         [](const auto& test) { return test.param.name; });
