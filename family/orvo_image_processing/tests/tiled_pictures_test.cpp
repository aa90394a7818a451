#include <orvo_common/memory_manager.hpp>
#include <orvo_core/image.hpp>
#include <orvo_image_processing/kep_tiled_image_data.hpp>
#include <orvo_image_processing/tiled_mask_image.hpp>

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <stdexcept>
#include <vector>

namespace {

using orvo::_Rect;
using orvo::_Size;
using orvo::ColorProfileType;
using orvo::KepTiledImageData;
using orvo::MaskImage;
using orvo::TiledMaskImage;
using Picture = orvo::_ImageData<orvo::PixelRGB<float>>;

std::shared_ptr<Picture> wavy(_Size<int> size)
{
    auto picture = std::make_shared<Picture>(size, ColorProfileType::melissaRGB());
    for (int y = 0; y < size.height; ++y)
        for (int x = 0; x < size.width; ++x) {
            const auto fx = static_cast<float>(x);
            const auto fy = static_cast<float>(y);
            picture->row(y)[x] = {0.5f + 0.4f * std::sin(0.13f * fx + 0.07f * fy), 0.5f + 0.3f * std::sin(0.31f * fy),
                                  0.5f + 0.2f * std::cos(0.05f * fx * fy)};
        }
    return picture;
}

bool sameBytes(const Picture& a, const Picture& b)
{
    return a.size() == b.size() && std::memcmp(a.data(), b.data(), a.pixelCount() * sizeof(orvo::PixelRGB<float>)) == 0;
}

KepTiledImageData::Producer from(const std::shared_ptr<Picture>& picture, int* calls = nullptr)
{
    return [picture, calls](const _Rect<int>& rect, const auto&) {
        if (calls != nullptr)
            ++*calls;
        return picture->copy(rect);
    };
}

TEST(TiledImageData, IsFilledOnDemandAndOnlyOnce)
{
    const auto picture = wavy({700, 300});
    KepTiledImageData tiled({700, 300}, ColorProfileType::melissaRGB());
    int calls = 0;
    tiled.prepareImageData({300, 10, 5, 5}, from(picture, &calls), true);
    EXPECT_EQ(calls, 1);
    const auto some = tiled.getTiles();
    ASSERT_EQ(some.size(), 6u);
    EXPECT_FALSE(some[0]);
    ASSERT_TRUE(some[1]);
    EXPECT_EQ(some[1]->size(), _Size<int>(256, 256));
    tiled.prepareImageData(tiled.rect(), from(picture, &calls), true);
    EXPECT_EQ(calls, 4); // two strips around the existing tile, one below
    EXPECT_EQ(tiled.getTiles()[1], some[1]);
    EXPECT_EQ(tiled.getTiles()[5]->size(), _Size<int>(188, 44));
    tiled.prepareImageData(tiled.rect(), from(picture, &calls), true);
    EXPECT_EQ(calls, 4);
    EXPECT_TRUE(sameBytes(*std::as_const(tiled).imageData(), *picture));
}

TEST(TiledImageData, BringsWhatIsProducedIntoItsProfileWithoutTouchingIt)
{
    const auto srgb =
        std::make_shared<Picture>(_Size<int>(40, 30), orvo::PixelRGB<float>{1, 0, 0}, ColorProfileType::sRGB());
    KepTiledImageData tiled({40, 30}, ColorProfileType::melissaRGB());
    tiled.prepareImageData(
        tiled.rect(), [&](const auto&, const auto&) { return srgb; }, true);
    EXPECT_EQ(srgb->data()[0], (orvo::PixelRGB<float>{1, 0, 0}));
    std::shared_ptr<Picture> expected;
    srgb->colorTransform(expected, ColorProfileType::melissaRGB(), true);
    EXPECT_TRUE(sameBytes(*std::as_const(tiled).imageData(), *expected));
}

TEST(TiledImageData, RefusesWhatDoesNotFit)
{
    KepTiledImageData tiled({300, 300}, ColorProfileType::melissaRGB());
    EXPECT_THROW(tiled.prepareImageData(
                     {}, [](const auto&, const auto&) { return std::shared_ptr<Picture>(); }, true),
                 std::runtime_error);
    EXPECT_THROW(tiled.prepareImageData(
                     {},
                     [](const auto&, const auto&) {
                         return wavy({3, 3});
                     },
                     true),
                 std::runtime_error);
    EXPECT_THROW(tiled.copyTo(std::make_shared<KepTiledImageData>(_Size<int>(1, 1), nullptr)), std::invalid_argument);
    EXPECT_THROW(tiled.setTile(1, 1, wavy({256, 256})), std::invalid_argument);
}

TEST(TiledImageData, SharesTilesUntilTheyAreWritten)
{
    const auto picture = wavy({1000, 600});
    KepTiledImageData tiled({1000, 600}, ColorProfileType::melissaRGB());
    tiled.prepareImageData(tiled.rect(), from(picture), true);
    const auto copy = std::make_shared<KepTiledImageData>(_Size<int>(1000, 600), ColorProfileType::melissaRGB());
    const std::size_t before = orvo::MemoryManager::instance().liveBytes();
    tiled.copyTo(copy);
    EXPECT_EQ(orvo::MemoryManager::instance().liveBytes(), before);
    {
        const auto behind = copy->imageData();
        behind->row(300)[300] = {7, 7, 7};
    }
    const auto theirs = copy->getTiles();
    const auto ours = tiled.getTiles();
    for (std::size_t i = 0; i < ours.size(); ++i)
        EXPECT_EQ(ours[i] == theirs[i], i != 5) << i;
    EXPECT_TRUE(sameBytes(*std::as_const(tiled).imageData(), *picture));
    EXPECT_EQ(std::as_const(*copy).imageData()->row(300)[300].r, 7.0f);
    EXPECT_EQ(orvo::MemoryManager::instance().liveBytes(), before + 256 * 256 * 12);
}

TEST(TiledImageData, TakesAPictureIntoAPart)
{
    KepTiledImageData tiled({600, 500}, ColorProfileType::melissaRGB());
    tiled.prepareImageData(tiled.rect(), from(wavy({600, 500})), true);
    const auto before = tiled.getTiles();
    tiled.blendWithImageData(*wavy({50, 60}), {{}, {230, 20, 50, 60}, true});
    const auto expected = wavy({600, 500});
    const auto piece = wavy({50, 60});
    for (int y = 0; y < 60; ++y)
        for (int x = 0; x < 50; ++x)
            expected->row(20 + y)[230 + x] = piece->row(y)[x];
    EXPECT_TRUE(sameBytes(*std::as_const(tiled).imageData(), *expected));
    EXPECT_EQ(tiled.getTiles()[2], before[2]);
    tiled.blendWithImageData(*piece, {{}, {-20, -20, 50, 60}, true}); // clipped
    EXPECT_EQ(tiled.getTiles()[0]->row(0)[0], piece->row(20)[20]);
}

TEST(ModifiedImage, ShowsTilesAndBehindThemTheOriginal)
{
    const auto original = wavy({700, 600});
    const auto image = orvo::CreateOrvoImage(original);
    const std::string before = image->getGUID();
    EXPECT_EQ(image->developedModifiedImageData({}), original);
    const auto tiled = std::make_shared<KepTiledImageData>(_Size<int>(700, 600), ColorProfileType::melissaRGB());
    tiled->setTile(1, 1,
                   std::make_shared<Picture>(_Size<int>(256, 256), orvo::PixelRGB<float>{1, 1, 1},
                                             ColorProfileType::melissaRGB()));
    image->setModifiedImageData(tiled, "");
    EXPECT_NE(image->getGUID(), before);
    EXPECT_EQ(orvo::getKepModifiedImageData(image), tiled);
    const auto edited = original->copy({});
    for (int y = 256; y < 512; ++y)
        for (int x = 256; x < 512; ++x)
            edited->row(y)[x] = {1, 1, 1};
    EXPECT_TRUE(sameBytes(*image->developedModifiedImageData({}), *edited));
    EXPECT_EQ(image->developedOriginalImageData({}), original);
    // Any part at any size equals that of the whole picture.
    for (const auto& [size, rect] : std::vector<std::pair<_Size<int>, _Rect<int>>>{{{0, 0}, {200, 200, 100, 100}},
                                                                                   {{90, 77}, {0, 0, 0, 0}},
                                                                                   {{33, 21}, {250, 260, 300, 300}},
                                                                                   {{500, 400}, {300, 500, 50, 40}},
                                                                                   {{64, 64}, {-10, -10, 32, 32}},
                                                                                   {{8, 8}, {900, 900, 4, 4}}})
        EXPECT_TRUE(
            sameBytes(*image->developedModifiedImageData({size, rect, true}), *edited->resize(size, rect, true)))
            << size.width << " " << rect.x;
    image->setModifiedImageData(nullptr, "named");
    EXPECT_EQ(image->getGUID(), "named");
    EXPECT_EQ(image->developedModifiedImageData({}), original);
    EXPECT_THROW(image->setModifiedImageData(std::make_shared<KepTiledImageData>(_Size<int>(7, 6), nullptr), ""),
                 std::invalid_argument);
}

// Random values, with a tile of zeros and a uniform one.
TiledMaskImage patchy(_Size<int> size)
{
    TiledMaskImage mask(size);
    for (int row = 0; row < mask.rows(); ++row)
        for (int column = 0; column < mask.columns(); ++column) {
            if ((row + column) % 3 == 0)
                continue;
            if ((row + column) % 3 == 1) {
                mask.setTile(column, row, {0.75f, nullptr});
                continue;
            }
            float* const samples = mask.writableTile(column, row);
            for (int i = 0; i < 256 * 256; ++i)
                samples[i] = 0.5f + 0.5f * std::sin(0.037f * static_cast<float>(i % 256 + 3 * (i / 256)));
        }
    return mask;
}

std::shared_ptr<MaskImage> flat(const TiledMaskImage& mask)
{
    auto result = std::make_shared<MaskImage>(mask.size());
    for (int y = 0; y < mask.height(); ++y)
        for (int x = 0; x < mask.width(); ++x)
            result->row(y)[x] = mask.getValue(x, y);
    return result;
}

TEST(TiledMask, ShowsAnyPartAtAnySizeAsAFlatMaskDoes)
{
    const TiledMaskImage mask = patchy({700, 530});
    const auto whole = flat(mask);
    for (const _Rect<int> rect : {_Rect<int>{},
                                  {0, 0, 700, 530},
                                  {255, 255, 2, 2},
                                  {13, 200, 400, 111},
                                  {600, 500, 100, 30},
                                  {-20, -5, 100, 90},
                                  {650, 0, 100, 530}})
        for (const _Size<int> size : {_Size<int>{}, {1, 1}, {100, 77}, {350, 265}, {2, 400}, {900, 10}, {300, 300}}) {
            const auto expected = whole->resize(size, rect, true);
            const auto found = mask.maskImage(size, rect);
            ASSERT_EQ(found->size(), expected->size());
            float worst = 0.0f;
            for (std::size_t i = 0; i < found->pixelCount(); ++i)
                worst = std::max(worst, std::abs(found->data()[i] - expected->data()[i]));
            EXPECT_LT(worst, 4e-5f) << rect.x << "," << rect.y << " " << size.width << "x" << size.height;
        }
}

TEST(TiledMask, ACopyDoesNotChangeWhenTheOriginalIsWritten)
{
    TiledMaskImage mask = patchy({600, 600});
    const TiledMaskImage saved = mask;
    const auto before = flat(saved);
    for (int row = 0; row < mask.rows(); ++row)
        mask.writableTile(1, row)[5] = 0.125f;
    EXPECT_EQ(mask.getValue(256 + 5, 0), 0.125f);
    EXPECT_EQ(std::memcmp(flat(saved)->data(), before->data(), before->pixelCount() * 4), 0);
    mask.fill(0.5f);
    EXPECT_EQ(mask.getValue(599, 599), 0.5f);
    EXPECT_EQ(std::memcmp(flat(saved)->data(), before->data(), before->pixelCount() * 4), 0);
}

TEST(TiledMask, AnEmptyMaskTakesNoPlanes)
{
    const std::size_t before = orvo::MemoryManager::instance().liveBytes();
    TiledMaskImage mask({20000, 20000});
    EXPECT_EQ(orvo::MemoryManager::instance().liveBytes(), before);
    mask.writableTile(3, 3)[0] = 1.0f;
    EXPECT_EQ(orvo::MemoryManager::instance().liveBytes(), before + 256 * 256 * 4);
    EXPECT_THROW(TiledMaskImage({-1, 4}), std::invalid_argument);
    EXPECT_EQ(TiledMaskImage({0, 0}).maskImage({0, 0}, {})->pixelCount(), 0u);
}

} // namespace
