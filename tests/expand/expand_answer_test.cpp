#include "expand_tool.hpp"
#include "support/failure_receiver.hpp"
#include "support/files.hpp"
#include "support/temporary_folder.hpp"

#include <orvo/composer.hpp>
#include <orvo/image_loader.hpp>
#include <orvo_core/parallel.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>

namespace orvo::test {
namespace {

using ::testing::ElementsAre;
using ::testing::EndsWith;
using ::testing::IsEmpty;
using ::testing::UnorderedElementsAre;

/// The mean difference from the texture over the pixels for which `counts` is true.
template <typename Counts>
double meanError(const Picture& picture, _Size<int> shift, const Counts& counts)
{
    double sum = 0.0;
    int count = 0;
    for (int y = 0; y < picture.height(); ++y)
        for (int x = 0; x < picture.width(); ++x) {
            if (!counts(x, y))
                continue;
            const auto truth = texture(x - shift.width, y - shift.height);
            const auto& p = picture.row(y)[x];
            sum += static_cast<double>(std::abs(p.r - truth.r) + std::abs(p.g - truth.g) + std::abs(p.b - truth.b)) / 3;
            ++count;
        }
    return sum / std::max(count, 1);
}

TEST(ExpandAnswer, GrowsThePictureAndLeavesItsInsideBitByBit)
{
    ExpandTool tool({301, 203});
    const auto before = tool.picture();
    const auto sent = picturesOf(tool.request(cropOf(-33, -21, 371, 251)));
    tool.applyGeneratedResponse(answerText(trueAnswer(tool, {33, 21}, 1.0)), sent->size());
    EXPECT_EQ(tool.getCanvasSize(), _Size<int>(371, 251));
    const auto after = tool.picture();
    ASSERT_EQ(after->size(), _Size<int>(371, 251));
    const auto& mask = *tool.inside().requestParameters->mask;
    int kept = 0;
    for (int y = 0; y < 203; ++y)
        for (int x = 0; x < 301; ++x)
            if (mask.row(y + 21)[x + 33] == 0.0f) {
                ++kept;
                ASSERT_EQ(after->row(y + 21)[x + 33], before->row(y)[x]) << x << ' ' << y;
            }
    EXPECT_GT(kept, 200 * 100);
    EXPECT_LT(meanError(*after, {33, 21}, [](int, int) { return true; }), 0.004);
    EXPECT_FALSE(tool.isInInitialState());
}

TEST(ExpandAnswer, ACastOfTheAnswerIsTakenOut)
{
    ExpandTool tool({400, 300});
    const auto sent = picturesOf(tool.request(cropOf(-60, -50, 520, 400)));
    // In the working space, so that the compared values are uniform.
    const auto answer = trueAnswer(tool, {60, 50}, 1.0, {0.06f, -0.05f, 0.04f});
    const TemporaryFolder folder;
    tool.applyGeneratedResponse(writtenTo(folder / "answer.tif", *answer), sent->size());
    const auto after = tool.picture();
    const auto isNew = [](int x, int y) { return x < 60 || y < 50 || x >= 460 || y >= 350; };
    EXPECT_LT(meanError(*after, {60, 50}, isNew), 1.5 / 255) << "0.05 without the tie";
    const auto atTheJoint = [](int x, int y) {
        return (std::abs(x - 60) < 3 || std::abs(x - 459) < 3) && y >= 50 && y < 350;
    };
    EXPECT_LT(meanError(*after, {60, 50}, atTheJoint), 1.0 / 255);
}

TEST(ExpandAnswer, AnswersOfAnySizeFillTheCanvas)
{
    for (const double scale : {0.5, 1.0, 2.0, 0.03}) {
        for (const CropDescription& crop :
             {cropOf(-31, -17, 263, 187), cropOf(0, 0, 231, 151), cropOf(-40, 0, 241, 151)}) {
            ExpandTool tool({201, 151});
            const auto sent = picturesOf(tool.request(crop));
            const LogCapture log;
            tool.applyGeneratedResponse(answerText(trueAnswer(tool, {-crop.rect.x, -crop.rect.y}, scale)),
                                        sent->size());
            const auto after = tool.picture();
            EXPECT_THAT(errors(log), IsEmpty());
            ASSERT_EQ(after->size(), crop.rect.size());
            int gray = 0;
            for (std::size_t i = 0; i < after->pixelCount(); ++i)
                gray += after->data()[i] == PixelRGB<float>{0.5f, 0.5f, 0.5f};
            EXPECT_LT(gray, 20) << "the border has been painted";
            if (scale >= 0.5) {
                EXPECT_LT(meanError(*after, {-crop.rect.x, -crop.rect.y}, [](int, int) { return true; }), 0.02)
                    << scale;
            }
        }
    }
}

TEST(ExpandAnswer, ASizeThatIsNotKnownOrNonsenseIsServed)
{
    for (const _Size<int> size : {_Size<int>(0, 0), {1, 1}, {1000000, 1000000}, {-5, -5}}) {
        ExpandTool tool({201, 151});
        (void)tool.request(cropOf(-31, -17, 263, 187));
        tool.applyGeneratedResponse(answerText(trueAnswer(tool, {31, 17}, 1.0)), size);
        EXPECT_EQ(tool.picture()->size(), _Size<int>(263, 187));
    }
}

TEST(ExpandAnswer, ASmallKnownPartIsTiedByNothing)
{
    // At the scale of the answer the known part is below 36 pixels.
    ExpandTool tool({30, 20});
    const auto sent = picturesOf(tool.request(cropOf(-40, -40, 110, 100)));
    const LogCapture log;
    tool.applyGeneratedResponse(answerText(plain(110, 100, 0.25f)), sent->size());
    const auto after = tool.picture();
    EXPECT_THAT(errors(log), IsEmpty());
    EXPECT_NEAR(after->row(5)[5].g, 0.25f, 0.02f);
    EXPECT_EQ(after->row(50)[55], texture(15, 10));
}

TEST(ExpandAnswer, ACropBesideThePictureTakesTheAnswerAlone)
{
    ExpandTool tool({100, 80});
    const auto sent = picturesOf(tool.request(cropOf(200, 0, 90, 70)));
    const LogCapture log;
    tool.applyGeneratedResponse(answerText(plain(90, 70, 0.25f)), sent->size());
    const auto after = tool.picture();
    EXPECT_THAT(errors(log), IsEmpty());
    ASSERT_EQ(after->size(), _Size<int>(90, 70));
    EXPECT_NEAR(after->row(30)[40].g, 0.25f, 0.01f);
}

TEST(ExpandAnswer, APictureAtTheEndOfTheCoordinatesLeavesNoTrace)
{
    for (const int x : kFarAway) {
        ExpandTool tool({60, 40});
        const auto sent = picturesOf(tool.request(cropOf(x, 0, 200, 100)));
        // Twice the size of the canvas, where the picture's place is beyond an int.
        tool.applyGeneratedResponse(answerText(plain(400, 200, 0.25f)), sent->size());
        const auto after = tool.picture();
        ASSERT_EQ(after->size(), _Size<int>(200, 100));
        for (std::size_t i = 0; i < after->pixelCount(); ++i)
            ASSERT_NEAR(after->data()[i].g, 0.25f, 0.01f) << x << ", pixel " << i;
    }
}

TEST(ExpandAnswer, ThePrefixIsCutAndNotCompared)
{
    ExpandTool tool({60, 40});
    (void)tool.request(cropOf(-20, 0, 80, 40));
    const LogCapture log;
    tool.applyGeneratedResponse(std::string(22, '?') + answerText(plain(80, 40, 0.25f)).substr(22), {80, 40});
    EXPECT_EQ(tool.picture()->size(), _Size<int>(80, 40));
    EXPECT_THAT(errors(log), IsEmpty());
}

TEST(ExpandAnswer, OfTwoRequestsTheLastOneCounts)
{
    ExpandTool tool({200, 150});
    (void)tool.request(cropOf(-50, 0, 250, 150), "first");
    const auto sent = picturesOf(tool.request(cropOf(0, -30, 200, 180), "second"));
    tool.applyGeneratedResponse(answerText(trueAnswer(tool, {0, 30}, 1.0)), sent->size());
    EXPECT_EQ(tool.getCanvasSize(), _Size<int>(200, 180));
    EXPECT_EQ(tool.picture()->size(), _Size<int>(200, 180));
}

TEST(ExpandAnswer, WithoutARequestItIsRefused)
{
    ExpandTool tool({200, 150});
    const auto before = tool.picture();
    const LogCapture log;
    tool.applyGeneratedResponse(answerText(plain(20, 10, 0.5f)), {20, 10});
    EXPECT_TRUE(sameBytes(*tool.picture(), *before));
    EXPECT_EQ(errors(log).size(), 1u);
}

TEST(ExpandAnswer, WhatIsNoPictureChangesNothing)
{
    ExpandTool tool({200, 150});
    (void)tool.request(cropOf(-20, 0, 220, 150));
    const auto before = tool.picture();
    const FailureReceiver failures;
    tool.setFailureCallback(failures.callback());
    {
        const LogCapture log;
        tool.applyGeneratedResponse(std::string("data:image/png;base64,"), {220, 150});
        tool.applyGeneratedResponse(std::string(), {220, 150});
        tool.settle();
        const auto tooShort = EndsWith(": Responce does not contain image.");
        EXPECT_THAT(errors(log), ElementsAre(tooShort, tooShort));
        EXPECT_EQ(tool.getCanvasSize(), _Size<int>(200, 150));
        EXPECT_TRUE(tool.isInInitialState());
        EXPECT_EQ(failures.wait(2).at(1).sentence, "Responce does not contain image");
    }
    const LogCapture log;
    tool.applyGeneratedResponse(std::string("data:image/png;base64,bm8gcGljdHVyZQ=="), {220, 150});
    tool.applyGeneratedResponse(std::filesystem::path("/nowhere/answer.png"), {220, 150});
    tool.settle();
    const auto noPicture = EndsWith(": Failed to parse responce.");
    EXPECT_THAT(errors(log), ElementsAre(noPicture, noPicture));
    EXPECT_TRUE(sameBytes(*tool.picture(), *before));
    EXPECT_EQ(tool.getCanvasSize(), _Size<int>(220, 150)) << "already the new one";
    std::vector<std::filesystem::path> files;
    for (const Failure& failure : failures.wait(4))
        files.push_back(failure.file);
    EXPECT_THAT(files, UnorderedElementsAre("", "", "", "/nowhere/answer.png"));
}

TEST(ExpandAnswer, IsTheSameForAnyNumberOfThreads)
{
    const auto expanded = [](int threads) {
        const WorkerLimit limit(threads);
        ExpandTool tool({201, 151});
        const auto sent = picturesOf(tool.request(cropOf(-31, -17, 263, 187)));
        tool.applyGeneratedResponse(answerText(trueAnswer(tool, {31, 17}, 0.5, {0.05f, 0.0f, -0.05f})), sent->size());
        return tool.picture();
    };
    EXPECT_TRUE(sameBytes(*expanded(1), *expanded(4)));
}

TEST(ExpandOpening, FromFilesAndCompositions)
{
    const TemporaryFolder folder;
    const auto path = writtenTo(folder / "picture.tif", *textured(90, 70));
    const GenerativeExpandProcessor opened(StateSource{path, {}, {}});
    EXPECT_EQ(opened.getCanvasSize(), _Size<int>(90, 70));
    EXPECT_EQ(opened.requestedCanvasSize(), _Size<int>(90, 70));
    const auto bytes = ImageLoader::load(path);
    const auto composer = std::make_shared<Composer>(ImageLoader::getSize(bytes));
    composer->createLayer(bytes, {}, ComposerScaleMode::Fill);
    ImageLoader::dispose(bytes);
    composer->setCropDescription(cropOf(10, 10, 50, 40));
    EXPECT_EQ(GenerativeExpandProcessor(composer).getCanvasSize(), _Size<int>(50, 40));
}

TEST(ExpandOpening, WhatCannotBeOpenedIsLoggedAndDoesNothing)
{
    const LogCapture log;
    GenerativeExpandProcessor missing(StateSource{"/nowhere/picture.jpg", {}, {}});
    GenerativeExpandProcessor none{std::shared_ptr<const Picture>()};
    GenerativeExpandProcessor noComposer{std::shared_ptr<Composer>()};
    EXPECT_EQ(errors(log).size(), 3u);
    for (auto* const tool : {&missing, &none, &noComposer}) {
        EXPECT_EQ(tool->getCanvasSize(), _Size<int>());
        EXPECT_EQ(tool->requestedCanvasSize(), _Size<int>());
        tool->generateRequest("1", cropOf(-1, 0, 3, 3), {}, [](const Request&) {});
        tool->applyGeneratedResponse(std::string(40, 'a'), {1, 1});
        EXPECT_TRUE(tool->storeState().empty());
        tool->restoreState({}, {});
    }
}

} // namespace
} // namespace orvo::test
