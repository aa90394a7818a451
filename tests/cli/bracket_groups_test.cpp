#include "bracket_groups.hpp"
#include "support/temporary_folder.hpp"

#include <jobs/job.hpp>
#include <orvo_extensions/failure.hpp>
#include <orvo_io/capture_time.hpp>
#include <orvo_io/image_writer.hpp>
#include <scenes/exif.hpp>

#include <gmock/gmock.h>

#include <cmath>
#include <string>

namespace orvo::jobs {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

using Paths = std::vector<std::filesystem::path>;

struct Files
{
    Paths paths;
    std::vector<std::shared_ptr<const ImageMetadata>> metadata;

    Files& add(const std::string& name, double ev)
    {
        auto record = std::make_shared<ImageMetadata>();
        record->isoSpeed = 100.0f;
        record->aperture = 8.0f;
        record->shutterSeconds = static_cast<float>(std::exp2(ev) / 100.0);
        paths.push_back(name);
        metadata.push_back(record);
        return *this;
    }
    [[nodiscard]] std::vector<Paths> grouped(int size = 0) const { return groupBrackets(paths, metadata, size); }
    [[nodiscard]] std::string complaint(JobOutcome outcome, int size = 0) const
    {
        try {
            (void)grouped(size);
        } catch (const JobRefusal& refusal) {
            EXPECT_EQ(outcome, JobOutcome::Refused);
            return refusal.what();
        } catch (const FailureError& error) {
            EXPECT_EQ(outcome, JobOutcome::Failed);
            return error.what();
        }
        return "none";
    }
};

TEST(GroupBrackets, ABracketEndsBeforeAnExposureThatItHas)
{
    Files files;
    files.add("a", 0).add("b", -2).add("c", 2.05).add("d", 0.1).add("e", -2.1).add("f", 2);
    EXPECT_THAT(files.grouped(), ElementsAre(ElementsAre("a", "b", "c"), ElementsAre("d", "e", "f")));
}

TEST(GroupBrackets, MayHaveAnotherOrderEachTime)
{
    Files files;
    files.add("a", 0).add("b", -1).add("c", -1).add("d", 0);
    EXPECT_THAT(files.grouped(), ElementsAre(ElementsAre("a", "b"), ElementsAre("c", "d")));
}

TEST(GroupBrackets, OneThatIsIncompleteIsNamed)
{
    Files files;
    files.add("a", 0).add("b", -2).add("c", 2).add("d", 0).add("e", -2).add("f", 0).add("g", -2).add("h", 2);
    EXPECT_EQ(files.complaint(JobOutcome::Failed), "d: its bracket has 2 frames, the others have 3 frames");
}

TEST(GroupBrackets, WithoutExposuresTheSizeMustBeSaid)
{
    Files files;
    files.add("a", 0).add("b", -2).add("c", 0).add("d", -2);
    auto bare = std::make_shared<ImageMetadata>();
    files.metadata[2] = bare;
    EXPECT_THAT(files.complaint(JobOutcome::Refused), testing::AllOf(HasSubstr("c: "), HasSubstr("--bracket-size")));
    EXPECT_THAT(files.grouped(2), ElementsAre(ElementsAre("a", "b"), ElementsAre("c", "d")));
}

TEST(GroupBrackets, WhatMakesNoBracketsIsRefused)
{
    Files same;
    same.add("a", 0).add("b", 0).add("c", 0);
    EXPECT_THAT(same.complaint(JobOutcome::Refused), HasSubstr("the same exposure"));
    Files one;
    one.add("a", 0).add("b", 1).add("c", 2);
    EXPECT_THAT(one.complaint(JobOutcome::Refused), HasSubstr("two brackets"));
    EXPECT_EQ(one.complaint(JobOutcome::Refused, 2), "3 files make no brackets of 2 frames; one is incomplete");
    EXPECT_THAT(one.complaint(JobOutcome::Refused, 3), HasSubstr("two brackets"));
}

TEST(GroupBrackets, FilesAreSortedByTheirTime)
{
    const test::TemporaryFolder folder;
    Files files;
    const auto shoot = [&](const std::string& name, const std::string& time, double ev) {
        const auto path = folder / name;
        scenes::ExifValues exif;
        exif.dateTimeOriginal = time;
        ImageWriteSettings settings = writeSettingsForPath(path);
        settings.profile = ColorProfileType::sRGB();
        settings.metadata = scenes::metadataWith(exif, {8, 8});
        writeImage(path, _ImageData<PixelRGB<float>>({8, 8}, PixelRGB<float>{}, ColorProfileType::sRGB()), settings);
        files.add(path.string(), ev);
    };
    shoot("d.jpg", "2026:06:21 16:30:01", 0);
    shoot("a.jpg", "2026:06:21 16:31:00", 0);
    shoot("c.jpg", "2026:06:21 16:30:02", -2);
    shoot("b.jpg", "2026:06:21 16:31:01", -2);
    EXPECT_THAT(files.grouped(), ElementsAre(ElementsAre(folder / "d.jpg", folder / "c.jpg"),
                                             ElementsAre(folder / "a.jpg", folder / "b.jpg")));
}

TEST(ReadCaptureTime, IsInSecondsOfTheCamerasClock)
{
    const test::TemporaryFolder folder;
    const auto timeOf = [&](const std::string& text) {
        const auto path = folder / "a.jpg";
        scenes::ExifValues exif;
        exif.dateTimeOriginal = text;
        ImageWriteSettings settings = writeSettingsForPath(path);
        settings.profile = ColorProfileType::sRGB();
        settings.metadata = scenes::metadataWith(exif, {8, 8});
        writeImage(path, _ImageData<PixelRGB<float>>({8, 8}, PixelRGB<float>{}, ColorProfileType::sRGB()), settings);
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
