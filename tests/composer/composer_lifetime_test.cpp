// Ends of all kinds: destruction while anything runs, from callbacks, and after a cancel.
#include "composer/composer_private.hpp"
#include "composer_sets.hpp"
#include "support/pictures.hpp"

#include <orvo_logger/log_capture.hpp>
#include <scenes/bracket.hpp>
#include <scenes/pan_file.hpp>

#include <gmock/gmock.h>

#include <atomic>
#include <chrono>
#include <future>
#include <memory>
#include <random>
#include <stdexcept>
#include <thread>

using namespace orvo;
using namespace orvo::test;

namespace {

class ComposerLifetime : public ComposerTest
{};

void askForAnything(PanoramaPreviewComposer& composer, std::mt19937& random, std::atomic<int>& calls)
{
    const auto count = [&calls](const RenderedData&) { ++calls; };
    switch (std::uniform_int_distribution<int>(0, 7)(random)) {
    case 0:
        composer.loadWithCompletion([&calls](bool, _Rect<int>) { ++calls; });
        break;
    case 1:
        composer.setContext({{120, 60}, {1000, 500, 400, 200}});
        break;
    case 2:
        composer.setShiftVector({0.01f, 0.01f});
        break;
    case 3:
        composer.getCropPreview({200, 80}, [&calls](const RenderedData&, _Rect<int>) { ++calls; });
        break;
    case 4:
        composer.finalize({{}, {{}, {1100, 550, 120, 60}}, {}}, count);
        break;
    case 5:
        composer.changeProjectionType(composer.getProjectionType() == WarpType::Plane ? WarpType::Spherical
                                                                                      : WarpType::Plane);
        break;
    case 6:
        composer.startFastRender();
        composer.setRotation(0.1f);
        composer.finishFastRender();
        break;
    default:
        composer.resetAlignmentAdjustments();
        break;
    }
}

} // namespace

TEST_F(ComposerLifetime, MayEndAtAnyMoment)
{
    const LogCapture log;
    std::mt19937 random(2);
    PanoSource source = SmallFiles::source();
    source.files.resize(2);
    for (int i = 0; i < 1000; ++i) {
        std::atomic<int> calls = 0;
        {
            PanoramaPreviewComposer composer(source);
            composer.setCallback([&calls](const RenderedData&) { ++calls; });
            composer.setUnderlayCallback([&calls](const RenderedData&) { ++calls; });
            const bool loads = i % 4 == 0;
            if (loads)
                composer.loadWithCompletion([&calls](bool, _Rect<int>) { ++calls; });
            for (int k = std::uniform_int_distribution<int>(0, 5)(random); k > 0; --k)
                askForAnything(composer, random, calls);
            std::this_thread::sleep_for(std::chrono::microseconds(std::uniform_int_distribution<int>(0, 3000)(random)));
            if (i % 2 == 0)
                composer.cancelAll();
        }
        const int atTheEnd = calls;
        std::this_thread::yield();
        ASSERT_EQ(calls, atTheEnd) << "nothing outlives the composer";
    }
    EXPECT_THAT(log.texts(LogMessageType::Error), testing::IsEmpty());
}

TEST_F(ComposerLifetime, ACallbackMayDropTheComposer)
{
    for (int i = 0; i < 20; ++i) {
        auto composer = std::make_shared<PanoramaPreviewComposer>(SmallFiles::source());
        std::promise<void> dropped;
        PanoramaPreviewComposer& used = *composer;
        std::promise<void> queued;
        used.loadWithCompletion(
            [&, held = std::move(composer), ready = queued.get_future().share()](bool, _Rect<int>) mutable {
                ready.wait();
                held.reset();
                dropped.set_value();
            });
        queued.set_value();
        dropped.get_future().wait();
    }
}

TEST_F(ComposerLifetime, ACallbackMayOwnTheComposer)
{
    enum class Kind
    {
        Crop,
        Preview,
        Finish
    };
    for (const Kind kind : {Kind::Crop, Kind::Preview, Kind::Finish}) {
        std::promise<void> ended;
        auto end = ended.get_future();
        auto composer = std::shared_ptr<PanoramaPreviewComposer>(new PanoramaPreviewComposer(SmallFiles::source()),
                                                                 [&ended](PanoramaPreviewComposer* last) {
                                                                     delete last;
                                                                     ended.set_value();
                                                                 });
        PanoramaPreviewComposer& used = *composer;
        {
            const auto owning = [held = std::move(composer)](const RenderedData&) { (void)held; };
            if (kind == Kind::Crop)
                used.getCropPreview({300, 100}, [owning](const RenderedData& data, _Rect<int>) { owning(data); });
            else if (kind == Kind::Preview)
                used.getFinalizePreview({}, owning, {});
            else
                used.finalize({}, owning);
        }
        ASSERT_EQ(end.wait_for(kPatience), std::future_status::ready);
    }
}

TEST_F(ComposerLifetime, NoCallbackIsCalledOnceACallbackHasDroppedTheComposer)
{
    auto composer = std::make_unique<PanoramaPreviewComposer>(SmallFiles::source());
    PanoramaPreviewComposer& used = *composer;
    std::promise<void> queued;
    std::atomic<int> reports = 0;
    std::promise<void> released;
    std::shared_ptr<void> last(nullptr, [&](void*) { released.set_value(); });
    used.setLoadCallback([&, ready = queued.get_future().share()](float) {
        ready.wait();
        composer.reset();
        ++reports;
    });
    used.loadWithCompletion([held = std::move(last)](bool, _Rect<int>) { ADD_FAILURE() << "the composer is gone"; });
    queued.set_value();
    ASSERT_EQ(released.get_future().wait_for(kPatience), std::future_status::ready);
    EXPECT_EQ(reports, 1) << "the load ends at the file";

    auto another = std::make_unique<PanoramaPreviewComposer>(SmallFiles::source());
    PanoramaPreviewComposer& usedToo = *another;
    std::promise<void> begun;
    std::promise<void> gone;
    std::shared_ptr<void> end(nullptr, [&](void*) { gone.set_value(); });
    std::atomic<int> calls = 0;
    usedToo.finalize({}, [&, held = std::move(end), ready = begun.get_future().share()](const RenderedData&) {
        ready.wait();
        ++calls;
        another.reset();
        throw 7;
    });
    begun.set_value();
    ASSERT_EQ(gone.get_future().wait_for(kPatience), std::future_status::ready);
    EXPECT_EQ(calls, 1) << "not once more";
}

TEST_F(ComposerLifetime, ACallbackMayCallEverything)
{
    PanoramaPreviewComposer composer(SmallFiles::source());
    Answers<RenderedData> answers;
    composer.setCallback([&](RenderedData data) { answers.add(std::move(data)); });
    composer.loadWithCompletion([&](bool, _Rect<int> extent) {
        composer.setContext({{100, 50}, {0, 0, extent.width, extent.height}});
        const _Size<int> canvas = composer.getCanvasSize();
        composer.setContext({{100, 50}, {canvas.width / 2 - 50, canvas.height / 2 - 25, 100, 50}});
    });
    EXPECT_EQ(answers.first().image->size(), _Size<int>(100, 50));
}

TEST_F(ComposerLifetime, CancelAllEndsALoadOfFiles)
{
    PanoramaPreviewComposer composer(SmallFiles::source());
    composer.setLoadCallback([&](float) { composer.cancelAll(); });
    EXPECT_FALSE(loaded(composer).fits);
}

TEST_F(ComposerLifetime, CancelAllEndsALoadOfBrackets)
{
    PanoSourceHDR source;
    source.brackets = {{SmallFiles::source().files[0], SmallFiles::source().files[1]},
                       {SmallFiles::source().files[2], SmallFiles::source().files[3]}};
    PanoramaPreviewComposer composer(source);
    Answers<float> reported;
    composer.setLoadCallback([&](float share) {
        reported.add(share);
        composer.cancelAll();
    });
    EXPECT_FALSE(loaded(composer).fits);
    EXPECT_LT(reported.all().size(), 8u) << "the merge itself stops";
}

namespace {

/// A camera that pans by 1.5 degrees a frame, made once.
class PannedVideo
{
public:
    static constexpr std::size_t kFrames = 40;
    static const PanoSourceVideo& source()
    {
        static const PannedVideo video;
        return video.made;
    }

private:
    PannedVideo()
    {
        made.file = scenes::writePan(folder / "pan.mkv", kFrames);
        made.end = kFrames;
    }
    TemporaryFolder folder;
    PanoSourceVideo made;
};

} // namespace

TEST_F(ComposerLifetime, TheIntervalOfAVideoIsThatOfTheNextLoad)
{
    PanoramaPreviewComposer composer(PannedVideo::source());
    const Load whole = loaded(composer);
    ASSERT_TRUE(whole.fits);
    composer.setVideoInterval(0, PannedVideo::kFrames / 2);
    const Load half = loaded(composer);
    ASSERT_TRUE(half.fits);
    // 53 degrees of the first view and 1.5 for each further frame: 112 and 82.
    EXPECT_NEAR(static_cast<double>(half.extent.width) / whole.extent.width, 82.0 / 112.0, 0.08);
}

TEST_F(ComposerLifetime, CompositionFramesRegisterAgain)
{
    PanoramaPreviewComposer composer(PannedVideo::source());
    ASSERT_TRUE(loaded(composer).fits);
    const auto before = cropPreview(composer, {200, 80}).data.image;
    composer.setCompositionParams({10}, {{20, 20, 60, 60}});
    const auto after = cropPreview(composer, {200, 80}).data.image;
    ASSERT_TRUE(before && after);
    EXPECT_FALSE(before->size() == after->size() && sameBytes(*before, *after));
}

TEST_F(ComposerLifetime, ARegistrationOfCompositionFramesMayFailAndBeCancelled)
{
    PanoramaPreviewComposerPrivate state(PannedVideo::source());
    state.load({});
    ASSERT_EQ(state.stitcher->getStatus(), 1);
    {
        const LogCapture log;
        state.stitcher->setWorkCallback([](float) { throw std::runtime_error("no memory"); });
        state.useComposition({10}, {{20, 20, 60, 60}});
        EXPECT_THAT(
            log.texts(LogMessageType::Warning),
            testing::Contains(testing::AllOf(testing::HasSubstr("orvo::PanoramaPreviewComposer::setCompositionParams("),
                                             testing::EndsWith(": no memory"))));
    }
    state.stitcher->setWorkCallback([&](float) { state.cancelAll(); });
    state.useComposition({10}, {{20, 20, 60, 60}});
    EXPECT_EQ(state.stitcher->getStatus(), 2) << "in the middle";
    state.stitcher->setWorkCallback({});
    state.cancelFlag = false;
    state.load({});
    state.cancelFlag = true;
    state.useComposition({12}, {{20, 20, 60, 60}});
    EXPECT_EQ(state.stitcher->getStatus(), 1) << "not begun at all";
}

TEST_F(ComposerLifetime, CancelAllEndsALoadOfAVideo)
{
    PanoramaPreviewComposer composer(PannedVideo::source());
    composer.setLoadCallback([&](float) { composer.cancelAll(); });
    EXPECT_FALSE(loaded(composer).fits);
}
