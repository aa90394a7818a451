// Face sharpening as an effect of a document: parameters, part, blend, cancel.

#include "drawn_face.hpp"

#include <orvo/deblur_ai_effect.hpp>
#include <orvo_logger/log_capture.hpp>

#include <gmock/gmock.h>

#include <cstring>
#include <filesystem>
#include <type_traits>

namespace {

using namespace orvo;
using test::FacePlace;
using test::Picture;
using test::Pixel;
using testing::ElementsAre;
using testing::EndsWith;
using testing::IsEmpty;

constexpr _Size<int> kSize{400, 400};

// A face whose edges are soft enough to be sharpened.
std::shared_ptr<Picture> softFace()
{
    const test::DrawnFace face(FacePlace{198.3, 196.7, 80.0});
    const auto sharp = test::drawn(kSize, ColorProfileType::sRGB(), [&](int x, int y) {
        const auto v = static_cast<float>(face.over(0.45, x, y));
        return Pixel{v, 0.85f * v, 0.75f * v};
    });
    return sharp->resize({200, 200}, {}, true)->resize(kSize, {}, true);
}

EffectCallContext callOn(const std::shared_ptr<const Picture>& source, const std::shared_ptr<Picture>& result,
                         _Rect<int> rect, float opacity = 1.0f, const std::atomic<bool>* run = nullptr,
                         const std::atomic<bool>* one = nullptr)
{
    std::shared_ptr<Image> image;
    return {source,  result,
            {},      rect,
            image,   {opacity, BlendModeType::Normal},
            run,     one,
            nullptr, std::make_shared<std::vector<EffectProcessInfo>>(),
            {}};
}

bool sameRows(const Picture& a, const Picture& b)
{
    return a.size() == b.size() && std::memcmp(a.data(), b.data(), a.pixelCount() * sizeof(Pixel)) == 0;
}

TEST(DeblurAIProcessing, IsAnEffectWithParameters)
{
    static_assert(std::is_base_of_v<Effect, DeblurAIEffect> && std::is_copy_constructible_v<DeblurAIEffect>);
    DeblurAIEffect effect;
    EXPECT_EQ(effect.getProperties().effectID, "ORVODeblurAIEffect");
    EXPECT_THAT(effect.parameters().list(),
                ElementsAre(Parameter{"amount", 1.0f}, Parameter{"profiles", 1.0f}, Parameter{"features", 1.0f}));
    EXPECT_TRUE(effect.isNeedProcessing());
    EXPECT_THAT(effect.scaleAmountParameters(0.5f, {{"amount", 1.0f}, {"features", 1.0f}}),
                ElementsAre(Parameter{"amount", 0.5f}, Parameter{"features", 1.0f}));
    effect.setParameters({{"amount", 0.0f}});
    EXPECT_FALSE(effect.isNeedProcessing());
    const std::shared_ptr<Effect> clone = effect.clone();
    ASSERT_NE(clone, nullptr);
    EXPECT_EQ(clone->parameters(), effect.parameters());
    EXPECT_EQ(DeblurAIEffect(effect).parameters(), effect.parameters());
}

TEST(DeblurAIProcessing, WritesTheSharpenedPictureWithinTheRect)
{
    if (!std::filesystem::is_directory("/usr/share/opencv4/haarcascades"))
        GTEST_SKIP() << "/usr/share/opencv4/haarcascades is missing: install opencv-data";
    const auto source = softFace();
    const auto sharpened = DeblurAIEffect::deblurFaces("test", source, 1.0f, true, true, nullptr);
    ASSERT_FALSE(sameRows(*source, *sharpened)) << "the face is not found";
    DeblurAIEffect effect;

    EffectCallContext whole = callOn(source, nullptr, {});
    ASSERT_TRUE(effect.processImage(whole));
    EXPECT_TRUE(sameRows(*whole.result, *sharpened));
    EXPECT_EQ(*whole.result->colorProfile(), *source->colorProfile());
    ASSERT_EQ(whole.processed->size(), 1U);
    EXPECT_EQ(whole.processed->front().effectID, "ORVODeblurAIEffect");
    EXPECT_TRUE(whole.processed->front().processed);

    // The left half only, half mixed; the part beyond the picture is ignored.
    const auto result = std::make_shared<Picture>(kSize, source->colorProfile());
    EffectCallContext half = callOn(source, result, {-50, -50, 250, 600}, 0.5f);
    ASSERT_TRUE(effect.processImage(half));
    EXPECT_EQ(half.result, result);
    for (int y = 0; y < kSize.height; ++y)
        for (int x = 0; x < kSize.width; ++x) {
            const float from = source->row(y)[x].g, to = sharpened->row(y)[x].g;
            ASSERT_NEAR(result->row(y)[x].g, x < 200 ? 0.5f * (from + to) : from, 1e-6f) << x << ", " << y;
        }
}

TEST(DeblurAIProcessing, AmountZeroIsTheSource)
{
    const auto source = softFace();
    DeblurAIEffect effect;
    effect.setParameters({{"amount", 0.0f}});
    EffectCallContext call = callOn(source, nullptr, {});
    ASSERT_TRUE(effect.processImage(call));
    EXPECT_TRUE(sameRows(*call.result, *source));
    EXPECT_NE(call.result, source);
}

TEST(DeblurAIProcessing, EitherFlagCancels)
{
    const auto source = softFace();
    const std::atomic<bool> yes{true}, no{false};
    DeblurAIEffect effect;
    EffectCallContext run = callOn(source, nullptr, {}, 1.0f, &yes, &no);
    EXPECT_FALSE(effect.processImage(run));
    EffectCallContext one = callOn(source, nullptr, {}, 1.0f, &no, &yes);
    EXPECT_FALSE(effect.processImage(one));
    EXPECT_EQ(one.result, nullptr);
    EXPECT_THAT(*one.processed, IsEmpty());
}

TEST(DeblurAIProcessing, RefusesWhatItCannotWrite)
{
    DeblurAIEffect effect;
    EffectCallContext nothing = callOn(nullptr, nullptr, {});
    EXPECT_FALSE(effect.processImage(nothing));
    const LogCapture log;
    EffectCallContext small = callOn(softFace(), std::make_shared<Picture>(_Size<int>(10, 10), nullptr), {});
    EXPECT_FALSE(effect.processImage(small));
    EXPECT_THAT(log.texts(LogMessageType::Error),
                ElementsAre(EndsWith("a result of the size of the source is needed")));
}

} // namespace
