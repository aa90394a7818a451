#include <scenes/bracket.hpp>
#include <scenes/metrics.hpp>

#include <gmock/gmock.h>

namespace orvo::scenes {
namespace {

BracketRecipe recipe()
{
    BracketRecipe r;
    r.scene.size = {240, 160};
    r.evs = {-3.0, 0.0, 2.0};
    r.views = handShake(3, 1, {0.5, 4, 4, 1, 0.001, 0.001}, 7);
    r.subjects = {{60, 150, 90, 0.2}, {120, 150, 90, 1.1}, {180, 150, 90, 2.0}};
    return r;
}

TEST(Bracket, FramesCarryTheirTruth)
{
    const Bracket bracket(recipe());
    const auto frames = bracket.frames();
    ASSERT_EQ(frames.size(), 3u);
    for (std::size_t i = 0; i < frames.size(); ++i) {
        EXPECT_NEAR(frames[i].ev, recipe().evs[i], 1e-12);
        EXPECT_EQ(frames[i].sceneFromFrame, sceneFromFrame(recipe().views[i], {240, 160}));
        ASSERT_TRUE(frames[i].subject);
    }
    EXPECT_EQ(frames[1].sceneFromFrame, sceneFromFrame({}, {240, 160}));
}

TEST(Bracket, FrameIsTheTrueRadianceThroughItsExposure)
{
    const Bracket bracket(recipe());
    const auto frame = bracket.frame(2);
    const auto light = bracket.radiance(2, true);
    for (std::size_t i = 0; i < light->pixelCount(); ++i)
        ASSERT_NEAR(frame.picture->data()[i].g, encoded(ResponseCurve::Srgb, 4.0f * light->data()[i].g), 1e-5f);
    const auto room = bracket.radiance(2, false);
    EXPECT_GT(wrongShare(*room, *light, *frame.subject, 1e-6f), 0.99);
}

TEST(Bracket, FrameFromFrameMeetsTheSamePointOfTheScene)
{
    const Bracket bracket(recipe());
    const Homography map = bracket.frameFromFrame(0, 2);
    const auto inFrame0 = mapPoint(map, {31, 47});
    const auto viaFrame0 = mapPoint(bracket.frame(0).sceneFromFrame, inFrame0);
    const auto direct = mapPoint(bracket.frame(2).sceneFromFrame, {31, 47});
    EXPECT_NEAR(viaFrame0.x, direct.x, 1e-9);
    EXPECT_NEAR(viaFrame0.y, direct.y, 1e-9);
}

TEST(Bracket, FramesHaveIndependentNoise)
{
    BracketRecipe r = recipe();
    r.evs = {0.0, 0.0};
    r.views.clear();
    r.subjects.clear();
    r.camera.noise = SensorNoise{};
    const auto frames = Bracket(r).frames();
    EXPECT_LT(psnr(*frames[0].picture, *frames[1].picture), 60.0);
    EXPECT_FALSE(frames[0].subject);
}

TEST(Bracket, ListsMustMatchTheExposures)
{
    BracketRecipe r = recipe();
    r.views.pop_back();
    EXPECT_THROW(Bracket{r}, std::invalid_argument);
    r = recipe();
    r.subjects.pop_back();
    EXPECT_THROW(Bracket{r}, std::invalid_argument);
    EXPECT_THROW((void)Bracket(recipe()).frame(3), std::out_of_range);
}

} // namespace
} // namespace orvo::scenes
