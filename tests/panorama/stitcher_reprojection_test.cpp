#include "panorama/compute_device.hpp"
#include "panorama_truth.hpp"
#include "support/matrices.hpp"

#include <orvo_logger/log_capture.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>

using namespace orvo;
using namespace orvo::test;
using scenes::SphereScene;
using scenes::SphereView;
using testing::IsEmpty;
using testing::SizeIs;

namespace {

constexpr int kPlane = 0;
constexpr int kCylindrical = 1;
constexpr int kStereographic = 4;

bool isEmpty(const Panorama& panorama) { return !panorama.image && !panorama.mask && panorama.roi == cv::Rect(); }

class StitcherReprojection : public testing::Test
{
protected:
    SphereScene scene;
    std::vector<SphereView> views = smallRow();
    PanoramaStitcher stitcher{PanoSource()};

    void SetUp() override
    {
        forceCpu() = true;
        ASSERT_TRUE(stitcher.estimateCameras(seen(scene, views)));
    }
    void TearDown() override { forceCpu() = false; }

    void turnBy(float x, float y)
    {
        stitcher.beginViewAdjust();
        stitcher.setViewShift({x, y});
        stitcher.endViewAdjust();
    }

    // The whole current projection. The middle of the stereographic one is above its bounds.
    [[nodiscard]] _Rect<int> whole() const
    {
        const cv::Rect bounds = stitcher.projectionBounds();
        const int y = stitcher.getWarpType() == kStereographic ? -bounds.height : 0;
        return {0, y, bounds.width, bounds.height};
    }

    [[nodiscard]] cv::Mat truth(const _Rect<int>& rect, const cv::Size& size) const
    {
        const cv::Rect bounds = stitcher.projectionBounds();
        Drawing drawing;
        drawing.kind = stitcher.getWarpType();
        drawing.rect = {rect.x + bounds.x, rect.y + bounds.y, rect.width, rect.height};
        drawing.size = size;
        drawing.view = cv::Matx33f(stitcher.getViewRotation());
        return truthOf(scene, stitcher, views, drawing);
    }

    // Calls `draw` with a cancel function that fires at the n-th call, for every n until it finishes.
    int cancelEverywhere(const std::function<Panorama(std::function<bool()>)>& draw)
    {
        for (int n = 1; n < 200; ++n) {
            int calls = 0;
            Panorama panorama;
            EXPECT_NO_THROW(panorama = draw(CancelAt{n, &calls}));
            if (calls < n) {
                EXPECT_FALSE(isEmpty(panorama));
                return n - 1;
            }
            EXPECT_TRUE(isEmpty(panorama)) << "cancelled at call " << n;
        }
        return -1;
    }
};

class EachProjection : public StitcherReprojection, public testing::WithParamInterface<int>
{};

} // namespace

TEST_P(EachProjection, ShowsTheSceneInATurnedView)
{
    stitcher.setWarpType(GetParam());
    turnBy(0.03f, 0.02f);
    const _Rect<int> rect = whole();
    const _Size<int> size{rect.width / 2, rect.height / 2};
    const Panorama panorama = stitcher.makePanorama(rect, size, true, never);
    ASSERT_NE(panorama.image, nullptr);
    ASSERT_NE(panorama.mask, nullptr);
    EXPECT_EQ(panorama.image->size(), size);
    EXPECT_EQ(panorama.mask->size(), size);
    EXPECT_EQ(panorama.roi, cv::Rect());
    const cv::Mat expected = truth(rect, {size.width, size.height});
    const Agreement agreement = agreementOf(matrixOf(*panorama.image), maskOf(*panorama.mask), expected, 8);
    EXPECT_GT(agreement.pixels, 40000);
    EXPECT_GT(agreement.psnr, 32.0);
    EXPECT_LT(agreement.worstMean, 0.09);
}

TEST_P(EachProjection, DuringADragShowsTheSameMoreRoughly)
{
    stitcher.setWarpType(GetParam());
    stitcher.beginViewAdjust();
    stitcher.setViewShift({0.03f, 0.02f});
    const _Rect<int> rect = whole();
    const _Size<int> size{rect.width / 5, rect.height / 5};
    const Panorama panorama = stitcher.makePanorama(rect, size, true, never);
    ASSERT_NE(panorama.image, nullptr);
    EXPECT_EQ(panorama.image->size(), size);
    cv::Mat expected = truth(rect, {rect.width, rect.height});
    cv::resize(expected, expected, {size.width, size.height}, 0, 0, cv::INTER_AREA);
    const Agreement agreement = agreementOf(matrixOf(*panorama.image), maskOf(*panorama.mask), expected, 3);
    EXPECT_GT(agreement.pixels, 4000);
    EXPECT_GT(agreement.psnr, 20.0);
}

INSTANTIATE_TEST_SUITE_P(StitcherReprojection, EachProjection, testing::Range(0, 6));

TEST_F(StitcherReprojection, AnUnturnedSphereIsDrawnDirectly)
{
    const cv::Rect bounds = stitcher.projectionBounds();
    const _Rect<int> rect{bounds.width / 3, bounds.height / 3, bounds.width / 3, bounds.height / 3};
    const _Size<int> size{rect.width / 2, rect.height / 2};
    cv::Mat picture;
    cv::Mat mask;
    const cv::Rect shown = stitcher.makePanoramaRaw({rect.x + bounds.x, rect.y + bounds.y, rect.width, rect.height},
                                                    {size.width, size.height}, picture, mask, never);
    const Panorama panorama = stitcher.makePanorama(rect, size, false, never);
    ASSERT_NE(panorama.image, nullptr);
    EXPECT_EQ(panorama.roi, shown);
    EXPECT_TRUE(sameBytes(matrixOf(*panorama.image), matrixOf(*imageDataFromCVMat(picture))));
    EXPECT_TRUE(sameBytes(maskOf(*panorama.mask), mask));
    // A rotation by 0 changes nothing.
    turnBy(0.0f, 0.0f);
    const Panorama again = stitcher.makePanorama(rect, size, false, never);
    EXPECT_TRUE(sameBytes(matrixOf(*again.image), matrixOf(*panorama.image)));
}

TEST_F(StitcherReprojection, TheCanvasIsThePictureInItsPlaceOnZero)
{
    stitcher.setWarpType(kCylindrical);
    turnBy(0.05f, 0.0f);
    const _Rect<int> rect = whole();
    const _Size<int> size{rect.width / 3, rect.height / 3};
    const Panorama tight = stitcher.makePanorama(rect, size, false, never);
    const Panorama canvas = stitcher.makePanorama(rect, size, true, never);
    ASSERT_NE(tight.image, nullptr);
    EXPECT_EQ(tight.image->size(), _Size<int>(tight.roi.width, tight.roi.height));
    EXPECT_EQ(tight.mask->size(), tight.image->size());
    EXPECT_LT(tight.roi.width, size.width);
    cv::Mat expected = cv::Mat::zeros(size.height, size.width, CV_32FC3);
    matrixOf(*tight.image).copyTo(expected(tight.roi));
    EXPECT_TRUE(sameBytes(matrixOf(*canvas.image), expected));
    cv::Mat expectedMask = cv::Mat::zeros(size.height, size.width, CV_8UC1);
    maskOf(*tight.mask).copyTo(expectedMask(tight.roi));
    EXPECT_TRUE(sameBytes(maskOf(*canvas.mask), expectedMask));
}

TEST_F(StitcherReprojection, OutsideTheContentItIsEmpty)
{
    for (const bool keepCanvas : {false, true}) {
        stitcher.setWarpType(kSphericalKind);
        EXPECT_TRUE(isEmpty(stitcher.makePanorama({0, 0, 100, 50}, {100, 50}, keepCanvas, never))) << "direct";
        EXPECT_TRUE(isEmpty(stitcher.makePanorama({0, 0, 0, 0}, {100, 50}, keepCanvas, never)));
        EXPECT_TRUE(isEmpty(stitcher.makePanorama({0, 0, 100, 50}, {0, 0}, keepCanvas, never)));
        stitcher.setWarpType(kCylindrical);
        EXPECT_TRUE(isEmpty(stitcher.makePanorama({0, 0, 100, 50}, {100, 50}, keepCanvas, never))) << "by maps";
        EXPECT_TRUE(isEmpty(stitcher.makePanorama({-9000, 0, 100, 50}, {100, 50}, keepCanvas, never)));
    }
}

TEST_F(StitcherReprojection, AnUnknownProjectionShowsNothing)
{
    stitcher.setWarpType(6);
    EXPECT_TRUE(isEmpty(stitcher.makePanorama({0, 0, 100, 50}, {100, 50}, false, never)));
}

TEST_F(StitcherReprojection, CancelledAnywhereItIsEmpty)
{
    const _Size<int> size{210, 105};
    const LogCapture capture;
    const auto draw = [&](bool keepCanvas) {
        return [this, size, keepCanvas](const std::function<bool()>& cancel) {
            return stitcher.makePanorama(whole(), size, keepCanvas, cancel);
        };
    };
    constexpr int kComposing = 1 + 4 + 4 + 1 + 4 + 1;
    EXPECT_EQ(cancelEverywhere(draw(false)), kComposing + 1) << "the direct way, and its end";
    turnBy(0.04f, 0.01f);
    EXPECT_EQ(cancelEverywhere(draw(true)), 3 + kComposing + 2 + 1)
        << "before and after the maps, before the part, before and after they are made relative, the end";
    stitcher.setWarpType(kPlane);
    EXPECT_GT(cancelEverywhere(draw(false)), 6);
    stitcher.beginViewAdjust();
    stitcher.setViewShift({0.05f, 0.01f});
    EXPECT_EQ(cancelEverywhere(draw(false)), 3 + 2 + 1) << "a drag composes nothing that could be cancelled";
    EXPECT_THAT(capture.texts(LogMessageType::Error), IsEmpty());
}

TEST_F(StitcherReprojection, TheFinishedFormIsEmptyToo)
{
    const auto draw = [this](const std::function<bool()>& cancel) {
        return stitcher.makePanorama(whole(), {210, 105}, cancel, {210, 105});
    };
    EXPECT_GT(cancelEverywhere(draw), 5);
    turnBy(0.04f, 0.01f);
    EXPECT_GT(cancelEverywhere(draw), 5);
    stitcher.resetView();
    EXPECT_TRUE(isEmpty(stitcher.makePanorama({0, 0, 100, 50}, {100, 50}, never, {100, 50}))) << "beside the content";
}

TEST_F(StitcherReprojection, TheOutputSizeCountsOnlyWithoutReprojection)
{
    const _Rect<int> rect = whole();
    const _Size<int> size{rect.width / 4, rect.height / 4};
    const _Size<int> outputSize{rect.width / 6, rect.height / 6};
    cv::Mat picture;
    cv::Mat mask;
    const cv::Rect bounds = stitcher.projectionBounds();
    const cv::Rect shown =
        stitcher.makePanoramaRaw(bounds, {outputSize.width, outputSize.height}, picture, mask, never);
    const Panorama direct = stitcher.makePanorama(rect, size, never, outputSize);
    EXPECT_EQ(direct.roi, shown);
    EXPECT_TRUE(sameBytes(matrixOf(*direct.image), matrixOf(*imageDataFromCVMat(picture))));
    turnBy(0.03f, 0.0f);
    const Panorama turned = stitcher.makePanorama(rect, size, never, outputSize);
    const Panorama expected = stitcher.makePanorama(rect, size, false, never);
    EXPECT_EQ(turned.roi, expected.roi);
    EXPECT_TRUE(sameBytes(matrixOf(*turned.image), matrixOf(*expected.image)));
}

TEST_F(StitcherReprojection, APartThatWouldBeTooLongIsDrawnSmaller)
{
    // 8 rows of the sphere at 16 pixels each would need a part of 40000 columns.
    turnBy(0.001f, 0.0f);
    const cv::Rect bounds = stitcher.projectionBounds();
    const _Rect<int> rect{0, bounds.height / 2, bounds.width, 8};
    const _Size<int> size{500, 128};
    const Panorama panorama = stitcher.makePanorama(rect, size, true, never);
    ASSERT_NE(panorama.image, nullptr);
    EXPECT_EQ(panorama.image->size(), size) << "the requested size";
    const Agreement agreement =
        agreementOf(matrixOf(*panorama.image), maskOf(*panorama.mask), truth(rect, {size.width, size.height}), 4);
    EXPECT_GT(agreement.pixels, 10000);
    EXPECT_GT(agreement.psnr, 25.0);
}

TEST_F(StitcherReprojection, APartThatWouldBeTooTallIsDrawnSmaller)
{
    // 10 columns of the sphere at 26 pixels each would need a part of 32700 rows.
    turnBy(0.001f, 0.0f);
    const cv::Rect bounds = stitcher.projectionBounds();
    const _Rect<int> rect{bounds.width / 2, 0, 10, bounds.height};
    const _Size<int> size{260, 250};
    ASSERT_GT(bounds.height * size.width / rect.width, 32000);
    const Panorama panorama = stitcher.makePanorama(rect, size, true, never);
    ASSERT_NE(panorama.image, nullptr);
    EXPECT_EQ(panorama.image->size(), size);
    const Agreement agreement =
        agreementOf(matrixOf(*panorama.image), maskOf(*panorama.mask), truth(rect, {size.width, size.height}), 4);
    EXPECT_GT(agreement.pixels, 5000);
    EXPECT_GT(agreement.psnr, 25.0);
}

TEST_F(StitcherReprojection, ExceptionsWhileDrawingReachTheCaller)
{
    struct Broken
    {};
    const auto breakAt = [](int last) {
        return [last, calls = std::make_shared<int>(0)]() -> bool {
            if (++*calls >= last)
                throw Broken();
            return false;
        };
    };
    const _Size<int> size{210, 105};
    constexpr int kWhileComposing = 6; // on both paths
    EXPECT_THROW((void)stitcher.makePanorama(whole(), size, true, breakAt(kWhileComposing)), Broken);
    EXPECT_THROW((void)stitcher.makePanorama(whole(), size, breakAt(kWhileComposing), size), Broken);
    turnBy(0.04f, 0.01f);
    const LogCapture capture;
    EXPECT_THROW((void)stitcher.makePanorama(whole(), size, true, breakAt(kWhileComposing)), Broken);
    EXPECT_THAT(capture.texts(LogMessageType::Error),
                testing::ElementsAre(testing::StartsWith(
                    "Probably not enough memory to create panorama on CPU of size, width, height: ")));
    EXPECT_FALSE(isEmpty(stitcher.makePanorama(whole(), size, true, never))) << "and draws the next time";
}

TEST_F(StitcherReprojection, DuringADragAStripOfAUnitShowsNothing)
{
    stitcher.setWarpType(kCylindrical);
    stitcher.beginViewAdjust();
    stitcher.setViewShift({0.0f, 0.0f});
    const cv::Rect bounds = stitcher.projectionBounds();
    const cv::Rect content = stitcher.roiInOutputPixels();
    // The left rim of the content on the equator, where cylinder and sphere agree.
    const int rim = content.x;
    const _Rect<int> strip{rim - 40, bounds.height / 2 - 20, 43, 40};
    EXPECT_TRUE(isEmpty(stitcher.makePanorama(strip, {43, 40}, false, never)));
    const _Rect<int> wider{rim - 40, bounds.height / 2 - 20, 80, 40};
    EXPECT_FALSE(isEmpty(stitcher.makePanorama(wider, {80, 40}, false, never)));
    stitcher.endViewAdjust();
}

TEST_F(StitcherReprojection, ADragComposesOnce)
{
    stitcher.beginViewAdjust();
    const LogCapture capture;
    for (const float shift : {0.01f, 0.02f, 0.03f}) {
        stitcher.setViewShift({shift, 0.0f});
        EXPECT_FALSE(isEmpty(stitcher.makePanorama(whole(), {200, 100}, true, never)));
    }
    EXPECT_THAT(capture.texts(LogMessageType::Progress), SizeIs(1)) << "the small sphere that all frames draw from";
    stitcher.endViewAdjust();
    (void)stitcher.makePanorama(whole(), {200, 100}, true, never);
    EXPECT_THAT(capture.texts(LogMessageType::Progress), SizeIs(2));
    stitcher.resetView();
    EXPECT_THAT(capture.texts(LogMessageType::Progress), SizeIs(3)) << "made anew";
}

TEST_F(StitcherReprojection, GivesTheSameBytesForAnyThreads)
{
    stitcher.setWarpType(3);
    turnBy(0.03f, 0.05f);
    const _Size<int> size{411, 203};
    Panorama one;
    {
        const WorkerLimit limit(1);
        one = stitcher.makePanorama(whole(), size, true, never);
    }
    const WorkerLimit limit(2);
    const Panorama two = stitcher.makePanorama(whole(), size, true, never);
    EXPECT_TRUE(sameBytes(matrixOf(*one.image), matrixOf(*two.image)));
    EXPECT_TRUE(sameBytes(maskOf(*one.mask), maskOf(*two.mask)));
}
