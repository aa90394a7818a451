#include "bracket/place_frames.hpp"
#include "support/clouds.hpp"

#include <orvo_core/parallel.hpp>
#include <orvo_logger/log_capture.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <cmath>

using namespace orvo;
using namespace orvo::test;

namespace {

constexpr int kWidth = 640;
constexpr int kHeight = 480;

// Maps pixels of the reference to those of a frame that is turned, scaled, moved and tilted.
cv::Matx33d moved(double degrees, double scale, double x, double y, double tilt = 0.0)
{
    const double angle = degrees * 3.14159265358979 / 180;
    const double c = scale * std::cos(angle);
    const double s = scale * std::sin(angle);
    const cv::Matx33d toMiddle(1, 0, -kWidth / 2.0, 0, 1, -kHeight / 2.0, 0, 0, 1);
    const cv::Matx33d fromMiddle(1, 0, kWidth / 2.0 + x, 0, 1, kHeight / 2.0 + y, 0, 0, 1);
    return fromMiddle * cv::Matx33d(c, -s, 0, s, c, 0, tilt, 0, 1) * toMiddle;
}

// What the camera sees after that movement; `tone` changes each value.
std::shared_ptr<Picture> seen(
    const cv::Matx33d& frameFromReference, const std::function<float(float)>& tone = [](float v) { return v; })
{
    const cv::Matx33d back = frameFromReference.inv();
    return drawn(kWidth, kHeight, [&](int x, int y) {
        const cv::Vec3d p = back * cv::Vec3d(x, y, 1);
        const auto t = texture(p[0] / p[2], p[1] / p[2]);
        return PixelRGB<float>{tone(t.r), tone(t.g), tone(t.b)};
    });
}

// The left or the right half without structure.
std::shared_ptr<Picture> halfBlank(const std::shared_ptr<Picture>& picture, bool left)
{
    for (int y = 0; y < kHeight; ++y)
        std::fill_n(picture->row(y) + (left ? 0 : kWidth * 9 / 20), kWidth * 11 / 20,
                    PixelRGB<float>{0.5f, 0.5f, 0.5f});
    return picture;
}

double cornerError(const cv::Matx33d& a, const cv::Matx33d& b)
{
    double worst = 0;
    for (const double x : {0.0, kWidth - 1.0})
        for (const double y : {0.0, kHeight - 1.0}) {
            const cv::Vec3d p = a * cv::Vec3d(x, y, 1);
            const cv::Vec3d q = b * cv::Vec3d(x, y, 1);
            worst = std::max(worst, std::hypot(p[0] / p[2] - q[0] / q[2], p[1] / p[2] - q[1] / q[2]));
        }
    return worst;
}

FineRegistration registered(const Picture& reference, const Picture& frame, FrameMovement movement)
{
    const FrameStructure first = structureOf(reference);
    return registerFinely({{&first, cv::Matx33d::eye()}}, structureOf(frame), cv::Matx33d::eye(), movement);
}

} // namespace

TEST(RegisterFinely, FindsShiftTurnAndScaleToAFractionOfAPixel)
{
    const auto reference = seen(cv::Matx33d::eye());
    for (const auto& map : {moved(0, 1, 0.37, -0.81), moved(0, 1.014, 0, 0), moved(0.8, 0.99, 12.3, -7.6)}) {
        const auto result = registered(*reference, *seen(map), FrameMovement::Series);
        ASSERT_TRUE(result.found);
        EXPECT_LT(cornerError(result.frameFromReference, map), 0.03);
    }
}

TEST(RegisterFinely, ExposureAndBlurDoNotMatter)
{
    const auto map = moved(0.2, 1.005, 4.4, 3.1);
    const auto darker = seen(map, [](float v) { return 0.05f + 0.3f * v * v; });
    cv::Mat view(kHeight, kWidth, CV_32FC3, darker->data());
    cv::GaussianBlur(view, view, {}, 2.0);
    const auto result = registered(*seen(cv::Matx33d::eye()), *darker, FrameMovement::Series);
    ASSERT_TRUE(result.found);
    EXPECT_LT(cornerError(result.frameFromReference, map), 0.1);
}

TEST(RegisterFinely, ATiltNeedsAHomography)
{
    const auto map = moved(0.3, 1.0, 3.2, -4.1, 4e-5); // corners lie up to 5 pixels off any similarity
    const auto reference = seen(cv::Matx33d::eye());
    const auto frame = seen(map);
    for (const auto movement : {FrameMovement::Hand, FrameMovement::Series}) {
        const auto result = registered(*reference, *frame, movement);
        ASSERT_TRUE(result.found);
        EXPECT_LT(cornerError(result.frameFromReference, map), 0.1);
    }
}

TEST(RegisterFinely, ASeriesWithoutTiltGetsNone)
{
    const auto result = registered(*seen(cv::Matx33d::eye()), *seen(moved(0.3, 1.01, 2, 1)), FrameMovement::Series);
    EXPECT_NEAR(result.frameFromReference(2, 0), 0.0, 1e-12);
    EXPECT_NEAR(result.frameFromReference(2, 1), 0.0, 1e-12);
    EXPECT_NEAR(result.frameFromReference(0, 0), result.frameFromReference(1, 1), 1e-9);
}

TEST(RegisterFinely, WhatHasNothingInCommonIsNotFound)
{
    const cv::Matx33d start(1, 0, 3, 0, 1, 4, 0, 0, 1);
    const auto check = [&](const Picture& a, const Picture& b) {
        const FrameStructure first = structureOf(a);
        const auto result = registerFinely({{&first, cv::Matx33d::eye()}}, structureOf(b), start, FrameMovement::Hand);
        EXPECT_FALSE(result.found);
        EXPECT_EQ(result.frameFromReference, start) << "the start stands";
    };
    check(*clouds(kSkyOfReference), *clouds(kSkyElsewhere));
    check(*textured(120, 100), *plain(120, 100, 0.5f));
    for (const auto& size : {_Size<int>{1, 1}, {1, 60}, {200, 2}})
        check(*textured(size.width, size.height), *textured(size.width, size.height));
}

TEST(RegisterFinely, ANeighbourHelpsWhereTheReferenceShowsNothing)
{
    // The right half of the reference and the left half of the frame are blank; the neighbour shows both.
    const auto map = moved(0.4, 1.01, 5, 2);
    const auto neighbourMap = moved(0.2, 1.005, 2, 1);
    const FrameStructure reference = structureOf(*halfBlank(seen(cv::Matx33d::eye()), false));
    const FrameStructure neighbour = structureOf(*seen(neighbourMap));
    const FrameStructure frame = structureOf(*halfBlank(seen(map), true));
    const auto result = registerFinely({{&reference, cv::Matx33d::eye()}, {&neighbour, neighbourMap}}, frame,
                                       neighbourMap, FrameMovement::Series);
    ASSERT_TRUE(result.found);
    EXPECT_LT(cornerError(result.frameFromReference, map), 1.0) << "the rims of what is blank draw a little";
    const auto alone = registerFinely({{&reference, cv::Matx33d::eye()}}, frame, neighbourMap, FrameMovement::Series);
    EXPECT_TRUE(!alone.found || cornerError(alone.frameFromReference, map) > 2.0);
}

TEST(RegisterFinely, SameForAnyNumberOfThreads)
{
    const auto reference = seen(cv::Matx33d::eye());
    const auto frame = seen(moved(0.8, 0.99, 12.3, -7.6));
    const auto many = registered(*reference, *frame, FrameMovement::Hand).frameFromReference;
    const WorkerLimit limit(1);
    EXPECT_EQ(many, registered(*reference, *frame, FrameMovement::Hand).frameFromReference);
}

TEST(PlaceFrames, ErrorsDoNotAddUp)
{
    std::vector<cv::Matx33d> truth;
    for (int i = 0; i < 5; ++i)
        truth.push_back(moved(0.1 * (i - 2), 1 + 0.004 * (i - 2), 1.3 * (i - 2), -0.7 * (i - 2)));
    const auto structure = [&](std::size_t i) { return structureOf(*seen(truth[i])); };
    const auto maps = placeFrames(5, 2, structure, {}, FrameMovement::Series, RunControl::none());
    ASSERT_EQ(maps.size(), 5u);
    EXPECT_EQ(maps[2].frameFromReference, cv::Matx33d::eye());
    for (std::size_t i = 0; i < 5; ++i) {
        EXPECT_TRUE(maps[i].found) << i;
        EXPECT_LT(cornerError(maps[i].frameFromReference, truth[i]), 0.05) << i;
    }
}

TEST(PlaceFrames, AFrameIsAlsoComparedWithItsNeighbour)
{
    const std::vector<cv::Matx33d> truth = {cv::Matx33d::eye(), moved(0.2, 1.005, 2, 1), moved(0.4, 1.01, 5, 2)};
    const auto structure = [&](std::size_t i) {
        const auto picture = seen(truth[i]);
        return structureOf(i == 1 ? *picture : *halfBlank(picture, i == 2));
    };
    const auto maps = placeFrames(3, 0, structure, {}, FrameMovement::Series, RunControl::none());
    ASSERT_EQ(maps.size(), 3u);
    EXPECT_LT(cornerError(maps[2].frameFromReference, truth[2]), 1.0);
}

TEST(PlaceFrames, AFrameWithoutStructureKeepsItsStart)
{
    const auto structure = [](std::size_t i) {
        return structureOf(i == 1 ? *plain(200, 160, 0.5f) : *textured(200, 160, -static_cast<double>(i), 0));
    };
    const LogCapture capture;
    const auto maps = placeFrames(3, 0, structure, {}, FrameMovement::Series, RunControl::none());
    EXPECT_THAT(capture.texts(LogMessageType::Warning),
                testing::ElementsAre("[Alignment] Frame #1 could not be registered"));
    EXPECT_FALSE(maps[1].found);
    EXPECT_EQ(maps[1].frameFromReference, cv::Matx33d::eye());
    EXPECT_NEAR(maps[2].frameFromReference(0, 2), 2.0, 0.05) << "its other neighbour is the reference";

    const cv::Matx33d start(1, 0, 5, 0, 1, 6, 0, 0, 1);
    const auto started = placeFrames(3, 0, structure, {cv::Matx33d::eye(), start, cv::Matx33d::eye()},
                                     FrameMovement::Series, RunControl::none());
    EXPECT_EQ(started[1].frameFromReference, start);
}

TEST(PlaceFrames, CanBeCancelled)
{
    int asked = 0;
    const RunControl run([&] { return asked > 2; });
    const auto structure = [&](std::size_t i) {
        ++asked;
        return structureOf(*textured(120, 100, static_cast<double>(i), 0));
    };
    EXPECT_TRUE(placeFrames(8, 3, structure, {}, FrameMovement::Hand, run).empty());
    EXPECT_EQ(asked, 3);
}
