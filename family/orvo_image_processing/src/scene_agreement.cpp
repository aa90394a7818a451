#include "scene_agreement.hpp"

#include <orvo_core/detail/vector_code.hpp>
#include <orvo_core/parallel.hpp>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <numeric>
#include <vector>

namespace orvo::detail {

namespace {

// Blocks across the longer side. Blocks below 4 pixels would not average noise.
constexpr int kBlocksAcross = 400;
constexpr int kSmallestSide = 4;
constexpr int kLargestSide = 16;

// Samples above this share of white count as clipped: 8-bit compression makes it ring by some steps.
constexpr float kClipped = kClippedShare;
constexpr float kShoulder = kShoulderShare;

// The effect of a misregistration of about half a block, as a share of the difference between neighbouring blocks and
// of the texture within a block.
constexpr float kShiftShare = 0.5f;
constexpr float kTextureShare = 0.6f;

// In deviations of the usual difference of a tone: a block that moved for certain, and one that extends such blocks.
constexpr float kCertain = 6.0f;
constexpr float kPossible = 2.5f;
// The smallest visible differences, of full scale. Deghosting at its strongest marks a difference of 0.03 in each
// channel.
constexpr float kVisible = 0.012f;
constexpr float kFaint = 0.006f;
// A difference shared by its surroundings is a tint of the map unless it is this many times as large.
constexpr float kTintMultiple = 8.0f;
// Surroundings: the scale of the structure that deghosting compares, a thirtieth of the width to each side.
constexpr int kWidthsPerRadius = 30;
constexpr float kMiddleTone = 0.4f;
constexpr float kLeastVisible = 0.5f;
// Rounding and fitting errors not covered by noise.
constexpr float kLeastDeviation = 0.0015f;
// Limits of the usual difference, so that a moving subject that dominates a tone does not count as usual: noise in
// 8-bit steps of a pixel and of the mean of a block, where compression correlates it, and the error of the map in
// encoded values.
constexpr float kStep = 1.0f / 255.0f;
constexpr float kNoisePixel = 2.0f;
constexpr float kNoiseMean = 2.0f;
constexpr float kLargestBias = 0.02f;

// A block is a moved core if this many of its nine blocks are certain.
constexpr int kCoherent = 4;
// Blocks added around moved ones: at its edge a subject covers too little of a block to be detected.
constexpr int kMargin = 2;

constexpr std::size_t kMostSamples = 65536; // per channel for the statistics
constexpr std::size_t kFewestSamples = 48;  // per tone; sparser tones borrow from their neighbours

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

/// Measurements of one channel, per block.
struct Facts
{
    explicit Facts(std::size_t count)
        : frame(count), mapped(count), residue(count), texture(count), difference(count), around(count), clear(count)
    {}
    Plane frame;      ///< mean
    Plane mapped;     ///< mean
    Plane residue;    ///< deviation of the difference between the two within the block
    Plane texture;    ///< deviation of the flatter of the two
    Plane difference; ///< of the means, beyond the usual of the tone and the range hidden by clipping
    Plane around;     ///< mean of the differences around the block
    Plane clear;      ///< 1; towards 0 where another channel is nearly clipped, which changes this one
};

struct Sums
{
    float a, m, aa, mm, am;
};

/// Of one block in one row. A vector holds the channels of a pixel and the next pixel's first, which must be readable.
/// Each channel is summed from left to right.
ORVO_INLINE void addPixels(Sums* sums, const float* a, const float* m, int pixels)
{
    constexpr int kVector = 4;
    float u[kVector], v[kVector], uu[kVector], vv[kVector], uv[kVector];
    for (std::size_t c = 0; c < kVector; ++c) {
        const Sums& s = sums[std::min<std::size_t>(c, kChannels - 1)];
        u[c] = s.a;
        v[c] = s.m;
        uu[c] = s.aa;
        vv[c] = s.mm;
        uv[c] = s.am;
    }
    for (int p = 0; p < pixels; ++p)
        for (int c = 0; c < kVector; ++c) {
            const float x = a[3 * p + c];
            const float y = m[3 * p + c];
            u[c] += x;
            v[c] += y;
            uu[c] += x * x;
            vv[c] += y * y;
            uv[c] += x * y;
        }
    for (std::size_t c = 0; c < kChannels; ++c)
        sums[c] = {u[c], v[c], uu[c], vv[c], uv[c]};
}

ORVO_VECTOR_CLONES void addRow(Sums* sums, const float* a, const float* m, int pixels, int side)
{
    for (int x = 0; x < pixels; x += side) {
        const int last = std::min(pixels, x + side);
        addPixels(sums, a + 3 * x, m + 3 * x, last < pixels ? last - x : last - x - 1);
        if (last == pixels) {
            float end[2][4] = {};
            for (int c = 0; c < 3; ++c) {
                end[0][c] = a[3 * (last - 1) + c];
                end[1][c] = m[3 * (last - 1) + c];
            }
            addPixels(sums, end[0], end[1], 1);
        }
        sums += 3;
    }
}

float deviation(float variance) { return variance > 0.0f ? std::sqrt(variance) : 0.0f; }

void measureBlockRow(const float* frame, const MappedRows& mapped, const Grid& grid, int row,
                     std::array<Facts, 3>& facts)
{
    std::vector<Sums, ManagedAllocator<Sums>> sums(kChannels * static_cast<std::size_t>(grid.columns), Sums{});
    const int top = row * grid.side;
    const int bottom = std::min(grid.height, top + grid.side);
    const auto stride = kChannels * static_cast<std::size_t>(grid.width);
    const ManagedPlane<float> scratch(stride);
    for (int y = top; y < bottom; ++y)
        addRow(sums.data(), frame + static_cast<std::size_t>(y) * stride, mapped(y, scratch.data()), grid.width,
               grid.side);
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

/// The usual difference at each tone of one channel.
struct Usual
{
    std::array<float, kToneBins> difference{}; ///< of the means: the error of the map
    std::array<float, kToneBins> deviation{};  ///< of the means from that
    std::array<float, kToneBins> residue{};
    std::array<float, kToneBins> residueDeviation{};
};

struct Sample
{
    float difference, residue;
    float shift; ///< the difference explained by a misregistration
};

float rangeAround(const Plane& plane, const Grid& grid, std::size_t i)
{
    const int x = static_cast<int>(i % static_cast<std::size_t>(grid.columns));
    const int y = static_cast<int>(i / static_cast<std::size_t>(grid.columns));
    const float centre = plane.data()[i];
    float range = 0.0f;
    for (int v = std::max(0, y - 1); v <= std::min(grid.rows - 1, y + 1); ++v)
        for (int u = std::max(0, x - 1); u <= std::min(grid.columns - 1, x + 1); ++u)
            range = std::max(range, std::abs(plane.data()[grid.at(u, v)] - centre));
    return range;
}

float shiftAt(const Facts& facts, const Grid& grid, std::size_t i)
{
    return kShiftShare * std::min(rangeAround(facts.frame, grid, i), rangeAround(facts.mapped, grid, i));
}

/// Samples per tone; only tones that neither picture clips.
std::array<std::vector<Sample>, kToneBins> samplesOf(const Facts& facts, const Grid& grid, float ceiling)
{
    std::array<std::vector<Sample>, kToneBins> bins;
    const std::size_t every = std::max<std::size_t>(1, grid.count() / kMostSamples);
    for (std::size_t i = 0; i < grid.count(); i += every) {
        const float a = facts.frame.data()[i];
        const float m = facts.mapped.data()[i];
        if (a < kClipped && m < ceiling)
            bins[static_cast<std::size_t>(toneBin(m))].push_back(
                {a - m, facts.residue.data()[i], shiftAt(facts, grid, i)});
    }
    return bins;
}

/// The samples of the nearest tones, as many as needed; of these the half least affected by misregistration.
std::vector<Sample> samplesNear(const std::array<std::vector<Sample>, kToneBins>& bins, int bin)
{
    std::vector<Sample> near = bins[static_cast<std::size_t>(bin)];
    for (int reach = 1; reach < kToneBins && near.size() < kFewestSamples; ++reach)
        for (const int other : {bin - reach, bin + reach})
            if (other >= 0 && other < kToneBins) {
                const auto& more = bins[static_cast<std::size_t>(other)];
                near.insert(near.end(), more.begin(), more.end());
            }
    const auto half = near.begin() + static_cast<std::ptrdiff_t>(near.size() / 2);
    std::nth_element(near.begin(), half, near.end(),
                     [](const Sample& x, const Sample& y) { return x.shift < y.shift; });
    if (near.size() > 1)
        near.erase(half, near.end());
    return near;
}

constexpr float kDeviationsPerMedian = 1.4826f; // of a normal distribution

template <typename Value>
float medianOf(const std::vector<Sample>& samples, const Value& value)
{
    std::vector<float> values(samples.size());
    std::transform(samples.begin(), samples.end(), values.begin(), value);
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return values.empty() ? 0.0f : *middle;
}

Usual usualOf(const Facts& facts, const Grid& grid, const ToneLimits& limits)
{
    const auto bins = samplesOf(facts, grid, limits.ceiling);
    Usual usual;
    forEachRow(kToneBins, [&](int bin) {
        const auto b = static_cast<std::size_t>(bin);
        const std::vector<Sample> near = samplesNear(bins, bin);
        const float bothSteps = kStep + limits.step[b]; // noise of the frame, and of the other after re-exposure
        const float difference = medianOf(near, [](const Sample& s) { return s.difference; });
        const float residue = medianOf(near, [](const Sample& s) { return s.residue; });
        const auto spread = [&](float median) {
            return std::min(kDeviationsPerMedian * median, kNoiseMean * bothSteps);
        };
        const float bias = kLargestBias + limits.step[b];
        usual.difference[b] = std::clamp(difference, -bias, bias);
        usual.deviation[b] =
            spread(medianOf(near, [&](const Sample& s) { return std::abs(s.difference - difference); }));
        usual.residue[b] = std::min(residue, kNoisePixel * bothSteps);
        usual.residueDeviation[b] =
            spread(medianOf(near, [&](const Sample& s) { return std::abs(s.residue - residue); }));
    });
    return usual;
}

/// The unexplained difference of a block, in encoded values; only the part above the deviations counts.
struct Excess
{
    explicit Excess(float visible_) : visible(visible_) {}

    /// Relative to the surroundings: responds to a subject, not to a tint that the map leaves on a whole area.
    void raiseLocal(float amount, float deviation) { raiseBy(amount, deviation, 1.0f); }
    void raise(float amount, float deviation) { raiseBy(amount, deviation, kTintMultiple); }

    bool certain = false;
    bool possible = false;

private:
    void raiseBy(float amount, float deviation, float multiple)
    {
        const float deviations = amount / (deviation + kLeastDeviation);
        certain = certain || (deviations > kCertain && amount > kVisible * visible * multiple);
        possible = possible || (deviations > kPossible && amount > kFaint * visible * multiple);
    }
    float visible;
};

/// The difference of a block. Where one of the two is clipped, its true value may lie farther out.
float differenceAt(const Facts& facts, const Usual& usual, const ToneLimits& limits, std::size_t i)
{
    const float a = facts.frame.data()[i];
    const float m = facts.mapped.data()[i];
    const bool open = m >= limits.ceiling;
    if (open || a >= kClipped)
        return open ? std::min(0.0f, a - limits.ceiling) : std::max(0.0f, std::min(a, kClipped) - m);
    return a - m - usual.difference[static_cast<std::size_t>(toneBin(m))];
}

/// 1 where the value is at the limit of its picture, 0 well below.
float nearEnd(float value, float from, float end)
{
    return std::clamp((value - from) / std::max(end - from, kLeastDeviation), 0.0f, 1.0f);
}

/// Cameras desaturate a colour towards white before its last channel is clipped, so the curve of a single channel fails
/// there: of the clipped channels the one that agrees best counts, the others count little.
void measureClear(std::array<Facts, 3>& facts, const std::array<ToneLimits, 3>& limits, std::size_t i)
{
    std::array<float, kChannels> end{};
    float best = 1.0f;
    for (std::size_t c = 0; c < kChannels; ++c) {
        end[c] = std::max(nearEnd(facts[c].mapped.data()[i], limits[c].shoulder, limits[c].ceiling),
                          nearEnd(facts[c].frame.data()[i], kShoulder, kClipped));
        if (end[c] >= 1.0f)
            best = std::min(best, std::abs(facts[c].difference.data()[i]));
    }
    for (std::size_t c = 0; c < kChannels; ++c) {
        const float others = std::max(end[(c + 1) % kChannels], end[(c + 2) % kChannels]);
        float& difference = facts[c].difference.data()[i];
        facts[c].clear.data()[i] = 1.0f - others;
        if (end[c] >= 1.0f)
            difference = std::copysign(best, difference);
        else
            difference *= 1.0f - others;
    }
}

void judge(const Facts& facts, const Usual& usual, const ToneLimits& limits, const Grid& grid, std::size_t i,
           Excess& excess)
{
    const auto bin = static_cast<std::size_t>(toneBin(facts.mapped.data()[i]));
    const float difference = facts.difference.data()[i];
    const float explained = limits.step[bin] + shiftAt(facts, grid, i);
    excess.raiseLocal(std::abs(difference - facts.around.data()[i]) - explained, usual.deviation[bin]);
    excess.raise(std::abs(difference) - explained, usual.deviation[bin]);
    if (facts.mapped.data()[i] >= limits.ceiling || facts.frame.data()[i] >= kClipped)
        return;
    excess.raiseLocal(facts.residue.data()[i] - usual.residue[bin] - kTextureShare * facts.texture.data()[i] -
                          explained,
                      usual.residueDeviation[bin]);
}

/// The merge brightens dark tones, so smaller differences are visible there.
float visibleAt(const std::array<Facts, 3>& facts, std::size_t i)
{
    float brightest = 0.0f;
    for (const Facts& channel : facts)
        brightest = std::max({brightest, channel.frame.data()[i], channel.mapped.data()[i]});
    return std::clamp(brightest / kMiddleTone, kLeastVisible, 1.0f);
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

/// Maximum (or minimum, or mean) over `reach` blocks to each side, along one axis.
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

void blurAround(Facts& facts, const Grid& grid)
{
    float* const plane = facts.around.data();
    std::copy_n(facts.difference.data(), grid.count(), plane);
    const int reach = std::max(1, grid.width / kWidthsPerRadius / grid.side);
    for (const bool down : {false, true})
        alongAxis(plane, grid, down, [reach](const std::vector<float>& v, int i) {
            const auto first = v.begin() + std::max(0, i - reach);
            const auto last = v.begin() + std::min<std::ptrdiff_t>(std::ssize(v), i + reach + 1);
            return std::accumulate(first, last, 0.0f) / static_cast<float>(last - first);
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

ORVO_VECTOR_CLONES void sharesOf(const float* __restrict above, const float* __restrict below, float v,
                                 const SceneAgreement::ColumnPlace* __restrict places, int pixels,
                                 float* __restrict shares)
{
    for (int x = 0; x < pixels; ++x) {
        const SceneAgreement::ColumnPlace p = places[x];
        const float upper = above[p.left] + (above[p.right] - above[p.left]) * p.share;
        const float lower = below[p.left] + (below[p.right] - below[p.left]) * p.share;
        shares[x] = upper + (lower - upper) * v;
    }
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

SceneAgreement::SceneAgreement(const float* frame, const MappedRows& mapped, int width_, int height_,
                               const std::array<ToneLimits, 3>& limits)
    : width(width_), height(height_), side(sideFor(width_, height_)), columns((width_ + side - 1) / side),
      rows((height_ + side - 1) / side), agreement(static_cast<std::size_t>(columns) * static_cast<std::size_t>(rows)),
      places(static_cast<std::size_t>(width_))
{
    const Grid grid{width, height, side, columns, rows};
    Verdicts verdicts(grid.count());
    {
        std::array<Facts, 3> facts{Facts(grid.count()), Facts(grid.count()), Facts(grid.count())};
        forEachRow(rows, [&](int row) { measureBlockRow(frame, mapped, grid, row, facts); });
        std::array<Usual, 3> usual;
        for (std::size_t c = 0; c < kChannels; ++c)
            usual[c] = usualOf(facts[c], grid, limits[c]);
        forEachRange(grid.count(), [&](std::size_t first, std::size_t last) {
            for (std::size_t i = first; i < last; ++i) {
                for (std::size_t c = 0; c < kChannels; ++c)
                    facts[c].difference.data()[i] = differenceAt(facts[c], usual[c], limits[c], i);
                measureClear(facts, limits, i);
            }
        });
        for (Facts& channel : facts)
            blurAround(channel, grid);
        forEachRow(rows, [&](int y) {
            for (int x = 0; x < columns; ++x) {
                const std::size_t i = grid.at(x, y);
                Excess excess(visibleAt(facts, i));
                for (std::size_t c = 0; c < kChannels; ++c)
                    judge(facts[c], usual[c], limits[c], grid, i, excess);
                verdicts[i] = excess.certain ? kMoved : (excess.possible ? kMaybe : kSame);
            }
        });
    }
    Verdicts moved = coresOf(verdicts, grid);
    extendCores(moved, verdicts, grid);
    for (std::size_t i = 0; i < grid.count(); ++i)
        agreement.data()[i] = moved[i] == kMoved ? 0.0f : 1.0f;
    nowhere = std::all_of(moved.begin(), moved.end(), [](std::uint8_t v) { return v == kMoved; });
    addMargin(agreement.data(), grid);
    for (int x = 0; x < width; ++x) {
        const float across = placeOf(x, columns);
        const int left = static_cast<int>(across);
        places[static_cast<std::size_t>(x)] = {left, std::min(left + 1, columns - 1),
                                               across - static_cast<float>(left)};
    }
}

float SceneAgreement::placeOf(int pixel, int blocks) const
{
    const float at = (static_cast<float>(pixel) + 0.5f) / static_cast<float>(side) - 0.5f;
    return std::clamp(at, 0.0f, static_cast<float>(blocks - 1));
}

void SceneAgreement::rowShares(int y, int first, int end, float* shares) const
{
    const float down = placeOf(y, rows);
    const int above = static_cast<int>(down);
    const int below = std::min(above + 1, rows - 1);
    const auto row = [this](int i) {
        return agreement.data() + static_cast<std::size_t>(i) * static_cast<std::size_t>(columns);
    };
    sharesOf(row(above), row(below), down - static_cast<float>(above), places.data() + first, end - first, shares);
}

bool SceneAgreement::isEverywhere(int left, int top, int right, int bottom) const
{
    const auto firstBlock = [this](int pixel, int blocks) { return static_cast<int>(placeOf(pixel, blocks)); };
    const auto lastBlock = [this](int pixel, int blocks) {
        return std::min(static_cast<int>(placeOf(pixel, blocks)) + 1, blocks - 1);
    };
    const auto isFull = [](float share) { return share >= 1.0f; };
    const int x = firstBlock(left, columns);
    const int count = lastBlock(right - 1, columns) - x + 1;
    for (int i = firstBlock(top, rows); i <= lastBlock(bottom - 1, rows); ++i) {
        const float* const row = agreement.data() + static_cast<std::size_t>(i) * static_cast<std::size_t>(columns) + x;
        if (!std::all_of(row, row + count, isFull))
            return false;
    }
    return true;
}

} // namespace orvo::detail
