// The merge job, in cases that the program cannot reach: callbacks, profiles, cancel at every step.
#include "ghost_reference.hpp"
#include "support/files.hpp"
#include "support/temporary_folder.hpp"

#include <jobs/hdr_job.hpp>
#include <orvo_io/image_reader.hpp>
#include <scenes/bracket_files.hpp>

#include <gmock/gmock.h>

#include <limits>

namespace orvo::jobs {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

class HdrJob : public testing::Test
{
protected:
    HdrJob()
    {
        for (const float gain : {0.4f, 0.8f, 1.4f})
            request.frames.push_back(
                test::writtenTo(folder / (std::to_string(request.frames.size()) + ".tif"), *test::texturedAt(gain)));
        request.output = folder / "out.tif";
    }

    [[nodiscard]] std::size_t filesInFolder() const
    {
        return static_cast<std::size_t>(
            std::distance(std::filesystem::directory_iterator(folder.path()), std::filesystem::directory_iterator()));
    }

    /// Runs the job; `atStep` is called whenever `step` is reported.
    HdrJobResult runAndAt(JobStep step, const std::function<void()>& atStep,
                          const std::shared_ptr<std::atomic<unsigned char>>& cancelFlag = {})
    {
        return hdrJob(request, {[&](const JobProgress& progress) {
                                    if (progress.step == step)
                                        atStep();
                                },
                                cancelFlag});
    }

    static constexpr JobStep kSteps[] = {JobStep::Check, JobStep::Load,   JobStep::Ladder,
                                         JobStep::Blend, JobStep::Finish, JobStep::Write};
    test::TemporaryFolder folder;
    HdrJobRequest request;
};

TEST_F(HdrJob, ReportsStepsAndFractionsInOrder)
{
    std::vector<JobStep> steps;
    std::vector<double> fractions;
    const HdrJobResult result = hdrJob(request, {[&](const JobProgress& progress) {
                                                     if (steps.empty() || steps.back() != progress.step)
                                                         steps.push_back(progress.step);
                                                     fractions.push_back(progress.fraction);
                                                 },
                                                 {}});
    ASSERT_TRUE(result.done()) << result.message;
    EXPECT_THAT(steps, testing::ElementsAreArray(kSteps));
    EXPECT_TRUE(std::is_sorted(fractions.begin(), fractions.end()));
    EXPECT_EQ(fractions.front(), 0.0);
    EXPECT_EQ(fractions.back(), 1.0);
    EXPECT_EQ(result.steps.size(), std::size(kSteps));
    EXPECT_THAT(result.message, IsEmpty());
}

TEST_F(HdrJob, CancelAtAnyStepLeavesNothing)
{
    const std::size_t before = filesInFolder();
    for (const JobStep step : kSteps) {
        SCOPED_TRACE(stepName(step));
        const auto flag = std::make_shared<std::atomic<unsigned char>>(static_cast<unsigned char>(0));
        bool lateInWrite = false; // Write reports last when the file is complete
        const HdrJobResult result = runAndAt(
            step,
            [&] {
                lateInWrite = *flag != 0;
                *flag = 1;
            },
            flag);
        EXPECT_FALSE(lateInWrite && step == JobStep::Write);
        EXPECT_EQ(result.outcome, JobOutcome::Cancelled);
        EXPECT_EQ(result.message, "cancelled");
        EXPECT_EQ(filesInFolder(), before);
    }
}

TEST_F(HdrJob, ExceptionOfACallbackFailsTheJob)
{
    const std::size_t before = filesInFolder();
    for (const JobStep step : kSteps) {
        SCOPED_TRACE(stepName(step));
        const HdrJobResult result = runAndAt(step, [] { throw std::runtime_error("the window was closed"); });
        EXPECT_EQ(result.outcome, JobOutcome::Failed);
        EXPECT_THAT(result.message, HasSubstr("the window was closed"));
        EXPECT_EQ(filesInFolder(), before);
        EXPECT_EQ(result.steps.back().step, step);
    }
}

TEST_F(HdrJob, TakesTheProfileOfTheFrames) // which are in the working space
{
    const HdrJobResult result = hdrJob(request);
    ASSERT_TRUE(result.done()) << result.message;
    EXPECT_EQ(result.profile, ColorProfileType::melissaRGB()->description());
    EXPECT_EQ(ImageReader::readMetadata(request.output)->fileProfile->hash(), ColorProfileType::melissaRGB()->hash());
}

TEST_F(HdrJob, UsesTheRequestedProfile)
{
    request.profile = ColorProfileType::sRGB();
    const HdrJobResult result = hdrJob(request);
    ASSERT_TRUE(result.done()) << result.message;
    EXPECT_EQ(ImageReader::readMetadata(request.output)->fileProfile->hash(), ColorProfileType::sRGB()->hash());
}

TEST_F(HdrJob, RefusesInvalidRequests)
{
    const auto refused = [&](auto change, const char* reason) {
        HdrJobRequest changed = request;
        change(changed);
        const HdrJobResult result = hdrJob(changed);
        EXPECT_EQ(result.outcome, JobOutcome::Refused) << reason;
        EXPECT_THAT(result.message, HasSubstr(reason));
    };
    refused([](HdrJobRequest& r) { r.frames.clear(); }, "no picture files");
    refused([](HdrJobRequest& r) { r.output.clear(); }, "empty");
    refused([](HdrJobRequest& r) { r.deghost = static_cast<DeghostAmount>(5); }, "is 5, expected 0 to 4");
    refused([](HdrJobRequest& r) { r.whiteBalance = std::numeric_limits<float>::quiet_NaN(); }, "white balance");
    refused([](HdrJobRequest& r) { r.details = -0.1f; }, "detail");
    refused(
        [](HdrJobRequest& r) {
            r.output = "a.jpg";
            r.jpegQuality = 0;
        },
        "quality is 0");
    EXPECT_EQ(filesInFolder(), request.frames.size());
}

TEST_F(HdrJob, GhostReferenceIsAnIndexFromZero)
{
    request.deghost = DeghostAmount::Medium;
    request.ghostReference = 2;
    EXPECT_TRUE(hdrJob(request).done());
    request.ghostReference = 3;
    EXPECT_EQ(hdrJob(request).outcome, JobOutcome::Refused);
}

TEST_F(HdrJob, TheGhostReferenceIsNearTheMiddleAndShowsMost)
{
    const auto written = [&](const std::string& prefix, const std::vector<double>& evs) {
        scenes::BracketRecipe recipe;
        recipe.scene.size = {240, 160};
        recipe.evs = evs;
        scenes::BracketFileSettings settings;
        settings.prefix = prefix;
        std::vector<BracketFrame> frames;
        for (const auto& path : scenes::writeBracket(scenes::Bracket(recipe), folder.path(), settings))
            frames.push_back({path, frames.size() + 1, 0.0f});
        return frames;
    };
    EXPECT_EQ(ghostReferenceOf(written("even", {-2, 0, 2})), 1u) << "the middle, where it is as good as any";
    EXPECT_EQ(ghostReferenceOf(written("bright", {-1, 1, 5, 7})), 1u) << "the middle one is clipped";
    EXPECT_EQ(ghostReferenceOf(written("dark", {-12, -10, -8, 0})), 3u) << "the middle one is nearly black";
    EXPECT_EQ(ghostReferenceOf({{folder.path() / "none.jpg", 1, 0.0f}, {folder.path() / "gone.jpg", 2, 0.0f}}), 1u);
}

TEST_F(HdrJob, BracketsOfAPanoramaHaveTheirGhostReferenceFirst)
{
    scenes::BracketRecipe recipe;
    recipe.scene.size = {240, 160};
    recipe.evs = {2, -2, 0};
    scenes::BracketFileSettings settings;
    settings.prefix = "shuffled";
    const auto bracket = scenes::writeBracket(scenes::Bracket(recipe), folder.path(), settings);
    EXPECT_EQ(withGhostReferenceFirst(bracket),
              (std::vector<std::filesystem::path>{bracket[2], bracket[0], bracket[1]}));
    const std::vector<std::filesystem::path> missing{folder.path() / "none.jpg", folder.path() / "gone.jpg"};
    EXPECT_EQ(withGhostReferenceFirst(missing), missing);
}

TEST_F(HdrJob, RelativePathsUseTheWorkingFolder)
{
    const auto before = std::filesystem::current_path();
    std::filesystem::current_path(folder.path());
    request.frames = {"0.tif", "1.tif", "2.tif"};
    request.output = "relative.png";
    const HdrJobResult result = hdrJob(request);
    std::filesystem::current_path(before);
    EXPECT_TRUE(result.done()) << result.message;
    EXPECT_TRUE(std::filesystem::exists(folder / "relative.png"));
}

} // namespace
} // namespace orvo::jobs
