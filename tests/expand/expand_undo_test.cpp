#include "expand_tool.hpp"
#include "support/live_planes.hpp"

#include <orvo_core/identifier.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

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

TEST(ExpandUndo, APictureThatCannotBeOpenedMakesAnEmptyProcessor)
{
    const LogCapture log;
    GenerativeExpandProcessor processor(StateSource{"/nowhere/picture.jpg", {}, {}});
    EXPECT_FALSE(errors(log).empty());
    processor.generateRequest("1", cropOf(-1, 0, 3, 3), {}, {});
    processor.applyGeneratedResponse(std::string(40, 'a'), {1, 1});
    EXPECT_TRUE(processor.storeState().empty());
    processor.restoreState({}, {});
}

} // namespace
} // namespace orvo::test
