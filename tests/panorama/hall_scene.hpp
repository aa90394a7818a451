/// A hall of equal doors, lamps and tiles, as views from one point. Most of what one view shows is in others too, at
/// another place, so that pairs of views match that have nothing in common.
#pragma once

#include <orvo_core/color_profile.hpp>
#include <orvo_core/image_data.hpp>
#include <orvo_core/parallel.hpp>
#include <scenes/sphere_scene.hpp>

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <memory>
#include <numbers>
#include <vector>

namespace orvo::test {

class HallScene
{
public:
    /// The argument is the contrast of stains and grain, the only things that are not repeated.
    explicit HallScene(double contrastOfWear) : wear(contrastOfWear) {}

    [[nodiscard]] std::shared_ptr<_ImageData<PixelRGB<float>>> see(const scenes::SphereView& view) const
    {
        auto picture = std::make_shared<_ImageData<PixelRGB<float>>>(view.size, ColorProfileType::sRGB());
        constexpr int kSamples = 2; // along each side of a pixel
        forEachRow(view.size.height, [&](int row) {
            for (int column = 0; column < view.size.width; ++column) {
                double sum = 0.0;
                for (int i = 0; i < kSamples * kSamples; ++i)
                    sum += light(rayOf(view, column + (i % kSamples + 0.5) / kSamples - 0.5,
                                       row + (i / kSamples + 0.5) / kSamples - 0.5));
                const auto value = static_cast<float>(std::clamp(sum / (kSamples * kSamples), 0.0, 1.0));
                picture->row(row)[column] = {value, value * 0.95f, value * 0.85f};
            }
        });
        return picture;
    }

private:
    using Vector = std::array<double, 3>;

    // In metres from the eye: the walls stand at x = -4 and 4, z = -9 and 9.
    static constexpr double kHalfWidth = 4.0;
    static constexpr double kHalfLength = 9.0;
    static constexpr double kFloor = 1.6;
    static constexpr double kCeiling = -1.8;

    static Vector rayOf(const scenes::SphereView& view, double column, double row)
    {
        const double u = (column - 0.5 * view.size.width) / view.focal;
        const double v = (row - 0.5 * view.size.height) / view.focal;
        const auto& r = view.rotation;
        return {r[0] * u + r[1] * v + r[2], r[3] * u + r[4] * v + r[5], r[6] * u + r[7] * v + r[8]};
    }

    [[nodiscard]] double light(const Vector& ray) const
    {
        const auto reach = [](double direction, double low, double high) {
            return direction > 0.0   ? high / direction
                   : direction < 0.0 ? low / direction
                                     : std::numeric_limits<double>::infinity();
        };
        const double tx = reach(ray[0], -kHalfWidth, kHalfWidth);
        const double ty = reach(ray[1], kCeiling, kFloor);
        const double tz = reach(ray[2], -kHalfLength, kHalfLength);
        const double t = std::min({tx, ty, tz});
        const Vector p = {ray[0] * t, ray[1] * t, ray[2] * t};
        const double shade = 1.0 + wear * stains(p);
        if (t == ty)
            return shade * (ray[1] > 0.0 ? tiles(p[0], p[2]) : lamps(p[0], p[2]));
        return shade * (t == tx ? wall(p[2], p[1]) : wall(p[0] + 0.4, p[1]));
    }

    // Position in a pattern that repeats, counted from the middle of a period.
    static double inPeriod(double position, double period) { return position - period * std::round(position / period); }
    static bool isInside(double x, double y, double left, double top, double right, double bottom)
    {
        return x >= left && x < right && y >= top && y < bottom;
    }

    static double tiles(double x, double z)
    {
        const double a = inPeriod(x, 0.8);
        const double b = inPeriod(z, 0.8);
        if (std::abs(a) > 0.385 || std::abs(b) > 0.385)
            return 0.15;
        return a * a + b * b < 0.04 ? 0.3 : std::abs(a) + std::abs(b) < 0.33 ? 0.55 : 0.45;
    }
    static double lamps(double x, double z)
    {
        const double a = inPeriod(x, 2.0);
        const double b = inPeriod(z, 2.0);
        if (a * a + b * b < 0.09)
            return 1.0;
        if (a * a + b * b < 0.13)
            return 0.3;
        return std::abs(a) > 0.96 || std::abs(b) > 0.96 ? 0.5 : 0.75;
    }
    // Along the wall, and down from the eye.
    static double wall(double along, double y)
    {
        const double s = inPeriod(along, 2.0);
        const double h = kFloor - y; // above the floor
        if (h < 0.1)
            return 0.2;
        if (isInside(s, h, -0.5, 0.0, 0.5, 2.1)) { // a door with four panels, a handle and a number
            if (isInside(s, h, 0.38, 1.0, 0.44, 1.12) || isInside(s, h, 0.3, 1.05, 0.42, 1.08))
                return 0.9;
            if (isInside(s, h, -0.1, 1.8, -0.04, 1.95) || isInside(s, h, 0.02, 1.8, 0.12, 1.84))
                return 0.75;
            const double a = std::abs(std::abs(s) - 0.22);
            const double b = std::abs(std::abs(h - 1.05) - 0.42);
            return a < 0.14 && b < 0.3 ? (a < 0.11 && b < 0.27 ? 0.3 : 0.2) : 0.38;
        }
        if (isInside(s, h, -0.56, 0.0, 0.56, 2.16))
            return 0.85;
        const double lampS = std::abs(s) - 1.0;
        if (lampS * lampS + (h - 2.2) * (h - 2.2) < 0.02)
            return 0.98;
        if (isInside(std::abs(s), h, 0.97, 1.9, 1.0, 2.2) || isInside(std::abs(s), h, 0.9, 1.86, 1.0, 1.9))
            return 0.25;
        return h < 0.9 ? 0.5 : h < 0.96 ? 0.3 : 0.65;
    }

    // -1 to 1, different everywhere: a sum of waves of unrelated directions.
    static double stains(const Vector& p)
    {
        double sum = 0.0;
        double amplitude = 0.4;
        double frequency = 3.0;
        for (int i = 0; i < 6; ++i) {
            const double a = 1.7 * i + 0.3;
            sum +=
                amplitude * std::sin(frequency * (p[0] * std::cos(a) + p[1] * std::sin(2.0 * a) + p[2] * std::sin(a)) +
                                     2.9 * i + std::sin(0.7 * frequency * (p[2] - p[0] * std::sin(a))));
            amplitude *= 0.8;
            frequency *= 1.55;
        }
        return std::clamp(sum, -1.0, 1.0);
    }

    double wear;
};

/// Eleven views all around, of which neighbours overlap by a fifth.
inline std::vector<scenes::SphereView> hallViews()
{
    constexpr int kViews = 11;
    constexpr double kStep = 360.0 / kViews;
    scenes::SphereView view;
    view.size = {800, 600};
    view.focal = 400.0 / std::tan(0.5 * kStep / 0.8 * std::numbers::pi / 180.0);
    std::vector<scenes::SphereView> views;
    for (int i = 0; i < kViews; ++i) {
        view.rotation = scenes::rotationOf(kStep * i, 0.0, 0.0);
        views.push_back(view);
    }
    return views;
}

} // namespace orvo::test
