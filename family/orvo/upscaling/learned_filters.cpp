#include "upscaling/learned_filters.hpp"

#include "upscaling/noise_level.hpp"

#include <orvo_common/memory_manager.hpp>
#include <orvo_common/part_progress.hpp>
#include <orvo_core/detail/vector_code.hpp>
#include <orvo_core/parallel.hpp>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>

namespace orvo::details {
namespace {

// A tile of the small picture: its planes stay in the L2 cache of a processor, and the part that is computed twice at
// the borders is a third of a tile.
constexpr int kTileWidth = 128;
constexpr int kTileHeight = 64;
// The reach of the features of a sample: a derivative (1), then two smoothings, by 2 and by 4 samples.
constexpr int kReach = 7;
constexpr int kStride = kTileWidth + 2 * kReach + 2; // samples of a row of a plane, a multiple of 16
constexpr int kPlaneRows = kTileHeight + 2 * kReach;
constexpr std::size_t kPlane = static_cast<std::size_t>(kStride) * kPlaneRows;

// As in scripts/train_upscaler/features.py: a tenth of a step of 8 bits or less is not structure.
constexpr float kEpsilon = 1e-4f;
// How far a result may exceed the range of the samples around it, as a part of that range. A line or a dot that was
// blurred into its sample is slightly more than the sample.
constexpr float kBeyondRange = 0.08f;
constexpr float kLargest = 65504.0f; // of half floats, the limit of the picture reader too

// A pixel in a vector register: red, green, blue, and nothing.
typedef float Vec4 __attribute__((vector_size(16)));

ORVO_INLINE Vec4 lower(Vec4 a, Vec4 b) { return a < b ? a : b; }
ORVO_INLINE Vec4 higher(Vec4 a, Vec4 b) { return a > b ? a : b; }

// Planes of one tile. Positions count from the tile's first sample; up to kReach before and after it is valid.
struct Tile
{
    enum Plane
    {
        kLuma,
        kXX,
        kXY,
        kYY,
        kBends,
        kFine,
        kWide,
        kTemporary,
        kPlaneCount
    };

    // Pixels first: they need the alignment.
    ManagedPlane<float> memory{(4 + kPlaneCount) * kPlane};
    Vec4* const pixels = reinterpret_cast<Vec4*>(memory.data()) + kReach * kStride + kReach;
    int width = 0;
    int height = 0;

    [[nodiscard]] float* row(Plane plane, int y) const
    {
        return memory.data() + (4 + static_cast<std::size_t>(plane)) * kPlane + kReach +
               static_cast<std::ptrdiff_t>(y + kReach) * kStride;
    }
};

float finite(float v) { return v == v ? std::clamp(v, -kLargest, kLargest) : 0.0f; }

void loadTile(const _ImageData<PixelRGB<float>>& source, int left, int top, const Tile& tile)
{
    for (int y = -kReach; y < tile.height + kReach; ++y) {
        const PixelRGB<float>* const from = source.row(std::clamp(top + y, 0, source.height() - 1));
        float* const luma = tile.row(Tile::kLuma, y);
        Vec4* const pixels = tile.pixels + static_cast<std::ptrdiff_t>(y) * kStride;
        for (int x = -kReach; x < tile.width + kReach; ++x) {
            const PixelRGB<float>& p = from[std::clamp(left + x, 0, source.width() - 1)];
            const Vec4 v = {finite(p.r), finite(p.g), finite(p.b), 0.0f};
            pixels[x] = v;
            luma[x] = kLumaRed * v[0] + kLumaGreen * v[1] + kLumaBlue * v[2];
        }
    }
}

ORVO_VECTOR_CLONES void productsOfRow(const float* __restrict up, const float* __restrict mid,
                                      const float* __restrict down, float* __restrict xx, float* __restrict xy,
                                      float* __restrict yy, float* __restrict bends, int from, int to)
{
    for (int x = from; x < to; ++x) {
        const float gx = (mid[x + 1] - mid[x - 1]) * 0.5f;
        const float gy = (down[x] - up[x]) * 0.5f;
        const float bend = (mid[x - 1] + mid[x + 1]) + (up[x] + down[x]) - 4.0f * mid[x];
        xx[x] = gx * gx;
        xy[x] = gx * gy;
        yy[x] = gy * gy;
        bends[x] = bend * bend;
    }
}

// The binomial of five taps, 1 4 6 4 1.
ORVO_INLINE float binomial(float a, float b, float c, float d, float e)
{
    return ((a + e) + 4.0f * (b + d) + 6.0f * c) * (1.0f / 16.0f);
}

ORVO_VECTOR_CLONES void smoothDown(const float* __restrict a, const float* __restrict b, const float* __restrict c,
                                   const float* __restrict d, const float* __restrict e, float* __restrict out,
                                   int from, int to)
{
    for (int x = from; x < to; ++x)
        out[x] = binomial(a[x], b[x], c[x], d[x], e[x]);
}

ORVO_VECTOR_CLONES void smoothAcross(const float* __restrict in, int step, float* __restrict out, int from, int to)
{
    for (int x = from; x < to; ++x)
        out[x] = binomial(in[x - 2 * step], in[x - step], in[x], in[x + step], in[x + 2 * step]);
}

ORVO_VECTOR_CLONES void addRows(const float* __restrict a, const float* __restrict b, float* __restrict out, int from,
                                int to)
{
    for (int x = from; x < to; ++x)
        out[x] = a[x] + b[x];
}

// Smooths a plane in place, `step` samples apart; afterwards it is valid `margin` samples around the tile.
void smoothPlane(const Tile& tile, Tile::Plane plane, Tile::Plane target, int step, int margin)
{
    const int reach = margin + 2 * step;
    for (int y = -margin; y < tile.height + margin; ++y)
        smoothDown(tile.row(plane, y - 2 * step), tile.row(plane, y - step), tile.row(plane, y),
                   tile.row(plane, y + step), tile.row(plane, y + 2 * step), tile.row(Tile::kTemporary, y), -reach,
                   tile.width + reach);
    for (int y = -margin; y < tile.height + margin; ++y)
        smoothAcross(tile.row(Tile::kTemporary, y), step, tile.row(target, y), -margin, tile.width + margin);
}

void measureStructure(const Tile& tile)
{
    constexpr int kProducts = kReach - 1;
    for (int y = -kProducts; y < tile.height + kProducts; ++y)
        productsOfRow(tile.row(Tile::kLuma, y - 1), tile.row(Tile::kLuma, y), tile.row(Tile::kLuma, y + 1),
                      tile.row(Tile::kXX, y), tile.row(Tile::kXY, y), tile.row(Tile::kYY, y), tile.row(Tile::kBends, y),
                      -kProducts, tile.width + kProducts);
    constexpr int kSmoothed = kProducts - 2;
    smoothPlane(tile, Tile::kXX, Tile::kXX, 1, kSmoothed);
    smoothPlane(tile, Tile::kXY, Tile::kXY, 1, 0);
    smoothPlane(tile, Tile::kYY, Tile::kYY, 1, kSmoothed);
    smoothPlane(tile, Tile::kBends, Tile::kBends, 1, 0);
    for (int y = -kSmoothed; y < tile.height + kSmoothed; ++y)
        addRows(tile.row(Tile::kXX, y), tile.row(Tile::kYY, y), tile.row(Tile::kFine, y), -kSmoothed,
                tile.width + kSmoothed);
    smoothPlane(tile, Tile::kFine, Tile::kWide, 2, 0);
}

// The inputs of the decision tree for the samples of one row; features.py is the definition.
struct RowFeatures
{
    std::array<std::array<float, kTileWidth>, kFeatures> of;
    std::array<std::int32_t, kTileWidth> turn; // 1: mirror x, 2: then swap the axes
};

ORVO_VECTOR_CLONES void featuresOfRow(const Tile& tile, int y, RowFeatures& features)
{
    const float* __restrict const up = tile.row(Tile::kLuma, y - 1);
    const float* __restrict const mid = tile.row(Tile::kLuma, y);
    const float* __restrict const down = tile.row(Tile::kLuma, y + 1);
    const float* __restrict const xx = tile.row(Tile::kXX, y);
    const float* __restrict const xy = tile.row(Tile::kXY, y);
    const float* __restrict const yy = tile.row(Tile::kYY, y);
    const float* __restrict const bends = tile.row(Tile::kBends, y);
    const float* __restrict const wide = tile.row(Tile::kWide, y);
    float* __restrict const out = features.of[0].data();
    std::int32_t* __restrict const turn = features.turn.data();
    const int width = tile.width;
    for (int x = 0; x < width; ++x) {
        const float gx = (mid[x + 1] - mid[x - 1]) * 0.5f;
        const float gy = (down[x] - up[x]) * 0.5f;
        const float gxx = mid[x - 1] + mid[x + 1] - 2.0f * mid[x];
        const float gyy = up[x] + down[x] - 2.0f * mid[x];
        const float gxy = (down[x + 1] - down[x - 1] - up[x + 1] + up[x - 1]) * 0.25f;
        const float a = xx[x];
        const float b = xy[x];
        const float d = yy[x];
        const float trace = a + d;
        const float across = a - d;
        const float skew = 2.0f * b;
        const float spread = std::sqrt(across * across + skew * skew);
        const float strong = std::sqrt((trace + spread) * 0.5f);
        const float rest = trace - spread;
        const float weak = std::sqrt((rest > 0.0f ? rest : 0.0f) * 0.5f);
        const float scale = 1.0f / (strong + kEpsilon);
        const float along = (gxx * a + 2.0f * gxy * b + gyy * d) / (trace + kEpsilon * kEpsilon);
        out[x] = strong;
        out[x + kTileWidth] = (strong - weak) / (strong + weak + kEpsilon);
        out[x + 2 * kTileWidth] = std::abs(skew) / (std::abs(across) + std::abs(skew) + kEpsilon * kEpsilon);
        out[x + 3 * kTileWidth] = std::abs(gxx + gyy) * scale;
        out[x + 4 * kTileWidth] = std::sqrt(bends[x]) * scale;
        out[x + 5 * kTileWidth] = mid[x];
        out[x + 6 * kTileWidth] = std::sqrt(gx * gx + gy * gy) * scale;
        out[x + 7 * kTileWidth] = std::sqrt(wide[x]);
        out[x + 8 * kTileWidth] = std::abs(along) * scale;
        turn[x] = (b < 0.0f ? 1 : 0) + (across < 0.0f ? 2 : 0);
    }
}

// The leaf of every sample of a row. Samples walk in groups, so that their memory latencies overlap.
void leavesOfRow(const FilterBank& bank, const RowFeatures& features, int width,
                 std::array<std::uint32_t, kTileWidth>& leaves)
{
    constexpr int kGroup = 8;
    const FilterBank::Node* const nodes = bank.nodes.data();
    const float* const values = features.of[0].data();
    for (int x = 0; x < width; x += kGroup) {
        std::array<std::uint32_t, kGroup> at{};
        for (int step = 0; step < bank.depth; ++step)
            for (std::size_t i = 0; i < kGroup; ++i) {
                const FilterBank::Node& node = nodes[at[i]];
                const float value = values[node.feature * kTileWidth + static_cast<std::size_t>(x) + i];
                at[i] = node.below + (value >= node.threshold ? 1u : 0u);
            }
        for (std::size_t i = 0; i < kGroup; ++i)
            leaves[static_cast<std::size_t>(x) + i] = bank.leafOfNode[at[i]];
    }
}

// The positions in the picture of the taps and of the four results of the standard orientation, for each turn.
struct Turns
{
    std::array<std::array<std::ptrdiff_t, kTaps>, 4> taps; // from the middle, in pixels of a tile
    std::array<std::array<std::size_t, kPhases>, 4> phases;
};

constexpr Turns makeTurns()
{
    Turns turns{};
    // Reverses the turn: the axes first.
    const auto unturned = [](int turn, int& y, int& x) {
        if ((turn & 2) != 0) {
            const int kept = y;
            y = x;
            x = kept;
        }
        if ((turn & 1) != 0)
            x = -x;
    };
    for (int turn = 0; turn < 4; ++turn) {
        std::size_t tap = 0;
        for (int i = -kFilterRadius; i <= kFilterRadius; ++i)
            for (int j = -kFilterRadius; j <= kFilterRadius; ++j) {
                if (i == 0 && j == 0)
                    continue;
                int y = i;
                int x = j;
                unturned(turn, y, x);
                turns.taps[static_cast<std::size_t>(turn)][tap++] = static_cast<std::ptrdiff_t>(y) * kStride + x;
            }
        for (int phase = 0; phase < kPhases; ++phase) {
            int y = phase / 2 * 2 - 1;
            int x = phase % 2 * 2 - 1;
            unturned(turn, y, x);
            turns.phases[static_cast<std::size_t>(turn)][static_cast<std::size_t>(phase)] =
                static_cast<std::size_t>((y + 1) / 2 * 2 + (x + 1) / 2);
        }
    }
    return turns;
}

constexpr Turns kTurns = makeTurns();

// The four pixels that the pixel at `middle` becomes, in the order of the picture.
ORVO_INLINE void filterPixel(const Vec4* middle, const float* filters, std::size_t turn, Vec4* result)
{
    const Vec4 centre = *middle;
    Vec4 sums[kPhases] = {};
    const std::ptrdiff_t* const taps = kTurns.taps[turn].data();
    for (int i = 0; i < kTaps; ++i) {
        const Vec4 difference = middle[taps[i]] - centre;
        for (int phase = 0; phase < kPhases; ++phase)
            sums[phase] += filters[kPhases * i + phase] * difference;
    }
    Vec4 low = centre;
    Vec4 high = centre;
    for (int y = -1; y <= 1; ++y)
        for (int x = -1; x <= 1; ++x) {
            const Vec4 v = middle[y * kStride + x];
            low = lower(low, v);
            high = higher(high, v);
        }
    const Vec4 slack = kBeyondRange * (high - low);
    low -= slack;
    high += slack;
    for (std::size_t phase = 0; phase < kPhases; ++phase)
        result[kTurns.phases[turn][phase]] = lower(higher(centre + sums[phase], low), high);
}

ORVO_VECTOR_CLONES void filterRow(const Vec4* pixels, const float* filters, const std::uint32_t* leaves,
                                  const std::int32_t* turns, int width, PixelRGB<float>* upper, PixelRGB<float>* under)
{
    for (int x = 0; x < width; ++x) {
        Vec4 result[kPhases];
        filterPixel(pixels + x, filters + std::size_t{leaves[x]} * kTaps * kPhases, static_cast<std::size_t>(turns[x]),
                    result);
        upper[2 * x] = {result[0][0], result[0][1], result[0][2]};
        upper[2 * x + 1] = {result[1][0], result[1][1], result[1][2]};
        under[2 * x] = {result[2][0], result[2][1], result[2][2]};
        under[2 * x + 1] = {result[3][0], result[3][1], result[3][2]};
    }
}

void doubleTile(const _ImageData<PixelRGB<float>>& source, const FilterBank& bank, const std::vector<float>& filters,
                int left, int top, _ImageData<PixelRGB<float>>& target)
{
    Tile tile;
    tile.width = std::min(kTileWidth, source.width() - left);
    tile.height = std::min(kTileHeight, source.height() - top);
    loadTile(source, left, top, tile);
    measureStructure(tile);
    RowFeatures features{}; // initialised completely, because leaves are found in groups
    std::array<std::uint32_t, kTileWidth> leaves;
    for (int y = 0; y < tile.height; ++y) {
        featuresOfRow(tile, y, features);
        leavesOfRow(bank, features, tile.width, leaves);
        filterRow(tile.pixels + static_cast<std::ptrdiff_t>(y) * kStride, filters.data(), leaves.data(),
                  features.turn.data(), tile.width, target.row(2 * (top + y)) + 2 * left,
                  target.row(2 * (top + y) + 1) + 2 * left);
    }
}

} // namespace

bool doubleByFilters(const _ImageData<PixelRGB<float>>& source, const FilterBank& bank, float sharpness,
                     _ImageData<PixelRGB<float>>& target, const RunControl& run)
{
    const std::vector<float> filters = bank.filtersFor(sharpness);
    const int across = (source.width() + kTileWidth - 1) / kTileWidth;
    const int down = (source.height() + kTileHeight - 1) / kTileHeight;
    std::atomic<bool> stopped = false;
    LoopProgress progress(run, across * down);
    forEachRow(across * down, [&](int index) {
        if (run.cancelled()) {
            stopped.store(true, std::memory_order_relaxed);
            return;
        }
        doubleTile(source, bank, filters, index % across * kTileWidth, index / across * kTileHeight, target);
        progress.pieceDone();
    });
    return !stopped;
}

} // namespace orvo::details
