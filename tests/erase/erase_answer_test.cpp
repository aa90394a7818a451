#include "GenEraseProcessor/erase_request.hpp"
#include "erase_tool.hpp"
#include "support/failure_receiver.hpp"
#include "support/files.hpp"
#include "support/temporary_folder.hpp"

#include <orvo/answers.hpp>
#include <orvo_common/memory_manager.hpp>
#include <orvo_core/parallel.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <limits>
#include <random>

namespace orvo::test {
namespace {

using ::testing::ElementsAre;
using ::testing::EndsWith;

std::vector<std::string> errors(const LogCapture& log) { return log.texts(LogMessageType::Error); }

// The request's picture after a service enlarges or shrinks its answer.
std::string scaledAnswer(const Request& request, double scale)
{
    const auto picture = convertToImageData(request.image);
    return answerText(picture->resize({std::max(1, static_cast<int>(picture->width() * scale)),
                                       std::max(1, static_cast<int>(picture->height() * scale))},
                                      {}, true));
}

TEST(EraseAnswer, IsBlendedInAndLeavesTheRestBitByBit)
{
    EraseTool tool({600, 500});
    const auto before = tool.picture();
    tool.draw({{300, 250}}, brush(40));
    const Request request = tool.request("1");
    auto answer = convertToImageData(request.image);
    for (int y = 55; y < 105; ++y)
        for (int x = 55; x < 105; ++x)
            answer->row(y)[x] = {0.1f, 0.9f, 0.2f};
    tool.applyGeneratedResponse(answerText(answer), answer->size());
    const auto after = tool.picture();
    const auto& parameters = *tool.inside().requestParameters;
    std::shared_ptr<Picture> green;
    Picture({1, 1}, {0.1f, 0.9f, 0.2f}, ColorProfileType::sRGB())
        .colorTransform(green, ColorProfileType::melissaRGB(), true);
    EXPECT_NEAR(after->row(250)[300].g, green->data()[0].g, 0.02f);
    EXPECT_NEAR(after->row(250)[300].r, green->data()[0].r, 0.02f);
    for (int y = 0; y < 500; ++y)
        for (int x = 0; x < 600; ++x) {
            const int mx = x - parameters.rect.x, my = y - parameters.rect.y;
            const bool inside = mx >= 0 && my >= 0 && mx < parameters.rect.width && my < parameters.rect.height;
            if (!inside || parameters.mask->row(my)[mx] == 0.0f) {
                ASSERT_EQ(after->row(y)[x], before->row(y)[x]) << x << "," << y;
            }
        }
    EXPECT_FALSE(tool.isInInitialState());
}

TEST(EraseAnswer, AnAnswerEqualToWhatWasSentChangesNearlyNothing)
{
    for (const double scale : {1.0, 2.0, 0.5}) {
        EraseTool tool({600, 500});
        const auto before = tool.picture();
        tool.draw({{300, 250}}, brush(40));
        const Request request = tool.request("1");
        tool.applyGeneratedResponse(scaledAnswer(request, scale), sizeOf(request));
        EXPECT_LT(largestDifference(*tool.picture(), *before), scale < 1.0 ? 0.06f : 0.02f) << scale;
    }
}

// The effect of an answer, step by step.
std::shared_ptr<const Picture> stepByStep(const Picture& before,
                                          const GenerativeProcessorBaseImpl::RequestParameters& parameters,
                                          const std::string& answer, _Size<int> sent)
{
    const auto generated = convertToImageData(answer.substr(kPrefix.size()));
    const auto side = [](int downsampled, int answered, int asked) {
        const float ratio = static_cast<float>(answered) / static_cast<float>(asked);
        return static_cast<int>(static_cast<float>(downsampled) * ratio);
    };
    const _Size<int> target(side(parameters.downsampledSize.width, generated->width(), sent.width),
                            side(parameters.downsampledSize.height, generated->height(), sent.height));
    AnswerPicture result = generated->resize(target, {}, true);
    upscaleToInitialSize(result, parameters.rect.size(), parameters.mask);
    applyDetailsToResult(result);
    AnswerPicture current = before.copy({});
    blendWithSource(result, current->resize(parameters.rect.size(), parameters.rect, true), parameters.mask);
    blendRoi(current, result, parameters.mask, parameters.rect);
    return current;
}

TEST(EraseAnswer, TakesItsStepsInOrderWhateverItsScale)
{
    for (const double scale : {1.0, 2.0, 0.5}) {
        EraseTool tool({600, 500});
        tool.inside().maxRequestPixels = 20000; // so that the picture is sent smaller than its part
        const auto before = tool.picture();
        tool.draw({{300, 250}, {330, 270}}, brush(40, 0.5f));
        const Request request = tool.request("1");
        const auto parameters = *tool.inside().requestParameters;
        ASSERT_LT(parameters.downsampledSize.width, parameters.rect.width);
        const std::string answer = scaledAnswer(request, scale);
        tool.applyGeneratedResponse(answer, sizeOf(request));
        const auto expected = stepByStep(*before, parameters, answer, sizeOf(request));
        EXPECT_TRUE(sameBytes(*tool.picture(), *expected)) << scale;
    }
}

TEST(EraseAnswer, ASourceInSRGBIsServedAsWell)
{
    std::shared_ptr<Picture> srgb;
    textured(300, 200)->colorTransform(srgb, ColorProfileType::sRGB(), true);
    EraseTool tool{std::shared_ptr<const Picture>(srgb)};
    tool.changeColorProfile(ColorProfileType::sRGB());
    const auto before = tool.picture();
    EXPECT_LT(largestDifference(*before, *srgb), 1e-6f);
    tool.draw({{150, 100}}, brush(30));
    const Request request = tool.request("1");
    tool.applyGeneratedResponse(scaledAnswer(request, 1.0), sizeOf(request));
    const auto after = tool.picture();
    EXPECT_LT(largestDifference(*after, *before), 0.02f);
    EXPECT_LT(largestDifference(*after->copy({0, 0, 60, 60}), *before->copy({0, 0, 60, 60})), 1e-3f);
}

TEST(EraseAnswer, TakesAFile)
{
    const TemporaryFolder folder;
    EraseTool tool({600, 500});
    tool.draw({{300, 250}}, brush(40));
    const Request request = tool.request("1");
    const auto path = writtenTo(folder / "answer.png", *plain(160, 160, 0.9f));
    const auto before = tool.picture();
    tool.applyGeneratedResponse(path, sizeOf(request));
    EXPECT_NE(tool.picture()->row(250)[300], before->row(250)[300]);
    const LogCapture log;
    const FailureReceiver failures;
    tool.setFailureCallback(failures.callback());
    tool.applyGeneratedResponse(folder / "none.png", sizeOf(request));
    tool.settle();
    const Failure missing = failures.wait(1).at(0);
    EXPECT_EQ(missing.kind, FailureKind::UnreadableFile);
    EXPECT_EQ(missing.file, folder / "none.png");
    EXPECT_THAT(errors(log), ElementsAre(EndsWith(": Failed to parse responce.")));
    std::filesystem::resize_file(path, 100);
    tool.applyGeneratedResponse(path, sizeOf(request));
    tool.settle();
    EXPECT_EQ(errors(log).size(), 2u);
}

TEST(EraseAnswer, WhatIsTooShortIsDroppedAndChangesNothing)
{
    EraseTool tool;
    tool.draw({{100, 100}}, brush(30));
    const Request request = tool.request("1");
    Received<Data> main;
    tool.initRender(main.callback(), {{32, 24}, {0, 0, 320, 240}});
    tool.settle();
    const LogCapture log;
    tool.applyGeneratedResponse(kPrefix, sizeOf(request));
    tool.applyGeneratedResponse(std::string(), sizeOf(request));
    tool.settle();
    EXPECT_THAT(errors(log), ElementsAre(EndsWith(": Responce does not contain image."),
                                         EndsWith(": Responce does not contain image.")));
    EXPECT_TRUE(tool.isInInitialState());
    EXPECT_EQ(main.count(), 1u);
}

TEST(EraseAnswer, WhatCannotBeDecodedLeavesThePictureAndRenders)
{
    EraseTool tool;
    tool.draw({{100, 100}}, brush(30));
    const Request request = tool.request("1");
    const auto before = tool.picture();
    Received<Data> main;
    tool.initRender(main.callback(), {{32, 24}, {0, 0, 320, 240}});
    tool.settle();
    const LogCapture log;
    tool.applyGeneratedResponse(kPrefix + "!", sizeOf(request));
    (void)main.at(1);
    EXPECT_THAT(errors(log), ElementsAre(EndsWith(": Failed to parse responce.")));
    EXPECT_FALSE(tool.isInInitialState());
    EXPECT_TRUE(sameBytes(*tool.picture(), *before));
}

TEST(EraseAnswer, ThePrefixIsCutAndNotCompared)
{
    EraseTool tool;
    tool.draw({{100, 100}}, brush(30));
    const Request request = tool.request("1");
    const auto before = tool.picture();
    const std::string answer = plainAnswer(sizeOf(request), 0.95f);
    tool.applyGeneratedResponse(std::string(22, '#') + answer.substr(22), sizeOf(request));
    EXPECT_NE(tool.picture()->row(100)[100], before->row(100)[100]);
}

TEST(EraseAnswer, SizesOfNonsenseAreNoMatter)
{
    constexpr int kMost = std::numeric_limits<int>::max();
    for (const _Size<int> sent : {_Size<int>(0, 0), {-5, 10}, {1, 1}, {kMost, kMost}, {kMost, 1}, {3, 4000}}) {
        EraseTool tool;
        tool.draw({{100, 100}}, brush(30));
        const Request request = tool.request("1");
        const LogCapture log;
        tool.applyGeneratedResponse(plainAnswer(sizeOf(request), 0.95f), sent);
        const auto after = tool.picture();
        EXPECT_TRUE(errors(log).empty()) << sent.width;
        EXPECT_LT(largestDifference(*after, *plain(320, 240, 0.5f)), 1.0f); // finite
    }
}

TEST(EraseAnswer, BeforeAnyRequestItIsRefused)
{
    EraseTool tool;
    const auto before = tool.picture();
    const LogCapture log;
    tool.applyGeneratedResponse(plainAnswer({50, 40}, 0.9f), {50, 40});
    tool.applyGeneratedResponse(plainAnswer({50, 40}, 0.9f), {0, 0});
    EXPECT_TRUE(sameBytes(*tool.picture(), *before));
    EXPECT_EQ(errors(log).size(), 2u);
}

TEST(EraseAnswer, AnAnswerBelongsToTheRequestBeforeIt)
{
    EraseTool tool;
    tool.draw({{60, 60}}, brush(20));
    const Request first = tool.request("1");
    tool.beginDrawing();
    tool.clearMask();
    tool.strokePoints({{260, 180}}, brush(20));
    tool.finishDrawing();
    const Request second = tool.request("2");
    const auto before = tool.picture();
    // The answer to the first request comes late and is applied at the place of the second.
    tool.applyGeneratedResponse(plainAnswer(sizeOf(first), 0.95f), sizeOf(first));
    const auto after = tool.picture();
    EXPECT_EQ(after->row(60)[60], before->row(60)[60]);
    EXPECT_NE(after->row(180)[260], before->row(180)[260]);
    EXPECT_EQ(sizeOf(second), sizeOf(first));
}

TEST(EraseAnswer, HostilePicturesDoNoHarm)
{
    EraseTool tool;
    tool.draw({{100, 100}}, brush(30));
    const Request request = tool.request("1");
    const auto good = plainAnswer(sizeOf(request), 0.9f);
    const std::size_t liveBefore = MemoryManager::instance().liveBytes();
    std::mt19937 random(11);
    for (int i = 0; i < 120; ++i) {
        std::string text = good;
        for (int k = 0; k < 1 + i % 4; ++k)
            text[22 + random() % (text.size() - 22)] = "ABCDabcd0189+/= \x7f"[random() % 18];
        if (i % 3 == 0)
            text.resize(23 + random() % (text.size() - 23));
        tool.applyGeneratedResponse(text, sizeOf(request));
    }
    // Tiny and strangely shaped ones.
    for (const _Size<int> size : {_Size<int>(1, 1), {1, 500}, {500, 1}, {3, 2}})
        tool.applyGeneratedResponse(plainAnswer(size, 0.5f), sizeOf(request));
    const auto after = tool.picture();
    EXPECT_LT(largestDifference(*after, *plain(320, 240, 0.5f)), 1.5f); // finite everywhere
    EXPECT_LT(MemoryManager::instance().liveBytes(), liveBefore + 40'000'000);
}

TEST(EraseAnswer, OneThreadGivesTheSameBytes)
{
    const auto run = [] {
        EraseTool tool({600, 500});
        tool.draw({{300, 250}, {350, 300}}, brush(40, 0.5f));
        const Request request = tool.request("1");
        tool.applyGeneratedResponse(scaledAnswer(request, 0.6), sizeOf(request));
        return std::pair(request.image + request.mask, tool.picture());
    };
    const auto many = run();
    const WorkerLimit one(1);
    const auto single = run();
    EXPECT_EQ(single.first, many.first);
    EXPECT_TRUE(sameBytes(*single.second, *many.second));
}

TEST(ModifiedData, IsACopyWithAllTiles)
{
    const auto picture = textured(600, 300);
    const auto image = CreateOrvoImage(picture);
    const auto first = obtainModifiedData(image);
    EXPECT_TRUE(sameBytes(*std::as_const(*first).imageData(), *picture));
    image->setModifiedImageData(first, "");
    const auto second = obtainModifiedData(image);
    EXPECT_NE(second, first);
    EXPECT_EQ(second->getTiles(), first->getTiles());
    second->imageData()->row(5)[5] = {1, 1, 1};
    EXPECT_NE(std::as_const(*second).imageData()->row(5)[5], std::as_const(*first).imageData()->row(5)[5]);
}

TEST(EraseOpening, FromFilesAndCompositions)
{
    const TemporaryFolder folder;
    const auto path = writtenTo(folder / "picture.tif", *textured(90, 70));
    EXPECT_EQ(GenerativeEraseProcessor(StateSource{path, {}, {}}).getCanvasSize(), _Size<int>(90, 70));
    const auto bytes = ImageLoader::load(path);
    const auto composer = std::make_shared<Composer>(ImageLoader::getSize(bytes));
    composer->createLayer(bytes, {}, ComposerScaleMode::Fill);
    ImageLoader::dispose(bytes);
    CropDescription crop;
    crop.rect = {10, 10, 50, 40};
    composer->setCropDescription(crop);
    EXPECT_EQ(GenerativeEraseProcessor(composer).getCanvasSize(), _Size<int>(50, 40));
}

TEST(EraseOpening, WhatCannotBeOpenedIsLoggedAndDoesNothing)
{
    const LogCapture log;
    GenerativeEraseProcessor missing(StateSource{"/nowhere/picture.jpg", {}, {}});
    GenerativeEraseProcessor none{std::shared_ptr<const Picture>()};
    GenerativeEraseProcessor noComposer{std::shared_ptr<Composer>()};
    EXPECT_EQ(errors(log).size(), 3u);
    for (auto* const tool : {&missing, &none, &noComposer}) {
        EXPECT_EQ(tool->getCanvasSize(), _Size<int>());
        tool->initRender([](const Data&) {}, {});
        tool->beginDrawing();
        tool->strokePoints({{1, 1}}, brush(3));
        tool->finishDrawing();
        tool->generateRequest("1", {}, [](const Request&) {});
        tool->applyGeneratedResponse(plainAnswer({5, 5}, 0.5f), {5, 5});
        EXPECT_TRUE(tool->storeState().empty());
        tool->restoreState({}, {});
        EXPECT_TRUE(tool->storeMask().empty());
        tool->generateDataForExport({});
    }
}

} // namespace
} // namespace orvo::test
