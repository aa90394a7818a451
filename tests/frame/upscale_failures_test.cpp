// lastFailure() of upscaleAI.
#include "frame/upscale_ai.hpp"
#include "support/failures.hpp"
#include "support/files.hpp"
#include "support/temporary_folder.hpp"

#include <orvo_core/parallel.hpp>
#include <orvo_io/settings.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <opencv2/core.hpp>

using namespace orvo;
using namespace orvo::test;
using testing::HasSubstr;

namespace {

class UpscaleFailures : public testing::Test
{
protected:
    TemporaryFolder folder;
    std::filesystem::path source = writtenTo(folder / "source.tif", *textured(60, 40));

    static bool upscales(const std::filesystem::path& path, const UpscaleAISettings& settings = {},
                         const StateSettings& state = {})
    {
        return upscaleAI(path, settings, state, {}) != nullptr;
    }
};

} // namespace

TEST_F(UpscaleFailures, ThereIsNoneIfThereIsAResult)
{
    ASSERT_TRUE(upscales(source));
    EXPECT_FALSE(lastFailure().has_value());
}

TEST_F(UpscaleFailures, FilesThatAreNoPictures)
{
    const auto sentenceOf = [](const std::filesystem::path& path) {
        EXPECT_FALSE(upscales(path));
        expectLastFailure(FailureKind::UnreadableFile, path);
        return lastFailure()->sentence;
    };
    EXPECT_EQ(sentenceOf(folder / "nowhere.jpg"), "there is no such file");
    EXPECT_THAT(sentenceOf(folder.path()), HasSubstr("folder"));
    EXPECT_THAT(sentenceOf(textFile(folder / "letter.jpg")), HasSubstr("something else"));
}

TEST_F(UpscaleFailures, ADamagedFile)
{
    damage(source, 0.02);
    EXPECT_FALSE(upscales(source));
    expectLastFailure(FailureKind::UnreadableFile, source);
}

TEST_F(UpscaleFailures, CancelledAtAnyPoll)
{
    int polls = 0;
    StateSettings state;
    state.canceled = [&] {
        ++polls;
        return false;
    };
    ASSERT_TRUE(upscales(source, {}, state));
    const int all = polls;
    ASSERT_GT(all, 1);
    for (int last = 1; last <= all; ++last) {
        polls = 0;
        state.canceled = [&] { return ++polls >= last; };
        EXPECT_FALSE(upscales(source, {}, state));
        expectLastFailure(FailureKind::Cancelled);
    }
}

TEST_F(UpscaleFailures, AResultThatIsTooLarge)
{
    UpscaleAISettings settings;
    settings.passes = 4;
    source = writtenTo(folder / "large.tif", *plain(2400, 1700, 0.4f));
    EXPECT_FALSE(upscales(source, settings));
    expectLastFailure(FailureKind::UnfittingPictures);
    EXPECT_EQ(upscaledSize({2400, 1700}, settings), (_Size<int>()));
    expectLastFailure(FailureKind::UnfittingPictures);
}

TEST_F(UpscaleFailures, ASettingOutOfRange)
{
    UpscaleAISettings settings;
    settings.passes = 9;
    EXPECT_FALSE(upscales(source, settings));
    expectLastFailure(FailureKind::Internal);
    EXPECT_THAT(lastFailure()->sentence, HasSubstr("passes is 9"));
}

TEST_F(UpscaleFailures, ANetworkThatCannotBeUsed)
{
    const auto model = textFile(folder / "letter.onnx");
    orvosettings().set<std::string>("Upscale.model", model.string());
    EXPECT_FALSE(upscales(source));
    orvosettings().remove("Upscale.model");
    expectLastFailure(FailureKind::UnreadableFile, model);
}

TEST_F(UpscaleFailures, NotEnoughMemory)
{
    const WorkerLimit limit(1);
    UpscaleAISettings settings;
    settings.faces = false;
    expectOutOfMemory([&] { return upscales(source, settings); });
    auto steps = UpscaleSteps::ofTheLibrary();
    steps.sharpenFaces = [](const auto&) -> UpscaleSteps::PicturePointer {
        throw cv::Exception(cv::Error::StsNoMem, "no memory", "f", "f.cpp", 1);
    };
    EXPECT_FALSE(upscaleWith(steps, source, {}, {}, {}));
    expectLastFailure(FailureKind::OutOfMemory);
}

TEST_F(UpscaleFailures, AnUpscalingWithoutAReason)
{
    auto steps = UpscaleSteps::ofTheLibrary();
    steps.upscale = [](const auto&, const auto&) { return UpscaleSteps::PicturePointer(); };
    EXPECT_FALSE(upscaleWith(steps, source, {}, {}, {}));
    expectLastFailure(FailureKind::Internal, source);
}
