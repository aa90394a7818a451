#include "support/cards.hpp"

#include <orvo_core/parallel.hpp>
#include <orvo_extensions/picture_groups.hpp>

#include <gmock/gmock.h>

#include <fstream>

namespace orvo {

// For messages of tests.
static void PrintTo(const PictureGroup& group, std::ostream* out)
{
    *out << static_cast<int>(group.kind) << " of";
    for (const auto& path : group.paths)
        *out << " " << path.filename();
}

namespace test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

using Kind = PictureGroupKind;

MATCHER_P2(Group, kind, paths, "") { return arg.kind == kind && arg.paths == paths; }

auto single(const std::filesystem::path& path) { return Group(Kind::Single, Paths{path}); }

void append(Paths& to, const Paths& more) { to.insert(to.end(), more.begin(), more.end()); }

class GroupPictures : public testing::Test
{
protected:
    TemporaryFolder folder;
};

struct Shoot
{
    Paths all;
    std::vector<PictureGroup> expected;

    void add(Kind kind, const Paths& paths)
    {
        append(all, paths);
        PictureGroup group;
        group.kind = kind;
        group.paths = paths;
        expected.push_back(group);
    }
    void expectFound() const
    {
        const PictureGroups found = groupPictures(all);
        EXPECT_THAT(found.unreadable, IsEmpty());
        ASSERT_THAT(found.groups, SizeIs(expected.size()));
        for (std::size_t i = 0; i < expected.size(); ++i)
            EXPECT_THAT(found.groups[i], Group(expected[i].kind, expected[i].paths)) << "group " << i;
    }
};

/// Three brackets, a focus series, a panorama and single pictures.
Shoot shootCard(Card& card, bool distances)
{
    Shoot shoot;
    const auto next = [&] { card.wait(40); };
    shoot.add(Kind::Single, {card.single(1)});
    next();
    shoot.add(Kind::Bracket, card.bracket({0.0, -2.0, 2.0}, 1, 8.0));
    shoot.add(Kind::Bracket, card.bracket({0.0, -2.0, 2.0}, 1, 8.0)); // directly after it
    next();
    shoot.add(Kind::Panorama, card.panorama(4, 27.0));
    next();
    shoot.add(Kind::Bracket, card.bracket({-2.0, -1.0, 0.0, 1.0, 2.0}, 5));
    next();
    shoot.add(Kind::FocusSeries, card.focusSeries(5, distances, 0.02));
    next();
    shoot.add(Kind::Single, {card.single(2)});
    shoot.add(Kind::Single, {card.single(3)});
    return shoot;
}

TEST_F(GroupPictures, SortsACard)
{
    Card card(folder);
    shootCard(card, true).expectFound();
}

TEST_F(GroupPictures, SortsACardWithoutFocusDistances)
{
    Card card(folder);
    shootCard(card, false).expectFound();
}

TEST_F(GroupPictures, SortsACardWithoutExif)
{
    Card card(folder, {.exif = false});
    const Shoot shoot = shootCard(card, false);
    shoot.expectFound();
    for (const PictureGroup& group : groupPictures(shoot.all).groups) {
        EXPECT_FALSE(group.evidence.exposureFromMetadata);
        EXPECT_EQ(group.evidence.seconds, std::nullopt);
    }
}

TEST_F(GroupPictures, ShowsItsEvidence)
{
    Card card(folder);
    const Paths bracket = card.bracket({0.0, -2.0, 2.0});
    const PictureGroups found = groupPictures(bracket);
    ASSERT_THAT(found.groups, SizeIs(1));
    const PictureGroup& group = found.groups[0];
    EXPECT_EQ(group.bracketSize, 3u);
    EXPECT_TRUE(group.evidence.exposureFromMetadata);
    EXPECT_THAT(group.evidence.evs,
                ElementsAre(testing::FloatNear(0, 0.01f), testing::FloatNear(-2, 0.01f), testing::FloatNear(2, 0.01f)));
    EXPECT_EQ(group.evidence.seconds, 2.0);
    ASSERT_TRUE(group.evidence.overlap);
    EXPECT_GT(group.evidence.overlap->least, 0.95f);
}

TEST_F(GroupPictures, SeparatesCamerasThatShootInTurn)
{
    Card first(folder, {.prefix = "A", .model = "First"});
    Card second(folder, {.prefix = "B", .model = "Second"});
    const Paths bracket = first.bracket({0.0, -2.0, 2.0});
    const Paths views = second.panorama(3, 27.0);
    EXPECT_THAT(groupPictures({bracket[0], views[0], views[1], bracket[1], views[2], bracket[2]}).groups,
                ElementsAre(Group(Kind::Bracket, bracket), Group(Kind::Panorama, views)));
}

TEST_F(GroupPictures, TimesCountNotTheGivenOrder)
{
    Card card(folder);
    const Paths bracket = card.bracket({0.0, -2.0, 2.0});
    card.wait(60);
    const Paths views = card.panorama(3, 27.0);
    EXPECT_THAT(groupPictures({views[2], bracket[1], views[0], bracket[2], bracket[0], views[1]}).groups,
                ElementsAre(Group(Kind::Panorama, views), Group(Kind::Bracket, bracket)));
}

TEST_F(GroupPictures, PanoramaOfBrackets)
{
    Card card(folder);
    Paths all{card.single(1)};
    card.wait(40);
    const Paths views = card.panorama(3, 27.0, {-1.5, 0.0, 1.5});
    append(all, views);
    const auto groups = groupPictures(all).groups;
    ASSERT_THAT(groups, ElementsAre(single(all[0]), Group(Kind::BracketPanorama, views)));
    EXPECT_EQ(groups[1].bracketSize, 3u);
}

TEST_F(GroupPictures, OverlapsFromASeventhToAHalf)
{
    for (const double step : {25.0, 32.0, 41.0}) {
        Card card(folder, {.prefix = std::to_string(static_cast<int>(step)) + "_"});
        const Paths views = card.panorama(3, step);
        EXPECT_THAT(groupPictures(views).groups, ElementsAre(Group(Kind::Panorama, views))) << step;
    }
}

TEST_F(GroupPictures, PanoramaOfUprightAndLyingPictures)
{
    Card card(folder);
    const scenes::SphereScene world(1);
    scenes::SphereView lying;
    lying.size = {480, 320};
    lying.focal = 480.0;
    scenes::SphereView upright = lying;
    upright.size = {320, 480};
    upright.rotation = scenes::rotationOf(26.0, 0.0, 0.0);
    const Paths views{card.shootView(world, lying, 0.0), card.shootView(world, upright, 0.0)};
    EXPECT_THAT(groupPictures(views).groups, ElementsAre(Group(Kind::Panorama, views)));
}

TEST_F(GroupPictures, ABurstIsNoSeries)
{
    Card card(folder);
    const Paths burst = card.bracket({0.0, 0.0, 0.0, 0.0}, 1, 6.0);
    const auto groups = groupPictures(burst).groups;
    EXPECT_THAT(groups, ElementsAre(single(burst[0]), single(burst[1]), single(burst[2]), single(burst[3])));
    for (const PictureGroup& group : groups)
        EXPECT_EQ(group.evidence.alike, 3u);
}

TEST_F(GroupPictures, SizesDoNotMix)
{
    Card card(folder);
    Card small(folder, {.prefix = "S", .size = {360, 240}});
    Paths all = card.bracket({0.0, -2.0});
    small.wait(2);
    append(all, small.bracket({2.0}));
    EXPECT_THAT(groupPictures(all).groups, ElementsAre(Group(Kind::Bracket, Paths{all[0], all[1]}), single(all[2])));
}

TEST_F(GroupPictures, FocusSeriesOneAfterTheOther)
{
    for (const bool distances : {true, false}) {
        Card card(folder, {.prefix = distances ? "D" : "N"});
        const Paths first = card.focusSeries(4, distances);
        const Paths second = card.focusSeries(4, distances);
        Paths all = first;
        append(all, second);
        EXPECT_THAT(groupPictures(all).groups,
                    ElementsAre(Group(Kind::FocusSeries, first), Group(Kind::FocusSeries, second)))
            << distances;
    }
}

TEST_F(GroupPictures, AStrangerLeavesAPanoramaWhole)
{
    Card card(folder);
    Paths views = card.panorama(2, 27.0);
    const auto stranger = card.single(1);
    const Paths wider = Card(folder, {.prefix = "W"}).panorama(4, 27.0);
    EXPECT_THAT(groupPictures({wider[0], wider[1], stranger, wider[2], wider[3]}).groups.size(), 2u);
}

TEST_F(GroupPictures, UnreadableFilesAreNamed)
{
    Card card(folder);
    const auto picture = card.single(1);
    const auto broken = folder / "broken.jpg";
    std::ofstream(broken) << "no picture";
    const PictureGroups found = groupPictures({broken, picture, folder / "missing.jpg"});
    EXPECT_THAT(found.groups, ElementsAre(single(picture)));
    ASSERT_THAT(found.unreadable, SizeIs(2));
    EXPECT_EQ(found.unreadable[0].file, broken);
    EXPECT_EQ(found.unreadable[1].file, folder / "missing.jpg");
}

TEST_F(GroupPictures, IsTheSameForAnyNumberOfThreads)
{
    Card card(folder);
    const Shoot shoot = shootCard(card, false);
    const auto overlaps = [&] {
        std::vector<float> values;
        for (const PictureGroup& group : groupPictures(shoot.all).groups)
            if (group.evidence.overlap) {
                values.push_back(group.evidence.overlap->least);
                values.push_back(group.evidence.overlap->most);
            }
        return values;
    };
    const auto many = overlaps();
    const WorkerLimit limit(1);
    EXPECT_EQ(overlaps(), many);
}

TEST_F(GroupPictures, StopsWhenCancelled)
{
    Card card(folder);
    const Paths pictures{card.single(1), card.single(2)};
    EXPECT_THAT(groupPictures(pictures, {}, [] { return true; }).groups, IsEmpty());
    ASSERT_TRUE(lastFailure());
    EXPECT_EQ(lastFailure()->kind, FailureKind::Cancelled);
}

TEST_F(GroupPictures, NothingOfNothing)
{
    EXPECT_THAT(groupPictures({}).groups, IsEmpty());
    EXPECT_FALSE(lastFailure());
}

} // namespace
} // namespace test
} // namespace orvo
