#include "panorama/bit_plane.hpp"
#include "support/failing_memory.hpp"

#include <orvo_common/memory_manager.hpp>
#include <orvo_core/parallel.hpp>
#include <orvo_extensions/panorama_mblender.hpp>

#include <gtest/gtest.h>
#include <opencv2/core.hpp>

#include <atomic>
#include <cmath>
#include <functional>
#include <new>
#include <stdexcept>
#include <type_traits>
#include <vector>

using namespace orvo;

namespace {

constexpr int kReach = 16; // pixels: growth, feather width, and margin around a disagreement
constexpr float kWhite = 16383.0f;
// Converts to float and back, truncating both times.
constexpr float kRounding = 1.5f / kWhite;

using Colour = cv::Vec3f; // blue first, full scale 1
using Drawing = std::function<Colour(int, int)>;

cv::Mat picture(int width, int height, const Drawing& colour)
{
    cv::Mat mat(height, width, CV_16SC3);
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x)
            for (int c = 0; c < 3; ++c)
                mat.at<cv::Vec3s>(y, x)[c] = static_cast<short>(std::lround(colour(x, y)[c] * kWhite));
    return mat;
}

cv::Mat plain(int width, int height, float value)
{
    return picture(width, height, [value](int, int) { return Colour::all(value); });
}

cv::Mat mask(int width, int height, const std::function<bool(int, int)>& set)
{
    cv::Mat mat = cv::Mat::zeros(height, width, CV_8UC1);
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x)
            mat.at<unsigned char>(y, x) = set(x, y) ? 255 : 0;
    return mat;
}

cv::Mat full(int width, int height) { return {height, width, CV_8UC1, cv::Scalar(255)}; }

struct Joined
{
    cv::Mat colour;
    cv::Mat mask;
    [[nodiscard]] Colour at(int x, int y) const
    {
        const cv::Vec3s& v = colour.at<cv::Vec3s>(y, x);
        return Colour(v[0], v[1], v[2]) / kWhite;
    }
    [[nodiscard]] bool covered(int x, int y) const { return mask.at<unsigned char>(y, x) != 0; }
};

Joined blended(PanoramaMBlender& blender)
{
    Joined joined;
    blender.blend(joined.colour, joined.mask);
    return joined;
}

bool sameBytes(const cv::Mat& a, const cv::Mat& b)
{
    return a.size() == b.size() && a.type() == b.type() && (a.empty() || cv::norm(a, b, cv::NORM_INF) == 0.0);
}

bool sameBytes(const Joined& a, const Joined& b) { return sameBytes(a.colour, b.colour) && sameBytes(a.mask, b.mask); }

float largestDifference(const Colour& a, const Colour& b)
{
    return std::max({std::abs(a[0] - b[0]), std::abs(a[1] - b[1]), std::abs(a[2] - b[2])});
}

/// A scene, 0.2 .. 0.6, defined everywhere.
Colour scene(int x, int y)
{
    const auto u = static_cast<float>(x);
    const auto v = static_cast<float>(y);
    const float base = 0.4f + 0.1f * std::sin(0.05f * u) * std::cos(0.04f * v) + 0.05f * std::sin(0.3f * u + 0.2f * v);
    return {base, base * 0.9f, base * 0.8f};
}

/// A picture of the scene, 200 wide, for the left part of the canvas, and one to the right of it, which overlaps by
/// `overlap` and shows the scene with `cast` added.
Joined besides(const Drawing& cast, int overlap, int shiftY = 0)
{
    PanoramaMBlender blender;
    blender.feed(picture(200, 150, scene), full(200, 150), full(200, 150), {0, 0});
    const int start = 200 - overlap;
    const cv::Mat right =
        picture(260, 150, [&](int x, int y) { return scene(x + start, y + shiftY) + cast(x + start, y + shiftY); });
    blender.feed(right, full(260, 150), full(260, 150), {start, shiftY});
    return blended(blender);
}

} // namespace

TEST(PanoramaMBlender, WithoutAnyPictureNothingIsTouched)
{
    PanoramaMBlender blender;
    cv::Mat result = plain(3, 2, 0.5f);
    cv::Mat resultMask = full(3, 2);
    const cv::Mat before = result;
    blender.blend(result, resultMask);
    EXPECT_EQ(result.data, before.data);
    EXPECT_TRUE(sameBytes(resultMask, full(3, 2)));
}

TEST(PanoramaMBlender, TheFirstPictureStandsInItsGrownMaskWithinTheRegion)
{
    const cv::Mat image = picture(90, 70, scene);
    const cv::Mat spot = mask(90, 70, [](int x, int y) { return x >= 30 && x < 40 && y >= 20 && y < 26; });
    const cv::Mat region = mask(90, 70, [](int x, int) { return x < 50; });
    PanoramaMBlender blender;
    blender.feed(image, spot, region, {-5, 8});
    const Joined joined = blended(blender);
    ASSERT_EQ(joined.colour.size(), cv::Size(90, 70));
    EXPECT_EQ(joined.colour.type(), CV_16SC3);
    EXPECT_EQ(joined.mask.type(), CV_8UC1);
    for (int y = 0; y < 70; ++y)
        for (int x = 0; x < 90; ++x) {
            const bool in = x >= 30 - kReach && x < 40 + kReach && y >= 20 - kReach && y < 26 + kReach && x < 50;
            ASSERT_EQ(joined.mask.at<unsigned char>(y, x), in ? 255 : 0) << x << ' ' << y;
            const Colour expected = in ? scene(x, y) : Colour::all(0.0f);
            ASSERT_LE(largestDifference(joined.at(x, y), expected), kRounding) << x << ' ' << y;
        }
}

TEST(PanoramaMBlender, TheCanvasHoldsAllPicturesWhereverTheyLie)
{
    PanoramaMBlender blender;
    blender.feed(plain(10, 20, 0.25f), full(10, 20), full(10, 20), {-30, 5});
    blender.feed(plain(40, 8, 0.5f), full(40, 8), full(40, 8), {100, -60});
    const Joined joined = blended(blender);
    ASSERT_EQ(joined.colour.size(), cv::Size(170, 85));
    EXPECT_EQ(cv::countNonZero(joined.mask), 10 * 20 + 40 * 8);
    EXPECT_NEAR(joined.at(5, 70)[0], 0.25f, kRounding);
    EXPECT_NEAR(joined.at(150, 3)[0], 0.5f, kRounding) << "apart from the first: no membrane";
    EXPECT_EQ(joined.at(60, 30), Colour::all(0.0f));
}

TEST(PanoramaMBlender, EqualColoursInTheOverlapLeaveBothPicturesAsTheyAre)
{
    const Joined joined = besides([](int, int) { return Colour::all(0.0f); }, 60);
    for (int y = 0; y < 150; ++y)
        for (int x = 0; x < 400; ++x)
            ASSERT_LE(largestDifference(joined.at(x, y), scene(x, y)), kRounding) << x << ' ' << y;
}

TEST(PanoramaMBlender, ASmoothDifferenceLeavesNoVisibleSeam)
{
    // Up to a tenth of full scale, different per channel, varying along the joint and across it.
    const auto cast = [](int x, int y) {
        const auto u = static_cast<float>(x);
        const auto v = static_cast<float>(y);
        return Colour(0.06f + 0.03f * std::sin(0.03f * v), 0.0003f * v, -0.05f + 0.0001f * u);
    };
    constexpr int kJoint = 140; // first column of the second picture, which is on top
    const Joined joined = besides(cast, 200 - kJoint);
    const auto meanOver = [](int first, int last, const auto& error) {
        double sum = 0.0;
        for (int y = 0; y < 150; ++y)
            for (int x = first; x < last; ++x)
                sum += static_cast<double>(error(x, y));
        return sum / (150 * (last - first));
    };
    const auto error = [&](int x, int y) { return largestDifference(joined.at(x, y), scene(x, y)); };
    EXPECT_LT(meanOver(kJoint - 2, kJoint + 5, error), 1.0 / 255);
    // Nor at the end of the first picture below the second one.
    const auto step = [&](int x, int y) {
        return largestDifference(joined.at(x + 1, y) - joined.at(x, y), scene(x + 1, y) - scene(x, y));
    };
    EXPECT_LT(meanOver(kJoint - 4, 204, step), 0.25 / 255);
    // The difference of the pictures without the membrane.
    EXPECT_GT(meanOver(kJoint, kJoint + 5, [&](int x, int y) { return largestDifference(cast(x, y), Colour::all(0)); }),
              10.0 / 255);
}

TEST(PanoramaMBlender, ACastThatIsTheSameAlongTheJointIsCarriedToTheEnds)
{
    for (const int shiftY : {0, 40}) { // the second picture ends at the border of the canvas, then inside of it
        const Joined joined = besides([](int, int) { return Colour(0.1f, -0.08f, 0.05f); }, 40, shiftY);
        for (int y = shiftY; y < 150 + shiftY; ++y)
            for (int x = 200; x < 420; ++x)
                ASSERT_LE(largestDifference(joined.at(x, y), scene(x, y)), 2.0f * kRounding) << x << ' ' << y;
    }
}

TEST(PanoramaMBlender, ACastIsCarriedThroughARingAroundTheKnownPicture)
{
    // Like an enlarged canvas: the known part in the middle, the new part around it and 2 pixels over it.
    const cv::Rect known(60, 50, 120, 90);
    PanoramaMBlender blender;
    const cv::Mat all = full(known.width, known.height);
    blender.feed(picture(known.width, known.height, [&](int x, int y) { return scene(x + known.x, y + known.y); }), all,
                 all, known.tl());
    const cv::Mat around = mask(260, 200, [&](int x, int y) {
        return !cv::Rect(known.x + 2, known.y + 2, known.width - 4, known.height - 4).contains({x, y});
    });
    blender.feed(picture(260, 200, [](int x, int y) { return scene(x, y) + Colour::all(0.12f); }), around,
                 full(260, 200), {0, 0});
    const Joined joined = blended(blender);
    EXPECT_EQ(cv::countNonZero(joined.mask), 260 * 200);
    for (int y = 0; y < 200; ++y)
        for (int x = 0; x < 260; ++x)
            ASSERT_LE(largestDifference(joined.at(x, y), scene(x, y)), 2.0f * kRounding) << x << ' ' << y;
}

TEST(PanoramaMBlender, WhereTheCanvasHasDataTheMaskDoesNotGrow)
{
    PanoramaMBlender blender;
    blender.feed(plain(100, 60, 0.1f), full(100, 60), full(100, 60), {0, 0});
    blender.feed(plain(100, 60, 0.9f), mask(100, 60, [](int x, int) { return x >= 40; }), full(100, 60), {50, 0});
    const Joined joined = blended(blender);
    for (int y = 0; y < 60; ++y)
        for (int x = 0; x < 90; ++x)
            ASSERT_NEAR(joined.at(x, y)[1], 0.1f, kRounding) << x << ' ' << y;
    EXPECT_EQ(cv::countNonZero(joined.mask), 150 * 60);
}

TEST(PanoramaMBlender, OverDataAPictureFadesInFromTheEdgeOfItsMask)
{
    // So different that nothing constrains the membrane: only the feather remains.
    PanoramaMBlender blender;
    blender.feed(plain(200, 60, 0.1f), full(200, 60), full(200, 60), {0, 0});
    blender.feed(plain(200, 60, 0.9f), mask(200, 60, [](int x, int) { return x >= 40; }), full(200, 60), {50, 0});
    const Joined joined = blended(blender);
    EXPECT_NEAR(joined.at(89, 30)[0], 0.1f, kRounding);
    EXPECT_NEAR(joined.at(90, 30)[0], 0.1f, 0.08f) << "half of the blurred edge is no weight yet";
    for (int x = 90; x < 90 + kReach; ++x)
        EXPECT_GT(joined.at(x + 1, 30)[0], joined.at(x, 30)[0]) << x;
    for (int x = 90 + kReach + 1; x < 250; ++x)
        EXPECT_NEAR(joined.at(x, 30)[0], 0.9f, kRounding) << x;
}

TEST(PanoramaMBlender, OverEmptyCanvasAPictureCountsInFull)
{
    PanoramaMBlender blender;
    blender.feed(plain(100, 60, 0.1f), full(100, 60), full(100, 60), {0, 0});
    blender.feed(plain(100, 60, 0.9f), full(100, 60), full(100, 60), {100, 0});
    const Joined joined = blended(blender);
    EXPECT_NEAR(joined.at(99, 30)[0], 0.1f, kRounding);
    EXPECT_NEAR(joined.at(100, 30)[0], 0.9f, kRounding);
}

TEST(PanoramaMBlender, ADisagreementDoesNotSmear)
{
    // A dark object across the joint in only one picture.
    const cv::Rect spot(130, 60, 20, 20);
    const auto withSpot = [&](float depth) {
        return besides(
            [=](int x, int y) {
                return Colour::all(0.05f) - (spot.contains({x, y}) ? Colour::all(depth) : Colour::all(0));
            },
            70);
    };
    const Joined clean = withSpot(0.0f);
    const auto smear = [&](const Joined& joined) {
        float worst = 0.0f;
        for (int y = 0; y < 150; ++y)
            for (int x = 205; x < 380; ++x)
                worst = std::max(worst, largestDifference(joined.at(x, y), clean.at(x, y)));
        return worst;
    };
    // The scene is about 0.4 there, so the spot is bright instead of dark, to differ by half of full scale.
    EXPECT_LT(smear(withSpot(-0.56f)), 1.0f / 255) << "differs by more than half: left out";
    EXPECT_GT(smear(withSpot(-0.40f)), 4.0f / 255) << "differs by less: followed";
}

TEST(PanoramaMBlender, ABandOfSixteenPixelsAroundADisagreementIsLeftOut)
{
    // A joint along x = 100 with known differences of 0.2, except for the disagreement at `spot` and a range next to it
    // with another difference, 0.4: ignored inside of the band.
    const auto farValue = [](int stretchStart, int stretchEnd) {
        PanoramaMBlender blender;
        blender.feed(plain(120, 200, 0.3f), full(120, 200), full(120, 200), {0, 0});
        const cv::Mat right = picture(200, 200, [&](int x, int y) {
            const bool onSpot = x < 20 && y == 100;
            const bool onStretch = x < 20 && y >= stretchStart && y < stretchEnd;
            return Colour::all(onSpot ? 0.95f : onStretch ? 0.7f : 0.5f);
        });
        blender.feed(right, full(200, 200), full(200, 200), {100, 0});
        return blended(blender).at(140, 100)[0];
    };
    EXPECT_NEAR(farValue(0, 0), 0.3f, 0.002f) << "0.5 less the difference of 0.2";
    EXPECT_NEAR(farValue(100 - kReach, 100 + kReach + 1), 0.3f, 0.002f);
    EXPECT_LT(farValue(100 - kReach - 4, 100 + kReach + 5), 0.297f);
}

TEST(PanoramaMBlender, ADisagreementOutsideOfTheRegionCounts)
{
    // A joint along x = 100 with differences of 0.2, but 0.65 in a few rows.
    const auto farValue = [](const cv::Mat& region) {
        PanoramaMBlender blender;
        blender.feed(plain(120, 200, 0.3f), full(120, 200), full(120, 200), {0, 0});
        const cv::Mat right =
            picture(200, 200, [](int x, int y) { return Colour::all(x < 20 && y >= 98 && y < 103 ? 0.95f : 0.5f); });
        blender.feed(right, full(200, 200), region, {100, 0});
        return blended(blender).at(140, 100)[0];
    };
    EXPECT_NEAR(farValue(full(200, 200)), 0.3f, 0.002f) << "left out";
    EXPECT_LT(farValue(mask(200, 200, [](int x, int) { return x >= 20; })), 0.295f) << "followed";
}

TEST(PanoramaMBlender, SamplesAboveFullScaleAreKept)
{
    PanoramaMBlender blender;
    blender.feed(plain(100, 60, 1.0f), full(100, 60), full(100, 60), {0, 0});
    const cv::Mat right = picture(100, 60, [](int x, int) { return Colour::all(x < 40 ? 0.8f : 1.0f); });
    blender.feed(right, full(100, 60), full(100, 60), {80, 0});
    const Joined joined = blended(blender);
    EXPECT_NEAR(joined.at(170, 30)[1], 1.2f, 0.002f);
    EXPECT_GT(joined.colour.at<cv::Vec3s>(30, 170)[1], 19000);
}

TEST(PanoramaMBlender, SamplesBelowBlackAreKept)
{
    PanoramaMBlender blender;
    blender.feed(plain(100, 60, 0.0f), full(100, 60), full(100, 60), {0, 0});
    const cv::Mat right = picture(100, 60, [](int x, int) { return Colour::all(x < 40 ? 0.2f : 0.0f); });
    blender.feed(right, full(100, 60), full(100, 60), {80, 0});
    EXPECT_NEAR(blended(blender).at(170, 30)[1], -0.2f, 0.002f);
}

TEST(PanoramaMBlender, MaskPixelsThatAreMissingAreClear)
{
    PanoramaMBlender blender;
    blender.feed(plain(60, 50, 0.5f), full(20, 10), full(60, 50), {0, 0});
    EXPECT_EQ(cv::countNonZero(blended(blender).mask), (20 + kReach) * (10 + kReach));
    PanoramaMBlender cut;
    cut.feed(plain(60, 50, 0.5f), full(90, 70), full(30, 70), {0, 0});
    const Joined joined = blended(cut);
    EXPECT_EQ(joined.mask.size(), cv::Size(60, 50));
    EXPECT_EQ(cv::countNonZero(joined.mask), 30 * 50) << "no region, no growth into empty canvas";
}

TEST(PanoramaMBlender, AnyByteButZeroSetsAMask)
{
    PanoramaMBlender blender;
    blender.feed(plain(9, 9, 0.5f), cv::Mat(9, 9, CV_8UC1, cv::Scalar(1)), cv::Mat(9, 9, CV_8UC1, cv::Scalar(128)), {});
    EXPECT_EQ(cv::countNonZero(blended(blender).mask), 81);
}

TEST(PanoramaMBlender, PartsOfLargerMatricesAreReadByTheirRows)
{
    const cv::Mat large = picture(120, 90, scene);
    const cv::Rect part(13, 7, 50, 40);
    PanoramaMBlender blender;
    blender.feed(large(part), full(120, 90)(part), full(120, 90)(part), {});
    const Joined joined = blended(blender);
    for (int y = 0; y < 40; ++y)
        for (int x = 0; x < 50; ++x)
            ASSERT_LE(largestDifference(joined.at(x, y), scene(x + 13, y + 7)), kRounding);
}

TEST(PanoramaMBlender, PicturesWithoutPixelsTakeNoPart)
{
    const cv::Mat nothing(0, 0, CV_16SC3);
    const cv::Mat noMask(0, 0, CV_8UC1);
    PanoramaMBlender blender;
    blender.feed(nothing, noMask, noMask, {-500, -500});
    cv::Mat result = plain(3, 2, 0.5f);
    cv::Mat resultMask = full(3, 2);
    blender.blend(result, resultMask);
    EXPECT_TRUE(result.empty() && resultMask.empty());
    blender.feed(plain(20, 10, 0.5f), full(20, 10), full(20, 10), {3, 4});
    const Joined joined = blended(blender);
    EXPECT_EQ(joined.colour.size(), cv::Size(20, 10));
    EXPECT_NEAR(joined.at(7, 7)[2], 0.5f, kRounding);
}

TEST(PanoramaMBlender, RefusesMatricesOfOtherTypes)
{
    PanoramaMBlender blender;
    EXPECT_THROW(blender.feed(cv::Mat(4, 4, CV_8UC3), full(4, 4), full(4, 4), {}), cv::Exception);
    EXPECT_THROW(blender.feed(plain(4, 4, 0), cv::Mat(4, 4, CV_32FC1), full(4, 4), {}), cv::Exception);
    EXPECT_THROW(blender.feed(plain(4, 4, 0), full(4, 4), cv::Mat(4, 4, CV_8UC3), {}), cv::Exception);
    cv::Mat result, resultMask;
    blender.blend(result, resultMask);
    EXPECT_TRUE(result.empty()) << "nothing was taken in";
}

TEST(PanoramaMBlender, WithoutMemoryAFeedAddsNothing)
{
    if (!test::kAllocationsCanFail)
        GTEST_SKIP() << "allocations cannot fail under the thread sanitizer";
    const cv::Mat image = plain(20, 10, 0.5f);
    const cv::Mat all = full(20, 10);
    bool failed = true;
    for (long allocations = 0; failed; ++allocations) {
        PanoramaMBlender blender;
        failed = false;
        test::allocationsLeft = allocations;
        try {
            blender.feed(image, all, all, {});
        } catch (const std::bad_alloc&) {
            failed = true;
        }
        test::allocationsLeft = -1;
        EXPECT_EQ(blended(blender).colour.empty(), failed) << allocations;
    }
}

TEST(PanoramaMBlender, RefusesACanvasThatNoMatrixHolds)
{
    PanoramaMBlender blender;
    for (const int x : {-2000000000, 2000000000})
        blender.feed(plain(4, 4, 0.5f), full(4, 4), full(4, 4), {x, 0});
    cv::Mat result, resultMask;
    EXPECT_THROW(blender.blend(result, resultMask), std::length_error);
}

TEST(PanoramaMBlender, CopiesGoTheirOwnWay)
{
    static_assert(std::has_virtual_destructor_v<PanoramaMBlender>);
    PanoramaMBlender blender;
    blender.feed(plain(30, 20, 0.5f), full(30, 20), full(30, 20), {});
    PanoramaMBlender copy = blender;
    copy.feed(plain(30, 20, 0.25f), full(30, 20), full(30, 20), {30, 0});
    EXPECT_EQ(blended(blender).colour.size(), cv::Size(30, 20));
    EXPECT_EQ(blended(copy).colour.size(), cv::Size(60, 20));
    const PanoramaMBlender moved = std::move(copy);
    copy = moved;
    EXPECT_EQ(blended(copy).colour.size(), cv::Size(60, 20));
}

TEST(PanoramaMBlender, BlendsAgainToTheSameBytes)
{
    PanoramaMBlender blender;
    const cv::Mat image = picture(80, 60, scene);
    blender.feed(image, full(80, 60), full(80, 60), {0, 0});
    blender.feed(image, full(80, 60), full(80, 60), {50, 10});
    const Joined first = blended(blender);
    const Joined second = blended(blender);
    EXPECT_TRUE(sameBytes(first, second));
    EXPECT_NE(first.colour.data, second.colour.data) << "new matrices each time";
    EXPECT_TRUE(sameBytes(image, picture(80, 60, scene))) << "pictures are only read";
}

TEST(PanoramaMBlender, IsTheSameForAnyNumberOfThreadsAndLeavesNoPlane)
{
    const auto joined = [](int threads) {
        const WorkerLimit limit(threads);
        return besides(
            [](int x, int y) {
                const auto spot = static_cast<float>((x * 7 + y * 13) % 97 == 0); // disagreements everywhere
                return Colour(0.1f, 0.05f + 0.5f * spot, 0.001f * static_cast<float>(y));
            },
            70, 13);
    };
    const std::size_t live = MemoryManager::instance().liveBytes();
    const Joined one = joined(1);
    EXPECT_EQ(MemoryManager::instance().liveBytes(), live);
    for (const int threads : {2, 7})
        EXPECT_TRUE(sameBytes(one, joined(threads))) << threads;
}

TEST(DilationRLE, AgreesWithTheDirectSquare)
{
    cv::RNG random(11);
    for (const cv::Size size : {cv::Size(1, 1), {1, 70}, {70, 1}, {63, 20}, {64, 64}, {130, 45}})
        for (const int radius : {-3, 0, 1, 2, 5, 16, 200})
            for (const int sparse : {2, 40, 2000}) {
                std::vector<unsigned char> plane(static_cast<std::size_t>(size.area()));
                for (unsigned char& v : plane)
                    v = random.uniform(0, sparse) == 0 ? static_cast<unsigned char>(random.uniform(1, 256)) : 0;
                std::vector<unsigned char> expected;
                const int reach = std::max(radius, 0);
                for (int y = 0; y < size.height; ++y)
                    for (int x = 0; x < size.width; ++x) {
                        unsigned char found = 0;
                        for (int v = std::max(0, y - reach); v <= std::min(size.height - 1, y + reach); ++v)
                            for (int u = std::max(0, x - reach); u <= std::min(size.width - 1, x + reach); ++u)
                                found |= plane[static_cast<std::size_t>(v * size.width + u)] != 0;
                        expected.push_back(found);
                    }
                dilationRLE(plane.data(), size.width, size.height, radius);
                ASSERT_EQ(plane, expected) << size << " radius " << radius << " one in " << sparse;
            }
}

TEST(DilationRLE, TakesAnyTypeOfBytes)
{
    std::vector<signed char> plane = {0, 0, 0, -5, 0, 0, 0};
    dilationRLE(plane.data(), 7, 1, 1);
    EXPECT_EQ(plane, (std::vector<signed char>{0, 0, 1, 1, 1, 0, 0}));
    dilationRLE<signed char>(nullptr, 0, 5, 1); // nothing to do
}

TEST(BitPlane, EveryWordBelongsToOneThread)
{
    // Rows of 37 bits: rows share words, but the bits of a word must be written by one thread.
    constexpr std::size_t kBits = 37 * 9001;
    constexpr std::size_t kWidestWord = 64;
    for (int round = 0; round < 20; ++round) {
        std::atomic<bool> torn = false;
        const auto isSet = [&](std::size_t i) {
            thread_local std::size_t last = 0;
            if (i % kWidestWord != 0 && last + 1 != i)
                torn = true;
            last = i;
            return (i * 2654435761U) % 3 == 0;
        };
        std::vector<bool> bits(kBits);
        setBits(bits, isSet);
        EXPECT_FALSE(torn);
        for (std::size_t i = 0; i < kBits; ++i)
            ASSERT_EQ(bits[i], (i * 2654435761U) % 3 == 0) << i;
    }
}

TEST(BitPlane, SetBitsStaySet)
{
    std::vector<bool> bits(10, true);
    setBits(bits, [](std::size_t) { return false; });
    EXPECT_EQ(bits, std::vector<bool>(10, true));
    std::vector<bool> none;
    setBits(none, [](std::size_t) { return true; });
    EXPECT_TRUE(none.empty());
}
