#include "bracket_groups.hpp"
#include "support/cards.hpp"

#include <jobs/job.hpp>
#include <orvo_extensions/failure.hpp>
#include <orvo_io/capture_facts.hpp>
#include <orvo_io/capture_time.hpp>

#include <gmock/gmock.h>

#include <string>

namespace orvo::jobs {
namespace {

using test::Card;
using test::Paths;
using testing::ElementsAre;
using testing::HasSubstr;

std::string complaint(const Paths& files, JobOutcome outcome, int size = 0)
{
    try {
        (void)groupBrackets(files, size);
    } catch (const JobRefusal& refusal) {
        EXPECT_EQ(outcome, JobOutcome::Refused);
        return refusal.what();
    } catch (const FailureError& error) {
        EXPECT_EQ(outcome, JobOutcome::Failed);
        return error.what();
    }
    return "none";
}

class GroupBrackets : public testing::Test
{
protected:
    /// Nothing but exposures tells these apart.
    Paths shootBlack(const std::vector<double>& evs)
    {
        Paths paths;
        for (const double ev : evs) {
            scenes::ExifValues exif = card.values();
            exif.exposure = scenes::exposedBy(exif.exposure, ev);
            exif.exposureBias = ev;
            const scenes::Picture black({8, 8}, PixelRGB<float>{}, ColorProfileType::sRGB());
            paths.push_back(card.shoot(black, exif));
        }
        return paths;
    }

    test::TemporaryFolder folder;
    Card card{folder.path()};
};

TEST_F(GroupBrackets, ABracketEndsBeforeAnExposureThatItHas)
{
    const Paths files = shootBlack({0, -2, 2.05, 0.1, -2.1, 2});
    EXPECT_THAT(groupBrackets(files, 0),
                ElementsAre(ElementsAre(files[0], files[1], files[2]), ElementsAre(files[3], files[4], files[5])));
}

TEST_F(GroupBrackets, MayHaveAnotherOrderEachTime)
{
    const Paths files = shootBlack({0, -1, 1, -1, 0, 1});
    EXPECT_THAT(groupBrackets(files, 0),
                ElementsAre(ElementsAre(files[0], files[1], files[2]), ElementsAre(files[3], files[4], files[5])));
}

TEST_F(GroupBrackets, OneThatIsIncompleteIsNamed)
{
    const Paths files = shootBlack({0, -2, 2, 0, -2, 0, -2, 2});
    EXPECT_EQ(complaint(files, JobOutcome::Failed),
              files[3].string() + ": its bracket has 2 frames, the others have 3 frames");
}

TEST_F(GroupBrackets, OfASizeThatIsGivenAreNotLookedAt)
{
    const Paths files{"a", "b", "c", "d"};
    EXPECT_THAT(groupBrackets(files, 2), ElementsAre(ElementsAre("a", "b"), ElementsAre("c", "d")));
    EXPECT_EQ(complaint({"a", "b", "c"}, JobOutcome::Refused, 2),
              "3 files make no brackets of 2 frames; one is incomplete");
    EXPECT_THAT(complaint({"a", "b", "c"}, JobOutcome::Refused, 3), HasSubstr("two brackets"));
}

TEST_F(GroupBrackets, WhatMakesNoBracketsIsRefused)
{
    EXPECT_THAT(complaint(shootBlack({0, 0, 0}), JobOutcome::Refused), HasSubstr("the same exposure"));
    card.wait(60);
    EXPECT_THAT(complaint(shootBlack({0, 1, 2}), JobOutcome::Refused), HasSubstr("two brackets"));
}

TEST_F(GroupBrackets, FilesAreSortedByTheirTime)
{
    const Paths first = shootBlack({0, -2});
    card.wait(60);
    const Paths second = shootBlack({0, -2});
    EXPECT_THAT(groupBrackets({second[0], first[1], first[0], second[1]}, 0),
                ElementsAre(ElementsAre(second[0], second[1]), ElementsAre(first[0], first[1])));
}

TEST_F(GroupBrackets, WithoutExifThePicturesDecide)
{
    Card bare(folder, {.prefix = "bare", .exif = false});
    const Paths views = bare.panorama(2, 27.0, {-1.5, 0.0, 1.5});
    EXPECT_THAT(groupBrackets(views, 0),
                ElementsAre(ElementsAre(views[0], views[1], views[2]), ElementsAre(views[3], views[4], views[5])));
}

TEST_F(GroupBrackets, AnUnreadableFileIsNamed)
{
    Paths files = shootBlack({0, -2, 0, -2});
    files.push_back(folder / "missing.jpg");
    EXPECT_THAT(complaint(files, JobOutcome::Failed), HasSubstr("missing.jpg"));
}

class ReadCaptureFacts : public GroupBrackets
{};

TEST_F(ReadCaptureFacts, HasWhatTheCameraNotes)
{
    const CaptureFacts facts = readCaptureFacts(shootBlack({-2}).front());
    EXPECT_TRUE(facts.seconds);
    EXPECT_EQ(facts.exposureBias, -2.0);
    EXPECT_EQ(facts.exposureMode, std::nullopt);
    EXPECT_EQ(facts.sequenceNumber, std::nullopt);
    EXPECT_EQ(facts.bodySerial, "");
}

TEST_F(ReadCaptureFacts, TimesAreInSecondsOfTheCamerasClock)
{
    const auto timeOf = [&](const std::string& text) {
        const auto path = folder / "a.jpg";
        scenes::ExifValues exif;
        exif.dateTimeOriginal = text;
        ImageWriteSettings settings = writeSettingsForPath(path);
        settings.profile = ColorProfileType::sRGB();
        settings.metadata = scenes::metadataWith(exif, {8, 8});
        writeImage(path, scenes::Picture({8, 8}, PixelRGB<float>{}, ColorProfileType::sRGB()), settings);
        return readCaptureTime(path);
    };
    EXPECT_EQ(timeOf("1970:01:02 00:00:03"), 86403.0);
    EXPECT_EQ(timeOf("2000:03:01 01:02:03"), 951872523.0);
    EXPECT_EQ(timeOf("2026:13:01 00:00:00"), std::nullopt);
    EXPECT_EQ(timeOf("2026:12:01 25:00:00"), std::nullopt);
    EXPECT_EQ(timeOf("nonsense"), std::nullopt);
    EXPECT_EQ(readCaptureTime(folder / "missing.jpg"), std::nullopt);
}

} // namespace
} // namespace orvo::jobs
