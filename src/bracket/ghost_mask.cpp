#include "bracket/ghost_mask.hpp"

#include <orvo_core/detail/vector_code.hpp>
#include <orvo_core/parallel.hpp>

#include <algorithm>
#include <array>
#include <cstring>

namespace orvo {
namespace {

constexpr int kRadius = 10;
constexpr int kBlurs = 26; // the first of the marks alone

constexpr int kTile = GhostMask::kTile;
constexpr int kRim = kRadius;
constexpr int kWide = kTile + 2 * kRim;
static_assert(kTile > kRim, "marks reach only the neighbouring tiles within one blur");

constexpr float kSteps = 255.0f; // the mask is held to 8-bit steps
constexpr int kMostLevel = 255;

// The mask is a little stronger than grown, so that its inner slope is solid.
constexpr float kGain = 1.2f;

// A blur of pictures narrower than an eighth of the radius is limited as in grfx_fast_blur_gray().
constexpr int kFlatSides = 8;

int stepOf(float value) { return static_cast<int>(value * kSteps); }
float valueOf(int level) { return static_cast<float>(level) / kSteps; }

int mirrored(int index, int count)
{
    const int period = 2 * count;
    const int within = (index % period + period) % period;
    return within < count ? within : period - 1 - within;
}

template <typename Value>
std::array<Value, kMostLevel + 1> tableOf(Value (*value)(int))
{
    std::array<Value, kMostLevel + 1> table{};
    for (int level = 0; level <= kMostLevel; ++level)
        table[static_cast<std::size_t>(level)] = value(level);
    return table;
}

using Line = std::array<double, kWide>;

// Sums of `length` neighbours from each place on. With a constant length the loop over the places vectorises.
ORVO_INLINE void addNeighbours(const double* __restrict in, double* __restrict out, int length, int count)
{
    for (int x = 0; x < count; ++x) {
        double sum = 0.0;
        for (int k = 0; k < length; ++k)
            sum += in[x + k];
        out[x] = sum;
    }
}

// A triangle of `radius` is two boxes in a row. `in` begins `radius` places before the first result.
ORVO_VECTOR_CLONES void blurLine(const float* in, float* out, int radius, double scale, int count)
{
    Line values;
    Line box;
    for (int x = 0; x < count + 2 * radius; ++x)
        values[static_cast<std::size_t>(x)] = static_cast<double>(in[x]);
    if (radius == kRadius) {
        addNeighbours(values.data(), box.data(), kRadius + 1, count + kRadius);
        addNeighbours(box.data(), values.data(), kRadius + 1, count);
    } else { // narrower than the radius
        addNeighbours(values.data(), box.data(), radius + 1, count + radius);
        addNeighbours(box.data(), values.data(), radius + 1, count);
    }
    for (int x = 0; x < count; ++x)
        out[x] = static_cast<float>(values[static_cast<std::size_t>(x)] * scale);
}

// The same down the columns as running sums, over lines and then over the boxes.
ORVO_VECTOR_CLONES void advance(double* __restrict box, double* __restrict sum, const float* __restrict entering,
                                const float* __restrict leaving, const double* __restrict leavingBox,
                                double* __restrict newBox, int count)
{
    for (int x = 0; x < count; ++x) {
        box[x] += static_cast<double>(entering[x]) - static_cast<double>(leaving[x]);
        sum[x] += box[x] - leavingBox[x];
        newBox[x] = box[x];
    }
}

double scaleOf(int radius) { return 1.0 / (static_cast<double>(radius + 1) * static_cast<double>(radius + 1)); }

ORVO_VECTOR_CLONES void scaleLine(const double* sum, float* out, double scale, int count)
{
    for (int x = 0; x < count; ++x)
        out[x] = static_cast<float>(sum[x] * scale);
}

} // namespace

GhostMask::GhostMask(int width_, int height_)
    : width(width_), height(height_),
      marked(static_cast<std::size_t>(width_) * static_cast<std::size_t>(height_), true),
      state(static_cast<std::size_t>(width_) * static_cast<std::size_t>(height_)), tiles{(width_ + kTile - 1) / kTile,
                                                                                         (height_ + kTile - 1) / kTile,
                                                                                         {}}
{
    tiles.used.resize(static_cast<std::size_t>(tiles.columns) * static_cast<std::size_t>(tiles.rows));
}

bool GhostMask::Tiles::usedNear(int column, int row) const
{
    for (int y = std::max(0, row - 1); y <= std::min(rows - 1, row + 1); ++y)
        for (int x = std::max(0, column - 1); x <= std::min(columns - 1, column + 1); ++x)
            if (used[at(x, y)] != 0)
                return true;
    return false;
}

void GhostMask::clearTile(int column, int row, std::uint8_t* plane) const
{
    const int left = column * kTile;
    const auto columns = static_cast<std::size_t>(std::min(kTile, width - left));
    for (int y = row * kTile; y < std::min(height, (row + 1) * kTile); ++y)
        std::memset(plane + offset(y) + left, 0, columns);
}

void GhostMask::growTile(int column, int row, const std::uint8_t* from, std::uint8_t* to, bool isLast,
                         Tiles& result) const
{
    static const auto kValues = tableOf<float>(valueOf);
    static const auto kRounded =
        tableOf<std::uint8_t>([](int level) { return static_cast<std::uint8_t>(stepOf(valueOf(level))); });
    const int left = column * kTile;
    const int top = row * kTile;
    const int columns = std::min(kTile, width - left);
    const int lines = std::min(kTile, height - top);
    const int across = std::min(kRadius, kFlatSides * width);
    const int down = std::min(kRadius, kFlatSides * height);
    const int wide = columns + 2 * across;

    std::array<int, kWide> source{};
    for (int x = 0; x < wide; ++x)
        source[static_cast<std::size_t>(x)] = mirrored(left - across + x, width);
    // Line `i` of the values is that of row top - down + i; box `i` is the sum of down + 1 of them from line `i` on.
    const ManagedPlane<float> values(static_cast<std::size_t>(kWide) * kWide);
    const ManagedPlane<double> boxes(static_cast<std::size_t>(kWide) * kWide);
    const auto valuesAt = [&](int i) { return values.data() + static_cast<std::ptrdiff_t>(i) * kWide; };
    const auto boxesAt = [&](int i) { return boxes.data() + static_cast<std::ptrdiff_t>(i) * kWide; };
    for (int i = 0; i < lines + 2 * down; ++i) {
        const std::uint8_t* const in = from + offset(mirrored(top - down + i, height));
        float* const line = valuesAt(i);
        for (int x = 0; x < wide; ++x)
            line[x] = kValues[in[source[static_cast<std::size_t>(x)]]];
    }

    const std::array<float, kWide> black{};
    const Line none{};
    Line box{};
    Line sum{};
    for (int i = 0; i < down; ++i)
        for (int x = 0; x < wide; ++x)
            box[static_cast<std::size_t>(x)] += static_cast<double>(valuesAt(i)[x]);
    std::uint8_t used = 0;
    std::array<float, kWide> blurredDown;
    std::array<float, kTile> blurred;
    for (int i = 0; i < lines + down; ++i) {
        advance(box.data(), sum.data(), valuesAt(i + down), i > 0 ? valuesAt(i - 1) : black.data(),
                i > down ? boxesAt(i - down - 1) : none.data(), boxesAt(i), wide);
        const int y = top + i - down;
        if (y < top)
            continue;
        scaleLine(sum.data(), blurredDown.data(), scaleOf(down), wide);
        blurLine(blurredDown.data(), blurred.data(), across, scaleOf(across), columns);
        std::uint8_t* const out = to + offset(y) + left;
        const std::uint8_t* const mark = marks(y) + left;
        for (int x = 0; x < columns; ++x) {
            const auto level = static_cast<std::uint8_t>(stepOf(blurred[static_cast<std::size_t>(x)]));
            out[x] = isLast ? level : mark[x] != 0 ? std::uint8_t{kMostLevel} : kRounded[level];
            used = static_cast<std::uint8_t>(used | out[x]);
        }
    }
    result.used[result.at(column, row)] = used != 0 ? 1 : 0;
}

void GhostMask::grow()
{
    const ManagedPlane<std::uint8_t> other(offset(height));
    std::array<std::uint8_t*, 2> planes{state.data(), other.data()};
    std::array<Tiles, 2> used{tiles, tiles};
    const auto forEachTile = [&](const auto& body) {
        forEachRow(tiles.columns * tiles.rows, [&](int i) { body(i % tiles.columns, i / tiles.columns); });
    };
    // The state before the first blur is the marks at full strength.
    forEachTile([&](int column, int row) {
        const int left = column * kTile;
        const int columns = std::min(kTile, width - left);
        std::uint8_t any = 0;
        for (int y = row * kTile; y < std::min(height, (row + 1) * kTile); ++y)
            for (int x = 0; x < columns; ++x) {
                const std::uint8_t level = marks(y)[left + x] != 0 ? kMostLevel : 0;
                planes[0][offset(y) + static_cast<std::size_t>(left + x)] = level;
                any = static_cast<std::uint8_t>(any | level);
            }
        clearTile(column, row, planes[1]);
        used[0].used[used[0].at(column, row)] = any != 0 ? 1 : 0;
    });
    static_assert(kBlurs % 2 == 0, "the last blur writes the member's plane");
    for (int blur = 0; blur < kBlurs; ++blur) {
        const auto from = static_cast<std::size_t>(blur % 2);
        const std::size_t to = 1 - from;
        forEachTile([&](int column, int row) {
            std::uint8_t& before = used[to].used[used[to].at(column, row)];
            if (used[from].usedNear(column, row)) {
                growTile(column, row, planes[from], planes[to], blur + 1 == kBlurs, used[to]);
            } else if (before != 0) {
                clearTile(column, row, planes[to]);
                before = 0;
            }
        });
    }
    tiles = std::move(used[0]);
}

float GhostMask::weightOf(std::uint8_t level) { return std::clamp(valueOf(level) * kGain, 0.0f, 1.0f); }

bool GhostMask::isClear(int y, int first, int& end) const
{
    end = std::min(width, (first / kTile + 1) * kTile);
    return tiles.used[tiles.at(first / kTile, y / kTile)] == 0;
}

} // namespace orvo
