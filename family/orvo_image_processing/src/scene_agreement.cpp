#include "scene_agreement.hpp"

#include <orvo_core/detail/vector_code.hpp>
#include <orvo_core/parallel.hpp>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <vector>

namespace orvo::detail {

namespace {

// Blocks across the longer side. A block of 4 pixels is the least that averages noise.
constexpr int kBlocksAcross = 400;
constexpr int kSmallestSide = 4;
constexpr int kLargestSide = 16;

// Samples above this share of white count as clipped: 8-bit compression makes it ring by some steps.
constexpr float kClipped = 0.97f;

// What a misregistration of about half a block can move, as a share of the difference between neighbouring blocks,
// and of the texture within a block.
constexpr float kShiftShare = 0.5f;
constexpr float kTextureShare = 0.6f;

// Deviations of the usual difference of a tone: one that is certain alone, one that extends a certain one.
constexpr float kCertain = 6.0f;
constexpr float kPossible = 2.5f;
// The smallest differences that count, of full scale. Deghosting at its strongest marks a difference of 0.03 in each
// channel.
constexpr float kVisible = 0.03f;
constexpr float kFaint = 0.01f;
// An error of rounding and fitting that noise does not show.
constexpr float kLeastDeviation = 0.004f;
// What re-exposure may be off at one tone, and how much its error may exceed the noise.
constexpr float kLargestBias = 0.04f;
constexpr float kNoiseMultiple = 4.0f;
constexpr float kLeastNoise = 0.006f;

// A moved core: so many certain blocks among nine.
constexpr int kCoherent = 4;
// Blocks around what moved that are given up with it: what a block at its edge shows of it is below the limits.
constexpr int kMargin = 2;

constexpr std::size_t kMostSamples = 65536; // per channel for the statistics
constexpr std::size_t kFewestSamples = 48;  // per tone; sparser tones share with their neighbours

constexpr std::size_t kChannels = 3;

using Plane = ManagedPlane<float>;

struct Grid
{
    int width, height, side, columns, rows;
    [[nodiscard]] std::size_t count() const
    {
        return static_cast<std::size_t>(columns) * static_cast<std::size_t>(rows);
    }
    [[nodiscard]] std::size_t at(int x, int y) const
    {
        return static_cast<std::size_t>(y) * static_cast<std::size_t>(columns) + static_cast<std::size_t>(x);
    }
};

/// Of one channel, by block.
struct Facts
{
    explicit Facts(std::size_t count) : frame(count), mapped(count), residue(count), texture(count) {}
    Plane frame;   ///< mean
    Plane mapped;  ///< mean
    Plane residue; ///< deviation of the difference between the two within the block
    Plane texture; ///< deviation of the flatter of the two
};

struct Sums
{
    float a, m, aa, mm, am;
};

ORVO_VECTOR_CLONES void addRow(Sums* sums, const float* a, const float* m, int pixels, int side)
{
    for (int x = 0; x < pixels; x += side) {
        const int last = std::min(pixels, x + side);
        for (int p = x; p < last; ++p)
            for (int c = 0; c < 3; ++c) {
                const float u = a[3 * p + c];
                const float v = m[3 * p + c];
                sums[c].a += u;
                sums[c].m += v;
                sums[c].aa += u * u;
                sums[c].mm += v * v;
                sums[c].am += u * v;
            }
        sums += 3;
    }
}

float deviation(float variance) { return variance > 0.0f ? std::sqrt(variance) : 0.0f; }

void measureBlockRow(const float* frame, const float* mapped, const Grid& grid, int row, std::array<Facts, 3>& facts)
{
    std::vector<Sums, ManagedAllocator<Sums>> sums(kChannels * static_cast<std::size_t>(grid.columns), Sums{});
    const int top = row * grid.side;
    const int bottom = std::min(grid.height, top + grid.side);
    const auto stride = kChannels * static_cast<std::size_t>(grid.width);
    for (int y = top; y < bottom; ++y)
        addRow(sums.data(), frame + static_cast<std::size_t>(y) * stride, mapped + static_cast<std::size_t>(y) * stride,
               grid.width, grid.side);
    for (int x = 0; x < grid.columns; ++x) {
        const int across = std::min(grid.side, grid.width - x * grid.side);
        const float scale = 1.0f / static_cast<float>(across * (bottom - top));
        const std::size_t i = grid.at(x, row);
        for (std::size_t c = 0; c < kChannels; ++c) {
            const Sums& s = sums[kChannels * static_cast<std::size_t>(x) + c];
            const float a = s.a * scale;
            const float m = s.m * scale;
            const float aa = s.aa * scale - a * a;
            const float mm = s.mm * scale - m * m;
            facts[c].frame.data()[i] = a;
            facts[c].mapped.data()[i] = m;
            facts[c].residue.data()[i] = deviation(aa + mm - 2.0f * (s.am * scale - a * m));
            facts[c].texture.data()[i] = deviation(std::min(aa, mm));
        }
    }
}

float quantile(std::vector<float>& values, float share)
{
    if (values.empty())
        return 0.0f;
    const auto place = static_cast<std::ptrdiff_t>(share * static_cast<float>(values.size() - 1));
    std::nth_element(values.begin(), values.begin() + place, values.end());
    return values[static_cast<std::size_t>(place)];
}

/// What is usual at each tone of one channel.
struct Usual
{
    std::array<float, kToneBins> difference{}; ///< of the means: what the map is off
    std::array<float, kToneBins> deviation{};  ///< of the means around that
    std::array<float, kToneBins> residue{};
    std::array<float, kToneBins> residueDeviation{};
};

struct Sample
{
    int bin;
    float difference, residue, roughness;
};

std::vector<Sample> samplesOf(const Facts& facts, const Grid& grid, float ceiling)
{
    std::vector<Sample> samples;
    const std::size_t every = std::max<std::size_t>(1, grid.count() / kMostSamples);
    for (std::size_t i = 0; i < grid.count(); i += every) {
        const float a = facts.frame.data()[i];
        const float m = facts.mapped.data()[i];
        if (!(a < kClipped && m < ceiling))
            continue;
        const std::size_t next = i + 1 < grid.count() ? i + 1 : i;
        samples.push_back(
            {toneBin(m), a - m, facts.residue.data()[i], std::abs(facts.mapped.data()[next] - m)});
    }
    return samples;
}

constexpr float kDeviationsPerMedian = 1.4826f; // of a normal distribution

// The quarter of neighbours that differ least, as a deviation of one of them: edges and texture are in the rest.
constexpr float kQuietShare = 0.25f;
constexpr float kDeviationsPerQuiet = 2.219f; // 1 / (0.3186 * sqrt(2))

Usual usualOf(const Facts& facts, const Grid& grid, float ceiling)
{
    std::array<std::vector<Sample>, kToneBins> bins;
    for (const Sample& sample : samplesOf(facts, grid, ceiling))
        bins[static_cast<std::size_t>(sample.bin)].push_back(sample);
    Usual usual;
    forEachRow(kToneBins, [&](int bin) {
        std::vector<Sample> near;
        for (int reach = 0; reach < kToneBins && near.size() < kFewestSamples; ++reach)
            for (const int other : {bin - reach, bin + reach}) {
                if (other < 0 || other >= kToneBins || (reach == 0 && other != bin - reach))
                    continue;
                const auto& more = bins[static_cast<std::size_t>(other)];
                near.insert(near.end(), more.begin(), more.end());
                if (reach == 0)
                    break;
            }
        std::vector<float> values(near.size());
        const auto of = [&](auto member, float share) {
            std::transform(near.begin(), near.end(), values.begin(), member);
            return quantile(values, share);
        };
        const auto b = static_cast<std::size_t>(bin);
        const float noise =
            std::max(kLeastNoise, kDeviationsPerQuiet * of([](const Sample& s) { return s.roughness; }, kQuietShare));
        const float difference = of([](const Sample& s) { return s.difference; }, 0.5f);
        usual.difference[b] = std::clamp(difference, -kLargestBias, kLargestBias);
        usual.deviation[b] =
            std::min(kNoiseMultiple * noise,
                     kDeviationsPerMedian * of([&](const Sample& s) { return std::abs(s.difference - difference); }, 0.5f));
        const float residue = of([](const Sample& s) { return s.residue; }, 0.5f);
        const auto pixels = static_cast<float>(grid.side);
        usual.residue[b] = std::min(kNoiseMultiple * noise * pixels, residue);
        usual.residueDeviation[b] =
            std::min(kNoiseMultiple * noise,
                     kDeviationsPerMedian * of([&](const Sample& s) { return std::abs(s.residue - residue); }, 0.5f));
    });
    return usual;
}

/// How far a block differs beyond what is explained: in deviations, and in encoded values.
struct Excess
{
    float deviations = 0.0f;
    float value = 0.0f;
    void raise(float amount, float deviation)
    {
        if (amount <= 0.0f)
            return;
        deviations = std::max(deviations, amount / (deviation + kLeastDeviation));
        value = std::max(value, amount);
    }
};

float rangeAround(const Plane& plane, const Grid& grid, int x, int y)
{
    const float centre = plane.data()[grid.at(x, y)];
    float range = 0.0f;
    for (int v = std::max(0, y - 1); v <= std::min(grid.rows - 1, y + 1); ++v)
        for (int u = std::max(0, x - 1); u <= std::min(grid.columns - 1, x + 1); ++u)
            range = std::max(range, std::abs(plane.data()[grid.at(u, v)] - centre));
    return range;
}

void judge(const Facts& facts, const Usual& usual, const ToneLimits& limits, const Grid& grid, int x, int y,
           Excess& excess)
{
    const std::size_t i = grid.at(x, y);
    const float a = facts.frame.data()[i];
    const float m = facts.mapped.data()[i];
    const auto bin = static_cast<std::size_t>(toneBin(m));
    float difference = a - m - usual.difference[bin];
    if ((m >= limits.ceiling && difference > 0.0f) || (a >= kClipped && m >= kClipped))
        return; // both are at the end of what they can show
    const float shift =
        kShiftShare * std::min(rangeAround(facts.frame, grid, x, y), rangeAround(facts.mapped, grid, x, y));
    const float step = limits.step[bin];
    excess.raise(std::abs(difference) - step - shift, usual.deviation[bin]);
    if (m >= limits.ceiling || a >= kClipped)
        return;
    excess.raise(facts.residue.data()[i] - usual.residue[bin] - step - kTextureShare * facts.texture.data()[i] - shift,
                 usual.residueDeviation[bin]);
}

enum Verdict : std::uint8_t
{
    kSame,
    kMaybe,
    kMoved
};

using Verdicts = std::vector<std::uint8_t, ManagedAllocator<std::uint8_t>>;

/// Certain blocks with enough certain neighbours.
Verdicts coresOf(const Verdicts& verdicts, const Grid& grid)
{
    Verdicts cores(grid.count(), kSame);
    forEachRow(grid.rows, [&](int y) {
        for (int x = 0; x < grid.columns; ++x) {
            int certain = 0;
            for (int v = std::max(0, y - 1); v <= std::min(grid.rows - 1, y + 1); ++v)
                for (int u = std::max(0, x - 1); u <= std::min(grid.columns - 1, x + 1); ++u)
                    certain += verdicts[grid.at(u, v)] == kMoved ? 1 : 0;
            if (certain >= kCoherent)
                cores[grid.at(x, y)] = kMoved;
        }
    });
    return cores;
}

/// Extends the cores through connected blocks that may have moved.
void extendCores(Verdicts& cores, const Verdicts& verdicts, const Grid& grid)
{
    std::vector<std::size_t, ManagedAllocator<std::size_t>> open;
    for (std::size_t i = 0; i < cores.size(); ++i)
        if (cores[i] == kMoved)
            open.push_back(i);
    while (!open.empty()) {
        const std::size_t i = open.back();
        open.pop_back();
        const int x = static_cast<int>(i % static_cast<std::size_t>(grid.columns));
        const int y = static_cast<int>(i / static_cast<std::size_t>(grid.columns));
        for (int v = std::max(0, y - 1); v <= std::min(grid.rows - 1, y + 1); ++v)
            for (int u = std::max(0, x - 1); u <= std::min(grid.columns - 1, x + 1); ++u) {
                const std::size_t k = grid.at(u, v);
                if (cores[k] == kMoved || verdicts[k] == kSame)
                    continue;
                cores[k] = kMoved;
                open.push_back(k);
            }
    }
}

/// The largest (or smallest, or mean) of `reach` blocks to each side, along one axis.
template <typename Fold>
void alongAxis(float* plane, const Grid& grid, bool down, const Fold& fold)
{
    const int lines = down ? grid.columns : grid.rows;
    const int length = down ? grid.rows : grid.columns;
    forEachRow(lines, [&](int line) {
        std::vector<float> values(static_cast<std::size_t>(length));
        const auto place = [&](int i) { return down ? grid.at(line, i) : grid.at(i, line); };
        for (int i = 0; i < length; ++i)
            values[static_cast<std::size_t>(i)] = plane[place(i)];
        for (int i = 0; i < length; ++i)
            plane[place(i)] = fold(values, i);
    });
}

void addMargin(float* agreement, const Grid& grid)
{
    const auto least = [](const std::vector<float>& v, int i) {
        const auto first = v.begin() + std::max(0, i - kMargin);
        return *std::min_element(first, v.begin() + std::min<std::ptrdiff_t>(std::ssize(v), i + kMargin + 1));
    };
    const auto mean = [](const std::vector<float>& v, int i) {
        const auto at = [&](int k) {
            return v[static_cast<std::size_t>(std::clamp<int>(k, 0, static_cast<int>(v.size()) - 1))];
        };
        return (at(i - 1) + at(i) + at(i + 1)) / 3.0f;
    };
    for (const bool down : {false, true})
        alongAxis(agreement, grid, down, least);
    for (const bool down : {false, true})
        alongAxis(agreement, grid, down, mean);
}

int sideFor(int width, int height)
{
    return std::clamp((std::max(width, height) + kBlocksAcross / 2) / kBlocksAcross, kSmallestSide, kLargestSide);
}

} // namespace

int toneBin(float value)
{
    const float place = value * static_cast<float>(kToneBins);
    return place > 0.0f ? static_cast<int>(std::min(place, static_cast<float>(kToneBins - 1))) : 0;
}

SceneAgreement::SceneAgreement(const float* frame, const float* mapped, int width_, int height_,
                               const std::array<ToneLimits, 3>& limits)
    : width(width_), height(height_), side(sideFor(width_, height_)), columns((width_ + side - 1) / side),
      rows((height_ + side - 1) / side), agreement(static_cast<std::size_t>(columns) * static_cast<std::size_t>(rows))
{
    const Grid grid{width, height, side, columns, rows};
    Verdicts verdicts(grid.count());
    {
        std::array<Facts, 3> facts{Facts(grid.count()), Facts(grid.count()), Facts(grid.count())};
        forEachRow(rows, [&](int row) { measureBlockRow(frame, mapped, grid, row, facts); });
        std::array<Usual, 3> usual;
        for (std::size_t c = 0; c < kChannels; ++c)
            usual[c] = usualOf(facts[c], grid, limits[c].ceiling);
        forEachRow(rows, [&](int y) {
            for (int x = 0; x < columns; ++x) {
                Excess excess;
                for (std::size_t c = 0; c < kChannels; ++c)
                    judge(facts[c], usual[c], limits[c], grid, x, y, excess);
                const bool certain = excess.deviations > kCertain && excess.value > kVisible;
                const bool possible = excess.deviations > kPossible && excess.value > kFaint;
                verdicts[grid.at(x, y)] = certain ? kMoved : (possible ? kMaybe : kSame);
            }
        });
    }
    Verdicts moved = coresOf(verdicts, grid);
    extendCores(moved, verdicts, grid);
    for (std::size_t i = 0; i < grid.count(); ++i)
        agreement.data()[i] = moved[i] == kMoved ? 0.0f : 1.0f;
    nowhere = std::all_of(moved.begin(), moved.end(), [](std::uint8_t v) { return v == kMoved; });
    addMargin(agreement.data(), grid);
}

void SceneAgreement::rowShares(int y, float* shares) const
{
    const Grid grid{width, height, side, columns, rows};
    const auto place = [this](int p, int blocks) {
        const float at = (static_cast<float>(p) + 0.5f) / static_cast<float>(side) - 0.5f;
        return std::clamp(at, 0.0f, static_cast<float>(blocks - 1));
    };
    const float down = place(y, rows);
    const int above = static_cast<int>(down);
    const int below = std::min(above + 1, rows - 1);
    const float v = down - static_cast<float>(above);
    for (int x = 0; x < width; ++x) {
        const float across = place(x, columns);
        const int left = static_cast<int>(across);
        const int right = std::min(left + 1, columns - 1);
        const float u = across - static_cast<float>(left);
        const auto at = [&](int i, int k) { return agreement.data()[grid.at(i, k)]; };
        const float upper = at(left, above) + (at(right, above) - at(left, above)) * u;
        const float lower = at(left, below) + (at(right, below) - at(left, below)) * u;
        shares[x] = upper + (lower - upper) * v;
    }
}

} // namespace orvo::detail
