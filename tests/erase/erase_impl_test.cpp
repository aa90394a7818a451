// The working state of the tool: its picture, and the store of its states.
#include "erase_tool.hpp"

#include <orvo_image_processing/kep_tiled_image_data.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>

namespace orvo::test {
namespace {

using ::testing::EndsWith;
using Id = std::shared_ptr<const Identifier>;
using State = GenerativeEraseProcessorImpl::State;

TEST(WorkingImageErase, ShowsTheImageAndIsEmptyWithoutOne)
{
    WorkingImageErase working;
    EXPECT_FALSE(working.imageData({}));
    EXPECT_EQ(working.width(), 0);
    EXPECT_EQ(working.height(), 0);
    EXPECT_EQ(working.rect(), _Rect<int>());
    EXPECT_EQ(working.identifier(), "");
    const auto picture = textured(60, 40);
    working.image = CreateOrvoImage(picture);
    EXPECT_EQ(working.width(), 60);
    EXPECT_EQ(working.height(), 40);
    EXPECT_EQ(working.rect(), _Rect<int>(0, 0, 60, 40));
    EXPECT_EQ(working.identifier(), working.image->getGUID());
    const auto copy = working.imageData({});
    EXPECT_NE(copy, picture);
    EXPECT_TRUE(sameBytes(*copy, *picture));
    EXPECT_EQ(working.imageData({{15, 10}, {0, 0, 30, 20}, true})->size(), _Size<int>(15, 10));
}

State wholeState(float value)
{
    State state;
    state.mask = std::make_shared<TiledMaskImage>(_Size<int>(300, 200), value);
    state.requestParameters.mask = std::make_shared<MaskImage>(_Size<int>(30, 20), value);
    const auto tiles = std::make_shared<KepTiledImageData>(_Size<int>(300, 200), ColorProfileType::melissaRGB());
    tiles->blendWithImageData(*plain(300, 200, value), {});
    state.modifiedData = tiles;
    state.id = UUIDGenerator()();
    return state;
}

bool isWhole(const State& state) { return state.mask && state.requestParameters.mask && state.modifiedData; }

TEST(EraseStates, AreArchivedUnderThreeKeysMaskBlendMaskAndPicture)
{
    ResourceManager resources;
    State state = wholeState(0.25f);
    state.archive(resources);
    ASSERT_EQ(state.resourceKeys.size(), 3u);
    EXPECT_EQ(resources.saves.size(), 3u);
    for (const std::string& key : state.resourceKeys) {
        EXPECT_TRUE(resources.saves.contains(key));
        EXPECT_THAT(key, EndsWith(".msk"));
    }
    EXPECT_EQ(resources.loadTiledMaskImage(state.resourceKeys[0])->getValue(299, 199), 0.25f);
    EXPECT_EQ(resources.loadMask(state.resourceKeys[1])->size(), _Size<int>(30, 20));
    EXPECT_EQ(resources.loadTiledImageDataSol(state.resourceKeys[2])->size(), _Size<int>(300, 200));
    EXPECT_TRUE(isWhole(state));
    state.release();
    EXPECT_FALSE(state.mask || state.requestParameters.mask || state.modifiedData);
    state.load(resources);
    EXPECT_TRUE(isWhole(state));
}

TEST(EraseStates, WhatIsMissingHasAnEmptyKey)
{
    ResourceManager resources;
    State state;
    state.archive(resources);
    EXPECT_EQ(state.resourceKeys, std::vector<std::string>(3));
    EXPECT_TRUE(resources.saves.empty());
    state.load(resources);
    EXPECT_FALSE(state.mask || state.requestParameters.mask || state.modifiedData);
}

// Stores a new state and returns its id.
Id stored(StateIndex<State>& index)
{
    State state = wholeState(0.5f);
    const Id id = state.id;
    index.push(std::move(state));
    return id;
}

bool isInMemory(StateIndex<State>& index, const Id& id) { return index.find(id).resourceKeys.empty(); }

TEST(EraseStates, FindingARecentOneLeavesItsPlaceFindingAnOldOneMakesItTheNewest)
{
    StateIndex<State> index;
    const Id first = stored(index);
    const Id second = stored(index);
    const Id third = stored(index);
    EXPECT_TRUE(isInMemory(index, first)); // remains the oldest
    const Id fourth = stored(index);
    EXPECT_TRUE(isInMemory(index, second));
    EXPECT_FALSE(isInMemory(index, first)); // becomes the newest, and the second goes to files
    EXPECT_EQ(index.statesInMemory(), 3u);
    EXPECT_TRUE(isInMemory(index, third));
    EXPECT_TRUE(isInMemory(index, fourth));
    EXPECT_TRUE(isWhole(index.find(first)));
    EXPECT_FALSE(isInMemory(index, second));
    EXPECT_TRUE(isWhole(index.find(second)));
    EXPECT_FALSE(index.find(UUIDGenerator()()).id);
}

TEST(EraseStates, ARestoredOneIsNotWrittenAgain)
{
    const int before = temporaryFiles();
    {
        StateIndex<State> index;
        std::vector<Id> ids;
        for (int i = 0; i < 6; ++i)
            ids.push_back(stored(index));
        // Every state is archived in the first round. Loading waits for its write, and the last one is loaded last.
        for (int round = 0; round < 3; ++round) {
            for (const Id& id : ids)
                EXPECT_TRUE(isWhole(index.find(id)));
            EXPECT_EQ(temporaryFiles(), before + 6 * 3) << round;
        }
    }
    EXPECT_EQ(temporaryFiles(), before);
}

// Tiles of another kind, which no store can save.
class OtherTiles final : public TiledImageData
{
public:
    _Size<int> size() const override { return {300, 200}; }
    void blendWithImageData(const Picture&, const ResizeParameters&) override {}
    std::shared_ptr<const Picture> imageData() const override { return nullptr; }
    std::shared_ptr<Picture> imageData() override { return nullptr; }
    Tiles getTiles() const override { return {}; }
    int getTileSize() const override { return 256; }
    std::shared_ptr<ColorProfile> getColorProfile() const override { return nullptr; }
};

TEST(EraseStates, OneThatCannotBeSavedStaysWhole)
{
    StateIndex<State> index;
    State state = wholeState(0.5f);
    state.modifiedData = std::make_shared<OtherTiles>();
    index.push(state);
    (void)stored(index);
    (void)stored(index);
    EXPECT_THROW((void)stored(index), std::invalid_argument);
    const State found = index.find(state.id);
    EXPECT_TRUE(isWhole(found));
    EXPECT_TRUE(found.resourceKeys.empty());
}

} // namespace
} // namespace orvo::test
