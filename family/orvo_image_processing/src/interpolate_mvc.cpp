#include "edge_values.hpp"
#include "region_edge.hpp"
#include "smooth_cells.hpp"

#include <orvo_common/memory_manager.hpp>
#include <orvo_core/parallel.hpp>
#include <orvo_image_processing/interpolate_mvc.hpp>

#include <algorithm>
#include <utility>
#include <vector>

namespace orvo {

namespace {

using detail::EdgeSurface;
using detail::Place;
using detail::RegionEdge;
using detail::SmoothCells;

constexpr int kTileSide = 1 << SmoothCells::kTopLevel;
constexpr int kNodes = kTileSide + 1; // the last column and row are the first of the next tiles
// Points evaluated together are within this many steps of each other.
constexpr int kReach = 4;

struct Surroundings
{
    const RegionEdge& edge;
    const SmoothCells& cells;
    const EdgeSurface& surface;
    const std::vector<detail::PartValues>& values;
};

/// One square of the largest size. The surface is evaluated at its pixels or at the corners of the largest smooth cells
/// around them. A corner on the side of a larger cell gets the value interpolated along that side, in both tiles, so
/// that there is no step between cells.
class Tile
{
public:
    Tile(const Surroundings& around_, int across, int down)
        : around(around_), left(across * kTileSide), top(down * kTileSide),
          values(static_cast<std::size_t>(kNodes * kNodes)), done(static_cast<std::size_t>(kNodes * kNodes), true)
    {}

    void fill(PixelRGB<float>* membrane)
    {
        for (int level = SmoothCells::kTopLevel; level > 0; --level) {
            eachCell(level, [&](int x, int y) { wantCorners(x, y, 1 << level); });
            ask(1 << level);
            eachCell(level, [&](int x, int y) { fillCell(x, y, 1 << level); });
        }
        eachInside([&](int x, int y) { want(x, y); });
        ask(1);
        const int width = around.edge.width();
        eachInside([&](int x, int y) {
            if (around.values[static_cast<std::size_t>(partAt(x, y))].any)
                membrane[static_cast<std::ptrdiff_t>(top + y) * width + left + x] = node(x, y);
        });
    }

private:
    static std::size_t indexOf(int x, int y) { return static_cast<std::size_t>(y * kNodes + x); }
    [[nodiscard]] PixelRGB<float>& node(int x, int y) const { return values[indexOf(x, y)]; }
    static bool inTile(int x, int y) { return x >= 0 && y >= 0 && x < kNodes && y < kNodes; }

    /// A run of pixels usually belongs to the same part as the previous query.
    [[nodiscard]] int partAt(int x, int y)
    {
        if (y != partRow || x < partFirst || x >= partLast) {
            const detail::RegionRun run = around.edge.runAt(left + x, top + y);
            partRow = y;
            partFirst = run.first - left;
            partLast = run.last - left;
            part = run.part;
        }
        return part;
    }

    /// Calls `take` for the largest smooth cells of this size in the tile and in those that share a side with it, by
    /// top-left node.
    template <typename Take>
    void eachCell(int level, const Take& take) const
    {
        const int side = 1 << level;
        const int count = kTileSide / side;
        for (int j = -1; j <= count; ++j)
            for (int i = -1; i <= count; ++i) {
                const bool beside = (i < 0 || i == count) && (j < 0 || j == count);
                if (!beside && around.cells.largest(level, left / side + i, top / side + j))
                    take(i * side, j * side);
            }
    }

    template <typename Take>
    void eachInside(const Take& take) const
    {
        const int rows = std::min(kTileSide, around.edge.height() - top);
        const int columns = std::min(kTileSide, around.edge.width() - left);
        for (int y = 0; y < rows; ++y) {
            const Place* const places = around.edge.row(top + y) + left;
            for (int x = 0; x < columns; ++x)
                if (places[x] == Place::Inside)
                    take(x, y);
        }
    }

    void want(int x, int y)
    {
        if (!inTile(x, y) || done[indexOf(x, y)] != 0)
            return;
        done[indexOf(x, y)] = 1;
        wanted.push_back({static_cast<short>(x), static_cast<short>(y)});
    }

    void wantCorners(int x, int y, int side)
    {
        want(x, y);
        want(x + side, y);
        want(x, y + side);
        want(x + side, y + side);
    }

    /// Evaluates the surface at all wanted nodes, in groups of close ones.
    void ask(int step)
    {
        EdgeSurface::Points points;
        std::pair<short, short> members[EdgeSurface::kTogether];
        int count = 0;
        int groupPart = 0;
        const auto flush = [&] {
            if (count > 0 && around.values[static_cast<std::size_t>(groupPart)].any) {
                around.surface.evaluate(points, count, groupPart);
                for (int k = 0; k < count; ++k)
                    node(members[k].first, members[k].second) = points.value[k];
            }
            count = 0;
        };
        for (const auto& [x, y] : wanted) {
            const int here = partAt(x, y);
            const bool near = count > 0 && here == groupPart && std::abs(x - members[0].first) <= 2 * kReach * step &&
                              std::abs(y - members[0].second) <= kReach * step;
            if (!near || count == EdgeSurface::kTogether)
                flush();
            groupPart = here;
            points.x[count] = static_cast<float>(left + x);
            points.y[count] = static_cast<float>(top + y);
            members[count++] = {x, y};
        }
        flush();
        wanted.clear();
    }

    /// Bilinear between the corners; for a cell of another tile only on the side shared with this one.
    void fillCell(int x, int y, int side)
    {
        const int firstX = std::max(x, 0);
        const int lastX = std::min(x + side, kTileSide);
        const int firstY = std::max(y, 0);
        const int lastY = std::min(y + side, kTileSide);
        // A corner off the shared side has weight 0 there.
        const auto corner = [&](int cx, int cy) {
            return node(std::clamp(cx, 0, kTileSide), std::clamp(cy, 0, kTileSide));
        };
        const PixelRGB<float> c00 = corner(x, y);
        const PixelRGB<float> c10 = corner(x + side, y);
        const PixelRGB<float> c01 = corner(x, y + side);
        const PixelRGB<float> c11 = corner(x + side, y + side);
        const float scale = 1.0f / static_cast<float>(side);
        const auto mixed = [](const PixelRGB<float>& a, const PixelRGB<float>& b, float t) {
            return PixelRGB<float>{a.r + t * (b.r - a.r), a.g + t * (b.g - a.g), a.b + t * (b.b - a.b)};
        };
        for (int v = firstY; v <= lastY; ++v) {
            const float ty = static_cast<float>(v - y) * scale;
            const PixelRGB<float> a = mixed(c00, c01, ty);
            const PixelRGB<float> b = mixed(c10, c11, ty);
            for (int u = firstX; u <= lastX; ++u) {
                node(u, v) = mixed(a, b, static_cast<float>(u - x) * scale);
                done[indexOf(u, v)] = 1;
            }
        }
    }

    const Surroundings& around;
    int left, top;
    ManagedPlane<PixelRGB<float>> values;
    ManagedPlane<unsigned char> done;
    std::vector<std::pair<short, short>> wanted;
    int partRow = -1, partFirst = 0, partLast = 0, part = 0;
};

} // namespace

void interpolate_mvc(int width, int height, const PixelRGB<float>* boundary, PixelRGB<float>* membrane,
                     unsigned char* effective, const std::vector<bool>& hardPixels)
{
    if (width <= 0 || height <= 0)
        return;
    const RegionEdge edge(width, height, effective, boundary, hardPixels);
    std::vector<detail::EdgePixel> pixels = edge.pixels();
    const std::vector<detail::PartValues> values = detail::knownValues(pixels, edge.parts(), boundary, width);
    for (const detail::EdgePixel& pixel : pixels)
        if (pixel.place == Place::Known) {
            const std::ptrdiff_t index = static_cast<std::ptrdiff_t>(pixel.y) * width + pixel.x;
            membrane[index] = boundary[index];
        }
    detail::fillOpenPixels(std::move(pixels), values, membrane, width);
    const EdgeSurface surface(edge.units(), values, membrane, width);
    const SmoothCells cells(edge);
    const Surroundings around = {edge, cells, surface, values};
    const int across = (width + kTileSide - 1) / kTileSide;
    const int down = (height + kTileSide - 1) / kTileSide;
    forEachRow(across * down, [&](int i) { Tile(around, i % across, i / across).fill(membrane); });
}

} // namespace orvo
