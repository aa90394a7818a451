#include "test_planes.hpp"

#include <orvo_image_processing/debug_drawer.hpp>

#include <gtest/gtest.h>

#include <algorithm>
#include <limits>

using orvo::_Point;
using orvo::DebugDrawer;
using orvo::PixelRGB;
using Picture = orvo::_ImageData<PixelRGB<float>>;

namespace {

std::shared_ptr<Picture> plain(int width, int height, float value)
{
    return std::make_shared<Picture>(orvo::_Size<int>(width, height), PixelRGB<float>{value, value, value}, nullptr);
}

int changedInRows(const Picture& image, float ground, int first, int last)
{
    int count = 0;
    for (int y = std::max(0, first); y < std::min(last, image.height()); ++y)
        for (int x = 0; x < image.width(); ++x)
            count += image.row(y)[x].g != ground ? 1 : 0;
    return count;
}

std::pair<float, float> extremes(const Picture& image)
{
    float low = 1e9f;
    float high = -1e9f;
    for (std::size_t i = 0; i < image.pixelCount(); ++i) {
        low = std::min(low, image.data()[i].g);
        high = std::max(high, image.data()[i].g);
    }
    return {low, high};
}

} // namespace

TEST(DebugDrawer, IsReadableOnAnyBackground)
{
    for (const float ground : {0.0f, 0.5f, 1.0f}) {
        auto image = plain(400, 200, ground);
        DebugDrawer::draw(image, "Alignment: true", _Point<int>(5, 50));
        const auto [low, high] = extremes(*image);
        EXPECT_LT(low, 0.1f) << ground;
        EXPECT_GT(high, 0.85f) << ground;
    }
}

TEST(DebugDrawer, DrawsLineBelowLineFromItsPosition)
{
    auto one = plain(600, 400, 0.5f);
    auto three = plain(600, 400, 0.5f);
    DebugDrawer::draw(one, "HHHH", _Point<int>(0, 200));
    DebugDrawer::draw(three, "HHHH\nHHHH\n\nHHHH", _Point<int>(0, 200));
    EXPECT_EQ(changedInRows(*one, 0.5f, 0, 200), 0);
    EXPECT_GT(changedInRows(*one, 0.5f, 200, 212), 50);
    EXPECT_EQ(changedInRows(*one, 0.5f, 222, 400), 0);
    EXPECT_GT(changedInRows(*three, 0.5f, 236, 248), 50);
    EXPECT_EQ(changedInRows(*three, 0.5f, 260, 400), 0);
}

TEST(DebugDrawer, SizeFollowsThePicture)
{
    auto small = plain(600, 400, 0.5f);
    auto large = plain(3000, 2000, 0.5f);
    DebugDrawer::draw(small, "M", _Point<float>(0.0f, 0.0f));
    DebugDrawer::draw(large, "M", _Point<float>(0.0f, 0.0f));
    EXPECT_GT(changedInRows(*large, 0.5f, 0, 2000), 6 * changedInRows(*small, 0.5f, 0, 400));
}

TEST(DebugDrawer, ClipsTextBeyondThePicture)
{
    const std::string endless(100000, 'W');
    for (const auto& [width, height] : planes::awkwardSizes()) {
        auto image = plain(width, height, 0.5f);
        DebugDrawer::draw(image, endless, _Point<int>(-7, -3));
        DebugDrawer::draw(image, "\x01\xff\n\n", _Point<int>(0, 0));
        DebugDrawer::draw(image, "far", _Point<int>(std::numeric_limits<int>::max(), std::numeric_limits<int>::min()));
        DebugDrawer::draw(image, "nowhere", _Point<float>(std::nanf(""), std::numeric_limits<float>::infinity()));
        orvo::writeOnFrame(image, "text");
    }
    auto image = plain(300, 200, 0.5f);
    DebugDrawer::draw(image, endless, _Point<int>(0, 190));
    EXPECT_GT(changedInRows(*image, 0.5f, 190, 200), 50);
    std::shared_ptr<Picture> none;
    DebugDrawer::draw(none, "text", _Point<int>(0, 0));
    orvo::writeOnFrame(none, "text");
    EXPECT_EQ(none, nullptr);
}

TEST(DebugDrawer, WritesOneLineInTheCorner)
{
    auto image = plain(600, 400, 0.5f);
    orvo::writeOnFrame(image, "frame\n17");
    EXPECT_GT(changedInRows(*image, 0.5f, 0, 24), 100);
    EXPECT_EQ(changedInRows(*image, 0.5f, 32, 400), 0);
}

TEST(DebugDrawer, WrapsALineThatIsTooWide)
{
    const std::string label = "align result, image 5 out of 10";
    auto wide = plain(240, 90, 0.5f);
    orvo::writeOnFrame(wide, label);
    EXPECT_EQ(changedInRows(*wide, 0.5f, 24, 90), 0) << "it fits";

    auto narrow = plain(120, 90, 0.5f);
    auto byHand = plain(120, 90, 0.5f);
    orvo::writeOnFrame(narrow, label);
    DebugDrawer::draw(byHand, "align result, image 5\nout of 10", _Point<int>(6, 6));
    EXPECT_GT(changedInRows(*narrow, 0.5f, 20, 30), 50);
    EXPECT_TRUE(std::equal(&narrow->data()->r, &narrow->data()->r + 3 * narrow->pixelCount(), &byHand->data()->r));
    for (int y = 0; y < 90; ++y)
        EXPECT_EQ(narrow->row(y)[119].g, 0.5f) << "nothing is cut off, row " << y;
}

// The label leaves the pixels at the right and lower border untouched, so it is not clipped there.
bool endsInside(const Picture& picture, float ground)
{
    const int right = picture.width() - 1;
    const int bottom = picture.height() - 1;
    for (int y = 0; y <= bottom; ++y)
        if (picture.row(y)[right].g > ground + 0.2f) // letters; their dark rim may touch the border
            return false;
    for (int x = 0; x <= right; ++x)
        if (picture.row(bottom)[x].g > ground + 0.2f)
            return false;
    return true;
}

TEST(DebugDrawer, LabelsAreWholeInSmallPictures)
{
    const std::string label = "align result, image 23 out of 100";
    for (int width = 20; width <= 300; width += 7)
        for (const int height : {14, 16, 20, 24, 33, 40, 67, 100, 200}) {
            auto image = plain(width, height, 0.5f);
            orvo::writeOnFrame(image, label);
            EXPECT_TRUE(endsInside(*image, 0.5f)) << width << " x " << height;
            EXPECT_GT(changedInRows(*image, 0.5f, 0, height), 15) << width << " x " << height;
        }
}

TEST(DebugDrawer, ShortenedLabelsKeepBothEnds)
{
    const auto label = [](const std::string& text) {
        auto image = plain(120, 20, 0.5f);
        orvo::writeOnFrame(image, text);
        return image;
    };
    const auto same = [](const Picture& a, const Picture& b) {
        return std::equal(&a.data()->r, &a.data()->r + 3 * a.pixelCount(), &b.data()->r);
    };
    const auto first = label("align result, image 3 out of 10");
    EXPECT_FALSE(same(*first, *label("align result, image 4 out of 10")));
    EXPECT_FALSE(same(*first, *label("align result, image 3 out of 11")));
    EXPECT_FALSE(same(*first, *label("blign result, image 3 out of 10")));
    EXPECT_TRUE(same(*first, *label("align resuxt, image 3 out of 10"))) << "the middle is left out";
}

TEST(DebugDrawer, PicturesWithoutRoomForALabelAreLeftAlone)
{
    for (const auto& [width, height] : {std::pair(5, 200), std::pair(200, 5), std::pair(8, 8)}) {
        auto image = plain(width, height, 0.5f);
        orvo::writeOnFrame(image, "align result, image 3 out of 10");
        EXPECT_EQ(changedInRows(*image, 0.5f, 0, height), 0) << width << " x " << height;
    }
}
