#include <orvo_brush/drawing_controller.hpp>
#include <orvo_common/memory_manager.hpp>
#include <orvo_core/parallel.hpp>

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>
#include <stdexcept>

namespace {

using orvo::_Point;
using orvo::_Size;
using orvo::DrawingController;
using orvo::TiledMaskImage;
using Points = std::vector<_Point<float>>;

std::unique_ptr<DrawingController> controller(_Size<int> size = {700, 600}, float radius = 20.0f, float softness = 0.5f,
                                              float opacity = 1.0f)
{
    auto result = std::make_unique<DrawingController>(size);
    result->initialize();
    result->setRoundBrushSettings(radius, softness);
    result->setBrushOpacity(opacity);
    return result;
}

std::vector<float> samples(const TiledMaskImage& mask)
{
    const auto flat = mask.maskImage({}, {});
    return {flat->data(), flat->data() + flat->pixelCount()};
}

std::vector<float> samples(const DrawingController& drawn) { return samples(*drawn.getMask()); }

float at(const DrawingController& drawn, int x, int y) { return drawn.getMask()->getValue(x, y); }

Points wriggle(int count, unsigned seed = 3)
{
    std::mt19937 random(seed);
    Points points;
    for (int i = 0; i < count; ++i)
        points.push_back({static_cast<float>(random() % 7000) / 10.0f, static_cast<float>(random() % 6000) / 10.0f});
    return points;
}

void draw(DrawingController& on, const Points& points)
{
    on.startStroke();
    on.stroke(points);
    on.finishStroke();
}

TEST(Drawing, BeginsEmptyAndNeedsInitialize)
{
    DrawingController drawn(_Size<int>(30, 20));
    EXPECT_THROW(drawn.startStroke(), std::logic_error);
    EXPECT_THROW((void)drawn.getMask(), std::logic_error);
    drawn.initialize();
    EXPECT_EQ(samples(drawn), std::vector<float>(600, 0.0f));
    EXPECT_THROW(DrawingController(std::shared_ptr<TiledMaskImage>()), std::invalid_argument);
}

TEST(Drawing, AHardDabIsADiscWithAnAntialiasedRim)
{
    const auto drawn = controller({700, 600}, 50.0f, 0.0f, 0.8f);
    drawn->stroke({{300.0f, 256.0f}});
    double sum = 0.0;
    for (int y = 0; y < 600; ++y)
        for (int x = 0; x < 700; ++x) {
            const double distance = std::hypot(x + 0.5 - 300.0, y + 0.5 - 256.0);
            const float value = at(*drawn, x, y);
            sum += value;
            if (distance < 49.0) {
                ASSERT_EQ(value, 0.8f);
            }
            if (distance > 51.0) {
                ASSERT_EQ(value, 0.0f);
            }
        }
    EXPECT_NEAR(sum / 0.8, 3.14159265 * 50 * 50, 20.0);
}

TEST(Drawing, ASoftRimFallsFromTheInsideOut)
{
    const auto drawn = controller({700, 600}, 60.0f, 0.5f, 1.0f);
    drawn->stroke({{300.0f, 300.0f}});
    float before = 1.0f;
    for (int x = 300; x < 365; ++x) {
        const float value = at(*drawn, x, 300);
        EXPECT_LE(value, before);
        EXPECT_LT(before - value, 0.08f); // no visible edge
        if (x < 328) {
            EXPECT_EQ(value, 1.0f);
        }
        before = value;
    }
    EXPECT_EQ(before, 0.0f);
}

TEST(Drawing, OneBatchEqualsManyBytewise)
{
    const Points points = wriggle(60);
    const auto together = controller();
    draw(*together, points);
    const auto single = controller();
    single->startStroke();
    for (const auto& point : points)
        single->stroke({point});
    single->finishStroke();
    EXPECT_EQ(samples(*single), samples(*together));
    const auto inThrees = controller();
    inThrees->startStroke();
    for (std::size_t i = 0; i < points.size(); i += 3)
        inThrees->stroke(Points(points.begin() + static_cast<std::ptrdiff_t>(i),
                                points.begin() + static_cast<std::ptrdiff_t>(std::min(i + 3, points.size()))));
    EXPECT_EQ(samples(*inThrees), samples(*together)); // also before the stroke is finished
}

TEST(Drawing, PointsOnALineChangeNothing)
{
    const auto coarse = controller();
    draw(*coarse, {{100, 100}, {500, 100}});
    const auto fine = controller();
    Points points;
    for (int x = 100; x <= 500; x += 8)
        points.push_back({static_cast<float>(x), 100.0f});
    draw(*fine, points);
    const auto a = samples(*coarse);
    const auto b = samples(*fine);
    for (std::size_t i = 0; i < a.size(); ++i)
        ASSERT_NEAR(a[i], b[i], 1e-5f);
}

TEST(Drawing, AStrokeReachesItsOpacityAndNoMore)
{
    const auto drawn = controller({300, 300}, 30.0f, 0.3f, 0.4f);
    Points over;
    for (int i = 0; i < 20; ++i)
        over.push_back({150.0f + 10.0f * static_cast<float>(i % 2), 150.0f});
    draw(*drawn, over);
    EXPECT_FLOAT_EQ(at(*drawn, 155, 150), 0.4f);
    draw(*drawn, over);
    EXPECT_FLOAT_EQ(at(*drawn, 155, 150), 0.4f + 0.6f * 0.4f);
}

TEST(Drawing, ErasingTakesAway)
{
    const auto drawn = controller();
    drawn->fillMask(0.9f);
    drawn->setDrawingMode(DrawingMode::Erase);
    drawn->setBrushOpacity(0.5f);
    draw(*drawn, {{300, 300}});
    EXPECT_FLOAT_EQ(at(*drawn, 300, 300), 0.45f);
    EXPECT_FLOAT_EQ(at(*drawn, 10, 10), 0.9f);
    drawn->setDrawingMode(DrawingMode::Draw);
    drawn->setBrushOpacity(1.0f);
    draw(*drawn, {{300, 300}});
    EXPECT_FLOAT_EQ(at(*drawn, 300, 300), 1.0f);
}

TEST(Drawing, AModeMayChangeWithinAStroke)
{
    const auto drawn = controller();
    drawn->startStroke();
    drawn->stroke({{100, 100}, {300, 100}});
    drawn->setDrawingMode(DrawingMode::Erase);
    drawn->stroke({{300, 100}, {100, 100}});
    drawn->finishStroke();
    EXPECT_EQ(at(*drawn, 200, 100), 0.0f);
}

TEST(Drawing, MasksThatWereTakenOrGivenDoNotChange)
{
    const auto drawn = controller();
    draw(*drawn, wriggle(10));
    const auto taken = drawn->getMask();
    const auto state = drawn->getState();
    const auto before = samples(*taken);
    drawn->startStroke();
    drawn->stroke(wriggle(10, 4));
    EXPECT_NE(samples(*drawn), before);
    EXPECT_EQ(samples(*taken), before);
    EXPECT_EQ(samples(*state.mask), before);

    DrawingController next(taken);
    next.initialize();
    EXPECT_EQ(samples(next), before);
    next.fillMask(1.0f);
    EXPECT_EQ(samples(*taken), before);

    drawn->applyState(state);
    EXPECT_FALSE(drawn->isStrokeInProgress());
    EXPECT_EQ(samples(*drawn), before);
    drawn->applyState({});
    EXPECT_EQ(samples(*drawn), std::vector<float>(before.size(), 0.0f));
    EXPECT_THROW(controller({10, 10})->applyState(state), std::invalid_argument);
}

TEST(Drawing, KnowsWhetherAStrokeIsUnderWay)
{
    const auto drawn = controller();
    EXPECT_FALSE(drawn->isStrokeInProgress());
    drawn->startStroke();
    EXPECT_TRUE(drawn->isStrokeInProgress());
    drawn->startStroke();
    drawn->finishStroke();
    drawn->finishStroke();
    EXPECT_FALSE(drawn->isStrokeInProgress());
    drawn->stroke({{5, 5}});
    EXPECT_FALSE(drawn->isStrokeInProgress());
}

TEST(Drawing, FillingDuringAStrokeLeavesTheStrokeUsable)
{
    const auto drawn = controller();
    drawn->startStroke();
    drawn->stroke({{100, 100}});
    drawn->fillMask(0.0f);
    EXPECT_EQ(at(*drawn, 100, 100), 0.0f);
    drawn->stroke({{300, 100}});
    EXPECT_EQ(at(*drawn, 290, 100), 1.0f);
    EXPECT_EQ(at(*drawn, 40, 100), 0.0f);
}

TEST(Drawing, ThePreviewShowsTheStrokeUnderWay)
{
    const auto drawn = controller();
    drawn->startStroke();
    drawn->stroke(wriggle(20));
    const auto preview = drawn->getMaskPreview({70, 60}, {0, 0, 700, 600});
    const auto expected = drawn->getMask()->maskImage({70, 60}, {0, 0, 700, 600});
    EXPECT_EQ(std::vector<float>(preview->data(), preview->data() + preview->pixelCount()),
              std::vector<float>(expected->data(), expected->data() + expected->pixelCount()));
}

TEST(Drawing, ThePreviewTakesSettingsOfATransform)
{
    const auto drawn = controller();
    draw(*drawn, wriggle(20));
    const auto settings = [](orvo::_Rect<float> part, orvo::AffineTransform transform = {}) {
        return orvo::ImageTransformSettings({}, part, {70, 60}, orvo::ImageTransformType::Affine, transform, {}, 0);
    };
    const auto preview = drawn->getMaskPreview(settings({10.0f, 20.0f, 300.0f, 200.0f}));
    const auto expected = drawn->getMaskPreview({70, 60}, {10, 20, 300, 200});
    EXPECT_EQ(std::vector<float>(preview->data(), preview->data() + preview->pixelCount()),
              std::vector<float>(expected->data(), expected->data() + expected->pixelCount()));
    EXPECT_THROW((void)drawn->getMaskPreview(settings({0.5f, 0.0f, 10.0f, 10.0f})), std::invalid_argument);
    EXPECT_THROW((void)drawn->getMaskPreview(settings({}, {.xx = 2.0})), std::invalid_argument);
}

TEST(Drawing, NonsenseDoesNothing)
{
    constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();
    constexpr float kInfinity = std::numeric_limits<float>::infinity();
    const auto drawn = controller();
    draw(*drawn, {{kNaN, 5.0f}, {kInfinity, 5.0f}, {1e30f, -1e30f}, {-2000.0f, 300.0f}});
    EXPECT_EQ(samples(*drawn), std::vector<float>(700 * 600, 0.0f));
    drawn->setRoundBrushSettings(kNaN, kNaN);
    draw(*drawn, {{5, 5}, {50, 50}});
    drawn->setRoundBrushSettings(-4.0f, 9.0f);
    draw(*drawn, {{5, 5}, {50, 50}});
    drawn->setRoundBrushSettings(10.0f, 0.5f);
    drawn->setBrushOpacity(kNaN);
    draw(*drawn, {{5, 5}, {50, 50}});
    EXPECT_EQ(samples(*drawn), std::vector<float>(700 * 600, 0.0f));
    drawn->setRoundBrushSettings(kInfinity, 0.0f);
    drawn->setBrushOpacity(7.0f);
    draw(*drawn, {{5, 5}});
    EXPECT_EQ(samples(*drawn), std::vector<float>(700 * 600, 1.0f));
}

TEST(Drawing, ALineFromFarAwayIsDrawnWhereItCrosses)
{
    const auto drawn = controller({200, 100}, 2.0f, 0.0f);
    draw(*drawn, {{-9e7f, 50.0f}, {9e7f, 50.0f}});
    for (int x = 0; x < 200; ++x)
        EXPECT_GT(at(*drawn, x, 50), 0.5f) << x;
    EXPECT_EQ(at(*drawn, 100, 60), 0.0f);
}

TEST(Drawing, OnlyTouchedTilesTakeMemory)
{
    const std::size_t before = orvo::MemoryManager::instance().liveBytes();
    const auto drawn = controller({20000, 20000}, 30.0f);
    draw(*drawn, {{900, 1100}});
    EXPECT_EQ(orvo::MemoryManager::instance().liveBytes(), before + 256 * 256 * 4);
}

TEST(Drawing, OneThreadDrawsTheSame)
{
    const auto many = controller({700, 600}, 150.0f);
    draw(*many, wriggle(20));
    const orvo::WorkerLimit one(1);
    const auto single = controller({700, 600}, 150.0f);
    draw(*single, wriggle(20));
    EXPECT_EQ(samples(*single), samples(*many));
}

TEST(Drawing, BrushSettingsSayWhatTheyHold)
{
    const orvo::RoundBrushSettings settings(3.0f, 0.25f, 0.5f);
    EXPECT_EQ(settings.getType(), orvo::BrushSettingsType::Round);
    EXPECT_EQ(static_cast<int>(settings.getType()), 0);
    EXPECT_EQ(settings.getRadius(), 3.0f);
    EXPECT_EQ(settings.getSoftness(), 0.25f);
    EXPECT_EQ(settings.getOpacity(), 0.5f);
    EXPECT_EQ(orvo::RoundBrushSettings().getOpacity(), 0.0f);
}

} // namespace
