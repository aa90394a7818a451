#include "glyphs.hpp"
#include "room_painter.hpp"

namespace orvo::scenes {

namespace {

constexpr float kSkirting = 0.032f; // height of the board at the foot of the wall

Light paintPlaster(const Spot& p, std::uint32_t seed)
{
    const float clouds = layeredNoise(p.u, p.v, 9.0f, p.px, seed + 101u, 0.55f, 4);
    const float grain = layeredNoise(p.u, p.v, 75.0f, p.px, seed + 103u, 0.82f, 5);
    const float crack = std::abs(layeredNoise(p.u, p.v, 6.0f, p.px, seed + 105u, 0.6f, 5));
    const float line = smooth(0.012f, 0.0f, crack) * smooth(0.1f, 0.5f, clouds);
    const Light tint = mix({0.63f, 0.58f, 0.47f}, {0.50f, 0.52f, 0.46f}, limited(0.5f + clouds));
    const float shade = std::max(0.1f, 1.0f + 0.14f * clouds + 0.42f * grain);
    return tint * shade * (1.0f - 0.65f * line) * roomLight(p.u, p.v);
}

Light paintBrick(const Spot& p, std::uint32_t seed)
{
    constexpr float kHigh = 0.0275f;
    constexpr float kWide = 0.078f;
    constexpr float kJoint = 0.0042f;
    const float wobble = 0.0016f * layeredNoise(p.u, p.v, 40.0f, p.px, seed + 111u, 0.6f, 3);
    const float course = (p.v + wobble) / kHigh;
    const int line = cell(course);
    const float place = (p.u + wobble) / kWide + 0.5f * static_cast<float>(line & 1);
    const int number = cell(place);
    const float inU = (fraction(place) - 0.5f) * kWide;
    const float inV = (fraction(course) - 0.5f) * kHigh;
    const float edge = std::max(std::abs(inU) - 0.5f * (kWide - kJoint), std::abs(inV) - 0.5f * (kHigh - kJoint));
    const float stone = coverage(edge, std::max(p.px, 0.0008f));
    const float grain = layeredNoise(p.u, p.v, 85.0f, p.px, seed + 113u, 0.82f, 5);
    const float burn = chance(number, line, seed + 115u);
    const Light fired = mix({0.46f, 0.155f, 0.082f}, {0.27f, 0.085f, 0.062f}, burn) *
                        (0.8f + 0.45f * chance(number, line, seed + 117u));
    const float bevel = 1.0f + 0.35f * limited(-inV / kHigh * 2.0f) * limited(1.0f + edge / 0.004f);
    const Light brick = fired * (bevel * std::max(0.12f, 1.0f + 0.75f * grain));
    const Light joint = Light{0.36f, 0.33f, 0.29f} * std::max(0.2f, 0.8f + 0.4f * grain);
    return mix(joint, brick, stone) * roomLight(p.u, p.v);
}

// So dark that only the longest exposures show the plate at the back.
Light paintHearth(const Spot& p, std::uint32_t seed)
{
    const float depth =
        limited(std::min({p.u - kFireplace.left, kFireplace.right - p.u, p.v - kFireplace.top}) / 0.05f);
    const float grain = layeredNoise(p.u, p.v, 55.0f, p.px, seed + 121u, 0.8f, 5);
    const float soot = 0.0055f * std::exp(-2.6f * depth) + 0.0011f;
    Light light = Light{1.0f, 0.86f, 0.72f} * (soot * std::max(0.15f, 1.0f + 0.8f * grain));

    constexpr Box kPlate{1.222f, 0.520f, 1.378f, 0.640f};
    if (kPlate.near(p)) {
        const float rim = kPlate.cover(p) - kPlate.shrunk(0.004f).cover(p);
        light = light + Light{0.0032f, 0.0027f, 0.0020f} * rim;
        constexpr std::string_view kLines[] = {"ORVO", "SIX STOPS DOWN", "CAST IRON 1887"};
        constexpr Box kPlaces[] = {
            {1.236f, 0.532f, 1.372f, 0.570f}, {1.232f, 0.585f, 1.372f, 0.596f}, {1.232f, 0.610f, 1.372f, 0.621f}};
        for (int i = 0; i < 3; ++i)
            light = light + Light{0.0048f, 0.0041f, 0.0030f} * textInk(kLines[i], kPlaces[i], p);
    }
    // Logs with some embers between them.
    for (int log = 0; log < 4; ++log) {
        const float middleU = 1.245f + 0.037f * static_cast<float>(log);
        const float middleV = (log & 1) != 0 ? 0.690f : 0.717f;
        const float away = ellipseDistance(p, middleU, middleV, 0.024f, 0.022f);
        const float inside = coverage(away, p.px);
        if (inside <= 0.0f)
            continue;
        const float rings = 0.7f + 0.5f * std::sin(away * 1500.0f + 3.0f * grain);
        const float ember =
            smooth(0.25f, 0.9f, layeredNoise(p.u, p.v, 120.0f, p.px, seed + 125u) + 10.0f * (p.v - middleV));
        light = mix(light, Light{0.007f, 0.0052f, 0.0036f} * rings + Light{0.30f, 0.055f, 0.006f} * (0.35f * ember),
                    inside);
    }
    return light;
}

// Position of a point of the floor: x to the side, z into the depth. The room looks towards (0.75, kVanish).
struct FloorPlace
{
    float x;
    float z;
    float px; // pixel size there, the larger of both directions
};

FloorPlace onFloor(const Spot& p)
{
    constexpr float kVanish = 0.42f;
    const float scale = 1.0f / (p.v - kVanish);
    return {(p.u - 0.75f) * scale, scale, p.px * scale * std::max(1.0f, 0.6f * scale)};
}

Light paintPlanks(const FloorPlace& f, std::uint32_t seed)
{
    constexpr float kWide = 0.17f;
    const float place = f.x / kWide;
    const int plank = cell(place);
    const float along = f.z * 1.1f + 3.0f * chance(plank, 0, seed + 131u);
    const int piece = cell(along);
    const float tone = chance(plank, piece, seed + 133u);
    const float shift = 9.0f * chance(plank, piece, seed + 135u);
    const float warp = 0.35f * valueNoise(f.x * 6.0f, f.z * 2.0f + shift, seed + 137u);
    const float fibre = layeredNoise(f.x * 5.0f + warp, f.z * 0.55f + shift, 9.0f, f.px * 3.0f, seed + 139u, 0.8f, 6);
    const float grain = layeredNoise(f.x, f.z, 26.0f, f.px, seed + 141u, 0.8f, 4);
    const float gap = std::max(coverage((0.5f - std::abs(fraction(place) - 0.5f)) * kWide - 0.004f, f.px),
                               coverage((0.5f - std::abs(fraction(along) - 0.5f)) - 0.006f, f.px * 1.5f));
    const Light wood = mix({0.42f, 0.215f, 0.088f}, {0.25f, 0.112f, 0.040f}, tone);
    return wood * (std::max(0.15f, 1.0f + 0.55f * fibre + 0.30f * grain) * (1.0f - 0.85f * gap));
}

Light paintCarpet(const FloorPlace& f, float across, float along, std::uint32_t seed)
{
    const float knots = layeredNoise(f.x, f.z, 42.0f, f.px, seed + 151u, 0.85f, 4);
    const float ring = std::max(std::abs(across), std::abs(along));
    const float wave = std::abs(fraction(across * 4.0f) - 0.5f) + std::abs(fraction(along * 3.0f) - 0.5f);
    const int patch = static_cast<int>(mixBits(cell(across * 4.0f), cell(along * 3.0f), seed + 153u) % 3u);
    const Light inner[] = {{0.42f, 0.035f, 0.030f}, {0.030f, 0.090f, 0.26f}, {0.50f, 0.30f, 0.050f}};
    Light colour = mix(inner[patch], {0.50f, 0.42f, 0.30f}, coverage(std::abs(wave - 0.42f) - 0.05f, f.px * 4.0f));
    if (ring > 0.80f)
        colour = fraction((across + along) * 9.0f) > 0.5f ? Light{0.04f, 0.075f, 0.16f} : Light{0.44f, 0.36f, 0.24f};
    if (ring > 0.92f)
        colour = {0.30f, 0.03f, 0.03f};
    return colour * std::max(0.15f, 1.0f + 0.7f * knots);
}

// The panes of the window as the sun projects them on the floor, 0..1.
float sunOnFloor(const FloorPlace& f)
{
    const float depth = (f.z - 1.95f) / 0.80f; // 0..1 over the patch
    const float side = (f.x + 0.55f - 0.42f * (f.z - 1.9f)) / 1.05f;
    if (depth < -0.05f || depth > 1.05f || side < -0.05f || side > 1.05f)
        return 0.0f;
    constexpr float kSoft = 0.012f; // the sun is not a point
    const auto within = [](float t, float from, float to) {
        return smooth(from - kSoft, from + kSoft, t) * smooth(to + kSoft, to - kSoft, t);
    };
    const float column = within(side, 0.02f, 0.31f) + within(side, 0.355f, 0.645f) + within(side, 0.69f, 0.98f);
    return column * (within(depth, 0.02f, 0.46f) + within(depth, 0.53f, 0.98f));
}

} // namespace

Light paintWall(const Spot& p, std::uint32_t seed)
{
    if (kFireplace.near(p)) {
        const float inside = kFireplace.cover(p);
        if (inside >= 1.0f)
            return paintHearth(p, seed);
        return mix(paintBrick(p, seed), paintHearth(p, seed), inside);
    }
    if (p.u > kChimney.left + p.px)
        return paintBrick(p, seed);
    Light light = paintPlaster(p, seed);
    const float board = coverage(kFloorLine - kSkirting - p.v, p.px);
    if (board > 0.0f) {
        const float grain = layeredNoise(p.u, p.v * 6.0f, 40.0f, p.px * 2.0f, seed + 107u, 0.75f, 4);
        const float profile = 0.75f + 0.25f * smooth(0.0f, 0.008f, p.v - (kFloorLine - kSkirting));
        light = mix(light, Light{0.66f, 0.64f, 0.58f} * (profile * (1.0f + 0.3f * grain)) * roomLight(p.u, p.v), board);
    }
    // The chimney stands out from the wall and shades it at its side.
    light = light * (1.0f - 0.5f * std::exp((p.u - kChimney.left) / 0.018f));
    const float brick = coverage(kChimney.left - p.u, p.px);
    return brick > 0.0f ? mix(light, paintBrick(p, seed), brick) : light;
}

Light paintFloor(const Spot& p, std::uint32_t seed)
{
    const FloorPlace f = onFloor(p);
    Light albedo = paintPlanks(f, seed);
    const float across = (f.x - 0.10f) / 0.95f;
    const float along = (f.z - 2.10f) / 0.42f;
    const float carpet = coverage((std::max(std::abs(across), std::abs(along)) - 1.0f) * 0.42f, f.px);
    if (carpet > 0.0f)
        albedo = mix(albedo, paintCarpet(f, across, along, seed), carpet);
    const float contact = 1.0f - 0.55f * std::exp(-(p.v - kFloorLine) / 0.012f);
    const Light fallen = roomLight(p.u, p.v) * contact + Light{5.2f, 4.5f, 3.3f} * sunOnFloor(f);
    return albedo * fallen;
}

} // namespace orvo::scenes
