// The panorama job in cases that the program cannot reach: progress, cancel and exceptions at every report.
#include "support/temporary_folder.hpp"

#include <jobs/pano_job.hpp>
#include <orvo_io/image_reader.hpp>
#include <orvo_io/image_writer.hpp>
#include <scenes/sphere_view_files.hpp>

#include <gmock/gmock.h>

#include <algorithm>

namespace orvo::jobs {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

class PanoJob : public testing::Test
{
protected:
    PanoJob()
    {
        scenes::SphereView view;
        view.size = {400, 300};
        view.focal = 400.0;
        const auto views = scenes::rowOfViews(3, 22.0, 3.0, view, 1.0, 7);
        for (std::size_t i = 0; i < views.size(); ++i) {
            request.files.push_back(folder / (std::to_string(i) + ".tif"));
            scenes::writeSphereView(scenes::SphereScene(), views[i], request.files.back(), {.noiseSeed = i + 1});
        }
        request.output = folder / "out.tif";
        request.maxSize = 300;
    }

    [[nodiscard]] std::ptrdiff_t filesInFolder() const
    {
        return std::distance(std::filesystem::directory_iterator(folder.path()), std::filesystem::directory_iterator());
    }

    test::TemporaryFolder folder;
    PanoJobRequest request;
};

TEST_F(PanoJob, ReportsStepsAndFractionsInOrder)
{
    std::vector<JobStep> steps;
    std::vector<double> fractions;
    const PanoJobResult result = panoJob(request, {[&](const JobProgress& progress) {
                                                       if (steps.empty() || steps.back() != progress.step)
                                                           steps.push_back(progress.step);
                                                       fractions.push_back(progress.fraction);
                                                   },
                                                   {}});
    ASSERT_TRUE(result.done()) << result.message;
    EXPECT_THAT(steps, ElementsAre(JobStep::Check, JobStep::Stitch, JobStep::Write));
    EXPECT_TRUE(std::is_sorted(fractions.begin(), fractions.end()));
    EXPECT_EQ(fractions.front(), 0.0);
    EXPECT_EQ(fractions.back(), 1.0);
    EXPECT_GE(fractions.size(), 8u) << "a bar that does not move looks stuck";
    EXPECT_THAT(result.message, IsEmpty());
    EXPECT_THAT(result.warnings, IsEmpty());
    EXPECT_EQ(result.places.size(), 3u);
}

TEST_F(PanoJob, APictureTooLongToBeDrawnIsRefusedByName)
{
    const _ImageData<PixelRGB<float>> ribbon({33000, 8}, ColorProfileType::sRGB());
    ASSERT_TRUE(writeImage(folder / "ribbon.png", ribbon, writeSettingsForPath("ribbon.png")));
    request.files.push_back(folder / "ribbon.png");
    const PanoJobResult result = panoJob(request, {});
    EXPECT_EQ(result.outcome, JobOutcome::Failed);
    ASSERT_TRUE(result.failure);
    EXPECT_EQ(result.failure->kind, FailureKind::UnfittingPictures);
    EXPECT_THAT(result.message, testing::AllOf(HasSubstr("ribbon.png"), HasSubstr("33000 x 8"), HasSubstr("32766")));
}

TEST_F(PanoJob, CancelOrExceptionAtAnyReportLeavesNothing)
{
    const auto before = filesInFolder();
    int reports = 0;
    ASSERT_TRUE(panoJob(request, {[&](const JobProgress&) { ++reports; }, {}}).done());
    std::filesystem::remove(request.output);
    for (int last = 1; last <= reports; ++last) {
        SCOPED_TRACE(last);
        const auto flag = std::make_shared<std::atomic<unsigned char>>(static_cast<unsigned char>(0));
        int count = 0;
        const PanoJobResult cancelled = panoJob(request, {[&](const JobProgress&) {
                                                              if (++count == last)
                                                                  *flag = 1;
                                                          },
                                                          flag});
        EXPECT_EQ(cancelled.outcome, last == reports ? JobOutcome::Done : JobOutcome::Cancelled);
        std::filesystem::remove(request.output);
        EXPECT_EQ(filesInFolder(), before);

        count = 0;
        const PanoJobResult thrown = panoJob(request, {[&](const JobProgress&) {
                                                           if (++count == last)
                                                               throw std::runtime_error("the window was closed");
                                                       },
                                                       {}});
        EXPECT_EQ(thrown.outcome, JobOutcome::Failed);
        EXPECT_THAT(thrown.message, HasSubstr("the window was closed"));
        EXPECT_EQ(filesInFolder(), before);
    }
}

TEST_F(PanoJob, RefusesValuesOutOfRange)
{
    const auto refused = [&](auto change, const char* reason) {
        PanoJobRequest changed = request;
        change(changed);
        const PanoJobResult result = panoJob(changed);
        EXPECT_EQ(result.outcome, JobOutcome::Refused) << reason;
        EXPECT_THAT(result.message, HasSubstr(reason));
    };
    refused([](PanoJobRequest& r) { r.files.clear(); }, "no picture files");
    refused([](PanoJobRequest& r) { r.files.resize(1); }, "two pictures or more");
    refused([](PanoJobRequest& r) { r.output.clear(); }, "empty");
    refused([](PanoJobRequest& r) { r.maxSize = -1; }, "is -1, expected 1 to 32000");
    refused([](PanoJobRequest& r) { r.maxSize = 32001; }, "is 32001, expected 1 to 32000");
}

TEST_F(PanoJob, FailureReportsThePlaces)
{
    scenes::SphereView high;
    high.size = {400, 300};
    high.focal = 400.0;
    request.files.resize(1);
    request.files.push_back(folder / "elsewhere.tif");
    scenes::writeSphereView(scenes::SphereScene(99), high, request.files.back());
    const PanoJobResult result = panoJob(request);
    EXPECT_EQ(result.outcome, JobOutcome::Failed);
    EXPECT_THAT(result.message, HasSubstr("do not fit together"));
    ASSERT_EQ(result.places.size(), 2u);
    for (const PanoramaPlace& place : result.places)
        EXPECT_FALSE(place.placed);
    EXPECT_THAT(result.warnings, IsEmpty()) << "the message contains it";
}

} // namespace
} // namespace orvo::jobs
