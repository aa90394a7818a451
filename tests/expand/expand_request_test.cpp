#include "expand_tool.hpp"
#include "support/live_planes.hpp"

#include <orvo/answers.hpp>
#include <orvo_common/memory_manager.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <random>

namespace orvo::test {
namespace {

using ::testing::ElementsAre;
using ::testing::EndsWith;
using ::testing::IsEmpty;

std::shared_ptr<Picture> noise(int width, int height)
{
    std::mt19937 random(3);
    return drawn(width, height, [&](int, int) {
        const auto v = [&] { return static_cast<float>(random() % 256) / 255.0f; };
        return PixelRGB<float>{v(), v(), v()};
    });
}

bool isHard(const Picture& mask)
{
    for (std::size_t i = 0; i < mask.pixelCount(); ++i)
        if (mask.data()[i].g != 0.0f && mask.data()[i].g != 1.0f)
            return false;
    return true;
}

TEST(ExpandRequest, ShowsThePictureOnGrayAndAMaskOfWhatIsNew)
{
    ExpandTool tool({300, 200});
    const auto original = tool.picture();
    const Request request = tool.request(cropOf(-40, -30, 380, 260), "seven");
    ASSERT_TRUE(request.valid);
    EXPECT_EQ(request.id, "seven");
    const auto sent = convertToImageData(request.image);
    const auto mask = convertToImageData(request.mask);
    ASSERT_EQ(sent->size(), _Size<int>(380, 260)) << "all sides: the whole canvas";
    EXPECT_EQ(mask->size(), sent->size());
    EXPECT_EQ(request.width, 380);
    std::shared_ptr<Picture> expected;
    original->colorTransform(expected, ColorProfileType::sRGB(), true);
    for (int y = 0; y < 200; ++y)
        for (int x = 0; x < 300; ++x)
            ASSERT_NEAR(sent->row(y + 30)[x + 40].g, expected->row(y)[x].g, 1.1f / 255);
    EXPECT_EQ(mask->row(3)[3].g, 1.0f);
    EXPECT_EQ(mask->row(130)[190].g, 0.0f);
    const auto& parameters = *tool.inside().requestParameters;
    EXPECT_EQ(parameters.rect, _Rect<int>(0, 0, 380, 260));
    EXPECT_EQ(parameters.sourceRect, _Rect<int>(40, 30, 300, 200));
    EXPECT_EQ(parameters.id, "seven");
    EXPECT_EQ(parameters.canvas->size(), _Size<int>(380, 260));
    EXPECT_EQ(parameters.mask->size(), _Size<int>(380, 260));
}

TEST(ExpandRequest, SendsTheSurroundingsOfOneNewSide)
{
    ExpandTool tool({600, 300});
    const Request request = tool.request(cropOf(0, 0, 860, 300));
    const auto& parameters = *tool.inside().requestParameters;
    const _Rect<int> strip(600, 0, 260, 300);
    EXPECT_EQ(parameters.rect, adjustProcessingRect(strip, {860, 300}, {0, 0}));
    EXPECT_LT(parameters.rect.width, 860);
    EXPECT_EQ(parameters.rect.x + parameters.rect.width, 860);
    EXPECT_EQ(convertToImageData(request.image)->size(), parameters.rect.size());
}

TEST(ExpandRequest, ASliverOfTheKnownPictureIsWidened)
{
    ExpandTool tool({600, 300});
    (void)tool.request(cropOf(0, 0, 660, 300));
    const auto& rect = tool.inside().requestParameters->rect;
    // At first 90 known columns for 300 rows; the limit needs 300 / 2.45.
    const int known = static_cast<int>(std::ceil(300 / 2.45f));
    EXPECT_EQ(rect, _Rect<int>(600 - known, 0, known + 60, 300));
}

TEST(ExpandRequest, TheSentMaskFadesOnlyWhereNothingWasScaled)
{
    const auto picture = noise(300, 200);
    {
        ExpandTool tool(picture);
        EXPECT_FALSE(isHard(*convertToImageData(tool.request(cropOf(-40, 0, 340, 200)).mask)));
    }
    ExpandTool tool(picture);
    tool.inside().maxRequestPixels = 5000;
    const Request request = tool.request(cropOf(-40, 0, 340, 200));
    const auto mask = convertToImageData(request.mask);
    EXPECT_TRUE(isHard(*mask));
    EXPECT_EQ(mask->size(), convertToImageData(request.image)->size());
    EXPECT_EQ(request.width, mask->width());
    const auto& parameters = *tool.inside().requestParameters;
    EXPECT_EQ(parameters.downsampledSize, calculateDownsampledSize(mask->size(), parameters.rect.size()));
    EXPECT_EQ(parameters.mask->size(), parameters.rect.size()) << "blends at full size";
    EXPECT_LT(mask->width(), parameters.rect.width);
}

TEST(ExpandRequest, ThePixelBudgetCountsTheKnownPartAlone)
{
    ExpandTool tool({400, 300});
    tool.inside().maxRequestPixels = 400 * 300;
    const Request request = tool.request(cropOf(-200, -200, 800, 700));
    EXPECT_EQ(request.width, 800);
    tool.inside().maxRequestPixels = 200 * 150;
    EXPECT_EQ(tool.request(cropOf(-200, -200, 800, 700)).width, 400);
}

TEST(ExpandRequest, ALongTextMakesItSmaller)
{
    ExpandTool tool(noise(300, 200));
    tool.inside().maxRequestBase64Size = 60000;
    const Request request = tool.request(cropOf(-30, -30, 360, 260));
    ASSERT_TRUE(request.valid);
    EXPECT_LT(request.width, 300);
    EXPECT_EQ(convertToImageData(request.image)->width(), request.width);
    tool.inside().maxRequestBase64Size = 1;
    const Request tiny = tool.request(cropOf(-30, -30, 360, 260));
    ASSERT_TRUE(tiny.valid);
    EXPECT_GE(tiny.width, 1);
    EXPECT_LT(tiny.width, 12);
}

TEST(ExpandRequest, NoBorderIsWiderThanAServicePaints)
{
    ExpandTool tool({400, 300});
    const Request left = tool.request(cropOf(-2500, 0, 2900, 300));
    const int width = tool.inside().requestParameters->rect.width;
    EXPECT_EQ(left.width, static_cast<int>(static_cast<float>(width) * 0.8f));
    const auto mask = convertToImageData(left.mask);
    EXPECT_EQ(mask->size(), convertToImageData(left.image)->size());
    EXPECT_TRUE(isHard(*mask));
    const Request narrow = tool.request(cropOf(-2000, 0, 2400, 300));
    EXPECT_EQ(narrow.width, tool.inside().requestParameters->rect.width);
    // Counted at the scale of the request: 1250 pixels at half the size.
    tool.inside().maxRequestPixels = 200 * 150;
    EXPECT_EQ(tool.request(cropOf(-2500, 0, 2900, 300)).width, 2900 / 2);
}

TEST(ExpandRequest, AFlatKnownPartIsMadeHigherAsFarAsThePictureGoes)
{
    // At first the known part has 80 rows of 480 pixels; the limit needs 480 / 2.45.
    const int needed = static_cast<int>(std::ceil(480 / 2.45f));
    ExpandTool tool({480, 360});
    const auto& rect = tool.inside().requestParameters->rect;
    (void)tool.request(cropOf(0, -160, 480, 520));
    EXPECT_EQ(rect, _Rect<int>(0, 0, 480, 160 + needed));
    (void)tool.request(cropOf(0, 0, 480, 520));
    EXPECT_EQ(rect, _Rect<int>(0, 360 - needed, 480, needed + 160)) << "moved back into the picture";
    ExpandTool low({480, 120});
    (void)low.request(cropOf(0, -160, 480, 280));
    EXPECT_EQ(low.inside().requestParameters->rect, _Rect<int>(0, 0, 480, 280)) << "there are only 120 rows";
}

TEST(ExpandRequest, AStripIsSentNarrower)
{
    // The known part of 1200 x 100 cannot grow; within the aspect it is 245 wide.
    ExpandTool strip({1200, 100});
    const Request request = strip.request(cropOf(0, 0, 1200, 140));
    ASSERT_TRUE(request.valid);
    EXPECT_EQ(strip.inside().requestParameters->rect, _Rect<int>(0, 0, 1200, 140));
    EXPECT_NEAR(request.width, 245, 1);
    EXPECT_EQ(convertToImageData(request.image)->size(), _Size<int>(request.width, 140));
}

TEST(ExpandRequest, ACutPictureGivesNoAreaBeyondTheCanvas)
{
    // The known part is 300 x 100, and more rows are outside of the crop.
    ExpandTool tool({1000, 1000});
    const Request request = tool.request(cropOf(0, 900, 1600, 100));
    ASSERT_TRUE(request.valid);
    EXPECT_EQ(tool.inside().requestParameters->rect, _Rect<int>(700, 0, 900, 100));
}

TEST(ExpandRequest, ACropAtTheEndOfTheCoordinatesIsServed)
{
    for (const int x : kFarAway) {
        ExpandTool tool({60, 40});
        const Request request = tool.request(cropOf(x, 0, 200, 100));
        EXPECT_TRUE(request.valid) << x;
        const auto& parameters = *tool.inside().requestParameters;
        EXPECT_EQ(parameters.rect, _Rect<int>(0, 0, 200, 100)) << x;
        EXPECT_EQ(parameters.sourceRect.x > 0, x < 0) << "the picture is on the other side";
    }
}

TEST(ExpandRequest, AnEmptyCropHasNoRequest)
{
    ExpandTool tool({60, 40});
    for (const CropDescription& crop : {CropDescription(), cropOf(5, 5, 0, 9), cropOf(0, 0, -3, 8)}) {
        const LogCapture log;
        const Request request = tool.request(crop, "none");
        EXPECT_FALSE(request.valid);
        EXPECT_EQ(request.id, "none");
        EXPECT_TRUE(request.image.empty() && request.mask.empty());
        EXPECT_THAT(errors(log), ElementsAre(EndsWith(": Failed to generate request with empty crop description.")));
    }
}

TEST(ExpandRequest, ACropThatCutsIntoThePictureIsReportedAndServed)
{
    ExpandTool tool({300, 200});
    const LogCapture log;
    const Request request = tool.request(cropOf(50, -30, 250, 230));
    EXPECT_TRUE(request.valid);
    EXPECT_THAT(errors(log), ElementsAre(EndsWith(": Improper rect")));
    EXPECT_EQ(tool.inside().requestParameters->sourceRect, _Rect<int>(-50, 30, 300, 200));
}

TEST(ExpandRequest, WithoutABorderTheWholePictureIsSent)
{
    ExpandTool tool({300, 200});
    const LogCapture log;
    const Request request = tool.request(cropOf(0, 0, 300, 200));
    ASSERT_TRUE(request.valid);
    EXPECT_EQ(convertToImageData(request.image)->size(), _Size<int>(300, 200));
    const auto mask = convertToImageData(request.mask);
    for (std::size_t i = 0; i < mask->pixelCount(); ++i)
        ASSERT_EQ(mask->data()[i].g, 0.0f);
    EXPECT_THAT(errors(log), IsEmpty());
}

TEST(ExpandRequest, ACropBesideThePictureIsAllNew)
{
    ExpandTool tool({300, 200});
    const LogCapture log;
    const Request request = tool.request(cropOf(500, 0, 100, 80));
    ASSERT_TRUE(request.valid);
    const auto mask = convertToImageData(request.mask);
    for (std::size_t i = 0; i < mask->pixelCount(); ++i)
        ASSERT_EQ(mask->data()[i].g, 1.0f);
    EXPECT_THAT(errors(log), ElementsAre(EndsWith(": Improper rect")));
}

TEST(ExpandRequest, ACanvasThatFitsNoMemoryHasNoRequest)
{
    ExpandTool tool({60, 40});
    const LogCapture log;
    EXPECT_FALSE(tool.request(cropOf(0, 0, 2000000000, 2000000000)).valid);
    EXPECT_EQ(errors(log).size(), 1u);
}

TEST(ExpandRequest, TheRequestedCanvasIsKnownAtOnce)
{
    ExpandTool tool({60, 40});
    EXPECT_EQ(tool.requestedCanvasSize(), _Size<int>(60, 40));
    tool.generateRequest("1", cropOf(-5, 0, 70, 40), {}, {});
    EXPECT_EQ(tool.requestedCanvasSize(), _Size<int>(70, 40));
    EXPECT_EQ(tool.getCanvasSize(), _Size<int>(60, 40));
    tool.settle();
    EXPECT_FALSE(tool.inside().requestParameters->canvas) << "nobody asked for it";
}

TEST(ExpandRequest, LeavesNoPlaneBehind)
{
    const std::size_t live = liveBytesDownTo(0); // an earlier test may still be saving
    {
        ExpandTool tool({300, 200});
        (void)tool.request(cropOf(-40, 0, 340, 200));
    }
    EXPECT_EQ(liveBytesDownTo(live), live);
}

} // namespace
} // namespace orvo::test
