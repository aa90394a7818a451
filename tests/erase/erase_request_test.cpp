#include "GenEraseProcessor/erase_request.hpp"
#include "erase_tool.hpp"

#include <orvo_common/failure.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <random>
#include <set>
#include <stdexcept>

namespace orvo::test {
namespace {

using ::testing::ElementsAre;
using ::testing::EndsWith;

std::vector<std::string> errors(const LogCapture& log) { return log.texts(LogMessageType::Error); }

TEST(MaskBounds, AreThoseOfWhatIsNotZero)
{
    TiledMaskImage mask({700, 600});
    EXPECT_EQ(maskBounds(mask), _Rect<int>());
    mask.writableTile(1, 1)[0] = 0.0f; // a tile with samples that are all 0
    EXPECT_EQ(maskBounds(mask), _Rect<int>());
    mask.writableTile(1, 1)[0] = 1e-6f; // within the tolerance of isFloatEqual()
    mask.setTile(0, 1, {1e-6f, nullptr});
    EXPECT_EQ(maskBounds(mask), _Rect<int>());
    mask.setTile(0, 1, {});
    mask.writableTile(1, 1)[3 * 256 + 5] = 0.01f;
    EXPECT_EQ(maskBounds(mask), _Rect<int>(261, 259, 1, 1));
    mask.writableTile(2, 2)[87 * 256 + 187] = 1.0f;
    EXPECT_EQ(maskBounds(mask), _Rect<int>(261, 259, 439, 341));
    mask.setTile(0, 0, {0.5f, nullptr});
    EXPECT_EQ(maskBounds(mask), _Rect<int>(0, 0, 700, 600));
    mask.fill(1.0f);
    EXPECT_EQ(maskBounds(mask), _Rect<int>(0, 0, 700, 600));
    EXPECT_EQ(maskBounds(TiledMaskImage({0, 0})), _Rect<int>());
}

TEST(EraseRequest, HoldsPictureAndMaskAroundWhatWasPainted)
{
    EraseTool tool({600, 500});
    tool.draw({{300, 250}}, brush(40));
    const Request request = tool.request("the id");
    EXPECT_TRUE(request.valid);
    EXPECT_EQ(request.id, "the id");
    const auto picture = convertToImageData(request.image);
    const auto mask = convertToImageData(request.mask);
    ASSERT_TRUE(picture && mask);
    EXPECT_EQ(picture->size(), mask->size());
    EXPECT_EQ(request.width, picture->width());
    const auto& parameters = *tool.inside().requestParameters;
    EXPECT_EQ(parameters.id, "the id");
    EXPECT_EQ(parameters.rect, _Rect<int>(220, 170, 160, 160)); // 80 painted, half as much on every side
    EXPECT_EQ(picture->size(), _Size<int>(160, 160));
    EXPECT_EQ(parameters.downsampledSize, _Size<int>(160, 160));
    EXPECT_EQ(parameters.mask->size(), _Size<int>(160, 160));
    EXPECT_EQ(mask->row(80)[80].r, 1.0f);
    EXPECT_EQ(mask->row(38)[80].r, 0.0f);          // hard, as painted
    EXPECT_GT(parameters.mask->row(38)[80], 0.0f); // the blend mask fades outward
    EXPECT_EQ(parameters.mask->row(2)[2], 0.0f);
    std::shared_ptr<Picture> expected;
    textured(600, 500)->copy(parameters.rect)->colorTransform(expected, ColorProfileType::sRGB(), true);
    EXPECT_LT(largestDifference(*picture, *expected), 0.51f / 255.0f + 1e-3f);
}

TEST(EraseRequest, DuringAPhaseThereIsNothingToSend)
{
    EraseTool tool;
    tool.beginDrawing();
    tool.strokePoints({{100, 100}}, brush(20));
    const LogCapture log;
    const Request request = tool.request("7");
    EXPECT_FALSE(request.valid);
    EXPECT_EQ(request.id, "7");
    EXPECT_EQ(request.width, 0);
    EXPECT_TRUE(request.image.empty() && request.mask.empty());
    EXPECT_THAT(errors(log), ElementsAre(EndsWith(": Failed to generate request with empty mask.")));
    tool.finishDrawing();
    EXPECT_TRUE(tool.request("8").valid);
}

TEST(EraseRequest, TheCallbackFindsTheReason)
{
    EraseTool tool;
    const auto reasonOf = [&](const auto& call) {
        std::promise<std::optional<Failure>> promise;
        auto future = promise.get_future();
        call([&] { promise.set_value(lastFailure()); });
        return future.get();
    };
    const auto request = [&](const auto& done) { tool.generateRequest("id", {}, [done](const auto&) { done(); }); };
    const auto refused = reasonOf(request);
    ASSERT_TRUE(refused);
    EXPECT_EQ(refused->sentence, "Failed to generate request with empty mask");
    const auto unknown = reasonOf([&](const auto& done) {
        tool.restoreState({1, 2}, [done](const auto&) { done(); });
    });
    ASSERT_TRUE(unknown);
    EXPECT_EQ(unknown->sentence, "Cannot parse id");
    tool.draw({{100, 100}}, brush(20));
    EXPECT_FALSE(reasonOf(request));
}

TEST(EraseRequest, AMaskOfZerosFailsWithoutALine)
{
    EraseTool tool;
    tool.beginDrawing();
    tool.finishDrawing();
    const LogCapture log;
    const Request request = tool.request("7");
    EXPECT_FALSE(request.valid);
    EXPECT_EQ(request.id, "7");
    EXPECT_TRUE(errors(log).empty());
    tool.generateRequest("8", {}, {}); // no callback: nothing happens
    tool.settle();
    EXPECT_EQ(tool.inside().requestParameters->id, "");
}

TEST(EraseRequest, AFailedRequestKeepsTheGeometryOfTheLast)
{
    EraseTool tool;
    tool.draw({{100, 100}}, brush(20));
    EXPECT_TRUE(tool.request("1").valid);
    const auto parameters = *tool.inside().requestParameters;
    tool.beginDrawing();
    EXPECT_FALSE(tool.request("2").valid);
    tool.clearMask();
    tool.finishDrawing();
    EXPECT_FALSE(tool.request("3").valid);
    EXPECT_EQ(tool.inside().requestParameters->id, "1");
    EXPECT_EQ(tool.inside().requestParameters->rect, parameters.rect);
    EXPECT_EQ(tool.inside().requestParameters->downsampledSize, parameters.downsampledSize);
    EXPECT_EQ(tool.inside().requestParameters->mask, parameters.mask);
}

TEST(EraseRequest, TheSizeIsUnusedAndTheLimitsAreThoseOfTheCall)
{
    EraseTool tool;
    tool.draw({{100, 100}}, brush(20));
    const Request expected = tool.request("1");
    Received<Request> received;
    const auto go = tool.busy();
    tool.generateRequest("1", {7, 3}, received.callback());
    tool.inside().maxRequestPixels = 100;
    tool.inside().maxRequestBase64Size = 100;
    tool.inside().maxRequestAspect = 1.0f;
    go->set_value();
    EXPECT_EQ(received.at(0).image, expected.image);
    EXPECT_EQ(received.at(0).mask, expected.mask);
    EXPECT_EQ(received.at(0).width, expected.width);
    EXPECT_LT(tool.request("2").width, expected.width);
}

TEST(EraseRequest, AnExceptionOfTheCallbackIsLoggedWithTheOperationsName)
{
    EraseTool tool;
    const LogCapture log;
    tool.generateRequest("1", {}, [](const Request&) { throw std::runtime_error("from the application"); });
    tool.settle();
    EXPECT_THAT(errors(log), ElementsAre(EndsWith(": Failed to generate request with empty mask."),
                                         "Exception in an operation generateRequest: from the application"));
}

TEST(EraseRequest, FailuresComeOnTheWorkerRequestsOnAThreadOfTheirOwn)
{
    EraseTool tool;
    std::thread::id worker;
    tool.inside().queue.addOperation(
        std::make_shared<opq::FunctionOperation>([&] { worker = std::this_thread::get_id(); }, ""));
    Received<std::thread::id> threads;
    tool.generateRequest("1", {}, [&](const Request&) { threads(std::this_thread::get_id()); });
    EXPECT_TRUE(threads.at(0) == worker);
    tool.draw({{100, 100}}, brush(20));
    tool.generateRequest("2", {}, [&](const Request&) { threads(std::this_thread::get_id()); });
    EXPECT_TRUE(threads.at(1) != worker);
}

TEST(EraseRequest, ACallbackOnTheWorkerMayEndTheTool)
{
    auto tool = std::make_unique<EraseTool>();
    Received<bool> valid;
    tool->generateRequest("1", {}, [&](const Request& request) {
        tool.reset();
        valid(request.valid);
    });
    EXPECT_FALSE(valid.at(0));
    EXPECT_FALSE(tool);
}

// A request for a part of a picture, without a processor.
std::shared_ptr<const GenEraseData> prepared(const std::shared_ptr<const Picture>& picture, const TiledMaskImage& mask,
                                             GenerativeProcessorBaseImpl::RequestParameters& parameters,
                                             RequestLimits limits = {8000000, 9000000, 2.45f})
{
    return prepareEraseRequest(*CreateOrvoImage(picture), mask, limits, "id", parameters);
}

TEST(EraseRequest, ACandidateHasItsTextAtEightBits)
{
    GenerativeProcessorBaseImpl::RequestParameters parameters;
    const auto data = prepared(textured(120, 90), TiledMaskImage({120, 90}, 0.6f), parameters);
    const auto smaller = data->resized({40, 30});
    EXPECT_EQ(smaller->image->size(), _Size<int>(40, 30));
    EXPECT_TRUE(sameBytes(*smaller->image, *data->image->resize({40, 30}, {}, true)));
    EXPECT_EQ(smaller->mask->size(), _Size<int>(40, 30));
    for (const auto& candidate : {data, smaller}) {
        EXPECT_TRUE(candidate->parameters == Base64EncodeParameters(0, 8));
        EXPECT_EQ(candidate->imageBase64, imageToBase64(candidate->image, {0, 8}));
        EXPECT_EQ(candidate->maskBase64, imageToBase64(candidate->mask, {0, 8}));
    }
}

TEST(EraseRequest, ExactlyThePixelBudgetIsNotScaled)
{
    GenerativeProcessorBaseImpl::RequestParameters parameters;
    auto data = prepared(plain(2000, 2000, 0.5f), TiledMaskImage({2000, 2000}, 1.0f), parameters);
    EXPECT_EQ(data->image->size(), _Size<int>(2000, 2000));
    data = prepared(plain(2001, 2000, 0.5f), TiledMaskImage({2001, 2000}, 1.0f), parameters);
    EXPECT_EQ(data->image->size(), _Size<int>(2000, 1999));
    EXPECT_EQ(parameters.rect, _Rect<int>(0, 0, 2001, 2000));
}

TEST(EraseRequest, ALongPictureIsSqueezedToTheAspect)
{
    GenerativeProcessorBaseImpl::RequestParameters parameters;
    const auto data = prepared(plain(4000, 1000, 0.5f), TiledMaskImage({4000, 1000}, 1.0f), parameters);
    EXPECT_EQ(data->image->size(), _Size<int>(2450, 1000));
    EXPECT_EQ(parameters.rect, _Rect<int>(0, 0, 4000, 1000));
    EXPECT_EQ(parameters.downsampledSize, _Size<int>(2450, 613)); // in proportion to the rectangle
    EXPECT_EQ(parameters.mask->size(), _Size<int>(4000, 1000));
}

std::shared_ptr<Picture> noisePicture(_Size<int> size)
{
    auto picture = std::make_shared<Picture>(size, ColorProfileType::sRGB());
    std::minstd_rand random(7);
    for (std::size_t i = 0; i < picture->pixelCount(); ++i) {
        const auto word = random();
        picture->data()[i] = {static_cast<float>(word & 255) / 255.0f, static_cast<float>(word >> 8 & 255) / 255.0f,
                              static_cast<float>(word >> 16 & 255) / 255.0f};
    }
    return picture;
}

TEST(EraseRequest, KeepsToTheLimitsWhateverThePictureIs)
{
    // An eighth of the real limits, so that the pictures can be small.
    const RequestLimits limits{250000, 280000, 2.45f};
    for (const _Size<int> size : {_Size<int>(100, 100), {800, 600}, {1600, 160}, {160, 1600}, {1, 4000}, {7, 3}})
        for (const bool noise : {true, false}) {
            GenerativeProcessorBaseImpl::RequestParameters parameters;
            const auto data = prepared(noise ? noisePicture(size) : textured(size.width, size.height),
                                       TiledMaskImage(size, 1.0f), parameters, limits);
            const auto request = data->image->size();
            EXPECT_LE(std::int64_t{request.width} * request.height * 2, limits.pixels);
            EXPECT_LE(data->imageBase64.size() + data->maskBase64.size(), 280000u);
            const auto longSide = static_cast<double>(std::max(request.width, request.height));
            const auto shortSide = static_cast<double>(std::min(request.width, request.height));
            EXPECT_LE(longSide / shortSide, 2.45 + 1e-6) << size.width << "x" << size.height;
            EXPECT_GE(shortSide, 1.0);
            EXPECT_EQ(data->mask->size(), request);
            // Noise compresses badly, so the text uses the limit.
            if (noise && size.width * size.height > 400000) {
                EXPECT_GT(data->imageBase64.size(), 240000u);
            }
        }
}

TEST(EraseRequest, TheRealLimitsHoldForLargePictures)
{
    for (const bool noise : {true, false}) {
        GenerativeProcessorBaseImpl::RequestParameters parameters;
        const _Size<int> size(4000, 2000);
        const auto data = prepared(noise ? noisePicture(size) : textured(size.width, size.height),
                                   TiledMaskImage(size, 1.0f), parameters);
        EXPECT_LE(std::int64_t{data->image->width()} * data->image->height() * 2, 8000000);
        EXPECT_LE(data->imageBase64.size() + data->maskBase64.size(), 9000000u);
        EXPECT_GT(data->image->width(), 1000);
    }
}

TEST(EraseRequest, ARequestOfWhatWasErasedShowsTheResult)
{
    EraseTool tool;
    tool.draw({{100, 100}}, brush(30));
    const Request first = tool.request("1");
    tool.applyGeneratedResponse(plainAnswer(sizeOf(first), 1.0f), sizeOf(first));
    const Request second = tool.request("2");
    EXPECT_NE(second.image, first.image);
    EXPECT_EQ(second.mask, first.mask);
}

} // namespace
} // namespace orvo::test
