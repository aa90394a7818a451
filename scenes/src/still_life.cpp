#include "glyphs.hpp"
#include "room_painter.hpp"

namespace orvo::scenes {

namespace {

// A round body lit from the upper left by the window: a smooth gradient with a highlight.
Light glazed(Light colour, float across, float down, Light fallen)
{
    const float depth = std::sqrt(std::max(0.0f, 1.0f - across * across));
    const float facing = limited(0.35f + 0.55f * depth - 0.35f * across - 0.15f * down);
    const float gleam = std::exp(-(square((across + 0.38f) / 0.13f) + square((down + 0.35f) / 0.22f)));
    return colour * fallen * (0.15f + 1.3f * facing) + Light{2.2f, 2.3f, 2.5f} * gleam;
}

} // namespace

void paintChart(Light& light, const Spot& p)
{
    constexpr Box kBoard{0.520f, 0.585f, 0.672f, 0.691f};
    constexpr int kAcross = 6;
    constexpr int kDown = 4;
    if (!kBoard.near(p))
        return;
    const float inside = kBoard.cover(p);
    constexpr Light kPatches[kDown][kAcross] = {{{0.17f, 0.08f, 0.06f},
                                                 {0.55f, 0.30f, 0.22f},
                                                 {0.11f, 0.19f, 0.34f},
                                                 {0.10f, 0.15f, 0.05f},
                                                 {0.22f, 0.21f, 0.43f},
                                                 {0.12f, 0.50f, 0.40f}},
                                                {{0.70f, 0.20f, 0.025f},
                                                 {0.06f, 0.10f, 0.38f},
                                                 {0.54f, 0.09f, 0.12f},
                                                 {0.11f, 0.045f, 0.14f},
                                                 {0.34f, 0.50f, 0.05f},
                                                 {0.76f, 0.36f, 0.03f}},
                                                {{0.03f, 0.04f, 0.30f},
                                                 {0.06f, 0.30f, 0.065f},
                                                 {0.43f, 0.03f, 0.04f},
                                                 {0.82f, 0.58f, 0.015f},
                                                 {0.50f, 0.09f, 0.30f},
                                                 {0.015f, 0.24f, 0.38f}},
                                                {{0.88f, 0.88f, 0.88f},
                                                 {0.58f, 0.58f, 0.58f},
                                                 {0.36f, 0.36f, 0.36f},
                                                 {0.19f, 0.19f, 0.19f},
                                                 {0.09f, 0.09f, 0.09f},
                                                 {0.032f, 0.032f, 0.032f}}};
    const float across = (p.u - kBoard.left - 0.004f) / (kBoard.width() - 0.008f) * kAcross;
    const float down = (p.v - kBoard.top - 0.004f) / (kBoard.height() - 0.008f) * kDown;
    const int column = std::clamp(cell(across), 0, kAcross - 1);
    const int row = std::clamp(cell(down), 0, kDown - 1);
    const float unit = kBoard.width() / kAcross;
    const float border = std::max(std::abs(across - static_cast<float>(column) - 0.5f),
                                  std::abs(down - static_cast<float>(row) - 0.5f)) -
                         0.42f;
    const Light face = mix({0.03f, 0.03f, 0.03f}, kPatches[row][column], coverage(border * unit, p.px));
    // even light, so that the patches can be measured
    light = mix(light, face * Light{0.42f, 0.42f, 0.42f}, inside);
}

void paintVaseAndPlant(Light& light, const Spot& p, std::uint32_t seed)
{
    if (p.u < 0.66f || p.u > 1.0f || p.v < 0.30f || p.v > 0.70f)
        return;
    constexpr float kStemU = 0.800f;
    constexpr float kNeckV = 0.575f;
    constexpr int kLeaves = 22;
    for (int i = 0; i < kLeaves; ++i) {
        const float turn = -2.75f + 2.35f * (static_cast<float>(i) + chance(i, 1, seed + 301u)) / kLeaves;
        const float far = 0.05f + 0.115f * chance(i, 2, seed + 301u);
        const float middleU = kStemU + far * std::cos(turn);
        const float middleV = kNeckV + far * std::sin(turn) * 1.15f;
        const float along = (p.u - middleU) * std::cos(turn) + (p.v - middleV) * std::sin(turn);
        const float across = (p.v - middleV) * std::cos(turn) - (p.u - middleU) * std::sin(turn);
        const float stalk = coverage(std::max(std::abs(across) - 0.0012f, std::max(along, -far - along)), p.px);
        if (stalk > 0.0f)
            light = mix(light, {0.05f, 0.075f, 0.025f}, stalk);
        constexpr float kLong = 0.032f;
        const float t = along / kLong;
        if (std::abs(t) > 1.2f || std::abs(across) > 0.02f)
            continue;
        const float half = 0.0125f * (1.0f - t * t) * (1.0f - 0.25f * t);
        const float inside = coverage((std::abs(across) - half) * 0.8f, p.px);
        if (inside <= 0.0f)
            continue;
        const float vein =
            coverage(std::abs(across) - 0.0006f, p.px) +
            0.5f * coverage(std::abs(fraction((along - std::abs(across)) / 0.006f) - 0.5f) * 0.006f - 0.0005f, p.px);
        const float mottle = layeredNoise(p.u, p.v, 130.0f, p.px, seed + 303u, 0.8f, 3);
        const Light leaf = Light{0.11f, 0.32f, 0.045f} * (0.55f + 0.9f * chance(i, 3, seed + 301u));
        light = mix(light, leaf * (std::max(0.2f, 1.0f + 0.4f * mottle) + 0.6f * vein), inside);
    }
    // The vase: a body that swells and narrows.
    const float down = (p.v - kNeckV) / 0.117f;
    if (down < -0.05f || down > 1.02f)
        return;
    const float half = 0.016f + 0.032f * std::sin(3.0f * limited(down) + 0.12f) * (1.05f - 0.35f * down);
    const float across = (p.u - kStemU) / half;
    const float inside =
        coverage((std::abs(across) - 1.0f) * half, p.px) * coverage(kNeckV - p.v, p.px) * coverage(p.v - 0.691f, p.px);
    if (inside > 0.0f) {
        const float band = smooth(0.02f, 0.0f, std::abs(down - 0.45f) - 0.09f);
        const float zigzag = std::abs(fraction(std::asin(std::clamp(across, -1.0f, 1.0f)) * 3.0f) - 0.5f) * 0.3f;
        const float ink = band * coverage((std::abs(down - 0.38f - zigzag) - 0.025f) * 0.117f, p.px);
        const Light glaze = mix({0.045f, 0.13f, 0.46f}, {0.62f, 0.60f, 0.54f}, std::max(ink, band * 0.2f));
        light = mix(light, glazed(glaze, across, 2.0f * down - 1.0f, roomLight(p.u, p.v) * 0.9f), inside);
    }
}

void paintMantel(Light& light, const Spot& p, std::uint32_t seed)
{
    constexpr Box kStone{1.162f, 0.455f, 1.438f, 0.765f}; // surround of the fireplace
    if (kStone.near(p)) {
        const float inside =
            kStone.cover(p) * (1.0f - Box{kFireplace.left, kFireplace.top, kFireplace.right, 1.0f}.cover(p));
        if (inside > 0.0f) {
            const float veins = std::abs(layeredNoise(p.u, p.v, 16.0f, p.px, seed + 311u, 0.6f, 5));
            const float grain = layeredNoise(p.u, p.v, 140.0f, p.px, seed + 313u, 0.8f, 3);
            const Light marble =
                mix({0.16f, 0.17f, 0.16f}, {0.52f, 0.51f, 0.48f}, smooth(0.0f, 0.16f, veins)) * (1.0f + 0.25f * grain);
            light = mix(light, marble * roomLight(p.u, p.v), inside);
        }
    }
    if (!kMantel.near(p, 0.04f))
        return;
    if (p.v > kMantel.bottom && p.u > kMantel.left && p.u < kMantel.right)
        light = light * (1.0f - 0.6f * std::exp(-(p.v - kMantel.bottom) / 0.012f));
    const float inside = kMantel.cover(p);
    if (inside <= 0.0f)
        return;
    const float fibre = layeredNoise(p.u * 0.4f, p.v * 5.0f, 34.0f, p.px * 3.0f, seed + 315u, 0.8f, 5);
    const float bright = p.v < kMantel.top + 0.010f ? 1.5f : 0.75f;
    light =
        mix(light, Light{0.30f, 0.13f, 0.05f} * (bright * std::max(0.2f, 1.0f + 0.5f * fibre)) * roomLight(p.u, p.v),
            inside);
}

void paintLamp(Light& light, const Spot& p)
{
    if (p.u < 1.32f || p.v < 0.20f || p.v > kMantel.top + 0.01f)
        return;
    constexpr float kShadeTop = 0.225f;
    constexpr float kShadeBottom = 0.325f;
    constexpr Box kStem{kLampU - 0.004f, kShadeBottom - 0.01f, kLampU + 0.004f, kMantel.top};
    const float foot = coverage(ellipseDistance(p, kLampU, kMantel.top - 0.024f, 0.022f, 0.025f), p.px);
    if (foot > 0.0f)
        light = mix(light,
                    glazed({0.50f, 0.10f, 0.04f}, (p.u - kLampU) / 0.022f, (p.v - kMantel.top + 0.024f) / 0.025f,
                           {0.7f, 0.5f, 0.3f}),
                    foot);
    light = mix(light, {0.45f, 0.27f, 0.08f}, kStem.cover(p));
    const float down = (p.v - kShadeTop) / (kShadeBottom - kShadeTop);
    const float half = 0.040f + 0.028f * down;
    const float across = (p.u - kLampU) / half;
    const float shade = coverage((std::abs(across) - 1.0f) * half, p.px) * coverage(kShadeTop - p.v, p.px) *
                        coverage(p.v - kShadeBottom, p.px);
    if (shade > 0.0f) {
        const float bulb = std::exp(-(square(across / 0.55f) + square((down - 0.62f) / 0.42f)));
        const float pleat = 1.0f + 0.06f * std::sin(std::asin(std::clamp(across, -1.0f, 1.0f)) * 24.0f);
        light = mix(light, (Light{1.5f, 0.90f, 0.36f} + Light{4.6f, 3.3f, 1.6f} * bulb) * pleat, shade);
    }
}

void paintPoster(Light& light, const Spot& p, std::uint32_t seed)
{
    constexpr Box kFrame{1.145f, 0.085f, 1.315f, 0.330f};
    if (!kFrame.near(p, 0.03f))
        return;
    const float inside = kFrame.cover(p);
    if (inside <= 0.0f) {
        if (p.u > kFrame.left && p.v > kFrame.top) {
            const float away = std::max(std::max(p.u - kFrame.right, 0.0f), std::max(p.v - kFrame.bottom, 0.0f));
            light = light * (1.0f - 0.5f * std::exp(-away / 0.008f));
        }
        return;
    }
    constexpr Box kPaper = kFrame.shrunk(0.011f);
    const float fibre = layeredNoise(p.u, p.v, 150.0f, p.px, seed + 321u, 0.8f, 3);
    Light sheet = Light{0.72f, 0.69f, 0.60f} * (1.0f + 0.08f * fibre);
    constexpr float kStarU = 1.230f;
    constexpr float kStarV = 0.180f;
    const float away = std::sqrt(square(p.u - kStarU) + square(p.v - kStarV));
    constexpr float kRadius = 0.058f;
    constexpr float kSpokes = 18.0f;
    if (away < kRadius + p.px) {
        // a star of spokes: the radius at which they separate is the resolution
        const float turn = std::atan2(p.v - kStarV, p.u - kStarU);
        const float contrast = limited(away * 6.2832f / kSpokes / p.px * 0.5f - 0.5f);
        const float wave = std::sin(turn * kSpokes) * away * 6.2832f / kSpokes / 6.2832f;
        const float spoke = mix(0.5f, coverage(wave * 0.5f, p.px * 0.5f), contrast);
        const Light dye = mix({0.70f, 0.06f, 0.03f}, {0.03f, 0.08f, 0.40f}, limited(0.5f + (p.u - kStarU) / kRadius));
        sheet = mix(sheet, mix(sheet, dye, spoke), coverage(away - kRadius, p.px));
    }
    constexpr std::string_view kLines[] = {"ORVO", "LIGHT AND SHADOW", "FIFTEEN STOPS", "0123456789 +-2 EV"};
    constexpr Box kPlaces[] = {{1.176f, 0.250f, 1.3f, 0.272f},
                               {1.164f, 0.280f, 1.31f, 0.2895f},
                               {1.164f, 0.2945f, 1.31f, 0.3015f},
                               {1.164f, 0.3060f, 1.31f, 0.3115f}};
    for (int i = 0; i < 4; ++i)
        sheet = mix(sheet, {0.05f, 0.045f, 0.05f}, textInk(kLines[i], kPlaces[i], p));
    const Light wood = Light{0.10f, 0.06f, 0.03f} * (1.0f + 0.5f * fibre);
    light = mix(light, mix(wood, sheet, kPaper.cover(p)) * roomLight(p.u, p.v), inside);
}

} // namespace orvo::scenes
