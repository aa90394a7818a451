#include "GenProcessorBase/generative_processor_base_impl.hpp"
#include "GenProcessorBase/rectangles.hpp"
#include "GenProcessorBase/render_view.hpp"
#include "support/pictures.hpp"
#include "support/renders.hpp"

#include <orvo_logger/log_capture.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <limits>
#include <memory>
#include <stdexcept>
#include <thread>

namespace orvo::test {
namespace {

using ::testing::ElementsAre;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using Data = NoAlphaRender::Data;

// A working picture of one colour over the source's place, with replaceable content.
class PlainWorkingImage final : public GenerativeProcessorBaseImpl::WorkingImage
{
public:
    std::shared_ptr<Picture> picture;
    std::string id = "first";
    std::atomic<int> renders = 0;
    std::atomic<bool> fails = false;

    std::shared_ptr<Picture> imageData(const ResizeParameters& parameters) override
    {
        ++renders;
        if (fails)
            throw std::runtime_error("no picture");
        return picture ? picture->resize(parameters.size, parameters.rect, true) : nullptr;
    }
    std::int32_t width() const override { return picture ? picture->width() : 0; }
    std::int32_t height() const override { return picture ? picture->height() : 0; }
    _Rect<int> rect() const override { return {0, 0, width(), height()}; }
    std::string identifier() const override { return picture ? id : std::string(); }
};

class Tool final : public GenerativeProcessorBase
{
public:
    explicit Tool(_Size<int> size = {400, 300}) : GenerativeProcessorBase(std::shared_ptr<const Picture>())
    {
        impl = std::make_unique<GenerativeProcessorBaseImpl>(CreateOrvoImage(plain(size.width, size.height, 0.25f)));
        working = std::make_shared<PlainWorkingImage>();
        working->picture = plain(size.width, size.height, 0.75f);
        impl->workingImage = working;
    }
    ~Tool() override = default;

    std::vector<unsigned char> storeState() override { return {}; }
    void restoreState(const std::vector<unsigned char>&, std::function<void(OutState)>) override {}
    void applyGeneratedResponse(const std::filesystem::path&, _Size<int>) override {}
    void applyGeneratedResponse(const std::string&, _Size<int>) override {}

    using GenerativeProcessorBase::impl;
    using GenerativeProcessorBase::mainUpdate;
    using GenerativeProcessorBase::renderAll;
    using GenerativeProcessorBase::underlayMaxSize;
    using GenerativeProcessorBase::underlayUpdate;

    void settle()
    {
        waitFor(impl->queue);
        waitFor(*impl->callbackQueue);
    }

    // Keeps the queue busy until the returned promise is set.
    [[nodiscard]] std::shared_ptr<std::promise<void>> busy()
    {
        auto go = std::make_shared<std::promise<void>>();
        auto future = go->get_future().share();
        impl->queue.addOperation(std::make_shared<opq::FunctionOperation>([future] { future.wait(); }, ""));
        return go;
    }

    std::shared_ptr<PlainWorkingImage> working;
};

constexpr PreviewContext kView{{100, 75}, {0, 0, 400, 300}};

TEST(ProcessorBase, StartsWithItsInitialValues)
{
    Tool tool;
    EXPECT_EQ(tool.getCanvasSize(), _Size<int>(400, 300));
    EXPECT_TRUE(tool.isInInitialState());
    EXPECT_EQ(tool.mainUpdate.context, PreviewContext());
    EXPECT_EQ(tool.mainUpdate.colorProfile, ColorProfileType::melissaRGB());
    EXPECT_EQ(tool.underlayUpdate.context, PreviewContext());
    EXPECT_EQ(tool.underlayUpdate.colorProfile, ColorProfileType::melissaRGB());
    EXPECT_EQ(tool.underlayMaxSize, 1000);
    EXPECT_EQ(tool.impl->caches->size(), 2u);
    EXPECT_EQ(tool.impl->maxRequestPixels, 8000000);
    EXPECT_EQ(tool.impl->maxRequestBase64Size, 9000000);
    EXPECT_EQ(tool.impl->maxRequestAspect, 2.45f);
    EXPECT_FALSE(tool.impl->postRenderData());
    EXPECT_EQ(GenerativeProcessorBaseImpl(nullptr).canvasSize, _Size<int>());
    const GenerativeProcessorBase::RequestInput request;
    EXPECT_FALSE(request.valid);
    EXPECT_EQ(request.width, 0);
}

TEST(ProcessorBase, RendersTheMainView)
{
    Tool tool;
    Received<Data> main;
    tool.initRender(main.callback(), kView);
    const Data data = main.at(0);
    EXPECT_EQ(data.image->size(), _Size<int>(100, 75));
    EXPECT_NEAR(data.image->row(5)[5].g, 0.75f, 1e-5f);
    EXPECT_FALSE(data.unedited);
    EXPECT_EQ(data.context, kView);
    EXPECT_EQ(data.image->colorProfile(), ColorProfileType::melissaRGB());
}

TEST(ProcessorBase, RendersTheUnderlayWithinItsSize)
{
    Tool tool({4000, 1000});
    Received<Data> underlay;
    tool.initUnderlayRender(underlay.callback(), 500);
    const Data data = underlay.at(0);
    EXPECT_EQ(data.image->size(), _Size<int>(500, 125));
    EXPECT_EQ(data.context, (PreviewContext{{500, 125}, {0, 0, 4000, 1000}}));
}

TEST(ProcessorBase, AChannelWithoutACallbackDoesNoWork)
{
    Tool tool;
    tool.setRenderContext(kView, true);
    tool.renderAll();
    tool.settle();
    EXPECT_EQ(tool.working->renders, 0);
}

TEST(ProcessorBase, ARoiOutsideShowsTheWholePictureAndLogsOnce)
{
    Tool tool;
    Received<Data> main;
    const LogCapture log;
    const PreviewContext context{{80, 60}, {1000, 1000, 50, 50}};
    tool.initRender(main.callback(), context);
    const Data data = main.at(0);
    EXPECT_EQ(data.image->size(), _Size<int>(80, 60));
    EXPECT_EQ(data.context, context);
    const auto errors = log.texts(LogMessageType::Error);
    ASSERT_EQ(errors.size(), 1u);
    EXPECT_THAT(errors[0], HasSubstr("Invalid render context roi: (x:1000 y:1000 w:50 h:50), while source has: "
                                     "(x:0 y:0 w:400 h:300) called from "));
    EXPECT_THAT(errors[0], HasSubstr("initRender"));
}

TEST(ProcessorBase, ARoiThatOverlapsIsClipped)
{
    Tool tool;
    for (int y = 0; y < 300; ++y)
        for (int x = 0; x < 400; ++x)
            tool.working->picture->row(y)[x] = {static_cast<float>(x), 0, 0};
    Received<Data> main;
    const LogCapture log;
    const PreviewContext context{{100, 100}, {300, 200, 500, 500}};
    tool.initRender(main.callback(), context);
    const Data data = main.at(0);
    EXPECT_EQ(data.context, context);
    EXPECT_FLOAT_EQ(data.image->row(0)[0].r, 300.0f);
    EXPECT_FLOAT_EQ(data.image->row(99)[99].r, 399.0f);
    ASSERT_EQ(log.texts(LogMessageType::Error).size(), 1u);
    EXPECT_THAT(log.texts(LogMessageType::Error)[0], HasSubstr("(x:300 y:200 w:500 h:500), while source has: "));
}

TEST(ProcessorBase, TheUneditedPictureIsClippedAndLoggedTheSameWay)
{
    Tool tool;
    Received<Data> main;
    const LogCapture log;
    tool.quickPreviewOn();
    tool.initRender(main.callback(), {{50, 40}, {300, 200, 500, 500}});
    EXPECT_EQ(main.at(0).image->size(), _Size<int>(50, 40));
    EXPECT_THAT(log.texts(LogMessageType::Error),
                ElementsAre(EndsWith(": Invalid render context roi: (x:300 y:200 w:500 h:500), while source has: "
                                     "(x:0 y:0 w:400 h:300)")));
}

TEST(ProcessorBase, TheUnderlayIsNeverClipped)
{
    Tool tool;
    Received<Data> underlay;
    const LogCapture log;
    tool.initUnderlayRender(underlay.callback(), 100);
    (void)underlay.at(0);
    tool.beginCompareBlindMode();
    tool.renderAll();
    (void)underlay.at(1);
    EXPECT_TRUE(log.texts(LogMessageType::Error).empty());
}

TEST(ProcessorBase, RectanglesOfAnyNumbersAreClippedWithoutOverflow)
{
    constexpr int kMost = std::numeric_limits<int>::max();
    EXPECT_EQ(intersected({-5, -5, 10, 10}, {0, 0, 100, 50}), _Rect<int>(0, 0, 5, 5));
    EXPECT_EQ(intersected({-kMost, -kMost, kMost, kMost}, {0, 0, 100, 50}), _Rect<int>());
    EXPECT_EQ(intersected({0, 0, kMost, kMost}, {0, 0, 100, 50}), _Rect<int>(0, 0, 100, 50));
    EXPECT_EQ(intersected({50, 0, kMost, kMost}, {0, 0, 100, 50}), _Rect<int>(50, 0, 50, 50));
    EXPECT_EQ(intersected({5, 5, -3, 10}, {0, 0, 100, 50}), _Rect<int>());
    EXPECT_EQ(intersected({}, {0, 0, 100, 50}), _Rect<int>());
}

TEST(ProcessorBase, TheSameViewIsRenderedOnce)
{
    Tool tool;
    Received<Data> main;
    tool.initRender(main.callback(), kView);
    (void)main.at(0);
    tool.setRenderContext(kView, true);
    (void)main.at(1);
    EXPECT_EQ(tool.working->renders, 1);
    tool.settle();
    tool.working->id = "second"; // other content
    tool.setRenderContext(kView, true);
    (void)main.at(2);
    EXPECT_EQ(tool.working->renders, 2);
}

TEST(ProcessorBase, AViewIsKnownByItsPartItsSizeItsProfileAndThePicturesSize)
{
    Tool tool;
    Received<Data> main;
    int expected = 0;
    const auto expectRenders = [&](int renders, const PreviewContext& context) {
        tool.setRenderContext(context, true);
        tool.settle();
        expected += renders;
        EXPECT_EQ(tool.working->renders, expected) << context.size.width << " " << context.roi.width;
    };
    tool.initRender(main.callback(), kView);
    tool.settle();
    expected = 1;
    expectRenders(1, {{100, 75}, {0, 0, 200, 150}});
    expectRenders(1, {{50, 40}, {0, 0, 200, 150}});
    expectRenders(0, {{50, 40}, {0, 0, 200, 150}});
    expectRenders(0, kView);
    tool.working->picture = plain(410, 300, 0.5f); // under the same id
    expectRenders(1, kView);
    EXPECT_NEAR(main.last().image->row(5)[5].g, 0.5f, 1e-5f);
    tool.changeColorProfile(ColorProfileType::sRGB());
    tool.settle();
    EXPECT_EQ(tool.working->renders, ++expected);
}

TEST(ProcessorBase, TheUneditedPictureIsRenderedOnceWhateverTheContent)
{
    Tool tool;
    Received<Data> main;
    tool.beginCompareBlindMode();
    tool.initRender(main.callback(), kView);
    tool.settle();
    tool.working->id = "second";
    tool.setRenderContext(kView, true);
    tool.settle();
    ASSERT_EQ(main.count(), 2u);
    EXPECT_EQ(tool.working->renders, 2);
    EXPECT_EQ(main.at(1).unedited, main.at(0).unedited);
}

TEST(ProcessorBase, ARenderThatFailsIsLoggedAndStaysFailedForItsContent)
{
    Tool tool;
    Received<Data> main;
    const LogCapture log;
    tool.working->fails = true;
    tool.initRender(main.callback(), kView);
    tool.settle();
    tool.working->fails = false;
    tool.setRenderContext(kView, true);
    tool.settle();
    EXPECT_EQ(tool.working->renders, 1);
    EXPECT_EQ(main.count(), 0u);
    EXPECT_THAT(log.texts(LogMessageType::Error),
                ElementsAre("Exception in an operation: no picture", "Exception in an operation: no picture"));
    tool.working->id = "second";
    tool.setRenderContext(kView, true);
    tool.settle();
    ASSERT_EQ(main.count(), 1u);
    EXPECT_TRUE(main.last().image);
}

TEST(ProcessorBase, RendersAreDeliveredOnOneThreadThatIsNotTheWorker)
{
    Tool tool;
    tool.setConfiguration({true});
    Received<std::thread::id> threads;
    const auto deliver = [&](const Data&) { threads(std::this_thread::get_id()); };
    tool.initRender(deliver, kView);
    tool.initUnderlayRender(deliver, 100);
    tool.renderAll();
    std::thread::id worker;
    tool.impl->queue.addOperation(
        std::make_shared<opq::FunctionOperation>([&] { worker = std::this_thread::get_id(); }, ""));
    tool.settle();
    ASSERT_EQ(threads.count(), 4u);
    for (std::size_t i = 0; i < 4; ++i) {
        EXPECT_TRUE(threads.at(i) == threads.at(0));
        EXPECT_TRUE(threads.at(i) != worker);
        EXPECT_TRUE(threads.at(i) != std::this_thread::get_id());
    }
}

TEST(ProcessorBase, ANewRenderTakesThePlaceOfTheWaitingOne)
{
    Tool tool;
    Received<Data> main;
    tool.initRender(main.callback(), kView);
    (void)main.at(0);
    const auto go = tool.busy();
    for (int i = 1; i <= 10; ++i)
        tool.setRenderContext({{10 * i, 10}, {0, 0, 400, 300}}, true);
    go->set_value();
    tool.settle();
    ASSERT_EQ(main.count(), 2u);
    EXPECT_EQ(main.last().image->width(), 100);
}

TEST(ProcessorBase, WithKeepPendingRendersEveryRenderIsDelivered)
{
    Tool tool;
    Received<Data> main;
    tool.setConfiguration({true});
    const auto go = tool.busy();
    tool.initRender(main.callback(), kView);
    for (int i = 1; i <= 10; ++i)
        tool.setRenderContext({{10 * i, 10}, {0, 0, 400, 300}}, true);
    go->set_value();
    tool.settle();
    ASSERT_EQ(main.count(), 11u);
    for (int i = 1; i <= 10; ++i)
        EXPECT_EQ(main.at(static_cast<std::size_t>(i)).image->width(), 10 * i);
}

TEST(ProcessorBase, SettingAContextAloneRendersNothing)
{
    Tool tool;
    Received<Data> main;
    tool.initRender(main.callback(), kView);
    (void)main.at(0);
    tool.setRenderContext({{20, 15}, {0, 0, 400, 300}}, false);
    tool.settle();
    EXPECT_EQ(main.count(), 1u);
    tool.renderAll();
    EXPECT_EQ(main.at(1).image->width(), 20);
}

TEST(ProcessorBase, ComparingCarriesTheUneditedPicture)
{
    Tool tool;
    Received<Data> main;
    Received<Data> underlay;
    tool.initRender(main.callback(), kView);
    tool.initUnderlayRender(underlay.callback(), 100);
    tool.settle();
    tool.beginCompareBlindMode();
    const Data data = main.at(1);
    ASSERT_TRUE(data.unedited);
    EXPECT_NEAR(data.unedited->row(3)[3].r, 0.25f, 1e-5f);
    EXPECT_NEAR(data.image->row(3)[3].r, 0.75f, 1e-5f);
    tool.settle();
    EXPECT_EQ(underlay.count(), 1u);
    tool.finishCompareBlindMode();
    tool.settle();
    EXPECT_EQ(main.count(), 2u); // starts nothing
    tool.setRenderContext(kView, true);
    EXPECT_FALSE(main.at(2).unedited);
}

TEST(ProcessorBase, QuickPreviewShowsTheUneditedPictureAlone)
{
    Tool tool;
    Received<Data> main;
    Received<Data> underlay;
    tool.initRender(main.callback(), kView);
    tool.initUnderlayRender(underlay.callback(), 100);
    tool.settle();
    tool.quickPreviewOn();
    Data data = main.at(1);
    EXPECT_NEAR(data.image->row(3)[3].r, 0.25f, 1e-5f);
    EXPECT_FALSE(data.unedited);
    tool.settle();
    EXPECT_EQ(underlay.count(), 1u); // not rendered separately
    tool.beginCompareBlindMode();
    data = main.at(2);
    EXPECT_EQ(data.unedited, data.image);
    tool.finishCompareBlindMode();
    tool.renderAll();
    EXPECT_NEAR(underlay.at(1).image->row(3)[3].r, 0.25f, 1e-5f);
    tool.quickPreviewOff();
    tool.settle();
    EXPECT_NEAR(main.last().image->row(3)[3].r, 0.75f, 1e-5f);
}

TEST(ProcessorBase, BothModesHoldForTheUnderlay)
{
    Tool tool;
    Received<Data> underlay;
    tool.initUnderlayRender(underlay.callback(), 100);
    EXPECT_FALSE(underlay.at(0).unedited);
    tool.beginCompareBlindMode();
    tool.renderAll();
    Data data = underlay.at(1);
    ASSERT_TRUE(data.unedited);
    EXPECT_EQ(data.unedited->size(), _Size<int>(100, 75));
    EXPECT_NEAR(data.unedited->row(3)[3].r, 0.25f, 1e-5f);
    EXPECT_NEAR(data.image->row(3)[3].r, 0.75f, 1e-5f);
    tool.quickPreviewOn();
    tool.renderAll();
    data = underlay.at(2);
    EXPECT_NEAR(data.image->row(3)[3].r, 0.25f, 1e-5f);
    EXPECT_EQ(data.unedited, data.image);
}

TEST(ProcessorBase, AModeChangedLaterDoesNotAlterAWaitingRender)
{
    Tool tool;
    Received<Data> main;
    tool.setConfiguration({true});
    const auto go = tool.busy();
    tool.initRender(main.callback(), kView);
    tool.quickPreviewOn();
    go->set_value();
    EXPECT_NEAR(main.at(0).image->row(3)[3].r, 0.75f, 1e-5f);
    EXPECT_NEAR(main.at(1).image->row(3)[3].r, 0.25f, 1e-5f);
}

TEST(ProcessorBase, AnotherProfileRendersBothChannelsTheSamePointerNothing)
{
    Tool tool;
    Received<Data> main;
    Received<Data> underlay;
    tool.initRender(main.callback(), kView);
    tool.initUnderlayRender(underlay.callback(), 100);
    tool.settle();
    tool.changeColorProfile(ColorProfileType::sRGB());
    EXPECT_EQ(*main.at(1).image->colorProfile(), *ColorProfileType::sRGB());
    EXPECT_EQ(*underlay.at(1).image->colorProfile(), *ColorProfileType::sRGB());
    tool.changeColorProfile(ColorProfileType::sRGB());
    tool.settle();
    EXPECT_EQ(main.count(), 2u);
    const auto equalProfile = ColorProfile::fromIcc(ColorProfileType::sRGB()->icc());
    ASSERT_NE(equalProfile, ColorProfileType::sRGB());
    tool.changeColorProfile(equalProfile);
    (void)main.at(2);
    (void)underlay.at(2);
}

TEST(ProcessorBase, AnEmptyRenderIsLoggedAndNotDelivered)
{
    Tool tool;
    tool.working->picture.reset();
    Received<Data> main;
    Received<Data> underlay;
    const LogCapture log;
    tool.initRender(main.callback(), {{10, 10}, {}});
    tool.initUnderlayRender(underlay.callback(), 100);
    EXPECT_FALSE(underlay.at(0).image); // delivered without conversion
    tool.settle();
    EXPECT_EQ(main.count(), 0u);
    const auto warnings = log.texts(LogMessageType::Warning);
    ASSERT_EQ(warnings.size(), 1u);
    EXPECT_THAT(warnings[0], EndsWith(": Empty post render."));
}

TEST(ProcessorBase, ExportsTheWholePictureOnAThreadOfItsOwn)
{
    Tool tool;
    Received<RenderedData> exported;
    Received<std::thread::id> thread;
    tool.changeColorProfile(ColorProfileType::sRGB());
    tool.generateDataForExport([&](RenderedData data) {
        thread(std::this_thread::get_id());
        exported(std::move(data));
    });
    const RenderedData data = exported.at(0);
    EXPECT_EQ(data.image->size(), _Size<int>(400, 300));
    EXPECT_EQ(*data.image->colorProfile(), *ColorProfileType::sRGB());
    EXPECT_EQ(data.colorProfile, ColorProfileType::melissaRGB());
    EXPECT_EQ(data.context, (PreviewContext{{400, 300}, {0, 0, 400, 300}}));
    EXPECT_FALSE(data.mask);
    EXPECT_FALSE(data.isPlaceholder);
    std::thread::id worker;
    tool.impl->queue.addOperation(
        std::make_shared<opq::FunctionOperation>([&] { worker = std::this_thread::get_id(); }, ""));
    tool.settle();
    EXPECT_TRUE(thread.at(0) != worker);
    EXPECT_TRUE(thread.at(0) != std::this_thread::get_id());
    tool.generateDataForExport({});
    tool.settle();
}

TEST(ProcessorBase, AnExportThatFailsIsAnsweredToo)
{
    Tool tool;
    Received<RenderedData> exported;
    const LogCapture log;
    tool.working->fails = true;
    tool.generateDataForExport(exported.callback());
    const RenderedData failed = exported.at(0);
    EXPECT_FALSE(failed.image);
    EXPECT_TRUE(failed.isPlaceholder);
    EXPECT_EQ(failed.context, PreviewContext());
    EXPECT_EQ(failed.colorProfile, ColorProfileType::melissaRGB());
    const auto errors = log.texts(LogMessageType::Error);
    ASSERT_THAT(errors, ElementsAre(EndsWith(": no picture")));
    EXPECT_THAT(errors[0], HasSubstr("generateDataForExport"));
    tool.working->fails = false;
    tool.working->picture.reset();
    tool.generateDataForExport(exported.callback());
    EXPECT_TRUE(exported.at(1).isPlaceholder);
    EXPECT_EQ(log.texts(LogMessageType::Error).size(), 1u);
}

TEST(ProcessorBase, AnExportIsNotCancelledByARender)
{
    Tool tool;
    Received<RenderedData> exported;
    const auto go = tool.busy();
    tool.generateDataForExport(exported.callback());
    for (int i = 0; i < 5; ++i)
        tool.setRenderContext(kView, true);
    go->set_value();
    (void)exported.at(0);
}

TEST(ProcessorBase, ACallbackMayThrowAndMayDropTheProcessor)
{
    auto tool = std::make_unique<Tool>();
    const LogCapture log;
    tool->initRender([](Data) { throw std::runtime_error("from the application"); }, kView);
    tool->generateDataForExport([](RenderedData) { throw 5; });
    tool->settle();
    Received<int> dropped;
    tool->initRender(
        [&](Data) {
            if (tool) {
                tool.reset();
                dropped(1);
            }
        },
        kView);
    EXPECT_EQ(dropped.at(0), 1);
    EXPECT_FALSE(tool);
}

TEST(ProcessorBase, ACallbackMayDropTheProcessorWhileTheCallThatRendersStillRuns)
{
    for (int i = 0; i < 200; ++i) {
        auto tool = std::make_unique<Tool>(_Size<int>(8, 6));
        Received<int> dropped;
        tool->initRender(
            [&](Data) {
                if (tool) {
                    tool.reset();
                    dropped(1);
                }
            },
            {{8, 6}, {0, 0, 8, 6}});
        EXPECT_EQ(dropped.at(0), 1);
    }
}

TEST(ProcessorBase, EnqueueWithoutAQueueUsesAThread)
{
    Received<Data> received;
    enqueue(received.callback(), {nullptr, nullptr, kView}, nullptr);
    EXPECT_EQ(received.at(0).context, kView);
    enqueue({}, {}, nullptr);
}

TEST(PostRender, CopiesAndLaysTheMaskOver)
{
    struct Overlay final : PostRenderDataI
    {
        std::shared_ptr<const MaskImage> maskToShow(const PreviewContext&, PostRenderType) const override
        {
            auto mask = std::make_shared<MaskImage>(_Size<int>(2, 1), 1.0f);
            mask->data()[1] = 0.5f;
            return mask;
        }
    };
    const auto picture = plain(2, 1, 0.5f);
    picture->setColorProfile(ColorProfileType::sRGB());
    EXPECT_FALSE(postRender(nullptr, nullptr, {}, PostRenderType::Main));
    const auto same = postRender(nullptr, picture, {}, PostRenderType::Main);
    EXPECT_NE(same, picture);
    EXPECT_TRUE(sameBytes(*same, *picture));
    const auto overlay = std::make_shared<Overlay>();
    EXPECT_TRUE(sameBytes(*postRender(overlay, picture, {}, PostRenderType::Main), *picture)); // unknown type
    overlay->type = PostRenderDataI::kErase;
    const auto shown = postRender(overlay, picture, {}, PostRenderType::Main);
    EXPECT_FLOAT_EQ(shown->data()[0].r, 0.75f);
    EXPECT_FLOAT_EQ(shown->data()[0].g, 0.25f);
    EXPECT_FLOAT_EQ(shown->data()[1].r, 0.625f);
    const auto wide = plain(2, 1, 0.5f); // red has other values in the working space
    const auto red = postRender(overlay, wide, {}, PostRenderType::Main)->data()[0];
    const Picture pure({1, 1}, {1, 0, 0}, ColorProfileType::sRGB());
    std::shared_ptr<Picture> converted;
    pure.colorTransform(converted, ColorProfileType::melissaRGB(), true);
    EXPECT_NEAR(red.g, 0.25f + converted->data()[0].g * 0.5f, 1e-5f);
}

} // namespace
} // namespace orvo::test
