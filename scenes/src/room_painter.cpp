#include "room_painter.hpp"

namespace orvo::scenes {

namespace {

constexpr float kCompositionWidth = 1.5f;
constexpr float kDarkest = 4e-4f; // light that is everywhere: real rooms and lenses have no zero

Light paintSpot(const Spot& p, std::uint32_t seed)
{
    Light light;
    constexpr Box kGlass = kWindow.shrunk(0.008f); // ends behind the frame, so that no light leaks beside it
    const float glass = kGlass.near(p) ? kGlass.cover(p) : 0.0f;
    if (glass >= 1.0f)
        light = paintOutdoors(p, seed);
    else if (p.v > kFloorLine + p.px)
        light = paintFloor(p, seed);
    else if (p.v < kFloorLine - p.px)
        light = glass > 0.0f ? mix(paintWall(p, seed), paintOutdoors(p, seed), glass) : paintWall(p, seed);
    else
        light = mix(paintFloor(p, seed), paintWall(p, seed), coverage(p.v - kFloorLine, p.px));

    paintWindowFrame(light, p, seed);
    paintCurtains(light, p, seed);
    paintShelf(light, p, seed);
    paintPoster(light, p, seed);
    paintMantel(light, p, seed);
    paintLamp(light, p);
    paintTable(light, p, seed);
    paintChart(light, p);
    paintVaseAndPlant(light, p, seed);
    return light + Light{kDarkest, kDarkest, kDarkest};
}

} // namespace

Light roomLight(float u, float v)
{
    constexpr Light kDaylight{0.98f, 1.0f, 1.06f};
    constexpr Light kLampLight{1.0f, 0.62f, 0.26f};
    const float fromWindow = 0.34f / (1.0f + 2.2f * (square(u - 0.71f) + square(v - 0.75f)) * 2.0f);
    const float toLamp = square(u - kLampU) + 1.3f * square(v - kLampV);
    return kDaylight * fromWindow + kLampLight * (0.75f / (1.0f + toLamp / square(0.13f)));
}

RoomPainter::RoomPainter(_Size<int> size, std::uint64_t seed)
    : roomSeed(mixBits(static_cast<std::int32_t>(seed & 0xffffffffu), static_cast<std::int32_t>(seed >> 32), 77u))
{
    const float width = static_cast<float>(size.width);
    const float height = static_cast<float>(size.height);
    pixelSize = 1.0f / std::max(height, width / kCompositionWidth);
    originU = 0.5f * kCompositionWidth - 0.5f * width * pixelSize;
    originV = 0.5f - 0.5f * height * pixelSize;
}

void RoomPainter::paintRow(int y, int firstX, int count, Light* row) const
{
    const float v = originV + (static_cast<float>(y) + 0.5f) * pixelSize;
    for (int i = 0; i < count; ++i) {
        const float u = originU + (static_cast<float>(firstX + i) + 0.5f) * pixelSize;
        row[i] = paintSpot({u, v, pixelSize}, roomSeed);
    }
}

} // namespace orvo::scenes
