#include "room_painter.hpp"
#include "spline.hpp"

#include <orvo_core/parallel.hpp>
#include <scenes/radiance_scene.hpp>

#include <algorithm>
#include <cmath>
#include <stdexcept>
#include <string>

namespace orvo::scenes {

namespace {

constexpr int kSmallestSide = 16;
constexpr int kLargestSide = 65536;
constexpr double kLargestMargin = 0.5;
constexpr int kSplineReach = 2; // grid points that the spline needs beyond the last position used

void check(const SceneSettings& settings)
{
    for (const int side : {settings.size.width, settings.size.height})
        if (side < kSmallestSide || side > kLargestSide)
            throw std::invalid_argument("SceneSettings.size has a side of " + std::to_string(side) +
                                        ", allowed is 16..65536");
    if (!(settings.margin >= 0.0 && settings.margin <= kLargestMargin))
        throw std::invalid_argument("SceneSettings.margin is " + std::to_string(settings.margin) +
                                    ", allowed is 0..0.5");
}

int marginOf(const SceneSettings& settings)
{
    check(settings);
    return static_cast<int>(std::ceil(settings.margin * std::min(settings.size.width, settings.size.height)));
}

_Size<int> gridSize(const SceneSettings& settings)
{
    const int border = 2 * (marginOf(settings) + kSplineReach);
    return {settings.size.width + border, settings.size.height + border};
}

} // namespace

RadianceScene::RadianceScene(const SceneSettings& settings)
    : extent(settings.size), marginPx(marginOf(settings)),
      stride(settings.size.width + 2 * (marginOf(settings) + kSplineReach)), lowest(-marginPx),
      highestX(settings.size.width - 1 + marginPx), highestY(settings.size.height - 1 + marginPx),
      grid(gridSize(settings), ColorProfileType::linearSRGB())
{
    const RoomPainter painter(extent, settings.seed);
    const int border = marginPx + kSplineReach;
    const auto paintRow = [&](int gridY) {
        PixelRGB<float>* row = grid.row(gridY);
        painter.paintRow(gridY - border, -border, stride, row);
    };
    forEachRow(extent.height + 2 * border, paintRow);
}

PixelRGB<float> RadianceScene::sample(double x, double y) const
{
    // max before min, so that a NaN of a degenerate map ends up at the edge and not outside the grid
    const double gridX = std::min(std::max(lowest, x), highestX) + (marginPx + kSplineReach);
    const double gridY = std::min(std::max(lowest, y), highestY) + (marginPx + kSplineReach);
    const int left = static_cast<int>(gridX);
    const int top = static_cast<int>(gridY);
    const SplineWeights across(static_cast<float>(gridX - left));
    const SplineWeights down(static_cast<float>(gridY - top));

    const float* r0 = &grid.data()->r + (static_cast<std::ptrdiff_t>(top - 1) * stride + (left - 1)) * 3;
    const std::ptrdiff_t step = static_cast<std::ptrdiff_t>(stride) * 3;
    float column[12]; // four points of three channels, summed down
    for (int k = 0; k < 12; ++k)
        column[k] = (down.w[0] * r0[k] + down.w[1] * r0[k + step]) +
                    (down.w[2] * r0[k + 2 * step] + down.w[3] * r0[k + 3 * step]);
    const auto sumAcross = [&](int channel) {
        return (across.w[0] * column[channel] + across.w[1] * column[channel + 3]) +
               (across.w[2] * column[channel + 6] + across.w[3] * column[channel + 9]);
    };
    return {sumAcross(0), sumAcross(1), sumAcross(2)};
}

PixelRGB<float> RadianceScene::radiance(double x, double y) const { return sample(x, y); }

void RadianceScene::radianceRow(const Homography& h, int y, int width, PixelRGB<float>* row) const
{
    const double startX = h[1] * y + h[2];
    const double startY = h[4] * y + h[5];
    const double startW = h[7] * y + h[8];
    for (int x = 0; x < width; ++x) {
        const double scale = 1.0 / (h[6] * x + startW);
        row[x] = sample((h[0] * x + startX) * scale, (h[3] * x + startY) * scale);
    }
}

} // namespace orvo::scenes
