#include "support/files.hpp"
#include "support/temporary_folder.hpp"

#include <orvo/composer.hpp>
#include <orvo_common/failure.hpp>
#include <orvo_common/memory_manager.hpp>
#include <orvo_extensions/generative_restoration.hpp>
#include <orvo_logger/log_capture.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <random>
#include <stdexcept>

namespace orvo::test {
namespace {

using ::testing::ElementsAre;
using ::testing::EndsWith;
using ::testing::IsEmpty;

constexpr _Size<int> kNothing;

std::shared_ptr<Picture> noise(int width, int height)
{
    std::mt19937 random(3);
    return drawn(width, height, [&](int, int) {
        const auto v = [&] { return static_cast<float>(random() % 256) / 255.0f; };
        return PixelRGB<float>{v(), v(), v()};
    });
}

class Restorations : public testing::Test
{
protected:
    const TemporaryFolder folder;

    [[nodiscard]] std::filesystem::path file(int width, int height) const
    {
        return writtenTo(folder / "picture.tif", *textured(width, height));
    }
};

} // namespace

TEST_F(Restorations, APictureWithinAllLimitsIsSentAsItIs)
{
    const LogCapture log;
    GenRestorationProcessor processor(file(301, 203), {}, {});
    const auto request = processor.generateRequest();
    EXPECT_EQ(request.size, _Size<int>(301, 203));
    const auto sent = convertToImageData(request.image);
    ASSERT_TRUE(sent);
    EXPECT_EQ(sent->size(), request.size);
    std::shared_ptr<Picture> expected;
    textured(301, 203)->colorTransform(expected, ColorProfileType::sRGB(), true);
    EXPECT_LT(largestDifference(*sent, *expected), 1.1f / 255) << "8 bits of sRGB";
    EXPECT_THAT(log.texts(LogMessageType::Diagnostic), IsEmpty());
    EXPECT_THAT(log.texts(LogMessageType::Warning), IsEmpty());
}

TEST_F(Restorations, ALargePictureShrinksWithItsProportions)
{
    {
        GenRestorationProcessor wide(file(5400, 2700), {}, {});
        // Fast to encode; only its size matters.
        wide.setRequestRestrictions({{2700, 2700}, 100000000});
        EXPECT_EQ(wide.generateRequest().size, _Size<int>(2700, 1350));
    }
    GenRestorationProcessor processor(file(301, 203), {}, {});
    processor.setRequestRestrictions({{100, 150}, 7340032});
    EXPECT_EQ(processor.generateRequest().size, _Size<int>(100, 67));
    processor.setRequestRestrictions({{1000, 29}, 7340032});
    EXPECT_EQ(processor.generateRequest().size, _Size<int>(43, 29));
    processor.setRequestRestrictions({{302, 203}, 7340032});
    EXPECT_EQ(processor.generateRequest().size, _Size<int>(301, 203)) << "never enlarged";
}

TEST_F(Restorations, ASliverKeepsASide)
{
    GenRestorationProcessor processor(writtenTo(folder / "sliver.tif", *textured(900, 1)), {}, {});
    processor.setRequestRestrictions({{300, 300}, 7340032});
    EXPECT_EQ(processor.generateRequest().size, _Size<int>(300, 1));
}

TEST_F(Restorations, TheDefaultsAreTheServicesLimits)
{
    const GenRestorationProcessor::RequestRestrictions limits;
    EXPECT_EQ(limits.maxSize, _Size<int>(2700, 2700));
    EXPECT_EQ(limits.maxBase64Size, 7340032);
    EXPECT_EQ(GenRestorationProcessor::Request().size, kNothing);
}

TEST_F(Restorations, ACropDecidesTheSize)
{
    StateSettings settings;
    settings.composition = R"({"crop": {"angle": 0, "rect": [20, 10, 200, 100], "scale": [1, 1]}})";
    GenRestorationProcessor processor(file(400, 300), settings, {});
    const auto request = processor.generateRequest();
    EXPECT_EQ(request.size, _Size<int>(200, 100));
    std::shared_ptr<Picture> expected;
    textured(400, 300)->copy({20, 10, 200, 100})->colorTransform(expected, ColorProfileType::sRGB(), true);
    EXPECT_LT(largestDifference(*convertToImageData(request.image), *expected), 1.1f / 255);
    processor.setRequestRestrictions({{50, 50}, 7340032});
    EXPECT_EQ(processor.generateRequest().size, _Size<int>(50, 25));
}

TEST_F(Restorations, EditsAreInTheRequestAndPresetsDoNotHurt)
{
    StateSettings settings;
    settings.composition = R"({"settings": {"exposure": 1}})";
    GenRestorationProcessor plain(file(60, 40), {}, {});
    GenRestorationProcessor brighter(folder / "picture.tif", settings, folder.path());
    const auto a = convertToImageData(plain.generateRequest().image);
    const auto b = convertToImageData(brighter.generateRequest().image);
    EXPECT_GT(b->row(20)[30].g, a->row(20)[30].g + 0.1f);
}

TEST_F(Restorations, ACompositionThatCannotBeReadIsPassedOn)
{
    StateSettings settings;
    settings.composition = "{";
    GenRestorationProcessor processor(file(60, 40), settings, {});
    EXPECT_THROW((void)processor.generateRequest(), std::runtime_error);
}

TEST_F(Restorations, ATooLongTextShrinksThePictureAndIsLogged)
{
    const auto path = writtenTo(folder / "noise.tif", *noise(300, 200));
    GenRestorationProcessor processor(path, {}, {});
    processor.setRequestRestrictions({{2700, 2700}, 60000});
    const LogCapture log;
    const auto request = processor.generateRequest();
    EXPECT_LE(request.image.size(), 60000u);
    EXPECT_GT(request.image.size(), 50000u) << "not much smaller than it has to be";
    EXPECT_LT(request.size.width, 300);
    EXPECT_NEAR(request.size.width * 2.0 / 3.0, request.size.height, 1.5);
    EXPECT_EQ(convertToImageData(request.image)->size(), request.size);
    const std::string expected =
        "GenRestorationProcessor::generateRequest downscale to resolution: " + std::to_string(request.size.width) +
        "x" + std::to_string(request.size.height) + ", base64Size: " + std::to_string(request.image.size()) +
        " to satisfy the size restriction";
    EXPECT_THAT(log.texts(LogMessageType::Diagnostic), ElementsAre(expected));
}

TEST_F(Restorations, ALimitThatNothingMeetsGivesTheSmallestPicture)
{
    GenRestorationProcessor processor(file(300, 200), {}, {});
    processor.setRequestRestrictions({{2700, 2700}, 1});
    const auto request = processor.generateRequest();
    EXPECT_GT(request.image.size(), 1u);
    EXPECT_GE(request.size.width, 1);
    EXPECT_LE(request.size.width, 4);
    EXPECT_TRUE(convertToImageData(request.image));
}

TEST_F(Restorations, RestrictionsAndEncodingCountFromTheNextRequestOn)
{
    GenRestorationProcessor processor(file(120, 80), {}, {});
    const auto before = processor.generateRequest();
    processor.setEncodeParameters({0, 16});
    const auto finer = processor.generateRequest();
    EXPECT_GT(finer.image.size(), before.image.size());
    processor.setRequestRestrictions({{60, 60}, 7340032});
    EXPECT_EQ(processor.generateRequest().size, _Size<int>(60, 40));
    EXPECT_EQ(before.size, _Size<int>(120, 80));
    processor.setEncodeParameters({7, 8});
    EXPECT_THROW((void)processor.generateRequest(), std::invalid_argument) << "there is no such encoding";
}

TEST_F(Restorations, AFileThatIsNoPictureGivesAnEmptyRequest)
{
    std::ofstream(folder / "text.txt") << "no picture";
    for (const char* name : {"missing.jpg", "text.txt"}) {
        const LogCapture log;
        GenRestorationProcessor processor(folder / name, {}, {});
        const auto request = processor.generateRequest();
        EXPECT_EQ(request.size, kNothing);
        EXPECT_TRUE(request.image.empty());
        EXPECT_THAT(log.texts(LogMessageType::Warning), ElementsAre(EndsWith(": Could not create composer"))) << name;
        const auto failure = lastFailure();
        ASSERT_TRUE(failure) << name;
        EXPECT_EQ(failure->kind, FailureKind::UnreadableFile) << name;
        EXPECT_EQ(failure->file, folder / name);
    }
}

TEST_F(Restorations, TheAnswerComesInSRGB)
{
    GenRestorationProcessor processor(file(60, 40), {}, {});
    const auto answer = textured(91, 53, 7.0, 3.0);
    const auto path = writtenTo(folder / "answer.tif", *answer);
    const auto restored = processor.applyResponse(path);
    ASSERT_TRUE(restored);
    EXPECT_EQ(restored->size(), _Size<int>(91, 53));
    EXPECT_FALSE(*restored->colorProfile() != *ColorProfileType::sRGB());
    std::shared_ptr<Picture> expected;
    answer->colorTransform(expected, ColorProfileType::sRGB(), true);
    EXPECT_LT(largestDifference(*restored, *expected), 1e-3f);
}

TEST_F(Restorations, AnAnswerThatIsNoPictureIsEmptyWithoutALine)
{
    std::ofstream(folder / "text.png") << "no picture";
    GenRestorationProcessor processor(file(60, 40), {}, {});
    const LogCapture log;
    EXPECT_FALSE(processor.applyResponse(folder / "missing.png"));
    EXPECT_FALSE(processor.applyResponse(folder / "text.png"));
    EXPECT_THAT(log.lines(), IsEmpty());
    const auto failure = lastFailure();
    ASSERT_TRUE(failure);
    EXPECT_EQ(failure->kind, FailureKind::UnreadableFile);
    EXPECT_EQ(failure->file, folder / "text.png");
    EXPECT_TRUE(processor.applyResponse(file(60, 40)));
    EXPECT_FALSE(lastFailure());
}

TEST_F(Restorations, NoPlaneIsLeftBehind)
{
    const auto path = file(200, 100);
    const std::size_t live = MemoryManager::instance().liveBytes();
    {
        GenRestorationProcessor processor(path, {}, {});
        (void)processor.generateRequest();
        (void)processor.applyResponse(path);
    }
    EXPECT_EQ(MemoryManager::instance().liveBytes(), live);
}

} // namespace orvo::test
