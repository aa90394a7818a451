// Scheduling: what is drawn when, with which context, on which thread.
#include "composer_sets.hpp"
#include "support/pictures.hpp"

#include <orvo_logger/log_capture.hpp>

#include <gmock/gmock.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <functional>
#include <future>
#include <memory>
#include <optional>
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
    /// The answer to the last of `count` requests of the main view.
    RenderedData main(std::size_t count) { return mains.wait(count).at(count - 1); }
};

bool isSamePicture(const RenderedData& a, const RenderedData& b) { return sameBytes(*a.image, *b.image); }

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

TEST_F(ComposerApi, ACompletionFindsTheReasonOfAFailure)
{
    const auto reasonOf = [](const PanoSource& source, bool cancels) {
        PanoramaPreviewComposer other(source);
        if (cancels)
            other.cancelAll();
        Answers<std::optional<Failure>> reasons;
        other.loadWithCompletion([&](bool, _Rect<int>) { reasons.add(lastFailure()); });
        return reasons.first().value_or(Failure{FailureKind::Internal, {}, "none"});
    };
    EXPECT_EQ(reasonOf(SmallFiles::source(), true), cancelledFailure());
    EXPECT_EQ(reasonOf({}, false).sentence, "the source names no pictures");
    EXPECT_EQ(reasonOf({{"/nowhere/a.jpg"}, {}}, false).file, "/nowhere/a.jpg");
    PanoSource alone;
    alone.files = {SmallFiles::source().files[0]};
    EXPECT_EQ(reasonOf(alone, false).kind, FailureKind::UnfittingPictures);
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
    Answers<std::optional<Failure>> reasons;
    composer.loadWithCompletion([&](bool fits, _Rect<int>) {
        reasons.add(lastFailure());
        calls.add(fits);
        throw std::runtime_error("window closed");
    });
    EXPECT_THAT(calls.wait(2), ElementsAre(true, false));
    EXPECT_EQ(reasons.all()[0], std::nullopt);
    EXPECT_EQ(reasons.all()[1], (Failure{FailureKind::Internal, {}, "window closed"}));
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
    Answers<_Rect<int>> proposals;
    composer.getCropPreview({300, 100}, [&](const RenderedData& data, _Rect<int> proposal) {
        proposals.add(proposal);
        calls.add(data.isPlaceholder);
        throw 7;
    });
    EXPECT_THAT(calls.wait(2), ElementsAre(false, true));
    EXPECT_EQ(proposals.all()[1], _Rect<int>(0, 0, 100, 100)) << "all of the gray picture";
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
        if (line.starts_with("Exception in "))
            exceptions.push_back(line);
    EXPECT_THAT(exceptions,
                ElementsAre("Exception in crop preview generation: no", "Exception in final preview generation: no",
                            "Exception in finalize: no", "Exception in crop preview generation.",
                            "Exception in final preview generation.", "Exception in finalize."));
    // The second call throws, too: that is for the queue, which names the operation.
    EXPECT_THAT(log.texts(LogMessageType::Error),
                testing::IsSupersetOf({"Exception in an operation getFinalizePreview: no",
                                       "Exception in an operation finalize: no",
                                       "Exception in an operation getFinalizePreview: not a std::exception",
                                       "Exception in an operation finalize: not a std::exception"}));
}

TEST_F(ComposerApi, RendersThatThrowAreLoggedWithTheirNamesAndReported)
{
    ASSERT_TRUE(loaded(composer).fits);
    const LogCapture log;
    Answers<Failure> failures;
    composer.setFailureCallback([&](Failure failure) { failures.add(std::move(failure)); });
    composer.setCallback([](const RenderedData&) { throw std::runtime_error("no view"); });
    composer.setContext(kView);
    composer.setUnderlayCallback([](const RenderedData&) { throw 3; });
    const auto reported = failures.wait(2);
    ASSERT_EQ(reported.size(), 2u);
    EXPECT_EQ(reported[0], (Failure{FailureKind::Internal, {}, "no view"}));
    EXPECT_EQ(reported[1].kind, FailureKind::Internal);
    EXPECT_THAT(log.texts(LogMessageType::Warning),
                ElementsAre(testing::AllOf(HasSubstr("PanoramaPreviewComposer::renderMain"), EndsWith("): no view")),
                            testing::AllOf(HasSubstr("PanoramaPreviewComposer::renderUnderlay"),
                                           EndsWith("): not a std::exception"))));
    EXPECT_THAT(log.texts(LogMessageType::Error), IsEmpty());
}

TEST_F(ComposerApi, EmptyCallbacksOfTheCropAreLoggedAndTheWorkerGoesOn)
{
    ASSERT_TRUE(loaded(composer).fits);
    const LogCapture log;
    composer.getCropPreview({300, 100}, {});
    composer.getFinalizePreview({}, {}, {});
    composer.finalize({}, {});
    EXPECT_FALSE(cropPreview(composer, {300, 100}).data.isPlaceholder);
    EXPECT_THAT(log.texts(LogMessageType::Error), testing::SizeIs(3));
}

TEST_F(ComposerApi, AnswersOfTheCropComeFromTheWorker)
{
    Answers<int> answers;
    composer.loadWithCompletion([&](bool, _Rect<int>) { answers.add(0); });
    composer.getCropPreview({300, 100}, [&](const RenderedData&, _Rect<int>) { answers.add(1); });
    composer.getFinalizePreview({}, [&](const RenderedData&) { answers.add(2); }, {});
    composer.finalize({}, [&](const RenderedData&) { answers.add(3); });
    EXPECT_THAT(answers.wait(4), ElementsAre(0, 1, 2, 3));
    const auto threads = answers.threadsOfAnswers();
    EXPECT_THAT(threads, testing::Each(threads[0]));
    EXPECT_NE(threads[0], std::this_thread::get_id());
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
    composer.setContext(kView);
    settle(composer);
    composer.setContext({{10, 10}, {1, 2, 3, 0}});
    composer.setShiftVector({0.01f, 0.0f});
    EXPECT_EQ(main(2).context, kView) << "the last valid one";
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
    receiveMains();
    const _Size<int> canvas = composer.getCanvasSize();
    const auto release = hold();
    composer.changeProjectionType(WarpType::Mercator);
    EXPECT_EQ(composer.getProjectionType(), WarpType::Mercator);
    EXPECT_NE(composer.getCanvasSize(), canvas) << "before anything is drawn in it";
    release();
    (void)underlays.wait(before + 1);
    settle(composer);
    EXPECT_THAT(mains.all(), IsEmpty()) << "the main view waits for its next context";
}

TEST_F(ComposerApi, RequestsUseTheProjectionAtTheirTime)
{
    ASSERT_TRUE(loaded(composer).fits);
    receiveMains();
    composer.setContext(kView);
    settle(composer);
    const _Size<int> sphere = composer.getCanvasSize();
    const CropPreview crop = cropPreview(composer, {300, 100});
    PanoramaPreviewComposer::CropInfo info;
    info.context.roi = crop.data.context.roi;
    const RenderedData preview = finalPreview(composer, info, {300, 100});
    const RenderedData whole = finalized(composer, info);

    ComposerConfiguration configuration;
    configuration.replacesWaitingRenders = false; // the new projection would replace the underlay
    composer.setConfiguration(configuration);
    Answers<CropPreview> crops;
    Answers<RenderedData> finals;
    const auto release = hold();
    composer.setContext(kView);
    receiveUnderlays();
    composer.getCropPreview({300, 100}, [&](RenderedData data, _Rect<int> rect) {
        crops.add({std::move(data), rect});
    });
    composer.getFinalizePreview(info, [&](RenderedData data) { finals.add(std::move(data)); }, {300, 100});
    composer.finalize(info, [&](RenderedData data) { finals.add(std::move(data)); });
    composer.changeProjectionType(WarpType::Mercator);
    release();
    EXPECT_TRUE(isSamePicture(main(2), mains.all()[0]));
    EXPECT_TRUE(isSamePicture(crops.first().data, crop.data));
    EXPECT_EQ(crops.first().proposal, crop.proposal);
    EXPECT_TRUE(isSamePicture(finals.wait(2)[0], preview));
    EXPECT_TRUE(isSamePicture(finals.wait(2)[1], whole));
    EXPECT_EQ(underlays.wait(2)[0].context.roi.size(), sphere);
    EXPECT_EQ(underlays.wait(2)[1].context.roi.size(), composer.getCanvasSize());
}

TEST_F(ComposerApi, OnlyTheLastWaitingUnderlayRuns)
{
    ASSERT_TRUE(loaded(composer).fits);
    receiveUnderlays();
    settle(composer);
    const auto release = hold();
    for (const WarpType type : {WarpType::Mercator, WarpType::Plane, WarpType::Cylindrical})
        composer.changeProjectionType(type);
    release();
    settle(composer);
    ASSERT_EQ(underlays.all().size(), 2u);
    EXPECT_EQ(underlays.all()[1].context.roi.size(), composer.getCanvasSize());
}

TEST_F(ComposerApi, EveryCropPreviewIsAnswered)
{
    Answers<int> answers;
    const auto release = hold();
    for (int i = 0; i < 3; ++i)
        composer.getCropPreview({300, 100}, [&answers, i](const RenderedData&, _Rect<int>) { answers.add(i); });
    release();
    EXPECT_THAT(answers.wait(3), ElementsAre(0, 1, 2));
}

TEST_F(ComposerApi, AMoveIsSeenInTheRenderBehindIt)
{
    ASSERT_TRUE(loaded(composer).fits);
    receiveMains();
    std::size_t count = 0;
    const auto drawn = [&](const std::function<void()>& request) {
        request();
        settle(composer);
        return main(++count);
    };
    const auto again = [&] { composer.setContext(kView); };
    const RenderedData first = drawn(again);
    const RenderedData shifted = drawn([&] { composer.setShiftVector({0.02f, 0.0f}); });
    EXPECT_TRUE(isSamePicture(drawn(again), shifted));
    EXPECT_FALSE(isSamePicture(first, shifted));
    const RenderedData turned = drawn([&] { composer.setRotation(0.2f); });
    EXPECT_TRUE(isSamePicture(drawn(again), turned));
    EXPECT_FALSE(isSamePicture(shifted, turned));
    EXPECT_TRUE(isSamePicture(drawn([&] { composer.resetAlignmentAdjustments(); }), first));
    composer.startFastRender();
    const RenderedData rough = drawn([&] { composer.setShiftVector({0.02f, 0.0f}); });
    EXPECT_FALSE(isSamePicture(rough, shifted));
    EXPECT_TRUE(isSamePicture(drawn([&] { composer.finishFastRender(); }), shifted));
}

TEST_F(ComposerApi, TheTurnGoesAboutTheViewAtTheTimeOfTheRequest)
{
    ASSERT_TRUE(loaded(composer).fits);
    receiveMains();
    const PreviewContext beside{{20, 10}, {kMiddle.x + 300, kMiddle.y, 400, 200}};
    const auto settled = [&] {
        settle(composer);
        return mains.all().back();
    };
    const auto release = hold();
    composer.setContext(beside);
    composer.setRotation(0.2f);
    composer.setContext(kView);
    release();
    const RenderedData atOnce = settled();
    composer.resetAlignmentAdjustments();
    composer.setContext(beside);
    composer.setRotation(0.2f);
    (void)settled();
    composer.setContext(kView);
    EXPECT_TRUE(isSamePicture(settled(), atOnce));
    composer.resetAlignmentAdjustments();
    composer.setRotation(0.2f); // about the middle
    EXPECT_FALSE(isSamePicture(settled(), atOnce));
}

TEST_F(ComposerApi, TheChannelsHaveAnOrder)
{
    ASSERT_TRUE(loaded(composer).fits);
    Answers<char> order;
    composer.setUnderlayCallback([&](const RenderedData&) { order.add('u'); });
    settle(composer);
    composer.setCallback([&](const RenderedData&) { order.add('m'); });
    composer.setContext(kView);
    settle(composer);
    ASSERT_THAT(order.all(), ElementsAre('u', 'm'));
    const auto release = hold();
    composer.resetAlignmentAdjustments();
    release();
    EXPECT_THAT(order.wait(4), ElementsAre('u', 'm', 'm', 'u'));
    const auto releaseAgain = hold();
    composer.finishFastRender();
    releaseAgain();
    EXPECT_THAT(order.wait(6), ElementsAre('u', 'm', 'm', 'u', 'u', 'm'));
}

TEST_F(ComposerApi, TheFirstProjectionIsThatOfTheSettings)
{
    EXPECT_EQ(composer.getProjectionType(), WarpType::Spherical);
    PanoSource source = SmallFiles::source();
    source.settings.warpType = static_cast<std::int32_t>(WarpType::Fisheye);
    EXPECT_EQ(PanoramaPreviewComposer(source).getProjectionType(), WarpType::Fisheye);
    PanoSourceHDR brackets;
    brackets.settings.warpType = static_cast<std::int32_t>(WarpType::Mercator);
    EXPECT_EQ(PanoramaPreviewComposer(brackets).getProjectionType(), WarpType::Mercator);
    PanoSourceVideo video;
    video.settings.warpType = static_cast<std::int32_t>(WarpType::Plane);
    EXPECT_EQ(PanoramaPreviewComposer(video).getProjectionType(), WarpType::Plane);
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
    info.context = {kMiddle.size(), kMiddle}; // full of picture
    EXPECT_TRUE(finalPreview(composer, info, {100, 100}).isPlaceholder);
    EXPECT_TRUE(finalized(composer, info).isPlaceholder);
    info.crop = cropOf({10, 10, 50, 50});
    EXPECT_TRUE(finalized(composer, info).isPlaceholder);
}

TEST_F(ComposerApi, CallingPointsDoNothing)
{
    receiveMains();
    composer.startSetup();
    composer.finishSetup();
    settle(composer);
    EXPECT_THAT(mains.all(), IsEmpty());
}

TEST_F(ComposerApi, SettingsOfVideosDoNothingToFiles)
{
    const _Rect<int> extent = loaded(composer).extent;
    receiveMains();
    const LogCapture log;
    composer.setVideoInterval(3, 9);
    composer.setCompositionParams({1, 2}, {{0, 0, 5, 5}, {0, 0, 5, 5}});
    settle(composer);
    EXPECT_THAT(mains.all(), IsEmpty());
    EXPECT_THAT(log.texts(LogMessageType::Warning), IsEmpty());
    EXPECT_EQ(loaded(composer).extent, extent);
}
