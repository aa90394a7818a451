// Why a job failed: the kind, the file and the sentence, for every job, and for two jobs at a time.
#include "small_disk.hpp"
#include "support/failures.hpp"
#include "support/files.hpp"
#include "support/temporary_folder.hpp"

#include <jobs/frames_job.hpp>
#include <jobs/hdr_job.hpp>
#include <jobs/label_job.hpp>
#include <jobs/pano_job.hpp>
#include <jobs/stack_job.hpp>
#include <jobs/upscale_job.hpp>
#include <orvo_io/settings.hpp>
#include <scenes/sphere_view_files.hpp>

#include <gmock/gmock.h>

#include <fstream>
#include <thread>

namespace orvo::jobs {
namespace {

using testing::HasSubstr;
using Paths = std::vector<std::filesystem::path>;

struct Job
{
    const char* name;
    bool takesSeveral;
    RunReport (*run)(const Paths& pictures, const std::filesystem::path& output, const JobCallbacks& callbacks);
};

constexpr Job kJobs[] = {
    {"hdr", true,
     [](const Paths& pictures, const std::filesystem::path& output, const JobCallbacks& callbacks) -> RunReport {
         HdrJobRequest request;
         request.frames = pictures;
         request.output = output;
         return hdrJob(request, callbacks);
     }},
    {"stack", true,
     [](const Paths& pictures, const std::filesystem::path& output, const JobCallbacks& callbacks) -> RunReport {
         StackJobRequest request;
         request.frames = pictures;
         request.output = output;
         return stackJob(request, callbacks);
     }},
    {"label", true,
     [](const Paths& pictures, const std::filesystem::path& output, const JobCallbacks& callbacks) -> RunReport {
         LabelJobRequest request;
         request.frames = pictures;
         request.folder = output.parent_path();
         request.format = ImageFileFormat::Tiff;
         return labelJob(request, callbacks);
     }},
    {"upscale", false,
     [](const Paths& pictures, const std::filesystem::path& output, const JobCallbacks& callbacks) -> RunReport {
         UpscaleJobRequest request;
         request.source = pictures.back();
         request.output = output;
         return upscaleJob(request, callbacks);
     }},
    {"pano", true,
     [](const Paths& pictures, const std::filesystem::path& output, const JobCallbacks& callbacks) -> RunReport {
         PanoJobRequest request;
         request.files = pictures;
         request.output = output;
         return panoJob(request, callbacks);
     }},
};

void PrintTo(const Job& job, std::ostream* out) { *out << job.name; }

std::string nameOfJob(const testing::TestParamInfo<Job>& tested) { return tested.param.name; }

class JobFailures : public testing::TestWithParam<Job>
{
protected:
    JobFailures()
    {
        // Views of one scene that every job accepts.
        scenes::SphereView view;
        view.size = {320, 240};
        view.focal = 320.0;
        const auto views = scenes::rowOfViews(2, 20.0, 3.0, view, 1.0, 7);
        for (std::size_t i = 0; i < views.size(); ++i) {
            pictures.push_back(folder / (std::to_string(i) + ".tif"));
            scenes::writeSphereView(scenes::SphereScene(), views[i], pictures.back(), {.noiseSeed = i + 1});
        }
        std::filesystem::create_directory(folder / "out");
    }

    [[nodiscard]] RunReport run(const JobCallbacks& callbacks = {}) const
    {
        return GetParam().run(pictures, output, callbacks);
    }

    static void expectFailure(const RunReport& report, FailureKind kind, const std::filesystem::path& file)
    {
        EXPECT_EQ(report.outcome, JobOutcome::Failed) << report.message;
        ASSERT_TRUE(report.failure.has_value());
        EXPECT_EQ(static_cast<int>(report.failure->kind), static_cast<int>(kind)) << report.message;
        EXPECT_EQ(report.failure->file, file) << report.message;
        EXPECT_EQ(report.message, describe(*report.failure));
    }

    test::TemporaryFolder folder;
    Paths pictures;
    std::filesystem::path output = folder / "out/result.tif";
};

TEST_P(JobFailures, ThereIsNoneIfThereIsAResult)
{
    const RunReport report = run();
    EXPECT_TRUE(report.done()) << report.message;
    EXPECT_FALSE(report.failure.has_value());
}

TEST_P(JobFailures, AMissingFile)
{
    pictures.back() = folder / "nowhere.tif";
    expectFailure(run(), FailureKind::UnreadableFile, pictures.back());
}

TEST_P(JobFailures, AFileThatIsDamagedWhileTheJobRuns)
{
    const RunReport report = run({[&](const JobProgress& progress) {
                                      if (progress.step != JobStep::Check && progress.step != JobStep::Write)
                                          test::damage(pictures.back(), 0.01);
                                  },
                                  {}});
    expectFailure(report, FailureKind::UnreadableFile, pictures.back());
}

TEST_P(JobFailures, ACancel)
{
    const auto flag = std::make_shared<std::atomic<unsigned char>>(static_cast<unsigned char>(1));
    const RunReport report = run({{}, flag});
    EXPECT_EQ(report.outcome, JobOutcome::Cancelled);
    EXPECT_EQ(report.failure, cancelledFailure());
    EXPECT_EQ(report.message, "cancelled");
}

TEST_P(JobFailures, NotEnoughMemory)
{
    const RunReport report = run({[](const JobProgress& progress) {
                                      if (progress.step != JobStep::Check)
                                          throw std::bad_alloc();
                                  },
                                  {}});
    expectFailure(report, FailureKind::OutOfMemory, {});
    EXPECT_EQ(report.message, "there is not enough memory for pictures of this size");
}

TEST_P(JobFailures, AFullDisk)
{
    const test::SmallDisk disk(folder / "disk");
    if (!disk.mounted)
        GTEST_SKIP() << "no right to mount a small disk";
    std::ofstream(folder / "disk/filler") << std::string(60 * 1024, 'x'); // leaves space for a page
    output = folder / "disk/0.tif";
    const RunReport report = run();
    expectFailure(report, FailureKind::FullDisk, output);
    EXPECT_THAT(report.message, HasSubstr("space"));
}

INSTANTIATE_TEST_SUITE_P(Jobs, JobFailures, testing::ValuesIn(kJobs), nameOfJob);

class UnfittingPictures : public JobFailures
{};

TEST_P(UnfittingPictures, AreAFailureOfTheirOwnKind)
{
    pictures.back() = test::writtenTo(folder / "small.tif", *test::textured(60, 40));
    const RunReport report = run();
    EXPECT_EQ(report.outcome, JobOutcome::Failed);
    ASSERT_TRUE(report.failure.has_value());
    EXPECT_EQ(report.failure->kind, FailureKind::UnfittingPictures) << report.message;
}

INSTANTIATE_TEST_SUITE_P(Jobs, UnfittingPictures, testing::Values(kJobs[0], kJobs[1], kJobs[4]), nameOfJob);

TEST(JobRefusals, AreNoFailure)
{
    const HdrJobResult result = hdrJob({});
    EXPECT_EQ(result.outcome, JobOutcome::Refused);
    EXPECT_FALSE(result.failure.has_value());
}

TEST(FramesFailures, EachFileHasItsOwnReason)
{
    const test::TemporaryFolder folder;
    const Paths paths = {test::textFile(folder / "letter.tif"), folder / "nowhere.tif"};
    const FramesJobResult result = framesJob(paths);
    ASSERT_EQ(result.unreadable.size(), 2u);
    EXPECT_THAT(result.unreadable[0].reason, HasSubstr("letter.tif: expected a picture file"));
    EXPECT_THAT(result.unreadable[1].reason, HasSubstr("nowhere.tif: there is no such file"));
    ASSERT_TRUE(result.failure.has_value());
    EXPECT_EQ(result.failure->kind, FailureKind::UnreadableFile);
}

// Each thread runs a job repeatedly, which fails on its own file while reading.
TEST(TwoJobsAtATime, HaveTheirOwnReasons)
{
    constexpr int kAttempts = 20;
    const test::TemporaryFolder folder;
    const auto failing = [&](const std::string& name) {
        const auto path = folder / (name + ".tif");
        for (int attempt = 0; attempt < kAttempts; ++attempt) {
            test::writtenTo(path, *test::textured(60, 40));
            StackJobRequest request;
            request.frames = {path};
            request.output = folder / (name + "-out.tif");
            const StackJobResult result = stackJob(request, {[&](const JobProgress& progress) {
                                                                 if (progress.step == JobStep::Stack)
                                                                     test::textFile(path);
                                                             },
                                                             {}});
            ASSERT_EQ(result.outcome, JobOutcome::Failed);
            ASSERT_TRUE(result.failure.has_value());
            EXPECT_EQ(result.failure->file, path);
            EXPECT_EQ(result.failure->kind, FailureKind::UnreadableFile);
        }
    };
    std::thread other(failing, "other");
    failing("one");
    other.join();
}

// Of two jobs only the one that searches for faces warns that the detector is missing.
TEST(TwoJobsAtATime, HaveTheirOwnWarnings)
{
    constexpr int kAttempts = 10;
    const test::TemporaryFolder folder;
    orvosettings().set<std::string>("Faces.cascades", (folder / "nowhere").string());
    const auto warningsOf = [&](const std::string& name, bool faces) {
        UpscaleJobRequest request;
        request.source = test::writtenTo(folder / (name + ".tif"), *test::textured(160, 120));
        request.output = folder / (name + "-out.tif");
        request.faces = faces;
        std::vector<std::string> warnings;
        for (int attempt = 0; attempt < kAttempts; ++attempt) {
            const UpscaleJobResult result = upscaleJob(request);
            EXPECT_TRUE(result.done()) << result.message;
            warnings.insert(warnings.end(), result.warnings.begin(), result.warnings.end());
        }
        return warnings;
    };
    std::vector<std::string> withoutFaces;
    std::thread other([&] { withoutFaces = warningsOf("plain", false); });
    const std::vector<std::string> withFaces = warningsOf("faces", true);
    other.join();
    orvosettings().remove("Faces.cascades");
    EXPECT_THAT(withoutFaces, testing::IsEmpty());
    EXPECT_THAT(withFaces, testing::SizeIs(kAttempts));
    EXPECT_THAT(withFaces, testing::Each(HasSubstr("cannot search for faces")));
}

} // namespace
} // namespace orvo::jobs
