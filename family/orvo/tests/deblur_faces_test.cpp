// A drawn face, blurred by a known amount, must be restored; everything else must stay.

#include "detection_network.hpp"
#include "drawn_face.hpp"

#include <orvo/deblur_ai_effect.hpp>
#include <orvo_common/memory_manager.hpp>
#include <orvo_common/run_control.hpp>
#include <orvo_core/parallel.hpp>
#include <orvo_io/image_reader.hpp>
#include <orvo_io/settings.hpp>
#include <orvo_logger/log_capture.hpp>

#include <gmock/gmock.h>

#include <algorithm>
#include <atomic>
#include <fstream>
#include <random>

namespace {

using orvo::ColorProfileType;
using orvo::DeblurAIEffect;
using orvo::LogMessageType;
using orvo::PicturePointer;
using test::FacePlace;
using test::kInfinity;
using test::kNaN;
using test::Picture;
using test::Pixel;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

constexpr FacePlace kPlace{198.3, 196.7, 80.0};
constexpr orvo::_Size<int> kSize{400, 400};
const char* const kCascades = "/usr/share/opencv4/haarcascades";

// Faces in front of a wavy background; red, green and blue in fixed ratios.
Pixel coloured(double value)
{
    return {static_cast<float>(value), static_cast<float>(0.85 * value), static_cast<float>(0.75 * value)};
}

PicturePointer scene(orvo::_Size<int> size, const std::vector<FacePlace>& places)
{
    return test::drawn(size, ColorProfileType::sRGB(), [&](int x, int y) {
        double value = 0.45 + 0.1 * std::sin(0.05 * x) * std::sin(0.07 * y);
        for (const FacePlace& place : places)
            value = test::DrawnFace(place).over(value, x, y);
        return coloured(value);
    });
}

// A Gaussian of `sigma` px with a repeated border.
PicturePointer blurred(const Picture& picture, double sigma)
{
    const int reach = static_cast<int>(std::ceil(4.0 * sigma));
    std::vector<float> weights;
    for (int i = -reach; i <= reach; ++i)
        weights.push_back(static_cast<float>(std::exp(-0.5 * i * i / (sigma * sigma))));
    float sum = 0.0f;
    for (const float w : weights)
        sum += w;
    const auto pass = [&](const Picture& from, int stepX, int stepY) {
        return test::drawn(from.size(), from.colorProfile(), [&](int x, int y) {
            Pixel p{};
            for (int i = -reach; i <= reach; ++i) {
                const Pixel& q = from.row(
                    std::clamp(y + i * stepY, 0, from.height() - 1))[std::clamp(x + i * stepX, 0, from.width() - 1)];
                const float w = weights[static_cast<std::size_t>(i + reach)] / sum;
                p = {p.r + w * q.r, p.g + w * q.g, p.b + w * q.b};
            }
            return p;
        });
    };
    return pass(*pass(picture, 1, 0), 0, 1);
}

PicturePointer withNoise(const Picture& picture, float deviation)
{
    std::mt19937 random(11);
    std::normal_distribution<float> values(0.0f, deviation);
    return test::drawn(picture.size(), picture.colorProfile(), [&](int x, int y) {
        const Pixel& p = picture.row(y)[x];
        const float r = values(random), g = values(random);
        return Pixel{p.r + r, p.g + g, p.b + values(random)};
    });
}

// The head without the neck, as a rectangle.
orvo::_Rect<int> headOf(const FacePlace& place)
{
    const double half = place.half;
    return {static_cast<int>(place.x - half), static_cast<int>(place.y - 1.2 * half), static_cast<int>(2.0 * half),
            static_cast<int>(2.4 * half)};
}

// In dB, over all channels of `rect`.
double fidelity(const Picture& truth, const Picture& picture, const orvo::_Rect<int>& rect)
{
    double sum = 0.0;
    for (int y = rect.y; y < rect.y + rect.height; ++y)
        for (int x = rect.x; x < rect.x + rect.width; ++x) {
            const Pixel& p = truth.row(y)[x];
            const Pixel& q = picture.row(y)[x];
            for (const float d : {p.r - q.r, p.g - q.g, p.b - q.b})
                sum += static_cast<double>(d) * static_cast<double>(d);
        }
    return -10.0 * std::log10(sum / (3.0 * rect.width * rect.height));
}

// The largest amount by which green of `picture` exceeds the range of `truth` within `reach` px.
float overshoot(const Picture& truth, const Picture& picture, const orvo::_Rect<int>& rect, int reach)
{
    float most = 0.0f;
    for (int y = rect.y; y < rect.y + rect.height; ++y)
        for (int x = rect.x; x < rect.x + rect.width; ++x) {
            float low = kInfinity, high = -kInfinity;
            for (int j = y - reach; j <= y + reach; ++j)
                for (int i = x - reach; i <= x + reach; ++i) {
                    low = std::min(low, truth.row(j)[i].g);
                    high = std::max(high, truth.row(j)[i].g);
                }
            const float v = picture.row(y)[x].g;
            most = std::max({most, low - v, v - high});
        }
    return most;
}

bool same(const Pixel& a, const Pixel& b) { return std::memcmp(&a, &b, sizeof a) == 0; }

PicturePointer deblur(const PicturePointer& picture, float amount = 1.0f)
{
    return DeblurAIEffect::deblurFaces("test", picture, amount, true, true, nullptr);
}

// A temporary folder, removed afterwards; restores the settings.
class DeblurFaces : public testing::Test
{
protected:
    void SetUp() override
    {
        if (!std::filesystem::is_directory(kCascades))
            GTEST_SKIP() << kCascades << " is missing: install opencv-data";
        folder = std::filesystem::temp_directory_path() / ("deblur_faces_" + std::to_string(std::random_device()()));
        std::filesystem::create_directories(folder);
    }
    void TearDown() override
    {
        orvo::orvosettings().remove("Faces.cascades");
        orvo::orvosettings().remove("Faces.model");
        std::error_code error;
        std::filesystem::remove_all(folder, error);
    }

    // Cascades of frontal faces only.
    void useFrontalCascadesOnly() const
    {
        for (const char* const name : {"haarcascade_frontalface_alt2.xml", "haarcascade_frontalface_default.xml",
                                       "haarcascade_eye.xml", "haarcascade_eye_tree_eyeglasses.xml"})
            std::filesystem::copy_file(std::filesystem::path(kCascades) / name, folder / name);
        orvo::orvosettings().set("Faces.cascades", folder.string());
    }

    std::filesystem::path folder;
};

TEST_F(DeblurFaces, BlurredFaceIsRestored)
{
    const PicturePointer truth = scene(kSize, {kPlace});
    for (const double sigma : {1.2, 2.0, 3.0}) {
        const PicturePointer before = blurred(*truth, sigma);
        const PicturePointer after = deblur(before);
        const double gain = fidelity(*truth, *after, headOf(kPlace)) - fidelity(*truth, *before, headOf(kPlace));
        EXPECT_GE(gain, 1.0) << "sigma " << sigma;
        const int mixed = static_cast<int>(std::ceil(2.0 * sigma)); // reach of the blur
        EXPECT_LE(overshoot(*truth, *after, headOf(kPlace), mixed), 0.03f) << "sigma " << sigma;
    }
}

TEST_F(DeblurFaces, MeasuresTheBlur)
{
    for (const double sigma : {1.5, 3.0}) {
        const orvo::LogCapture log;
        const PicturePointer after = deblur(blurred(*scene({800, 800}, {{398.3, 396.7, 160.0}}), sigma));
        const std::vector<std::string> lines = log.texts(LogMessageType::Diagnostic);
        ASSERT_THAT(lines, ElementsAre(StartsWith("deblurFaces test: faces 1; blur ")));
        const double measured = std::stod(lines[0].substr(lines[0].find("blur ") + 5));
        EXPECT_NEAR(measured, sigma, 0.15 * sigma) << lines[0];
    }
}

TEST_F(DeblurFaces, NothingOutsideChanges)
{
    const std::vector<FacePlace> places = {{150.0, 180.0, 60.0}, {470.0, 200.0, 75.0}};
    const PicturePointer before = blurred(*scene({640, 400}, places), 2.0);
    const PicturePointer after = deblur(before);
    int changed = 0;
    for (int y = 0; y < before->height(); ++y)
        for (int x = 0; x < before->width(); ++x) {
            const bool inside = std::any_of(places.begin(), places.end(), [&](const FacePlace& place) {
                return std::hypot((x - place.x) / 1.5, (y - place.y) / 1.9) < place.half;
            });
            const bool kept = same(before->row(y)[x], after->row(y)[x]);
            ASSERT_TRUE(inside || kept) << x << ", " << y;
            changed += kept ? 0 : 1;
        }
    EXPECT_GT(changed, 5000);
}

TEST_F(DeblurFaces, EveryFaceIsSharpened)
{
    const std::vector<FacePlace> places = {{150.0, 180.0, 60.0}, {470.0, 200.0, 75.0}};
    const PicturePointer truth = scene({640, 400}, places);
    const PicturePointer before = blurred(*truth, 2.0);
    const PicturePointer after = deblur(before);
    for (const FacePlace& place : places)
        EXPECT_GT(fidelity(*truth, *after, headOf(place)), fidelity(*truth, *before, headOf(place)) + 1.0);
}

TEST_F(DeblurFaces, SharpFaceIsUnchanged)
{
    const PicturePointer sharp = scene(kSize, {kPlace});
    EXPECT_LT(test::largestChange(*sharp, *deblur(sharp)), 0.02f);
}

TEST_F(DeblurFaces, PictureWithoutFaceIsUnchanged)
{
    const test::Discs discs(kSize);
    const PicturePointer picture =
        test::drawn(kSize, ColorProfileType::sRGB(), [&](int x, int y) { return coloured(discs.at(x, y)); });
    const orvo::LogCapture log;
    const PicturePointer after = deblur(picture);
    EXPECT_NE(after, picture);
    EXPECT_TRUE(test::bytesEqual(*picture, *after));
    EXPECT_THAT(log.texts(LogMessageType::Diagnostic), ElementsAre("deblurFaces test: faces 0"));
}

TEST_F(DeblurFaces, NoiseIsNotAmplified)
{
    const PicturePointer clean = blurred(*scene(kSize, {kPlace}), 2.0);
    const PicturePointer before = withNoise(*clean, 0.015f);
    const PicturePointer after = deblur(before);
    // Smooth skin of the forehead and of a cheek; what remains there is noise.
    for (const orvo::_Rect<int>& skin : {orvo::_Rect<int>{170, 143, 56, 12}, orvo::_Rect<int>{222, 205, 24, 24}}) {
        const double noiseBefore = -fidelity(*clean, *before, skin) / 20.0;
        const double noiseAfter = -fidelity(*clean, *after, skin) / 20.0;
        EXPECT_LT(std::pow(10.0, noiseAfter - noiseBefore), 1.08) << "at " << skin.x << ", " << skin.y;
    }
    const PicturePointer truth = scene(kSize, {kPlace});
    EXPECT_GT(fidelity(*truth, *after, headOf(kPlace)), fidelity(*truth, *before, headOf(kPlace)) + 1.0);
}

TEST_F(DeblurFaces, ColoursAreUnchanged)
{
    const PicturePointer before = blurred(*scene(kSize, {kPlace}), 2.0);
    const PicturePointer after = deblur(before);
    EXPECT_GT(test::largestChange(*before, *after), 0.05f);
    for (std::size_t i = 0; i < after->pixelCount(); ++i) {
        const Pixel& p = after->data()[i];
        ASSERT_NEAR(p.g, 0.85f * p.r, 1e-5f);
        ASSERT_NEAR(p.b, 0.75f * p.r, 1e-5f);
    }
}

TEST_F(DeblurFaces, AmountScalesTheChange)
{
    const PicturePointer before = blurred(*scene(kSize, {kPlace}), 2.0);
    const float full = test::largestChange(*before, *deblur(before));
    EXPECT_NEAR(test::largestChange(*before, *deblur(before, 0.5f)), 0.5f * full, 0.01f * full);
    EXPECT_TRUE(test::bytesEqual(*deblur(before, 7.0f), *deblur(before)));
    for (const float none : {0.0f, -1.0f, kNaN}) {
        const PicturePointer after = deblur(before, none);
        EXPECT_NE(after, before);
        EXPECT_TRUE(test::bytesEqual(*before, *after)) << none;
    }
}

TEST_F(DeblurFaces, FeaturesGetMoreThanSkin)
{
    // Faint spots on the forehead, with the contrast of skin.
    const PicturePointer truth = test::drawn(kSize, ColorProfileType::sRGB(), [&](int x, int y) {
        const double value = test::DrawnFace(kPlace).over(0.45, x, y);
        const bool forehead = x > 160 && x < 236 && y > 136 && y < 158;
        return coloured(value + (forehead ? 0.012 * std::sin(0.9 * x) * std::sin(0.9 * y) : 0.0));
    });
    const PicturePointer before = blurred(*truth, 1.5);
    const auto gain = [&](bool features, const orvo::_Rect<int>& rect) {
        const PicturePointer after = DeblurAIEffect::deblurFaces("test", before, 1.0f, true, features, nullptr);
        return -fidelity(*before, *after, rect); // grows with the change
    };
    const orvo::_Rect<int> skin{172, 142, 52, 10}, eyes{150, 170, 100, 24};
    EXPECT_NEAR(gain(true, eyes), gain(false, eyes), 0.2); // dB
    EXPECT_LT(gain(true, skin), gain(false, skin) - 4.0);
}

TEST_F(DeblurFaces, BrokenPixelsStayAndDoNotAffectOthers)
{
    const PicturePointer clean = blurred(*scene(kSize, {kPlace}), 2.0);
    const PicturePointer expected = deblur(clean);
    const PicturePointer before = test::copyOf(clean);
    before->row(200)[200].g = kNaN;
    before->row(200)[230].r = kInfinity;
    before->row(140)[190].b = -kInfinity;
    before->row(240)[200] = {1e30f, 1e30f, 1e30f};
    const PicturePointer after = deblur(before);
    for (int y = 0; y < before->height(); ++y)
        for (int x = 0; x < before->width(); ++x) {
            const Pixel& was = before->row(y)[x];
            const Pixel& is = after->row(y)[x];
            if (!same(was, clean->row(y)[x]))
                ASSERT_TRUE(same(was, is)) << x << ", " << y;
            else
                ASSERT_NEAR(is.g, expected->row(y)[x].g, 0.05f) << x << ", " << y;
        }
}

TEST_F(DeblurFaces, LinearPicturesAreTreatedAlike)
{
    const PicturePointer encoded = blurred(*scene(kSize, {kPlace}), 2.0);
    const PicturePointer linear = test::copyOf(encoded);
    linear->convertTo(ColorProfileType::linearSRGB());
    const PicturePointer after = deblur(linear);
    EXPECT_EQ(after->colorProfile(), linear->colorProfile());
    after->convertTo(ColorProfileType::sRGB());
    EXPECT_LT(test::largestChange(*after, *deblur(encoded)), 1e-3f);
    const PicturePointer untold = test::copyOf(encoded);
    untold->setColorProfile(ColorProfileType::None());
    EXPECT_TRUE(test::bytesEqual(*deblur(untold), *deblur(encoded)));
}

TEST_F(DeblurFaces, FaceAtTheBorder)
{
    const FacePlace place{70.0, 110.0, 80.0};
    const PicturePointer truth = scene({301, 251}, {place});
    const PicturePointer before = blurred(*truth, 2.0);
    const PicturePointer after = deblur(before);
    const orvo::_Rect<int> eyesAndMouth{30, 80, 80, 100};
    EXPECT_GT(fidelity(*truth, *after, eyesAndMouth), fidelity(*truth, *before, eyesAndMouth) + 1.0);
}

TEST_F(DeblurFaces, HugeFaceIsProcessedInASmallerCopy)
{
    const FacePlace place{798.0, 802.0, 780.0}; // 2500 px with its surroundings
    const PicturePointer truth = scene({1600, 1610}, {place});
    orvo::MemoryManager& memory = orvo::MemoryManager::instance();
    const PicturePointer before = blurred(*truth, 6.0);
    memory.resetPeak();
    const std::size_t live = memory.liveBytes();
    PicturePointer after = deblur(before);
    EXPECT_GT(fidelity(*truth, *after, headOf({798.0, 802.0, 640.0})),
              fidelity(*truth, *before, headOf({798.0, 802.0, 640.0})) + 1.0);
    const std::size_t picture = after->pixelCount() * sizeof(Pixel);
    EXPECT_LT(memory.peakBytes(), live + picture + 7 * 2048u * 2048u * sizeof(float));
    after.reset();
    EXPECT_EQ(memory.liveBytes(), live);
}

TEST_F(DeblurFaces, ThreadsDoNotMatter)
{
    const PicturePointer before = withNoise(*blurred(*scene(kSize, {kPlace}), 2.0), 0.01f);
    const auto with = [&](int threads) {
        const orvo::WorkerLimit limit(threads);
        return deblur(before);
    };
    const PicturePointer single = with(1);
    EXPECT_GT(test::largestChange(*before, *single), 0.02f);
    EXPECT_TRUE(test::bytesEqual(*single, *with(2)));
    EXPECT_TRUE(test::bytesEqual(*single, *with(2)));
}

TEST_F(DeblurFaces, AwkwardInputs)
{
    EXPECT_THROW((void)deblur({}), std::invalid_argument);
    for (const orvo::_Size<int>& size : test::kAwkwardSizes) {
        const PicturePointer picture = test::noise(size, ColorProfileType::sRGB(), 3);
        const PicturePointer after = deblur(picture);
        ASSERT_NE(after, nullptr);
        EXPECT_TRUE(test::bytesEqual(*picture, *after)) << size.width << " x " << size.height;
    }
    const auto broken = std::make_shared<Picture>(kSize, Pixel{kNaN, kInfinity, -kInfinity}, ColorProfileType::sRGB());
    EXPECT_TRUE(test::bytesEqual(*broken, *deblur(broken)));
}

TEST_F(DeblurFaces, APictureThatIsNotNeededIsCopiedOnlyForFaces)
{
    const auto& none = orvo::RunControl::none();
    const PicturePointer face = blurred(*scene(kSize, {kPlace}), 2.0);
    const PicturePointer changed = DeblurAIEffect::withDeblurredFaces("test", face, 1.0f, true, true, none);
    EXPECT_TRUE(test::bytesEqual(*changed, *deblur(face)));
    const PicturePointer plain = blurred(*scene(kSize, {}), 2.0);
    const PicturePointer before = plain->copy({});
    EXPECT_EQ(DeblurAIEffect::withDeblurredFaces("test", plain, 1.0f, true, true, none), plain);
    EXPECT_EQ(DeblurAIEffect::withDeblurredFaces("test", plain, 0.0f, true, true, none), plain);
    EXPECT_TRUE(test::bytesEqual(*plain, *before));
    EXPECT_NE(deblur(plain), plain);
}

TEST_F(DeblurFaces, CancelReturnsNothing)
{
    const PicturePointer before = blurred(*scene(kSize, {kPlace}), 2.0);
    std::atomic<bool> cancel = true;
    const orvo::LogCapture log;
    EXPECT_EQ(DeblurAIEffect::deblurFaces("test", before, 1.0f, true, true, &cancel), nullptr);
    EXPECT_THAT(log.lines(), IsEmpty());
    cancel = false;
    EXPECT_NE(DeblurAIEffect::deblurFaces("test", before, 1.0f, true, true, &cancel), nullptr);
}

TEST_F(DeblurFaces, CancelOnTheWayReturnsNothing)
{
    useFrontalCascadesOnly();
    const PicturePointer before = blurred(*scene(kSize, {kPlace}), 2.0);
    std::atomic<bool> cancel = false;
    // The line about the missing cascades comes after the start and before the search.
    const std::shared_ptr<void> sink = orvo::addLogSink([&](const orvo::logstream&) { cancel = true; });
    EXPECT_EQ(DeblurAIEffect::deblurFaces("test", before, 1.0f, true, true, &cancel), nullptr);
    EXPECT_TRUE(cancel);
}

TEST_F(DeblurFaces, WithoutCascadesThePictureIsUnchanged)
{
    const PicturePointer before = blurred(*scene(kSize, {kPlace}), 2.0);
    std::ofstream(folder / "haarcascade_frontalface_alt2.xml") << "not a cascade";
    for (const std::filesystem::path& place : {folder, folder / "missing"}) {
        orvo::orvosettings().set("Faces.cascades", place.string());
        const orvo::LogCapture log;
        const PicturePointer after = deblur(before);
        EXPECT_NE(after, before);
        EXPECT_TRUE(test::bytesEqual(*before, *after));
        EXPECT_THAT(log.texts(LogMessageType::Warning),
                    ElementsAre(AllOf(StartsWith("deblurFaces: cannot search for faces,"), HasSubstr(place.string()),
                                      HasSubstr("Faces.cascades"), HasSubstr("haarcascade_frontalface_alt2.xml"))));
    }
}

TEST_F(DeblurFaces, ProfileCascadesAreRequiredForProfilesOnly)
{
    useFrontalCascadesOnly();
    const PicturePointer before = blurred(*scene(kSize, {kPlace}), 2.0);
    for (const bool profiles : {false, true}) {
        const orvo::LogCapture log;
        const PicturePointer after = DeblurAIEffect::deblurFaces("test", before, 1.0f, profiles, true, nullptr);
        EXPECT_GT(test::largestChange(*before, *after), 0.05f);
        EXPECT_EQ(log.texts(LogMessageType::Warning).size(), profiles ? 1u : 0u);
    }
}

// Blurred discs with a red cell of 32 px, which the test network detects as a face.
PicturePointer redCell(orvo::_Size<int> size, int left, int top)
{
    const test::Discs discs(size);
    const PicturePointer sharp =
        test::drawn(size, ColorProfileType::sRGB(), [&](int x, int y) { return coloured(discs.at(x, y)); });
    const PicturePointer picture = blurred(*sharp, 2.0);
    for (int y = top; y < top + 32; ++y)
        for (int x = left; x < left + 32; ++x)
            picture->row(y)[x] = {1.0f, 0.0f, 0.0f};
    return picture;
}

TEST_F(DeblurFaces, NetworkReplacesCascades)
{
    test::DetectionNetwork(416, 384, 110.0).write(folder / "red.onnx");
    orvo::orvosettings().set("Faces.model", (folder / "red.onnx").string());
    orvo::orvosettings().set("Faces.cascades", (folder / "missing").string());
    const PicturePointer before = redCell({400, 380}, 192, 128);
    const orvo::LogCapture log;
    const PicturePointer after = deblur(before);
    EXPECT_THAT(log.texts(LogMessageType::Warning), IsEmpty());
    EXPECT_THAT(log.texts(LogMessageType::Diagnostic), ElementsAre(StartsWith("deblurFaces test: faces 1;")));
    int changed = 0;
    for (int y = 0; y < before->height(); ++y)
        for (int x = 0; x < before->width(); ++x)
            if (!same(before->row(y)[x], after->row(y)[x])) {
                ASSERT_LT(std::hypot((x - 208) / 0.62, (y - 144) / 0.78), 110.0) << x << ", " << y;
                ++changed;
            }
    EXPECT_GT(changed, 5000);
    const orvo::WorkerLimit limit(1);
    EXPECT_TRUE(test::bytesEqual(*after, *deblur(before)));
}

TEST_F(DeblurFaces, UnusableNetworkFallsBackToCascades)
{
    const PicturePointer before = blurred(*scene(kSize, {kPlace}), 2.0);
    const PicturePointer expected = deblur(before);
    std::ofstream(folder / "text.onnx") << "not a network";
    std::string whole;
    {
        test::DetectionNetwork(416, 416, 110.0).write(folder / "whole.onnx");
        std::ifstream file(folder / "whole.onnx", std::ios::binary);
        whole.assign(std::istreambuf_iterator<char>(file), {});
    }
    std::ofstream(folder / "cut.onnx", std::ios::binary) << whole.substr(0, whole.size() / 2);
    // Outputs with wrong names and wrong sizes.
    const auto renamed = [&](std::string bytes, const std::string& from, const std::string& to) {
        for (std::size_t at = bytes.find(from); at != std::string::npos; at = bytes.find(from, at + to.size()))
            bytes.replace(at, from.size(), to);
        return bytes;
    };
    std::ofstream(folder / "other.onnx", std::ios::binary) << renamed(whole, "cls_8", "cla_8");
    std::ofstream(folder / "swapped.onnx", std::ios::binary)
        << renamed(renamed(renamed(whole, "kps_8", "tmp_8"), "obj_8", "kps_8"), "tmp_8", "obj_8");
    for (const char* const name : {"text.onnx", "cut.onnx", "missing.onnx", "other.onnx", "swapped.onnx"}) {
        const std::string model = (folder / name).string();
        orvo::orvosettings().set("Faces.model", model);
        const orvo::LogCapture log;
        EXPECT_TRUE(test::bytesEqual(*deblur(before), *expected)) << name;
        EXPECT_THAT(log.texts(LogMessageType::Warning),
                    ElementsAre(AllOf(StartsWith("deblurFaces: the network " + model), HasSubstr("Faces.model"),
                                      HasSubstr("cascades"), testing::Not(HasSubstr("OpenCV(")))));
    }
}

// On photographs; needs the folder ORVO_TEST_DATA.
class DeblurFacesOfPhotographs : public DeblurFaces
{
protected:
    void SetUp() override
    {
        DeblurFaces::SetUp();
        if (!IsSkipped() && !test::dataFolder())
            GTEST_SKIP() << "ORVO_TEST_DATA does not name the folder of test pictures";
    }

    // At half size, where the photographs are sharp.
    static PicturePointer read(const std::string& name)
    {
        const auto image = orvo::ImageReader::instance().open({*test::dataFolder() / name, ""}, {},
                                                              orvo::ImageReaderOpenFlag::Bracket, nullptr, "", -1);
        if (!image)
            return {};
        const PicturePointer picture = image->imageData({}, {}, true);
        return picture->resize({picture->width() / 2, picture->height() / 2}, {}, true);
    }
};

TEST_F(DeblurFacesOfPhotographs, FourPeopleAtATable)
{
    const PicturePointer truth = read("single/faces_cafe/faces_cafe.jpg");
    ASSERT_NE(truth, nullptr);
    const PicturePointer before = blurred(*truth, 2.0);
    const orvo::LogCapture log;
    const PicturePointer after = deblur(before);
    EXPECT_THAT(log.texts(LogMessageType::Diagnostic), ElementsAre(StartsWith("deblurFaces test: faces 4;")));
    // Brow to chin, estimated by eye.
    for (const orvo::_Rect<int>& face : {orvo::_Rect<int>{180, 400, 190, 170}, orvo::_Rect<int>{500, 280, 180, 190},
                                         orvo::_Rect<int>{880, 230, 180, 200}, orvo::_Rect<int>{1160, 250, 150, 160}})
        EXPECT_GT(fidelity(*truth, *after, face), fidelity(*truth, *before, face) + 1.0) << "at " << face.x;
}

// One of the guests in the background turns his head so far away that only the profile cascades find him.
TEST_F(DeblurFacesOfPhotographs, ProfilesOnRequest)
{
    const PicturePointer picture = read("single/faces_cafe/faces_cafe.jpg");
    ASSERT_NE(picture, nullptr);
    for (const bool profiles : {false, true}) {
        const orvo::LogCapture log;
        ASSERT_NE(DeblurAIEffect::deblurFaces("test", picture, 1.0f, profiles, true, nullptr), nullptr);
        EXPECT_THAT(log.texts(LogMessageType::Diagnostic),
                    ElementsAre(StartsWith(profiles ? "deblurFaces test: faces 5;" : "deblurFaces test: faces 4;")));
    }
}

TEST_F(DeblurFacesOfPhotographs, NoFacesInLandscapes)
{
    for (const char* const name : {"single/lake_horizon/lake_horizon.jpg", "single/skiers/skiers.jpg"}) {
        // The skiers wear goggles; one cascade detects the fence behind them as a face.
        const PicturePointer before = read(name);
        ASSERT_NE(before, nullptr) << name;
        EXPECT_TRUE(test::bytesEqual(*before, *deblur(before))) << name;
    }
}

} // namespace
