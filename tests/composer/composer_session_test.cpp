// An editor's session on every real set: order, thread, sizes and contexts of all results.
#include "composer_sets.hpp"

#include <orvo_io/image_writer.hpp>

#include <gmock/gmock.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <set>
#include <string>

using namespace orvo;
using namespace orvo::test;

namespace {

struct RealSet
{
    std::string name;
};

void PrintTo(const RealSet& set, std::ostream* out) { *out << set.name; }

class BracketSession : public ComposerTest
{};

class RealDataSession : public ComposerTest
{
protected:
    std::filesystem::path data;

    void SetUp() override
    {
        const char* const folder = std::getenv("ORVO_TEST_DATA");
        if (folder == nullptr)
            GTEST_SKIP() << "ORVO_TEST_DATA names no folder of real videos";
        data = folder;
        ComposerTest::SetUp();
    }
};

class ComposerSession : public RealDataSession, public testing::WithParamInterface<RealSet>
{
protected:
    [[nodiscard]] PanoSource source() const
    {
        PanoSource found;
        for (const auto& entry : std::filesystem::directory_iterator(data / "panorama" / GetParam().name))
            if (entry.path().extension() == ".jpg" || entry.path().extension() == ".JPG")
                found.files.push_back(entry.path());
        return found;
    }
};

// Writes a picture for inspection if ORVO_TEST_PICTURES names a folder.
void leave(const std::string& name, const _ImageData<PixelRGB<float>>& picture)
{
    const char* const folder = std::getenv("ORVO_TEST_PICTURES");
    if (folder == nullptr)
        return;
    const auto path = std::filesystem::path(folder) / (name + ".jpg");
    ImageWriteSettings settings = writeSettingsForPath(path);
    settings.profile = picture.colorProfile();
    writeImage(path, picture, settings);
}

// A session from the load to the finished picture.
void editWith(PanoramaPreviewComposer& composer, const std::string& name)
{
    Answers<RenderedData> mains;
    Answers<RenderedData> underlays;
    composer.setCallback([&](RenderedData render) { mains.add(std::move(render)); });
    composer.setUnderlayCallback([&](RenderedData render) { underlays.add(std::move(render)); });
    ASSERT_TRUE(loaded(composer).fits);
    leave(name + "_underlay", *underlays.first().image);
    const _Size<int> canvas = composer.getCanvasSize();
    const PreviewContext view{{750, 375}, {canvas.width / 4, canvas.height / 4, canvas.width / 2, canvas.height / 2}};
    composer.setContext(view);
    (void)mains.first();

    // A drag at the speed of a pointer.
    composer.startFastRender();
    for (int i = 1; i <= 200; ++i) {
        if (i % 2 == 0)
            composer.setShiftVector({0.0002f * static_cast<float>(i), 0.0001f * static_cast<float>(i)});
        else
            composer.setRotation(0.0005f * static_cast<float>(i));
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    composer.finishFastRender();
    settle(composer);
    const auto dragged = mains.all();
    EXPECT_LE(dragged.size(), 203u);
    std::cout << name << ": " << dragged.size() - 1 << " renders of 201 ran\n";
    for (const RenderedData& render : dragged) {
        EXPECT_EQ(render.context, view);
        EXPECT_EQ(render.image->size(), _Size<int>(std::min(750, view.roi.width), std::min(375, view.roi.height)));
        EXPECT_EQ(render.mask->size(), render.image->size());
    }
    leave(name + "_main", *dragged.back().image);

    for (const WarpType type : {WarpType::Cylindrical, WarpType::Fisheye, WarpType::Mercator, WarpType::Plane})
        composer.changeProjectionType(type);
    composer.changeProjectionType(WarpType::Cylindrical);
    settle(composer);
    leave(name + "_cylindrical", *underlays.all().back().image);
    const auto main = mains.threadsOfAnswers();
    const auto underlay = underlays.threadsOfAnswers();
    std::set<std::thread::id> threads(main.begin(), main.end());
    threads.insert(underlay.begin(), underlay.end());
    EXPECT_EQ(threads.size(), 1u);
    EXPECT_EQ(threads.count(std::this_thread::get_id()), 0u);

    const CropPreview crop = cropPreview(composer, {1500, 600});
    ASSERT_FALSE(crop.data.isPlaceholder);
    ASSERT_GT(crop.proposal.width, 50);
    ASSERT_GT(crop.proposal.height, 50);
    leave(name + "_crop_preview", *crop.data.image);
    PanoramaPreviewComposer::CropInfo info;
    info.context = {crop.data.image->size(), crop.data.context.roi};
    info.crop = cropOf(crop.proposal);
    info.crop.angle = 0.02f;
    const RenderedData preview = finalPreview(composer, info, {});
    ASSERT_FALSE(preview.isPlaceholder);
    EXPECT_EQ(preview.image->size(), crop.proposal.size());
    const RenderedData finished = finalized(composer, info);
    ASSERT_FALSE(finished.isPlaceholder);
    EXPECT_NEAR(static_cast<double>(finished.image->width()) / finished.image->height(),
                static_cast<double>(crop.proposal.width) / crop.proposal.height, 0.05);
    leave(name + "_finished", *finished.image);
}

} // namespace

TEST_P(ComposerSession, OfAnEditor)
{
    PanoramaPreviewComposer composer(source());
    editWith(composer, GetParam().name);
}

TEST_F(RealDataSession, OfAnEditor)
{
    for (const char* const name : {"campus_pan", "campus_pan_rot90"}) {
        SCOPED_TRACE(name);
        PanoSourceVideo source;
        source.file = data / "video" / name / (std::string(name) + ".mp4");
        source.end = 300;
        PanoramaPreviewComposer composer(source);
        editWith(composer, name);
    }
}

TEST_F(BracketSession, OfAnEditor)
{
    const TemporaryFolder folder;
    PanoSourceHDR source;
    source.hdr.alignment = true;
    const scenes::SphereScene scene(5);
    for (auto view : SmallFiles::views()) {
        source.brackets.emplace_back();
        for (const double ev : {-2.0, 0.0, 2.0}) {
            view.ev = ev;
            source.brackets.back().push_back(folder / (std::to_string(source.brackets.size()) + "_" +
                                                       std::to_string(source.brackets.back().size()) + ".jpg"));
            scenes::writeSphereView(scene, view, source.brackets.back().back());
        }
    }
    PanoramaPreviewComposer composer(source);
    editWith(composer, "brackets");
}

INSTANTIATE_TEST_SUITE_P(RealSets, ComposerSession,
                         testing::Values(RealSet{"weir"}, RealSet{"weir_stranger"}, RealSet{"roof_exposure"},
                                         RealSet{"ledge_vertical"}, RealSet{"map_grid"}, RealSet{"deck_360"},
                                         RealSet{"tower_library"}),
                         [](const auto& test) { return test.param.name; });
