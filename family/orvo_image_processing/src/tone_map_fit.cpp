#include "tone_map_fit.hpp"

#include "encoded_gain.hpp"
#include "pale_highlights.hpp"

#include <orvo_core/parallel.hpp>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <iterator>
#include <limits>
#include <optional>

namespace orvo::detail {

namespace {

// Patches along each side of a square grid: enough for 1024 quantiles of 16 patches each.
constexpr int kGridSide = 128;
// Side of a patch in pixels: 64 values reduce the noise by 8, and 8 pixels absorb a small misalignment.
constexpr int kLargestPatch = 8;
constexpr int kQuantiles = 1024;
constexpr std::size_t kFewestPairs = 32;
constexpr int kFewestQuantiles = 4;
constexpr int kQuantilesPerKnot = 4; // fewer can be a mere reflection or lamp
// Encoded values that count as usable: above the first steps of 8 bits, where rounding dominates, and below the
// shoulder of clipping.
constexpr float kDarkest = 1.5f / 255;
constexpr float kBrightest = 0.97f;
// A frame with a patch above this does not clip at 1, but at its largest value.
constexpr float kAboveWhite = 1.02f;
// The shoulder towards the target's white starts at this share of it.
constexpr float kKneeShare = 0.96f;
// A sample above this share of white counts as clipped: 8-bit compression makes it ring by some steps.
constexpr float kClipped = 0.98f;
// Median distance, in stops, of the pairs from their median step above which the frames cannot be aligned.
constexpr float kAlignedStops = 0.5f;
// Pairs further than this, and than this many median distances, from what most pairs of their tone show belong to a
// moving subject. The first map is only a gain; later ones leave less to the tone's own median.
constexpr float kOutlierDistances[] = {0.06f, 0.03f, 0.02f};
constexpr float kOutlierMost = 0.15f;
constexpr float kOutlierMedians = 4.0f;
// Pairs of one tone that scatter more than this, and than this many times the scatter of all tones, follow no curve:
// only a moving subject has that tone. The map continues there from the neighbouring tones.
constexpr float kScatterLeast = 0.03f;
constexpr float kScatterMedians = 4.0f;
// A patch that is further than kOutlierMost from the common gain in so many channels, and from most of its tone in one,
// has moved. In the others, where the subject can cover most of a tone, it may be the usual one. What differs from the
// gain alone can be the camera's curve.
constexpr int kMovedChannels = 2;
// Pairs of about one tone are judged together, and neighbouring groups vote: a moving subject of one tone can dominate
// its own group, however large it is, but not its neighbours'.
constexpr float kGroupTone = 0.07f; // in steps of evenTone(), where 0..1 spans 4.3
constexpr std::size_t kGroupLeast = 8;
constexpr std::size_t kVoters = 5;
// Below this the two frames count as equal: less than a tenth of a step of 8 bits in all quantiles.
constexpr float kSame = 1.0f / 4096;
// Exposures, in EV, from which the noise of a raised picture begins to go below the black of the frame, and does so for
// certain.
constexpr float kNotRaised = 0.5f;
constexpr float kRaised = 1.5f;
// Slope of the spline relative to the plain exposure: nearly white tones of a strongly darkened picture reach 20.
constexpr float kSteepest = 32.0f;
constexpr float kEndSlopeLeast = 0.1f;
constexpr float kEvLimit = 12.0f;

float linear(float v) { return v <= kToeEnd ? v / kToeSlope : std::pow((v + kOffset) / kScale, kGamma); }

/// Perceptually even steps, and finite at black.
float evenTone(float v) { return std::log2(v + kOffset); }

struct Quantile
{
    float b, a;
};

float middleOf(std::vector<float> values)
{
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

struct Whites
{
    float a = 1.0f;
    float b = 1.0f;
};

Whites whitesOf(const std::vector<PatchPair>& pairs)
{
    Whites largest{0.0f, 0.0f};
    for (const PatchPair& pair : pairs) {
        largest.a = std::max(largest.a, pair.a);
        largest.b = std::max(largest.b, pair.b);
    }
    const auto white = [](float value) { return value > kAboveWhite ? value : 1.0f; };
    return {white(largest.a), white(largest.b)};
}

/// The values at the same ranks in both frames. An increasing map preserves ranks, whatever its shape.
std::vector<Quantile> matchedQuantiles(const std::vector<PatchPair>& pairs)
{
    std::vector<float> a;
    std::vector<float> b;
    for (const PatchPair& pair : pairs) {
        a.push_back(pair.a);
        b.push_back(pair.b);
    }
    std::sort(a.begin(), a.end());
    std::sort(b.begin(), b.end());
    const std::size_t bins = std::min<std::size_t>(kQuantiles, a.size());
    std::vector<Quantile> quantiles(bins);
    for (std::size_t i = 0; i < bins; ++i) {
        const std::size_t rank = (2 * i + 1) * a.size() / (2 * bins);
        quantiles[i] = {b[rank], a[rank]};
    }
    return quantiles;
}

bool isUsable(float a, float b, const Whites& whites)
{
    return a > kDarkest && a < kBrightest * whites.a && b > kDarkest && b < kBrightest * whites.b;
}

std::vector<Quantile> usable(const std::vector<Quantile>& all, const Whites& whites)
{
    std::vector<Quantile> kept;
    std::copy_if(all.begin(), all.end(), std::back_inserter(kept),
                 [&](const Quantile& q) { return isUsable(q.a, q.b, whites); });
    return kept;
}

float exposureOf(const std::vector<Quantile>& quantiles)
{
    std::vector<float> steps;
    for (const Quantile& q : quantiles)
        steps.push_back(std::log2(linear(q.a) / linear(q.b)));
    return std::clamp(middleOf(std::move(steps)), -kEvLimit, kEvLimit);
}

float contrastOf(const std::vector<Quantile>& quantiles)
{
    double x = 0.0;
    double y = 0.0;
    double xx = 0.0;
    double xy = 0.0;
    for (const Quantile& q : quantiles) {
        const auto u = static_cast<double>(std::log2(linear(q.b)));
        const auto v = static_cast<double>(std::log2(linear(q.a)));
        x += u;
        y += v;
        xx += u * u;
        xy += u * v;
    }
    const auto n = static_cast<double>(quantiles.size());
    const double spread = xx - x * x / n;
    constexpr double kLeastSpread = 0.25; // stops squared, per quantile: a flat picture gives no contrast
    return spread > kLeastSpread * n ? static_cast<float>(std::clamp((xy - x * y / n) / spread, 0.25, 4.0)) : 1.0f;
}

/// Gathers quantiles into knots of a map.
class KnotPlacer
{
public:
    explicit KnotPlacer(ToneCurveMap& map_) : map(map_) {}

    void add(float from, float to)
    {
        sumFrom += from;
        sumTo += to;
        ++count;
    }
    [[nodiscard]] bool hasEnough() const { return count >= kQuantilesPerKnot; }

    /// Makes the mean of the added quantiles a knot, unless it is too close to the previous one to have a slope.
    void close()
    {
        const float from = sumFrom / static_cast<float>(count);
        const float to = sumTo / static_cast<float>(count);
        sumFrom = sumTo = 0.0f;
        count = 0;
        constexpr float kApart = 1e-3f;
        if (map.knots == ToneCurveMap::kMostKnots || from < lastFrom + kApart)
            return;
        lastTo = std::clamp(to, lastTo, lastTo + kSteepest * (from - lastFrom));
        lastFrom = from;
        map.from[static_cast<std::size_t>(map.knots)] = lastFrom;
        map.to[static_cast<std::size_t>(map.knots)] = lastTo;
        ++map.knots;
    }
    [[nodiscard]] bool holdsRest() const { return hasEnough() || (map.knots == 0 && count > 0); }

private:
    ToneCurveMap& map;
    float sumFrom = 0.0f;
    float sumTo = 0.0f;
    int count = 0;
    float lastFrom = 0.0f;
    float lastTo = 0.0f;
};

/// Knots at about even steps along the curve: of tone in either frame, because a shoulder is flat in one of them.
void placeKnots(ToneCurveMap& map, const std::vector<Quantile>& quantiles)
{
    ToneCurveMap exposureOnly;
    exposureOnly.ev = map.ev;
    exposureOnly.white = std::numeric_limits<float>::max();
    const ToneCurve plain(exposureOnly);
    const auto progress = [&](const Quantile& q) { return evenTone(plain(q.b)) + evenTone(q.a); };
    float start = progress(quantiles.front());
    const float span = (progress(quantiles.back()) - start) / static_cast<float>(ToneCurveMap::kMostKnots - 2);
    KnotPlacer placer(map);
    for (const Quantile& q : quantiles) {
        placer.add(plain(q.b), q.a);
        if (placer.hasEnough() && progress(q) - start >= span) {
            start = progress(q);
            placer.close();
        }
    }
    if (placer.holdsRest())
        placer.close();
}

FittedCurve fitQuantiles(const std::vector<PatchPair>& pairs, const Whites& whites)
{
    FittedCurve fit;
    if (pairs.size() < kFewestPairs)
        return fit;
    const std::vector<Quantile> all = matchedQuantiles(pairs);
    const std::vector<Quantile> quantiles = usable(all, whites);
    const bool same =
        std::all_of(all.begin(), all.end(), [](const Quantile& q) { return std::abs(q.a - q.b) < kSame; });
    if (same || quantiles.size() < kFewestQuantiles)
        return fit;
    fit.middle = quantiles[quantiles.size() / 2].b;
    fit.contrast = contrastOf(quantiles);
    fit.map.ev = exposureOf(quantiles);
    fit.map.white = whites.a;
    fit.map.black = std::max(0.0f, all.front().a) * smoothStep(fit.map.ev, kNotRaised, kRaised);
    placeKnots(fit.map, quantiles);
    return fit;
}

/// The gain that most pairs agree on, if the frames are aligned.
std::optional<ToneCurveMap> commonGain(const std::vector<PatchPair>& pairs, const Whites& whites)
{
    std::vector<float> steps;
    for (const PatchPair& pair : pairs)
        if (!pair.torn && isUsable(pair.a, pair.b, whites))
            steps.push_back(std::log2(linear(pair.a) / linear(pair.b)));
    if (steps.size() < kFewestPairs)
        return std::nullopt;
    ToneCurveMap map;
    map.white = whites.a;
    map.ev = std::clamp(middleOf(steps), -kEvLimit, kEvLimit);
    for (float& step : steps)
        step = std::abs(step - map.ev);
    return middleOf(std::move(steps)) < kAlignedStops ? std::optional(map) : std::nullopt;
}

/// The beginnings of the groups of one tone among pairs sorted by b, and the end of the last group.
std::vector<std::size_t> groupBorders(const std::vector<PatchPair>& pairs)
{
    std::vector<std::size_t> borders{0};
    for (std::size_t i = 1; i < pairs.size(); ++i) {
        const float width = evenTone(std::max(0.0f, pairs[i].b)) - evenTone(std::max(0.0f, pairs[borders.back()].b));
        if (width >= kGroupTone && i - borders.back() >= kGroupLeast && pairs.size() - i >= kGroupLeast)
            borders.push_back(i);
    }
    borders.push_back(pairs.size());
    return borders;
}

/// For each pair the distance of most pairs of about its tone from the map. A camera's curve moves all of a tone
/// together, a moving subject only some.
std::vector<float> usualDistances(const std::vector<float>& distances, const std::vector<std::size_t>& borders)
{
    const std::size_t groups = borders.size() - 1;
    const auto at = [&](std::size_t i) { return distances.begin() + static_cast<std::ptrdiff_t>(i); };
    std::vector<float> middles(groups);
    for (std::size_t g = 0; g < groups; ++g)
        middles[g] = middleOf({at(borders[g]), at(borders[g + 1])});
    std::vector<float> usual;
    for (std::size_t g = 0; g < groups; ++g) {
        const std::size_t reach = std::min({kVoters / 2, g, groups - 1 - g}); // symmetric: no lag at the ends
        const auto voter = middles.begin() + static_cast<std::ptrdiff_t>(g);
        usual.resize(borders[g + 1], middleOf({voter - static_cast<std::ptrdiff_t>(reach),
                                               voter + static_cast<std::ptrdiff_t>(reach) + 1}));
    }
    return usual;
}

/// Of pairs sorted by b, the difference of each from the map.
std::vector<float> distancesFrom(const ToneCurveMap& map, const std::vector<PatchPair>& pairs)
{
    const ToneCurve curve(map);
    std::vector<float> distances(pairs.size());
    std::transform(pairs.begin(), pairs.end(), distances.begin(), [&](const PatchPair& pair) {
        return std::min(pair.a, map.white) - std::min(curve(std::max(0.0f, pair.b)), map.white);
    });
    return distances;
}

/// Of a patch, the channels in which it is far from the common gain, and from most patches of its tone.
struct FarChannels
{
    int fromGain = 0;
    int fromTone = 0;
};

void countFar(const std::vector<PatchPair>& pairs, std::vector<FarChannels>& patches)
{
    const Whites whites = whitesOf(pairs);
    const std::optional<ToneCurveMap> gain = commonGain(pairs, whites);
    if (!gain)
        return;
    std::vector<std::size_t> order;
    for (std::size_t i = 0; i < pairs.size(); ++i)
        if (!pairs[i].torn)
            order.push_back(i);
    std::stable_sort(order.begin(), order.end(), [&](std::size_t i, std::size_t k) { return pairs[i].b < pairs[k].b; });
    std::vector<PatchPair> sorted;
    for (const std::size_t i : order)
        sorted.push_back(pairs[i]);
    if (sorted.empty())
        return;
    const std::vector<float> distances = distancesFrom(*gain, sorted);
    const std::vector<float> usual = usualDistances(distances, groupBorders(sorted));
    for (std::size_t k = 0; k < order.size(); ++k) {
        patches[order[k]].fromGain += std::abs(distances[k]) > kOutlierMost ? 1 : 0;
        patches[order[k]].fromTone += std::abs(distances[k] - usual[k]) > kOutlierMost ? 1 : 0;
    }
}

/// Of the whole pairs, sorted by b, those that agree with most of their tone.
std::vector<PatchPair> usualPairs(const ToneCurveMap& map, const std::vector<PatchPair>& pairs, float allowance)
{
    if (pairs.empty())
        return {};
    std::vector<float> distances = distancesFrom(map, pairs);
    // The spread is judged by tone too: where the true curve is much steeper than the map, a whole group spreads.
    const std::vector<std::size_t> borders = groupBorders(pairs);
    const std::vector<float> usual = usualDistances(distances, borders);
    for (std::size_t i = 0; i < pairs.size(); ++i)
        distances[i] = std::abs(distances[i] - usual[i]);
    const std::vector<float> spread = usualDistances(distances, borders);
    const float mostScatter = std::max(kScatterLeast, kScatterMedians * middleOf(spread));
    std::vector<PatchPair> kept;
    for (std::size_t i = 0; i < pairs.size(); ++i)
        if (spread[i] <= mostScatter &&
            distances[i] <= std::max(allowance, std::min(kOutlierMost, kOutlierMedians * spread[i])))
            kept.push_back(pairs[i]);
    return kept;
}

struct PatchMeans
{
    float a[3], b[3];
    float largestA[3], largestB[3];
};

PatchMeans meansOfPatch(const float* a, const float* b, std::size_t width, int left, int top, int side)
{
    PatchMeans means{};
    for (int y = top; y < top + side; ++y) {
        const std::size_t row = 3 * (static_cast<std::size_t>(y) * width + static_cast<std::size_t>(left));
        for (std::size_t i = 0; i < 3 * static_cast<std::size_t>(side); i += 3)
            for (std::size_t c = 0; c < 3; ++c) {
                means.a[c] += a[row + i + c];
                means.b[c] += b[row + i + c];
                means.largestA[c] = std::max(means.largestA[c], a[row + i + c]);
                means.largestB[c] = std::max(means.largestB[c], b[row + i + c]);
            }
    }
    const float scale = 1.0f / static_cast<float>(side * side);
    for (int c = 0; c < 3; ++c) {
        means.a[c] *= scale;
        means.b[c] *= scale;
    }
    return means;
}

bool isTorn(float mean, float largest) { return largest > kClipped && largest < kAboveWhite && mean < kClipped; }

/// The patches as pairs. A non-finite value makes the sum of its patch, and only that, NaN.
PatchPairs pairsOf(const std::vector<PatchMeans>& means)
{
    PatchPairs pairs;
    pairs.equal = true;
    for (const PatchMeans& m : means) {
        float total = 0.0f;
        for (int c = 0; c < 3; ++c)
            total += (m.a[c] + m.b[c]) * 0.0f;
        if (!(total == 0.0f))
            continue;
        for (std::size_t c = 0; c < 3; ++c) {
            pairs.channels[c].push_back(
                {m.a[c], m.b[c], isTorn(m.a[c], m.largestA[c]) || isTorn(m.b[c], m.largestB[c])});
            pairs.equal = pairs.equal && m.a[c] == m.b[c];
        }
    }
    return pairs;
}

} // namespace

PatchPairs collectPatches(const float* a, const float* b, int width, int height)
{
    if (width <= 0 || height <= 0)
        return {};
    const double pixels = static_cast<double>(width) * static_cast<double>(height);
    const int cell = std::max(1, static_cast<int>(std::ceil(std::sqrt(pixels) / kGridSide)));
    const int side = std::min({cell, kLargestPatch, width, height});
    const int columns = std::max(1, width / cell);
    const int rows = std::max(1, height / cell);
    std::vector<PatchMeans> means(static_cast<std::size_t>(columns) * static_cast<std::size_t>(rows));
    forEachRow(rows, [&](int row) {
        const int top = std::min(row * cell + (cell - side) / 2, height - side);
        for (int column = 0; column < columns; ++column) {
            const int left = std::min(column * cell + (cell - side) / 2, width - side);
            means[static_cast<std::size_t>(row) * static_cast<std::size_t>(columns) +
                  static_cast<std::size_t>(column)] =
                meansOfPatch(a, b, static_cast<std::size_t>(width), left, top, side);
        }
    });
    return pairsOf(means);
}

void dropMovedPatches(PatchPairs& pairs)
{
    std::vector<FarChannels> far(pairs.channels[0].size());
    for (const auto& channel : pairs.channels)
        countFar(channel, far);
    for (auto& channel : pairs.channels) {
        std::size_t kept = 0;
        for (std::size_t i = 0; i < channel.size(); ++i)
            if (far[i].fromTone == 0 || far[i].fromGain < kMovedChannels)
                channel[kept++] = channel[i];
        channel.resize(kept);
    }
}

FittedCurve fitCurve(const std::vector<PatchPair>& pairs)
{
    const Whites whites = whitesOf(pairs);
    const std::optional<ToneCurveMap> gain = commonGain(pairs, whites);
    if (!gain)
        return fitQuantiles(pairs, whites);
    std::vector<PatchPair> whole;
    std::copy_if(pairs.begin(), pairs.end(), std::back_inserter(whole),
                 [](const PatchPair& pair) { return !pair.torn; });
    std::stable_sort(whole.begin(), whole.end(), [](const PatchPair& x, const PatchPair& y) { return x.b < y.b; });
    FittedCurve fit;
    fit.map = *gain;
    // Always from all pairs: tones that an early map did not explain return with a better one.
    for (const float allowance : kOutlierDistances) {
        const FittedCurve better = fitQuantiles(usualPairs(fit.map, whole, allowance), whites);
        if (better.map.knots == 0)
            return better;
        fit = better;
    }
    return fit;
}

ToneCurve::ToneCurve(const ToneCurveMap& map)
    : gain(std::exp2(map.ev)), encodedGain(std::exp2(map.ev / kGamma)), knee(std::numeric_limits<float>::max()),
      bend(0.0f)
{
    for (int k = 0; k < std::min(map.knots, ToneCurveMap::kMostKnots); ++k, ++points) {
        x[static_cast<std::size_t>(points)] = map.from[static_cast<std::size_t>(k)];
        y[static_cast<std::size_t>(points)] = map.to[static_cast<std::size_t>(k)];
    }
    // Increasing cubic pieces with a continuous slope: Fritsch, Butland, 1984 (weighted harmonic mean of the secants).
    const auto secant = [&](std::size_t k) { return (y[k + 1] - y[k]) / (x[k + 1] - x[k]); };
    const auto last = static_cast<std::size_t>(points - 1);
    slope[0] = last > 0 ? secant(0) : 1.0f;
    slope[last] = last > 0 ? std::max(secant(last - 1), kEndSlopeLeast) : 1.0f;
    for (std::size_t k = 1; k < last; ++k) {
        const float before = secant(k - 1);
        const float after = secant(k);
        const float h0 = x[k] - x[k - 1];
        const float h1 = x[k + 1] - x[k];
        slope[k] = before > 0.0f && after > 0.0f
                       ? 3.0f * (h0 + h1) / ((2.0f * h1 + h0) / before + (h1 + 2.0f * h0) / after)
                       : 0.0f;
    }
    const float top = spline(plain(std::max(1.0f, map.white)));
    const float room = map.white * (1.0f - kKneeShare);
    const float span = top - map.white * kKneeShare;
    if (span > room) {
        knee = map.white * kKneeShare;
        bend = (span / room - 1.0f) / span;
    }
}

float ToneCurve::plain(float v) const
{
    if (gain == 1.0f)
        return v;
    return gain > 1.0f ? plainBrighter(v, gain, encodedGain) : plainDarker(v, gain, encodedGain);
}

float ToneCurve::spline(float z) const
{
    const auto last = static_cast<std::size_t>(points - 1);
    if (z >= x[last])
        return y[last] + slope[last] * (z - x[last]);
    std::size_t k = 0;
    while (z >= x[k + 1])
        ++k;
    const float h = x[k + 1] - x[k];
    const float t = (z - x[k]) / h;
    const float s = 1.0f - t;
    return s * s * ((1.0f + 2.0f * t) * y[k] + t * h * slope[k]) +
           t * t * ((1.0f + 2.0f * s) * y[k + 1] - s * h * slope[k + 1]);
}

float ToneCurve::operator()(float v) const
{
    const float value = spline(plain(v));
    const float above = value - knee;
    return above > 0.0f ? knee + above / (1.0f + above * bend) : value;
}

} // namespace orvo::detail
