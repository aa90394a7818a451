// The strokes of a mask paint exactly this mask.
#include "mask_strokes.hpp"

#include <orvo_brush/drawing_controller.hpp>

#include <gtest/gtest.h>

#include <functional>
#include <random>

namespace orvo::jobs {
namespace {

using Inside = std::function<bool(int, int)>;

std::size_t expectPainted(_Size<int> size, const Inside& inside)
{
    const MarkedPixels marked(size);
    for (int y = 0; y < size.height; ++y)
        for (int x = 0; x < size.width; ++x)
            marked.row(y)[x] = inside(x, y) ? 1 : 0;
    const auto strokes = strokesOf(marked);

    DrawingController controller(size);
    controller.initialize();
    controller.setBrushOpacity(1.0f);
    for (const MaskStroke& stroke : strokes) {
        controller.startStroke();
        controller.setRoundBrushSettings(stroke.radius, 0.0f);
        controller.stroke(stroke.points);
        controller.finishStroke();
    }
    const auto mask = controller.getMask();
    for (int y = 0; y < size.height; ++y)
        for (int x = 0; x < size.width; ++x)
            if (mask->getValue(x, y) != (inside(x, y) ? 1.0f : 0.0f)) {
                ADD_FAILURE() << x << ", " << y << ": " << mask->getValue(x, y);
                return strokes.size();
            }
    return strokes.size();
}

TEST(MaskStrokes, Nothing)
{
    EXPECT_EQ(expectPainted({40, 30}, [](int, int) { return false; }), 0u);
}

TEST(MaskStrokes, Everything)
{
    for (const _Size<int> size : {_Size<int>(1, 1), {1, 7}, {9, 1}, {300, 200}, {2500, 3}})
        EXPECT_LE(expectPainted(size, [](int, int) { return true; }), 10u);
}

TEST(MaskStrokes, ABoxTakesStrokesForItsOutline)
{
    const std::size_t strokes =
        expectPainted({900, 700}, [](int x, int y) { return x >= 100 && x < 800 && y >= 50 && y < 600; });
    EXPECT_LT(strokes, 2u * (700 + 550));
    EXPECT_LE(expectPainted({90, 70}, [](int x, int y) { return x == 30 && y == 40; }), 1u);
}

TEST(MaskStrokes, AtTheBorder)
{
    (void)expectPainted({100, 80}, [](int x, int y) { return x < 30 || y >= 70; });
    (void)expectPainted({100, 80}, [](int x, int y) { return x >= 80 && y < 20; });
}

TEST(MaskStrokes, ShapesOfAllKinds)
{
    (void)expectPainted({300, 200}, [](int x, int y) { // a ring
        const int d = (x - 150) * (x - 150) + (y - 100) * (y - 100);
        return d < 80 * 80 && d > 40 * 40;
    });
    (void)expectPainted({300, 200}, [](int x, int y) { return (x + 2 * y) % 40 < 15; });   // slanted bars
    (void)expectPainted({120, 90}, [](int x, int y) { return (x + y) % 2 == 0; });         // a chequer board
    (void)expectPainted({300, 200}, [](int x, int y) { return x / 10 * 10 * y < 20000; }); // steps
}

TEST(MaskStrokes, Noise)
{
    std::mt19937 random(5);
    for (const unsigned share : {2u, 10u, 60u}) { // of pixels that are not marked, one in so many
        std::vector<bool> marks(150 * 110);
        for (auto&& mark : marks)
            mark = random() % share != 0;
        (void)expectPainted({150, 110}, [&](int x, int y) { return marks[static_cast<std::size_t>(y * 150 + x)]; });
    }
}

} // namespace
} // namespace orvo::jobs
