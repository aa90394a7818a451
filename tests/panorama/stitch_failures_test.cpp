// lastFailure() of stitchPanorama.
#include "support/failures.hpp"
#include "support/pictures.hpp"
#include "support/temporary_folder.hpp"

#include <orvo_core/parallel.hpp>
#include <orvo_extensions/panorama.hpp>
#include <scenes/sphere_view_files.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace orvo;
using namespace orvo::test;
using testing::HasSubstr;

namespace {

class StitchFailures : public testing::Test
{
protected:
    StitchFailures()
    {
        scenes::SphereView view;
        view.size = {300, 220};
        view.focal = 300.0;
        const auto views = scenes::rowOfViews(2, 20.0, 3.0, view, 1.0, 7);
        for (std::size_t i = 0; i < views.size(); ++i)
            source.files.push_back(written(std::to_string(i) + ".tif", 1, views[i]));
    }

    std::filesystem::path written(const std::string& name, std::uint64_t scene, const scenes::SphereView& view)
    {
        scenes::writeSphereView(scenes::SphereScene(scene), view, folder / name, {.noiseSeed = 1});
        return folder / name;
    }

    bool stitches(const std::function<bool()>& cancel = {}, const std::function<void(float)>& progress = {},
                  WarpType projection = WarpType::Spherical) const
    {
        testing::internal::CaptureStderr(); // the provider also reports unreadable files there
        const bool result = stitchPanorama(source, {projection, 200}, progress, cancel).image != nullptr;
        (void)testing::internal::GetCapturedStderr();
        return result;
    }

    TemporaryFolder folder;
    PanoSource source;
};

} // namespace

TEST_F(StitchFailures, ThereIsNoneIfThereIsAResult)
{
    ASSERT_TRUE(stitches());
    EXPECT_FALSE(lastFailure().has_value());
}

TEST_F(StitchFailures, FilesThatCannotBeRead)
{
    source.files.push_back(folder / "nowhere.tif");
    EXPECT_FALSE(stitches());
    expectLastFailure(FailureKind::UnreadableFile, folder / "nowhere.tif");
    source.files.back() = textFile(folder / "letter.tif");
    EXPECT_FALSE(stitches());
    expectLastFailure(FailureKind::UnreadableFile, folder / "letter.tif");
    source.files.pop_back();
    damage(source.files[0], 0.02);
    EXPECT_FALSE(stitches());
    expectLastFailure(FailureKind::UnreadableFile, source.files[0]);
}

TEST_F(StitchFailures, PicturesThatDoNotFit)
{
    scenes::SphereView view;
    view.size = {300, 220};
    view.focal = 300.0;
    source.files[1] = written("stranger.tif", 99, view);
    EXPECT_FALSE(stitches());
    expectLastFailure(FailureKind::UnfittingPictures);
    EXPECT_THAT(lastFailure()->sentence, HasSubstr("do not fit together"));
    source.files.resize(1);
    EXPECT_FALSE(stitches());
    expectLastFailure(FailureKind::UnfittingPictures);
}

TEST_F(StitchFailures, NoFiles)
{
    source.files.clear();
    EXPECT_FALSE(stitches());
    expectLastFailure(FailureKind::Internal);
}

TEST_F(StitchFailures, CancelledAtTheStartAndHalfWay)
{
    int polls = 0;
    ASSERT_TRUE(stitches([&] {
        ++polls;
        return false;
    }));
    const int all = polls;
    for (const int last : {1, all / 2, all}) {
        polls = 0;
        EXPECT_FALSE(stitches([&] { return ++polls == last; })) << last;
        expectLastFailure(FailureKind::Cancelled);
    }
}

TEST_F(StitchFailures, NotEnoughMemory)
{
    if (!kAllocationsCanFail)
        GTEST_SKIP() << "allocations cannot fail under the thread sanitizer";
    EXPECT_FALSE(stitches({}, [](float) { throw std::bad_alloc(); }));
    expectLastFailure(FailureKind::OutOfMemory);
    const auto runOutAt = [](float from) { return [from](float share) { allocationsLeft = share >= from ? 0 : -1; }; };
    for (const float from : {0.1f, 0.3f, 0.6f, 0.65f}) {
        const bool result = stitches({}, runOutAt(from));
        allocationsLeft = -1;
        EXPECT_FALSE(result) << from;
        expectLastFailure(FailureKind::OutOfMemory, lastFailure() ? lastFailure()->file : std::filesystem::path());
    }
}

TEST_F(StitchFailures, WhatACallbackThrows)
{
    EXPECT_FALSE(stitches({}, [](float) { throw std::runtime_error("the window was closed"); }));
    EXPECT_EQ(lastFailure(), (Failure{FailureKind::Internal, {}, "the window was closed"}));
}
