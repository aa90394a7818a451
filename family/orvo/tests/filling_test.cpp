// Filling by patches of the picture itself.
#include "filling/ballot.hpp"
#include "filling/convergence.hpp"
#include "filling/fill_level.hpp"
#include "filling/gentle_shading.hpp"
#include "filling/hole.hpp"
#include "filling/line_directions.hpp"
#include "filling/patch_filler.hpp"
#include "filling/plane_view.hpp"
#include "filling/shifted_pieces.hpp"
#include "filling/source_cost.hpp"
#include "filling/usage_cost.hpp"
#include "filling_pictures.hpp"

#include <orvo_common/memory_manager.hpp>
#include <orvo_core/parallel.hpp>

#include <gmock/gmock.h>

#include <algorithm>
#include <string>
#include <vector>

namespace {

using namespace test;
using orvo::FailureError;
using orvo::FailureKind;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::ThrowsMessage;

constexpr orvo::_Size<int> kSize{96, 80};
constexpr orvo::_Rect<int> kMiddle{36, 30, 24, 20};

orvo::PicturePointer clothPicture(orvo::_Size<int> size = kSize) { return drawn(size, nullptr, cloth); }

// --- What counts as the hole -----------------------------------------------------------------------------------------

TEST(Filling, KnownPixelsComeBackBitForBit)
{
    const auto picture = clothPicture();
    picture->row(3)[3] = {kNaN, kInfinity, -kInfinity};
    picture->row(40)[20] = {-2.0f, 7.0f, 1e-40f};
    const auto mask = maskOf(kSize, within(kMiddle));
    const auto result = filled(*picture, *mask);
    ASSERT_TRUE(result);
    EXPECT_EQ(result->size(), kSize);
    EXPECT_TRUE(knownEqual(*picture, *result, *mask));
    EXPECT_NE(result->data(), picture->data());
}

TEST(Filling, KeepsTheColourProfile)
{
    const auto picture = drawn(kSize, orvo::ColorProfileType::sRGB(), cloth);
    EXPECT_EQ(filled(*picture, *maskOf(kSize, within(kMiddle)))->colorProfile(), picture->colorProfile());
}

TEST(Filling, EmptyHoleGivesACopy)
{
    const auto picture = clothPicture();
    const auto result = filled(*picture, *maskOf(kSize, [](int, int) { return false; }));
    EXPECT_TRUE(bytesEqual(*picture, *result));
    EXPECT_NE(result->data(), picture->data());
}

TEST(Filling, TheHoleBeginsAtAHalf)
{
    const auto picture = drawn(kSize, nullptr, [](int, int) { return Pixel{0.25f, 0.5f, 0.75f}; });
    const auto mask = maskOf(kSize, [](int, int) { return false; });
    const Pixel foreign{0.9f, 0.1f, 0.1f};
    const std::vector<std::pair<float, bool>> samples = {{0.499f, false},   {0.5f, true},  {0.7f, true},
                                                         {kInfinity, true}, {kNaN, false}, {-kInfinity, false}};
    for (int i = 0; i < static_cast<int>(samples.size()); ++i) {
        picture->row(40)[10 + 12 * i] = foreign;
        mask->row(40)[10 + 12 * i] = samples[static_cast<std::size_t>(i)].first;
    }
    const auto result = filled(*picture, *mask);
    for (int i = 0; i < static_cast<int>(samples.size()); ++i)
        EXPECT_EQ(result->row(40)[10 + 12 * i] != foreign, samples[static_cast<std::size_t>(i)].second) << i;
}

TEST(Filling, AMaskOfAnotherSizeIsLaidOverThePicture)
{
    const auto picture = clothPicture();
    // A sample covers 3 pixels of the picture across and 2 down.
    const auto small = maskOf({32, 40}, within({12, 15, 8, 10}));
    const auto large = maskOf(kSize, within(kMiddle));
    EXPECT_TRUE(bytesEqual(*filled(*picture, *small), *filled(*picture, *large)));
    // A larger mask: the sample under the centre of a pixel counts.
    const auto twice = maskOf({2 * kSize.width, 2 * kSize.height}, within({72, 60, 48, 40}));
    EXPECT_TRUE(bytesEqual(*filled(*picture, *twice), *filled(*picture, *large)));
}

TEST(Filling, RefusesWhereNothingIsKnown)
{
    EXPECT_THAT([] { (void)filled(*clothPicture(), *maskOf(kSize, [](int, int) { return true; })); },
                ThrowsMessage<FailureError>(HasSubstr("marks all of 96 x 80 pixels")));
    EXPECT_THAT(
        [] {
            (void)filled(*clothPicture({0, 0}), *maskOf(kSize, within(kMiddle)));
        },
        ThrowsMessage<FailureError>(HasSubstr("expected a picture with pixels")));
    EXPECT_THAT(
        [] {
            (void)filled(*clothPicture(), *maskOf({0, 5}, within(kMiddle)));
        },
        ThrowsMessage<FailureError>(HasSubstr("expected a mask with pixels")));
}

TEST(Filling, WhatIsInTheHoleDoesNotMatter)
{
    const auto mask = maskOf(kSize, within(kMiddle));
    const auto other = clothPicture();
    for (int y = 0; y < kSize.height; ++y)
        for (int x = 0; x < kSize.width; ++x)
            if (mask->row(y)[x] > 0.0f)
                other->row(y)[x] = (x + y) % 2 == 0 ? Pixel{1.0f, 0.0f, 1.0f} : Pixel{kNaN, -3.0f, kInfinity};
    EXPECT_TRUE(bytesEqual(*filled(*clothPicture(), *mask), *filled(*other, *mask)));
}

// --- What is painted -------------------------------------------------------------------------------------------------

TEST(Filling, AFlatPictureStaysFlat)
{
    const Pixel grey{0.3f, 0.4f, 0.5f};
    const auto picture = drawn(kSize, nullptr, [&](int, int) { return grey; });
    const auto mask = maskOf(kSize, within(kMiddle));
    constexpr float kRounding = 1e-5f; // of a weighted mean of equal values
    EXPECT_LT(worstInside(*picture, *filled(*picture, *mask), *mask), kRounding);
}

orvo::PicturePointer yellowStripes()
{
    return drawn({160, 120}, nullptr, [](int x, int y) {
        return (x + 2 * y) % 15 < 6 ? Pixel{0.8f, 0.7f, 0.2f} : Pixel{0.1f, 0.2f, 0.3f};
    });
}
constexpr orvo::_Rect<int> kInStripes{60, 40, 45, 40};

TEST(Filling, ContinuesStripes)
{
    const auto picture = yellowStripes();
    const auto mask = maskOf(picture->size(), within(kInStripes));
    constexpr float kHardlySeen = 0.02f;
    EXPECT_LT(worstInside(*picture, *filled(*picture, *mask), *mask), kHardlySeen);
}

// No piece reaches from the middle of the hole to known stripes by the shortest repetition.
TEST(Filling, PiecesOfStripesFitWhateverTheyStartFrom)
{
    const auto picture = yellowStripes();
    const auto mask = maskOf(picture->size(), within(kInStripes));
    auto level = orvo::details::finestLevel(*picture, orvo::details::Hole(picture->size(), *mask),
                                            {0, 0, picture->width(), picture->height()}, 8, 7.0f);
    orvo::details::PatchField nonsense(level);
    std::fill_n(nonsense.source.data(), level.width() * level.height(), level.someSources.front());
    const orvo::details::SourceCost noCost({}, level, {}, nullptr, 0, false);
    const auto field = orvo::details::shiftedPieces(level, nonsense, noCost, 1.0f, {});
    constexpr int kMargin = orvo::details::FillLevel::kMargin;
    for (int y = kInStripes.y; y < kInStripes.y + kInStripes.height; ++y)
        for (int x = kInStripes.x; x < kInStripes.x + kInStripes.width; ++x) {
            const auto at = static_cast<std::size_t>(level.at(x + kMargin, y + kMargin));
            ASSERT_NEAR(level.texels[at].r / 255.0f, picture->row(y)[x].r, 0.01f) << x << ' ' << y;
            ASSERT_NE(level.sources[static_cast<std::size_t>(field.source[at])], 0)
                << "every such pixel begins a target";
        }
}

TEST(Filling, ContinuesAStraightEdge)
{
    const orvo::_Size<int> size{200, 160};
    const auto colour = [](int x, int y) {
        return 3 * y < x + 190 ? Pixel{0.6f, 0.75f, 0.95f} : Pixel{0.2f, 0.35f, 0.15f};
    };
    const auto picture = drawn(size, nullptr, colour);
    const auto mask = maskOf(size, within({70, 50, 60, 60}));
    const auto result = filled(*picture, *mask);
    int wrong = 0;
    for (int y = 50; y < 110; ++y)
        for (int x = 70; x < 130; ++x)
            wrong += std::abs(result->row(y)[x].b - picture->row(y)[x].b) > 0.2f ? 1 : 0;
    EXPECT_LT(wrong, 2 * 60) << "pixels; the edge is off by more than two";
}

orvo::details::LineDirections directionsOf(const Picture& picture)
{
    const auto mask = maskOf(picture.size(), within(kMiddle));
    const orvo::details::Hole hole(picture.size(), *mask);
    return orvo::details::LineDirections(
        orvo::details::finestLevel(picture, hole, {0, 0, picture.width(), picture.height()}, 8, 0.0f));
}

// Stripes whose lines rise by `degrees`, 9 pixels apart.
orvo::PicturePointer stripes(double degrees)
{
    const double turn = degrees * 3.14159265358979 / 180.0;
    return drawn({200, 160}, nullptr, [turn](int x, int y) {
        const double across = y * std::cos(turn) - x * std::sin(turn);
        const auto v = static_cast<float>(0.5 + 0.4 * std::sin(across * 2.0 * 3.14159265358979 / 9.0));
        return Pixel{v, v, v};
    });
}

TEST(Filling, FindsTheDirectionOfLines)
{
    for (const double degrees : {0.0, 30.0, 77.0, 90.0, 150.0}) {
        const auto lines = directionsOf(*stripes(degrees));
        ASSERT_EQ(lines.count(), 1u) << degrees;
        const double turn = degrees * 3.14159265358979 / 180.0;
        const double along = lines.normal(0).x * std::cos(turn) + lines.normal(0).y * std::sin(turn);
        EXPECT_LT(std::abs(along), std::sin(2.1 * 3.14159265358979 / 180.0)) << degrees;
    }
    EXPECT_EQ(directionsOf(*noise({200, 160}, nullptr, 5, 0.2f, 0.8f)).count(), 0u);
    EXPECT_EQ(directionsOf(*drawn({200, 160}, nullptr, [](int, int) { return Pixel{0.5f, 0.5f, 0.5f}; })).count(), 0u);
}

TEST(Filling, OffsetsAlongLinesAreFree)
{
    using orvo::details::OffsetCost;
    const auto lines = directionsOf(*stripes(0.0));
    const OffsetCost cost(lines, 4.0f, 1000.0f);
    EXPECT_EQ(cost(50, 0), 0);
    EXPECT_EQ(cost(-50, 2), 500);
    EXPECT_EQ(cost(3, -2), 500);
    EXPECT_EQ(cost(0, 4), 1000);
    EXPECT_EQ(cost(0, -400), 1000);
    EXPECT_EQ(OffsetCost({}, 4.0f, 1000.0f)(0, -400), 0);
}

// A level whose left half repeats every 8 pixels; the right half is flat but for one blot at (60, 20).
orvo::details::FillLevel levelWithABlot()
{
    const auto picture = drawn({80, 40}, nullptr, [](int x, int y) {
        const bool blot = x >= 60 && x < 64 && y >= 20 && y < 24;
        const auto cell = static_cast<float>(5 * (x % 8) + y % 8);
        const float v = blot ? 1.0f : x >= 40 ? 0.3f : cell * 0.02f;
        return Pixel{v, v, v};
    });
    const auto mask = maskOf(picture->size(), within({0, 0, 4, 4}));
    const orvo::details::Hole hole(picture->size(), *mask);
    return orvo::details::finestLevel(*picture, hole, {0, 0, 80, 40}, 8, 0.0f);
}

// The index of the patch that begins at a pixel of the picture.
int patchAt(const orvo::details::FillLevel& level, int x, int y)
{
    constexpr int kMargin = orvo::details::FillLevel::kMargin;
    return level.at(x + kMargin, y + kMargin);
}

TEST(Filling, OnlyWhatResemblesNothingIsRare)
{
    const auto level = levelWithABlot();
    const orvo::details::Rarity rarity(level);
    constexpr int kMargin = orvo::details::FillLevel::kMargin;
    EXPECT_EQ(rarity(10 + kMargin, 10 + kMargin, 0), 0) << "repeated";
    EXPECT_EQ(rarity(48 + kMargin, 10 + kMargin, 0), 0) << "flat";
    EXPECT_GT(rarity(59 + kMargin, 19 + kMargin, 0), 10 * 64 * 64) << "the blot";
    // At twice the size, the same place: patches there begin 2 * 3 pixels before twice the centre.
    EXPECT_EQ(rarity(2 * (59 + 3) - 3 + kMargin, 2 * (19 + 3) - 3 + kMargin, 1), rarity(59 + kMargin, 19 + kMargin, 0));
}

TEST(Filling, CopiesOfSomethingRareCostMoreWithDistance)
{
    const auto level = levelWithABlot();
    const orvo::details::Rarity rarity(level);
    const orvo::details::SourceCost cost({}, level, {}, &rarity, 0, false);
    const int blot = patchAt(level, 59, 19);
    EXPECT_EQ(cost(blot, blot), 0);
    const int near = cost(patchAt(level, 57, 19), blot);
    const int far = cost(patchAt(level, 10, 19), blot);
    EXPECT_GT(near, 0);
    EXPECT_GT(far, 6 * near);
    EXPECT_EQ(far, cost(patchAt(level, 0, 19), blot)) << "the distance no longer matters";
    EXPECT_EQ(cost(patchAt(level, 10, 19), patchAt(level, 48, 10)), 0) << "flat";
    EXPECT_EQ(orvo::details::SourceCost({}, level, {}, nullptr, 0, false)(patchAt(level, 10, 19), blot), 0);
}

TEST(Filling, BesideAPictureSourcesAtAnotherHeightCost)
{
    const orvo::_Size<int> size{80, 60};
    const auto picture = noise(size, nullptr, 3, 0.4f, 0.6f);
    const orvo::details::Hole hole(size, *maskOf(size, [](int x, int y) { return x < 20 || y < 10; }));
    const auto level = orvo::details::finestLevel(*picture, hole, {0, 0, 80, 60}, 8, 0.0f);
    const orvo::details::SourceCost cost({}, level, {}, nullptr, 0, true);
    const int level30 = patchAt(level, 5, 30);
    EXPECT_EQ(cost(level30, patchAt(level, 50, 30)), 0);
    EXPECT_GT(cost(level30, patchAt(level, 50, 32)), 0);
    EXPECT_EQ(cost(level30, patchAt(level, 50, 28)), cost(level30, patchAt(level, 50, 32)));
    EXPECT_LT(cost(level30, patchAt(level, 50, 32)), cost(level30, patchAt(level, 50, 34)));
    EXPECT_EQ(cost(level30, patchAt(level, 50, 12)), cost(level30, patchAt(level, 50, 50))) << "far is far";
    EXPECT_EQ(cost(patchAt(level, 50, 2), patchAt(level, 60, 10)), 0) << "the top is nearest to what is above";
    EXPECT_GT(cost(patchAt(level, 50, 2), patchAt(level, 60, 14)), 0);
    const orvo::details::SourceCost inside({}, level, {}, nullptr, 0, false);
    EXPECT_EQ(inside(level30, patchAt(level, 50, 50)), 0);
}

// A dark tree at the rim hides where the shore goes on.
TEST(Filling, AShoreBehindATreeContinuesInABorder)
{
    const orvo::_Size<int> size{320, 200};
    const auto grain = noise(size, nullptr, 8, -0.02f, 0.02f);
    const auto picture = drawn(size, nullptr, [&](int x, int y) {
        const float g = grain->row(y)[x].r;
        if (x >= 190 && x < 240 && std::abs(x - 215) < 8 + y / 9)
            return Pixel{0.08f + g, 0.1f + g, 0.06f + g};
        const float fade = 0.001f * static_cast<float>(y);
        return y < 110 ? Pixel{0.5f + fade + g, 0.6f + fade + g, 0.8f + g} : Pixel{0.2f + g, 0.5f - fade + g, 0.2f + g};
    });
    const auto mask = maskOf(size, within({230, 0, 90, 200}));
    const auto result = filled(*picture, *mask);
    int wrong = 0;
    for (int y = 0; y < size.height; ++y)
        for (int x = 250; x < size.width; ++x) {
            const Pixel& p = result->row(y)[x];
            const bool isSky = p.b > p.g;
            wrong += std::abs(y - 110) > 6 && isSky != (y < 110) ? 1 : 0;
        }
    EXPECT_LT(wrong, 70 * 200 / 8);
}

TEST(Filling, ASourceCostsFromTheFifthCopyOn)
{
    const orvo::_Size<int> size{60, 60};
    const auto mask = maskOf(size, within({20, 20, 12, 12}));
    const auto level = orvo::details::finestLevel(*clothPicture(size), orvo::details::Hole(size, *mask),
                                                  {0, 0, size.width, size.height}, 8, 7.0f);
    orvo::details::PatchFillSettings settings;
    orvo::details::PatchField field(level);
    const int often = level.someSources.front();
    const int never = level.someSources.back();
    std::fill_n(field.source.data(), level.width() * level.height(), often);
    const orvo::details::UsageCost cost(settings, level, field);
    EXPECT_GT(cost(often), 0);
    EXPECT_EQ(cost(never), 0);
    // 18 x 18 patches meet the hole: no source is used more than once.
    orvo::details::forEachTarget(level, [&](int corner) { field.source[static_cast<std::size_t>(corner)] = corner; });
    const orvo::details::UsageCost even(settings, level, field);
    orvo::details::forEachTarget(level, [&](int corner) { EXPECT_EQ(even(corner), 0); });
    settings.usageWeight = 0.0f;
    EXPECT_EQ(orvo::details::UsageCost(settings, level, field)(often), 0);
}

// Nothing at the open side of a border keeps a copy of the ball out but that there is no other.
TEST(Filling, ABorderHoldsNoCopyOfSomethingRare)
{
    const orvo::_Size<int> size{240, 160};
    const auto picture = noise(size, nullptr, 4, 0.4f, 0.6f);
    for (int y = 0; y < size.height; ++y)
        for (int x = 0; x < size.width; ++x)
            if ((x - 92) * (x - 92) + (y - 80) * (y - 80) < 22 * 22)
                picture->row(y)[x] = {0.9f, 0.1f, 0.1f};
    const auto mask = maskOf(size, within({0, 0, 60, 160}));
    const auto result = filled(*picture, *mask);
    const auto isRed = [](const Pixel& p) { return p.r - p.g > 0.4f; };
    int red = 0;
    for (int y = 0; y < size.height; ++y)
        for (int x = 0; x < 60; ++x)
            red += isRed(result->row(y)[x]) ? 1 : 0;
    EXPECT_EQ(red, 0);
}

TEST(Filling, KeepsTheGrainOfNoise)
{
    const orvo::_Size<int> size{128, 128};
    const auto picture = noise(size, nullptr, 5, 0.2f, 0.8f);
    const auto mask = maskOf(size, within({44, 44, 40, 40}));
    const auto result = filled(*picture, *mask);
    const auto roughness = [](const Picture& p) {
        double sum = 0.0;
        for (int y = 46; y < 82; ++y)
            for (int x = 46; x < 82; ++x)
                sum += std::abs(p.row(y)[x + 1].g - p.row(y)[x].g);
        return sum;
    };
    EXPECT_GT(roughness(*result), 0.75 * roughness(*picture));
}

TEST(Filling, StaysNearWhatIsKnown)
{
    const auto picture = noise(kSize, nullptr, 9, 0.4f, 0.6f);
    const auto mask = maskOf(kSize, within(kMiddle));
    const auto result = filled(*picture, *mask);
    constexpr float kEvenedOut = 0.08f; // seam correction may change pixels by this much
    for (std::size_t i = 0; i < result->pixelCount(); ++i)
        for (const float v : {result->data()[i].r, result->data()[i].g, result->data()[i].b})
            ASSERT_TRUE(v > 0.4f - kEvenedOut && v < 0.6f + kEvenedOut) << i << ": " << v;
}

// The time of graph cuts would be without bound.
TEST(Filling, ABorderAroundASmallPictureIsNotPutTogetherFromPieces)
{
    const orvo::_Size<int> size{400, 400};
    const auto picture = clothPicture(size);
    const orvo::_Rect<int> known{170, 170, 60, 60};
    const auto mask = maskOf(size, [&](int x, int y) { return !within(known)(x, y); });
    orvo::details::PatchFillSettings without;
    without.pieces = false;
    EXPECT_TRUE(bytesEqual(*filled(*picture, *mask), *orvo::details::PatchFiller(without).fill(*picture, *mask, {})));
}

TEST(Filling, ABorderLargerThanItsPictureIsPutTogetherFromPieces)
{
    const orvo::_Size<int> size{81, 81};
    const auto picture = clothPicture(size);
    const auto mask = maskOf(size, [](int x, int y) { return !within({26, 26, 28, 28})(x, y); });
    orvo::details::PatchFillSettings without;
    without.pieces = false;
    EXPECT_FALSE(bytesEqual(*filled(*picture, *mask), *orvo::details::PatchFiller(without).fill(*picture, *mask, {})));
}

// --- Skies -----------------------------------------------------------------------------------------------------------

namespace {

// The greatest difference of a channel between means over squares of 16 pixels that lie in the hole.
float worstOfMeans(const Picture& result, const std::function<Pixel(int x, int y)>& truth, const Mask& mask)
{
    constexpr int kSide = 16;
    float worst = 0.0f;
    for (int top = 0; top + kSide <= result.height(); top += kSide)
        for (int left = 0; left + kSide <= result.width(); left += kSide) {
            Pixel sum;
            bool inside = true;
            for (int y = top; y < top + kSide; ++y)
                for (int x = left; x < left + kSide; ++x) {
                    const Pixel& p = result.row(y)[x];
                    const Pixel t = truth(x, y);
                    sum = {sum.r + p.r - t.r, sum.g + p.g - t.g, sum.b + p.b - t.b};
                    inside = inside && mask.row(y)[x] >= 0.5f;
                }
            if (inside)
                for (const float d : {sum.r, sum.g, sum.b})
                    worst = std::max(worst, std::abs(d) / (kSide * kSide));
        }
    return worst;
}

orvo::PicturePointer withGrain(orvo::_Size<int> size, const std::function<Pixel(int x, int y)>& truth)
{
    const auto grain = noise(size, nullptr, 21, -0.015f, 0.015f);
    return drawn(size, nullptr, [&](int x, int y) {
        const Pixel t = truth(x, y);
        const Pixel& g = grain->row(y)[x];
        return Pixel{t.r + g.r, t.g + g.g, t.b + g.b};
    });
}

Pixel evening(int x, int y)
{
    const float down = 0.0006f * static_cast<float>(y);
    const float right = 0.0002f * static_cast<float>(x);
    return {0.35f + down, 0.45f + down + right, 0.75f - right};
}

Pixel glow(int x, int y)
{
    const float away = static_cast<float>((x - 150) * (x - 150) + (y - 110) * (y - 110)) / (200.0f * 200.0f);
    return {0.9f - 0.3f * away, 0.7f - 0.25f * away, 0.4f - 0.1f * away};
}

} // namespace

// Sums of copied grain once gave the added part a green and a purple corner.
TEST(Filling, ABorderOfSkyGetsNoTint)
{
    const orvo::_Size<int> size{384, 256};
    const auto mask = maskOf(size, [](int x, int y) { return !within({64, 64, 256, 192})(x, y); });
    EXPECT_LT(worstOfMeans(*filled(*withGrain(size, evening), *mask), evening, *mask), 0.03f);
}

// Copies from the rest of the picture are all darker.
TEST(Filling, AGlowThatIsHiddenGoesOn)
{
    const orvo::_Size<int> size{300, 220};
    const auto mask = maskOf(size, [](int x, int y) { return std::hypot(x - 150.0, y - 110.0) < 60.0; });
    EXPECT_LT(worstOfMeans(*filled(*withGrain(size, glow), *mask), glow, *mask), 0.015f);
}

// The mask of a wire that sags left parts of it along the rim, and a grey cloud grew from them.
TEST(Filling, TheRestOfAWireCastsNoShade)
{
    const orvo::_Size<int> size{384, 256};
    const auto sky = withGrain(size, evening);
    const auto picture = drawn(size, nullptr, [&](int x, int y) {
        const bool wire = y == 144 && x > 120 && x < 264 && x / 12 % 2 == 0;
        const Pixel& p = sky->row(y)[x];
        return wire ? Pixel{p.r - 0.25f, p.g - 0.25f, p.b - 0.25f} : p;
    });
    const auto mask = maskOf(size, [](int, int y) { return y >= 108 && y < 144; });
    EXPECT_LT(worstOfMeans(*filled(*picture, *mask), evening, *mask), 0.015f);
}

TEST(Filling, ShadingIsGentleAwayFromEdges)
{
    const orvo::_Size<int> size{200, 120};
    const auto picture = withGrain(size, [](int x, int y) {
        return x < 100 ? evening(x, y) : Pixel{0.1f, 0.1f, 0.1f};
    });
    const auto mask = maskOf(size, within({30, 40, 20, 20}));
    const orvo::details::Hole hole(size, *mask);
    const orvo::details::GentleShading shading(*picture, hole, {0, 0, size.width, size.height});
    EXPECT_EQ(shading.at(12, 12).gentleness, 1.0f);
    EXPECT_EQ(shading.at(98, 20).gentleness, 0.0f);
    EXPECT_NEAR(shading.at(12, 60).below.r, 0.0006f, 0.0002f);
    EXPECT_NEAR(shading.at(40, 50).below.r, 0.0006f, 0.0002f) << "continued into the hole";
    EXPECT_NEAR(shading.colourAt(12, 60).b, evening(12, 60).b, 0.003f);
}

// A brown cloth is as dark as a blue one beside it; they once ran into each other in a disc.
TEST(Filling, ShadingIsNotGentleWhereOnlyTheHueChanges)
{
    const orvo::_Size<int> size{200, 120};
    const auto picture = withGrain(size, [](int, int y) {
        return y < 60 ? Pixel{0.02f, 0.18f, 0.38f} : Pixel{0.24f, 0.16f, 0.20f};
    });
    const auto mask = maskOf(size, within({150, 40, 20, 40}));
    const orvo::details::Hole hole(size, *mask);
    const orvo::details::GentleShading shading(*picture, hole, {0, 0, size.width, size.height});
    EXPECT_EQ(shading.at(40, 20).gentleness, 1.0f);
    EXPECT_EQ(shading.at(40, 58).gentleness, 0.0f);
    EXPECT_EQ(shading.at(40, 62).gentleness, 0.0f);
}

TEST(Filling, VotesDeepInsideDoNotVanish)
{
    const orvo::_Size<int> size{400, 400};
    const auto mask = maskOf(size, within({50, 50, 300, 300}));
    const auto level = orvo::details::finestLevel(*clothPicture(size), orvo::details::Hole(size, *mask),
                                                  {0, 0, size.width, size.height}, 8, 7.0f);
    orvo::details::PatchField field(level);
    std::fill_n(field.source.data(), level.width() * level.height(), level.someSources.front());
    std::fill_n(field.distance.data(), level.width() * level.height(), 1000);
    const orvo::details::PatchFillSettings settings;
    orvo::details::Ballot ballot;
    ballot.gather(level, field, {settings, settings.lastAgreement}, 200, 200);
    float sum = 0.0f;
    for (const auto& vote : ballot.votes())
        sum += vote.weight;
    EXPECT_GE(sum, 0.5f);
}

TEST(Filling, ValuesBeyondFullScaleSurvive)
{
    const auto picture = drawn(kSize, nullptr, [](int x, int y) {
        const Pixel p = cloth(x, y);
        return Pixel{6.0f * p.r, 6.0f * p.g, 6.0f * p.b};
    });
    const auto mask = maskOf(kSize, within(kMiddle));
    const auto result = filled(*picture, *mask);
    float greatest = 0.0f;
    for (int y = 30; y < 50; ++y)
        for (int x = 36; x < 60; ++x)
            greatest = std::max(greatest, result->row(y)[x].r);
    EXPECT_GT(greatest, 2.0f);
}

// --- Holes of every shape --------------------------------------------------------------------------------------------

struct Shape
{
    const char* name;
    orvo::_Size<int> size;
    std::function<bool(int x, int y)> inside;
};

class FillingShapes : public testing::TestWithParam<Shape>
{};

TEST_P(FillingShapes, AreFilledFromWhatIsKnown)
{
    const Shape& shape = GetParam();
    const auto mask = maskOf(shape.size, shape.inside);
    const auto picture = drawn(shape.size, nullptr, [&](int x, int y) {
        return shape.inside(x, y) ? Pixel{kNaN, kNaN, kNaN} : cloth(x, y);
    });
    const auto result = filled(*picture, *mask);
    ASSERT_TRUE(result);
    EXPECT_TRUE(finite(*result));
    EXPECT_TRUE(knownEqual(*picture, *result, *mask));
    for (std::size_t i = 0; i < result->pixelCount(); ++i) // cloth() draws 0.2 to 0.7; seams are evened out
        ASSERT_TRUE(result->data()[i].r > 0.1f && result->data()[i].r < 0.8f) << i;
}

INSTANTIATE_TEST_SUITE_P(
    Holes, FillingShapes,
    testing::Values(
        Shape{"Corner", kSize, within({0, 0, 30, 20})}, Shape{"OtherCorner", kSize, within({70, 65, 26, 15})},
        Shape{"LeftBorder", kSize, within({0, 0, 25, 80})},
        Shape{"AroundThePicture",
              {140, 120},
              [](int x, int y) {
                  return !within({35, 30, 70, 60})(x, y);
              }},
        Shape{"AroundALittle",
              {90, 90},
              [](int x, int y) {
                  return !within({38, 40, 10, 9})(x, y);
              }},
        Shape{"AllButOnePixel", {33, 31}, [](int x, int y) { return x != 20 || y != 9; }},
        Shape{"AllButAThinStrip", {80, 60}, [](int, int y) { return y >= 3; }},
        Shape{"Chequered", {51, 47}, [](int x, int y) { return (x + y) % 2 == 0; }},
        Shape{"OnePixel", kSize, within({50, 40, 1, 1})}, Shape{"LastPixel", kSize, within({95, 79, 1, 1})},
        Shape{"ThinLine", {301, 117}, [](int x, int y) { return std::abs(3 * y - x) < 6; }},
        Shape{"TwoFarApart", {401, 60}, [](int x, int y) { return x < 9 || (x > 380 && y < 30); }},
        Shape{"Ring", {120, 120}, [](int x, int y) { return std::abs(std::hypot(x - 60.0, y - 60.0) - 40.0) < 8.0; }},
        Shape{"TwoPixels", {2, 1}, within({1, 0, 1, 1})}, Shape{"ThreeByTwo", {3, 2}, within({1, 0, 1, 2})},
        Shape{"Column", {1, 7}, within({0, 2, 1, 3})}, Shape{"LowAndWide", {641, 3}, within({300, 0, 40, 3})},
        Shape{"OddSides", {7, 7}, within({3, 3, 1, 1})}, Shape{"Eight", {8, 8}, within({0, 0, 4, 8})}),
    [](const auto& shape) { return std::string(shape.param.name); });

TEST(Filling, OnePixelThatIsKnownIsACopy)
{
    const auto picture = clothPicture({1, 1});
    EXPECT_TRUE(bytesEqual(*picture, *filled(*picture, *maskOf({1, 1}, within({5, 5, 1, 1})))));
}

// --- Planes in perspective
// ----------------------------------------------------------------------------------------------

constexpr orvo::_Size<int> kFloorSize{640, 480};
constexpr orvo::_Rect<int> kOnFloor{230, 260, 160, 120};

// Boards of several widths and shades that run towards a point, with grain along them and gaps between.
Pixel boards(double x, double y, double pointX, double pointY)
{
    const double depth = y - pointY;
    const double across = 9.0 * (x - pointX) / depth; // in boards
    const double board = std::floor(across);
    const double gap = std::abs(across - board - 0.5) > 0.44 ? 0.25 : 1.0;
    const double shade = 0.5 + 0.2 * std::sin(12.9 * board) + 0.06 * std::sin(31.0 * across);
    const auto value = static_cast<float>(gap * shade);
    return {value, 0.9f * value, 0.8f * value};
}

orvo::PicturePointer floorTowards(double pointX, double pointY, orvo::_Size<int> size = kFloorSize)
{
    return drawn(size, nullptr, [=](int x, int y) { return boards(x, y, pointX, pointY); });
}

std::optional<orvo::details::VanishingPoint> pointOf(const Picture& picture, orvo::_Rect<int> box)
{
    const orvo::details::Hole hole(picture.size(), *maskOf(picture.size(), within(box)));
    const orvo::_Rect<int> window{0, 0, picture.width(), picture.height()};
    return orvo::details::convergence(orvo::details::finestLevel(picture, hole, window, 8, 10.0f), 1, window, box);
}

TEST(Filling, FindsThePointWhereLinesMeet)
{
    const auto point = pointOf(*floorTowards(280.0, -60.0), kOnFloor);
    ASSERT_TRUE(point);
    EXPECT_NEAR(point->x, 280.0f, 3.0f);
    EXPECT_NEAR(point->y, -60.0f, 6.0f);
}

TEST(Filling, LinesThatHardlyConvergeMeetNowhere)
{
    EXPECT_FALSE(pointOf(*floorTowards(300.0, -4000.0), kOnFloor));
    EXPECT_FALSE(pointOf(*clothPicture(kFloorSize), kOnFloor));
}

TEST(Filling, ThePlaneIsSeenAtTheScaleOfItsNearestPart)
{
    const auto picture = floorTowards(300.0, 40.0);
    const orvo::details::Hole hole(kFloorSize, *maskOf(kFloorSize, within(kOnFloor)));
    const auto view = orvo::details::PlaneView::around(hole, {300.0f, 40.0f});
    ASSERT_TRUE(view);
    const auto seen = view->picture(*picture, hole);
    const orvo::details::Hole warped = view->hole(hole);
    const orvo::_Rect<int>& box = warped.bounds();
    EXPECT_EQ(seen->size(), view->size());
    EXPECT_GE(box.width, kOnFloor.width);
    EXPECT_GE(box.height, kOnFloor.height);
    // Boards are upright: a column above the hole goes on below it, except for the blur of their edges.
    int compared = 0;
    int differ = 0;
    for (int x = box.x; x < box.x + box.width; ++x) {
        const int above = box.y - 8;
        const int below = box.y + box.height + 8;
        if (warped.row(above)[x] != 0 || warped.row(below)[x] != 0 || !warped.hasContent(x, above) ||
            !warped.hasContent(x, below))
            continue;
        ++compared;
        differ += std::abs(seen->row(above)[x].r - seen->row(below)[x].r) > 0.1f ? 1 : 0;
    }
    EXPECT_GT(compared, box.width / 2);
    EXPECT_LT(differ, compared / 10);
    // What is painted with the view comes back where it was.
    auto painted = picture->copy({});
    for (int y = kOnFloor.y; y < kOnFloor.y + kOnFloor.height; ++y)
        std::fill_n(painted->row(y) + kOnFloor.x, kOnFloor.width, Pixel{});
    auto whole = drawn(kFloorSize, nullptr, [](int, int) { return Pixel{0.25f, 0.5f, 0.75f}; });
    const auto flat = view->picture(*whole, orvo::details::Hole(kFloorSize, *maskOf(kFloorSize, within({0, 0, 1, 1}))));
    view->paint(*flat, hole, *painted);
    const auto mask = maskOf(kFloorSize, within(kOnFloor));
    EXPECT_TRUE(knownEqual(*picture, *painted, *mask));
    EXPECT_LT(worstInside(*whole, *painted, *mask), 1e-5f);
}

TEST(Filling, NoViewFromTheHorizon)
{
    const orvo::details::Hole hole(kFloorSize, *maskOf(kFloorSize, within(kOnFloor)));
    EXPECT_FALSE(orvo::details::PlaneView::around(hole, {300.0f, 300.0f}));
    EXPECT_FALSE(orvo::details::PlaneView::around(hole, {300.0f, 259.0f}));
    EXPECT_FALSE(orvo::details::PlaneView::around(hole, {300.0f, 200.0f}));
}

float meanErrorInside(const Picture& a, const Picture& b, orvo::_Rect<int> box)
{
    double sum = 0.0;
    for (int y = box.y; y < box.y + box.height; ++y)
        for (int x = box.x; x < box.x + box.width; ++x)
            sum += std::abs(a.row(y)[x].g - b.row(y)[x].g);
    return static_cast<float>(sum / (box.width * box.height));
}

TEST(Filling, BoardsInPerspectiveStayStraight)
{
    const auto truth = floorTowards(300.0, 20.0);
    const auto mask = maskOf(kFloorSize, within(kOnFloor));
    orvo::details::PatchFillSettings asIs;
    asIs.planes = false;
    const auto bent = orvo::details::PatchFiller(asIs).fill(*truth, *mask, orvo::RunControl::none());
    const auto straight = filled(*truth, *mask);
    EXPECT_TRUE(knownEqual(*truth, *straight, *mask));
    EXPECT_LT(meanErrorInside(*truth, *straight, kOnFloor), 0.5f * meanErrorInside(*truth, *bent, kOnFloor));
}

// Rays as wide far away as near, on cloth: their lines meet, but no view of them repeats better than they do.
TEST(Filling, ConvergingLinesThatAreNoPlaneAreFilledAsTheyAre)
{
    const double pointX = 300.0;
    const double pointY = 20.0;
    const auto rays = drawn(kFloorSize, nullptr, [&](int x, int y) {
        const double angle = std::atan2(x - pointX, y - pointY);
        const double step = 0.16;
        const double beside = std::abs(std::remainder(angle, step)) * std::hypot(x - pointX, y - pointY);
        const Pixel under = cloth(x, y);
        return beside < 3.0 ? Pixel{0.05f, 0.05f, 0.05f} : under;
    });
    ASSERT_TRUE(pointOf(*rays, kOnFloor));
    const auto mask = maskOf(kFloorSize, within(kOnFloor));
    orvo::details::PatchFillSettings asIs;
    asIs.planes = false;
    const auto without = orvo::details::PatchFiller(asIs).fill(*rays, *mask, orvo::RunControl::none());
    EXPECT_TRUE(bytesEqual(*without, *filled(*rays, *mask)));
}

// --- How it runs -----------------------------------------------------------------------------------------------------

TEST(Filling, SameBytesForAnyNumberOfThreads)
{
    const orvo::_Size<int> size{301, 237};
    const auto picture = clothPicture(size);
    const auto mask = maskOf(size, [](int x, int y) { return within({90, 70, 110, 90})(x, y) || x < 12; });
    const auto run = [&](int threads) {
        const orvo::WorkerLimit limit(threads);
        return filled(*picture, *mask);
    };
    const auto single = run(1);
    for (const int threads : {2, 3, 7})
        EXPECT_TRUE(bytesEqual(*single, *run(threads))) << threads;
}

// A floor is filled twice.
TEST(Filling, AFloorCountsOnceStopsAtTheEndAndDoesNotDependOnThreads)
{
    const orvo::_Size<int> size{300, 240};
    const auto picture = floorTowards(150.0, 10.0, size);
    const orvo::_Rect<int> box{120, 120, 56, 48};
    ASSERT_TRUE(pointOf(*picture, box));
    const auto mask = maskOf(size, within(box));
    std::vector<float> seen;
    int asked = 0;
    const auto two = filled(*picture, *mask,
                            orvo::RunControl([&] { return ++asked < 0; }, [&](float done) { seen.push_back(done); }));
    EXPECT_TRUE(std::is_sorted(seen.begin(), seen.end()));
    EXPECT_EQ(seen.back(), 1.0f);
    const orvo::WorkerLimit limit(1);
    int count = 0;
    EXPECT_THROW((void)filled(*picture, *mask, orvo::RunControl([&] { return ++count >= asked; })), FailureError);
    EXPECT_TRUE(bytesEqual(*two, *filled(*picture, *mask)));
}

TEST(Filling, ProgressRisesToOne)
{
    std::vector<float> seen;
    const orvo::RunControl control({}, [&](float done) { seen.push_back(done); });
    const auto result = filled(*clothPicture(), *maskOf(kSize, within(kMiddle)), control);
    ASSERT_TRUE(result);
    ASSERT_GT(seen.size(), 2u);
    EXPECT_TRUE(std::is_sorted(seen.begin(), seen.end()));
    EXPECT_GE(seen.front(), 0.0f);
    EXPECT_EQ(seen.back(), 1.0f);
}

TEST(Filling, StopsWheneverItIsCancelled)
{
    const auto picture = clothPicture();
    const auto mask = maskOf(kSize, within(kMiddle));
    int asked = 0;
    (void)filled(*picture, *mask, orvo::RunControl([&] { return ++asked < 0; }));
    ASSERT_GT(asked, 3);
    for (int last = 1; last <= asked; last += 3) {
        int count = 0;
        try {
            (void)filled(*picture, *mask, orvo::RunControl([&] { return ++count >= last; }));
            ADD_FAILURE() << last;
        } catch (const FailureError& error) {
            EXPECT_EQ(error.failure().kind, FailureKind::Cancelled);
        }
        EXPECT_EQ(orvo::lastFailure(), orvo::cancelledFailure());
        EXPECT_EQ(count, last);
    }
}

TEST(Filling, ASmallHoleTakesLittleMemory)
{
    const orvo::_Size<int> size{2400, 1600};
    const auto picture = clothPicture(size);
    const auto mask = maskOf(size, within({1000, 800, 40, 40}));
    auto& memory = orvo::MemoryManager::instance();
    memory.resetPeak();
    const std::size_t before = memory.liveBytes();
    ASSERT_TRUE(filled(*picture, *mask));
    const std::size_t result = picture->pixelCount() * sizeof(Pixel);
    EXPECT_LT(memory.peakBytes() - before, result + result / 2);
}

} // namespace
