// Scheduling: what is drawn when, with which context, on which thread.
#include "composer_sets.hpp"

#include <orvo_logger/log_capture.hpp>

#include <gmock/gmock.h>

#include <algorithm>
#include <atomic>
#include <functional>
#include <future>
#include <memory>
#include <stdexcept>

using namespace orvo;
using namespace orvo::test;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

namespace {

// The middle of a canvas of 2513 by 1256.
constexpr _Rect<int> kMiddle(1056, 528, 400, 200);
constexpr PreviewContext kView{{200, 100}, kMiddle};

class ComposerApi : public ComposerTest
{
protected:
    PanoramaPreviewComposer composer{SmallFiles::source()};
    Answers<RenderedData> mains;
    Answers<RenderedData> underlays;

    void receiveMains()
    {
        composer.setCallback([this](RenderedData data) { mains.add(std::move(data)); });
    }
    void receiveUnderlays()
    {
        composer.setUnderlayCallback([this](RenderedData data) { underlays.add(std::move(data)); });
    }
    /// Keeps the worker busy until the returned function is called.
    std::function<void()> hold()
    {
        auto entered = std::make_shared<std::promise<void>>();
        auto opened = std::make_shared<std::promise<void>>();
        composer.finalize({}, [entered, passable = opened->get_future().share()](const RenderedData&) {
            entered->set_value();
            passable.wait();
        });
        entered->get_future().wait();
        return [opened] { opened->set_value(); };
    }
};

} // namespace

TEST_F(ComposerApi, LoadsAndReportsThePanorama)
{
    const Load load = loaded(composer);
    EXPECT_TRUE(load.fits);
    // Three steps of 21 degrees and a view of 53, 400 pixels a radian.
    EXPECT_NEAR(load.extent.width, 811, 30);
    EXPECT_NEAR(composer.getCanvasSize().width, 2 * 400 * 3.14159, 60);
    EXPECT_NEAR(composer.getCanvasSize().height, 400 * 3.14159, 30);
    const _Point<float> middle = composer.getCurrentCenterPointPosition();
    EXPECT_EQ(middle.x, static_cast<float>(composer.getCanvasSize().width / 2));
    EXPECT_EQ(middle.y, static_cast<float>(composer.getCanvasSize().height / 2));
}

TEST_F(ComposerApi, PlacesAreInTheOrderOfTheSource)
{
    const TemporaryFolder folder;
    PanoSource source = SmallFiles::source();
    std::swap(source.files[0], source.files[3]);
    source.files.insert(source.files.begin(), folder / "stranger.png");
    scenes::writeSphereView(scenes::SphereScene(99), SmallFiles::views()[0], source.files.front());
    PanoramaPreviewComposer unordered(source);
    ASSERT_EQ(unordered.getPlaces().size(), 5u);
    for (const PanoramaPlace& place : unordered.getPlaces())
        EXPECT_FALSE(place.placed) << "before the load";
    ASSERT_TRUE(loaded(unordered).fits);
    const auto places = unordered.getPlaces();
    ASSERT_EQ(places.size(), 5u);
    for (std::size_t i = 0; i < 5; ++i) {
        EXPECT_EQ(places[i].path, source.files[i]);
        EXPECT_EQ(places[i].placed, i != 0);
    }
    // The axis of a camera, the third column, points to the right of the one before.
    const auto right = [&](std::size_t i) { return places[i].rotation[2]; };
    EXPECT_LT(right(4), right(2));
    EXPECT_LT(right(2), right(3));
    EXPECT_LT(right(3), right(1));
    EXPECT_TRUE(PanoramaPreviewComposer{PanoSourceVideo()}.getPlaces().empty());
}

TEST_F(ComposerApi, TheFirstUnderlayFollowsTheLoad)
{
    receiveUnderlays();
    Answers<int> order;
    composer.setUnderlayCallback([&](const RenderedData&) { order.add(2); });
    composer.loadWithCompletion([&](bool, _Rect<int>) { order.add(1); });
    EXPECT_THAT(order.wait(2), ElementsAre(1, 2));
    EXPECT_NE(order.threadsOfAnswers().at(0), std::this_thread::get_id());
    EXPECT_EQ(order.threadsOfAnswers().at(0), order.threadsOfAnswers().at(1));
}

TEST_F(ComposerApi, ProgressRisesToOneOnTheWorker)
{
    Answers<float> reported;
    composer.setLoadCallback([&](float share) { reported.add(share); });
    ASSERT_TRUE(loaded(composer).fits);
    const auto shares = reported.all();
    ASSERT_EQ(shares.size(), 4u);
    EXPECT_TRUE(std::is_sorted(shares.begin(), shares.end()));
    EXPECT_EQ(shares.back(), 1.0f);
    EXPECT_NE(reported.threadsOfAnswers().front(), std::this_thread::get_id());
}

TEST_F(ComposerApi, AnEmptyLoadCallbackDoesNotMakeALoadFail)
{
    composer.setLoadCallback({});
    EXPECT_TRUE(loaded(composer).fits);
}

TEST_F(ComposerApi, AThrowingLoadCallbackMakesTheLoadFail)
{
    const LogCapture log;
    composer.setLoadCallback([](float) { throw std::runtime_error("receiver is gone"); });
    EXPECT_FALSE(loaded(composer).fits);
    EXPECT_THAT(log.texts(LogMessageType::Warning), ElementsAre("Exception in source loading: receiver is gone"));
    composer.setLoadCallback([](float) { throw 5; });
    EXPECT_FALSE(loaded(composer).fits);
    EXPECT_THAT(log.texts(LogMessageType::Warning),
                ElementsAre("Exception in source loading: receiver is gone", "Exception in source loading."));
}

TEST_F(ComposerApi, PicturesThatDoNotFitAreAFailure)
{
    PanoSource alone;
    alone.files = {SmallFiles::source().files[0], SmallFiles::source().files[3]};
    PanoramaPreviewComposer other(alone);
    const Load load = loaded(other);
    EXPECT_FALSE(load.fits);
    EXPECT_EQ(load.extent, _Rect<int>());
    PanoramaPreviewComposer missing(PanoSource{{"/nowhere/a.jpg", "/nowhere/b.jpg"}, {}});
    EXPECT_FALSE(loaded(missing).fits);
}

TEST_F(ComposerApi, AnEmptyCompletionIsNotCalled)
{
    const LogCapture log;
    composer.loadWithCompletion({});
    settle(composer);
    EXPECT_THAT(log.texts(LogMessageType::Warning), IsEmpty());
    EXPECT_THAT(log.texts(LogMessageType::Error), IsEmpty());
    composer.cancelAll();
    composer.loadWithCompletion({});
    settle(composer);
    EXPECT_THAT(log.texts(LogMessageType::Warning), ElementsAre(StartsWith("Exception in source loading: ")));
    EXPECT_THAT(log.texts(LogMessageType::Error), IsEmpty());
}

TEST_F(ComposerApi, AThrowingCompletionIsCalledOnceMoreAndTheWorkerGoesOn)
{
    const LogCapture log;
    Answers<bool> calls;
    composer.loadWithCompletion([&](bool fits, _Rect<int>) {
        calls.add(fits);
        throw std::runtime_error("window closed");
    });
    EXPECT_THAT(calls.wait(2), ElementsAre(true, false));
    receiveMains();
    composer.setContext(kView);
    EXPECT_EQ(mains.first().context, kView);
    EXPECT_THAT(log.texts(LogMessageType::Warning), ElementsAre("Exception in source loading: window closed"));
    EXPECT_THAT(log.texts(LogMessageType::Error), ElementsAre(HasSubstr("window closed")));
}

TEST_F(ComposerApi, AThrowingCropCallbackIsCalledOnceMoreAndTheWorkerGoesOn)
{
    ASSERT_TRUE(loaded(composer).fits);
    const LogCapture log;
    Answers<bool> calls;
    composer.getCropPreview({300, 100}, [&](const RenderedData& data, _Rect<int>) {
        calls.add(data.isPlaceholder);
        throw 7;
    });
    EXPECT_THAT(calls.wait(2), ElementsAre(false, true));
    composer.finalize({}, [&](const RenderedData& data) {
        calls.add(data.isPlaceholder);
        throw std::runtime_error("no");
    });
    (void)calls.wait(4);
    EXPECT_FALSE(cropPreview(composer, {300, 100}).data.isPlaceholder);
    EXPECT_THAT(log.texts(LogMessageType::Warning),
                ElementsAre("Exception in crop preview generation.", HasSubstr("finalize: roi is incorrect"),
                            "Exception in finalize: no"));
    EXPECT_THAT(log.texts(LogMessageType::Error), testing::SizeIs(2));
}

TEST_F(ComposerApi, EveryReceiverThatThrowsIsReportedWithItsTask)
{
    ASSERT_TRUE(loaded(composer).fits);
    const LogCapture log;
    Answers<bool> calls;
    std::size_t expected = 0;
    for (const bool hasReason : {true, false}) {
        const auto raise = [&calls, hasReason](const RenderedData& data) {
            calls.add(data.isPlaceholder);
            if (hasReason)
                throw std::runtime_error("no");
            throw 7;
        };
        composer.getCropPreview({300, 100}, [raise](const RenderedData& data, _Rect<int>) { raise(data); });
        composer.getFinalizePreview({}, raise, {300, 100});
        composer.finalize({}, raise);
        expected += 6; // each is called once more by its own catch
        (void)calls.wait(expected);
    }
    EXPECT_FALSE(cropPreview(composer, {300, 100}).data.isPlaceholder);
    std::vector<std::string> exceptions;
    for (const std::string& line : log.texts(LogMessageType::Warning))
        if (line.find("roi is incorrect") == std::string::npos)
            exceptions.push_back(line);
    EXPECT_THAT(exceptions,
                ElementsAre("Exception in crop preview generation: no", "Exception in final preview generation: no",
                            "Exception in finalize: no", "Exception in crop preview generation.",
                            "Exception in final preview generation.", "Exception in finalize."));
}

TEST_F(ComposerApi, AContextWithoutASizeIsLoggedAndChangesNothing)
{
    ASSERT_TRUE(loaded(composer).fits);
    receiveMains();
    const LogCapture log;
    composer.setContext({{0, 0}, {0, 0, 0, 0}});
    composer.setContext({{0, 10}, {1, 2, 3, 4}});
    composer.setContext({{10, 10}, {1, 2, 3, 0}});
    settle(composer);
    EXPECT_THAT(mains.all(), IsEmpty());
    EXPECT_THAT(
        log.texts(LogMessageType::Warning),
        ElementsAre("PanoramaPreviewComposer::setContext: invalid context: size: (w:0 h:0), roi: (x:0 y:0 w:0 h:0)",
                    "PanoramaPreviewComposer::setContext: invalid context: size: (w:0 h:10), roi: (x:1 y:2 w:3 h:4)",
                    "PanoramaPreviewComposer::setContext: invalid context: size: (w:10 h:10), roi: (x:1 y:2 w:3 h:0)"));
}

TEST_F(ComposerApi, SettersOfTheMainCallbackDrawNothing)
{
    ASSERT_TRUE(loaded(composer).fits);
    EXPECT_FALSE(composer.getCallback());
    receiveMains();
    EXPECT_TRUE(composer.getCallback());
    settle(composer);
    EXPECT_THAT(mains.all(), IsEmpty());
}

TEST_F(ComposerApi, UnderlaySettersDraw)
{
    ASSERT_TRUE(loaded(composer).fits);
    receiveUnderlays();
    EXPECT_FALSE(underlays.first().isPlaceholder);
    Answers<_Rect<int>> parts;
    composer.setUnderlayMeaningfulPartCallback([&](const auto&, const auto&, _Rect<int> part) { parts.add(part); });
    (void)parts.first();
    settle(composer);
    EXPECT_EQ(underlays.all().size(), 1u) << "the two exclude each other";
}

TEST_F(ComposerApi, OnlyTheLastWaitingRenderOfAChannelRuns)
{
    ASSERT_TRUE(loaded(composer).fits);
    receiveMains();
    const auto release = hold();
    for (int width = 1; width <= 30; ++width)
        composer.setContext({{100 + width, 80}, kMiddle});
    release();
    settle(composer);
    const auto answers = mains.all();
    ASSERT_EQ(answers.size(), 1u);
    EXPECT_EQ(answers[0].context.size.width, 130);
}

TEST_F(ComposerApi, WithoutReplacementEveryRenderRuns)
{
    ASSERT_TRUE(loaded(composer).fits);
    receiveMains();
    ComposerConfiguration configuration;
    configuration.replacesWaitingRenders = false;
    composer.setConfiguration(configuration);
    const auto release = hold();
    for (int width = 1; width <= 3; ++width)
        composer.setContext({{100 + width, 80}, kMiddle});
    release();
    settle(composer);
    const auto answers = mains.all();
    ASSERT_EQ(answers.size(), 3u);
    for (int i = 0; i < 3; ++i) {
        const auto& answer = answers[static_cast<std::size_t>(i)];
        EXPECT_EQ(answer.context.size.width, 101 + i);
        EXPECT_EQ(answer.image->width(), 101 + i) << "each picture comes with its own context";
    }
}

TEST_F(ComposerApi, ARenderUsesTheCallbackAtItsRequest)
{
    ASSERT_TRUE(loaded(composer).fits);
    receiveMains();
    Answers<RenderedData> later;
    const auto release = hold();
    composer.setContext(kView);
    composer.setCallback([&](RenderedData data) { later.add(std::move(data)); });
    release();
    settle(composer);
    EXPECT_EQ(mains.all().size(), 1u);
    EXPECT_THAT(later.all(), IsEmpty());
}

TEST_F(ComposerApi, TheSameProjectionAgainDrawsNothing)
{
    ASSERT_TRUE(loaded(composer).fits);
    receiveUnderlays();
    settle(composer);
    const auto before = underlays.all().size();
    composer.changeProjectionType(composer.getProjectionType());
    settle(composer);
    EXPECT_EQ(underlays.all().size(), before);
    composer.changeProjectionType(WarpType::Mercator);
    EXPECT_EQ(composer.getProjectionType(), WarpType::Mercator);
    (void)underlays.wait(before + 1);
    receiveMains();
    settle(composer);
    EXPECT_THAT(mains.all(), IsEmpty()) << "the main view waits for its next context";
}

TEST_F(ComposerApi, TheFirstProjectionIsThatOfTheSettings)
{
    EXPECT_EQ(composer.getProjectionType(), WarpType::Spherical);
    PanoSource source = SmallFiles::source();
    source.settings.warpType = static_cast<std::int32_t>(WarpType::Fisheye);
    EXPECT_EQ(PanoramaPreviewComposer(source).getProjectionType(), WarpType::Fisheye);
}

TEST_F(ComposerApi, RotationIsNeverReported)
{
    ASSERT_TRUE(loaded(composer).fits);
    composer.setRotation(0.3f);
    EXPECT_EQ(composer.getRotation(), 0.0f);
}

TEST_F(ComposerApi, ResetDrawsBothChannels)
{
    ASSERT_TRUE(loaded(composer).fits);
    receiveUnderlays();
    receiveMains();
    composer.setContext(kView);
    settle(composer);
    const auto mainsBefore = mains.all().size();
    const auto underlaysBefore = underlays.all().size();
    composer.resetAlignmentAdjustments();
    settle(composer);
    EXPECT_EQ(mains.all().size(), mainsBefore + 1);
    EXPECT_EQ(underlays.all().size(), underlaysBefore + 1);
}

TEST_F(ComposerApi, BeforeALoadNothingIsAnsweredAndNothingBreaks)
{
    receiveMains();
    receiveUnderlays();
    composer.setContext(kView);
    composer.setShiftVector({0.1f, 0.1f});
    composer.setRotation(0.1f);
    composer.startFastRender();
    composer.finishFastRender();
    composer.resetAlignmentAdjustments();
    settle(composer);
    EXPECT_THAT(mains.all(), IsEmpty());
    EXPECT_THAT(underlays.all(), IsEmpty());
    EXPECT_TRUE(loaded(composer).fits);
    composer.setContext(kView);
    EXPECT_TRUE(mains.first().image);
}

TEST_F(ComposerApi, AfterCancelAllRendersRunAndAnswerNothing)
{
    ASSERT_TRUE(loaded(composer).fits);
    receiveMains();
    receiveUnderlays();
    settle(composer);
    const auto before = underlays.all().size();
    composer.cancelAll();
    composer.setContext(kView);
    composer.changeProjectionType(WarpType::Cylindrical);
    settle(composer);
    EXPECT_THAT(mains.all(), IsEmpty());
    EXPECT_EQ(underlays.all().size(), before);
    EXPECT_FALSE(loaded(composer).fits);
    const CropPreview crop = cropPreview(composer, {300, 100});
    EXPECT_TRUE(crop.data.isPlaceholder);
    EXPECT_FALSE(crop.data.image);
    EXPECT_EQ(crop.proposal, _Rect<int>());
    PanoramaPreviewComposer::CropInfo info;
    info.context.roi = {0, 0, 100, 100};
    EXPECT_TRUE(finalized(composer, info).isPlaceholder);
    EXPECT_TRUE(finalPreview(composer, info, {100, 100}).isPlaceholder);
}

TEST_F(ComposerApi, CallingPointsDoNothing)
{
    receiveMains();
    composer.startSetup();
    composer.finishSetup();
    composer.setVideoInterval(3, 9);
    composer.setCompositionParams({1, 2}, {{0, 0, 5, 5}, {0, 0, 5, 5}});
    settle(composer);
    EXPECT_THAT(mains.all(), IsEmpty());
    EXPECT_TRUE(loaded(composer).fits);
}
