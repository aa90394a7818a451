#include "onnx_writer.hpp"
#include "orvo_test_pictures.hpp"

#include <orvo/upscaling.hpp>
#include <orvo_core/parallel.hpp>
#include <orvo_io/settings.hpp>
#include <orvo_logger/log_capture.hpp>

#include <gtest/gtest.h>

namespace {

using orvo::ColorProfileType;
using orvo::LogCapture;
using orvo::orvosettings;
using orvo::PicturePointer;
using orvo::UpscaleAISettings;
using orvo::upscaleX;
using orvo::WorkerLimit;
using test::Picture;
using test::Pixel;
using test::onnx::convolveAndEnlarge;
using test::onnx::ModelFile;

// A blur with a reach of 2 samples.
const std::vector<float> kBlur(25, 1.0f / 25.0f);

class NetworkUpscaling : public testing::Test
{
protected:
    void use(const ModelFile& file) { orvosettings().set<std::string>("Upscale.model", file.path.string()); }

    void TearDown() override
    {
        for (const char* const key : {"Upscale.model", "Upscale.scale", "Upscale.overlap"})
            orvosettings().remove(key);
    }

    static PicturePointer upscaled(const PicturePointer& picture, const UpscaleAISettings& settings = {})
    {
        return upscaleX(picture, settings, nullptr, nullptr, {});
    }

    // One line of level Error that names the file, in our words, and no picture.
    static void expectRefused(const std::filesystem::path& model, const std::string& reason)
    {
        const LogCapture log;
        EXPECT_FALSE(upscaled(test::noise({20, 20}, ColorProfileType::melissaRGB(), 1)));
        const auto lines = log.texts(orvo::LogMessageType::Error);
        ASSERT_EQ(lines.size(), 1u) << reason;
        EXPECT_EQ(log.lines().size(), 1u + log.texts(orvo::LogMessageType::Diagnostic).size()) << "nothing for users";
        EXPECT_NE(lines[0].find(model.string()), std::string::npos) << lines[0];
        EXPECT_NE(lines[0].find("expected"), std::string::npos) << lines[0];
        EXPECT_NE(lines[0].find(reason), std::string::npos) << lines[0];
        EXPECT_EQ(lines[0].find("OpenCV("), std::string::npos) << lines[0];
    }
};

TEST_F(NetworkUpscaling, IdentityIsExactAcrossAllTiles)
{
    const ModelFile file(test::onnx::identity(3));
    use(file);
    const auto picture = test::noise({301, 277}, ColorProfileType::melissaRGB(), 3, -0.3f, 1.5f);
    for (const int overlap : {0, 5, 16}) {
        orvosettings().set<int>("Upscale.overlap", overlap);
        const auto result = upscaled(picture);
        ASSERT_TRUE(result);
        EXPECT_TRUE(test::bytesEqual(*result, *picture)) << overlap;
    }
}

TEST_F(NetworkUpscaling, EnlargesByTheScaleOfTheNetwork)
{
    const auto picture = test::noise({150, 140}, ColorProfileType::melissaRGB(), 3);
    for (const int scale : {2, 3, 4}) {
        const ModelFile file(convolveAndEnlarge(3, {1.0f}, 1, scale));
        use(file);
        const auto result = upscaled(picture);
        ASSERT_TRUE(result) << scale;
        ASSERT_EQ(result->size(), orvo::_Size<int>(150 * scale, 140 * scale));
        for (int y = 0; y < result->height(); ++y)
            for (int x = 0; x < result->width(); ++x)
                ASSERT_EQ(result->row(y)[x], picture->row(y / scale)[x / scale]) << x << ' ' << y;
    }
}

TEST_F(NetworkUpscaling, LeavesNoSeamBetweenTiles)
{
    const ModelFile file(convolveAndEnlarge(3, kBlur, 5, 2));
    use(file);
    const auto picture = test::noise({290, 150}, ColorProfileType::melissaRGB(), 3);
    const auto result = upscaled(picture);
    ASSERT_TRUE(result);
    for (int y = 0; y < picture->height(); ++y)
        for (int x = 0; x < picture->width(); ++x) {
            double sum = 0.0;
            for (int dy = -2; dy <= 2; ++dy)
                for (int dx = -2; dx <= 2; ++dx)
                    sum += static_cast<double>(picture->row(std::clamp(y + dy, 0, 149))[std::clamp(x + dx, 0, 289)].g);
            ASSERT_NEAR(result->row(2 * y + 1)[2 * x].g, sum / 25.0, 2e-6) << x << ' ' << y;
        }
}

TEST_F(NetworkUpscaling, LumaNetworkKeepsColours)
{
    const ModelFile file(convolveAndEnlarge(1, {1.0f}, 1, 2));
    use(file);
    const auto picture = test::drawn({160, 30}, ColorProfileType::melissaRGB(), [](int x, int) {
        return x < 80 ? Pixel{0.8f, 0.3f, 0.1f} : Pixel{0.2f, 0.5f, 0.9f};
    });
    const auto result = upscaled(picture);
    ASSERT_TRUE(result);
    ASSERT_EQ(result->size(), orvo::_Size<int>(320, 60));
    const auto near = [](const Pixel& a, const Pixel& b) {
        return std::abs(a.r - b.r) < 1e-5f && std::abs(a.g - b.g) < 1e-5f && std::abs(a.b - b.b) < 1e-5f;
    };
    EXPECT_TRUE(near(result->row(30)[20], {0.8f, 0.3f, 0.1f}));
    EXPECT_TRUE(near(result->row(30)[300], {0.2f, 0.5f, 0.9f}));
    // Nearest neighbour in luma: up to the edge it is the luma of the left side.
    const Pixel edge = result->row(30)[159];
    EXPECT_NEAR(0.3f * edge.r + 0.6f * edge.g + 0.1f * edge.b, 0.3f * 0.8f + 0.6f * 0.3f + 0.1f * 0.1f, 1e-5f);
}

TEST_F(NetworkUpscaling, IsTheSameForAnyNumberOfThreads)
{
    const auto picture = test::noise({300, 200}, ColorProfileType::melissaRGB(), 3);
    for (const int side : {3, 5}) { // OpenCV has a special convolution for 3 x 3
        const ModelFile file(
            convolveAndEnlarge(3, std::vector<float>(static_cast<std::size_t>(side * side), 0.11f), side, 2));
        use(file);
        PicturePointer single;
        {
            const WorkerLimit limit(1);
            single = upscaled(picture);
        }
        const WorkerLimit limit(2);
        const auto both = upscaled(picture);
        ASSERT_TRUE(single && both);
        EXPECT_TRUE(test::bytesEqual(*single, *both)) << side;
    }
}

TEST_F(NetworkUpscaling, UsesDeclaredSides)
{
    const ModelFile file(convolveAndEnlarge(3, kBlur, 5, 2, {48, 64}));
    use(file);
    const auto picture = test::noise({100, 90}, ColorProfileType::melissaRGB(), 3);
    const auto result = upscaled(picture);
    ASSERT_TRUE(result);
    const ModelFile open(convolveAndEnlarge(3, kBlur, 5, 2));
    use(open);
    EXPECT_LT(test::largestChange(*result, *upscaled(picture)), 1e-6f);
    use(file);
    orvosettings().set<int>("Upscale.overlap", 24);
    expectRefused(file.path, "48");
}

TEST_F(NetworkUpscaling, SeveralPassesAndTheBuiltInFilters)
{
    const ModelFile file(convolveAndEnlarge(3, {1.0f}, 1, 3));
    use(file);
    const auto picture = test::noise({31, 17}, ColorProfileType::melissaRGB(), 3);
    UpscaleAISettings settings;
    settings.passes = 2;
    EXPECT_EQ(upscaled(picture, settings)->size(), orvo::_Size<int>(279, 153));
    settings.builtIn = true;
    EXPECT_EQ(upscaled(picture, settings)->size(), orvo::_Size<int>(124, 68));
}

TEST_F(NetworkUpscaling, StopsOnCancel)
{
    const ModelFile file(test::onnx::identity(3));
    use(file);
    const LogCapture log;
    const std::atomic<bool> cancel = true;
    EXPECT_FALSE(upscaleX(test::noise({20, 20}, ColorProfileType::melissaRGB(), 1), {}, nullptr, &cancel, {}));
    EXPECT_TRUE(log.lines().empty());
}

TEST_F(NetworkUpscaling, ReplacesNotANumber)
{
    const ModelFile file(convolveAndEnlarge(3, {test::kInfinity}, 1, 2));
    use(file);
    const auto picture = test::noise({20, 20}, ColorProfileType::melissaRGB(), 1);
    const auto result = upscaled(picture);
    ASSERT_TRUE(result);
    EXPECT_EQ(result->row(7)[9], picture->row(3)[4]);
}

TEST_F(NetworkUpscaling, RefusesBadModels)
{
    const std::string sound = convolveAndEnlarge(3, kBlur, 5, 2);
    const auto refused = [&](const std::string& bytes, const std::string& reason) {
        const ModelFile file(bytes);
        use(file);
        expectRefused(file.path, reason);
    };
    refused("", "0 bytes");
    refused("this is text, not a network\n", "ONNX");
    refused(convolveAndEnlarge(5, {1.0f}, 1, 2), "any");
    refused(convolveAndEnlarge(3, {1.0f}, 1, 9), "1 x 3 x 1440 x 1440");
    // A kernel without padding: the picture shrinks.
    refused(test::onnx::model({test::onnx::node("MaxPool", {"in"}, "out",
                                                {test::onnx::integers("kernel_shape", {2, 2}),
                                                 test::onnx::integers("strides", {2, 2})})},
                              {}, 3),
            "80 x 80");
    refused(test::onnx::model({test::onnx::node("Frobnicate", {"in"}, "out", {})}, {}, 3),
            "for C = 3 it has a layer Frobnicate that OpenCV ");
    refused(test::onnx::Message().message(7, test::onnx::Message().text(2, "empty")).bytes, "input");
    for (std::size_t size = 1; size < sound.size(); size += 1 + sound.size() / 40)
        refused(sound.substr(0, size), "expected");
    orvosettings().set<std::string>("Upscale.model", "/nowhere/at all.onnx");
    expectRefused("/nowhere/at all.onnx", "no such file");
    orvosettings().set<std::string>("Upscale.model", "/tmp");
    expectRefused("/tmp", "no such file");
}

TEST_F(NetworkUpscaling, SurvivesDamagedModels)
{
    const std::string sound = convolveAndEnlarge(1, std::vector<float>(9, 0.1f), 3, 2);
    const auto picture = test::noise({20, 20}, ColorProfileType::melissaRGB(), 1);
    std::mt19937 random(7);
    int refused = 0;
    for (int i = 0; i < 150; ++i) {
        std::string damaged = sound;
        for (int k = 0; k < 3; ++k)
            damaged[random() % damaged.size()] = static_cast<char>(random());
        const ModelFile file(damaged);
        use(file);
        const LogCapture log;
        const bool empty = upscaled(picture) == nullptr;
        EXPECT_EQ(log.texts(orvo::LogMessageType::Error).size(), empty ? 1u : 0u);
        refused += empty ? 1 : 0;
    }
    EXPECT_GT(refused, 50);
    // A layer with a missing input, and weights shorter than their sides require.
    using namespace test::onnx;
    for (const std::string& bytes :
         {model({node("Conv", {"in", "absent"}, "out", {})}, {}, 3),
          model({node("Conv", {"in", "w"}, "out", {})}, {tensor("w", {3, 3, 1, 1}, {1.0f})}, 3),
          model({node("Conv", {"in", "w"}, "out", {integer("group", 0)})}, {tensor("w", {1, 3, 1, 1}, {1, 1, 1})},
                3)}) {
        const ModelFile file(bytes);
        use(file);
        expectRefused(file.path, "expected an undamaged ONNX file, found that ");
    }
}

TEST_F(NetworkUpscaling, RefusesWrongScalesAndOverlaps)
{
    const ModelFile file(convolveAndEnlarge(3, {1.0f}, 1, 2));
    use(file);
    for (const int scale : {0, -1, 9, 3}) {
        orvosettings().set<int>("Upscale.scale", scale);
        expectRefused(file.path, "Upscale.scale");
    }
    orvosettings().set<int>("Upscale.scale", 2);
    EXPECT_TRUE(upscaled(test::noise({20, 20}, ColorProfileType::melissaRGB(), 1)));
    for (const int overlap : {-1, 257}) {
        orvosettings().set<int>("Upscale.overlap", overlap);
        expectRefused(file.path, "Upscale.overlap");
    }
}

} // namespace
