#include "support/pictures.hpp"
#include "support/temporary_folder.hpp"

#include <orvo/resource_manager.hpp>
#include <orvo_common/memory_manager.hpp>
#include <orvo_common/uuid.hpp>
#include <orvo_logger/log_capture.hpp>

#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>
#include <stdexcept>

namespace orvo::test {
namespace {

namespace fs = std::filesystem;

int filesIn(const fs::path& folder)
{
    int count = 0;
    for (const auto& entry : fs::directory_iterator(folder))
        count += entry.is_regular_file() ? 1 : 0;
    return count;
}

std::shared_ptr<const TiledMaskImage> drawnMask()
{
    DrawingController controller(_Size<int>(700, 400));
    controller.initialize();
    controller.setRoundBrushSettings(60.0f, 0.7f);
    controller.setBrushOpacity(0.9f);
    controller.stroke({{50, 50}, {600, 300}});
    return controller.getMask();
}

bool equal(const TiledMaskImage& a, const TiledMaskImage& b)
{
    const auto p = a.maskImage({}, {});
    const auto q = b.maskImage({}, {});
    return p->size() == q->size() && std::memcmp(p->data(), q->data(), p->pixelCount() * sizeof(float)) == 0;
}

std::shared_ptr<const KepTiledImageData> tiledPicture()
{
    const auto tiled = std::make_shared<KepTiledImageData>(_Size<int>(600, 300), ColorProfileType::melissaRGB());
    const auto picture = textured(600, 300);
    tiled->prepareImageData(
        {0, 0, 300, 300}, [&](const auto& rect, const auto&) { return picture->copy(rect); }, true);
    return tiled; // the right tile is not computed
}

class Resources : public testing::Test
{
protected:
    const TemporaryFolder folder;
    ResourceManager manager{folder.path() / "store", "test-"};

    void saveAll()
    {
        for (const auto& save :
             {manager.save("mask", drawnMask()), manager.save("tiles", tiledPicture()),
              manager.save("plane", std::shared_ptr<const _ImageData<float>>(plane)),
              manager.save("picture", std::shared_ptr<const Picture>(picture)),
              manager.saveDrawingState("state", {drawnMask()}), manager.saveDrawingState("none", {})})
            futures.push_back(save);
    }

    void expectAll()
    {
        EXPECT_TRUE(equal(*manager.loadTiledMaskImage("mask"), *drawnMask()));
        const auto tiles = manager.loadTiledImageDataSol("tiles");
        const auto expected = tiledPicture();
        EXPECT_TRUE(sameBytes(*std::as_const(*tiles).imageData(), *expected->imageData()));
        EXPECT_EQ(tiles->getTiles().size(), expected->getTiles().size());
        for (std::size_t i = 0; i < tiles->getTiles().size(); ++i)
            EXPECT_EQ(tiles->getTiles()[i] == nullptr, expected->getTiles()[i] == nullptr);
        EXPECT_EQ(*tiles->getColorProfile(), *ColorProfileType::melissaRGB());
        const auto loaded = manager.loadMask("plane");
        EXPECT_NE(loaded, plane);
        EXPECT_EQ(std::memcmp(loaded->data(), plane->data(), plane->pixelCount() * sizeof(float)), 0);
        EXPECT_TRUE(sameBytes(*manager.checkAndLoadImageData("picture", true), *picture));
        EXPECT_TRUE(equal(*manager.loadDrawingState("state").mask, *drawnMask()));
        EXPECT_FALSE(manager.loadDrawingState("none").mask);
    }

    std::shared_ptr<_ImageData<float>> plane = std::make_shared<MaskImage>(_Size<int>(31, 17), 0.25f);
    std::shared_ptr<Picture> picture = textured(45, 32);
    std::vector<std::shared_future<void>> futures;
};

TEST_F(Resources, WhatIsSavedComesBack)
{
    saveAll();
    expectAll(); // waits for the save
    EXPECT_EQ(filesIn(folder.path() / "store"), 6);
    for (const auto& future : futures)
        EXPECT_NO_THROW(future.get());
    struct stat facts = {};
    ASSERT_EQ(::stat((folder.path() / "store").c_str(), &facts), 0);
    EXPECT_EQ(facts.st_mode & 0777, 0700u);
    for (const auto& entry : fs::directory_iterator(folder.path() / "store")) {
        ASSERT_EQ(::stat(entry.path().c_str(), &facts), 0);
        EXPECT_EQ(facts.st_mode & 0777, 0600u);
        EXPECT_EQ(entry.path().filename().string().rfind("test-", 0), 0u);
    }
}

TEST_F(Resources, MemoryIsGivenBackOnceTheFileIsThere)
{
    const std::size_t before = MemoryManager::instance().liveBytes();
    auto mask = drawnMask();
    const auto save = manager.save("mask", mask);
    mask.reset();
    save.wait();
    EXPECT_EQ(MemoryManager::instance().liveBytes(), before);
    EXPECT_TRUE(equal(*manager.loadTiledMaskImage("mask"), *drawnMask()));
}

TEST_F(Resources, SavedTilesAreThoseOfTheMoment)
{
    const auto mask = std::make_shared<TiledMaskImage>(*drawnMask());
    const auto save = manager.save("mask", std::shared_ptr<const TiledMaskImage>(mask));
    mask->fill(1.0f);
    EXPECT_TRUE(equal(*manager.loadTiledMaskImage("mask"), *drawnMask()));
}

TEST_F(Resources, ClearingRemovesTheFiles)
{
    saveAll();
    manager.saves["mask"] = futures.front();
    manager.clearTempFiles();
    EXPECT_EQ(filesIn(folder.path() / "store"), 0);
    EXPECT_TRUE(manager.saves.empty());
    EXPECT_THROW((void)manager.loadTiledMaskImage("mask"), std::runtime_error);
    manager.save("mask", drawnMask()).get(); // stays usable
    EXPECT_EQ(filesIn(folder.path() / "store"), 1);
}

TEST_F(Resources, FilesGoWithTheLastCopy)
{
    {
        ResourceManager copy = manager;
        copy.save("mask", drawnMask()).get();
        manager = ResourceManager();
        EXPECT_EQ(filesIn(folder.path() / "store"), 1);
    }
    EXPECT_EQ(filesIn(folder.path() / "store"), 0);
}

TEST_F(Resources, AKeyCanBeSavedAgain)
{
    for (int i = 0; i < 20; ++i)
        (void)manager.save("mask",
                           std::make_shared<const TiledMaskImage>(_Size<int>(300, 300), 0.01f * static_cast<float>(i)));
    EXPECT_EQ(manager.loadTiledMaskImage("mask")->getValue(0, 0), 0.19f);
    EXPECT_LE(filesIn(folder.path() / "store"), 1);
}

TEST_F(Resources, RefusesWhatMakesNoSense)
{
    EXPECT_THROW((void)manager.save("../escape", drawnMask()), std::invalid_argument);
    EXPECT_THROW((void)manager.save("", drawnMask()), std::invalid_argument);
    EXPECT_THROW((void)manager.save(".hidden", drawnMask()), std::invalid_argument);
    EXPECT_THROW((void)manager.save("empty", std::shared_ptr<const TiledMaskImage>()), std::invalid_argument);
    EXPECT_THROW((void)manager.loadMask("nothing"), std::runtime_error);
    EXPECT_THROW((void)manager.loadDrawingState("nothing"), std::runtime_error);
    EXPECT_FALSE(manager.checkAndLoadImageData("nothing", true));
    manager.save("mask", drawnMask()).get();
    EXPECT_THROW((void)manager.loadMask("mask"), std::runtime_error); // another type
}

TEST_F(Resources, AManagerWithoutAFolderKeepsInMemory)
{
    manager = ResourceManager();
    saveAll();
    for (const auto& future : futures)
        EXPECT_NO_THROW(future.get());
    expectAll();
}

TEST_F(Resources, AFolderThatCannotBeMadeLosesNothing)
{
    std::ofstream(folder.path() / "file") << "in the way";
    manager = ResourceManager(folder.path() / "file" / "store", "");
    const LogCapture log;
    saveAll();
    for (const auto& future : futures)
        EXPECT_THROW(future.get(), std::runtime_error);
    EXPECT_EQ(log.texts(LogMessageType::Error).size(), futures.size());
    expectAll();
}

TEST_F(Resources, AFullDiskLosesNothing)
{
    const fs::path disk = folder.path() / "disk";
    fs::create_directory(disk);
    if (::mount("none", disk.c_str(), "tmpfs", 0, "size=300k") != 0)
        GTEST_SKIP() << "only root may have a small disk";
    manager = ResourceManager(disk / "store", "");
    const auto small = manager.save("plane", std::shared_ptr<const _ImageData<float>>(plane));
    const auto large = manager.save("mask", drawnMask());
    EXPECT_NO_THROW(small.get());
    EXPECT_THROW(large.get(), std::runtime_error);
    EXPECT_EQ(filesIn(disk / "store"), 1); // no partial file remains
    EXPECT_TRUE(equal(*manager.loadTiledMaskImage("mask"), *drawnMask()));
    EXPECT_EQ(manager.loadMask("plane")->size(), _Size<int>(31, 17));
    manager.clearTempFiles();
    EXPECT_EQ(::umount(disk.c_str()), 0);
}

TEST_F(Resources, AFileThatWasCutOffIsAnError)
{
    manager.save("plane", std::shared_ptr<const _ImageData<float>>(plane)).get();
    for (const auto& entry : fs::directory_iterator(folder.path() / "store"))
        fs::resize_file(entry.path(), 100);
    EXPECT_THROW((void)manager.loadMask("plane"), std::runtime_error);
}

TEST(ResourceKeys, AreFresh)
{
    EXPECT_NE(appendMaskExt(generateUUID()), appendMaskExt(generateUUID()));
    EXPECT_EQ(appendMaskExt("a"), "a.msk");
}

} // namespace
} // namespace orvo::test
