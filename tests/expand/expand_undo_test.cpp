#include "expand_tool.hpp"
#include "support/live_planes.hpp"
#include "support/renders.hpp"
#include "support/temporary_files.hpp"

#include <orvo_core/identifier.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>
#include <random>
#include <utility>
#include <vector>

namespace orvo::test {
namespace {

using ::testing::ElementsAre;
using ::testing::EndsWith;
using ::testing::HasSubstr;

void grow(ExpandTool& tool, const std::string& id)
{
    const _Size<int> size = tool.getCanvasSize();
    const auto sent = picturesOf(tool.request(cropOf(-12, -8, size.width + 24, size.height + 16), id));
    tool.applyGeneratedResponse(answerText(plain(sent->width(), sent->height(), 0.4f)), sent->size());
}

TEST(ExpandUndo, GoesBackToEveryState)
{
    // More states than stay in memory.
    ExpandTool tool({120, 90});
    std::vector<Bytes> states;
    std::vector<std::shared_ptr<const Picture>> pictures;
    for (int i = 0; i < 6; ++i) {
        states.push_back(tool.storeState());
        pictures.push_back(tool.picture());
        grow(tool, std::to_string(i));
    }
    EXPECT_EQ(tool.getCanvasSize(), _Size<int>(120 + 6 * 24, 90 + 6 * 16));
    for (const std::size_t i : {5u, 0u, 3u, 1u, 0u, 4u, 2u}) {
        const OutState back = tool.restored(states[i]);
        EXPECT_EQ(back.state, states[i]);
        EXPECT_EQ(back.id, i == 0 ? "" : std::to_string(i - 1)) << "the request that the state knew";
        EXPECT_EQ(tool.getCanvasSize(), pictures[i]->size());
        ASSERT_EQ(tool.picture()->size(), pictures[i]->size());
        EXPECT_LT(largestDifference(*tool.picture(), *pictures[i]), 1e-6f) << i;
        EXPECT_EQ(tool.isInInitialState(), i == 0);
    }
    // Continues from there.
    grow(tool, "again");
    EXPECT_EQ(tool.picture()->size(), _Size<int>(120 + 3 * 24, 90 + 3 * 16));
}

TEST(ExpandUndo, TheSizesAreBackAtOnce)
{
    ExpandTool tool({120, 90});
    const Bytes before = tool.storeState();
    (void)tool.request(cropOf(-30, 0, 150, 90));
    const Bytes requested = tool.storeState();
    grow(tool, "1");
    tool.restoreState(requested, {});
    EXPECT_EQ(tool.requestedCanvasSize(), _Size<int>(150, 90));
    EXPECT_EQ(tool.getCanvasSize(), _Size<int>(120, 90));
    tool.restoreState(before, {});
    EXPECT_EQ(tool.requestedCanvasSize(), _Size<int>(120, 90));
    EXPECT_EQ(tool.getCanvasSize(), _Size<int>(120, 90));
    EXPECT_TRUE(tool.isInInitialState());
}

TEST(ExpandUndo, ARestoredRequestTakesItsAnswer)
{
    ExpandTool tool({120, 90});
    (void)tool.request(cropOf(-30, 0, 150, 90), "wide");
    const Bytes state = tool.storeState();
    (void)tool.request(cropOf(0, -40, 120, 130), "high");
    EXPECT_EQ(tool.restored(state).id, "wide");
    tool.applyGeneratedResponse(answerText(plain(150, 90, 0.4f)), {150, 90});
    EXPECT_EQ(tool.picture()->size(), _Size<int>(150, 90));
}

TEST(ExpandUndo, UnknownStatesAreReported)
{
    ExpandTool tool({60, 40});
    {
        const LogCapture log;
        const OutState nothing = tool.restored({1, 2, 3});
        EXPECT_EQ(nothing.state, (Bytes{1, 2, 3}));
        EXPECT_TRUE(nothing.id.empty());
        EXPECT_THAT(errors(log), ElementsAre(EndsWith("Cannot parse id.")));
    }
    const auto stranger = UUIDGenerator()();
    Bytes bytes;
    stranger->serialize(bytes);
    const LogCapture log;
    EXPECT_TRUE(tool.restored(bytes).id.empty());
    EXPECT_THAT(errors(log), ElementsAre(HasSubstr("Cannot find state with id: " + stranger->text())));
    tool.restoreState({}, {}); // no callback
    tool.settle();
    EXPECT_EQ(tool.picture()->size(), _Size<int>(60, 40));
}

TEST(ExpandUndo, AProcessorMayGoWhileItWorks)
{
    const std::size_t live = liveBytesDownTo(0); // an earlier test may still be saving
    for (int round = 0; round < 12; ++round) {
        auto tool = std::make_unique<ExpandTool>(_Size<int>(80, 60));
        const auto sent = picturesOf(tool->request(cropOf(-12, -8, 104, 76)));
        const Bytes state = tool->storeState();
        tool->applyGeneratedResponse(answerText(plain(sent->width(), sent->height(), 0.4f)), sent->size());
        if (round % 3 == 1)
            tool->restoreState(state, {});
        if (round % 3 == 2)
            tool->settle();
        tool.reset();
    }
    EXPECT_EQ(liveBytesDownTo(live), live);
}

TEST(ExpandUndo, AnAnswerRendersBothChannelsARestoreTheUnderlayAlone)
{
    // Before the tool, whose destructor waits for the last delivery.
    Received<NoAlphaRender::Data> views;
    Received<NoAlphaRender::Data> underlays;
    ExpandTool tool({120, 90});
    tool.setConfiguration({true});
    tool.initRender(views.callback(), {{60, 45}, {0, 0, 120, 90}});
    tool.initUnderlayRender(underlays.callback(), 60);
    const auto delivered = [&] {
        tool.settle();
        waitFor(*tool.inside().callbackQueue);
        return std::pair(views.count(), underlays.count());
    };
    const Bytes before = tool.storeState();
    EXPECT_EQ(delivered(), std::pair(std::size_t{1}, std::size_t{1}));
    grow(tool, "1");
    EXPECT_EQ(delivered(), std::pair(std::size_t{2}, std::size_t{2}));
    EXPECT_EQ(underlays.last().context.roi, _Rect<int>(0, 0, 144, 106));
    (void)tool.restored(before);
    EXPECT_EQ(delivered(), std::pair(std::size_t{2}, std::size_t{3}));
    EXPECT_EQ(underlays.last().context.roi, _Rect<int>(0, 0, 120, 90));
}

TEST(ExpandUndo, AStateIsWrittenOnceAndItsFilesGoWithTheTool)
{
    const int filesBefore = temporaryFiles();
    {
        ExpandTool tool({120, 90});
        std::vector<Bytes> states;
        for (int i = 0; i < 5; ++i) {
            states.push_back(tool.storeState());
            grow(tool, std::to_string(i));
        }
        // Restores every state, which waits for its files; later ones are older than the three in memory.
        for (int round = 0; round < 2; ++round)
            for (const Bytes& state : states)
                EXPECT_EQ(tool.restored(state).state, state);
        // Picture, mask and canvas of each; the first state has no request.
        EXPECT_EQ(temporaryFiles() - filesBefore, 4 * 3 + 1);
    }
    EXPECT_EQ(temporaryFiles(), filesBefore);
}

TEST(ExpandUndo, FilesThatVanishAreAnErrorAndChangeNoPicture)
{
    ExpandTool tool({120, 90});
    std::vector<Bytes> states;
    for (int i = 0; i < 5; ++i) {
        states.push_back(tool.storeState());
        grow(tool, std::to_string(i));
    }
    for (const Bytes& state : states)
        (void)tool.restored(state);
    (void)tool.restored(states.front()); // all are written by now
    (void)tool.restored(states.back());
    const auto before = tool.picture();
    for (const auto& entry : std::filesystem::directory_iterator(getTemporaryDirectory()))
        std::filesystem::remove(entry.path());
    const LogCapture log;
    const OutState lost = tool.restored(states[1]);
    EXPECT_EQ(lost.id, "");
    EXPECT_EQ(lost.state, states[1]);
    EXPECT_EQ(errors(log).size(), 1u);
    EXPECT_TRUE(sameBytes(*tool.picture(), *before));
}

TEST(ExpandUndo, RandomCallsEndAtRandomMoments)
{
    const int filesBefore = temporaryFiles();
    const auto callbacks = std::make_shared<std::atomic<int>>(0);
    const auto count = [callbacks](const auto&) { ++*callbacks; };
    const std::string answer = answerText(plain(40, 30, 0.4f));
    for (unsigned seed = 0; seed < 12; ++seed) {
        std::mt19937 random(seed);
        const auto upTo = [&](int n) { return static_cast<int>(random() % static_cast<unsigned>(n)); };
        auto tool = std::make_unique<ExpandTool>(_Size<int>(80, 60));
        tool->initRender(count, {{40, 30}, {0, 0, 80, 60}});
        std::vector<Bytes> states = {{1, 2}};
        for (int calls = 5 + upTo(40); calls > 0; --calls)
            switch (upTo(8)) {
            case 0:
            case 1:
                tool->generateRequest("id", cropOf(upTo(40) - 30, upTo(40) - 30, 30 + upTo(100), 30 + upTo(100)), {},
                                      count);
                break;
            case 2:
            case 3:
                tool->applyGeneratedResponse(answer, {upTo(50), 30});
                break;
            case 4:
                states.push_back(tool->storeState());
                break;
            case 5:
                tool->restoreState(states[static_cast<std::size_t>(upTo(static_cast<int>(states.size())))], count);
                break;
            case 6:
                tool->setRenderContext({{upTo(80), 60}, {0, 0, upTo(200), 60}}, true);
                break;
            default:
                tool->initUnderlayRender(count, upTo(90));
                break;
            }
        tool.reset(); // with work pending
        EXPECT_EQ(temporaryFiles(), filesBefore) << seed;
    }
    EXPECT_GT(*callbacks, 0);
}

} // namespace
} // namespace orvo::test
