#include "bracket/align_frames.hpp"
#include "bracket/inscribed_rect.hpp"
#include "support/pictures.hpp"

#include <orvo_common/failure.hpp>
#include <orvo_core/parallel.hpp>
#include <orvo_logger/log_capture.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <opencv2/imgproc.hpp>

#include <array>
#include <set>
#include <tuple>

using namespace orvo;
using namespace orvo::test;
using testing::Contains;
using testing::ElementsAre;
using testing::StartsWith;

namespace {

HDRFrame frameOf(std::shared_ptr<Picture> picture)
{
    HDRFrame frame;
    frame.image = std::move(picture);
    return frame;
}

std::vector<HDRFrame> shiftedFrames(const std::vector<std::array<double, 2>>& shifts, int width = 480, int height = 360)
{
    std::vector<HDRFrame> frames;
    for (const auto& shift : shifts)
        frames.push_back(frameOf(textured(width, height, shift[0], shift[1])));
    return frames;
}

// Rotates the texture about the centre of the frame.
std::shared_ptr<Picture> turned(int width, int height, double degrees)
{
    const double a = degrees * 3.14159265358979 / 180;
    return drawn(width, height, [=](int px, int py) {
        const double x = px - width / 2.0;
        const double y = py - height / 2.0;
        return texture(std::cos(a) * x - std::sin(a) * y + width / 2.0,
                       std::sin(a) * x + std::cos(a) * y + height / 2.0);
    });
}

// Nearest-neighbour warping leaves at most half a pixel in each direction.
double meanDifference(const Picture& a, const Picture& b)
{
    double sum = 0;
    for (std::size_t i = 0; i < a.pixelCount(); ++i)
        sum += static_cast<double>(std::abs(a.data()[i].r - b.data()[i].r));
    return sum / static_cast<double>(a.pixelCount());
}

} // namespace

TEST(AlignFrames, AlignsShiftedFrames)
{
    auto frames = shiftedFrames({{0, 0}, {6, -4}, {-5, 8}});
    alignFrames(frames, 1, true);
    const auto size = frames[0].image->size();
    EXPECT_LT(size.width, 480);
    EXPECT_LT(size.height, 360);
    EXPECT_GE(size.width, 432);
    for (const HDRFrame& frame : frames) {
        EXPECT_EQ(frame.image->size(), size);
        EXPECT_LT(meanDifference(*frame.image, *frames[1].image), 0.01);
    }
}

TEST(AlignFrames, WithoutCropTheResultIsTheFrameItself)
{
    // The rectangle around all warped frames is larger than the frame, so the alignment is given up.
    auto frames = shiftedFrames({{0, 0}, {6, -4}});
    const auto before = frames[1].image;
    const LogCapture capture;
    alignFrames(frames, 0, false);
    EXPECT_EQ(frames[0].image->size(), _Size<int>(480, 360));
    EXPECT_TRUE(sameBytes(*frames[1].image, *before));
    EXPECT_NE(frames[1].image, before) << "a copy of its own";
    EXPECT_THAT(capture.texts(LogMessageType::Progress),
                ElementsAre("[Alignment] Alignment scale: 1", "[Alignment] Failed to align frame #0",
                            "[Alignment] Failed to align frame #1"));
}

TEST(AlignFrames, AlignsAcrossExposures)
{
    auto frames = shiftedFrames({{0, 0}, {4, 3}});
    for (std::size_t i = 0; i < frames[0].image->pixelCount(); ++i) {
        auto& p = frames[0].image->data()[i];
        p = {p.r * 0.5f, p.g * 0.5f, p.b * 0.5f};
    }
    alignFrames(frames, 1, true);
    auto& dark = *frames[0].image;
    for (std::size_t i = 0; i < dark.pixelCount(); ++i)
        dark.data()[i].r *= 2.0f;
    EXPECT_LT(meanDifference(dark, *frames[1].image), 0.01);
}

TEST(AlignFrames, KeyPointsAreFoundAtTheExposureOfTheSecondOfEachPair)
{
    // So dark that there are no key points in it as it is.
    auto frames = shiftedFrames({{0, 0}, {4, 3}});
    constexpr float kDark = 0.03f;
    for (std::size_t i = 0; i < frames[0].image->pixelCount(); ++i) {
        auto& p = frames[0].image->data()[i];
        p = {p.r * kDark, p.g * kDark, p.b * kDark};
    }
    const LogCapture capture;
    alignFrames(frames, 1, true);
    EXPECT_THAT(capture.texts(LogMessageType::Warning), testing::IsEmpty());
    auto& dark = *frames[0].image;
    for (std::size_t i = 0; i < dark.pixelCount(); ++i)
        dark.data()[i].r /= kDark;
    EXPECT_LT(meanDifference(dark, *frames[1].image), 0.01);
}

TEST(AlignFrames, ASideUpTo1024KeepsItsScale)
{
    auto frames = shiftedFrames({{0, 0}}, 300, 1024);
    const LogCapture capture;
    alignFrames(frames, 0, true);
    EXPECT_THAT(capture.texts(LogMessageType::Progress), ElementsAre("[Alignment] Alignment scale: 1"));
}

TEST(AlignFrames, ALargerSideIsScaledDown)
{
    auto frames = shiftedFrames({{0, 0}}, 2048, 2560);
    const LogCapture capture;
    alignFrames(frames, 0, true);
    EXPECT_THAT(capture.texts(LogMessageType::Progress), ElementsAre("[Alignment] Alignment scale: 0.5"));
}

TEST(AlignFrames, OneFrameIsTheCommonRectangle)
{
    auto frames = shiftedFrames({{0, 0}}, 100, 80);
    const auto before = frames[0].image;
    alignFrames(frames, 0, true);
    EXPECT_TRUE(sameBytes(*frames[0].image, *before));
}

TEST(AlignFrames, TooMuchRotationFailsAllFrames)
{
    std::vector<HDRFrame> frames = {frameOf(turned(480, 360, 0)), frameOf(turned(480, 360, 0.3)),
                                    frameOf(turned(480, 360, 9))};
    std::vector<std::shared_ptr<Picture>> before;
    for (const HDRFrame& frame : frames)
        before.push_back(frame.image);
    const LogCapture capture;
    alignFrames(frames, 0, true);
    for (std::size_t k = 0; k < 3; ++k)
        EXPECT_TRUE(sameBytes(*frames[k].image, *before[k])) << k;
    EXPECT_THAT(capture.texts(LogMessageType::Progress),
                ElementsAre("[Alignment] Alignment scale: 1", "[Alignment] Failed to align frame #0",
                            "[Alignment] Failed to align frame #1", "[Alignment] Failed to align frame #2"));
}

TEST(AlignFrames, APairThatFailsCountsAsUnmoved)
{
    // A blank frame in the middle: both its pairs fail, and no frame moves.
    std::vector<HDRFrame> frames = {frameOf(textured(480, 360)), frameOf(plain(480, 360, 0.4f)),
                                    frameOf(textured(480, 360))};
    const auto before = frames[2].image;
    const LogCapture capture;
    alignFrames(frames, 1, true);
    EXPECT_EQ(capture.texts(LogMessageType::Warning).size(), 2u);
    EXPECT_TRUE(sameBytes(*frames[2].image, *before));
}

TEST(AlignFrames, ABlankFirstFrameTakesThePointsOfTheSecond)
{
    std::vector<HDRFrame> frames = {frameOf(plain(480, 360, 0.4f)), frameOf(textured(480, 360)),
                                    frameOf(textured(480, 360, 3, 2))};
    const LogCapture capture;
    alignFrames(frames, 1, true);
    // Key points of one side only: found 0 is what an unmatched side gives; here the first frame has points again and
    // is compared with them.
    EXPECT_THAT(capture.texts(LogMessageType::Warning), testing::SizeIs(1));
    EXPECT_LT(meanDifference(*frames[1].image, *frames[2].image), 0.01);
}

TEST(AlignFrames, KeepsTheColourProfile)
{
    auto frames = shiftedFrames({{0, 0}, {2, 1}});
    frames[0].image->setColorProfile(ColorProfileType::linearMelissaRGB());
    alignFrames(frames, 0, true);
    EXPECT_TRUE(*frames[0].image->colorProfile() == *ColorProfileType::linearMelissaRGB());
}

TEST(AlignFrames, ALargerFrameIsReadAsIfItHadTheSizeOfTheFirst)
{
    std::vector<HDRFrame> frames = {frameOf(textured(480, 360)), frameOf(textured(500, 400))};
    alignFrames(frames, 0, true);
    EXPECT_EQ(frames[0].image->size(), frames[1].image->size());
}

TEST(AlignFrames, ASmallerFrameIsRefused)
{
    std::vector<HDRFrame> frames = {frameOf(textured(480, 360)), frameOf(textured(100, 100))};
    EXPECT_THROW(alignFrames(frames, 0, true), FailureError);
}

TEST(AlignFrames, DoesNotDependOnThreads)
{
    auto many = shiftedFrames({{0, 0}, {5.3, -3.7}, {-2, 4.4}});
    auto single = shiftedFrames({{0, 0}, {5.3, -3.7}, {-2, 4.4}});
    alignFrames(many, 1, true);
    {
        const WorkerLimit limit(1);
        alignFrames(single, 1, true);
    }
    for (std::size_t k = 0; k < 3; ++k)
        EXPECT_TRUE(sameBytes(*many[k].image, *single[k].image)) << k;
}

TEST(AlignFrames, WarpsToTheNearestPixel)
{
    // No interpolation: each pixel of the result is a pixel of the frame.
    auto frames = shiftedFrames({{0, 0}, {5.4, -3.3}});
    std::set<std::tuple<float, float, float>> before;
    for (std::size_t i = 0; i < frames[1].image->pixelCount(); ++i) {
        const auto& p = frames[1].image->data()[i];
        before.emplace(p.r, p.g, p.b);
    }
    alignFrames(frames, 0, true);
    ASSERT_LT(frames[1].image->width(), 480);
    std::size_t mixed = 0;
    for (std::size_t i = 0; i < frames[1].image->pixelCount(); ++i) {
        const auto& p = frames[1].image->data()[i];
        mixed += before.count({p.r, p.g, p.b}) == 0 ? 1 : 0;
    }
    EXPECT_EQ(mixed, 0u);
}

TEST(AlignFrames, WhatNoPixelOfTheFrameCoversIsBlack)
{
    // Only the first two sides of a warped frame limit the common rectangle, so one that is narrower at its left leaves
    // a corner of it empty.
    constexpr int kWidth = 480;
    constexpr int kHeight = 360;
    const std::vector<cv::Point2f> corners = {{0, 0}, {kWidth, 0}, {kWidth, kHeight}, {0, kHeight}};
    const std::vector<cv::Point2f> placed = {{0, 0}, {kWidth, 0}, {kWidth, kHeight}, {0, kHeight - 30}};
    const cv::Matx33d referenceFromFrame(cv::getPerspectiveTransform(corners, placed));
    std::vector<HDRFrame> frames = {frameOf(textured(kWidth, kHeight)), HDRFrame()};
    frames[1].image = drawn(kWidth, kHeight, [&](int x, int y) {
        const cv::Vec3d seen = referenceFromFrame * cv::Vec3d(x, y, 1);
        return texture(seen[0] / seen[2], seen[1] / seen[2]);
    });
    alignFrames(frames, 0, true);
    const Picture& reference = *frames[0].image;
    const Picture& warped = *frames[1].image;
    ASSERT_NE(warped.size(), _Size<int>(kWidth, kHeight)) << "given up";
    const cv::Rect common =
        inscribedRect(projectedCorners(cv::Mat(referenceFromFrame), kWidth, kHeight), kWidth, kHeight) &
        cv::Rect(0, 0, kWidth, kHeight);
    constexpr double kClearly = 4.0; // pixels beside the rim: the homography is estimated
    int outside = 0;
    int wrong = 0;
    for (int y = 0; y < warped.height(); ++y)
        for (int x = 0; x < warped.width(); ++x) {
            const cv::Vec3d p = referenceFromFrame.inv() * cv::Vec3d(x + common.x, y + common.y, 1);
            const double below = p[1] / p[2] - (kHeight - 1); // of the frame's last row
            const auto& pixel = warped.row(y)[x];
            if (below > kClearly) {
                ++outside;
                wrong += pixel.r != 0.0f || pixel.g != 0.0f || pixel.b != 0.0f ? 1 : 0;
            } else if (below < -kClearly) {
                wrong += std::abs(pixel.r - reference.row(y)[x].r) > 0.1f ? 1 : 0;
            }
        }
    EXPECT_GT(outside, 100);
    EXPECT_EQ(wrong, 0);
}

// The share of a shifted frame that remains.
struct ShareCase
{
    double shiftX;
    double shiftY;
    bool aligned;
};

class SmallestShare : public testing::TestWithParam<ShareCase>
{};

TEST_P(SmallestShare, IsNineTenthsOfEachSide)
{
    const auto [shiftX, shiftY, aligned] = GetParam();
    auto frames = shiftedFrames({{0, 0}, {shiftX, shiftY}}); // 480 x 360
    const LogCapture capture;
    alignFrames(frames, 0, true);
    EXPECT_EQ(capture.texts(LogMessageType::Warning).size(), 0u) << "the pair itself registers";
    EXPECT_EQ(frames[0].image->size() != _Size<int>(480, 360), aligned);
    const auto failure = Contains("[Alignment] Failed to align frame #0");
    if (aligned)
        EXPECT_THAT(capture.texts(LogMessageType::Progress), testing::Not(failure));
    else
        EXPECT_THAT(capture.texts(LogMessageType::Progress), failure);
}

INSTANTIATE_TEST_SUITE_P(AlignFrames, SmallestShare,
                         testing::Values(ShareCase{46, 0, true}, ShareCase{50, 0, false}, ShareCase{-46, 0, true},
                                         ShareCase{-50, 0, false}, ShareCase{0, 34, true}, ShareCase{0, 38, false},
                                         ShareCase{0, -34, true}, ShareCase{0, -38, false}));

TEST(AlignFrames, TheTransformsOfNeighboursAreChainedFromTheReferenceOutwards)
{
    // A rotation and a shift: in the wrong order or direction they are off by a pixel or more.
    const int width = 900;
    const int height = 700;
    const double shift = 36;
    const auto made = [=] {
        std::vector<HDRFrame> frames = {frameOf(turned(width, height, 0)), frameOf(turned(width, height, 1.5)),
                                        HDRFrame()};
        const double a = 1.5 * 3.14159265358979 / 180;
        frames[2].image = drawn(width, height, [=](int px, int py) {
            const double x = px + shift - width / 2.0;
            const double y = py - height / 2.0;
            return texture(std::cos(a) * x - std::sin(a) * y + width / 2.0,
                           std::sin(a) * x + std::cos(a) * y + height / 2.0);
        });
        return frames;
    };
    for (const int reference : {0, 2}) {
        auto frames = made();
        alignFrames(frames, reference, true);
        ASSERT_LT(frames[0].image->width(), width) << reference;
        for (const HDRFrame& frame : frames)
            EXPECT_LT(meanDifference(*frame.image, *frames[static_cast<std::size_t>(reference)].image), 0.009)
                << reference;
    }
}
