// Filling by a network.
#include "filling_pictures.hpp"
#include "onnx_writer.hpp"

#include <gmock/gmock.h>

#include <string>
#include <vector>

namespace {

using namespace test;
using orvo::FailureError;
using testing::AllOf;
using testing::HasSubstr;
using testing::ThrowsMessage;

constexpr orvo::_Size<int> kSize{90, 70};
constexpr Pixel kPaint{0.25f, 0.5f, 0.75f};

struct Painter
{
    float scale = 1.0f;     // of its output
    bool maskFirst = false; // among its inputs
    int pictureChannels = 3;
    onnx::Sides sides{};
    const char* operation = "Concat"; // of its first layer
};

// Returns the picture where the mask is 0, and kPaint where it is 1 (the picture is black there): a convolution of 1 x
// 1 over both.
std::string painter(const Painter& kind)
{
    std::vector<float> weights(12, 0.0f);
    const float paint[] = {kPaint.r, kPaint.g, kPaint.b};
    for (std::size_t channel = 0; channel < 3; ++channel) {
        weights[4 * channel + channel] = kind.scale;
        weights[4 * channel + 3] = kind.scale * paint[channel];
    }
    onnx::Message graph;
    graph.message(1, onnx::node(kind.operation, {"image", "mask"}, "both", {onnx::integer("axis", 1)}));
    graph.message(1, onnx::node("Conv", {"both", "w"}, "out",
                                {onnx::integers("kernel_shape", {1, 1}), onnx::integers("strides", {1, 1}),
                                 onnx::integers("pads", {0, 0, 0, 0}), onnx::integers("dilations", {1, 1}),
                                 onnx::integer("group", 1)}));
    graph.text(2, "painter").message(5, onnx::tensor("w", {3, 4, 1, 1}, weights));
    const auto image = onnx::values("image", kind.pictureChannels, kind.sides);
    const auto mask = onnx::values("mask", 1, kind.sides);
    graph.message(11, kind.maskFirst ? mask : image).message(11, kind.maskFirst ? image : mask);
    graph.message(12, onnx::values("out", 3, {}));
    return onnx::Message().number(1, 7).message(8, onnx::Message().text(1, "").number(2, 11)).message(7, graph).bytes;
}

orvo::PicturePointer filledBy(const std::string& bytes, const Picture& picture, const Mask& mask,
                              const orvo::RunControl& control = orvo::RunControl::none())
{
    const onnx::ModelFile file(bytes, "painter");
    return orvo::networkFiller(file.path)->fill(picture, mask, control);
}

class NetworkFilling : public testing::TestWithParam<Painter>
{};

TEST_P(NetworkFilling, TakesTheHoleOfWhatTheNetworkGives)
{
    const auto picture = drawn(kSize, nullptr, cloth);
    picture->row(1)[1] = {kNaN, 4.0f, -kInfinity};
    const auto mask = maskOf(kSize, within({40, 30, 20, 20}));
    const auto result = filledBy(painter(GetParam()), *picture, *mask);
    ASSERT_TRUE(result);
    EXPECT_TRUE(knownEqual(*picture, *result, *mask));
    const auto expected = drawn(kSize, nullptr, [](int, int) { return kPaint; });
    const auto middle = maskOf(kSize, within({44, 34, 12, 12})); // away from the rim, which interpolation affects
    EXPECT_LT(worstInside(*expected, *result, *middle), 0.01f);
}

INSTANTIATE_TEST_SUITE_P(Kinds, NetworkFilling,
                         testing::Values(Painter{}, Painter{.scale = 255.0f}, Painter{.maskFirst = true},
                                         Painter{.sides = {64, 64}}, Painter{.sides = {48, 96}}));

TEST(NetworkFilling, FillsAroundThePicture)
{
    const auto picture = drawn(kSize, nullptr, cloth);
    const auto mask = maskOf(kSize, [](int x, int y) { return !within({20, 15, 50, 40})(x, y); });
    const auto result = filledBy(painter({}), *picture, *mask);
    EXPECT_TRUE(finite(*result));
    EXPECT_TRUE(knownEqual(*picture, *result, *mask));
    EXPECT_NEAR(result->row(2)[2].g, kPaint.g, 0.01f);
    EXPECT_NEAR(result->row(67)[88].b, kPaint.b, 0.01f);
}

TEST(NetworkFilling, StopsWhenCancelled)
{
    const auto picture = drawn(kSize, nullptr, cloth);
    EXPECT_THROW((void)filledBy(painter({}), *picture, *maskOf(kSize, within({40, 30, 20, 20})),
                                orvo::RunControl([] { return true; })),
                 FailureError);
    EXPECT_EQ(orvo::lastFailure(), orvo::cancelledFailure());
}

TEST(NetworkFilling, RefusesWhatIsNoInpaintingNetwork)
{
    const auto expectRefusal = [](const std::string& bytes, const std::string& found) {
        const onnx::ModelFile file(bytes, "refused");
        EXPECT_THAT([&] { (void)orvo::networkFiller(file.path); },
                    ThrowsMessage<FailureError>(AllOf(HasSubstr(file.path.string()), HasSubstr(found))));
    };
    expectRefusal(onnx::identity(3), "found 1 x 3 x any x any");
    expectRefusal(painter({.pictureChannels = 4}), "1 x 4 x any x any and 1 x 1 x any x any");
    expectRefusal(painter({.sides = {64, 100'000}}), "found 100000");
    expectRefusal(painter({.operation = "Frobnicate"}), ": expected a network that fills pictures, found a layer "
                                                        "Frobnicate that OpenCV ");
    expectRefusal("Dear photographer", "found one without a graph that has inputs");
    expectRefusal("", "found 0 bytes");
    EXPECT_THAT([] { (void)orvo::networkFiller("/nowhere/at/all.onnx"); },
                ThrowsMessage<FailureError>(AllOf(HasSubstr("/nowhere/at/all.onnx"), HasSubstr("no such file"))));
}

} // namespace
