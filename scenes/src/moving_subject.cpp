#include "paint.hpp"

#include <scenes/moving_subject.hpp>

#include <algorithm>
#include <cmath>

namespace orvo::scenes {

namespace {

constexpr float kEdge = 1.5f;   // scene pixels: as soft as the spline makes the edges of the room
constexpr double kReach = 0.36; // half the width of the figure with arms and legs extended, per height
constexpr std::uint32_t kClothSeed = 907;

// Distance to a limb: a line from a to b with the given thickness. In heights of the figure.
float limb(float x, float y, float ax, float ay, float bx, float by, float thickA, float thickB)
{
    const float dx = bx - ax;
    const float dy = by - ay;
    const float t = limited(((x - ax) * dx + (y - ay) * dy) / (dx * dx + dy * dy));
    return std::sqrt(square(x - ax - t * dx) + square(y - ay - t * dy)) - mix(thickA, thickB, t);
}

Light shirt(float x, float y, float px)
{
    const float cloth = layeredNoise(x, y, 60.0f, px, kClothSeed, 0.8f, 4);
    const float across = fraction(x * 16.0f);
    const float down = fraction(y * 16.0f);
    Light colour{0.46f, 0.050f, 0.042f};
    if (across < 0.5f)
        colour = mix(colour, {0.05f, 0.055f, 0.12f}, 0.6f);
    if (down < 0.5f)
        colour = mix(colour, {0.05f, 0.055f, 0.12f}, 0.6f);
    if (std::abs(across - 0.75f) < 0.06f || std::abs(down - 0.75f) < 0.06f)
        colour = {0.72f, 0.62f, 0.30f};
    return colour * std::max(0.2f, 1.0f + 0.4f * cloth);
}

struct Painted
{
    Light light;
    float cover = 0.0f;

    void add(Light colour, float distance, float px)
    {
        const float over = coverage(distance, px);
        if (over <= 0.0f)
            return;
        light = cover > 0.0f ? mix(light, colour, over) : colour;
        cover = std::max(cover, over);
    }
};

} // namespace

_Rect<double> subjectBounds(const SubjectPlacement& p)
{
    const double slack = kEdge;
    return {p.x - kReach * p.height - slack, p.y - 1.02 * p.height - slack, 2.0 * (kReach * p.height + slack),
            1.05 * p.height + 2.0 * slack};
}

SubjectSample sampleSubject(const SubjectPlacement& placement, double sceneX, double sceneY)
{
    const _Rect<double> bounds = subjectBounds(placement);
    if (sceneX < bounds.x || sceneX > bounds.x + bounds.width || sceneY < bounds.y || sceneY > bounds.y + bounds.height)
        return {};
    // In heights of the figure: x to the right, y down, feet at 0, crown at -1.
    const float x = static_cast<float>((sceneX - placement.x) / placement.height);
    const float y = static_cast<float>((sceneY - placement.y) / placement.height);
    const float px = static_cast<float>(1.0 / placement.height);
    const float edge = kEdge * px;
    const float swing = static_cast<float>(std::sin(placement.stride));

    const float denim = layeredNoise(x, y, 80.0f, px, kClothSeed + 1u, 0.85f, 4);
    const Light jeans = Light{0.060f, 0.105f, 0.22f} * std::max(0.2f, 1.0f + 0.5f * denim);
    const Light leather{0.16f, 0.075f, 0.030f};
    const Light skin{0.52f, 0.30f, 0.20f};
    Painted figure;
    for (const float side : {-1.0f, 1.0f}) {
        const float foot = side * 0.17f * swing;
        const float knee = 0.55f * foot + 0.012f;
        figure.add(leather, limb(x, y, foot - 0.01f, -0.018f, foot + 0.055f, -0.014f, 0.020f, 0.014f), edge);
        figure.add(jeans, limb(x, y, foot, -0.045f, knee, -0.26f, 0.022f, 0.034f), edge);
        figure.add(jeans, limb(x, y, knee, -0.26f, 0.012f * side, -0.49f, 0.034f, 0.056f), edge);
    }
    const float backHand = 0.19f * swing;
    figure.add(skin, limb(x, y, backHand, -0.50f, backHand, -0.48f, 0.018f, 0.016f), edge);
    figure.add(shirt(x, y, px) * 0.7f, limb(x, y, 0.0f, -0.79f, backHand, -0.52f, 0.032f, 0.022f), edge);
    figure.add(shirt(x, y, px), limb(x, y, 0.0f, -0.77f, 0.0f, -0.50f, 0.082f, 0.066f), edge);
    const float frontHand = -backHand;
    figure.add(skin, limb(x, y, frontHand, -0.50f, frontHand, -0.48f, 0.018f, 0.016f), edge);
    figure.add(shirt(x, y, px) * 1.25f, limb(x, y, 0.0f, -0.79f, frontHand, -0.52f, 0.032f, 0.022f), edge);
    figure.add(skin, limb(x, y, 0.0f, -0.86f, 0.003f, -0.82f, 0.026f, 0.028f), edge);
    figure.add(skin, std::sqrt(square((x - 0.006f) / 0.86f) + square(y + 0.925f)) - 0.062f, edge);
    const float strands = valueNoise(x * 220.0f, y * 45.0f, kClothSeed + 2u);
    figure.add(
        Light{0.060f, 0.032f, 0.014f} * (1.0f + 0.5f * strands),
        std::max(std::sqrt(square(x + 0.006f) + square(y + 0.938f)) - 0.066f, 1.6f * (x - 0.012f) + (y + 0.945f)),
        edge);
    const float glow = 0.30f + 0.22f * limited(0.5f - 4.0f * x); // lit from the window's side
    return {figure.light * glow, figure.cover};
}

} // namespace orvo::scenes
