#include "support/files.hpp"
#include "support/temporary_folder.hpp"

#include <orvo/documents.hpp>
#include <orvo_logger/log_capture.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>

namespace orvo::test {
namespace {

using ::testing::HasSubstr;

class Compositions : public testing::Test
{
protected:
    const TemporaryFolder folder;
    const std::shared_ptr<Picture> original = textured(120, 80);
    const std::filesystem::path path = writtenTo(folder / "picture.tif", *original);

    [[nodiscard]] std::shared_ptr<Composer> composer() const
    {
        const auto bytes = ImageLoader::load(path);
        auto result = std::make_shared<Composer>(ImageLoader::getSize(bytes));
        EXPECT_EQ(result->createLayer(bytes, {1.0f, 0}, ComposerScaleMode::Fill).size(), 17u);
        ImageLoader::dispose(bytes);
        return result;
    }
};

TEST_F(Compositions, APictureAloneIsExportedAsItIs)
{
    const auto image = exportFromComposer(composer());
    EXPECT_LT(largestDifference(*image->developedModifiedImageData({}), *original), 1e-4f);
    EXPECT_EQ(image->metadata()->size, _Size<int>(120, 80));
}

TEST_F(Compositions, ACropIsCutOut)
{
    const auto cropped = composer();
    CropDescription crop;
    crop.rect = {10, 20, 50, 40};
    cropped->setCropDescription(crop);
    const auto image = exportFromComposer(cropped);
    EXPECT_EQ(image->size(), _Size<int>(50, 40));
    EXPECT_LT(largestDifference(*image->developedModifiedImageData({}), *original->copy({10, 20, 50, 40})), 1e-4f);
    RenderedData half;
    cropped->generateDataForExport({25, 20}, [&](RenderedData data) { half = data; }, false, {}, {});
    EXPECT_EQ(half.image->size(), _Size<int>(25, 20));
    EXPECT_EQ(half.context, (PreviewContext{{25, 20}, {0, 0, 25, 20}}));
    EXPECT_FALSE(half.isPlaceholder);
}

TEST_F(Compositions, ExposureDoublesLinearMidTones)
{
    const auto brighter = composer();
    brighter->setExposure(1.0f);
    const auto picture = exportFromComposer(brighter)->developedModifiedImageData({});
    const float before = linearFromSRGBCurve(original->row(3)[3].b);
    EXPECT_NEAR(linearFromSRGBCurve(picture->row(3)[3].b) / before, 2.0f, 0.05f);
    brighter->setExposure(1000.0f);
    EXPECT_EQ(brighter->getExposure(), 10.0f);
}

TEST_F(Compositions, WhatIsSavedCanBeLoaded)
{
    const auto first = composer();
    CropDescription crop;
    crop.rect = {10, 20, 50, 40};
    crop.angle = 0.125f;
    first->setCropDescription(crop);
    first->setExposure(-0.5f);
    const auto bytes = ImageLoader::load(path);
    Composer second(ImageLoader::getSize(bytes));
    second.load(bytes, {{}, {}, first->save()});
    ImageLoader::dispose(bytes);
    EXPECT_EQ(second.getCropDescription(), crop);
    EXPECT_EQ(second.getExposure(), -0.5f);
    const auto opened = openNoEmpty(path, {{}, {}, first->save()}, {});
    EXPECT_TRUE(
        sameBytes(*opened->developedModifiedImageData({}), *exportFromComposer(first)->developedModifiedImageData({})));
    EXPECT_EQ(Composer({5, 5}).save(), "{}");
}

TEST_F(Compositions, AStateThatCannotBeAppliedIsLoggedAndLeftOut)
{
    for (const char* const state :
         {"nonsense", "[1]", R"({"crop": 5})", R"({"crop": {"rect": [0, 0, -5, 5]}})", R"({"crop": {"rect": [0, 0]}})",
          R"({"crop": {"angle": "x"}})", R"({"crop": {"angle": 0.5}})", R"({"unknown": {}})",
          R"({"settings": {"exposure": null}})", R"({"settings": {"contrast": 1}})",
          R"({"crop": {"rect": [0, 0, 9e8, 9e8]}})"}) {
        const LogCapture log;
        const auto image = openNoEmpty(path, {{}, {}, state}, {});
        EXPECT_EQ(image->size(), _Size<int>(120, 80));
        ASSERT_EQ(log.texts(LogMessageType::Warning).size(), 1u) << state;
        EXPECT_THAT(log.texts(LogMessageType::Warning)[0], HasSubstr("cannot be applied"));
    }
    EXPECT_THROW(Composer({5, 5}).load({}, {{}, {}, std::string(100000, '[')}), std::runtime_error);
}

TEST_F(Compositions, WhatCannotBeOpenedSaysSo)
{
    EXPECT_THROW((void)openNoEmpty(folder / "none.tif", {}, {}), std::runtime_error);
    EXPECT_THROW((void)exportFromComposer(nullptr), std::invalid_argument);
    EXPECT_THROW((void)exportFromComposer(std::make_shared<Composer>(_Size<int>(5, 5))), std::runtime_error);
    EXPECT_THROW(Composer({0, 5}), std::invalid_argument);
    EXPECT_THROW((void)Composer({5, 5}).createLayer({}, {}, ComposerScaleMode::Fill), std::runtime_error);
}

TEST_F(Compositions, ACancelledExportIsAPlaceholder)
{
    int calls = 0;
    composer()->generateDataForExport(
        {},
        [&](const RenderedData& data) {
            ++calls;
            EXPECT_TRUE(data.isPlaceholder);
            EXPECT_FALSE(data.image);
        },
        false, {}, std::make_shared<std::atomic<bool>>(true));
    EXPECT_EQ(calls, 1);
}

} // namespace
} // namespace orvo::test
