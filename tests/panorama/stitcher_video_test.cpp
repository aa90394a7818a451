// Panoramas of a pan with frames added by hand.
#include "panorama/compute_device.hpp"
#include "panorama_truth.hpp"
#include "support/temporary_folder.hpp"

#include <scenes/video_file.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>

using namespace orvo;
using namespace orvo::test;
using scenes::SphereScene;
using scenes::SphereSubject;
using scenes::SphereView;

namespace {

constexpr std::size_t kFrames = 61;
constexpr double kDegreesAFrame = 1.2;
constexpr int kWidth = 320;
constexpr int kHeight = 240;
constexpr double kBallRadius = 3.0; // degrees

// A ball visible in one frame only, between those examined for key frames.
struct Moment
{
    std::uint64_t shown;   // the frame
    std::uint64_t request; // the number that reads it: the capture's counter is ahead by one per earlier read
    double right;          // degrees from the middle of the frame
    double up;
};

constexpr Moment kFirst{31, 31, 5.0, -6.0};
constexpr Moment kSecond{46, 47, -8.0, 7.0};

double yawOf(std::uint64_t frame) { return kDegreesAFrame * static_cast<double>(frame); }

SphereView viewOf(std::uint64_t frame)
{
    SphereView view;
    view.size = {kWidth, kHeight};
    view.focal = kWidth;
    view.rotation = scenes::rotationOf(yawOf(frame), 0.0, 0.0);
    for (const Moment& moment : {kFirst, kSecond})
        if (moment.shown == frame)
            view.subject = SphereSubject{yawOf(frame) + moment.right, moment.up, kBallRadius};
    return view;
}

// A frame's rectangle about its ball.
_Rect<int> rectOf(const Moment& moment)
{
    const double degree = std::numbers::pi / 180.0;
    const int x = static_cast<int>(kWidth * (0.5 + std::tan(moment.right * degree)));
    const int y = static_cast<int>(0.5 * kHeight - kWidth * std::tan(moment.up * degree));
    return {x - 28, y - 28, 56, 56};
}

class StitcherVideo : public testing::Test
{
protected:
    TemporaryFolder folder;
    PanoSourceVideo source;

    void SetUp() override
    {
        forceCpu() = true;
        const SphereScene scene;
        const auto draw = [&scene](std::size_t index, std::uint8_t* bgr) {
            const cv::Mat working = cvMatFromImageData(scene.see(viewOf(index), index));
            cv::Mat out(kHeight, kWidth, CV_8UC3, bgr);
            working.convertTo(out, CV_8UC3, 255.0 / 16383.0);
        };
        source.file = folder / "pan.mp4";
        scenes::writeVideo(source.file, {kWidth, kHeight}, kFrames, draw, {});
        source.end = kFrames;
    }
    void TearDown() override { forceCpu() = false; }

    // The share of red pixels within two thirds of the ball's radius around its expected position, computed from the
    // camera of `frame`.
    static double redAt(PanoramaStitcher& stitcher, const Moment& moment, std::size_t camera, std::uint64_t frame)
    {
        const cv::Matx33d panoramaFromCamera = cv::Matx33f(stitcher.usedCameras().at(camera).R);
        const cv::Matx33d panoramaFromScene = panoramaFromCamera * cv::Matx33d(viewOf(frame).rotation.data()).t();
        const auto to = scenes::rotationOf(yawOf(moment.shown) + moment.right, moment.up, 0.0);
        const cv::Vec3d ball = panoramaFromScene * cv::Vec3d(to[2], to[5], to[8]);

        const cv::Rect sphere = stitcher.projectionBounds();
        const Panorama panorama =
            stitcher.makePanorama({0, 0, sphere.width, sphere.height}, {sphere.width, sphere.height}, true, never);
        if (!panorama.image)
            return -1.0;
        const auto warper = makeWarper(stitcher.getWarpedImageScale() / stitcher.getWorkScale(), kSphericalKind);
        int seen = 0;
        int red = 0;
        for (int y = 0; y < sphere.height; ++y) {
            for (int x = 0; x < sphere.width; ++x) {
                cv::Vec3f ray;
                warper->mapBackward(static_cast<float>(x + sphere.x), static_cast<float>(y + sphere.y), ray[0], ray[1],
                                    ray[2]);
                if (cv::normalize(cv::Vec3d(ray)).dot(ball) <
                    std::cos(kBallRadius * 2.0 / 3.0 * std::numbers::pi / 180.0))
                    continue;
                const auto& pixel = panorama.image->row(y)[x];
                ++seen;
                red += pixel.r > 1.5f * pixel.g && pixel.r > 1.5f * pixel.b ? 1 : 0;
            }
        }
        return seen > 100 ? static_cast<double>(red) / seen : -1.0;
    }
};

} // namespace

TEST_F(StitcherVideo, FramesAddedByHandShowTheirWholeRectangles)
{
    PanoramaStitcher stitcher(source);
    ASSERT_TRUE(stitcher.loadImages(never));
    const std::size_t keyFrames = stitcher.usedImages().size();
    EXPECT_GE(keyFrames, 3u);
    for (const cv::Mat& mask : stitcher.usedMasks())
        EXPECT_EQ(cv::countNonZero(mask), kWidth * kHeight);
    EXPECT_EQ(redAt(stitcher, kFirst, 0, 0), 0.0) << "no key frame shows a ball";

    // One frame: its seam cuts into the key frames only.
    stitcher.reloadWithComposition({kFirst.request}, {rectOf(kFirst)});
    ASSERT_EQ(stitcher.getStatus(), 1);
    ASSERT_EQ(stitcher.usedImages().size(), keyFrames + 1);
    EXPECT_EQ(redAt(stitcher, kFirst, keyFrames, kFirst.shown), 1.0) << "the ball is never eaten";
    EXPECT_EQ(stitcher.usedSeamMasks().size(), keyFrames + 1) << "rendered with its seams";

    // Two frames, in either order.
    stitcher.reloadWithComposition({kSecond.request, kFirst.request}, {rectOf(kSecond), rectOf(kFirst)});
    ASSERT_EQ(stitcher.getStatus(), 1);
    ASSERT_EQ(stitcher.usedImages().size(), keyFrames + 2);
    const std::vector<Moment> moments = {kFirst, kSecond};
    for (std::size_t j = 0; j < moments.size(); ++j) {
        const cv::Mat& mask = stitcher.usedMasks()[keyFrames + j];
        const _Rect<int> rect = rectOf(moments[j]);
        EXPECT_EQ(cv::countNonZero(mask), rect.width * rect.height);
        EXPECT_EQ(cv::countNonZero(mask(cv::Rect(rect.x, rect.y, rect.width, rect.height))), rect.width * rect.height);
        EXPECT_EQ(redAt(stitcher, moments[j], keyFrames + j, moments[j].shown), 1.0) << "ball " << j;
    }

    // None again.
    stitcher.reloadWithComposition({}, {});
    EXPECT_EQ(stitcher.usedImages().size(), keyFrames);
}

TEST_F(StitcherVideo, FramesAddedByHandAreCutFromEachOther)
{
    PanoramaStitcher stitcher(source);
    ASSERT_TRUE(stitcher.loadImages(never));
    const std::size_t keyFrames = stitcher.usedImages().size();
    // Neighbours in the video: their contents and their rectangles overlap.
    const _Rect<int> middle{120, 80, 80, 80};
    stitcher.reloadWithComposition({31, 33}, {middle, middle});
    ASSERT_EQ(stitcher.usedImages().size(), keyFrames + 2);
    const cv::Rect sphere = stitcher.projectionBounds();
    (void)stitcher.makePanorama({0, 0, sphere.width, sphere.height}, {200, 100}, true, never);
    ASSERT_EQ(stitcher.usedSeamMasks().size(), keyFrames + 2);

    const auto placeOf = [&](std::size_t i) {
        return cv::Rect(stitcher.usedCorners()[i], stitcher.usedSeamMasks()[i].size());
    };
    const cv::Rect common = placeOf(keyFrames) & placeOf(keyFrames + 1);
    const auto seamThere = [&](std::size_t i) {
        return stitcher.usedSeamMasks()[i].getMat(cv::ACCESS_READ)(common - placeOf(i).tl()) > 0;
    };
    const cv::Mat first = seamThere(keyFrames);
    const cv::Mat second = seamThere(keyFrames + 1);
    ASSERT_GT(cv::countNonZero(first | second), 60 * 60) << "they have much in common";
    EXPECT_EQ(cv::countNonZero(first & second), 0);
    EXPECT_GT(cv::countNonZero(first), 0);
    EXPECT_GT(cv::countNonZero(second), 0);
}

TEST_F(StitcherVideo, ADragShowsAFrameAddedByHand)
{
    PanoramaStitcher stitcher(source);
    ASSERT_TRUE(stitcher.loadImages(never));
    const auto redInADrag = [&] {
        stitcher.beginViewAdjust();
        stitcher.setViewShift({0.01f, 0.0f});
        const cv::Rect sphere = stitcher.projectionBounds();
        const Panorama drawn = stitcher.makePanorama({0, 0, sphere.width, sphere.height},
                                                     {sphere.width / 2, sphere.height / 2}, true, never);
        stitcher.endViewAdjust();
        return std::count_if(drawn.image->data(), drawn.image->data() + drawn.image->pixelCount(),
                             [](const auto& p) { return p.r > 1.5f * p.g && p.r > 1.5f * p.b; });
    };
    EXPECT_EQ(redInADrag(), 0);
    stitcher.reloadWithComposition({kFirst.request}, {rectOf(kFirst)});
    EXPECT_GT(redInADrag(), 20) << "the small sphere is that of the key frames alone";
    stitcher.reloadWithComposition({}, {});
    EXPECT_EQ(redInADrag(), 0);
}

TEST_F(StitcherVideo, AFrameThatFitsNoOtherPictureTakesItsRectangleWithIt)
{
    PanoramaStitcher stitcher(source);
    ASSERT_TRUE(stitcher.loadImages(never));
    const std::size_t keyFrames = stitcher.usedImages().size();
    stitcher.reloadWithComposition({kFirst.request, kSecond.request}, {rectOf(kFirst), rectOf(kSecond)});
    std::vector<cv::Mat> pictures = stitcher.usedImages();
    ASSERT_EQ(pictures.size(), keyFrames + 2);
    pictures[keyFrames] = cvMatFromImageData(SphereScene(99).see(viewOf(kFirst.shown)));
    ASSERT_TRUE(stitcher.estimateCameras(pictures));
    ASSERT_EQ(stitcher.usedMasks().size(), keyFrames + 1);
    for (std::size_t i = 0; i < keyFrames; ++i)
        EXPECT_EQ(cv::countNonZero(stitcher.usedMasks()[i]), kWidth * kHeight) << i;
    const _Rect<int> rect = rectOf(kSecond);
    cv::Mat expected = cv::Mat::zeros(kHeight, kWidth, CV_8UC1);
    expected(cv::Rect(rect.x, rect.y, rect.width, rect.height)).setTo(255);
    EXPECT_EQ(cv::norm(stitcher.usedMasks().back(), expected, cv::NORM_INF), 0.0);
    EXPECT_EQ(redAt(stitcher, kSecond, keyFrames, kSecond.shown), 1.0) << "and cuts its seam as a frame does";
}

TEST_F(StitcherVideo, ARectangleBeyondTheFrameIsCut)
{
    PanoramaStitcher stitcher(source);
    ASSERT_TRUE(stitcher.loadImages(never));
    const std::size_t keyFrames = stitcher.usedImages().size();
    stitcher.reloadWithComposition({kFirst.request}, {{300, 200, 100, 100}});
    ASSERT_EQ(stitcher.usedMasks().size(), keyFrames + 1);
    EXPECT_EQ(cv::countNonZero(stitcher.usedMasks().back()), 20 * 40);
    const cv::Rect sphere = stitcher.projectionBounds();
    EXPECT_NO_THROW((void)stitcher.makePanorama({0, 0, sphere.width, sphere.height}, {200, 100}, true, never));
    stitcher.reloadWithComposition({kFirst.request}, {{400, 300, 10, 10}});
    EXPECT_EQ(cv::countNonZero(stitcher.usedMasks().back()), 0);
    EXPECT_NO_THROW((void)stitcher.makePanorama({0, 0, sphere.width, sphere.height}, {200, 100}, true, never));
}
