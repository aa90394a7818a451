#include "support/files.hpp"
#include "support/temporary_folder.hpp"

#include <orvo/image_loader.hpp>

#include <gtest/gtest.h>

#include <fstream>
#include <thread>
#include <vector>

namespace orvo::test {
namespace {

TEST(ImageProvider, HandsOutTheOneImageOfAnIdentifier)
{
    const TemporaryFolder folder;
    const auto picture = textured(40, 30);
    const auto path = writtenTo(folder.path() / "picture.tif", *picture);
    const auto bytes = ImageLoader::load(path);
    const auto provider = ImageLoader::get(Identifier::deserialize(bytes));
    ASSERT_TRUE(provider);
    EXPECT_EQ(provider->filePath(), path);
    EXPECT_FALSE(provider->isRaw());
    const auto image = provider->image();
    ASSERT_TRUE(image);
    EXPECT_EQ(image->size(), _Size<int>(40, 30));
    EXPECT_EQ(provider->image(), image);
    EXPECT_EQ(ImageLoader::get(Identifier::deserialize(bytes)), provider);
    EXPECT_LT(largestDifference(*image->developedOriginalImageData({}), *picture), 1e-4f);
    ImageLoader::dispose(bytes);
    EXPECT_FALSE(ImageLoader::get(Identifier::deserialize(bytes)));
    EXPECT_EQ(provider->image(), image); // kept alive by its holder
}

TEST(ImageProvider, ManyThreadsGetTheSame)
{
    const TemporaryFolder folder;
    const auto bytes = ImageLoader::load(writtenTo(folder.path() / "picture.png", *textured(200, 150)));
    std::vector<std::shared_ptr<Image>> images(4);
    {
        std::vector<std::jthread> threads;
        for (auto& image : images)
            threads.emplace_back([&] { image = ImageLoader::get(Identifier::deserialize(bytes))->image(); });
    }
    for (const auto& image : images)
        EXPECT_EQ(image, images[0]);
    ImageLoader::dispose(bytes);
}

TEST(ImageProvider, IsEmptyForWhatIsNotThere)
{
    EXPECT_FALSE(ImageLoader::get(nullptr));
    EXPECT_FALSE(ImageLoader::get(UUIDGenerator()()));
    const TemporaryFolder folder;
    const auto path = writtenTo(folder.path() / "picture.png", *textured(200, 150));
    const auto bytes = ImageLoader::load(path);
    const auto provider = ImageLoader::get(Identifier::deserialize(bytes));
    std::filesystem::resize_file(path, 600);
    EXPECT_FALSE(provider->image());
    EXPECT_FALSE(provider->image());
}

} // namespace
} // namespace orvo::test
