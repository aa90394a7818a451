// Slits and rims of drawn panoramas.
#include "cut_rim.hpp"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

namespace orvo::jobs {
namespace {

using Picture = _ImageData<PixelRGB<float>>;

// '#' is content, anything else is not.
std::shared_ptr<MaskImage> maskOf(const std::vector<std::string>& rows)
{
    auto mask =
        std::make_shared<MaskImage>(_Size<int>(static_cast<int>(rows[0].size()), static_cast<int>(rows.size())), 0.0f);
    for (int y = 0; y < mask->height(); ++y)
        for (int x = 0; x < mask->width(); ++x)
            mask->row(y)[x] = rows[static_cast<std::size_t>(y)][static_cast<std::size_t>(x)] == '#' ? 0.5f : 0.0f;
    return mask;
}

std::vector<std::string> rowsOf(const _ImageData<float>& mask)
{
    std::vector<std::string> rows;
    for (int y = 0; y < mask.height(); ++y) {
        rows.emplace_back();
        for (int x = 0; x < mask.width(); ++x)
            rows.back() += mask.row(y)[x] > 0.0f ? '#' : '.';
    }
    return rows;
}

// Red is the column, green the row; blue is 0, but 1 outside of the content, which is white.
std::shared_ptr<Picture> pictureOf(const MaskImage& mask)
{
    auto picture = std::make_shared<Picture>(mask.size(), ColorProfileType::sRGB());
    for (int y = 0; y < mask.height(); ++y)
        for (int x = 0; x < mask.width(); ++x)
            picture->row(y)[x] = mask.row(y)[x] > 0.0f
                                     ? PixelRGB<float>{static_cast<float>(x), static_cast<float>(y), 0.0f}
                                     : PixelRGB<float>{1.0f, 1.0f, 1.0f};
    return picture;
}

bool isWhite(const PixelRGB<float>& pixel) { return pixel.b == 1.0f; }

TEST(Holes, AreContentWhereContentEnclosesThem)
{
    EXPECT_EQ(rowsOf(*withoutHoles(*maskOf({".....", ".###.", ".#.#.", ".###.", "....."}))),
              (std::vector<std::string>{".....", ".###.", ".###.", ".###.", "....."}));
    EXPECT_EQ(rowsOf(*withoutHoles(*maskOf({"#.#", "#.#", "###"}))), (std::vector<std::string>{"#.#", "#.#", "###"}))
        << "open to a side";
    EXPECT_EQ(withoutHoles(*maskOf({"###"}))->row(0)[0], 0.5f) << "content keeps its value";
}

TEST(Slits, AreContentUpToThreePixels)
{
    for (const int width : {1, 2, 3}) {
        const std::string row = "##" + std::string(static_cast<std::size_t>(width), '.') + "##";
        EXPECT_EQ(rowsOf(*withoutSlits(*maskOf({row, row})))[1], std::string(row.size(), '#')) << width;
    }
    EXPECT_EQ(rowsOf(*withoutSlits(*maskOf({"##....##"})))[0], "##....##");
    EXPECT_EQ(rowsOf(*withoutSlits(*maskOf({"##", "..", "##"})))[1], "##");
}

TEST(Slits, AreEnclosedByContent)
{
    const std::vector<std::string> steps = {"....", "##..", "####"};
    EXPECT_EQ(rowsOf(*withoutSlits(*maskOf(steps))), steps);
    EXPECT_EQ(rowsOf(*withoutSlits(*maskOf({"....", "...."}))), (std::vector<std::string>{"....", "...."}));
}

TEST(Slits, AreFilledFromTheirNearerSides)
{
    const auto mask = maskOf({"##..##", "##..##"});
    const auto filled = withoutRim(*pictureOf(*mask), *mask, 0, Beside::Nothing);
    ASSERT_TRUE(filled);
    for (int y = 0; y < 2; ++y)
        for (int x = 0; x < 6; ++x) {
            EXPECT_NEAR(filled->row(y)[x].r, x, 1e-6);
            EXPECT_NEAR(filled->row(y)[x].g, y, 1e-6);
        }
    const auto crossing = maskOf({"#.#", "#..", "###"});
    EXPECT_EQ(withoutRim(*pictureOf(*crossing), *crossing, 0, Beside::Nothing)->row(0)[1].r, 1.0f) << "along the row";
}

TEST(Rim, IsCutOffAllAround)
{
    const auto mask =
        maskOf({".........", ".#######.", ".#######.", ".#######.", ".#######.", ".#######.", "........."});
    const auto cut = withoutRim(*pictureOf(*mask), *mask, 2, Beside::Nothing);
    ASSERT_TRUE(cut);
    EXPECT_EQ(cut->size(), _Size<int>(3, 1));
    EXPECT_EQ(cut->row(0)[0].r, 3.0f);
    EXPECT_EQ(cut->row(0)[0].g, 3.0f);
    EXPECT_EQ(cut->colorProfile()->hash(), ColorProfileType::sRGB()->hash());
    EXPECT_EQ(withoutRim(*pictureOf(*mask), *mask, 0, Beside::Nothing)->size(), _Size<int>(7, 5)) << "only the bounds";
}

TEST(Rim, FollowsTheOutlineAndIsWhite)
{
    const auto mask = maskOf({"######....", "######....", "######....", "##########", "##########", "##########"});
    const auto cut = withoutRim(*pictureOf(*mask), *mask, 1, Beside::Nothing);
    ASSERT_TRUE(cut);
    ASSERT_EQ(cut->size(), _Size<int>(8, 4));
    for (int y = 0; y < 4; ++y)
        for (int x = 0; x < 8; ++x)
            EXPECT_EQ(isWhite(cut->row(y)[x]), x > 3 && y < 3) << x << ' ' << y;
}

TEST(Rim, IsMissingWhereTheSidesJoin)
{
    const auto mask = maskOf({"#####", "#####", "#####"});
    EXPECT_EQ(withoutRim(*pictureOf(*mask), *mask, 1, Beside::OtherSide)->size(), _Size<int>(5, 1));
    EXPECT_EQ(withoutRim(*pictureOf(*mask), *mask, 1, Beside::Nothing)->size(), _Size<int>(3, 1));
}

TEST(Rim, OfAHoleInACrop)
{
    const auto mask =
        maskOf({"#########", "#########", "##....###", "##....###", "##....###", "##....###", "#########"});
    const auto cut = withoutRim(*pictureOf(*mask), *mask, 1, Beside::MoreOfContent);
    ASSERT_TRUE(cut);
    ASSERT_EQ(cut->size(), mask->size());
    for (int y = 0; y < 7; ++y)
        for (int x = 0; x < 9; ++x)
            EXPECT_EQ(isWhite(cut->row(y)[x]), x > 0 && x < 7 && y > 0) << x << ' ' << y;
}

TEST(Rim, DoesNotFollowSlits)
{
    const auto mask = maskOf({"####.####", "####.####", "####.####"});
    const auto cut = withoutRim(*pictureOf(*mask), *mask, 1, Beside::Nothing);
    ASSERT_TRUE(cut);
    ASSERT_EQ(cut->size(), _Size<int>(7, 1));
    for (int x = 0; x < 7; ++x)
        EXPECT_NEAR(cut->row(0)[x].r, x + 1, 1e-6);
}

TEST(Rim, MayBeAll)
{
    const auto mask = maskOf({"####", "####"});
    EXPECT_EQ(withoutRim(*pictureOf(*mask), *mask, 1, Beside::Nothing), nullptr);
    const auto none = maskOf({"....", "...."});
    EXPECT_EQ(withoutRim(*pictureOf(*none), *none, 0, Beside::OtherSide), nullptr);
}

} // namespace
} // namespace orvo::jobs
