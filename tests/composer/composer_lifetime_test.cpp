// Ends of all kinds: destruction while anything runs, from callbacks, and after a cancel.
#include "composer_sets.hpp"

#include <orvo_logger/log_capture.hpp>
#include <scenes/bracket.hpp>
#include <scenes/pan_file.hpp>

#include <gmock/gmock.h>

#include <atomic>
#include <chrono>
#include <future>
#include <memory>
#include <random>
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

TEST_F(ComposerLifetime, CancelAllEndsALoadOfAVideo)
{
    const TemporaryFolder folder;
    PanoSourceVideo source;
    source.file = scenes::writePan(folder / "pan.mkv", 40);
    source.end = 40;
    {
        PanoramaPreviewComposer composer(source);
        EXPECT_TRUE(loaded(composer).fits);
        composer.setVideoInterval(0, 20);
        const int before = composer.getCanvasSize().width;
        EXPECT_TRUE(loaded(composer).fits) << "the interval selects anew";
        EXPECT_NE(composer.getCanvasSize().width, 0);
        (void)before;
        composer.setCompositionParams({10}, {{20, 20, 60, 60}});
        EXPECT_FALSE(cropPreview(composer, {200, 80}).data.isPlaceholder);
    }
    PanoramaPreviewComposer composer(source);
    composer.setLoadCallback([&](float) { composer.cancelAll(); });
    EXPECT_FALSE(loaded(composer).fits);
}
