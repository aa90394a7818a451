#include "region_edge.hpp"

#include <orvo_core/parallel.hpp>

#include <algorithm>
#include <cmath>
#include <numeric>

namespace orvo::detail {

namespace {

bool isFinite(const PixelRGB<float>& v) { return std::isfinite(v.r) && std::isfinite(v.g) && std::isfinite(v.b); }

bool isSet(const std::vector<bool>& bits, std::size_t index) { return index < bits.size() && bits[index]; }

int findRoot(std::vector<int>& parent, int index)
{
    while (parent[static_cast<std::size_t>(index)] != index) {
        int& up = parent[static_cast<std::size_t>(index)];
        up = parent[static_cast<std::size_t>(up)];
        index = up;
    }
    return index;
}

} // namespace

RegionEdge::RegionEdge(int width, int height, const unsigned char* region, const PixelRGB<float>* values,
                       const std::vector<bool>& ignored)
    : columns(width), rows(height), places(static_cast<std::size_t>(width) * static_cast<std::size_t>(height))
{
    classify(region, values, ignored);
    findRuns();
    joinRuns();
}

void RegionEdge::classify(const unsigned char* region, const PixelRGB<float>* values, const std::vector<bool>& ignored)
{
    forEachRow(rows, [&](int y) {
        const auto from = [&](int line) { return region + static_cast<std::ptrdiff_t>(line) * columns; };
        const unsigned char* middle = from(y);
        // Missing rows repeat the middle one, which creates no edge.
        const unsigned char* above = y > 0 ? from(y - 1) : middle;
        const unsigned char* below = y + 1 < rows ? from(y + 1) : middle;
        const ManagedPlane<unsigned char> upright(static_cast<std::size_t>(columns) + 2);
        unsigned char* const whole = upright.data() + 1; // 1 where all three rows have the pixel
        for (int x = 0; x < columns; ++x)
            whole[x] = static_cast<unsigned char>((above[x] != 0) & (middle[x] != 0) & (below[x] != 0));
        whole[-1] = whole[columns] = 1;
        Place* const out = places.data() + static_cast<std::ptrdiff_t>(y) * columns;
        for (int x = 0; x < columns; ++x)
            out[x] = middle[x] == 0                                  ? Place::Outside
                     : (whole[x - 1] & whole[x] & whole[x + 1]) != 0 ? Place::Inside
                                                                     : Place::Known;
        const std::size_t start = static_cast<std::size_t>(y) * static_cast<std::size_t>(columns);
        for (int x = 0; x < columns; ++x) {
            const std::size_t index = start + static_cast<std::size_t>(x);
            if (out[x] == Place::Known && (isSet(ignored, index) || !isFinite(values[index])))
                out[x] = Place::Open;
            else if (out[x] == Place::Inside && (y == 0 || y == rows - 1 || x == 0 || x == columns - 1))
                out[x] = Place::Open;
        }
    });
}

void RegionEdge::findRuns()
{
    rowStart.assign(static_cast<std::size_t>(rows) + 1, 0);
    const auto eachRun = [this](int y, const auto& take) {
        const Place* const line = row(y);
        for (int x = 0; x < columns;) {
            const int first = x;
            const bool belongs = line[x] != Place::Outside;
            while (x < columns && (line[x] != Place::Outside) == belongs)
                ++x;
            if (belongs)
                take(first, x);
        }
    };
    forEachRow(rows, [&](int y) { eachRun(y, [&](int, int) { ++rowStart[static_cast<std::size_t>(y) + 1]; }); });
    std::partial_sum(rowStart.begin(), rowStart.end(), rowStart.begin());
    runs.resize(rowStart.back());
    forEachRow(rows, [&](int y) {
        std::size_t next = rowStart[static_cast<std::size_t>(y)];
        eachRun(y, [&](int first, int last) {
            runs[next] = {first, last, static_cast<int>(next)};
            ++next;
        });
    });
}

void RegionEdge::joinRuns()
{
    std::vector<int> parent(runs.size());
    std::iota(parent.begin(), parent.end(), 0);
    for (int y = 1; y < rows; ++y) {
        std::size_t above = rowStart[static_cast<std::size_t>(y) - 1];
        std::size_t here = rowStart[static_cast<std::size_t>(y)];
        const std::size_t aboveEnd = here;
        const std::size_t hereEnd = rowStart[static_cast<std::size_t>(y) + 1];
        while (above < aboveEnd && here < hereEnd) {
            if (runs[above].first < runs[here].last && runs[here].first < runs[above].last) {
                const int a = findRoot(parent, static_cast<int>(above));
                const int b = findRoot(parent, static_cast<int>(here));
                parent[static_cast<std::size_t>(std::max(a, b))] = std::min(a, b);
            }
            if (runs[above].last < runs[here].last)
                ++above;
            else
                ++here;
        }
    }
    // The root of a part is its first run, so that parts are numbered in row order.
    for (std::size_t i = 0; i < runs.size(); ++i) {
        const int root = findRoot(parent, static_cast<int>(i));
        runs[i].part = root == static_cast<int>(i) ? partCount++ : runs[static_cast<std::size_t>(root)].part;
    }
}

RegionRun RegionEdge::runAt(int x, int y) const
{
    const auto begin = runs.begin() + static_cast<std::ptrdiff_t>(rowStart[static_cast<std::size_t>(y)]);
    const auto end = runs.begin() + static_cast<std::ptrdiff_t>(rowStart[static_cast<std::size_t>(y) + 1]);
    return *std::upper_bound(begin, end, x, [](int column, const RegionRun& run) { return column < run.last; });
}

template <typename Take>
void RegionEdge::eachEdgePixel(const Take& take) const
{
    for (int y = 0; y < rows; ++y) {
        const Place* const line = row(y);
        for (std::size_t i = rowStart[static_cast<std::size_t>(y)]; i < rowStart[static_cast<std::size_t>(y) + 1]; ++i)
            for (int x = runs[i].first; x < runs[i].last; ++x)
                if (line[x] != Place::Inside)
                    take(x, y, runs[i].part);
    }
}

std::vector<EdgePixel> RegionEdge::pixels() const
{
    std::vector<EdgePixel> found;
    eachEdgePixel([&](int x, int y, int part) { found.push_back({x, y, part, row(y)[x]}); });
    return found;
}

bool RegionEdge::inRegion(int x, int y) const
{
    return x >= 0 && y >= 0 && x < columns && y < rows && row(y)[x] != Place::Outside;
}

bool RegionEdge::squareAt(int x, int y) const
{
    return inRegion(x, y) && inRegion(x + 1, y) && inRegion(x, y + 1) && inRegion(x + 1, y + 1);
}

std::vector<EdgeUnit> RegionEdge::units() const
{
    std::vector<EdgeUnit> found;
    eachEdgePixel([&](int x, int y, int part) {
        if (inRegion(x + 1, y)) {
            const bool above = squareAt(x, y - 1);
            const bool below = squareAt(x, y);
            if (below && !above)
                found.push_back({x, y, 1, 0, part});
            else if (above && !below)
                found.push_back({x + 1, y, -1, 0, part});
        }
        if (inRegion(x, y + 1)) {
            const bool left = squareAt(x - 1, y);
            const bool right = squareAt(x, y);
            if (left && !right)
                found.push_back({x, y, 0, 1, part});
            else if (right && !left)
                found.push_back({x, y + 1, 0, -1, part});
        }
    });
    return found;
}

} // namespace orvo::detail
