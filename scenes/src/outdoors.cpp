#include "room_painter.hpp"

namespace orvo::scenes {

namespace {

constexpr float kHorizon = 0.46f;
constexpr float kSunU = 0.862f;
constexpr float kSunV = 0.205f;
constexpr float kSunRadius = 0.017f;
constexpr Light kHaze{7.5f, 8.2f, 9.0f};

Light paintSky(const Spot& p, std::uint32_t seed)
{
    const float height = limited((kHorizon - p.v) / 0.40f);
    Light sky = mix({9.0f, 9.6f, 10.0f}, {1.7f, 3.6f, 8.2f}, std::sqrt(height));
    const float away = std::sqrt(square(p.u - kSunU) + square(p.v - kSunV));
    sky = sky + Light{13.0f, 10.0f, 6.0f} * std::exp(-away / 0.10f);

    // Clouds are on a ceiling: towards the horizon they get denser and flatter. The side towards the sun is bright, the
    // underside gray.
    const float distance = 1.0f / (0.30f + 0.70f * height);
    const Spot q{(p.u - 0.71f) * (0.7f + 0.3f * distance), 0.55f * distance, p.px * distance};
    const float body = layeredNoise(q.u, q.v, 7.0f, q.px, seed + 11u, 0.58f);
    const float density = smooth(0.05f, 0.55f, body + 0.10f) * smooth(0.02f, 0.15f, height);
    if (density > 0.0f) {
        const float towardsSun = body - layeredNoise(q.u + 0.02f, q.v + 0.02f, 7.0f, q.px, seed + 11u, 0.58f, 3);
        const Light cloud = mix({7.0f, 7.6f, 8.6f}, {19.0f, 17.5f, 15.5f}, limited(0.55f + 1.2f * towardsSun));
        sky = mix(sky, cloud, density * 0.9f);
    }
    sky = sky + Light{85.0f, 70.0f, 46.0f} * std::exp(-std::max(0.0f, away - kSunRadius) / 0.022f);
    const float disc = coverage(away - kSunRadius, p.px);
    return disc > 0.0f ? mix(sky, {3400.0f, 3000.0f, 2300.0f}, disc) : sky;
}

void paintHills(Light& light, const Spot& p, std::uint32_t seed)
{
    struct Ridge
    {
        float base;
        float relief;
        float frequency;
        Light colour;
        float haze;
    };
    constexpr Ridge kRidges[] = {{0.425f, 0.035f, 5.0f, {1.3f, 1.7f, 2.1f}, 0.62f},
                                 {0.452f, 0.026f, 8.0f, {0.75f, 1.35f, 0.85f}, 0.30f},
                                 {0.485f, 0.020f, 13.0f, {0.55f, 1.05f, 0.28f}, 0.07f}};
    std::uint32_t number = 21;
    for (const Ridge& ridge : kRidges) {
        ++number;
        if (p.v < ridge.base - 1.7f * ridge.relief)
            continue;
        const float top = ridge.base + ridge.relief * layeredNoise(p.u, 0.37f, ridge.frequency, p.px, seed + number);
        const float inside = coverage(top - p.v, p.px);
        if (inside <= 0.0f)
            continue;
        const float woods = layeredNoise(p.u, p.v * 2.0f, 60.0f, p.px, seed + number + 9u, 0.75f, 5);
        const float fields = smooth(0.1f, 0.25f, valueNoise(p.u * 22.0f + p.v * 9.0f, p.v * 70.0f, seed + number + 5u));
        const Light ground = mix(ridge.colour * (1.0f + 0.55f * woods),
                                 Light{2.5f, 2.2f, 0.75f} * (1.0f + 0.15f * woods), 0.6f * fields);
        light = mix(light, mix(ground, kHaze * 0.55f, ridge.haze), inside);
    }
}

// One house of a street: wall, gable roof, windows, chimney. `along` is 0..1 across its plot.
void paintHouse(Light& light, const Spot& p, float along, int plot, float plotWidth, float foot, std::uint32_t seed)
{
    const float tall = plotWidth * (0.75f + 0.6f * chance(plot, 1, seed));
    const float eaves = foot - tall;
    const float pitch = plotWidth * (0.35f + 0.25f * chance(plot, 2, seed));
    const Light paints[] = {
        {3.2f, 2.9f, 2.3f}, {3.0f, 1.7f, 0.8f}, {3.3f, 3.2f, 3.1f}, {1.3f, 1.9f, 2.6f}, {2.6f, 1.1f, 0.85f}};
    const Light wall = paints[mixBits(plot, 3, seed) % 5u];
    const float rough = layeredNoise(p.u, p.v, 160.0f, p.px, seed + 41u, 0.7f, 4);
    const float middle = std::abs(along - 0.5f);

    const float roofTop = eaves - pitch * (1.0f - 2.0f * middle);
    const float roof = coverage(roofTop - p.v, p.px) * coverage(p.v - eaves, p.px);
    if (roof > 0.0f) {
        const float tiles = 0.8f + 0.35f * fraction((p.v - roofTop) / 0.0045f) * limited(0.0045f / p.px - 1.5f);
        light = mix(light, Light{2.1f, 0.52f, 0.24f} * (tiles * (1.0f + 0.35f * rough)), roof);
    }
    const float body = coverage(eaves - p.v, p.px) * coverage((middle - 0.46f) * plotWidth, p.px);
    if (body <= 0.0f)
        return;
    Light face = wall * (1.0f + 0.22f * rough) * (along > 0.5f ? 1.0f : 0.82f);
    const float column = fraction(along * 3.0f) - 0.5f;
    const float storey = fraction((p.v - eaves) / (plotWidth * 0.34f)) - 0.55f;
    const float pane = coverage((std::abs(column) - 0.22f) * plotWidth / 3.0f, p.px) *
                       coverage((std::abs(storey) - 0.26f) * plotWidth * 0.34f, p.px);
    face = mix(face, {0.22f, 0.30f, 0.42f}, pane);
    light = mix(light, face, body);
}

void paintTown(Light& light, const Spot& p, std::uint32_t seed)
{
    struct Street
    {
        float foot;
        float plot;
        float dim;
    };
    constexpr Street kStreets[] = {{0.525f, 0.026f, 0.85f}, {0.560f, 0.038f, 1.0f}};
    std::uint32_t number = 50;
    for (const Street& street : kStreets) {
        ++number;
        if (p.v < street.foot - 2.3f * street.plot)
            continue;
        const float place = p.u / street.plot + 0.37f * static_cast<float>(number);
        const int plot = cell(place);
        if (chance(plot, 9, seed + number) < 0.72f)
            paintHouse(light, p, place - static_cast<float>(plot), plot, street.plot, street.foot, seed + number);
        // Trees between and in front of the houses.
        const float crown = street.foot - 0.012f + 0.020f * layeredNoise(p.u, 0.7f, 28.0f, p.px, seed + number + 7u);
        const float green = coverage(crown - p.v, p.px);
        if (green > 0.0f) {
            const float leaves = layeredNoise(p.u, p.v, 90.0f, p.px, seed + number + 3u, 0.8f, 5);
            light =
                mix(light, Light{0.55f, 0.95f, 0.20f} * (street.dim * std::max(0.08f, 0.9f + 1.1f * leaves)), green);
        }
    }
}

} // namespace

Light paintOutdoors(const Spot& p, std::uint32_t seed)
{
    Light light = p.v < kHorizon + 0.05f ? paintSky(p, seed) : Light{2.0f, 2.0f, 1.0f};
    paintHills(light, p, seed);
    paintTown(light, p, seed);
    return light;
}

} // namespace orvo::scenes
