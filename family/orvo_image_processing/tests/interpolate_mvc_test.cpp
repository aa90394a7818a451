#include "test_planes.hpp"

#include <orvo_image_processing/interpolate_mvc.hpp>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <limits>
#include <string>
#include <vector>

using planes::area;
using planes::PixelRGB;

namespace {

using Colours = std::vector<PixelRGB<float>>;
using Shape = std::function<bool(int, int)>;
using Drawing = std::function<PixelRGB<float>(int, int)>;

// Marks unwritten pixels: a value outside of all test patterns, so never a result.
constexpr PixelRGB<float> kUntouched = {-7.0f, -8.0f, -9.0f};

struct Region
{
    int width;
    int height;
    std::vector<unsigned char> bytes;

    Region(int width_, int height_, const Shape& shape) : width(width_), height(height_)
    {
        for (int y = 0; y < height; ++y)
            for (int x = 0; x < width; ++x)
                bytes.push_back(shape(x, y) ? 1 : 0);
    }
    [[nodiscard]] std::size_t at(int x, int y) const
    {
        return static_cast<std::size_t>(y) * static_cast<std::size_t>(width) + static_cast<std::size_t>(x);
    }
    [[nodiscard]] bool has(int x, int y) const { return inPlane(x, y) && bytes[at(x, y)] != 0; }
    [[nodiscard]] bool inPlane(int x, int y) const { return x >= 0 && y >= 0 && x < width && y < height; }
    [[nodiscard]] bool square(int x, int y) const
    {
        return has(x, y) && has(x + 1, y) && has(x, y + 1) && has(x + 1, y + 1);
    }
    /// Touches the outside of the region within the plane.
    [[nodiscard]] bool edge(int x, int y) const
    {
        for (int j = -1; j <= 1; ++j)
            for (int i = -1; i <= 1; ++i)
                if (has(x, y) && inPlane(x + i, y + j) && !has(x + i, y + j))
                    return true;
        return false;
    }
    [[nodiscard]] bool border(int x, int y) const
    {
        return has(x, y) && (x == 0 || y == 0 || x == width - 1 || y == height - 1);
    }
    [[nodiscard]] Colours drawn(const Drawing& drawing) const
    {
        Colours colours;
        for (int y = 0; y < height; ++y)
            for (int x = 0; x < width; ++x)
                colours.push_back(drawing(x, y));
        return colours;
    }
};

Colours filled(Region region, const Colours& boundary, const std::vector<bool>& hard = {})
{
    Colours membrane(boundary.size(), kUntouched);
    orvo::interpolate_mvc(region.width, region.height, boundary.data(), membrane.data(), region.bytes.data(), hard);
    return membrane;
}

/// The direct sum at every `step`th pixel, in double, for a region of one part.
class Direct
{
public:
    Direct(const Region& region_, Colours values_, const std::vector<bool>& hard)
        : region(region_), values(std::move(values_))
    {
        fillOpen(hard);
        for (int y = 0; y < region.height; ++y)
            for (int x = 0; x < region.width; ++x) {
                if (region.has(x, y) && region.has(x + 1, y))
                    add({x, y}, {x + 1, y}, region.square(x, y), region.square(x, y - 1));
                if (region.has(x, y) && region.has(x, y + 1))
                    add({x, y}, {x, y + 1}, region.square(x - 1, y), region.square(x, y));
            }
    }

    [[nodiscard]] PixelRGB<double> at(int x, int y) const
    {
        if (region.edge(x, y) || region.border(x, y)) {
            const PixelRGB<float>& v = values[region.at(x, y)];
            return {v.r, v.g, v.b};
        }
        double weights = 0.0;
        PixelRGB<double> sum;
        for (const auto& [from, to] : units) {
            const double ax = from.x - x, ay = from.y - y, bx = to.x - x, by = to.y - y;
            const double a = std::hypot(ax, ay), b = std::hypot(bx, by);
            const double tangent = std::tan(0.5 * std::atan2(ax * by - ay * bx, ax * bx + ay * by));
            weights += tangent / a + tangent / b;
            take(sum, values[region.at(from.x, from.y)], tangent / a);
            take(sum, values[region.at(to.x, to.y)], tangent / b);
        }
        return {sum.r / weights, sum.g / weights, sum.b / weights};
    }

private:
    struct Place
    {
        int x, y;
    };
    static void take(PixelRGB<double>& sum, const PixelRGB<float>& v, double weight)
    {
        sum.r += weight * static_cast<double>(v.r);
        sum.g += weight * static_cast<double>(v.g);
        sum.b += weight * static_cast<double>(v.b);
    }
    /// Whether the region is on the `right` and on the `left`, looking from a to b on the screen.
    void add(Place a, Place b, bool right, bool left)
    {
        if (right && !left)
            units.push_back({a, b});
        else if (left && !right)
            units.push_back({b, a});
    }
    void fillOpen(const std::vector<bool>& hard)
    {
        std::vector<Place> known, open;
        for (int y = 0; y < region.height; ++y)
            for (int x = 0; x < region.width; ++x)
                if (region.edge(x, y) && !(region.at(x, y) < hard.size() && hard[region.at(x, y)]))
                    known.push_back({x, y});
                else if (region.edge(x, y) || region.border(x, y))
                    open.push_back({x, y});
        for (const Place& place : open) {
            double weights = 0.0;
            PixelRGB<double> sum;
            for (const Place& other : known) {
                const double dx = other.x - place.x, dy = other.y - place.y;
                weights += 1.0 / (dx * dx + dy * dy);
                take(sum, values[region.at(other.x, other.y)], 1.0 / (dx * dx + dy * dy));
            }
            values[region.at(place.x, place.y)] = {static_cast<float>(sum.r / weights),
                                                   static_cast<float>(sum.g / weights),
                                                   static_cast<float>(sum.b / weights)};
        }
    }

    const Region& region;
    Colours values;
    std::vector<std::pair<Place, Place>> units;
};

struct Errors
{
    double worst = 0.0;
    double mean = 0.0;
};

Errors errorsAgainstDirect(const Region& region, const Colours& values, const std::vector<bool>& hard, int step)
{
    const Colours fast = filled(region, values, hard);
    const Direct direct(region, values, hard);
    Errors errors;
    int count = 0;
    for (int y = 0; y < region.height; y += step)
        for (int x = 0; x < region.width; x += step) {
            if (!region.has(x, y))
                continue;
            const PixelRGB<double> slow = direct.at(x, y);
            const PixelRGB<float>& v = fast[region.at(x, y)];
            const double d = std::max({std::abs(v.r - slow.r), std::abs(v.g - slow.g), std::abs(v.b - slow.b)});
            errors.worst = d <= errors.worst ? errors.worst : d; // NaN is the worst
            errors.mean += d;
            ++count;
        }
    errors.mean /= std::max(count, 1);
    return errors;
}

/// A slope, a wave and noise: one channel each, 0 .. 1.
Colours mixedValues(const Region& region)
{
    planes::Random random(5);
    return region.drawn([&](int x, int y) {
        return PixelRGB<float>{static_cast<float>(x) / static_cast<float>(region.width),
                               0.5f + 0.5f * std::sin(0.11f * static_cast<float>(x) + 0.07f * static_cast<float>(y)),
                               random.next()};
    });
}

struct NamedShape
{
    std::string name;
    int width, height;
    Shape shape;
};

/// One part each, with its whole edge in the plane.
std::vector<NamedShape> closedShapes()
{
    const auto polar = [](int x, int y, double c) { return std::hypot(x - c, y - c); };
    return {{"square", 121, 97, [](int x, int y) { return x >= 3 && y >= 2 && x < 117 && y < 95; }},
            {"disc", 130, 130, [=](int x, int y) { return polar(x, y, 65) < 60; }},
            {"ring", 160, 160, [=](int x, int y) { return polar(x, y, 80) < 75 && polar(x, y, 80) > 30; }},
            {"hook", 150, 150, [](int x, int y) { return x > 2 && y > 2 && x < 147 && y < 147 && (x < 45 || y < 45); }},
            {"star", 150, 150,
             [=](int x, int y) { return polar(x, y, 75) < 48 + 22 * std::sin(5 * std::atan2(y - 75.0, x - 75.0)); }},
            {"holes", 140, 140,
             [=](int x, int y) { return x > 1 && y > 1 && x < 138 && y < 138 && polar(x % 46, y % 46, 23) > 9; }}};
}

bool samePixel(const PixelRGB<float>& a, const PixelRGB<float>& b) { return a == b; }

} // namespace

TEST(InterpolateMvc, AgreesWithTheWholeSum)
{
    for (const NamedShape& s : closedShapes()) {
        const Region region(s.width, s.height, s.shape);
        const Errors errors = errorsAgainstDirect(region, mixedValues(region), {}, 3);
        EXPECT_LT(errors.worst, 0.01) << s.name;
        EXPECT_LT(errors.mean, 0.0015) << s.name;
    }
}

TEST(InterpolateMvc, AgreesWithTheWholeSumWhereTheInsideIsSampledAtTheCoarsestSteps)
{
    const Region region(1100, 1000, [](int x, int y) {
        return x > 1 && y > 1 && x < 1098 && y < 998 && std::hypot(x - 250.0, y - 300.0) > 90.0;
    });
    const Errors errors = errorsAgainstDirect(region, mixedValues(region), {}, 37);
    EXPECT_LT(errors.worst, 0.008);
    EXPECT_LT(errors.mean, 0.0015);
}

TEST(InterpolateMvc, AgreesWithTheWholeSumWhereThePlaneCutsTheRegionAndPixelsAreHard)
{
    const Region region(170, 130, [](int x, int y) { return !(x > 20 && x < 120 && y > 30 && y < 130); });
    std::vector<bool> hard(region.bytes.size());
    for (int y = 60; y < 90; ++y)
        hard[region.at(20, y)] = hard[region.at(120, y)] = true;
    const Errors errors = errorsAgainstDirect(region, mixedValues(region), hard, 3);
    EXPECT_LT(errors.worst, 0.01);
    EXPECT_LT(errors.mean, 0.0025);
}

TEST(InterpolateMvc, ReproducesLinearFunctions)
{
    for (const NamedShape& s : closedShapes()) {
        const Region region(s.width, s.height, s.shape);
        const Colours values = region.drawn([&](int x, int y) {
            const float u = static_cast<float>(x) / static_cast<float>(s.width);
            const float v = static_cast<float>(y) / static_cast<float>(s.height);
            return PixelRGB<float>{u, 1.0f - v, 0.5f * u + 0.5f * v};
        });
        const Colours membrane = filled(region, values);
        for (int y = 0; y < s.height; ++y)
            for (int x = 0; x < s.width; ++x) {
                if (!region.has(x, y))
                    continue;
                const std::size_t i = region.at(x, y);
                ASSERT_NEAR(membrane[i].r, values[i].r, 0.005f) << s.name << ' ' << x << ' ' << y;
                ASSERT_NEAR(membrane[i].g, values[i].g, 0.005f) << s.name << ' ' << x << ' ' << y;
                ASSERT_NEAR(membrane[i].b, values[i].b, 0.005f) << s.name << ' ' << x << ' ' << y;
            }
    }
}

TEST(InterpolateMvc, CarriesAConstantToTheEndsOfThePlane)
{
    const Region region(700, 430, [](int x, int y) { return !(x >= 100 && x < 300 && y >= 60 && y < 200); });
    const PixelRGB<float> cast = {0.53f, 0.471f, 0.5f};
    const Colours membrane = filled(region, region.drawn([&](int, int) { return cast; }));
    for (std::size_t i = 0; i < membrane.size(); ++i)
        ASSERT_TRUE(samePixel(membrane[i], region.bytes[i] != 0 ? cast : kUntouched)) << i;
}

TEST(InterpolateMvc, KeepsTheValuesAlongTheEdge)
{
    const Region region(90, 90, [](int x, int y) { return std::hypot(x - 45.0, y - 45.0) < 33.0; });
    const Colours values = mixedValues(region);
    const Colours membrane = filled(region, values);
    int edges = 0;
    for (int y = 0; y < 90; ++y)
        for (int x = 0; x < 90; ++x)
            if (region.edge(x, y)) {
                ++edges;
                ASSERT_TRUE(samePixel(membrane[region.at(x, y)], values[region.at(x, y)])) << x << ' ' << y;
            }
    EXPECT_GT(edges, 150);
}

TEST(InterpolateMvc, ReadsNothingButTheEdge)
{
    const Region region(90, 90, [](int x, int y) { return std::hypot(x - 45.0, y - 45.0) < 33.0; });
    const Colours values = mixedValues(region);
    Colours other = values;
    for (int y = 0; y < 90; ++y)
        for (int x = 0; x < 90; ++x)
            if (!region.edge(x, y))
                other[region.at(x, y)] = {1e30f, std::numeric_limits<float>::quiet_NaN(), -5.0f};
    EXPECT_TRUE(planes::sameBytes(filled(region, values), filled(region, other)));
}

TEST(InterpolateMvc, IgnoresHardPixelsAndValuesThatAreNotFinite)
{
    const Region region(120, 80, [](int x, int y) { return x > 4 && y > 4 && x < 115 && y < 75; });
    const Colours values = mixedValues(region);
    std::vector<bool> hard(region.bytes.size());
    Colours wild = values;
    Colours broken = values;
    for (int x = 30; x < 60; ++x) {
        hard[region.at(x, 5)] = true;
        wild[region.at(x, 5)] = {1e6f, -1e6f, 0.0f};
        broken[region.at(x, 5)].g = std::numeric_limits<float>::infinity();
    }
    const Colours expected = filled(region, values, hard);
    EXPECT_TRUE(planes::sameBytes(filled(region, wild, hard), expected));
    EXPECT_TRUE(planes::sameBytes(filled(region, broken), expected));
    EXPECT_FALSE(planes::sameBytes(filled(region, values), expected));
    EXPECT_TRUE(planes::sameBytes(filled(region, values, std::vector<bool>(3)), filled(region, values)))
        << "missing bits are clear";
}

TEST(InterpolateMvc, PartsDoNotKnowOfEachOther)
{
    const Shape columnBetween = [](int x, int) { return x != 50; };
    const Shape touchByACorner = [](int x, int y) { return (x < 50) == (y < 30); };
    for (const Shape& shape : {columnBetween, touchByACorner}) {
        const Region region(101, 60, shape);
        const Colours values = region.drawn([](int x, int) {
            return x < 50 ? PixelRGB<float>{0.2f, 0.3f, 0.4f} : PixelRGB<float>{0.9f, 0.8f, 0.7f};
        });
        const Colours membrane = filled(region, values);
        for (std::size_t i = 0; i < membrane.size(); ++i) {
            const PixelRGB<float>& expected = region.bytes[i] != 0 ? values[i] : kUntouched;
            ASSERT_TRUE(samePixel(membrane[i], expected)) << i;
        }
    }
}

TEST(InterpolateMvc, LeavesAloneWhatHasNoKnownEdge)
{
    const auto stays = [](const Region& region, const std::vector<bool>& hard) {
        for (const PixelRGB<float>& v : filled(region, mixedValues(region), hard))
            if (!samePixel(v, kUntouched))
                return false;
        return true;
    };
    EXPECT_TRUE(stays(Region(40, 30, [](int, int) { return true; }), {})) << "no edge at all";
    EXPECT_TRUE(stays(Region(40, 30, [](int, int) { return false; }), {})) << "no region";
    EXPECT_TRUE(stays(Region(40, 30, [](int x, int) { return x > 9; }), std::vector<bool>(1200, true))) << "all hard";
    // One part with an edge and one without.
    const Region region(40, 30, [](int x, int) { return x != 20; });
    std::vector<bool> hard(1200);
    for (int y = 0; y < 30; ++y)
        hard[region.at(19, y)] = true;
    const Colours membrane = filled(region, mixedValues(region), hard);
    EXPECT_TRUE(samePixel(membrane[region.at(5, 5)], kUntouched));
    EXPECT_FALSE(samePixel(membrane[region.at(30, 5)], kUntouched));
}

TEST(InterpolateMvc, StaysWithinTheRangeOfTheKnownValues)
{
    for (const NamedShape& s : closedShapes()) {
        const Region region(s.width, s.height, s.shape);
        const Colours values = region.drawn([](int x, int y) {
            return PixelRGB<float>{x < 70 ? 0.25f : 0.75f, (x * 7 + y * 3) % 11 < 5 ? 0.25f : 0.75f,
                                   y < 30 ? 0.75f : 0.25f};
        });
        const Colours membrane = filled(region, values);
        for (std::size_t i = 0; i < membrane.size(); ++i) {
            if (region.bytes[i] == 0)
                continue;
            for (const float v : {membrane[i].r, membrane[i].g, membrane[i].b})
                ASSERT_TRUE(v >= 0.25f && v <= 0.75f) << s.name << ' ' << i << ": " << v;
        }
    }
}

TEST(InterpolateMvc, HasNoStepsInside)
{
    const Region region(600, 500, [](int x, int y) { return x > 0 && y > 0 && x < 599 && y < 499; });
    const Colours membrane = filled(region, region.drawn([](int x, int) {
        const float v = static_cast<float>(x) / 600.0f;
        return PixelRGB<float>{v, v, v};
    }));
    for (int y = 2; y < 498; ++y)
        for (int x = 2; x < 597; ++x)
            ASSERT_NEAR(membrane[region.at(x + 1, y)].r - membrane[region.at(x, y)].r, 1.0f / 600.0f, 0.0012f)
                << x << ' ' << y;
}

TEST(InterpolateMvc, ThinRegionsKeepTheirValues)
{
    // One pixel wide, so that it has no polygon.
    const Region line(64, 9, [](int, int y) { return y == 4; });
    std::vector<bool> hard(line.bytes.size());
    for (int x = 20; x < 30; ++x)
        hard[line.at(x, 4)] = true;
    const Colours values = line.drawn([](int x, int) {
        const auto v = static_cast<float>(x);
        return PixelRGB<float>{v, v, v};
    });
    const Colours membrane = filled(line, values, hard);
    for (int x = 0; x < 64; x = x == 19 ? 30 : x + 1)
        EXPECT_EQ(membrane[line.at(x, 4)].r, static_cast<float>(x));
    EXPECT_NEAR(membrane[line.at(20, 4)].r, 19.5f, 4.0f) << "near its neighbour";
    EXPECT_LT(membrane[line.at(20, 4)].r, membrane[line.at(29, 4)].r);
}

TEST(InterpolateMvc, MayWorkInPlace)
{
    const Region region(120, 80, [](int x, int y) { return x > 4 && y > 4 && x < 100; });
    const Colours values = mixedValues(region);
    const Colours apart = filled(region, values);
    Colours both = values;
    std::vector<unsigned char> bytes = region.bytes;
    orvo::interpolate_mvc(120, 80, both.data(), both.data(), bytes.data(), {});
    for (std::size_t i = 0; i < both.size(); ++i)
        ASSERT_TRUE(samePixel(both[i], region.bytes[i] != 0 ? apart[i] : values[i])) << i;
    EXPECT_EQ(bytes, region.bytes) << "the region is only read";
}

TEST(InterpolateMvc, AwkwardSizesAndRegions)
{
    for (const auto& [width, height] : planes::awkwardSizes())
        for (int kind = 0; kind < 4; ++kind) {
            planes::Random random(static_cast<std::uint32_t>(kind + 1));
            const Region region(width, height, [&](int x, int y) {
                const float chance = random.next();
                return kind == 0 || (kind == 1 && chance < 0.5f) || (kind == 2 && (x + y) % 2 == 0) ||
                       (kind == 3 && chance < 0.98f);
            });
            const Colours membrane = filled(region, mixedValues(region));
            for (std::size_t i = 0; i < membrane.size(); ++i)
                ASSERT_TRUE(samePixel(membrane[i], kUntouched) ||
                            (region.bytes[i] != 0 && membrane[i].b >= 0.0f && membrane[i].b <= 1.0f))
                    << width << 'x' << height << " kind " << kind << " at " << i;
        }
}

TEST(InterpolateMvc, IsTheSameForAnyNumberOfThreads)
{
    const Region region(500, 400, [](int x, int y) {
        return std::hypot(x - 200.0, y - 180.0) > 100.0 && (x * 31 + y * 17) % 1009 != 0;
    });
    const Colours values = mixedValues(region);
    planes::expectSameForAnyWorkers([&] { return filled(region, values); });
}
