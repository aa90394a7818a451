#include "bracket/align_frames_streaming.hpp"
#include "bracket/frame_matrix.hpp"
#include "support/pictures.hpp"

#include <orvo_logger/log_capture.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace orvo;
using namespace orvo::test;

namespace {

FocusStackerFrame frameOf(std::shared_ptr<Picture> picture)
{
    FocusStackerFrame frame;
    frame.image = std::move(picture);
    return frame;
}

struct Consumed
{
    int index;
    FocusStackerFrame frame;
    _Rect<int> valid;
};

std::vector<Consumed> align(const std::vector<FocusStackerFrame>& frames, std::size_t reference)
{
    std::vector<Consumed> consumed;
    alignFramesStreaming([&](int i) { return frames[static_cast<std::size_t>(i)]; },
                         [&](int i, FocusStackerFrame& frame, _Rect<int> valid) {
                             consumed.push_back({i, frame, valid});
                         },
                         frames.size(), reference);
    return consumed;
}

} // namespace

TEST(FrameMatrix, CopiesThereAndBack)
{
    const auto picture = textured(37, 11);
    cv::Mat mat = cvMatFromFrame(picture->data(), 37, 11);
    EXPECT_EQ(mat.type(), CV_32FC3);
    EXPECT_EQ(mat.at<cv::Vec3f>(5, 6)[0], picture->row(5)[6].r) << "channel for channel, red first";
    const auto back = plain(37, 11, 0);
    matToFrame(mat, back->data());
    EXPECT_TRUE(sameBytes(*picture, *back));
    mat.setTo(0);
    EXPECT_FALSE(sameBytes(*picture, *plain(37, 11, 0))) << "a copy, not a view";
}

TEST(AlignFramesStreaming, HandsOnEveryFrameInOrder)
{
    const auto consumed = align(
        {frameOf(textured(200, 160)), frameOf(textured(200, 160, 1.5, 1)), frameOf(textured(200, 160, -1, 2))}, 1);
    ASSERT_EQ(consumed.size(), 3u);
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(consumed[static_cast<std::size_t>(i)].index, i);
}

TEST(AlignFramesStreaming, TheReferenceGoesOnUnchanged)
{
    const std::vector<FocusStackerFrame> frames = {frameOf(textured(200, 160)), frameOf(textured(200, 160, 2, 1))};
    const auto consumed = align(frames, 1);
    EXPECT_EQ(consumed[1].frame.image, frames[1].image);
    EXPECT_EQ(consumed[1].valid, _Rect<int>(0, 0, 200, 160));
}

TEST(AlignFramesStreaming, WarpsOntoTheReference)
{
    const auto reference = textured(320, 240);
    const auto consumed = align({frameOf(reference), frameOf(textured(320, 240, 3.4, -2.2))}, 0);
    const auto& warped = consumed[1];
    ASSERT_EQ(warped.frame.image->size(), reference->size());
    EXPECT_GT(warped.valid.width, 305);
    EXPECT_LT(warped.valid.width, 320);
    float worst = 0;
    for (int y = warped.valid.y + 1; y < warped.valid.y + warped.valid.height - 1; ++y)
        for (int x = warped.valid.x + 1; x < warped.valid.x + warped.valid.width - 1; ++x)
            worst = std::max(worst, std::abs(warped.frame.image->row(y)[x].r - reference->row(y)[x].r));
    EXPECT_LT(worst, 0.03f);
}

TEST(AlignFramesStreaming, AFrameThatCannotBeRegisteredGoesOnUnwarped)
{
    const auto blank = plain(120, 100, 0.5f);
    const LogCapture capture;
    const auto consumed = align({frameOf(textured(120, 100)), frameOf(blank)}, 0);
    EXPECT_THAT(capture.texts(LogMessageType::Error), testing::ElementsAre("findTransformECC error!"));
    EXPECT_EQ(consumed[1].valid, _Rect<int>(0, 0, 120, 100));
    EXPECT_LT(largestDifference(*consumed[1].frame.image, *blank), 1e-6f);
}

TEST(AlignFramesStreaming, KeepsTheColourProfile)
{
    auto frame = frameOf(textured(120, 100, 1, 0));
    frame.image->setColorProfile(ColorProfileType::sRGB());
    const auto consumed = align({frameOf(textured(120, 100)), frame}, 0);
    EXPECT_TRUE(*consumed[1].frame.image->colorProfile() == *ColorProfileType::sRGB());
}

TEST(AlignFramesStreaming, ASmallerFrameIsRefused)
{
    EXPECT_THROW(align({frameOf(textured(120, 100)), frameOf(textured(60, 50))}, 0), std::invalid_argument);
}

TEST(RegisterECC, TellsWhereTheReferenceLiesInTheFrame)
{
    const cv::Mat t =
        registerECC(frameOf(textured(320, 240)), frameOf(textured(320, 240, 4, -3)), 0.5f, cv::Mat::eye(3, 3, CV_32F));
    EXPECT_EQ(t.type(), CV_32F);
    EXPECT_NEAR(t.at<float>(0, 2), -4.0f, 0.1f);
    EXPECT_NEAR(t.at<float>(1, 2), 3.0f, 0.1f);
}

TEST(RegisterECC, StartsFromTheGivenTransform)
{
    // Too far for correlation to find by itself.
    cv::Mat start = cv::Mat::eye(3, 3, CV_32F);
    start.at<float>(0, 2) = -60.0f;
    const cv::Mat t = registerECC(frameOf(textured(320, 240)), frameOf(textured(320, 240, 61, 0)), 0.5f, start);
    EXPECT_NEAR(t.at<float>(0, 2), -61.0f, 0.2f);
}
