// Sizes, caches and pictures of renders, on the caller's thread.
#include "composer/composer_private.hpp"
#include "composer_sets.hpp"
#include "support/pictures.hpp"

#include <orvo_logger/log_capture.hpp>

#include <gmock/gmock.h>

#include <cmath>
#include <functional>
#include <memory>
#include <new>
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
    _Rect<int> extent; // as the load has reported it

    void SetUp() override
    {
        ComposerTest::SetUp();
        state.load([this](bool, _Rect<int> reported) { extent = reported; });
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

// A rectangle of a drawing on the canvas, with both ways to whole pixels.
struct Places
{
    _Rect<int> truncated;
    _Rect<int> rounded;
};

Places placesOf(const cv::Rect& drawn, float factor)
{
    const auto truncated = [factor](int value) { return static_cast<int>(static_cast<float>(value) * factor); };
    const auto rounded = [factor](int value) {
        return static_cast<int>(std::lround(static_cast<float>(value) * factor));
    };
    return {{truncated(drawn.x), truncated(drawn.y), truncated(drawn.width), truncated(drawn.height)},
            {rounded(drawn.x), rounded(drawn.y), rounded(drawn.width), rounded(drawn.height)}};
}

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

TEST_F(ComposerRendering, TheMeaningfulPartOfATallPanoramaIsTwoThousandPixelsHigh)
{
    state.turn(1.5707964f, {});
    const auto part = drawnPart();
    ASSERT_TRUE(part);
    EXPECT_NEAR(part->image->height(), 2000, 2000 / 200);
    EXPECT_LT(part->image->width(), 1500);
}

TEST_F(ComposerRendering, TheMeaningfulPartIsAboutTwoThousandPixelsLong)
{
    const auto part = drawnPart();
    ASSERT_TRUE(part);
    const _Size<int> size = part->image->size();
    EXPECT_NEAR(std::max(size.width, size.height), 2000, 2000 / 200);
    EXPECT_EQ(part->mask->size(), size);
    const cv::Rect outer = state.stitcher->roiInOutputPixels();
    EXPECT_EQ(extent, _Rect<int>(outer.x, outer.y, outer.width, outer.height));
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
    // Its place, truncated.
    const float s = 1500.0f / static_cast<float>(canvas.width);
    const cv::Rect coarse = state.drawCanvas(canvas, fittedSize(canvas.width, canvas.height), false).roi;
    const float k = 2000.0f * s / static_cast<float>(coarse.width);
    const _Size<int> whole(static_cast<int>(static_cast<float>(canvas.width) * k),
                           static_cast<int>(static_cast<float>(canvas.height) * k));
    const auto places = placesOf(state.drawCanvas(canvas, whole, false).roi, 1.0f / k);
    ASSERT_NE(places.truncated, places.rounded) << "the test needs another panorama";
    EXPECT_EQ(part->place, places.truncated);
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
    const _Size<int> size = state.cachedPreviewSize;
    const std::function<void()> renders[] = {
        [&] {
            (void)drawnMain({{100, 100}, {canvas.width / 2, canvas.height / 2, 100, 100}});
        },
        [&] { (void)drawnUnderlay(); }, [&] { state.shift({}); }, [&] { state.turn(0.0f, {}); },
        [&] { state.reset(); }};
    for (const auto& render : renders) {
        state.cachedRoi = roi;
        state.cachedPreviewSize = size;
        render();
        EXPECT_EQ(state.cachedRoi, _Rect<int>());
        EXPECT_EQ(state.cachedPreviewSize, _Size<int>());
        EXPECT_EQ(state.cachedPreview.image, first.image) << "the picture stays until another one replaces it";
        EXPECT_FALSE(state.restoreCachedPreview(restored, {300, 100}, roi));
    }
}

TEST_F(ComposerRendering, AFullPanoramaIsDrawnOnTheCanvasOfItsProjection)
{
    for (const _Size<int> size : {_Size<int>(), _Size<int>(600, 100)}) {
        state.resetCachedSettings();
        (void)state.createFullPanorama(WarpType::Spherical, {300, 60}, {});
        for (const WarpType type : {WarpType::Mercator, WarpType::Fisheye}) {
            const RenderedData after = state.createFullPanorama(type, size, state.cachedRoi);
            state.resetCachedSettings();
            const RenderedData fresh = state.createFullPanorama(type, size, {});
            EXPECT_TRUE(sameBytes(*after.image, *fresh.image));
            EXPECT_EQ(after.context, fresh.context);
        }
    }
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
    state.resetCachedSettings();
    EXPECT_NEAR(state.createFullPanorama(WarpType::Spherical, {120, 120}, {}).image->height(), 120, 3);
}

TEST_F(ComposerRendering, ThePlaceOfAFullPanoramaIsRounded)
{
    const RenderedData data = state.createFullPanorama(WarpType::Spherical, {900, 120}, {});
    const _Size<int> size = state.cachedPreviewSize;
    const auto places = placesOf(state.drawCanvas(canvas, size, false).roi,
                                 static_cast<float>(canvas.width) / static_cast<float>(size.width));
    ASSERT_NE(places.truncated, places.rounded) << "the test needs another size";
    EXPECT_EQ(data.context.roi, places.rounded);
}

TEST_F(ComposerRendering, SizesThatNothingHoldsGiveNothing)
{
    for (const _Size<int> size : {_Size<int>(2'000'000'000, 2'000'000'000), _Size<int>(0, 5), _Size<int>(-3, -4)}) {
        state.resetCachedSettings();
        EXPECT_TRUE(state.createFullPanorama(WarpType::Spherical, size, {}).isPlaceholder) << size.width;
    }
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
    taken.meaningfulPartCallback = [](const auto&, const auto&, _Rect<int>) { throw 3; };
    state.drawUnderlay(WarpType::Spherical, taken, "C");
    EXPECT_THAT(log.texts(LogMessageType::Warning), ElementsAre("A: main", "B: underlay", "C: not a std::exception"));
}

TEST_F(ComposerRendering, ADrawingThatFailsIsLoggedWithItsNameAndReported)
{
    state.stitcher->setWorkCallback([](float) { throw std::runtime_error("no memory"); });
    const LogCapture log;
    EXPECT_TRUE(state.createFullPanorama(WarpType::Spherical, {}, {}).isPlaceholder);
    EXPECT_TRUE(state.createFullPanorama(WarpType::Spherical, {900, 120}, {}).isPlaceholder);
    using testing::AllOf;
    using testing::EndsWith;
    using testing::HasSubstr;
    EXPECT_THAT(
        log.texts(LogMessageType::Warning),
        ElementsAre(AllOf(HasSubstr("orvo::PanoramaPreviewComposer::createFullPanorama("), EndsWith(": no memory")),
                    AllOf(HasSubstr("orvo::PanoramaPreviewComposer::calculatePreviewSize("), EndsWith(": no memory"))));
    std::optional<Failure> reason;
    for (const _Size<int> size : {_Size<int>(), _Size<int>(900, 120)}) {
        reason.reset();
        state.cropPreview(WarpType::Spherical, size, [&](const RenderedData&, _Rect<int>) { reason = lastFailure(); });
        EXPECT_EQ(reason, (Failure{FailureKind::Internal, {}, "no memory"}));
    }
    state.reset();
    EXPECT_THAT(log.texts(LogMessageType::Warning).back(),
                AllOf(HasSubstr("orvo::PanoramaPreviewComposer::resetAlignmentAdjustments("), EndsWith(": no memory")));
    reason.reset();
    ComposerSnapshot taken;
    taken.mainCallback = [](const RenderedData&) { ADD_FAILURE(); };
    taken.failureCallback = [&](const Failure& failure) { reason = failure; };
    state.drawMain(WarpType::Spherical, taken, "");
    EXPECT_EQ(reason, (Failure{FailureKind::Internal, {}, "no memory"}));
    taken.mainCallback = {};
    taken.underlayCallback = [](const RenderedData&) { ADD_FAILURE(); };
    reason.reset();
    state.drawUnderlay(WarpType::Spherical, taken, "");
    EXPECT_EQ(reason, (Failure{FailureKind::Internal, {}, "no memory"}));
}

TEST_F(ComposerRendering, ALongCropOfAReprojectionIsNotLimited)
{
    const _Size<int> whole = state.enterProjection(WarpType::Cylindrical);
    const cv::Rect content = state.drawCanvas(whole, whole, false).roi;
    // What it shows would fit into the limited size.
    PanoramaPreviewComposer::CropInfo info;
    info.context.roi = {content.x + 300, content.y + content.height - 60, 40000, 100};
    info.context.size = info.context.roi.size();
    info.crop = cropOf({0, 0, 40000, 100});
    RenderedData picture;
    state.finish(
        WarpType::Cylindrical, info, [&](RenderedData data) { picture = std::move(data); }, "");
    ASSERT_FALSE(picture.isPlaceholder);
    EXPECT_EQ(picture.image->size(), _Size<int>(40000, 100));
}

TEST_F(ComposerRendering, ALoadThatThrowsHasAReason)
{
    state.stitcher->setLoadCallback([](float) { throw std::bad_alloc(); });
    std::optional<Failure> reason;
    const LogCapture log;
    state.load([&](bool, _Rect<int>) { reason = lastFailure(); });
    ASSERT_TRUE(reason);
    EXPECT_EQ(reason->kind, FailureKind::OutOfMemory);
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
    changing.cachedRoi = {1, 2, 3, 4};
    changing.load({});
    ASSERT_EQ(changing.stitcher->getStatus(), 1);
    EXPECT_EQ(changing.cachedRoi, _Rect<int>()) << "the kept picture shows the first load";
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
