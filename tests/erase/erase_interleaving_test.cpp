// Interleaves all calls at the rate of mouse moves, and ends at any moment.
#include "erase_tool.hpp"

#include <gtest/gtest.h>

#include <atomic>
#include <random>

namespace orvo::test {
namespace {

// One random call.
void act(GenerativeEraseProcessor& tool, std::mt19937& random, std::vector<Bytes>& states, std::vector<Bytes>& masks,
         const std::shared_ptr<std::atomic<int>>& callbacks)
{
    const auto upTo = [&](std::size_t n) { return static_cast<std::size_t>(random() % n); };
    const auto place = [&] {
        return _Point<float>(static_cast<float>(upTo(300)) - 20.0f, static_cast<float>(upTo(260)) - 20.0f);
    };
    const auto any = [&](const std::vector<Bytes>& all) { return all.empty() ? Bytes{1, 2} : all[upTo(all.size())]; };
    const auto count = [callbacks](const auto&) { ++*callbacks; };
    switch (upTo(22)) {
    case 0:
        tool.beginDrawing();
        break;
    case 1:
        tool.finishDrawing();
        break;
    case 2:
        tool.startStroke({}, {});
        break;
    case 3:
    case 4:
    case 5:
        tool.stroke(place(), brush(static_cast<float>(upTo(30)), 0.5f));
        break;
    case 6:
        tool.finishStroke({}, {});
        break;
    case 7:
        tool.setDrawingMode(upTo(2) == 0 ? DrawingMode::Draw : DrawingMode::Erase);
        break;
    case 8:
        tool.setShowMask(upTo(2) == 0);
        break;
    case 9:
        tool.clearMask();
        break;
    case 10:
        masks.push_back(tool.storeMask());
        break;
    case 11:
        tool.restoreMask(any(masks));
        break;
    case 12:
        tool.generateRequest("id", {}, count);
        break;
    case 13:
        tool.applyGeneratedResponse(plainAnswer({40, 30}, 0.5f), {static_cast<int>(upTo(50)), 30});
        break;
    case 14:
        states.push_back(tool.storeState());
        break;
    case 15:
        tool.restoreState(any(states), count);
        break;
    case 16:
        tool.setRenderContext({{static_cast<int>(upTo(80)), 60}, {0, 0, static_cast<int>(upTo(400)), 240}}, true);
        break;
    case 17:
        tool.changeColorProfile(upTo(2) == 0 ? ColorProfileType::sRGB() : ColorProfileType::melissaRGB());
        break;
    case 18:
        upTo(2) == 0 ? tool.beginCompareBlindMode() : tool.finishCompareBlindMode();
        break;
    case 19:
        upTo(2) == 0 ? tool.quickPreviewOn() : tool.quickPreviewOff();
        break;
    case 20:
        tool.generateDataForExport(count);
        break;
    default:
        tool.initUnderlayRender(count, static_cast<int>(upTo(90)));
        break;
    }
}

TEST(EraseInterleaving, RandomCallsEndAtRandomMoments)
{
    const auto callbacks = std::make_shared<std::atomic<int>>(0);
    const int filesBefore = temporaryFiles();
    for (unsigned seed = 0; seed < 12; ++seed) {
        std::mt19937 random(seed);
        auto tool = std::make_unique<GenerativeEraseProcessor>(std::shared_ptr<const Picture>(textured(260, 220)));
        tool->initRender([callbacks](const Data&) { ++*callbacks; }, {{60, 50}, {0, 0, 260, 220}});
        std::vector<Bytes> states;
        std::vector<Bytes> masks;
        const int calls = 5 + static_cast<int>(random() % 60);
        for (int i = 0; i < calls; ++i)
            act(*tool, random, states, masks, callbacks);
        tool.reset(); // with work pending
        EXPECT_EQ(temporaryFiles(), filesBefore) << seed;
    }
    EXPECT_GT(*callbacks, 0);
}

TEST(EraseInterleaving, ARenderCallbackMayEndIt)
{
    for (unsigned seed = 0; seed < 6; ++seed) {
        std::mt19937 random(seed);
        std::promise<void> ended;
        auto tool = std::make_shared<GenerativeEraseProcessor>(std::shared_ptr<const Picture>(textured(260, 220)));
        auto held = std::make_shared<std::shared_ptr<GenerativeEraseProcessor>>(tool);
        std::atomic<bool> done = false;
        std::promise<void> filled;
        auto ready = filled.get_future().share();
        auto callbacks = std::make_shared<std::atomic<int>>(0);
        tool->initRender(
            [&, held, ready](const Data&) {
                ready.wait();
                if (!done.exchange(true)) {
                    held->reset();
                    ended.set_value();
                }
            },
            {{60, 50}, {0, 0, 260, 220}});
        std::vector<Bytes> states;
        std::vector<Bytes> masks;
        for (int i = 0; i < 20; ++i)
            act(*tool, random, states, masks, callbacks);
        tool.reset();
        filled.set_value();
        ended.get_future().wait();
    }
}

} // namespace
} // namespace orvo::test
