#include "focus_painter.hpp"
#include "glyphs.hpp"

#include <array>
#include <string_view>

namespace orvo::scenes {

namespace {

struct Place
{
    float u;
    float v;
};

// Distance of `p` from the stroke between two points, and position along it, 0..1, of the nearest point.
struct StrokeSpot
{
    float distance;
    float along;
};
StrokeSpot nearestOn(const Spot& p, const Place& from, const Place& to)
{
    const float du = to.u - from.u;
    const float dv = to.v - from.v;
    const float along = limited(((p.u - from.u) * du + (p.v - from.v) * dv) / (du * du + dv * dv));
    return {std::sqrt(square(p.u - from.u - along * du) + square(p.v - from.v - along * dv)), along};
}

void lay(Patch& patch, const Light& light, float cover)
{
    patch.light = patch.cover + cover > 0.0f ? mix(patch.light, light, cover / (cover + patch.cover * (1.0f - cover)))
                                             : patch.light;
    patch.cover += cover * (1.0f - patch.cover);
}

// Light from the left on an upright round object; `across` is -1..1 over it.
float roundShade(float across) { return 0.35f + 0.65f * limited(0.62f - 0.5f * across - 0.25f * across * across); }

Light paper(const Spot& p, Light colour, std::uint32_t seed)
{
    return colour * std::max(0.3f, 1.0f + 0.45f * layeredNoise(p.u, p.v, 90.0f, p.px, seed, 0.92f, 5));
}

} // namespace

Patch paintStraws(const Spot& p, std::uint32_t seed)
{
    constexpr int kStraws = 9;
    constexpr Box kPot{1.165f, 0.385f, 1.275f, standingAt(kStrawsNearness)};
    Patch patch{{}, 0.0f};
    for (int i = 0; i < kStraws; ++i) {
        const auto lean = static_cast<float>(i) / (kStraws - 1.0f) - 0.5f;
        const Place from{1.22f + 0.06f * lean, 0.42f};
        const Place to{1.24f + 0.40f * lean, 0.05f + 0.22f * chance(i, 3, seed)};
        const auto [distance, along] = nearestOn(p, from, to);
        const float half = 0.0028f - 0.0012f * along;
        const float ear =
            0.0035f * smooth(0.78f, 0.86f, along) * (0.6f + 0.4f * std::abs(fraction(along * 60.0f) - 0.5f));
        const float streak = 0.85f + 0.3f * valueNoise(p.u * 300.0f, p.v * 90.0f, seed + 5u);
        lay(patch, Light{0.42f, 0.31f, 0.12f} * streak, coverage(distance - half - ear, p.px));
    }
    if (kPot.near(p)) {
        const float across = (p.u - 0.5f * (kPot.left + kPot.right)) / (0.5f * kPot.width());
        const float glaze = layeredNoise(p.u, p.v, 60.0f, p.px, seed + 9u, 0.9f, 6);
        const float ring = coverage(std::abs(fraction((p.v - kPot.top) / 0.03f) - 0.5f) - 0.12f, p.px / 0.03f);
        const Light clay = mix({0.36f, 0.15f, 0.08f}, {0.42f, 0.34f, 0.22f}, 0.7f * ring);
        lay(patch, clay * (roundShade(across) * 1.5f * std::max(0.4f, 1.0f + 0.6f * glaze)), kPot.cover(p));
    }
    return patch;
}

Patch paintTin(const Spot& p, std::uint32_t seed)
{
    constexpr Box kBody{0.64f, 0.27f, 0.89f, standingAt(kTinNearness)};
    constexpr Box kLabel{0.66f, 0.34f, 0.87f, 0.53f};
    const float scratch = layeredNoise(p.u * 0.4f, p.v * 2.0f, 60.0f, p.px * 2.0f, seed, 0.9f, 6);
    const float dust = layeredNoise(p.u, p.v, 120.0f, p.px, seed + 3u, 0.9f, 4);
    Light light = Light{0.09f, 0.17f, 0.26f} * std::max(0.3f, 1.0f + 0.5f * scratch + 0.5f * dust);
    if (kLabel.near(p)) {
        Light label = paper(p, {0.47f, 0.40f, 0.24f}, seed + 7u);
        const Light ink{0.11f, 0.05f, 0.03f};
        constexpr std::array<std::string_view, 5> kLines = {"DARJEELING", "SECOND FLUSH", "GARDEN 1887", "NET 250 G",
                                                            "KEEP DRY"};
        constexpr std::array<float, 5> kHeights = {0.021f, 0.015f, 0.015f, 0.011f, 0.011f};
        float top = kLabel.top + 0.022f;
        for (std::size_t i = 0; i < kLines.size(); ++i) {
            const Box line{kLabel.left + 0.015f, top, kLabel.right, top + kHeights[i]};
            label = mix(label, ink, textInk(kLines[i], line, p));
            top += kHeights[i] + 0.016f;
        }
        light = mix(light, label, kLabel.cover(p));
    }
    const float lid = coverage(std::abs(p.v - 0.295f) - 0.002f, p.px);
    light = mix(light, light * 0.3f, lid);
    const float across = (p.u - 0.5f * (kBody.left + kBody.right)) / (0.5f * kBody.width());
    return {light * (0.7f + 0.6f * roundShade(across)), kBody.cover(p)};
}

Patch paintCard(const Spot& p, std::uint32_t seed)
{
    // An upright card rotated about its left edge, which is the farther one: nearer parts look taller.
    constexpr float kLeft = 0.12f;
    constexpr float kRight = 0.54f;
    constexpr float kTall = 0.165f; // times 1/m
    const float nearness = kCardNearness(p.u, p.v);
    const float foot = standingAt(nearness);
    const float tall = kTall * dioptresOf(nearness);
    const float t = (foot - p.v) / tall; // 0 at the foot, 1 at the top
    const float sides = limited((p.u - kLeft) / p.px + 0.5f) * limited((kRight - p.u) / p.px + 0.5f);
    const float cover = sides * limited(t * tall / p.px + 0.5f) * limited((1.0f - t) * tall / p.px + 0.5f);
    if (!(cover > 0.0f))
        return {{}, 0.0f};
    // along the card in multiples of its height: perspective compresses its far end
    constexpr float kLong = 8.5f;
    const float s = (dioptresOf(nearness) - dioptresOf(kCardNearness(kLeft, 0.0f))) / dioptresOf(nearness) * kLong;
    const Spot on{s, 1.0f - t, p.px / tall};
    Light light = paper(on, {0.46f, 0.45f, 0.41f}, seed);
    constexpr int kLines = 10;
    constexpr float kColumn = 0.74f;
    constexpr std::string_view kText[] = {"NEAR AND FAR", "DISC OF LIGHT", "LENS AND LEAF", "SHARP AND SOFT",
                                          "STEP BY STEP", "STACK OF NINE", "ONE AT A TIME"};
    const float row = 1.0f / (kLines + 1.0f);
    const int line = std::clamp(cell(on.v / row - 0.5f), 0, kLines - 1);
    const int column = std::clamp(cell((s - 0.08f) / kColumn), 0, 2);
    const Box space{0.08f + static_cast<float>(column) * kColumn, (static_cast<float>(line) + 0.72f) * row, 3.0f,
                    (static_cast<float>(line) + 1.28f) * row};
    const auto phrase = kText[mixBits(line, column, seed) % std::size(kText)];
    light = mix(light, {0.06f, 0.06f, 0.09f}, textInk(phrase, space, on));
    return {light * (1.0f - 0.08f * s), cover};
}

Patch paintStick(const Spot& p, std::uint32_t seed)
{
    constexpr Place kTop{0.665f, 0.28f};
    constexpr Place kFoot{0.595f, 0.915f};
    const auto [distance, along] = nearestOn(p, kTop, kFoot);
    const float half = 0.0035f + 0.0022f * along; // nearer is thicker
    const float grain = layeredNoise(p.u * 3.0f, p.v, 90.0f, p.px * 2.0f, seed, 0.9f, 5);
    const float band = coverage(std::abs(fraction(along * 14.0f) - 0.5f) - 0.16f, p.px * 22.0f);
    const Light wood = mix(Light{0.38f, 0.28f, 0.15f}, Light{0.20f, 0.07f, 0.05f}, 0.8f * band);
    return {wood * std::max(0.3f, 1.0f + 0.55f * grain), coverage(distance - half, p.px)};
}

Patch paintBall(const Spot& p, std::uint32_t seed)
{
    constexpr float kRadius = 0.098f;
    constexpr Place kMiddle{1.02f, standingAt(kBallNearness) - kRadius};
    const float across = (p.u - kMiddle.u) / kRadius;
    const float down = (p.v - kMiddle.v) / kRadius;
    const float away = std::sqrt(across * across + down * down);
    const float cover = coverage((away - 1.0f) * kRadius, p.px);
    if (!(cover > 0.0f))
        return {{}, 0.0f};
    const float towards = std::sqrt(std::max(0.02f, 1.0f - away * away));
    // felt with two bands around it
    const float felt = layeredNoise(p.u, p.v, 70.0f, p.px, seed, 0.95f, 6);
    const float band = std::abs(down * 0.8f + across * 0.45f + 0.15f * towards);
    const Light cloth =
        mix({0.34f, 0.24f, 0.06f}, {0.10f, 0.20f, 0.22f}, coverage(std::abs(band - 0.38f) - 0.13f, p.px / kRadius));
    const float shade = 0.4f + 0.75f * limited(0.55f * towards - 0.4f * across - 0.35f * down);
    return {cloth * (shade * std::max(0.3f, 1.0f + 0.75f * felt)), cover};
}

Patch paintSpool(const Spot& p, std::uint32_t seed)
{
    constexpr float kFoot = standingAt(kSpoolNearness);
    constexpr Box kThread{0.725f, 0.635f, 0.835f, kFoot - 0.022f};
    constexpr Box kCap{0.712f, 0.612f, 0.848f, 0.638f};
    constexpr Box kBase{0.712f, kFoot - 0.026f, 0.848f, kFoot};
    const float across = (p.u - 0.78f) / 0.068f;
    const float grain = layeredNoise(p.u, p.v * 3.0f, 60.0f, p.px * 2.0f, seed, 0.9f, 6);
    Patch patch{{}, 0.0f};
    // turns of thread, slightly slanted, each lit from above
    constexpr float kTurn = 0.0075f;
    const float turn = (p.v + 0.05f * (p.u - 0.78f)) / kTurn;
    const float lit = 0.65f + 0.55f * std::abs(fraction(turn) - 0.5f) * 2.0f;
    const float twist = layeredNoise(p.u + p.v, p.v, 170.0f, p.px, seed + 3u, 0.9f, 4);
    const Light thread = Light{0.36f, 0.07f, 0.10f} * (lit * (1.0f + 0.6f * twist));
    lay(patch, thread * (1.5f * roundShade(across)), kThread.cover(p));
    const Light wood = Light{0.40f, 0.28f, 0.15f} * (std::max(0.3f, 1.0f + 0.6f * grain) * 1.3f * roundShade(across));
    lay(patch, wood, std::max(kCap.cover(p), kBase.cover(p)));
    return patch;
}

Patch paintFern(const Spot& p, std::uint32_t seed)
{
    // An arched stem of straight pieces; at each joint a leaflet to either side, smaller towards the tip.
    constexpr int kPieces = 13;
    const auto joint = [](int i) {
        const float t = static_cast<float>(i) / kPieces;
        return Place{1.47f - 0.42f * t, 1.02f - 0.60f * t + 0.22f * t * t * t};
    };
    Patch patch{{}, 0.0f};
    const float vein = layeredNoise(p.u * 1.5f, p.v, 110.0f, p.px, seed, 0.92f, 5);
    const Light leaf = Light{0.13f, 0.22f, 0.045f} * std::max(0.3f, 1.0f + 0.7f * vein);
    for (int i = 0; i < kPieces; ++i) {
        const Place from = joint(i);
        const Place to = joint(i + 1);
        const float left = 1.0f - static_cast<float>(i) / kPieces;
        const auto stem = nearestOn(p, from, to);
        lay(patch, Light{0.20f, 0.15f, 0.05f} * (1.0f + 0.2f * vein),
            coverage(stem.distance - 0.0015f - 0.002f * left, p.px));
        for (const float side : {-1.0f, 1.0f}) {
            const float du = to.u - from.u;
            const float dv = to.v - from.v;
            const float reach = 1.0f + 1.4f * left;
            const Place tip{to.u + 0.7f * du - side * reach * dv, to.v + 0.7f * dv + side * reach * du};
            const auto [distance, along] = nearestOn(p, to, tip);
            const float half = 0.0075f * (0.35f + 0.65f * left) *
                               std::sqrt(std::max(0.0f, 1.0f - square(2.0f * along - 0.85f) / 1.35f));
            const float rib = 1.0f + 0.7f * coverage(distance - 0.0012f, p.px);
            lay(patch, leaf * (rib * (side < 0.0f ? 1.15f : 0.85f)), coverage(distance - half, p.px));
        }
    }
    return patch;
}

std::span<const Thing> focusThings()
{
    constexpr Nearness kWall{0.0f};
    static constexpr std::array<Thing, 9> kThings = {{
        {kWall, {}, true, paintBackdrop},
        {kTableNearness, {}, true, paintTabletop},
        {{kStrawsNearness}, kStrawsBounds, false, paintStraws},
        {{kTinNearness}, kTinBounds, false, paintTin},
        {kCardNearness, kCardBounds, false, paintCard},
        {kStickNearness, kStickBounds, false, paintStick},
        {{kBallNearness}, kBallBounds, false, paintBall},
        {{kSpoolNearness}, kSpoolBounds, false, paintSpool},
        {{kFernNearness}, kFernBounds, false, paintFern},
    }};
    return kThings;
}

} // namespace orvo::scenes
