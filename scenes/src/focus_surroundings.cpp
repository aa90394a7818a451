#include "focus_painter.hpp"
#include "glyphs.hpp"

namespace orvo::scenes {

namespace {

constexpr float kViewScale =
    35.0f / 24.0f; // focal length over the sensor's height: a direction has tan(v - 0.5) / this

// Diamonds with a dot in each, as far as pixels resolve them, over speckled paper.
Light wallpaper(const Spot& p, std::uint32_t seed)
{
    constexpr float kPitch = 0.046f;
    const float a = (p.u + p.v) / kPitch;
    const float b = (p.u - p.v) / kPitch;
    const float px = 1.4f * p.px / kPitch;
    const float fromLine = std::min(std::abs(fraction(a) - 0.5f), std::abs(fraction(b) - 0.5f));
    const float line = coverage(fromLine - 0.04f, px);
    const float fromDot = std::sqrt(square(fraction(a + 0.5f) - 0.5f) + square(fraction(b + 0.5f) - 0.5f));
    const float dot = coverage(fromDot - 0.14f, px);
    Light light = mix({0.17f, 0.21f, 0.20f}, {0.29f, 0.28f, 0.22f}, 0.8f * line);
    light = mix(light, {0.24f, 0.14f, 0.11f}, 0.8f * dot);
    const float speckle = layeredNoise(p.u, p.v, 80.0f, p.px, seed, 0.9f, 6);
    return light * std::max(0.3f, 1.0f + 0.75f * speckle);
}

constexpr Box kNotice{0.60f, 0.05f, 0.95f, 0.20f};

// A painted board: plain except for its lettering, with the light falling off to one side.
void paintNotice(Light& light, const Spot& p)
{
    if (!kNotice.near(p))
        return;
    const float fall = 1.0f - 0.25f * (p.u - kNotice.left) / kNotice.width();
    const Light plain = Light{0.33f, 0.31f, 0.26f} * fall;
    const float ink = textInk("PLANE OF FOCUS", {0.635f, 0.105f, 0.95f, 0.128f}, p);
    light = mix(light, mix(plain, plain * 0.28f, ink), kNotice.cover(p));
}

// Position on the table in metres: `across` from the middle, `along` away from the viewer. A ray to (u, v) meets a
// plane at depth z = 1/dioptres; lengths along a level plane grow with z.
struct TablePlace
{
    float across;
    float along;
    float px; // size of a pixel, the larger of both directions
};

TablePlace tablePlace(const Spot& p)
{
    // The plane drops 0.17 m over its 0.25 m of depth, seen by the lens from above: 1.21 m along it per metre.
    constexpr float kSlope = 1.21f;
    const float dioptres = dioptresOf(kTableNearness(p.u, p.v));
    const float perV = (dioptresOf(1.0f) - dioptresOf(0.0f)) * kTableNearness.perV;
    const float across = (p.u - 0.5f * kFocusCompositionWidth) / (kViewScale * dioptres);
    const float pxAcross = p.px / (kViewScale * dioptres);
    const float pxAlong = p.px * kSlope * perV / square(dioptres);
    return {across, kSlope / dioptres, std::max(pxAcross, pxAlong)};
}

Light planks(const TablePlace& at, std::uint32_t seed)
{
    constexpr float kPlank = 0.058f; // m
    const float number = (at.across + 3.0f) / kPlank;
    const int plank = cell(number);
    const float shade = 0.8f + 0.4f * chance(plank, 5, seed);
    const auto own = seed + static_cast<std::uint32_t>(plank) * 7u;
    const float fibre = layeredNoise(at.across * 9.0f, at.along, 34.0f, at.px * 3.0f, own + 1u, 0.8f, 6);
    const float pores = layeredNoise(at.across, at.along * 0.6f, 160.0f, at.px, own + 2u, 0.9f, 5);
    const float gap = coverage(0.0012f - kPlank * std::min(fraction(number), 1.0f - fraction(number)), at.px);
    const Light wood = Light{0.33f, 0.19f, 0.095f} * (shade * std::max(0.25f, 1.0f + 0.5f * fibre + 0.65f * pores));
    return mix({0.05f, 0.03f, 0.02f}, wood, gap);
}

// A ruler that points away from the viewer: marks every 5 mm, numbers every 20 mm.
void layRuler(Light& light, const TablePlace& at, std::uint32_t seed)
{
    constexpr float kTurn = 0.10f; // deviation from straight away
    constexpr Box kRuler{0.0f, 0.490f, 0.030f, 0.765f};
    constexpr float kMark = 0.005f;
    constexpr int kMarksPerNumber = 4;
    const float across = at.across - 0.005f - kTurn * (0.765f - at.along);
    const Spot place{across, at.along, at.px};
    if (!kRuler.near(place))
        return;
    const float grain = layeredNoise(across, at.along, 220.0f, at.px, seed, 0.9f, 4);
    Light face = Light{0.50f, 0.44f, 0.24f} * (1.0f + 0.3f * grain);
    const float marks = (at.along - kRuler.top) / kMark;
    const int mark = cell(marks + 0.5f);
    const bool numbered = mark % kMarksPerNumber == 0;
    const float fromMark = std::abs(marks - static_cast<float>(mark)) * kMark - 0.0006f;
    const float length = numbered ? 0.015f : 0.009f;
    const Light ink{0.04f, 0.035f, 0.03f};
    face = mix(face, ink, coverage(fromMark, at.px) * coverage(across - length, at.px));
    // numbers are upright for the viewer, who looks along decreasing `along`
    const int number = cell(marks / kMarksPerNumber + 0.5f);
    const float middle = kRuler.top + static_cast<float>(number * kMarksPerNumber) * kMark;
    const Spot turned{across, -at.along, at.px};
    const char digits[] = {static_cast<char>('0' + (number / 10) % 10), static_cast<char>('0' + number % 10)};
    face = mix(face, ink, textInk({digits, 2}, {0.0165f, -middle - 0.0035f, 0.03f, -middle + 0.0035f}, turned));
    light = mix(light, face, kRuler.cover(place));
}

// A chequered napkin of coarse weave, slightly skewed.
void layNapkin(Light& light, const TablePlace& at, std::uint32_t seed)
{
    constexpr Box kNapkin{-0.03f, -0.075f, 0.125f, 0.045f};
    constexpr float kSquare = 0.0125f;
    const float x = 0.92f * (at.across - 0.045f) + 0.39f * (at.along - 0.56f);
    const float y = -0.39f * (at.across - 0.045f) + 0.92f * (at.along - 0.56f);
    const Spot place{x, y, at.px};
    if (!kNapkin.near(place))
        return;
    const auto band = [&](float t) {
        const float inSquare = fraction(t / (2.0f * kSquare)) * 2.0f * kSquare;
        return coverage(std::abs(inSquare - kSquare) - 0.5f * kSquare, at.px);
    };
    const float weave = layeredNoise(x, y, 420.0f, at.px, seed, 0.9f, 4);
    const Light cloth = mix({0.50f, 0.47f, 0.42f}, {0.22f, 0.05f, 0.06f}, 0.5f * (band(x) + band(y)));
    light = mix(light, cloth * std::max(0.3f, 1.0f + 0.6f * weave), kNapkin.cover(place));
}

// Darkens the surroundings of an object.
float shadow(const Spot& p, float u, float nearness, float width)
{
    const float v = standingAt(nearness);
    return 1.0f - 0.55f * std::exp(-square((p.u - u) / width) - square((p.v - v) / (0.35f * width)));
}

} // namespace

float dioptresOf(float nearness)
{
    constexpr float kFarthest = 1.0f / 0.65f;
    constexpr float kNearest = 1.0f / 0.40f;
    return kFarthest + nearness * (kNearest - kFarthest);
}

Patch paintBackdrop(const Spot& p, std::uint32_t seed)
{
    Light light = wallpaper(p, seed);
    paintNotice(light, p);
    const float fall = 0.75f + 0.45f * smooth(1.5f, 0.1f, p.u); // the window is at the left
    return {light * fall, 1.0f, 1.0f - kNotice.cover(p)};
}

Patch paintTabletop(const Spot& p, std::uint32_t seed)
{
    constexpr Box kTable{-1.0f, kTableEdge, kFocusCompositionWidth + 1.0f, 2.0f};
    const float cover = kTable.cover(p);
    if (!(cover > 0.0f))
        return {{}, 0.0f};
    const TablePlace at = tablePlace(p);
    Light light = planks(at, seed);
    layNapkin(light, at, seed + 11u);
    layRuler(light, at, seed + 13u);
    const float shade = shadow(p, 0.765f, kTinNearness, 0.19f) * shadow(p, 1.02f, kBallNearness, 0.10f) *
                        shadow(p, 0.78f, kSpoolNearness, 0.10f) * shadow(p, 1.22f, kStrawsNearness, 0.10f);
    return {light * shade, cover};
}

} // namespace orvo::scenes
