#include "drawn_face.hpp"
#include "frame/upscale_ai.hpp"
#include "support/files.hpp"
#include "support/temporary_folder.hpp"

#include <orvo/deblur_ai_effect.hpp>
#include <orvo/image_loader.hpp>
#include <orvo_common/memory_manager.hpp>
#include <orvo_extensions/watermark.hpp>
#include <orvo_io/settings.hpp>
#include <orvo_logger/log_capture.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <regex>

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

TEST_F(UpscaleAi, TheDocumentIsDisposedOfBeforeThePictureIsUpscaled)
{
    const auto path = source();
    const std::size_t before = ImageLoader::documentCount();
    std::size_t meanwhile = before + 1;
    auto steps = counted();
    steps.upscale = [&meanwhile](const auto& picture, const UpscaleAISettings&) {
        meanwhile = ImageLoader::documentCount();
        return picture->copy({});
    };
    ASSERT_TRUE(run(steps, path));
    EXPECT_EQ(meanwhile, before);
    EXPECT_EQ(ImageLoader::documentCount(), before);
}

TEST_F(UpscaleAi, TheFacePassIsInFullWithProfilesAndFeaturesUnderANewId)
{
    const auto portrait = ::test::drawn({400, 400}, ColorProfileType::melissaRGB(), [](int x, int y) {
        const auto v = static_cast<float>(::test::DrawnFace({198.3, 196.7, 80.0}).over(0.45, x, y));
        return PixelRGB<float>{v, 0.85f * v, 0.75f * v};
    });
    const auto soft = portrait->resize({133, 133}, {}, true)->resize({400, 400}, {}, true);
    const auto with = [&](float amount, bool features) {
        return DeblurAIEffect::deblurFaces("test", soft, amount, true, features, nullptr);
    };
    const auto expected = with(1.0f, true);
    if (sameBytes(*expected, *soft))
        GTEST_SKIP() << "the cascades of opencv-data are not installed";
    const auto sharpen = UpscaleSteps::ofTheLibrary().sharpenFaces;
    EXPECT_TRUE(sameBytes(*sharpen(soft), *expected));
    EXPECT_FALSE(sameBytes(*with(0.9f, true), *expected));
    EXPECT_FALSE(sameBytes(*with(1.0f, false), *expected));

    // The log has the id, and that profiles cannot be searched for where their cascades are missing.
    const std::string key = "Faces.cascades";
    const auto installed = orvosettings().get(key, std::string("/usr/share/opencv4"));
    std::filesystem::create_directory(folder / "haarcascades");
    for (const auto& file : std::filesystem::directory_iterator(std::filesystem::path(installed) / "haarcascades"))
        if (file.path().filename().native().find("profile") == std::string::npos)
            std::filesystem::create_symlink(file.path(), folder / "haarcascades" / file.path().filename());
    orvosettings().set(key, folder.path().native());
    const LogCapture capture;
    (void)sharpen(soft);
    (void)sharpen(soft);
    orvosettings().set(key, installed);
    EXPECT_THAT(capture.texts(LogMessageType::Warning),
                testing::Each(testing::StartsWith("deblurFaces: cannot search for faces in profile")));
    const auto lines = capture.texts(LogMessageType::Diagnostic);
    ASSERT_EQ(lines.size(), 2u);
    const std::regex uuid("[0-9a-f]{8}(-[0-9a-f]{4}){3}-[0-9a-f]{12}");
    std::smatch first;
    std::smatch second;
    ASSERT_TRUE(std::regex_search(lines[0], first, uuid)) << lines[0];
    ASSERT_TRUE(std::regex_search(lines[1], second, uuid)) << lines[1];
    EXPECT_NE(first.str(), second.str());
    EXPECT_EQ(capture.texts(LogMessageType::Warning).size(), 2u);
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
