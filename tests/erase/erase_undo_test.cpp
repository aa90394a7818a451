#include "erase_tool.hpp"
#include "support/failing_memory.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <fstream>
#include <random>
#include <thread>

namespace orvo::test {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;

void eraseAt(EraseTool& tool, _Point<float> place, float value)
{
    tool.beginDrawing();
    tool.clearMask();
    tool.strokePoints({place}, brush(20, 0.3f));
    tool.finishDrawing();
    const Request request = tool.request("request at " + std::to_string(place.x));
    tool.applyGeneratedResponse(plainAnswer(sizeOf(request), value), sizeOf(request));
}

TEST(EraseUndo, GoesBackAndForth)
{
    EraseTool tool;
    const Bytes start = tool.storeState();
    const auto picture0 = tool.picture();
    eraseAt(tool, {60, 60}, 0.9f);
    const auto picture1 = tool.picture();
    const auto mask1 = tool.mask();
    tool.setShowMask(true);
    const Bytes first = tool.storeState();
    eraseAt(tool, {200, 100}, 0.1f);
    tool.setShowMask(false);
    OutState state = tool.restored(first);
    EXPECT_EQ(state.state, first);
    EXPECT_EQ(state.id, "request at " + std::to_string(60.0f));
    EXPECT_TRUE(sameBytes(*tool.picture(), *picture1));
    EXPECT_EQ(tool.mask(), mask1);
    EXPECT_TRUE(tool.inside().brushInfo->showMask);
    state = tool.restored(start);
    EXPECT_EQ(state.id, ""); // nothing had been requested
    EXPECT_TRUE(sameBytes(*tool.picture(), *picture0));
    EXPECT_TRUE(tool.mask().empty());
    (void)tool.restored(first);
    EXPECT_TRUE(sameBytes(*tool.picture(), *picture1));
}

TEST(EraseUndo, AStateFromBeforeTheFirstAnswerIsInitialAgain)
{
    EraseTool tool;
    const Bytes before = tool.storeState();
    EXPECT_TRUE(tool.isInInitialState());
    eraseAt(tool, {60, 60}, 0.9f);
    EXPECT_FALSE(tool.isInInitialState());
    const Bytes after = tool.storeState();
    tool.restoreState(before, {});
    EXPECT_TRUE(tool.isInInitialState()); // immediately
    tool.restoreState(after, {});
    EXPECT_FALSE(tool.isInInitialState());
    tool.restoreState({1, 2}, {}); // unknown id: does nothing
    EXPECT_FALSE(tool.isInInitialState());
}

TEST(EraseUndo, OldStatesComeFromFiles)
{
    EraseTool tool;
    std::vector<Bytes> states;
    std::vector<std::shared_ptr<const Picture>> pictures;
    for (int i = 0; i < 5; ++i) {
        eraseAt(tool, {40.0f + 50.0f * static_cast<float>(i), 100.0f}, 0.2f * static_cast<float>(i));
        states.push_back(tool.storeState());
        pictures.push_back(tool.picture());
    }
    tool.settle();
    EXPECT_EQ(tool.inside().stateIndex->statesInMemory(), 3u);
    for (const std::size_t i : {0u, 4u, 1u, 1u, 0u, 3u, 2u}) {
        EXPECT_EQ(tool.restored(states[i]).id.substr(0, 7), "request");
        EXPECT_TRUE(sameBytes(*tool.picture(), *pictures[i])) << i;
        EXPECT_LE(tool.inside().stateIndex->statesInMemory(), 3u);
    }
}

TEST(EraseUndo, AnAnswerToARestoredRequestFindsItsPlace)
{
    EraseTool tool;
    tool.draw({{100, 100}}, brush(20));
    const Request request = tool.request("1");
    const Bytes asked = tool.storeState();
    for (int i = 0; i < 4; ++i) {
        eraseAt(tool, {200, 150}, 0.8f);
        (void)tool.storeState();
    }
    (void)tool.restored(asked); // from files
    const auto before = tool.picture();
    tool.applyGeneratedResponse(plainAnswer(sizeOf(request), 0.95f), sizeOf(request));
    const auto after = tool.picture();
    EXPECT_NE(after->row(100)[100], before->row(100)[100]);
    EXPECT_EQ(after->row(150)[200], before->row(150)[200]);
}

TEST(EraseUndo, UnknownStatesAreLoggedAndAnswered)
{
    EraseTool tool;
    const auto before = tool.picture();
    const LogCapture log;
    EXPECT_EQ(tool.restored({1, 2, 3}).id, "");
    const auto id = UUIDGenerator()();
    Bytes unknown;
    id->serialize(unknown);
    const OutState state = tool.restored(unknown);
    EXPECT_EQ(state.id, "");
    EXPECT_EQ(state.state, unknown);
    EXPECT_THAT(log.texts(LogMessageType::Error),
                ElementsAre(HasSubstr(": Cannot parse id."), HasSubstr(": Cannot find state with id: " + id->text())));
    EXPECT_TRUE(sameBytes(*tool.picture(), *before));
    tool.restoreState(unknown, {});
    tool.settle();
}

TEST(EraseUndo, TheOutcomeComesOnAThreadOfItsOwn)
{
    EraseTool tool;
    std::thread::id worker;
    tool.inside().queue.addOperation(
        std::make_shared<opq::FunctionOperation>([&] { worker = std::this_thread::get_id(); }, ""));
    const Bytes state = tool.storeState();
    Received<std::thread::id> threads;
    const auto deliver = [&](const OutState&) { threads(std::this_thread::get_id()); };
    tool.restoreState(state, deliver);
    tool.restoreState({1, 2, 3}, deliver);
    for (std::size_t i = 0; i < 2; ++i) {
        EXPECT_TRUE(threads.at(i) != worker);
        EXPECT_TRUE(threads.at(i) != std::this_thread::get_id());
    }
}

TEST(EraseUndo, AStoredMaskDoesNotChangeWhenDrawingGoesOn)
{
    EraseTool tool;
    tool.draw({{100, 100}}, brush(20));
    const auto before = tool.mask();
    const Bytes state = tool.storeState();
    tool.draw({{100, 110}, {200, 200}}, brush(30));
    EXPECT_NE(tool.mask(), before);
    (void)tool.restored(state);
    EXPECT_EQ(tool.mask(), before);
}

TEST(EraseUndo, RestoringWithinAPhaseDoesNoHarm)
{
    EraseTool tool;
    tool.draw({{100, 100}}, brush(20));
    const Bytes state = tool.storeState();
    tool.beginDrawing();
    tool.startStroke({}, {});
    tool.stroke({200, 150}, brush(20));
    (void)tool.restored(state);
    tool.stroke({210, 150}, brush(20));
    tool.finishStroke({}, {});
    (void)tool.request("within");
    const Bytes within = tool.storeState();
    tool.finishDrawing();
    const auto drawn = tool.mask();
    EXPECT_EQ(drawn[150 * 320 + 205], 1.0f);
    EXPECT_EQ(tool.restored(within).state, within);
}

TEST(EraseUndo, FilesThatVanishAreAnErrorAndNotASilentLoss)
{
    EraseTool tool;
    std::vector<Bytes> states;
    for (int i = 0; i < 5; ++i) {
        eraseAt(tool, {40.0f + 50.0f * static_cast<float>(i), 100.0f}, 0.2f * static_cast<float>(i));
        states.push_back(tool.storeState());
    }
    const auto before = tool.picture();
    // The first two are in files: waits for that, then deletes the files.
    (void)tool.restored(states[0]);
    (void)tool.restored(states[1]);
    (void)tool.restored(states[4]);
    (void)tool.restored(states[2]);
    (void)tool.restored(states[3]);
    (void)tool.restored(states[4]);
    for (const auto& entry : std::filesystem::directory_iterator(getTemporaryDirectory()))
        std::filesystem::remove(entry.path());
    const LogCapture log;
    const OutState lost = tool.restored(states[0]);
    EXPECT_EQ(lost.id, "");
    EXPECT_EQ(lost.state, states[0]);
    EXPECT_EQ(log.texts(LogMessageType::Error).size(), 1u);
    EXPECT_TRUE(sameBytes(*tool.picture(), *before));
}

TEST(EraseUndo, StateFilesGoWithTheTool)
{
    const int before = temporaryFiles();
    {
        EraseTool tool;
        for (int i = 0; i < 6; ++i) {
            eraseAt(tool, {40.0f + 40.0f * static_cast<float>(i), 100.0f}, 0.5f);
            (void)tool.storeState();
        }
        tool.settle();
    }
    EXPECT_EQ(temporaryFiles(), before);
}

TEST(EraseUndo, WithoutMemoryForItsLastOperationAToolEndsAndItsFilesGo)
{
    if (!kAllocationsCanFail)
        GTEST_SKIP() << "allocations cannot fail under the thread sanitizer";
    const int before = temporaryFiles();
    {
        EraseTool tool;
        tool.beginDrawing();
        for (int i = 0; i < 6; ++i) {
            tool.stroke({40.0f + 40.0f * static_cast<float>(i), 100.0f}, brush(10));
            (void)tool.storeMask();
        }
        tool.settle();
        allocationsLeft = 0;
    }
    EXPECT_LT(allocationsLeft, 0) << "nothing was allocated";
    // A file that is still being written goes when its writer is done.
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    while (temporaryFiles() != before && std::chrono::steady_clock::now() < end)
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    EXPECT_EQ(temporaryFiles(), before);
}

// Puts a file in the place of the process's temporary folder, so that nothing can be written there.
class BlockedTemporaryFolder
{
public:
    BlockedTemporaryFolder()
    {
        std::filesystem::rename(folder, aside);
        std::ofstream(folder) << "in the way";
    }
    ~BlockedTemporaryFolder()
    {
        std::error_code ignored;
        std::filesystem::remove(folder, ignored);
        std::filesystem::rename(aside, folder, ignored);
    }
    BlockedTemporaryFolder(const BlockedTemporaryFolder&) = delete;
    BlockedTemporaryFolder& operator=(const BlockedTemporaryFolder&) = delete;

private:
    std::filesystem::path folder = getTemporaryDirectory();
    std::filesystem::path aside = folder.string() + ".aside";
};

TEST(EraseUndo, WithoutADiskEveryStateAndMaskStaysUsable)
{
    const BlockedTemporaryFolder blocked;
    const LogCapture log;
    EraseTool tool;
    std::vector<Bytes> states;
    std::vector<std::shared_ptr<const Picture>> pictures;
    for (int i = 0; i < 6; ++i) {
        eraseAt(tool, {40.0f + 40.0f * static_cast<float>(i), 100.0f}, 0.15f * static_cast<float>(i));
        states.push_back(tool.storeState());
        pictures.push_back(tool.picture());
    }
    tool.beginDrawing();
    tool.clearMask();
    std::vector<Bytes> masks;
    std::vector<std::vector<float>> drawn;
    for (int i = 0; i < 6; ++i) {
        tool.stroke({40.0f + 40.0f * static_cast<float>(i), 60.0f}, brush(10));
        masks.push_back(tool.storeMask());
        drawn.push_back(tool.mask());
    }
    for (const std::size_t i : {0u, 5u, 1u, 3u, 0u, 2u, 4u}) {
        tool.restoreMask(masks[i]);
        EXPECT_EQ(tool.mask(), drawn[i]) << i;
    }
    tool.finishDrawing();
    for (const std::size_t i : {0u, 5u, 1u, 3u, 0u, 2u, 4u}) {
        EXPECT_EQ(tool.restored(states[i]).state, states[i]);
        EXPECT_TRUE(sameBytes(*tool.picture(), *pictures[i])) << i;
    }
    const auto errors = log.texts(LogMessageType::Error);
    EXPECT_GT(errors.size(), 5u);
    for (const std::string& text : errors)
        EXPECT_THAT(text, HasSubstr("it is kept in memory"));
}

// A model that keeps full copies of everything.
struct Model
{
    struct Entry
    {
        Bytes bytes;
        std::shared_ptr<const Picture> picture;
        std::vector<float> mask;
        bool showMask;
        bool initial;
        std::string requestId;
    };
    struct MaskEntry
    {
        Bytes bytes;
        std::vector<float> mask;
    };
    std::vector<Entry> states;
    std::vector<MaskEntry> masks;
    bool showMask = false;
    bool initial = true;
    std::string requestId;
};

TEST(EraseUndo, TwoHundredRandomActionsEqualAModelOfFullCopies)
{
    const int filesBefore = temporaryFiles();
    {
        EraseTool tool({280, 200});
        Model model;
        std::mt19937 random(2026);
        const auto upTo = [&](std::size_t n) { return static_cast<std::size_t>(random() % n); };
        const auto place = [&] {
            return _Point<float>(20.0f + static_cast<float>(upTo(240)), 20.0f + static_cast<float>(upTo(160)));
        };
        for (int action = 0; action < 200; ++action) {
            SCOPED_TRACE(action);
            switch (upTo(7)) {
            case 0: // draws, and stores some masks
                tool.beginDrawing();
                for (int i = 0; i < 3; ++i) {
                    tool.strokePoints({place(), place()}, brush(4.0f + static_cast<float>(upTo(12)), 0.4f));
                    const Bytes bytes = tool.storeMask();
                    model.masks.push_back({bytes, tool.mask()});
                }
                tool.finishDrawing();
                break;
            case 1: // restores a mask
                if (!model.masks.empty()) {
                    const auto& entry = model.masks[upTo(model.masks.size())];
                    tool.beginDrawing();
                    tool.restoreMask(entry.bytes);
                    EXPECT_EQ(tool.mask(), entry.mask);
                    tool.finishDrawing();
                }
                break;
            case 2: // erases
                if (const Request request = tool.request(std::to_string(action)); request.valid) {
                    model.requestId = request.id;
                    tool.applyGeneratedResponse(plainAnswer(sizeOf(request), static_cast<float>(upTo(10)) / 10.0f),
                                                sizeOf(request));
                    model.initial = false;
                }
                break;
            case 3:
                model.showMask = upTo(2) == 0;
                tool.setShowMask(model.showMask);
                break;
            case 4: {
                const Bytes bytes = tool.storeState();
                model.states.push_back(
                    {bytes, tool.picture(), tool.mask(), model.showMask, model.initial, model.requestId});
                break;
            }
            default: // restores a state
                if (!model.states.empty()) {
                    const auto& entry = model.states[upTo(model.states.size())];
                    EXPECT_EQ(tool.restored(entry.bytes).id, entry.requestId);
                    ASSERT_TRUE(sameBytes(*tool.picture(), *entry.picture));
                    ASSERT_EQ(tool.mask(), entry.mask);
                    EXPECT_EQ(tool.inside().brushInfo->showMask, entry.showMask);
                    EXPECT_EQ(tool.isInInitialState(), entry.initial);
                    model.showMask = entry.showMask;
                    model.initial = entry.initial;
                    model.requestId = entry.requestId;
                }
                break;
            }
            tool.settle();
            ASSERT_LE(tool.inside().stateIndex->statesInMemory(), 3u);
            ASSERT_LE(tool.inside().brushInfo->drawingStates.size(), 3u);
        }
        EXPECT_GT(model.states.size(), 10u);
        EXPECT_GT(temporaryFiles(), filesBefore);
    }
    EXPECT_EQ(temporaryFiles(), filesBefore);
}

} // namespace
} // namespace orvo::test
