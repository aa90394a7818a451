#include "edge_values.hpp"

#include <orvo_core/detail/vector_code.hpp>
#include <orvo_core/parallel.hpp>

#include <algorithm>
#include <cmath>
#include <tuple>

namespace orvo::detail {

namespace {

// A group is approximated as one point if its radius is below this share of the distance.
constexpr float kFarPolygon = 0.12f;
constexpr float kFarPixels = 0.12f;
constexpr int kLeafSize = 8; // fewer units or pixels are not worth a group

std::size_t at(int index) { return static_cast<std::size_t>(index); }

const PixelRGB<float>& pixelOf(const PixelRGB<float>* plane, int width, int x, int y)
{
    return plane[static_cast<std::ptrdiff_t>(y) * width + x];
}

PixelRGB<float> minus(const PixelRGB<float>& a, const PixelRGB<float>& b) { return {a.r - b.r, a.g - b.g, a.b - b.b}; }

void addScaled(PixelRGB<float>& sum, const PixelRGB<float>& v, float factor)
{
    sum.r += factor * v.r;
    sum.g += factor * v.g;
    sum.b += factor * v.b;
}

PixelRGB<float> limited(const PixelRGB<float>& v, const PartValues& part)
{
    return {std::clamp(v.r, part.smallest.r, part.largest.r) + part.base.r,
            std::clamp(v.g, part.smallest.g, part.largest.g) + part.base.g,
            std::clamp(v.b, part.smallest.b, part.largest.b) + part.base.b};
}

/// Sorted by part, then so that neighbours are close to each other.
template <typename Item>
void sortForTree(std::vector<Item>& items)
{
    const auto key = [](const Item& item) {
        return std::make_tuple(item.part,
                               nearnessKey(static_cast<std::uint32_t>(item.x), static_cast<std::uint32_t>(item.y)));
    };
    // Stable: units that start at the same position keep their row order.
    std::stable_sort(items.begin(), items.end(), [&](const Item& a, const Item& b) { return key(a) < key(b); });
}

/// First index of each part in sorted items, and the end.
template <typename Item>
std::vector<int> partRanges(const std::vector<Item>& items, int parts)
{
    std::vector<int> starts(at(parts) + 1, static_cast<int>(items.size()));
    for (std::size_t i = items.size(); i-- > 0;)
        starts[at(items[i].part)] = static_cast<int>(i);
    for (int part = parts; part-- > 0;)
        starts[at(part)] = std::min(starts[at(part)], starts[at(part) + 1]);
    return starts;
}

/// The known pixels of all parts, a tree per part.
class KnownPixels
{
public:
    KnownPixels(std::vector<EdgePixel> pixels, const std::vector<PartValues>& values, const PixelRGB<float>* plane,
                int width)
    {
        sortForTree(pixels);
        places.reserve(pixels.size());
        for (const EdgePixel& pixel : pixels)
            places.push_back({static_cast<float>(pixel.x), static_cast<float>(pixel.y),
                              minus(pixelOf(plane, width, pixel.x, pixel.y), values[at(pixel.part)].base)});
        const std::vector<int> ranges = partRanges(pixels, static_cast<int>(values.size()));
        for (std::size_t part = 0; part < values.size(); ++part) {
            starts.push_back(static_cast<int>(nodes.size()));
            if (ranges[part] < ranges[part + 1])
                growPlaceTree(nodes, ranges[part], ranges[part + 1], kLeafSize,
                              [this](int i) -> const Sample& { return places[at(i)]; });
        }
        starts.push_back(static_cast<int>(nodes.size()));
        sums.resize(nodes.size());
        forEachRow(static_cast<int>(nodes.size()), [&](int i) {
            for (int k = nodes[at(i)].first; k < nodes[at(i)].last; ++k)
                addScaled(sums[at(i)], places[at(k)].value, 1.0f);
        });
    }

    /// Weighted mean of the known differences in `part` at (x, y), which is not one of them.
    [[nodiscard]] PixelRGB<float> meanAt(float x, float y, int part) const
    {
        PixelRGB<float> sum;
        float weights = 0.0f;
        for (int i = starts[at(part)]; i < starts[at(part) + 1];) {
            const PlaceNode& node = nodes[at(i)];
            const float square = squareDistance(node, x, y);
            if (node.radius * node.radius < kFarPixels * kFarPixels * square) {
                weights += static_cast<float>(node.last - node.first) / square;
                addScaled(sum, sums[at(i)], 1.0f / square);
                i = node.next;
            } else if (node.leaf) {
                for (int k = node.first; k < node.last; ++k) {
                    const float weight = 1.0f / squareDistance(places[at(k)], x, y);
                    weights += weight;
                    addScaled(sum, places[at(k)].value, weight);
                }
                i = node.next;
            } else {
                ++i;
            }
        }
        return {sum.r / weights, sum.g / weights, sum.b / weights};
    }

private:
    struct Sample
    {
        float x, y;
        PixelRGB<float> value;
    };
    template <typename Placed>
    static float squareDistance(const Placed& place, float x, float y)
    {
        return (place.x - x) * (place.x - x) + (place.y - y) * (place.y - y);
    }

    std::vector<Sample> places;
    std::vector<PlaceNode> nodes;
    std::vector<PixelRGB<float>> sums;
    std::vector<int> starts;
};

} // namespace

std::vector<PartValues> knownValues(const std::vector<EdgePixel>& pixels, int parts, const PixelRGB<float>* plane,
                                    int width)
{
    std::vector<PartValues> values(at(parts));
    for (const EdgePixel& pixel : pixels) {
        if (pixel.place != Place::Known)
            continue;
        const PixelRGB<float>& v = pixelOf(plane, width, pixel.x, pixel.y);
        PartValues& part = values[at(pixel.part)];
        if (!part.any) {
            part.any = true;
            part.base = v;
        }
        const PixelRGB<float> d = minus(v, part.base);
        part.smallest = {std::min(part.smallest.r, d.r), std::min(part.smallest.g, d.g),
                         std::min(part.smallest.b, d.b)};
        part.largest = {std::max(part.largest.r, d.r), std::max(part.largest.g, d.g), std::max(part.largest.b, d.b)};
    }
    return values;
}

void fillOpenPixels(std::vector<EdgePixel> pixels, const std::vector<PartValues>& values, PixelRGB<float>* plane,
                    int width)
{
    const auto known = std::stable_partition(pixels.begin(), pixels.end(),
                                             [](const EdgePixel& pixel) { return pixel.place == Place::Open; });
    const std::vector<EdgePixel> open(pixels.begin(), known);
    pixels.erase(pixels.begin(), known);
    if (open.empty() || pixels.empty())
        return;
    const KnownPixels tree(std::move(pixels), values, plane, width);
    forEachRow(static_cast<int>(open.size()), [&](int i) {
        const EdgePixel& pixel = open[at(i)];
        const PartValues& part = values[at(pixel.part)];
        if (part.any)
            plane[static_cast<std::ptrdiff_t>(pixel.y) * width + pixel.x] =
                limited(tree.meanAt(static_cast<float>(pixel.x), static_cast<float>(pixel.y), pixel.part), part);
    });
}

/// One vector register row per sum.
struct EdgeSurface::Sums
{
    float weight[kTogether] = {};
    float r[kTogether] = {};
    float g[kTogether] = {};
    float b[kTogether] = {};
};

EdgeSurface::EdgeSurface(std::vector<EdgeUnit> found, const std::vector<PartValues>& values,
                         const PixelRGB<float>* plane, int width)
    : known(values)
{
    std::erase_if(found, [&](const EdgeUnit& unit) { return !values[at(unit.part)].any; });
    sortForTree(found);
    units.reserve(found.size());
    for (const EdgeUnit& unit : found) {
        const PixelRGB<float>& base = values[at(unit.part)].base;
        units.push_back({static_cast<float>(unit.x), static_cast<float>(unit.y), static_cast<float>(unit.dx),
                         static_cast<float>(unit.dy), minus(pixelOf(plane, width, unit.x, unit.y), base),
                         minus(pixelOf(plane, width, unit.x + unit.dx, unit.y + unit.dy), base)});
    }
    const std::vector<int> ranges = partRanges(found, static_cast<int>(values.size()));
    const auto middleOf = [this](int i) {
        const Unit& unit = units[at(i)];
        return PlaceNode{unit.x + 0.5f * unit.dx, unit.y + 0.5f * unit.dy, 0.0f, 0, 0, 0, false};
    };
    for (std::size_t part = 0; part < values.size(); ++part) {
        partStart.push_back(static_cast<int>(nodes.size()));
        if (ranges[part] < ranges[part + 1])
            growPlaceTree(nodes, ranges[part], ranges[part + 1], kLeafSize, middleOf);
    }
    partStart.push_back(static_cast<int>(nodes.size()));
    moments.resize(nodes.size());
    forEachRow(static_cast<int>(nodes.size()), [&](int i) { moments[at(i)] = momentsOf(nodes[at(i)]); });
}

EdgeSurface::Moments EdgeSurface::momentsOf(const PlaceNode& node) const
{
    Moments sum;
    for (int i = node.first; i < node.last; ++i) {
        const Unit& unit = units[at(i)];
        const float nx = unit.dy; // the outward normal
        const float ny = -unit.dx;
        sum.nx += nx;
        sum.ny += ny;
        for (const PixelRGB<float>* end : {&unit.from, &unit.to}) {
            addScaled(sum.vx, *end, 0.5f * nx);
            addScaled(sum.vy, *end, 0.5f * ny);
        }
    }
    return sum;
}

struct EdgeSurface::Walk
{
    /// The solid angle of a group over its distance.
    static ORVO_INLINE void addFar(Sums& sums, const Points& points, const PlaceNode& node, const Moments& m)
    {
        for (int k = 0; k < kTogether; ++k) {
            const float rx = node.x - points.x[k];
            const float ry = node.y - points.y[k];
            const float square = rx * rx + ry * ry;
            const float inverse = 1.0f / (square * std::sqrt(square));
            sums.weight[k] += (m.nx * rx + m.ny * ry) * inverse;
            sums.r[k] += (m.vx.r * rx + m.vy.r * ry) * inverse;
            sums.g[k] += (m.vx.g * rx + m.vy.g * ry) * inverse;
            sums.b[k] += (m.vx.b * rx + m.vy.b * ry) * inverse;
        }
    }

    /// tan(angle / 2) over the distance of each end.
    static ORVO_INLINE void addUnit(Sums& sums, const Points& points, const Unit& unit)
    {
        for (int k = 0; k < kTogether; ++k) {
            const float ax = unit.x - points.x[k];
            const float ay = unit.y - points.y[k];
            const float bx = ax + unit.dx;
            const float by = ay + unit.dy;
            const float a = std::sqrt(ax * ax + ay * ay);
            const float b = std::sqrt(bx * bx + by * by);
            const float tangent = (ax * unit.dy - ay * unit.dx) / (a * b + (ax * bx + ay * by));
            const float from = tangent / a;
            const float to = tangent / b;
            sums.weight[k] += from + to;
            sums.r[k] += from * unit.from.r + to * unit.to.r;
            sums.g[k] += from * unit.from.g + to * unit.to.g;
            sums.b[k] += from * unit.from.b + to * unit.to.b;
        }
    }

    static ORVO_VECTOR_CLONES void through(Sums& sums, const Points& points, const EdgeSurface& surface, int first,
                                           int last)
    {
        float x = 0.0f;
        float y = 0.0f;
        for (int k = 0; k < kTogether; ++k) {
            x += points.x[k] * (1.0f / kTogether);
            y += points.y[k] * (1.0f / kTogether);
        }
        float extent = 0.0f;
        for (int k = 0; k < kTogether; ++k)
            extent = std::max(extent, std::hypot(points.x[k] - x, points.y[k] - y));
        for (int i = first; i < last;) {
            const PlaceNode& node = surface.nodes[at(i)];
            const float reach = node.radius / kFarPolygon + extent;
            const float square = (node.x - x) * (node.x - x) + (node.y - y) * (node.y - y);
            if (reach * reach < square) {
                addFar(sums, points, node, surface.moments[at(i)]);
                i = node.next;
            } else if (node.leaf) {
                for (int k = node.first; k < node.last; ++k)
                    addUnit(sums, points, surface.units[at(k)]);
                i = node.next;
            } else {
                ++i;
            }
        }
    }
};

void EdgeSurface::evaluate(Points& points, int count, int part) const
{
    for (int k = count; k < kTogether; ++k) {
        points.x[k] = points.x[0];
        points.y[k] = points.y[0];
    }
    Sums sums;
    Walk::through(sums, points, *this, partStart[at(part)], partStart[at(part) + 1]);
    for (int k = 0; k < count; ++k) {
        // Positive by the theorem for closed polygons. The approximation of distant groups cannot change the sign, but
        // the division is guarded anyway.
        const float scale = sums.weight[k] > 0.0f ? 1.0f / sums.weight[k] : 0.0f;
        points.value[k] = limited({sums.r[k] * scale, sums.g[k] * scale, sums.b[k] * scale}, known[at(part)]);
    }
}

} // namespace orvo::detail
