// The state after a step fails half way, for the next attempt.
#include "failing_mats.hpp"
#include "panorama/compute_device.hpp"
#include "panorama_truth.hpp"
#include "support/matrices.hpp"

#include <orvo_logger/log_capture.hpp>

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>

using namespace orvo;
using namespace orvo::test;

namespace {

struct Drawn
{
    cv::Rect shown;
    cv::Mat picture;
    cv::Mat mask;
};

void expectSame(const Drawn& found, const Drawn& expected, long place)
{
    EXPECT_EQ(found.shown, expected.shown) << "failed at matrix " << place;
    EXPECT_TRUE(sameBytes(found.picture, expected.picture)) << "failed at matrix " << place;
    EXPECT_TRUE(sameBytes(found.mask, expected.mask)) << "failed at matrix " << place;
}

class StitcherFailure : public testing::Test
{
protected:
    std::vector<cv::Mat> images;
    PanoSource source;
    const LogCapture quiet;

    void SetUp() override
    {
        forceCpu() = true;
        scenes::SphereView view = smallView();
        view.size = {240, 180};
        view.focal = 240.0;
        view.vignetting = {0.3, 0.1, 0.0};
        auto views = scenes::rowOfViews(3, 21.0, 3.0, view, 1.0, 7);
        views[1].ev = -0.4;
        images = seen(scenes::SphereScene(), views);
        source.settings.devignette = true;
    }
    void TearDown() override { forceCpu() = false; }

    [[nodiscard]] std::unique_ptr<PanoramaStitcher> registered() const
    {
        auto stitcher = std::make_unique<PanoramaStitcher>(source);
        EXPECT_TRUE(stitcher->estimateCameras(images));
        return stitcher;
    }

    static Drawn draw(PanoramaStitcher& stitcher)
    {
        Drawn drawn;
        const cv::Rect sphere = stitcher.projectionBounds(kSphericalKind);
        drawn.shown =
            stitcher.makePanoramaRaw(sphere, {sphere.width / 2, sphere.height / 2}, drawn.picture, drawn.mask, never);
        return drawn;
    }

    // Like a drag.
    static cv::Mat drag(PanoramaStitcher& stitcher)
    {
        stitcher.beginViewAdjust();
        stitcher.setViewShift({0.02f, 0.01f});
        const cv::Rect bounds = stitcher.projectionBounds();
        const Panorama drawn = stitcher.makePanorama({0, 0, bounds.width, bounds.height},
                                                     {bounds.width / 4, bounds.height / 4}, true, never);
        stitcher.endViewAdjust();
        return drawn.image ? matrixOf(*drawn.image) : cv::Mat();
    }
};

} // namespace

TEST_F(StitcherFailure, ADrawingThatFailsAtAnyMatrixIsDrawnAgainAsIfNothingHadHappened)
{
    const FailingMats memory;
    const auto undisturbed = registered();
    FailingMats::failAt(0);
    const Drawn expected = draw(*undisturbed);
    const long cold = FailingMats::made();
    FailingMats::failAt(0);
    expectSame(draw(*undisturbed), expected, 0);
    const long seamScale = cold - FailingMats::made(); // created once, by the first drawing
    ASSERT_GT(seamScale, 100);
    ASSERT_FALSE(expected.shown.empty());

    constexpr long kPlaces = 40;
    for (long place = 1; place <= seamScale; place += std::max(1L, seamScale / kPlaces)) {
        FailingMats::failAt(0);
        const auto stitcher = registered();
        FailingMats::failAt(place);
        EXPECT_THROW(draw(*stitcher), cv::Exception) << place;
        FailingMats::failAt(0);
        expectSame(draw(*stitcher), expected, place);
    }
}

TEST_F(StitcherFailure, VignettingIsRemovedOnceAfterAFailure)
{
    const FailingMats memory;
    const auto undisturbed = registered();
    FailingMats::failAt(0);
    const Drawn expected = draw(*undisturbed);
    const long needed = FailingMats::made();
    const auto failedAt = [&](long place) {
        FailingMats::failAt(0);
        auto stitcher = registered();
        FailingMats::failAt(place);
        EXPECT_THROW(draw(*stitcher), cv::Exception) << place;
        FailingMats::failAt(0);
        return stitcher;
    };
    // The first matrix whose failure happens after vignetting was removed.
    long before = 0;
    long after = needed;
    while (after - before > 1) {
        const long middle = before + (after - before) / 2;
        (failedAt(middle)->usedDevignetteModel() != nullptr ? after : before) = middle;
    }
    for (long place = std::max(1L, after - 8); place < after; ++place)
        expectSame(draw(*failedAt(place)), expected, place);
}

TEST_F(StitcherFailure, ADrawingThatFailsTwiceIsDrawnAgainToo)
{
    const FailingMats memory;
    FailingMats::failAt(0);
    const auto undisturbed = registered();
    FailingMats::failAt(0);
    const Drawn expected = draw(*undisturbed);
    const long cold = FailingMats::made();
    for (const long share : {3, 5, 7}) {
        FailingMats::failAt(0);
        const auto stitcher = registered();
        for (const long place : {cold * share / 10, cold * share / 20}) {
            FailingMats::failAt(place);
            EXPECT_THROW(draw(*stitcher), cv::Exception) << place;
        }
        FailingMats::failAt(0);
        expectSame(draw(*stitcher), expected, share);
    }
}

TEST_F(StitcherFailure, ASmallSphereThatFailsIsMadeAgainByTheNextDrag)
{
    const FailingMats memory;
    const auto undisturbed = registered();
    (void)draw(*undisturbed);
    FailingMats::failAt(0);
    undisturbed->resetView();
    const long needed = FailingMats::made();
    const cv::Mat expected = drag(*undisturbed);
    ASSERT_FALSE(expected.empty());
    ASSERT_GT(cv::countNonZero(expected.reshape(1)), 1000);
    constexpr long kPlaces = 10;
    for (long place = 1; place <= needed; place += std::max(1L, needed / kPlaces)) {
        FailingMats::failAt(0);
        const auto stitcher = registered(); // without its own small sphere
        (void)draw(*stitcher);
        FailingMats::failAt(place);
        EXPECT_THROW(stitcher->resetView(), cv::Exception) << place;
        FailingMats::failAt(0);
        EXPECT_TRUE(sameBytes(drag(*stitcher), expected)) << place;
    }
}

TEST_F(StitcherFailure, ALastDrawingThatFailsIsFollowedByAllOrNothing)
{
    const FailingMats memory;
    const auto undisturbed = registered();
    const Drawn expected = draw(*undisturbed);
    FailingMats::failAt(0);
    (void)draw(*undisturbed);
    const long warm = FailingMats::made();
    int nothing = 0;
    constexpr long kPlaces = 8;
    for (long place = 1; place <= warm; place += std::max(1L, warm / kPlaces)) {
        FailingMats::failAt(0);
        const auto stitcher = registered();
        (void)draw(*stitcher);
        stitcher->drawOnceMore();
        FailingMats::failAt(place);
        EXPECT_THROW(draw(*stitcher), cv::Exception) << place;
        FailingMats::failAt(0);
        const Drawn after = draw(*stitcher);
        if (after.shown.empty())
            ++nothing;
        else
            expectSame(after, expected, place);
    }
    EXPECT_GT(nothing, kPlaces / 2) << "pictures that were let go of are gone, all of them";
}

TEST_F(StitcherFailure, ARegistrationThatFailsIsNone)
{
    const FailingMats memory;
    const auto stitcher = registered();
    ASSERT_EQ(stitcher->getStatus(), 1);
    FailingMats::failAt(0);
    ASSERT_TRUE(stitcher->estimateCameras(images));
    const long needed = FailingMats::made();
    // Features and matches use all threads, so this thread's number of matrices differs every time.
    constexpr long kPlaces = 12;
    int failed = 0;
    for (long place = 1; place <= needed; place += std::max(1L, needed / kPlaces)) {
        FailingMats::failAt(place);
        try {
            (void)stitcher->estimateCameras(images);
        } catch (const cv::Exception&) {
            ++failed;
            EXPECT_EQ(stitcher->getStatus(), 2) << place;
        }
        FailingMats::failAt(0);
        ASSERT_TRUE(stitcher->estimateCameras(images)) << place;
    }
    EXPECT_GT(failed, 3);
    EXPECT_EQ(stitcher->getStatus(), 1);
}
