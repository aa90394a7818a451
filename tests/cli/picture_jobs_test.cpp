// Jobs with one long step, in cases that the program cannot reach: progress, cancel and exceptions at every step.
#include "support/files.hpp"
#include "support/temporary_folder.hpp"

#include <jobs/label_job.hpp>
#include <jobs/stack_job.hpp>
#include <jobs/upscale_job.hpp>
#include <orvo_io/image_reader.hpp>
#include <orvo_io/settings.hpp>

#include <gmock/gmock.h>

#include <atomic>
#include <fstream>
#include <thread>

namespace orvo::jobs {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

struct Job
{
    const char* name;
    JobStep longStep;
    bool isOpaque; // that step
    RunReport (*run)(const test::TemporaryFolder& folder, const std::vector<std::filesystem::path>& frames,
                     const JobCallbacks& callbacks);
};

constexpr Job kJobs[] = {
    {"stack", JobStep::Stack, false,
     [](const auto& folder, const auto& frames, const JobCallbacks& callbacks) -> RunReport {
         StackJobRequest request;
         request.frames = frames;
         request.output = folder / "out.tif";
         return stackJob(request, callbacks);
     }},
    {"label", JobStep::Label, true,
     [](const auto& folder, const auto& frames, const JobCallbacks& callbacks) -> RunReport {
         LabelJobRequest request;
         request.frames = frames;
         request.folder = folder / "out";
         return labelJob(request, callbacks);
     }},
    {"upscale", JobStep::Upscale, false,
     [](const auto& folder, const auto& frames, const JobCallbacks& callbacks) -> RunReport {
         UpscaleJobRequest request;
         request.source = frames.front();
         request.output = folder / "out.tif";
         return upscaleJob(request, callbacks);
     }},
};

class PictureJobs : public testing::TestWithParam<Job>
{
protected:
    PictureJobs()
    {
        for (int i = 0; i < 3; ++i)
            frames.push_back(test::writtenTo(folder / (std::to_string(i) + ".tif"), *test::textured(160, 120, i)));
    }

    [[nodiscard]] std::size_t filesInFolder() const
    {
        return static_cast<std::size_t>(
            std::distance(std::filesystem::directory_iterator(folder.path()), std::filesystem::directory_iterator()));
    }

    [[nodiscard]] RunReport run(const JobCallbacks& callbacks) const
    {
        return GetParam().run(folder, frames, callbacks);
    }

    test::TemporaryFolder folder;
    std::vector<std::filesystem::path> frames;
};

TEST_P(PictureJobs, ReportsStepsAndFractionsInOrder)
{
    std::vector<JobStep> steps;
    std::vector<double> fractions;
    const RunReport report =
        run({[&](const JobProgress& progress) {
                 if (steps.empty() || steps.back() != progress.step)
                     steps.push_back(progress.step);
                 fractions.push_back(progress.fraction);
                 EXPECT_EQ(progress.opaque, GetParam().isOpaque && progress.step == GetParam().longStep);
             },
             {}});
    ASSERT_TRUE(report.done()) << report.message;
    EXPECT_THAT(steps, ElementsAre(JobStep::Check, GetParam().longStep, JobStep::Write));
    EXPECT_TRUE(std::is_sorted(fractions.begin(), fractions.end()));
    EXPECT_EQ(fractions.front(), 0.0);
    EXPECT_EQ(fractions.back(), 1.0);
    EXPECT_EQ(report.steps.size(), steps.size());
    EXPECT_THAT(report.message, IsEmpty());
}

TEST_P(PictureJobs, CancelAtAnyStepLeavesNothing)
{
    const std::size_t before = filesInFolder();
    for (const JobStep step : {JobStep::Check, GetParam().longStep, JobStep::Write}) {
        SCOPED_TRACE(stepName(step));
        const auto flag = std::make_shared<std::atomic<unsigned char>>(static_cast<unsigned char>(0));
        const RunReport report = run({[&](const JobProgress& progress) {
                                          if (progress.step == step)
                                              *flag = 1;
                                      },
                                      flag});
        EXPECT_EQ(report.outcome, JobOutcome::Cancelled);
        EXPECT_EQ(report.message, "cancelled");
        EXPECT_EQ(report.steps.back().step, step) << "it went on";
        EXPECT_EQ(filesInFolder(), before);
    }
}

TEST_P(PictureJobs, ExceptionOfACallbackFailsTheJob)
{
    const std::size_t before = filesInFolder();
    for (const JobStep step : {JobStep::Check, GetParam().longStep, JobStep::Write}) {
        SCOPED_TRACE(stepName(step));
        const RunReport report = run({[&](const JobProgress& progress) {
                                          if (progress.step == step)
                                              throw std::runtime_error("the window was closed");
                                      },
                                      {}});
        EXPECT_EQ(report.outcome, JobOutcome::Failed);
        EXPECT_THAT(report.message, HasSubstr("the window was closed"));
        EXPECT_EQ(filesInFolder(), before);
    }
}

void PrintTo(const Job& job, std::ostream* out) { *out << job.name; }

std::string nameOfJob(const testing::TestParamInfo<Job>& tested) { return tested.param.name; }

INSTANTIATE_TEST_SUITE_P(Jobs, PictureJobs, testing::ValuesIn(kJobs), nameOfJob);

TEST(StackJob, RefusesInvalidRequests)
{
    const test::TemporaryFolder folder;
    StackJobRequest request;
    request.frames = {test::writtenTo(folder / "a.tif", *test::textured(60, 40))};
    request.output = folder / "out.tif";
    const auto refused = [&](auto change, const char* reason) {
        StackJobRequest changed = request;
        change(changed);
        const StackJobResult result = stackJob(changed);
        EXPECT_EQ(result.outcome, JobOutcome::Refused) << reason;
        EXPECT_THAT(result.message, HasSubstr(reason));
    };
    refused([](StackJobRequest& r) { r.frames.clear(); }, "no picture files");
    refused([](StackJobRequest& r) { r.output.clear(); }, "empty");
    refused([](StackJobRequest& r) { r.reference = 1; }, "number 2, but only 1 was given");
    refused([](StackJobRequest& r) { r.deghost = static_cast<DeghostAmount>(5); }, "is 5, expected 0 to 4");
    refused(
        [](StackJobRequest& r) {
            r.align = false;
            r.reference = 0;
        },
        "neither alignment");
}

TEST(StackJob, UsesTheRequestedProfile)
{
    const test::TemporaryFolder folder;
    StackJobRequest request;
    request.frames = {test::writtenTo(folder / "a.tif", *test::textured(60, 40)),
                      test::writtenTo(folder / "b.tif", *test::textured(60, 40))};
    request.output = folder / "out.tif";
    EXPECT_EQ(stackJob(request).profile, ColorProfileType::melissaRGB()->description());
    request.profile = ColorProfileType::sRGB();
    EXPECT_EQ(stackJob(request).profile, ColorProfileType::sRGB()->description());
    EXPECT_EQ(ImageReader::readMetadata(request.output)->fileProfile->hash(), ColorProfileType::sRGB()->hash());
}

TEST(LabelJob, WrittenPicturesRemainIfALaterOneFails)
{
    const test::TemporaryFolder folder;
    LabelJobRequest request;
    request.frames = {test::writtenTo(folder / "a.tif", *test::textured(160, 120)),
                      test::writtenTo(folder / "b.tif", *test::textured(160, 120))};
    request.folder = folder / "deep/out";
    int pictures = 0;
    const LabelJobResult result = labelJob(request, {[&](const JobProgress& progress) {
                                                         // The start of the step, then each completed picture.
                                                         if (progress.step == JobStep::Write && ++pictures == 3)
                                                             throw std::runtime_error("stop");
                                                     },
                                                     {}});
    EXPECT_EQ(result.outcome, JobOutcome::Failed);
    ASSERT_EQ(result.frames.size(), 1u);
    EXPECT_TRUE(std::filesystem::exists(folder / "deep/out/a.jpg"));
    EXPECT_FALSE(std::filesystem::exists(folder / "deep/out/b.jpg"));
}

TEST(LabelJob, NeedsMemoryForAllFramesAndOneMorePicture)
{
    const test::TemporaryFolder folder;
    LabelJobRequest request;
    constexpr int kWidth = 480;
    constexpr int kHeight = 360;
    constexpr std::uint64_t kFrames = 6;
    constexpr std::uint64_t kFrame = std::uint64_t{kWidth} * kHeight * sizeof(PixelRGB<float>);
    for (std::uint64_t i = 0; i < kFrames; ++i)
        request.frames.push_back(
            test::writtenTo(folder / (std::to_string(i) + ".tif"), *test::textured(kWidth, kHeight)));
    request.folder = folder / "out";
    const LabelJobResult result = labelJob(request);
    ASSERT_TRUE(result.done()) << result.message;
    EXPECT_GE(result.peak.planes, (kFrames + 1) * kFrame);
    EXPECT_LT(result.peak.planes, (kFrames + 1) * kFrame + kFrame / 2) << "plus rows and other small buffers";
}

class UpscaleJob : public testing::Test
{
protected:
    UpscaleJob()
    {
        request.source = test::writtenTo(folder / "a.tif", *test::textured(60, 40));
        request.output = folder / "out.tif";
    }

    test::TemporaryFolder folder;
    UpscaleJobRequest request;
};

TEST_F(UpscaleJob, RefusesInvalidRequests)
{
    const auto refused = [&](auto change, const char* reason) {
        UpscaleJobRequest changed = request;
        change(changed);
        const UpscaleJobResult result = upscaleJob(changed);
        EXPECT_EQ(result.outcome, JobOutcome::Refused) << reason;
        EXPECT_THAT(result.message, HasSubstr(reason));
    };
    refused([](UpscaleJobRequest& r) { r.source.clear(); }, "empty");
    refused([](UpscaleJobRequest& r) { r.passes = 0; }, "is 0, expected 1 to 4");
    refused([](UpscaleJobRequest& r) { r.passes = 5; }, "is 5, expected 1 to 4");
    refused([](UpscaleJobRequest& r) { r.denoise = 4; }, "is 4, expected 0 to 3");
    refused(
        [](UpscaleJobRequest& r) {
            r.model = "network.onnx";
            r.builtIn = true;
        },
        "built-in");
}

TEST_F(UpscaleJob, LeavesTheSettingsOfTheProcess)
{
    request.model = folder / "network.onnx";
    std::ofstream(request.model) << "no network";
    for (const std::string before : {"", "/elsewhere.onnx"}) {
        if (!before.empty())
            orvosettings().set<std::string>("Upscale.model", before);
        EXPECT_EQ(upscaleJob(request).outcome, JobOutcome::Failed);
        EXPECT_EQ(orvosettings().get<std::string>("Upscale.model", ""), before);
    }
    orvosettings().remove("Upscale.model");
}

TEST_F(UpscaleJob, BuiltInFiltersReplaceTheConfiguredNetwork)
{
    orvosettings().set<std::string>("Upscale.model", "/nowhere.onnx");
    EXPECT_EQ(upscaleJob(request).outcome, JobOutcome::Failed);
    request.builtIn = true;
    const UpscaleJobResult result = upscaleJob(request);
    orvosettings().remove("Upscale.model");
    EXPECT_TRUE(result.done()) << result.message;
    EXPECT_EQ(result.size, (_Size<int>{120, 80}));
    EXPECT_EQ(result.sourceSize, (_Size<int>{60, 40}));
}

TEST_F(UpscaleJob, ProgressMovesAllTheTime)
{
    request.source = test::writtenTo(folder / "a.tif", *test::textured(240, 160));
    request.passes = 2;
    request.crisp = true;
    request.faces = false;
    const auto caller = std::this_thread::get_id();
    for (const int threads : {1, 2}) {
        request.threads = threads;
        std::vector<double> fractions;
        const UpscaleJobResult result = upscaleJob(request, {[&](const JobProgress& progress) {
                                                                 EXPECT_EQ(std::this_thread::get_id(), caller);
                                                                 if (progress.step == JobStep::Upscale)
                                                                     fractions.push_back(progress.fraction);
                                                             },
                                                             {}});
        ASSERT_TRUE(result.done()) << result.message;
        EXPECT_TRUE(std::is_sorted(fractions.begin(), fractions.end()));
        if (threads > 1)
            continue; // how much of the loops the calling thread runs depends on the machine
        constexpr double kLargestStep = 0.1;
        for (std::size_t i = 1; i < fractions.size(); ++i)
            EXPECT_LE(fractions[i] - fractions[i - 1], kLargestStep) << fractions[i];
        EXPECT_GT(fractions.back(), 0.8);
    }
}

TEST_F(UpscaleJob, CanBeCancelledWhileEnlarging)
{
    request.source = test::writtenTo(folder / "a.tif", *test::textured(240, 160));
    request.passes = 2;
    request.faces = false;
    request.threads = 1;
    const auto flag = std::make_shared<std::atomic<unsigned char>>(0);
    double last = 0.0;
    const UpscaleJobResult result = upscaleJob(request, {[&](const JobProgress& progress) {
                                                             last = progress.fraction;
                                                             if (progress.fraction > 0.1)
                                                                 *flag = 1;
                                                         },
                                                         flag});
    EXPECT_EQ(result.outcome, JobOutcome::Cancelled);
    EXPECT_LT(last, 0.6) << "it went on";
    EXPECT_FALSE(std::filesystem::exists(request.output));
}

} // namespace
} // namespace orvo::jobs
