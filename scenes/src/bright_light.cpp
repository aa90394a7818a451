#include "oklab.hpp"
#include "paint.hpp"

#include <orvo_core/parallel.hpp>
#include <scenes/bright_light.hpp>

#include <algorithm>
#include <cmath>
#include <numbers>

namespace orvo::scenes {

namespace {

constexpr double kDarkWall = 0.4; // lightness at the top
constexpr double kBrightWall = 0.7;
constexpr double kGlowReach = 0.2; // of the shorter side, where the glow falls to a quarter

// The colour of that lightness and hue, less saturated where a channel would be below 0.
Light wallColour(double lightness, double hue, double chroma)
{
    constexpr double kLess = 0.97;
    for (double each = chroma;; each *= kLess) {
        const Light light = lightOf({lightness, each * std::cos(hue), each * std::sin(hue)});
        if (std::min({light.r, light.g, light.b}) >= 0.0f)
            return light;
    }
}

} // namespace

std::shared_ptr<Picture> brightLight(const BrightLightSettings& settings)
{
    const int width = settings.size.width;
    const int height = settings.size.height;
    auto picture = std::make_shared<Picture>(settings.size, ColorProfileType::linearSRGB());
    const double hue = settings.hueDegrees * std::numbers::pi / 180.0;
    const double reach = kGlowReach * std::min(width, height);
    forEachRow(height, [&](int y) {
        const double place = static_cast<double>(y) / std::max(1, height - 1);
        const Light wall = wallColour(std::lerp(kDarkWall, kBrightWall, place), hue, settings.chroma);
        const double down = (y - 0.5 * (height - 1)) / reach;
        for (int x = 0; x < width; ++x) {
            const double across = (x - 0.5 * (width - 1)) / reach;
            const double fall = 1.0 + across * across + down * down;
            const auto glow = static_cast<float>(settings.peak / (fall * fall));
            picture->row(y)[x] = wall + Light{glow, glow, glow};
        }
    });
    return picture;
}

std::shared_ptr<Picture> clippedPicture(const Picture& light)
{
    constexpr float kSteps = 255.0f;
    auto picture = std::make_shared<Picture>(light.size(), ColorProfileType::sRGB());
    const auto value = [](float v) { return std::round(encoded(ResponseCurve::Srgb, v) * kSteps) / kSteps; };
    forEachRow(light.height(), [&](int y) {
        std::transform(light.row(y), light.row(y) + light.width(), picture->row(y), [&](const Light& each) {
            return Light{value(each.r), value(each.g), value(each.b)};
        });
    });
    return picture;
}

} // namespace orvo::scenes
