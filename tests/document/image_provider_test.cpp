// One file, one image, opened at the first use.

#include <orvo_extensions/document/destructive_processor.hpp>
#include <orvo_extensions/document/image_provider.hpp>

#include <gtest/gtest.h>

#include <atomic>
#include <stdexcept>
#include <thread>
#include <vector>

namespace {

using namespace orvo;

std::shared_ptr<Image> image()
{
    return CreateOrvoImage(std::make_shared<_ImageData<PixelRGB<float>>>(_Size<int>(2, 2), PixelRGB<float>{}, nullptr));
}

TEST(ImageProvider, KnowsItsFileWithoutOpeningIt)
{
    int opened = 0;
    const ImageProvider provider("/pictures/a.dng", true, [&](const auto&) {
        ++opened;
        return image();
    });
    EXPECT_EQ(provider.filePath(), "/pictures/a.dng");
    EXPECT_TRUE(provider.isRaw());
    EXPECT_FALSE(ImageProvider("a.jpg", false, {}).isRaw());
    static_assert(std::is_same_v<decltype(provider.filePath()), std::filesystem::path>);
    EXPECT_EQ(opened, 0);
}

TEST(ImageProvider, OpensOnceForAllThreads)
{
    std::atomic<int> opened{0};
    ImageProvider provider("a.jpg", false, [&](const std::filesystem::path& file) {
        EXPECT_EQ(file, "a.jpg");
        ++opened;
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
        return image();
    });
    std::vector<std::shared_ptr<Image>> images(8);
    std::vector<std::thread> threads;
    for (auto& one : images)
        threads.emplace_back([&provider, &one] { one = provider.image(); });
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(opened, 1);
    for (const auto& one : images)
        EXPECT_EQ(one, images[0]);
    EXPECT_NE(images[0], nullptr);
}

TEST(ImageProvider, TriesAgainAfterAFailure)
{
    int calls = 0;
    ImageProvider provider("a.jpg", false, [&](const auto&) -> std::shared_ptr<Image> {
        ++calls;
        if (calls == 1)
            return nullptr;
        if (calls == 2)
            throw std::runtime_error("gone");
        return image();
    });
    EXPECT_EQ(provider.image(), nullptr);
    EXPECT_THROW(static_cast<void>(provider.image()), std::runtime_error);
    EXPECT_NE(provider.image(), nullptr);
    EXPECT_NE(provider.image(), nullptr);
    EXPECT_EQ(calls, 3);
}

TEST(ImageProvider, WithoutAnOpenerThereIsNoImage)
{
    ImageProvider provider("a.jpg", false, {});
    EXPECT_EQ(provider.image(), nullptr);
}

TEST(DestructiveProcessor, CopiesWorkOnTheSameSource)
{
    const auto provider = std::make_shared<ImageProvider>("a.jpg", false, nullptr);
    const DestructiveProcessor processor(provider);
    DestructiveProcessor copy = processor;
    EXPECT_EQ(copy.getImageProvider(), provider);
    copy = DestructiveProcessor(nullptr);
    EXPECT_EQ(copy.getImageProvider(), nullptr);
    EXPECT_EQ(processor.getImageProvider(), provider);

    const DestructiveImageProcessor whole(provider);
    DestructiveImageProcessor wholeCopy(nullptr);
    wholeCopy = whole;
    EXPECT_EQ(wholeCopy.getImageProvider(), provider);
    EXPECT_EQ(DestructiveImageProcessor(whole).getImageProvider(), provider);
}

} // namespace
