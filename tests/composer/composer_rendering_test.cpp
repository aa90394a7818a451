// Sizes, caches and pictures of renders, on the caller's thread.
#include "composer/composer_private.hpp"
#include "composer_sets.hpp"
#include "support/pictures.hpp"

#include <orvo_logger/log_capture.hpp>

#include <gmock/gmock.h>

#include <cmath>
#include <memory>
#include <optional>
#include <stdexcept>

using namespace orvo;
using namespace orvo::test;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

struct Part
{
    std::shared_ptr<const _ImageData<PixelRGB<float>>> image;
    std::shared_ptr<const _ImageData<float>> mask;
    _Rect<int> place;
};

class ComposerRendering : public ComposerTest
{
protected:
    PanoramaPreviewComposerPrivate state{SmallFiles::source()};
    _Size<int> canvas;

    void SetUp() override
    {
        ComposerTest::SetUp();
        state.load({});
        ASSERT_EQ(state.stitcher->getStatus(), 1);
        canvas = state.enterProjection(WarpType::Spherical);
    }
    std::optional<RenderedData> drawnMain(const PreviewContext& context, WarpType type = WarpType::Spherical)
    {
        std::optional<RenderedData> answer;
        ComposerSnapshot taken;
        taken.context = context;
        taken.mainCallback = [&](RenderedData data) { answer = std::move(data); };
        state.drawMain(type, taken, "renderMain");
        return answer;
    }
    std::optional<RenderedData> drawnUnderlay(WarpType type = WarpType::Spherical)
    {
        std::optional<RenderedData> answer;
        ComposerSnapshot taken;
        taken.underlayCallback = [&](RenderedData data) { answer = std::move(data); };
        state.drawUnderlay(type, taken, "renderUnderlay");
        return answer;
    }
    std::optional<Part> drawnPart(WarpType type = WarpType::Spherical)
    {
        std::optional<Part> answer;
        ComposerSnapshot taken;
        taken.underlayCallback = [&](const RenderedData&) { ADD_FAILURE() << "the two exclude each other"; };
        taken.meaningfulPartCallback = [&](const auto& image, const auto& mask, _Rect<int> place) {
            answer = Part{image, mask, place};
        };
        state.drawUnderlay(type, taken, "renderUnderlay");
        return answer;
    }
};

} // namespace

TEST(FittedSize, PutsTheCanvasIntoFifteenHundredPixels)
{
    EXPECT_EQ(fittedSize(6000, 2000), _Size<int>(1500, 500));
    EXPECT_EQ(fittedSize(1000, 2000), _Size<int>(750, 1500));
    EXPECT_EQ(fittedSize(300, 200), _Size<int>(1500, 1000)) << "small canvases grow";
}

TEST_F(ComposerRendering, TheFirstMainViewIsTheWholeCanvas)
{
    const auto answer = drawnMain({});
    ASSERT_TRUE(answer);
    EXPECT_EQ(answer->image->size(), fittedSize(canvas.width, canvas.height));
    EXPECT_EQ(answer->mask->size(), answer->image->size());
    EXPECT_EQ(answer->context, PreviewContext()) << "the requested context";
    EXPECT_EQ(answer->colorProfile, answer->image->colorProfile());
    EXPECT_EQ(*answer->colorProfile, *ColorProfileType::sRGB());
    EXPECT_FALSE(answer->isPlaceholder);
    EXPECT_EQ(answer->image->row(0)[0], PixelRGB<float>()) << "black beside the content";
    EXPECT_EQ(answer->mask->row(0)[0], 0.0f);
}

TEST_F(ComposerRendering, AMainViewNeverExceedsItsPart)
{
    const _Rect<int> roi(canvas.width / 2 - 150, canvas.height / 2 - 100, 300, 200);
    EXPECT_EQ(drawnMain({{600, 400}, roi})->image->size(), _Size<int>(300, 200));
    EXPECT_EQ(drawnMain({{600, 50}, roi})->image->size(), _Size<int>(300, 50));
    EXPECT_EQ(drawnMain({{60, 40}, roi})->image->size(), _Size<int>(60, 40));
    EXPECT_EQ(drawnMain({{0, 0}, roi})->image->size(), _Size<int>(300, 200)) << "no size: that of the part";
    EXPECT_EQ(drawnMain({{80, 60}, {}})->image->size(), _Size<int>(80, 60)) << "no part: the canvas";
    EXPECT_EQ(drawnMain({{600, 400}, roi})->context, (PreviewContext{{600, 400}, roi}));
}

TEST_F(ComposerRendering, EveryProjectionHasAMainView)
{
    for (const WarpType type :
         {WarpType::Plane, WarpType::Cylindrical, WarpType::Spherical, WarpType::Fisheye, WarpType::Mercator}) {
        const auto answer = drawnMain({}, type);
        ASSERT_TRUE(answer) << static_cast<int>(type);
        EXPECT_EQ(std::max(answer->image->width(), answer->image->height()), 1500);
    }
}

TEST_F(ComposerRendering, AnUnknownProjectionIsTheSphere)
{
    const auto unknown = drawnMain({}, static_cast<WarpType>(99));
    ASSERT_TRUE(unknown);
    EXPECT_TRUE(sameBytes(*unknown->image, *drawnMain({})->image));
}

TEST_F(ComposerRendering, AMainViewBesideThePanoramaCallsNothing)
{
    EXPECT_FALSE(drawnMain({{100, 100}, {0, 0, 100, 100}}));
}

TEST_F(ComposerRendering, AnUnderlayWithoutAReceiverOrALoadIsNotDrawn)
{
    state.cachedRoi = {1, 2, 3, 4};
    state.drawUnderlay(WarpType::Spherical, {}, "renderUnderlay");
    state.drawMain(WarpType::Spherical, {}, "renderMain");
    EXPECT_EQ(state.cachedRoi, _Rect<int>(1, 2, 3, 4)) << "not even the cache is touched";
    PanoramaPreviewComposerPrivate empty(SmallFiles::source());
    ComposerSnapshot taken;
    taken.underlayCallback = [](const RenderedData&) { ADD_FAILURE(); };
    empty.drawUnderlay(WarpType::Spherical, taken, "renderUnderlay");
}

TEST_F(ComposerRendering, TheUnderlayAloneIsTheWholeCanvas)
{
    const auto answer = drawnUnderlay();
    ASSERT_TRUE(answer);
    const _Size<int> size = fittedSize(canvas.width, canvas.height);
    EXPECT_EQ(answer->image->size(), size);
    EXPECT_EQ(answer->mask->size(), size);
    EXPECT_EQ(answer->context, (PreviewContext{size, {0, 0, canvas.width, canvas.height}}));
    EXPECT_EQ(answer->colorProfile, answer->image->colorProfile());
}

TEST_F(ComposerRendering, TheMeaningfulPartIsAboutTwoThousandPixelsLong)
{
    const auto part = drawnPart();
    ASSERT_TRUE(part);
    const _Size<int> size = part->image->size();
    EXPECT_NEAR(std::max(size.width, size.height), 2000, 2000 / 200);
    EXPECT_EQ(part->mask->size(), size);
    const cv::Rect extent = state.stitcher->roiInOutputPixels();
    EXPECT_NEAR(part->place.width, extent.width, 8);
    EXPECT_NEAR(part->place.height, extent.height, 8);
    // The picture covers its place at one scale.
    EXPECT_NEAR(static_cast<double>(size.width) / part->place.width,
                static_cast<double>(size.height) / part->place.height, 0.05);
    // Tight: content in every outer row and column.
    bool top = false;
    bool bottom = false;
    for (int x = 0; x < size.width; ++x) {
        top = top || part->mask->row(0)[x] > 0.0f || part->mask->row(1)[x] > 0.0f;
        bottom = bottom || part->mask->row(size.height - 1)[x] > 0.0f || part->mask->row(size.height - 2)[x] > 0.0f;
    }
    EXPECT_TRUE(top && bottom);
}

TEST_F(ComposerRendering, RendersLetTheCacheMiss)
{
    const RenderedData first = state.createFullPanorama(WarpType::Spherical, {300, 100}, {});
    const _Rect<int> roi = state.cachedRoi;
    EXPECT_NE(roi, _Rect<int>());
    EXPECT_NE(state.cachedPreviewSize, _Size<int>());
    RenderedData restored;
    EXPECT_TRUE(state.restoreCachedPreview(restored, {300, 100}, roi));
    EXPECT_EQ(restored.image, first.image);
    EXPECT_EQ(restored.context, first.context);
    EXPECT_FALSE(state.restoreCachedPreview(restored, {300, 101}, roi));
    EXPECT_FALSE(state.restoreCachedPreview(restored, {300, 100}, {roi.x + 1, roi.y, roi.width, roi.height}));
    EXPECT_FALSE(state.restoreCachedPreview(restored, {300, 100}, {}));
    (void)drawnMain({{100, 100}, {canvas.width / 2, canvas.height / 2, 100, 100}});
    EXPECT_EQ(state.cachedRoi, _Rect<int>());
    EXPECT_EQ(state.cachedPreviewSize, _Size<int>());
    EXPECT_EQ(state.cachedPreview.image, first.image) << "the picture stays until another one replaces it";
    EXPECT_FALSE(state.restoreCachedPreview(restored, {300, 100}, roi));
}

TEST_F(ComposerRendering, AFullPanoramaAtTheCanvassSizeNeedsNoSearch)
{
    for (const _Size<int> size : {_Size<int>(), canvas}) {
        state.resetCachedSettings();
        const RenderedData data = state.createFullPanorama(WarpType::Spherical, size, {});
        EXPECT_EQ(state.cachedPreviewSize, _Size<int>());
        EXPECT_EQ(data.context.size, size);
        EXPECT_EQ(data.image->size(), data.context.roi.size()) << "one pixel for each of the canvas";
    }
}

TEST_F(ComposerRendering, TheShorterSideOfAFullPanoramaIsTheRequestedOne)
{
    const RenderedData wide = state.createFullPanorama(WarpType::Spherical, {900, 120}, {});
    EXPECT_NEAR(wide.image->height(), 120, 3);
    state.resetCachedSettings();
    const RenderedData tall = state.createFullPanorama(WarpType::Spherical, {240, 900}, {});
    EXPECT_NEAR(tall.image->width(), 240, 3);
    EXPECT_NEAR(static_cast<double>(tall.context.roi.width), static_cast<double>(wide.context.roi.width), 12.0);
    EXPECT_EQ(tall.context.size, _Size<int>(240, 900));
    EXPECT_EQ(tall.context.roi, state.cachedRoi);
    EXPECT_EQ(tall.colorProfile, tall.image->colorProfile());
}

TEST_F(ComposerRendering, AFullPanoramaLiesOverWhite)
{
    const RenderedData data = state.createFullPanorama(WarpType::Spherical, {900, 120}, {});
    std::size_t outside = 0;
    for (std::size_t i = 0; i < data.image->pixelCount(); ++i) {
        if (data.mask->data()[i] > 0.0f)
            continue;
        ++outside;
        ASSERT_EQ(data.image->data()[i], (PixelRGB<float>{1.0f, 1.0f, 1.0f}));
    }
    EXPECT_GT(outside, 0u);
}

TEST_F(ComposerRendering, TheSearchedSizeIsRemembered)
{
    EXPECT_EQ(state.calculatePreviewSize(WarpType::Spherical, {900, 120}), state.cachedPreviewSize);
    const _Size<int> found = state.cachedPreviewSize;
    EXPECT_EQ(state.calculatePreviewSize(WarpType::Spherical, {900, 240}), found) << "until the next render";
}

TEST_F(ComposerRendering, CancelledNothingIsDrawn)
{
    state.cancelFlag = true;
    EXPECT_FALSE(drawnMain({}));
    EXPECT_FALSE(drawnUnderlay());
    EXPECT_FALSE(drawnPart());
    EXPECT_EQ(state.calculatePreviewSize(WarpType::Spherical, {900, 120}), _Size<int>());
    const RenderedData data = state.createFullPanorama(WarpType::Spherical, {900, 120}, {});
    EXPECT_TRUE(data.isPlaceholder);
    EXPECT_FALSE(data.image);
}

TEST_F(ComposerRendering, ExceptionsAreLoggedWithTheRenderThatMadeThem)
{
    const LogCapture log;
    ComposerSnapshot taken;
    taken.mainCallback = [](const RenderedData&) { throw std::runtime_error("main"); };
    taken.underlayCallback = [](const RenderedData&) { throw std::runtime_error("underlay"); };
    state.drawMain(WarpType::Spherical, taken, "A");
    state.drawUnderlay(WarpType::Spherical, taken, "B");
    EXPECT_THAT(log.texts(LogMessageType::Warning), ElementsAre("A: main", "B: underlay"));
}

TEST_F(ComposerRendering, FastRendersShowTheSameSofter)
{
    const PreviewContext view{{200, 100}, {canvas.width / 2 - 200, canvas.height / 2 - 100, 400, 200}};
    state.stitcher->beginViewAdjust();
    state.stitcher->setViewShift({0.01f, 0.0f});
    const auto fast = drawnMain(view);
    state.stitcher->endViewAdjust();
    const auto slow = drawnMain(view);
    ASSERT_TRUE(fast && slow);
    double difference = 0.0;
    for (std::size_t i = 0; i < fast->image->pixelCount(); ++i)
        difference += static_cast<double>(std::abs(fast->image->data()[i].g - slow->image->data()[i].g));
    EXPECT_LT(difference / static_cast<double>(fast->image->pixelCount()), 0.06);
    EXPECT_FALSE(sameBytes(*fast->image, *slow->image));
}

TEST_F(ComposerRendering, ASecondLoadMakesTheSmallSphereAnew)
{
    const PreviewContext view{{200, 100}, {canvas.width / 2 - 200, canvas.height / 2 - 100, 400, 200}};
    const auto fastView = [&] {
        state.stitcher->beginViewAdjust();
        state.stitcher->setViewShift({0.01f, 0.0f});
        auto answer = drawnMain(view);
        state.stitcher->endViewAdjust();
        state.stitcher->resetView();
        return answer;
    };
    (void)fastView();
    // The same places, another scene.
    const scenes::SphereScene other(77);
    const auto views = SmallFiles::views();
    TemporaryFolder folder;
    PanoSource source;
    for (std::size_t i = 0; i < views.size(); ++i) {
        source.files.push_back(folder / ("view_" + std::to_string(i) + ".png"));
        scenes::writeSphereView(scenes::SphereScene(5), views[i], source.files.back());
    }
    PanoramaPreviewComposerPrivate changing(source);
    changing.load({});
    (void)changing.enterProjection(WarpType::Spherical);
    ComposerSnapshot taken;
    taken.context = view;
    std::optional<RenderedData> answer;
    taken.mainCallback = [&](RenderedData data) { answer = std::move(data); };
    const auto fast = [&] {
        changing.stitcher->beginViewAdjust();
        changing.stitcher->setViewShift({0.01f, 0.0f});
        changing.drawMain(WarpType::Spherical, taken, "");
        const auto drawn = answer;
        changing.stitcher->endViewAdjust();
        changing.drawMain(WarpType::Spherical, taken, "");
        double difference = 0.0;
        for (std::size_t i = 0; i < drawn->image->pixelCount(); ++i)
            difference += static_cast<double>(std::abs(drawn->image->data()[i].g - answer->image->data()[i].g));
        return difference / static_cast<double>(drawn->image->pixelCount());
    };
    EXPECT_LT(fast(), 0.06);
    for (std::size_t i = 0; i < views.size(); ++i)
        scenes::writeSphereView(other, views[i], source.files[i]);
    changing.load({});
    ASSERT_EQ(changing.stitcher->getStatus(), 1);
    EXPECT_LT(fast(), 0.06) << "the drag shows the pictures of the first load";
}

TEST_F(ComposerRendering, TheTurnGoesAboutTheMiddleOfTheView)
{
    // About the canvas's middle while there is no view: the ray ahead stays.
    state.turn(0.2f, {});
    const cv::Mat whole = state.stitcher->getViewRotation().clone();
    EXPECT_NEAR(whole.at<float>(2, 2), 1.0f, 1e-4f);
    EXPECT_NEAR(std::abs(whole.at<float>(0, 1)), std::sin(0.2f), 1e-3f);
    state.stitcher->resetView();
    state.turn(0.2f, {canvas.width / 2, canvas.height / 2 - 50, 200, 100});
    const cv::Mat beside = state.stitcher->getViewRotation();
    // A hundred of 400 pixels a radian to the right.
    const cv::Mat ray = (cv::Mat_<float>(3, 1) << std::sin(0.25f), 0.0f, std::cos(0.25f));
    EXPECT_LT(cv::norm(beside * ray - ray), 0.01);
    EXPECT_GT(cv::norm(beside - whole), 0.02);
}
