// Pixel states: initial values, deep copies, and runs of masked pixels.

#include <orvo_common/memory_manager.hpp>
#include <orvo_extensions/masked_image.hpp>

#include <gmock/gmock.h>

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <limits>
#include <new>
#include <stdexcept>

namespace {

using testing::ElementsAre;
using testing::Field;
using testing::IsEmpty;

auto isRun(int start, int length) { return testing::AllOf(Field(&rle_t::start, start), Field(&rle_t::length, length)); }

// A T constructed in memory full of `fill`, to show what its constructor sets.
template <typename T, typename... Arguments>
class MadeOn
{
public:
    explicit MadeOn(unsigned char fill, Arguments... arguments)
    {
        std::memset(bytes, fill, sizeof bytes);
        useMemory(); // or the compiler may drop the filling, which no defined program reads
        made = new (bytes) T(arguments...);
        useMemory();
    }
    const T& operator*() const { return *made; }
    // Whether the bytes from `begin` to `end` still hold the filling.
    [[nodiscard]] bool isFilled(std::size_t begin, std::size_t end, unsigned char fill) const
    {
        return std::all_of(bytes + begin, bytes + end, [&](unsigned char byte) { return byte == fill; });
    }

private:
    void useMemory() { asm volatile("" : : "r"(bytes) : "memory"); }

    alignas(T) unsigned char bytes[sizeof(T)];
    T* made;
};

TEST(MaskedImagePixel, ColourConstructorZeroesTheRest)
{
    const MadeOn<pixel_t, float, float, float> pixel(0xAA, 0.25f, 0.5f, 0.75f);
    EXPECT_EQ((*pixel).r, 0.25f);
    EXPECT_EQ((*pixel).g, 0.5f);
    EXPECT_EQ((*pixel).b, 0.75f);
    EXPECT_EQ((*pixel).further[0], 0U);
    EXPECT_EQ((*pixel).further[1], 0U);
    EXPECT_EQ((*pixel).mask, 0);
}

TEST(MaskedImagePixel, DefaultConstructorSetsNothing)
{
    const MadeOn<pixel_t> pixel(0xAA);
    EXPECT_TRUE(pixel.isFilled(0, sizeof(pixel_t), 0xAA));
}

TEST(MaskedImagePixel, StatesHaveTheirValues)
{
    EXPECT_EQ(pixel_t::kClear, 0);
    EXPECT_EQ(pixel_t::kMasked, 1);
    EXPECT_EQ(pixel_t::kForbidden, 2);
    EXPECT_EQ(pixel_t::kProcessed, 3);
}

TEST(MaskedImageRun, IsAssignedWhole)
{
    rle_t run;
    EXPECT_EQ(run.start, 0);
    EXPECT_EQ(run.length, 0);
    run = rle_t{70000, 300};
    const rle_t other = run;
    EXPECT_EQ(other.start, 70000);
    EXPECT_EQ(other.length, 300);
}

TEST(MaskedImageWalsh, ConstructorZeroesItsFirstWideField)
{
    static_assert(walsh_t::S == 8);
    static_assert(MaskedImageExt::DSCALE == 65535);
    const MadeOn<walsh_t> walsh(0xAA);
    EXPECT_EQ((*walsh).first, 0);
    EXPECT_TRUE(walsh.isFilled(0, offsetof(walsh_t, first), 0xAA)) << "only that field is set";
    EXPECT_TRUE(walsh.isFilled(offsetof(walsh_t, second), sizeof(walsh_t), 0xAA)) << "only that field is set";
}

TEST(MaskedImage, StartsBlackAndClear)
{
    MaskedImage image(3, 2);
    EXPECT_EQ(image.width(), 3);
    EXPECT_EQ(image.height(), 2);
    for (int i = 0; i < 6; ++i) {
        EXPECT_EQ(image.data()[i].r, 0.0f);
        EXPECT_EQ(image.data()[i].mask, 0);
    }
    EXPECT_EQ(MaskedImage().width(), 0);
    EXPECT_EQ(MaskedImage().height(), 0);
}

TEST(MaskedImage, RefusesImpossibleSizes)
{
    EXPECT_THROW(MaskedImage(-1, 2), std::invalid_argument);
    EXPECT_THROW(MaskedImage(2, -1), std::invalid_argument);
    EXPECT_THROW(MaskedImage(65536, 32768), std::invalid_argument);
    EXPECT_EQ(MaskedImage(0, 5).height(), 5);
}

TEST(MaskedImage, PixelsAreStoredRowByRow)
{
    MaskedImage image(3, 2);
    image.setSample(2, 1, pixel_t(0.1f, 0.2f, 0.3f));
    EXPECT_EQ(image.data()[5].g, 0.2f);
    image.setSample(1, 0, pixel_t(0.4f, 0.5f, 0.6f));
    EXPECT_EQ(image.data()[1].b, 0.6f);
    image.setMask(0, 1, 2);
    EXPECT_EQ(image.data()[3].mask, 2);
    EXPECT_EQ(image.getMask(0, 1), 2);
    EXPECT_EQ(image.getSample(2, 1).r, 0.1f);
    const MaskedImage& readOnly = image;
    EXPECT_EQ(readOnly.data(), image.data());
}

TEST(MaskedImage, EachStateHasItsOwnQuery)
{
    MaskedImage image(1, 1);
    for (int state = 0; state <= 4; ++state) {
        image.setMask(0, 0, static_cast<unsigned char>(state));
        EXPECT_EQ(image.isClear(0, 0), state == 0) << state;
        EXPECT_EQ(image.isMasked(0, 0), state == 1) << state;
        EXPECT_EQ(image.isForbidden(0, 0), state == 2) << state;
        EXPECT_EQ(image.isProcessed(0, 0), state == 3) << state;
    }
}

TEST(MaskedImage, SettingASampleSetsItsStateToo)
{
    MaskedImage image(1, 1);
    image.setMask(0, 0, 3);
    image.setSample(0, 0, pixel_t(1, 1, 1));
    EXPECT_TRUE(image.isClear(0, 0));
}

TEST(MaskedImage, CopiesAreDeep)
{
    MaskedImage image(2, 2);
    image.setMask(1, 1, 1);
    EXPECT_EQ(image.getTag(), 0);
    image.setTag(-5);
    MaskedImage copy = image;
    EXPECT_EQ(copy.getTag(), -5);
    copy.setMask(1, 1, 2);
    EXPECT_TRUE(image.isMasked(1, 1));
    MaskedImage assigned;
    assigned = image;
    EXPECT_EQ(assigned.width(), 2);
    EXPECT_EQ(assigned.getTag(), -5);
    EXPECT_TRUE(assigned.isMasked(1, 1));
    assigned.setMask(1, 1, 3);
    EXPECT_TRUE(image.isMasked(1, 1));
}

TEST(MaskedImage, PixelsComeFromTheMemoryManager)
{
    const std::size_t before = orvo::MemoryManager::instance().liveBytes();
    {
        const MaskedImageExt image(100, 50);
        EXPECT_GE(orvo::MemoryManager::instance().liveBytes(), before + 100 * 50 * sizeof(pixel_t));
        MaskedImageExt copy = image;
        copy.init_points();
        EXPECT_GE(orvo::MemoryManager::instance().liveBytes(),
                  before + 100 * 50 * (2 * sizeof(pixel_t) + sizeof(walsh_t)));
    }
    EXPECT_EQ(orvo::MemoryManager::instance().liveBytes(), before);
}

TEST(MaskedImage, CommittingChangesNothingHere)
{
    MaskedImage image(2, 1);
    image.setMask(0, 0, 1);
    image.commit_changes();
    EXPECT_TRUE(image.isMasked(0, 0));
    EXPECT_TRUE(image.isClear(1, 0));
}

TEST(MaskedImageExt, CommittingListsTheRuns)
{
    MaskedImageExt image(5, 3);
    for (const int x : {0, 1, 3})
        image.setMask(x, 0, pixel_t::kMasked);
    image.setMask(4, 1, pixel_t::kMasked);
    image.setMask(0, 2, pixel_t::kMasked);
    image.setMask(2, 2, pixel_t::kForbidden);
    EXPECT_THAT(image.getRuns(), IsEmpty());
    EXPECT_THAT(image.getPoints(), IsEmpty());
    MaskedImage& base = image;
    base.commit_changes();
    EXPECT_THAT(image.getRuns(), ElementsAre(isRun(0, 2), isRun(3, 1), isRun(9, 1), isRun(10, 1)));
    ASSERT_EQ(image.getPoints().size(), 15U);
    for (const walsh_t& point : image.getPoints())
        EXPECT_EQ(point.first, 0);

    image.setMask(0, 0, pixel_t::kClear);
    image.init_points();
    EXPECT_THAT(image.getRuns(), ElementsAre(isRun(1, 1), isRun(3, 1), isRun(9, 1), isRun(10, 1)));
}

TEST(MaskedImageExt, LongRunsAreCut)
{
    MaskedImageExt image(70000, 1);
    for (int x = 0; x < 70000; ++x)
        image.setMask(x, 0, pixel_t::kMasked);
    image.init_points();
    EXPECT_THAT(image.getRuns(), ElementsAre(isRun(0, 32767), isRun(32767, 32767), isRun(65534, 4466)));
}

TEST(MaskedImageExt, CopyIsDeep)
{
    MaskedImageExt image(2, 1);
    image.setMask(0, 0, pixel_t::kMasked);
    image.init_points();
    const std::shared_ptr<MaskedImageExt> copy = image.copy();
    ASSERT_NE(copy, nullptr);
    EXPECT_THAT(copy->getRuns(), ElementsAre(isRun(0, 1)));
    EXPECT_EQ(copy->getPoints().size(), 2U);
    copy->setMask(1, 0, pixel_t::kMasked);
    copy->commit_changes();
    EXPECT_TRUE(image.isClear(1, 0));
    EXPECT_THAT(image.getRuns(), ElementsAre(isRun(0, 1)));
    EXPECT_THAT(copy->getRuns(), ElementsAre(isRun(0, 2)));
    MaskedImageExt assigned;
    assigned = *copy;
    EXPECT_THAT(assigned.getRuns(), ElementsAre(isRun(0, 2)));
    EXPECT_NE(assigned.data(), copy->data());
}

} // namespace
