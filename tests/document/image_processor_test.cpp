// The processor and the record that hold a store of temporary files.

#include <orvo/resource_manager.hpp>
#include <orvo_extensions/document/image_processor.hpp>
#include <orvo_extensions/document/resource_handler.hpp>

#include <gtest/gtest.h>
#include <support/temporary_folder.hpp>

#include <filesystem>
#include <memory>
#include <type_traits>

namespace {

using namespace orvo;

TEST(ImageProcessor, ReturnsTheValuesSet)
{
    ImageProcessor processor;
    EXPECT_EQ(processor.getCurrentLayerIndex(), 0);
    EXPECT_EQ(processor.getImageOrientation(), 1);
    EXPECT_EQ(processor.overlayPixelsType(), OverlayPixelsType::None);
    EXPECT_FALSE(processor.showHotPixels());
    EXPECT_FALSE(processor.showColdPixels());
    processor.setCurrentLayerIndex(4);
    processor.setImageOrientation(6);
    processor.setOverlayPixels(OverlayPixelsType(2), true, false);
    EXPECT_EQ(processor.getCurrentLayerIndex(), 4);
    EXPECT_EQ(processor.getImageOrientation(), 6);
    EXPECT_EQ(processor.overlayPixelsType(), OverlayPixelsType(2));
    EXPECT_TRUE(processor.showHotPixels());
    EXPECT_FALSE(processor.showColdPixels());
    static_assert(std::is_base_of_v<ImageProcessorInterface, ImageProcessor>);
}

class OpenProcessor : public ImageProcessor
{
public:
    using ImageProcessor::getDumper;
};

std::shared_ptr<const _ImageData<float>> mask()
{
    return std::make_shared<const _ImageData<float>>(_Size<int>(2, 1), 0.5f, nullptr);
}

TEST(ImageProcessor, ReplacesItsDumper)
{
    OpenProcessor processor;
    ImageProcessor& base = processor;
    EXPECT_EQ(processor.getDumper(), nullptr);
    for (int i = 0; i < 2; ++i) {
        auto store = std::make_unique<ResourceManager>();
        const ResourceManager* const given = store.get();
        base.setDumper(std::move(store));
        EXPECT_EQ(processor.getDumper(), given);
    }
    base.setDumper(nullptr);
    EXPECT_EQ(processor.getDumper(), nullptr);
}

TEST(ImageProcessor, FilesOfAReplacedDumperAreRemoved)
{
    const test::TemporaryFolder folder;
    const auto storeIn = [&](const char* name) {
        auto store = std::make_unique<ResourceManager>(folder.path() / name, "");
        store->save("mask", mask()).get();
        return store;
    };
    {
        ImageProcessor processor;
        processor.setDumper(storeIn("first"));
        EXPECT_FALSE(std::filesystem::is_empty(folder.path() / "first"));
        processor.setDumper(storeIn("second"));
        EXPECT_TRUE(std::filesystem::is_empty(folder.path() / "first"));
        EXPECT_FALSE(std::filesystem::is_empty(folder.path() / "second"));
    }
    EXPECT_TRUE(std::filesystem::is_empty(folder.path() / "second")) << "the processor owns its dumper";
}

TEST(ImageProcessor, CannotBeCopied)
{
    static_assert(!std::is_copy_constructible_v<ImageProcessor> && !std::is_copy_assignable_v<ImageProcessor>);
    static_assert(std::has_virtual_destructor_v<ImageProcessor>);
    SUCCEED(); // checked by the compiler
}

TEST(ResourceHandler, IsInitiallyEmpty)
{
    const ResourceHandler handler;
    EXPECT_EQ(handler.first, L"");
    EXPECT_EQ(handler.second, L"");
    EXPECT_TRUE(handler.resources.saves.empty());
}

TEST(ResourceHandler, CopiesShareTheFiles)
{
    ResourceHandler handler{L"one", L"two", {}};
    handler.resources.saves["mask"] = handler.resources.save("mask", mask());
    const ResourceHandler copy = handler;
    EXPECT_EQ(copy.first, L"one");
    EXPECT_EQ(copy.second, L"two");
    EXPECT_EQ(copy.resources.saves.size(), 1U);
    EXPECT_EQ(copy.resources.loadMask("mask")->size(), _Size<int>(2, 1));
    const ResourceHandler moved = std::move(handler);
    EXPECT_EQ(moved.first, L"one");
    EXPECT_EQ(moved.resources.loadMask("mask")->size(), _Size<int>(2, 1));
}

} // namespace
