#include "bracket/match_filters.hpp"

#include <orvo_core/parallel.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace orvo;

namespace {

using Lists = std::vector<std::vector<cv::DMatch>>;

cv::DMatch match(int query, int train, float distance = 0.1f) { return {query, train, distance}; }

std::vector<int> queries(const std::vector<cv::DMatch>& matches)
{
    std::vector<int> result;
    for (const auto& m : matches)
        result.push_back(m.queryIdx);
    return result;
}

// `count` matches of point i with point i, displaced by the two functions.
struct Displaced
{
    std::vector<cv::KeyPoint> first;
    std::vector<cv::KeyPoint> second;
    std::vector<cv::DMatch> matches;

    template <typename X, typename Y>
    Displaced(int count, const X& dx, const Y& dy)
    {
        for (int i = 0; i < count; ++i) {
            first.emplace_back(100.0f, 200.0f, 1.0f);
            second.emplace_back(100.0f + dx(i), 200.0f - dy(i), 1.0f);
            matches.push_back(match(i, i));
        }
    }
};

constexpr float kSide = 1000.0f;

} // namespace

TEST(SymmetryTest, KeepsMatchesThatBothDirectionsAgreeOn)
{
    const Lists forward = {{match(0, 2), match(0, 1)}, {match(1, 0)}, {}, {match(3, 1)}};
    const Lists backward = {{match(0, 1)}, {match(1, 9)}, {match(2, 0), match(2, 3)}, {}};
    std::vector<cv::DMatch> out = {match(7, 7)};
    symmetryTest(forward, backward, out);
    EXPECT_THAT(queries(out), testing::ElementsAre(0, 1));
    EXPECT_EQ(out[0].trainIdx, 2);
}

TEST(SymmetryTest, EmptyListsGiveNothing)
{
    std::vector<cv::DMatch> out = {match(1, 1)};
    symmetryTest({}, {{match(0, 0)}}, out);
    EXPECT_TRUE(out.empty());
    symmetryTest({{match(0, 0)}}, {}, out);
    EXPECT_TRUE(out.empty());
}

TEST(SymmetryTest, OrderDoesNotDependOnThreads)
{
    Lists forward;
    Lists backward;
    for (int i = 0; i < 3000; ++i) {
        forward.push_back({match(i, 2999 - i)});
        backward.push_back({match(i, i % 3 == 0 ? 2999 - i : i)});
    }
    std::vector<cv::DMatch> single;
    std::vector<cv::DMatch> many;
    {
        const WorkerLimit limit(1);
        symmetryTest(forward, backward, single);
    }
    symmetryTest(forward, backward, many);
    EXPECT_EQ(queries(single), queries(many));
    EXPECT_TRUE(std::is_sorted(single.begin(), single.end(),
                               [](const auto& a, const auto& b) { return a.queryIdx < b.queryIdx; }));
    EXPECT_EQ(single.size(), 1000u);
}

TEST(CutOutliers, FewerThanTwentyStayAsTheyAre)
{
    Displaced set(
        19, [](int i) { return i == 3 ? 500.0f : 1.0f; }, [](int) { return 0.0f; });
    cutOutliers(set.matches, set.first, set.second, kSide, kSide);
    EXPECT_EQ(set.matches.size(), 19u);
    EXPECT_EQ(set.matches[3].queryIdx, 3);
}

TEST(CutOutliers, AJumpOnXCutsThere)
{
    // 100 matches: three quarters move by 2 px, the rest by 300 px and more. The first decile with a jump is the
    // eighth.
    Displaced set(
        100, [](int i) { return i % 4 == 0 ? 300.0f : 2.0f; }, [](int) { return 1.0f; });
    cutOutliers(set.matches, set.first, set.second, kSide, kSide);
    EXPECT_EQ(set.matches.size(), 80u);
    for (std::size_t i = 0; i < 75; ++i)
        EXPECT_NE(set.matches[i].queryIdx % 4, 0);
}

TEST(CutOutliers, AJumpOnYSortsByY)
{
    Displaced set(
        100, [](int) { return 1.0f; }, [](int i) { return i % 2 == 0 ? 100.0f : 2.0f; });
    cutOutliers(set.matches, set.first, set.second, kSide, kSide);
    EXPECT_EQ(set.matches.size(), 50u);
    for (const auto& m : set.matches)
        EXPECT_EQ(m.queryIdx % 2, 1);
}

TEST(CutOutliers, OnATieXComesFirst)
{
    Displaced set(
        100, [](int i) { return i % 2 == 0 ? 100.0f : 2.0f; }, [](int i) { return i % 2 == 1 ? 100.0f : 2.0f; });
    cutOutliers(set.matches, set.first, set.second, kSide, kSide);
    ASSERT_EQ(set.matches.size(), 50u);
    EXPECT_EQ(set.matches[0].queryIdx % 2, 1) << "sorted by x, where the odd ones move little";
}

TEST(CutOutliers, TheFirstDecileCountsAgainstTheFirstDisplacementItself)
{
    // A steady growth of 4 px a decile from a first displacement of 0 is a jump at once: 4/1000 is above 0.003.
    Displaced steady(
        200, [](int i) { return static_cast<float>(i) * 0.2f; }, [](int) { return 0.0f; });
    cutOutliers(steady.matches, steady.first, steady.second, kSide, kSide);
    EXPECT_EQ(steady.matches.size(), 20u);
}

TEST(CutOutliers, WithoutAJumpTheFarthestTenthGoes)
{
    Displaced set(
        105, [](int i) { return 1.0f + 0.001f * static_cast<float>(i); }, [](int) { return 0.0f; });
    cutOutliers(set.matches, set.first, set.second, kSide, kSide);
    EXPECT_EQ(set.matches.size(), 90u);
    EXPECT_EQ(set.matches.back().queryIdx, 89);
}

TEST(CutOutliers, ACutBelowTwentyChangesNothing)
{
    // A jump at the first decile of 100 would leave 10 matches.
    Displaced set(
        100, [](int i) { return i < 10 ? 0.0f : 50.0f; }, [](int) { return 0.0f; });
    cutOutliers(set.matches, set.first, set.second, kSide, kSide);
    EXPECT_EQ(set.matches.size(), 100u);
}

TEST(CutOutliers, TheEarlierDecileWinsWhateverItsAxis)
{
    // Of 200 matches (20 a decile), one axis jumps at the third decile and the other at the sixth.
    const auto early = [](int i) { return i < 60 ? 1.0f : 50.0f; };
    const auto late = [](int i) { return i < 80 ? 50.0f : 1.0f; };
    Displaced yFirst(200, late, early);
    cutOutliers(yFirst.matches, yFirst.first, yFirst.second, kSide, kSide);
    ASSERT_EQ(yFirst.matches.size(), 60u);
    EXPECT_EQ(yFirst.matches[0].queryIdx, 0) << "sorted by y, where the first ones move little";
    Displaced xFirst(200, early, late);
    cutOutliers(xFirst.matches, xFirst.first, xFirst.second, kSide, kSide);
    ASSERT_EQ(xFirst.matches.size(), 60u);
    EXPECT_EQ(xFirst.matches[0].queryIdx, 0);
}

TEST(CutOutliers, AJumpIsAGrowthOfTheGrowthBeyondThreeThousandthsOfTheSide)
{
    const auto kept = [](float jump, float side) {
        Displaced set(
            200, [jump](int i) { return i < 100 ? 1.0f : 1.0f + jump; }, [](int) { return 0.0f; });
        cutOutliers(set.matches, set.first, set.second, side, kSide);
        return set.matches.size();
    };
    EXPECT_EQ(kept(2.9f, 1000), 180u);
    EXPECT_EQ(kept(3.1f, 1000), 100u);
    EXPECT_EQ(kept(3.1f, 2000), 180u) << "displacements on x count in widths";
    EXPECT_EQ(kept(6.2f, 2000), 100u);
}

TEST(CutOutliers, DisplacementsOnYCountInHeights)
{
    const auto kept = [](float height) {
        Displaced set(
            200, [](int) { return 0.0f; }, [](int i) { return i < 100 ? 1.0f : 4.1f; });
        cutOutliers(set.matches, set.first, set.second, kSide, height);
        return set.matches.size();
    };
    EXPECT_EQ(kept(1000), 100u);
    EXPECT_EQ(kept(2000), 180u);
}

TEST(CutOutliers, ASteadyGrowthIsNoJump)
{
    // 2.5 px a decile: the first decile alone is measured against the first displacement.
    Displaced steady(
        200, [](int i) { return static_cast<float>(i) * 0.125f; }, [](int) { return 0.0f; });
    cutOutliers(steady.matches, steady.first, steady.second, kSide, kSide);
    EXPECT_EQ(steady.matches.size(), 180u);
}

TEST(CutOutliers, TheFirstDisplacementCountsAsTheGrowthBeforeTheFirstDecile)
{
    // From 5 px to 12 at the first decile: a growth of 7 px after one of 5 is no jump, after one of 0 it would be.
    const auto kept = [](float smallest) {
        Displaced set(
            200, [smallest](int i) { return i < 20 ? smallest : smallest + 7.0f; }, [](int) { return 0.0f; });
        cutOutliers(set.matches, set.first, set.second, kSide, kSide);
        return set.matches.size();
    };
    EXPECT_EQ(kept(5.0f), 180u);
    EXPECT_EQ(kept(0.0f), 20u);
}
