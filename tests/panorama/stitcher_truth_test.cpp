#include "panorama_truth.hpp"

#include <gtest/gtest.h>

using namespace orvo;
using namespace orvo::test;
using scenes::SphereScene;
using scenes::SphereView;

namespace {

constexpr double kRotationBound = 0.05; // degrees
constexpr double kFocalBound = 0.005;

SphereView handheld()
{
    SphereView view;
    view.size = {800, 600};
    view.focal = 800.0;
    view.noise = 0.01;
    return view;
}

void expectRegistered(const std::vector<SphereView>& views)
{
    const SphereScene scene;
    PanoramaStitcher stitcher{PanoSource()};
    ASSERT_TRUE(stitcher.estimateCameras(seen(scene, views)));
    EXPECT_EQ(stitcher.getStatus(), 1);
    EXPECT_EQ(stitcher.usedCameras().size(), views.size());
    const double rotation = medianRotationError(stitcher, views);
    const double focal = worstFocalError(stitcher, views);
    EXPECT_LT(rotation, kRotationBound);
    EXPECT_LT(focal, kFocalBound);
    std::cout << views.size() << " views: median rotation error " << rotation << " degrees, worst focal length "
              << focal * 100.0 << " percent off\n";
}

} // namespace

// The accuracy of a single pair depends on the positions of its matches, so five are tested.
TEST(StitcherTruth, TwoViews)
{
    const SphereScene scene;
    std::vector<double> rotations;
    for (std::uint64_t seed = 1; seed <= 5; ++seed) {
        const auto views = scenes::rowOfViews(2, 22.0, 0.0, handheld(), 2.0, seed);
        PanoramaStitcher stitcher{PanoSource()};
        ASSERT_TRUE(stitcher.estimateCameras(seen(scene, views)));
        rotations.push_back(medianRotationError(stitcher, views));
        EXPECT_LT(worstFocalError(stitcher, views), kFocalBound);
    }
    std::sort(rotations.begin(), rotations.end());
    EXPECT_LT(rotations[2], kRotationBound);
}

TEST(StitcherTruth, SixViewsInARow) { expectRegistered(scenes::rowOfViews(6, 22.0, -4.0, handheld(), 2.0, 2)); }

TEST(StitcherTruth, TwelveViewsInTwoRows)
{
    auto views = scenes::rowOfViews(6, 24.0, -12.0, handheld(), 1.5, 3);
    const auto upper = scenes::rowOfViews(6, 24.0, 14.0, handheld(), 1.5, 4);
    views.insert(views.end(), upper.begin(), upper.end());
    expectRegistered(views);
}

TEST(StitcherTruth, ThirtyViewsAllAround)
{
    SphereView view = handheld();
    view.size = {640, 480};
    view.focal = 620.0;
    auto views = scenes::rowOfViews(15, 24.0, -10.0, view, 1.0, 5);
    const auto upper = scenes::rowOfViews(15, 24.0, 12.0, view, 1.0, 6);
    views.insert(views.end(), upper.begin(), upper.end());
    expectRegistered(views);
}

// Far from the horizon each view overlaps most of the others across the pole, rotated by any angle.
static void expectCircleRegistered(int views, double step, double pitch)
{
    SphereView view = handheld();
    view.size = {600, 450};
    view.focal = 600.0;
    expectRegistered(scenes::rowOfViews(views, step, pitch, view, 1.0, 3));
}

TEST(StitcherTruth, CircleOfSixteenPitchedDown) { expectCircleRegistered(16, 22.5, -58.0); }

TEST(StitcherTruth, CircleOfTenPitchedUp) { expectCircleRegistered(10, 36.0, 75.0); }

TEST(StitcherTruth, ThreeViewsThatShareTheNadir) { expectCircleRegistered(3, 40.0, -84.0); }

// Views near the nadir extend across the back of the sphere, so their rectangle is the whole sphere.
TEST(StitcherTruth, DrawsACirclePitchedDown)
{
    SphereView view = handheld();
    view.size = {320, 240};
    view.focal = 320.0;
    const SphereScene scene;
    const auto views = scenes::rowOfViews(12, 30.0, -58.0, view, 1.0, 3);
    PanoramaStitcher stitcher{PanoSource()};
    ASSERT_TRUE(stitcher.estimateCameras(seen(scene, views)));
    const cv::Rect bounds = stitcher.projectionBounds();
    const Panorama drawn =
        stitcher.makePanorama({0, 0, bounds.width, bounds.height}, {bounds.width / 4, bounds.height / 4}, false, never);
    ASSERT_TRUE(drawn.image);
    EXPECT_GE(drawn.roi.width, bounds.width / 4 - 2) << "all around";
}

// Between two points of the grid that is used to find the place of a picture are 31 of its pixels.
TEST(StitcherTruth, AFullCircleOfLargeViewsIsClosed)
{
    constexpr int kViews = 12;
    SphereView view;
    view.size = {3000, 800};
    view.focal = 3600.0;
    std::vector<SphereView> views;
    for (int i = 0; i < kViews; ++i) {
        view.rotation = scenes::rotationOf(30.0 * i, 0.0, 0.0);
        views.push_back(view);
    }
    PanoramaStitcher stitcher{PanoSource()};
    ASSERT_TRUE(stitcher.estimateCameras(seen(SphereScene(), views)));
    ASSERT_EQ(stitcher.usedCameras().size(), views.size());

    const cv::Rect bounds = stitcher.projectionBounds();
    constexpr int kRows = 40;
    const cv::Rect band(bounds.x, bounds.y + bounds.height / 2, bounds.width, kRows);
    cv::Mat picture;
    cv::Mat mask;
    const cv::Rect shown = stitcher.makePanoramaRaw(band, band.size(), picture, mask, never);
    EXPECT_EQ(shown, cv::Rect(0, 0, band.width, kRows));
    EXPECT_EQ(cv::countNonZero(mask), mask.cols * mask.rows);

    // The planet joins both ends along a half line from its centre to the left. The horizon is a circle of radius 1.
    stitcher.setWarpType(warpNumberOf(WarpType::Stereographic));
    const cv::Rect planet = stitcher.projectionBounds();
    const int radius = static_cast<int>(stitcher.getWarpedImageScale() / stitcher.getWorkScale());
    constexpr int kSide = 1000;
    const _Rect<int> rect(-2 * radius - planet.x, -2 * radius - planet.y, 4 * radius, 4 * radius);
    const Panorama drawn = stitcher.makePanorama(rect, {kSide, kSide}, true, never);
    ASSERT_TRUE(drawn.mask);
    const int horizon = kSide / 2 - kSide / 4;
    int longest = 0;
    for (int x = horizon - 20; x <= horizon + 20; ++x) {
        int gap = 0;
        for (int y = kSide / 2 - 50; y < kSide / 2 + 50; ++y) {
            gap = drawn.mask->row(y)[x] > 0.0f ? 0 : gap + 1;
            longest = std::max(longest, gap);
        }
    }
    EXPECT_LE(longest, 1) << "pixels between the two ends";
}

TEST(StitcherTruth, CancelAtAnyPollEndsRegistration)
{
    const SphereScene scene;
    const auto views = smallRow();
    const auto images = seen(scene, views);
    PanoramaStitcher stitcher{PanoSource()};
    int all = 0;
    ASSERT_TRUE(stitcher.estimateCameras(images, CancelAt{1000000, &all}));
    EXPECT_GT(all, 4 + 6 + 4) << "each picture, each pair, each camera";
    for (const int last : {1, 4, 5, 10, 11, all / 2, all}) {
        int polls = 0;
        EXPECT_FALSE(stitcher.estimateCameras(images, CancelAt{last, &polls})) << last << " of " << all;
        EXPECT_EQ(stitcher.getStatus(), 2);
        EXPECT_LE(polls, last + 1) << "it went on";
    }
    EXPECT_TRUE(stitcher.estimateCameras(images));
}
