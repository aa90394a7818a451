#include "brush_stroke.hpp"

#include <orvo_core/parallel.hpp>

#include <algorithm>
#include <cmath>
#include <cstddef>

namespace orvo {
namespace {

constexpr int kTile = TiledMaskImage::kTileSize;
constexpr double kSpacing = 0.25;     // of the radius: ripples along the rim stay below 1 percent of it
constexpr double kLeastSpacing = 0.5; // pixels
constexpr float kFarthest = 1e8f;     // pixels: stamps are counted exactly within it
constexpr double kHardRim = 0.5;      // pixels to either side of a hard rim, so that it is antialiased

// The part of the line from `from` to `to` (as shares 0..1) that is within [low, high] on one axis.
void clip(double from, double to, double low, double high, double& begin, double& end)
{
    const double way = to - from;
    if (way == 0.0) {
        if (from < low || from > high)
            end = -1.0;
        return;
    }
    const double a = (low - from) / way;
    const double b = (high - from) / way;
    begin = std::max(begin, std::min(a, b));
    end = std::min(end, std::max(a, b));
}

// Strength of a stamp by distance from its centre.
class Profile
{
public:
    explicit Profile(const Brush& brush)
        : opacity(brush.opacity), inner(std::min(brush.radius * (1.0 - brush.softness), brush.radius - kHardRim)),
          outer(std::max(brush.radius, inner + 2 * kHardRim)), innerSquare(inner > 0.0 ? inner * inner : -1.0),
          outerSquare(outer * outer)
    {}

    [[nodiscard]] float at(double squaredDistance) const
    {
        if (squaredDistance <= innerSquare)
            return opacity;
        if (squaredDistance >= outerSquare)
            return 0.0f;
        const double t = (outer - std::sqrt(squaredDistance)) / (outer - inner);
        return opacity * static_cast<float>(t * t * (3.0 - 2.0 * t));
    }
    [[nodiscard]] double reach() const { return outer; }

private:
    float opacity;
    double inner;
    double outer;
    double innerSquare;
    double outerSquare;
};

} // namespace

double Brush::spacing() const { return std::max(kLeastSpacing, kSpacing * radius); }

double Brush::reach() const { return Profile(*this).reach(); }

void StrokePath::advance(const _Point<float>& point, const Brush& brush, _Size<int> size, const Stamp& stamp)
{
    if (!(std::abs(point.x) <= kFarthest && std::abs(point.y) <= kFarthest))
        return;
    const _Point<double> to(point.x, point.y);
    if (!last) {
        last = to;
        sinceStamp = 0.0;
        if (brush.radius > 0.0)
            stamp(to.x, to.y);
        return;
    }
    const _Point<double> from = *last;
    last = to;
    const double length = std::hypot(to.x - from.x, to.y - from.y);
    const double spacing = brush.spacing();
    const double first = std::max(0.0, spacing - sinceStamp); // a brush that became smaller stamps at once
    if (length == 0.0 || first > length) {
        sinceStamp += length;
        return;
    }
    const double count = std::floor((length - first) / spacing); // further stamps after the first
    sinceStamp = length - (first + count * spacing);
    if (brush.radius <= 0.0)
        return;
    // Only stamps that touch the mask: a line may start far outside.
    const double reach = brush.reach();
    double begin = 0.0;
    double end = 1.0;
    clip(from.x, to.x, -reach, size.width + reach, begin, end);
    clip(from.y, to.y, -reach, size.height + reach, begin, end);
    if (begin > end)
        return;
    const double firstIndex = std::clamp(std::ceil((begin * length - first) / spacing) - 1.0, 0.0, count);
    const double lastIndex = std::clamp(std::floor((end * length - first) / spacing) + 1.0, 0.0, count);
    for (double i = firstIndex; i <= lastIndex; ++i) {
        const double share = (first + i * spacing) / length;
        stamp(from.x + (to.x - from.x) * share, from.y + (to.y - from.y) * share);
    }
}

void StrokeLayer::stamp(double x, double y, const Brush& brush, DrawingMode mode, const TiledMaskImage& base,
                        TiledMaskImage& mask)
{
    const Profile profile(brush);
    const double reach = profile.reach();
    // Pixels whose centres are within reach.
    const auto limited = [](double value, int upper) {
        return static_cast<int>(std::clamp(value, 0.0, double(upper)));
    };
    const int left = limited(std::floor(x - reach), mask.width());
    const int right = limited(std::ceil(x + reach), mask.width());
    const int top = limited(std::floor(y - reach), mask.height());
    const int bottom = limited(std::ceil(y + reach), mask.height());
    if (left >= right || top >= bottom)
        return;

    const auto stampTile = [&](int column, int row) {
        const int x0 = std::max(left, column * kTile);
        const int x1 = std::min(right, (column + 1) * kTile);
        const int y0 = std::max(top, row * kTile);
        const int y1 = std::min(bottom, (row + 1) * kTile);
        // The corners of the box may be in tiles that the disc does not touch.
        const double nearX = std::clamp(x, static_cast<double>(x0), static_cast<double>(x1)) - x;
        const double nearY = std::clamp(y, static_cast<double>(y0), static_cast<double>(y1)) - y;
        if (nearX * nearX + nearY * nearY >= reach * reach)
            return;
        float* const covers = coverage.writableTile(column, row);
        float* const target = mask.writableTile(column, row);
        const TiledMaskImage::Tile& under = base.tile(column, row);
        const float* const source = under.samples ? under.samples->data() : nullptr;
        forEachRow(y1 - y0, [&](int dy) {
            const int py = y0 + dy;
            const double distanceY = py + 0.5 - y;
            const std::ptrdiff_t offset = static_cast<std::ptrdiff_t>(py % kTile) * kTile;
            for (int px = x0; px < x1; ++px) {
                const double distanceX = px + 0.5 - x;
                const float strength = profile.at(distanceX * distanceX + distanceY * distanceY);
                const std::ptrdiff_t at = offset + px % kTile;
                if (!(strength > covers[at]))
                    continue;
                covers[at] = strength;
                const float before = source != nullptr ? source[at] : under.uniform;
                target[at] =
                    mode == DrawingMode::Erase ? before * (1.0f - strength) : before + (1.0f - before) * strength;
            }
        });
    };
    for (int row = top / kTile; row <= (bottom - 1) / kTile; ++row)
        for (int column = left / kTile; column <= (right - 1) / kTile; ++column)
            stampTile(column, row);
}

} // namespace orvo
