#include "frame/upscale_ai.hpp"
#include "support/files.hpp"
#include "support/temporary_folder.hpp"

#include <orvo_common/memory_manager.hpp>
#include <orvo_extensions/watermark.hpp>
#include <orvo_logger/log_capture.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>

using namespace orvo;
using namespace orvo::test;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

class UpscaleAi : public testing::Test
{
protected:
    TemporaryFolder folder;
    int upscaled = 0;
    int sharpened = 0;

    std::filesystem::path source() { return writtenTo(folder / "source.tif", *textured(60, 40)); }

    // Doubles the size by plain resizing, and counts its calls.
    UpscaleSteps counted()
    {
        UpscaleSteps steps;
        steps.upscale = [this](const auto& picture, const UpscaleAISettings&) {
            ++upscaled;
            return picture->resize({picture->width() * 2, picture->height() * 2}, {}, true);
        };
        steps.sharpenFaces = [this](const auto& picture) {
            ++sharpened;
            return picture;
        };
        return steps;
    }

    std::shared_ptr<Image> run(const UpscaleSteps& steps, const std::filesystem::path& path,
                               const UpscaleAISettings& settings = {})
    {
        return upscaleWith(steps, path, settings, {}, {});
    }
};

} // namespace

TEST(UpscaleAISettings, HasItsDefaults)
{
    const UpscaleAISettings settings;
    EXPECT_EQ(settings.passes, 1);
    EXPECT_EQ(settings.denoise, 0);
    EXPECT_TRUE(settings.faces);
    EXPECT_FALSE(settings.crisp);
    EXPECT_FALSE(settings.builtIn);
}

TEST(WatermarkSettings, HasItsDefaults)
{
    const auto [size, kind, style, opacity, rotation, place] = WatermarkSettings();
    EXPECT_EQ(size, 5.0f);
    EXPECT_EQ(kind, 0);
    EXPECT_EQ(style, 0);
    EXPECT_EQ(opacity, 80.0f);
    EXPECT_EQ(rotation, 0);
    EXPECT_EQ(place, 6);
}

TEST_F(UpscaleAi, NoPictureGivesNothingAndNoLogLine)
{
    std::ofstream(folder / "text.jpg") << "no picture";
    std::ofstream(folder / "empty.jpg");
    const LogCapture capture;
    for (const auto& path : {folder / "text.jpg", folder / "empty.jpg", folder / "missing.jpg", folder.path()})
        EXPECT_FALSE(upscaleAI(path, {}, {}, {})) << path;
    EXPECT_THAT(capture.lines(), IsEmpty());
}

TEST_F(UpscaleAi, TheMetadataHaveTheNewSize)
{
    const auto image = run(counted(), source());
    ASSERT_TRUE(image);
    EXPECT_EQ(image->size(), _Size<int>(120, 80));
    EXPECT_EQ(image->metadata()->size, _Size<int>(120, 80));
    EXPECT_TRUE(image->metadata()->fileProfile) << "everything else is the file's";
}

TEST_F(UpscaleAi, FacesAreSharpenedUnlessDisabled)
{
    UpscaleAISettings settings;
    ASSERT_TRUE(run(counted(), source(), settings));
    EXPECT_EQ(sharpened, 1);
    settings.faces = false;
    ASSERT_TRUE(run(counted(), source(), settings));
    EXPECT_EQ(sharpened, 1);
    EXPECT_EQ(upscaled, 2);
}

TEST_F(UpscaleAi, AnEmptyUpscalingGivesNothingAndNoLogLine)
{
    auto steps = counted();
    steps.upscale = [](const auto&, const auto&) { return UpscaleSteps::PicturePointer(); };
    const auto path = source();
    const LogCapture capture;
    EXPECT_FALSE(run(steps, path));
    EXPECT_THAT(capture.lines(), IsEmpty());
    EXPECT_EQ(sharpened, 0);
}

TEST_F(UpscaleAi, AnExceptionGivesOneErrorLine)
{
    auto steps = counted();
    steps.upscale = [](const auto&, const auto&) -> UpscaleSteps::PicturePointer {
        throw std::runtime_error("out of luck");
    };
    const auto path = source();
    const LogCapture capture;
    EXPECT_FALSE(run(steps, path));
    EXPECT_THAT(capture.texts(LogMessageType::Error), ElementsAre("Error in upscaleAI: out of luck"));
    EXPECT_EQ(capture.lines().size(), 1u);
}

TEST_F(UpscaleAi, AnUnknownExceptionGivesOneErrorLine)
{
    auto steps = counted();
    steps.sharpenFaces = [](const auto&) -> UpscaleSteps::PicturePointer { throw 7; };
    const auto path = source();
    const LogCapture capture;
    EXPECT_FALSE(run(steps, path));
    EXPECT_THAT(capture.texts(LogMessageType::Error), ElementsAre("Unknown error in upscaleAI."));
}

TEST_F(UpscaleAi, TheSettingsArePassedOnUnchanged)
{
    UpscaleAISettings given;
    given.passes = 3;
    given.denoise = 2;
    given.crisp = true;
    auto steps = counted();
    UpscaleAISettings seen;
    steps.upscale = [&seen](const auto& picture, const UpscaleAISettings& settings) {
        seen = settings;
        return picture->copy({});
    };
    ASSERT_TRUE(run(steps, source(), given));
    EXPECT_EQ(seen.passes, 3);
    EXPECT_EQ(seen.denoise, 2);
    EXPECT_TRUE(seen.crisp);
    EXPECT_FALSE(seen.builtIn);
}

TEST_F(UpscaleAi, TheArgumentsAreDestroyedOnFailureToo)
{
    const auto token = std::make_shared<int>(0);
    StateSettings state;
    state.canceled = [token] { return false; };
    EXPECT_FALSE(upscaleAI(folder / "missing.jpg", {}, std::move(state), "presets"));
    EXPECT_EQ(token.use_count(), 1);
}

TEST_F(UpscaleAi, DoublesAPictureThroughTheWholeLibrary)
{
    const auto path = source();
    const auto before = MemoryManager::instance().liveBytes();
    {
        const auto image = upscaleAI(path, {}, {}, {});
        ASSERT_TRUE(image);
        EXPECT_EQ(image->size(), _Size<int>(120, 80));
    }
    EXPECT_EQ(MemoryManager::instance().liveBytes(), before);
}
