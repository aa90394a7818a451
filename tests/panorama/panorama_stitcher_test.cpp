#include "panorama_truth.hpp"
#include "support/matrices.hpp"

#include <orvo_logger/log_capture.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <opencv2/calib3d.hpp>
#include <opencv2/stitching/detail/motion_estimators.hpp>

#include <cstring>

using namespace orvo;
using namespace orvo::test;
using scenes::SphereScene;
using scenes::SphereView;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

PanoramaStitcher withoutSource() { return PanoramaStitcher{PanoSource()}; }

std::vector<SphereView> pitched(double pitch)
{
    SphereView view = smallView();
    return scenes::rowOfViews(3, 24.0, pitch, view, 0.5, 11);
}

cv::Vec3f meanDirection(const PanoramaStitcher& stitcher)
{
    cv::Vec3f sum(0, 0, 0);
    for (const auto& camera : stitcher.usedCameras())
        sum += cv::Vec3f(camera.R.at<float>(0, 2), camera.R.at<float>(1, 2), camera.R.at<float>(2, 2));
    return cv::normalize(sum);
}

bool sameCameras(const PanoramaStitcher& a, const PanoramaStitcher& b)
{
    return std::equal(a.usedCameras().begin(), a.usedCameras().end(), b.usedCameras().begin(), b.usedCameras().end(),
                      [](const auto& p, const auto& q) { return p.focal == q.focal && sameBytes(p.R, q.R); });
}

} // namespace

TEST(PanoramaStitcher, StartsUnestimatedAsASphereAndUnturned)
{
    const PanoramaStitcher stitcher = withoutSource();
    EXPECT_EQ(stitcher.getStatus(), 0);
    EXPECT_EQ(stitcher.getWarpType(), kSphericalKind);
    EXPECT_EQ(stitcher.getWorkScale(), -1.0f);
    EXPECT_TRUE(sameBytes(stitcher.getViewRotation(), cv::Mat::eye(3, 3, CV_32F)));
}

TEST(PanoramaStitcher, WithoutPicturesLoadingFailsAndTheStatusStays)
{
    PanoramaStitcher stitcher = withoutSource();
    EXPECT_FALSE(stitcher.loadImages(never));
    EXPECT_EQ(stitcher.getStatus(), 0);
    EXPECT_FALSE(stitcher.estimateCameras({}));
    EXPECT_EQ(stitcher.getStatus(), 2);
}

TEST(PanoramaStitcher, TwoPicturesWithNothingInCommonFailSilently)
{
    auto views = smallRow();
    views = {views[0], views[0]};
    views[1].rotation = scenes::rotationOf(140.0, 0.0, 0.0);
    PanoramaStitcher stitcher = withoutSource();
    const auto images = seen(SphereScene(), views);
    const LogCapture capture;
    EXPECT_FALSE(stitcher.estimateCameras(images));
    EXPECT_EQ(stitcher.getStatus(), 2);
    EXPECT_EQ(stitcher.usedImages().size(), 1u);
    EXPECT_EQ(stitcher.usedMasks().size(), 1u);
    EXPECT_THAT(capture.lines(), IsEmpty());
}

TEST(PanoramaStitcher, APictureAloneFails)
{
    PanoramaStitcher stitcher = withoutSource();
    EXPECT_FALSE(stitcher.estimateCameras(seen(SphereScene(), {smallView()})));
    EXPECT_EQ(stitcher.getStatus(), 2);
}

TEST(PanoramaStitcher, PicturesThatNoRotationExplainsFailAndAreLogged)
{
    // The second one is the middle of the first, twice as large: impossible for cameras at one place with one focal
    // length.
    SphereView view = smallView();
    view.noise = 0.0;
    const cv::Mat image = seen(SphereScene(), {view})[0];
    cv::Mat enlarged;
    cv::resize(image(cv::Rect(100, 75, 200, 150)), enlarged, image.size());
    PanoramaStitcher stitcher = withoutSource();
    const LogCapture capture;
    EXPECT_FALSE(stitcher.estimateCameras({image, enlarged}));
    EXPECT_EQ(stitcher.getStatus(), 2);
    EXPECT_EQ(stitcher.usedImages().size(), 2u);
    EXPECT_THAT(capture.texts(LogMessageType::Error), ElementsAre("failed to make more accurate focals prediction"));
    // The same stitcher registers matching pictures.
    EXPECT_TRUE(stitcher.estimateCameras(seen(SphereScene(), smallRow())));
    EXPECT_EQ(stitcher.getStatus(), 1);
}

TEST(PanoramaStitcher, AnUnrelatedPictureIsDropped)
{
    auto views = smallRow();
    views.resize(2);
    auto images = seen(SphereScene(), views);
    images.insert(images.begin() + 1, seen(SphereScene(99), {smallView()})[0]);
    PanoramaStitcher stitcher = withoutSource();
    ASSERT_TRUE(stitcher.estimateCameras(images));
    EXPECT_EQ(stitcher.getStatus(), 1);
    EXPECT_THAT(stitcher.usedIndices(), ElementsAre(0, 2));
    ASSERT_EQ(stitcher.usedImages().size(), 2u);
    EXPECT_EQ(stitcher.usedImages()[1].data, images[2].data) << "not copied";
    ASSERT_EQ(stitcher.usedMasks().size(), 2u);
    EXPECT_EQ(stitcher.usedCameras().size(), 2u);
    for (const cv::Mat& mask : stitcher.usedMasks()) {
        EXPECT_EQ(mask.type(), CV_8UC1);
        EXPECT_EQ(mask.size(), images[0].size());
        EXPECT_EQ(cv::countNonZero(mask == 255), 400 * 300);
    }
}

TEST(PanoramaStitcher, AnEmptyPictureGivesNoFeaturesAndIsNoError)
{
    auto images = seen(SphereScene(), smallRow());
    images.emplace_back();
    PanoramaStitcher stitcher = withoutSource();
    EXPECT_TRUE(stitcher.estimateCameras(images));
    EXPECT_THAT(stitcher.usedIndices(), ElementsAre(0, 1, 2, 3));
}

TEST(PanoramaStitcher, DetectsFeaturesAtSixTenthsOfAMegapixel)
{
    SphereView view = smallView();
    view.size = {1200, 900};
    view.focal = 1200.0;
    const auto views = scenes::rowOfViews(2, 20.0, 0.0, view, 0.5, 3);
    PanoramaStitcher stitcher = withoutSource();
    ASSERT_TRUE(stitcher.estimateCameras(seen(SphereScene(), views)));
    EXPECT_FLOAT_EQ(stitcher.getWorkScale(), std::sqrt(600000.0f / (1200.0f * 900.0f)));
    EXPECT_LT(worstFocalError(stitcher, views), 0.01);
    PanoramaStitcher small = withoutSource();
    ASSERT_TRUE(small.estimateCameras(seen(SphereScene(), smallRow())));
    EXPECT_EQ(small.getWorkScale(), 1.0f) << "small pictures are not enlarged";
}

TEST(PanoramaStitcher, TheScaleIsTheMedianFocalLength)
{
    const auto images = seen(SphereScene(), smallRow());
    for (const std::size_t count : {4u, 3u}) {
        PanoramaStitcher stitcher = withoutSource();
        ASSERT_TRUE(stitcher.estimateCameras({images.begin(), images.begin() + static_cast<std::ptrdiff_t>(count)}));
        ASSERT_EQ(stitcher.usedCameras().size(), count);
        std::vector<double> focals;
        for (const auto& camera : stitcher.usedCameras())
            focals.push_back(camera.focal);
        std::sort(focals.begin(), focals.end());
        const double median = count == 4 ? 0.5 * (focals[1] + focals[2]) : focals[1];
        EXPECT_NEAR(stitcher.getWarpedImageScale(), median, 1e-3) << count << " cameras";
    }
}

TEST(PanoramaStitcher, CamerasAreThoseOfSinglePrecision)
{
    PanoramaStitcher stitcher = withoutSource();
    ASSERT_TRUE(stitcher.estimateCameras(seen(SphereScene(), smallRow())));
    for (const auto& camera : stitcher.usedCameras())
        EXPECT_EQ(camera.R.type(), CV_32F);
}

TEST(PanoramaStitcher, ViewsTowardsTheZenithAreTurnedToLookAhead)
{
    for (const double pitch : {62.0, -62.0}) {
        PanoramaStitcher stitcher = withoutSource();
        const auto views = pitched(pitch);
        ASSERT_TRUE(stitcher.estimateCameras(seen(SphereScene(), views)));
        const cv::Vec3f mean = meanDirection(stitcher);
        EXPECT_GT(mean[2], 0.999f) << pitch;
        EXPECT_LT(std::abs(mean[1]), 0.03f) << pitch;
        EXPECT_LT(medianRotationError(stitcher, views), 0.25) << "all turned together";
    }
}

TEST(PanoramaStitcher, ViewsNearTheHorizonStayAsWaveCorrectionLeftThem)
{
    for (const double pitch : {0.0, 35.0}) {
        PanoramaStitcher stitcher = withoutSource();
        ASSERT_TRUE(stitcher.estimateCameras(seen(SphereScene(), pitched(pitch))));
        EXPECT_NEAR(meanDirection(stitcher)[1], -std::sin(pitch * std::numbers::pi / 180.0), 0.06) << pitch;
        std::vector<cv::Mat> again;
        for (const auto& camera : stitcher.usedCameras())
            again.push_back(camera.R.clone());
        cv::detail::waveCorrect(again, cv::detail::WAVE_CORRECT_HORIZ);
        for (std::size_t i = 0; i < again.size(); ++i)
            EXPECT_LT(cv::norm(again[i], stitcher.usedCameras()[i].R, cv::NORM_INF), 1e-5) << pitch;
    }
}

TEST(PanoramaStitcher, GivesTheSameCamerasForAnyThreadsAndWhateverWasDoneBefore)
{
    const auto images = seen(SphereScene(), smallRow());
    PanoramaStitcher one = withoutSource();
    {
        const WorkerLimit limit(1);
        ASSERT_TRUE(one.estimateCameras(images));
    }
    PanoramaStitcher two = withoutSource();
    {
        const WorkerLimit limit(2);
        cv::theRNG().next();
        ASSERT_TRUE(two.estimateCameras(images));
    }
    EXPECT_TRUE(sameCameras(one, two));
    ASSERT_TRUE(two.estimateCameras(images)) << "the finder and the matcher are used again";
    EXPECT_TRUE(sameCameras(one, two));
    const cv::RNG before = cv::theRNG();
    ASSERT_TRUE(two.estimateCameras(images));
    EXPECT_EQ(cv::theRNG().state, before.state) << "the caller's random numbers go on where they were";
}

TEST(PanoramaStitcher, LimitsSizesInProportion)
{
    EXPECT_EQ(PanoramaStitcher::limitOutputSize({40000, 10000}), cv::Size(32000, 8000));
    EXPECT_EQ(PanoramaStitcher::limitOutputSize({10000, 64000}), cv::Size(5000, 32000));
    EXPECT_EQ(PanoramaStitcher::limitOutputSize({40000, 64000}), cv::Size(20000, 32000));
    EXPECT_EQ(PanoramaStitcher::limitOutputSize({32000, 31999}), cv::Size(32000, 31999));
    EXPECT_EQ(PanoramaStitcher::limitOutputSize({3, 2}), cv::Size(3, 2));
}

TEST(PanoramaStitcher, AnEmptyCancelFunctionIsTheCallersError)
{
    PanoramaStitcher stitcher = withoutSource();
    ASSERT_TRUE(stitcher.estimateCameras(seen(SphereScene(), smallRow())));
    cv::Mat picture;
    cv::Mat mask;
    EXPECT_THROW(stitcher.makePanoramaRaw({0, 0, 10, 10}, {10, 10}, picture, mask, {}), std::bad_function_call);
}

TEST(PanoramaStitcher, CancelLoadReachesBracketsThroughTheFlagOfTheirSettings)
{
    PanoSourceHDR source;
    source.hdr.cancelFlag = std::make_shared<std::atomic<unsigned char>>();
    PanoramaStitcher stitcher(source);
    stitcher.cancelLoad(true);
    EXPECT_EQ(source.hdr.cancelFlag->load(), 1);
    stitcher.cancelLoad(false);
    EXPECT_EQ(source.hdr.cancelFlag->load(), 0);
    EXPECT_NO_THROW(PanoramaStitcher(PanoSourceHDR()).cancelLoad(true)) << "makes a flag of its own";
    EXPECT_NO_THROW(withoutSource().cancelLoad(true)) << "other sources have none";
}

TEST(PanoramaStitcher, OnlyVideosTakeCompositionFrames)
{
    PanoramaStitcher stitcher = withoutSource();
    ASSERT_TRUE(stitcher.estimateCameras(seen(SphereScene(), smallRow())));
    stitcher.reloadWithComposition({1}, {{0, 0, 10, 10}});
    EXPECT_EQ(stitcher.getStatus(), 1);
    EXPECT_EQ(stitcher.usedImages().size(), 4u);
}

// The remaining tests, on one registered row.
class StitcherView : public testing::Test
{
protected:
    PanoramaStitcher stitcher = withoutSource();

    void SetUp() override { ASSERT_TRUE(stitcher.estimateCameras(seen(SphereScene(), smallRow()))); }

    [[nodiscard]] float scale() const { return stitcher.getWarpedImageScale() / stitcher.getWorkScale(); }
};

TEST_F(StitcherView, BoundsAreTheWarpersOwn)
{
    for (int kind = 0; kind < 6; ++kind) {
        EXPECT_EQ(stitcher.projectionBounds(kind), makeWarper(scale(), kind)->outputBounds());
        stitcher.setWarpType(kind);
        EXPECT_EQ(stitcher.getWarpType(), kind);
        EXPECT_EQ(stitcher.projectionBounds(), makeWarper(scale(), kind)->outputBounds());
    }
}

TEST_F(StitcherView, ReturnsTheRectangleOfThePictures)
{
    const cv::Rect roi = stitcher.roiInOutputPixels();
    // Three steps of 21 degrees and a picture of 53 degrees.
    const double unitsPerDegree = static_cast<double>(scale()) * std::numbers::pi / 180.0;
    EXPECT_NEAR(roi.width, (3 * 21.0 + 53.13) * unitsPerDegree, 0.03 * roi.width);
    EXPECT_NEAR(roi.height, 41.1 * unitsPerDegree, 0.08 * roi.height);
    const cv::Rect sphere = stitcher.projectionBounds();
    EXPECT_NEAR(roi.x + 0.5 * roi.width, 0.5 * sphere.width, 0.02 * sphere.width) << "counted from the sphere's corner";
}

TEST_F(StitcherView, AShiftTurnsByFractionsOfTheBounds)
{
    const cv::Rect bounds = stitcher.projectionBounds();
    stitcher.setViewShift({0.1f, -0.05f});
    const cv::Vec3f turn(0.05f * static_cast<float>(bounds.height) / scale(),
                         0.1f * static_cast<float>(bounds.width) / scale(), 0.0f);
    cv::Mat expected;
    cv::Rodrigues(turn, expected);
    EXPECT_LT(cv::norm(stitcher.getViewRotation(), expected, cv::NORM_INF), 1e-5);
}

TEST_F(StitcherView, AShiftCountsFromTheStartOfTheAdjustment)
{
    stitcher.beginViewAdjust();
    stitcher.setViewShift({0.1f, 0.0f});
    const cv::Mat once = stitcher.getViewRotation().clone();
    stitcher.setViewShift({0.1f, 0.0f});
    EXPECT_TRUE(sameBytes(stitcher.getViewRotation(), once)) << "not twice the rotation";
    stitcher.endViewAdjust();
    stitcher.beginViewAdjust();
    stitcher.setViewShift({0.1f, 0.0f});
    EXPECT_LT(cv::norm(stitcher.getViewRotation(), once * once, cv::NORM_INF), 1e-5) << "a new start adds up";
}

TEST_F(StitcherView, ARotationKeepsTheRayThroughItsCentre)
{
    for (const int kind : {1, 2, 5}) {
        stitcher.setWarpType(kind);
        const cv::Rect bounds = stitcher.projectionBounds();
        stitcher.setViewRotation(0.3f, {0.6f, 0.45f});
        cv::Vec3f ray;
        makeWarper(scale(), kind)
            ->mapBackward(std::trunc(static_cast<float>(bounds.x) + static_cast<float>(bounds.width) * 0.6f),
                          std::trunc(static_cast<float>(bounds.y) + static_cast<float>(bounds.height) * 0.45f), ray[0],
                          ray[1], ray[2]);
        ray = cv::normalize(ray);
        const cv::Matx33f turn(stitcher.getViewRotation());
        EXPECT_LT(cv::norm(turn * ray - ray), 1e-5) << kind;
        cv::Mat vector;
        cv::Rodrigues(stitcher.getViewRotation(), vector);
        EXPECT_LT(cv::norm(cv::Vec3f(vector) + 0.3f * ray), 1e-4) << "against the ray's own sense";
    }
}

TEST_F(StitcherView, ResettingTurnsBack)
{
    stitcher.setViewShift({0.1f, 0.1f});
    stitcher.resetView();
    EXPECT_TRUE(sameBytes(stitcher.getViewRotation(), cv::Mat::eye(3, 3, CV_32F)));
    stitcher.setViewShift({0.0f, 0.0f});
    EXPECT_TRUE(sameBytes(stitcher.getViewRotation(), cv::Mat::eye(3, 3, CV_32F))) << "the start too";
}

TEST(StitcherWithoutPictures, ViewsAndRendersAreNoError)
{
    PanoramaStitcher stitcher = withoutSource();
    EXPECT_NO_THROW(stitcher.resetView());
    EXPECT_NO_THROW((void)stitcher.roiInOutputPixels());
    cv::Mat picture;
    cv::Mat mask;
    EXPECT_TRUE(stitcher.makePanoramaRaw({0, 0, 20, 10}, {20, 10}, picture, mask, never).empty());
    EXPECT_EQ(stitcher.makePanorama({0, 0, 20, 10}, {20, 10}, true, never).image, nullptr);
    EXPECT_EQ(stitcher.makePanorama({0, 0, 20, 10}, {20, 10}, never, {20, 10}).image, nullptr);
    ASSERT_FALSE(stitcher.estimateCameras(seen(SphereScene(), {smallView()})));
    EXPECT_TRUE(stitcher.makePanoramaRaw({0, 0, 20, 10}, {20, 10}, picture, mask, never).empty());
}
