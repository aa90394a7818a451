#include "erase_tool.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>

namespace orvo::test {
namespace {

using ::testing::ElementsAre;
using ::testing::EndsWith;
using ::testing::HasSubstr;

std::vector<std::string> warnings(const LogCapture& log) { return log.texts(LogMessageType::Warning); }

TEST(EraseDrawing, BeginningTwiceChangesNothing)
{
    EraseTool tool;
    tool.beginDrawing();
    tool.strokePoints({{100, 100}}, brush(20));
    const auto before = tool.mask();
    const LogCapture log;
    tool.beginDrawing();
    EXPECT_EQ(tool.mask(), before);
    EXPECT_THAT(warnings(log), ElementsAre(EndsWith(": Drawing already started.")));
    EXPECT_THAT(warnings(log)[0], HasSubstr("beginDrawing"));
    tool.finishDrawing();
    EXPECT_EQ(tool.mask(), before);
}

TEST(EraseDrawing, ANewPhaseGoesOnFromTheMaskOfTheLast)
{
    EraseTool tool;
    tool.draw({{100, 100}}, brush(20));
    const auto first = tool.mask();
    tool.beginDrawing();
    EXPECT_EQ(tool.mask(), first);
    EXPECT_FALSE(tool.inside().brushInfo->mask);
    tool.strokePoints({{200, 150}}, brush(20));
    const auto second = tool.mask();
    EXPECT_NE(second, first);
    EXPECT_EQ(second[100 * 320 + 100], 1.0f);
    tool.finishDrawing();
    EXPECT_EQ(tool.mask(), second);
    EXPECT_FALSE(tool.inside().brushInfo->controller);
}

TEST(EraseDrawing, CallsOutOfOrderAreLoggedAndRenderAllTheSame)
{
    EraseTool tool;
    Received<Data> main;
    tool.initRender(main.callback(), {{32, 24}, {0, 0, 320, 240}});
    tool.settle();
    const LogCapture log;
    const auto expectRender = [&](bool renders, const auto& call, const std::string& text) {
        const std::size_t lines = warnings(log).size();
        const std::size_t before = main.count();
        call();
        tool.settle();
        EXPECT_EQ(main.count() - before, renders ? 1u : 0u) << text;
        ASSERT_EQ(warnings(log).size(), lines + 1) << text;
        EXPECT_THAT(warnings(log).back(), EndsWith(": Drawing not started yet." + text));
    };
    expectRender(
        true, [&] { tool.finishDrawing(); }, "");
    expectRender(
        true, [&] { tool.startStroke({}, {}); }, " Call beginDrawing before startStroke.");
    expectRender(
        true,
        [&] {
            tool.stroke({5, 5}, brush(5));
        },
        " Call beginDrawing before strokePoints.");
    expectRender(
        true,
        [&] {
            tool.strokePoints({{5, 5}}, brush(5));
        },
        " Call beginDrawing before strokePoints.");
    expectRender(
        true, [&] { tool.finishStroke({}, {}); }, " Call beginDrawing before finishStroke.");
    expectRender(
        false, [&] { tool.setDrawingMode(DrawingMode::Erase); }, " Call beginDrawing before setDrawingMode.");
    expectRender(
        true, [&] { tool.clearMask(); }, " Call beginDrawing before clearMask.");
    expectRender(
        false, [&] { (void)tool.storeMask(); }, " Call beginDrawing before storeMask.");
    const Bytes unknown = tool.storeMask();
    tool.settle();
    expectRender(
        true, [&] { tool.restoreMask(unknown); }, " Call beginDrawing before restoreMask.");
    EXPECT_TRUE(tool.mask().empty());
}

TEST(EraseDrawing, StrokesRenderTheMainViewAloneTheOthersBoth)
{
    EraseTool tool;
    tool.setConfiguration({true});
    Received<Data> main;
    Received<Data> underlay;
    tool.initRender(main.callback(), {{32, 24}, {0, 0, 320, 240}});
    tool.initUnderlayRender(underlay.callback(), 20);
    tool.beginDrawing();
    tool.startStroke({}, {});
    tool.settle();
    EXPECT_EQ(main.count(), 3u);
    EXPECT_EQ(underlay.count(), 3u);
    tool.stroke({50, 50}, brush(10));
    tool.settle();
    EXPECT_EQ(main.count(), 4u);
    EXPECT_EQ(underlay.count(), 3u);
    tool.finishStroke({}, {});
    tool.clearMask();
    tool.setShowMask(true);
    tool.finishDrawing();
    tool.settle();
    EXPECT_EQ(main.count(), 8u);
    EXPECT_EQ(underlay.count(), 7u);
}

TEST(EraseDrawing, TheStrokeUnderWayIsSeenInTheMainViewAlone)
{
    EraseTool tool;
    Received<Data> main;
    Received<Data> underlay;
    tool.initRender(main.callback(), {{320, 240}, {0, 0, 320, 240}});
    tool.initUnderlayRender(underlay.callback(), 320);
    tool.settle();
    const auto plainView = main.last().image;
    const auto isRed = [&](const Received<Data>&, const Data& data) {
        return data.image->row(100)[100].r > plainView->row(100)[100].r + 0.02f;
    };
    tool.beginDrawing();
    tool.startStroke({}, {});
    tool.stroke({100, 100}, brush(20));
    tool.settle();
    EXPECT_TRUE(isRed(main, main.last()));
    EXPECT_EQ(main.last().image->row(5)[5], plainView->row(5)[5]);
    tool.finishStroke({}, {});
    tool.settle();
    EXPECT_FALSE(isRed(main, main.last())); // no stroke, no overlay requested
    EXPECT_FALSE(isRed(underlay, underlay.last()));
    tool.setShowMask(true);
    tool.settle();
    EXPECT_TRUE(isRed(main, main.last()));
    EXPECT_FALSE(isRed(underlay, underlay.last())); // not during a stroke
    tool.finishDrawing();
    tool.settle();
    EXPECT_TRUE(isRed(main, main.last()));
    EXPECT_TRUE(isRed(underlay, underlay.last()));
    tool.quickPreviewOn();
    tool.settle();
    EXPECT_FALSE(isRed(main, main.last()));
    tool.quickPreviewOff();
    tool.setShowMask(false);
    tool.settle();
    EXPECT_FALSE(isRed(main, main.last()));
}

TEST(EraseDrawing, ShowingTheMaskNeedsNoPhaseAndRendersBoth)
{
    EraseTool tool;
    Received<Data> main;
    Received<Data> underlay;
    tool.initRender(main.callback(), {{32, 24}, {0, 0, 320, 240}});
    tool.initUnderlayRender(underlay.callback(), 20);
    tool.settle();
    const LogCapture log;
    tool.setShowMask(true);
    tool.settle();
    EXPECT_TRUE(tool.inside().brushInfo->showMask);
    EXPECT_EQ(main.count(), 2u);
    EXPECT_EQ(underlay.count(), 2u);
    EXPECT_TRUE(warnings(log).empty());
}

TEST(EraseDrawing, TheLogNamesTheCallThatRenders)
{
    EraseTool tool;
    Received<Data> main;
    tool.initRender(main.callback(), {{32, 24}, {1000, 1000, 5, 5}});
    tool.settle();
    const LogCapture log;
    tool.beginDrawing();
    tool.settle();
    tool.strokePoints({{5, 5}}, brush(5));
    tool.settle();
    const auto errors = log.texts(LogMessageType::Error);
    ASSERT_EQ(errors.size(), 2u);
    EXPECT_THAT(errors[0].substr(errors[0].find(" called from ")), HasSubstr("beginDrawing"));
    EXPECT_THAT(errors[1].substr(errors[1].find(" called from ")), HasSubstr("strokePoints"));
}

TEST(EraseDrawing, ArgumentsAreThoseOfTheCall)
{
    EraseTool tool;
    tool.beginDrawing();
    const auto go = tool.busy();
    DrawingMode mode = DrawingMode::Draw;
    std::vector<_Point<float>> points = {{100, 100}};
    tool.setDrawingMode(mode);
    tool.strokePoints(points, brush(20));
    mode = DrawingMode::Erase;
    points = {{200, 100}};
    go->set_value();
    const auto drawn = tool.mask();
    EXPECT_EQ(drawn[100 * 320 + 100], 1.0f);
    EXPECT_EQ(drawn[100 * 320 + 200], 0.0f);
}

TEST(EraseDrawing, TheCallbacksOfStrokesAreNeverCalled)
{
    EraseTool tool;
    std::atomic<int> calls = 0;
    const auto count = [&calls] { ++calls; };
    tool.beginDrawing();
    tool.startStroke(count, count);
    tool.stroke({100, 100}, brush(20));
    tool.finishStroke(count, count);
    tool.startStroke(count, count);
    tool.finishStroke(count, count);
    tool.finishDrawing();
    tool.settle();
    EXPECT_EQ(calls, 0);
}

TEST(EraseDrawing, AViewThatReachesOutsideShowsTheMaskWhereThePictureIs)
{
    EraseTool tool;
    tool.draw({{300, 220}}, brush(10));
    tool.setShowMask(true);
    Received<Data> main;
    tool.initRender(main.callback(), {{160, 120}, {160, 120, 500, 500}});
    const auto shown = main.at(0).image;
    const auto under = textured(320, 240)->copy({160, 120, 160, 120});
    EXPECT_GT(shown->row(100)[140].r, under->row(100)[140].r + 0.02f);
    EXPECT_EQ(shown->row(50)[50], under->row(50)[50]);
}

TEST(EraseDrawing, NoStrokeIsLostWhenItsRenderIs)
{
    EraseTool tool;
    tool.beginDrawing();
    tool.startStroke({}, {});
    for (int i = 0; i < 30; ++i)
        tool.stroke({10.0f * static_cast<float>(i), 100.0f}, brush(6));
    const auto drawn = tool.mask();
    for (int i = 0; i < 29; ++i)
        EXPECT_EQ(drawn[100u * 320u + static_cast<unsigned>(10 * i)], 1.0f) << i;
}

TEST(EraseDrawing, OtherBrushesAndNoneAreRefused)
{
    struct Square final : BaseBrushSettings
    {
        BrushSettingsType getType() const override { return static_cast<BrushSettingsType>(7); }
    };
    struct Pretender final : BaseBrushSettings
    {
        BrushSettingsType getType() const override { return BrushSettingsType::Round; }
    };
    EraseTool tool;
    tool.beginDrawing();
    const LogCapture log;
    tool.stroke({100, 100}, std::make_shared<Square>());
    tool.stroke({100, 100}, nullptr);
    tool.stroke({100, 100}, std::make_shared<Pretender>());
    EXPECT_EQ(tool.mask(), std::vector<float>(320 * 240, 0.0f));
    const auto lines = warnings(log);
    ASSERT_EQ(lines.size(), 3u);
    for (const auto& line : lines)
        EXPECT_THAT(line, EndsWith(": Only RoundBrushSettings supported."));
}

TEST(EraseDrawing, TheBrushMayChangeAlongTheStroke)
{
    EraseTool tool;
    tool.beginDrawing();
    tool.startStroke({}, {});
    tool.strokePoints({{40, 100}, {100, 100}}, brush(5));
    tool.strokePoints({{200, 100}}, brush(30));
    const auto drawn = tool.mask();
    EXPECT_EQ(drawn[112 * 320 + 60], 0.0f);
    EXPECT_EQ(drawn[112 * 320 + 180], 1.0f);
    tool.setDrawingMode(DrawingMode::Erase);
    tool.strokePoints({{180, 112}}, brush(8));
    EXPECT_EQ(tool.mask()[112 * 320 + 180], 0.0f);
    tool.clearMask();
    EXPECT_EQ(tool.mask(), std::vector<float>(320 * 240, 0.0f));
}

TEST(EraseDrawing, StoredMasksComeBackAlsoFromFiles)
{
    EraseTool tool;
    tool.beginDrawing();
    std::vector<Bytes> stored;
    std::vector<std::vector<float>> masks;
    for (int i = 0; i < 6; ++i) {
        tool.strokePoints({{30.0f + 40.0f * static_cast<float>(i), 100.0f}}, brush(15));
        stored.push_back(tool.storeMask());
        masks.push_back(tool.mask());
        EXPECT_LE(tool.inside().brushInfo->drawingStates.size(), 3u);
    }
    EXPECT_EQ(tool.inside().brushInfo->resources.saves.size(), 3u);
    for (const std::size_t i : {0u, 0u, 5u, 3u, 1u, 2u, 4u, 0u}) {
        tool.restoreMask(stored[i]);
        EXPECT_EQ(tool.mask(), masks[i]) << i;
        const auto& states = tool.inside().brushInfo->drawingStates;
        EXPECT_LE(states.size(), 3u);
        Bytes newest;
        states.back().second->serialize(newest);
        EXPECT_EQ(newest, stored[i]); // the restored one is the newest
    }
    // Every mask is written only once.
    EXPECT_EQ(tool.inside().brushInfo->resources.saves.size(), 6u);
}

TEST(EraseDrawing, StoringReturnsBeforeTheMaskIsStored)
{
    EraseTool tool;
    tool.beginDrawing();
    tool.settle();
    const auto go = tool.busy();
    const Bytes stored = tool.storeMask();
    EXPECT_TRUE(Identifier::deserialize(stored));
    EXPECT_TRUE(tool.inside().brushInfo->drawingStates.empty());
    go->set_value();
    tool.settle();
    EXPECT_EQ(tool.inside().brushInfo->drawingStates.size(), 1u);
}

TEST(EraseDrawing, TheNewestIsFoundInMemoryEachTime)
{
    EraseTool tool;
    tool.beginDrawing();
    tool.strokePoints({{100, 100}}, brush(15));
    const Bytes stored = tool.storeMask();
    const auto before = tool.mask();
    for (int i = 0; i < 2; ++i) {
        tool.clearMask();
        tool.restoreMask(stored);
        EXPECT_EQ(tool.mask(), before);
    }
    EXPECT_TRUE(tool.inside().brushInfo->resources.saves.empty());
}

TEST(EraseDrawing, NonsenseIsRefusedBeforeThePhaseIsLookedAt)
{
    EraseTool tool;
    const LogCapture log;
    tool.restoreMask({});
    tool.restoreMask({1, 2, 3});
    tool.settle();
    ASSERT_EQ(warnings(log).size(), 2u);
    for (const auto& line : warnings(log))
        EXPECT_THAT(line, EndsWith("Invalid identifier for restoreMask"));
    tool.beginDrawing();
    tool.strokePoints({{100, 100}}, brush(15));
    const auto before = tool.mask();
    Bytes unknown;
    UUIDGenerator()()->serialize(unknown);
    tool.restoreMask(unknown); // silently
    EXPECT_EQ(tool.mask(), before);
    EXPECT_EQ(warnings(log).size(), 2u);
}

TEST(EraseDrawing, MaskFilesGoWithTheTool)
{
    const int before = temporaryFiles();
    {
        EraseTool tool;
        tool.beginDrawing();
        for (int i = 0; i < 6; ++i) {
            tool.strokePoints({{30.0f + 40.0f * static_cast<float>(i), 100.0f}}, brush(15));
            (void)tool.storeMask();
        }
        tool.settle();
        for (const auto& [key, save] : tool.inside().brushInfo->resources.saves)
            save.wait();
        EXPECT_EQ(temporaryFiles(), before + 3);
    }
    EXPECT_EQ(temporaryFiles(), before);
}

} // namespace
} // namespace orvo::test
