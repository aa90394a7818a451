#include "filling/line_directions.hpp"

#include <orvo_core/parallel.hpp>

#include <algorithm>
#include <array>
#include <cmath>
#include <numbers>
#include <vector>

namespace orvo::details {
namespace {

constexpr int kBins = 90;  // of 2 degrees
constexpr int kRadius = 2; // of the window whose gradients must agree
constexpr int kWindow = (2 * kRadius + 1) * (2 * kRadius + 1);
// The mean squared gradient of a window, in steps of 8 bits, below which it is noise.
constexpr int kLeastGradient = 60;
// The share of the gradient that points in one direction, from which on a window lies on a straight edge.
constexpr float kStraight = 0.9f;
// A direction must have so many times the mean of all directions.
constexpr float kDominant = 2.5f;
constexpr int kApart = 10; // bins between two directions

using Histogram = std::array<float, kBins>;

int brightness(Texel t) { return (t.r + 2 * t.g + t.b) / 4; }

std::size_t wrapped(int bin) { return static_cast<std::size_t>((bin % kBins + kBins) % kBins); }

// Products of gradients, summed along a row for the structure tensor.
struct Products
{
    int xx = 0;
    int xy = 0;
    int yy = 0;
    int known = 0; // gradients without pixels of the hole

    Products& operator+=(const Products& other)
    {
        xx += other.xx;
        xy += other.xy;
        yy += other.yy;
        known += other.known;
        return *this;
    }
};

Products productsAt(const FillLevel& level, int x, int y)
{
    const auto known = [&](int column, int row) {
        return level.places[static_cast<std::size_t>(level.at(column, row))] == Place::Known;
    };
    const auto bright = [&](int column, int row) {
        return brightness(level.texels[static_cast<std::size_t>(level.at(column, row))]);
    };
    if (!known(x - 1, y) || !known(x + 1, y) || !known(x, y - 1) || !known(x, y + 1))
        return {};
    const int dx = bright(x + 1, y) - bright(x - 1, y);
    const int dy = bright(x, y + 1) - bright(x, y - 1);
    return {dx * dx, dx * dy, dy * dy, 1};
}

// Votes of one row for the direction of the line through each window, weighted by contrast. The orientation comes from
// the structure tensor (Bigun, Granlund, ICCV 1987).
Histogram votesOfRow(const FillLevel& level, int y)
{
    Histogram votes{};
    const int width = level.width();
    std::vector<Products> columns(static_cast<std::size_t>(width));
    for (int x = 1; x + 1 < width; ++x)
        for (int row = y - kRadius; row <= y + kRadius; ++row)
            columns[static_cast<std::size_t>(x)] += productsAt(level, x, row);
    for (int x = 1 + kRadius; x + 1 + kRadius < width; ++x) {
        Products sum;
        for (int column = x - kRadius; column <= x + kRadius; ++column)
            sum += columns[static_cast<std::size_t>(column)];
        const auto trace = static_cast<float>(sum.xx + sum.yy);
        if (sum.known < kWindow || trace < static_cast<float>(kLeastGradient * kWindow))
            continue;
        const auto difference = static_cast<float>(sum.xx - sum.yy);
        const auto twice = 2.0f * static_cast<float>(sum.xy);
        if (std::sqrt(difference * difference + twice * twice) < kStraight * trace)
            continue;
        // The line runs across its gradient.
        const float along = 0.5f * std::atan2(twice, difference) + std::numbers::pi_v<float> / 2;
        votes[wrapped(static_cast<int>(std::lround(along / std::numbers::pi_v<float> * kBins)))] += std::sqrt(trace);
    }
    return votes;
}

Histogram smoothed(const Histogram& votes)
{
    constexpr std::array<float, 5> kTent{1.0f / 9, 2.0f / 9, 3.0f / 9, 2.0f / 9, 1.0f / 9};
    Histogram result{};
    for (int bin = 0; bin < kBins; ++bin)
        for (int tap = 0; tap < 5; ++tap)
            result[wrapped(bin)] += kTent[static_cast<std::size_t>(tap)] * votes[wrapped(bin + tap - 2)];
    return result;
}

} // namespace

LineDirections::LineDirections(const FillLevel& level)
{
    const int rows = std::max(0, level.height() - 2 * (kRadius + 1));
    std::vector<Histogram> votes(static_cast<std::size_t>(rows));
    forEachRow(rows, [&](int y) { votes[static_cast<std::size_t>(y)] = votesOfRow(level, y + kRadius + 1); });
    Histogram sum{};
    for (const Histogram& row : votes)
        for (std::size_t bin = 0; bin < sum.size(); ++bin)
            sum[bin] += row[bin];
    Histogram left = smoothed(sum);
    float mean = 0.0f;
    for (const float vote : left)
        mean += vote / kBins;
    while (found < kMost) {
        const auto best = std::max_element(left.begin(), left.end());
        if (!(*best > kDominant * mean))
            break;
        const auto bin = static_cast<int>(best - left.begin());
        const float angle = std::numbers::pi_v<float> * static_cast<float>(bin) / kBins;
        normals[found++] = {-std::sin(angle), std::cos(angle)};
        for (int near = bin - kApart; near <= bin + kApart; ++near)
            left[wrapped(near)] = 0.0f;
    }
}

OffsetCost::OffsetCost(const LineDirections& directions, float reach, float most_)
    : count(directions.count()), most(most_)
{
    for (std::size_t i = 0; i < count; ++i)
        scaled[i] = {directions.normal(i).x / reach, directions.normal(i).y / reach};
}

} // namespace orvo::details
