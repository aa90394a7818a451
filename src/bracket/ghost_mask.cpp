#include "bracket/ghost_mask.hpp"

#include <orvo_core/detail/vector_code.hpp>
#include <orvo_core/parallel.hpp>

#include <algorithm>
#include <array>
#include <cstring>
#include <limits>
#include <tuple>

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

constexpr int stepOf(float value) { return static_cast<int>(value * kSteps); }
constexpr float valueOf(int level) { return static_cast<float>(level) / kSteps; }

constexpr bool levelsAreTheirOwnSteps()
{
    for (int level = 0; level <= kMostLevel; ++level)
        if (stepOf(valueOf(level)) != level)
            return false;
    return true;
}
static_assert(levelsAreTheirOwnSteps(), "a level stays what it is when its value is held to steps again");

int mirrored(int index, int count)
{
    const int period = 2 * count;
    const int within = (index % period + period) % period;
    return within < count ? within : period - 1 - within;
}

// A triangle of `radius` is two boxes in a row. Sums of levels are exact: 16 bits hold those along one axis.
using Word = std::uint16_t;
using Sum = std::uint32_t;
static_assert((kRadius + 1) * (kRadius + 1) * kMostLevel <= std::numeric_limits<Word>::max());

using Words = std::array<Word, kWide>;
using Sums = std::array<Sum, kWide>;

// Sums of kRadius + 1 neighbours from each place on.
ORVO_INLINE void addNeighbours(const Word* __restrict in, Word* __restrict out, int count)
{
    static_assert(kRadius + 1 == 8 + 2 + 1);
    Words two;
    Words four;
    for (int x = 0; x < count + 8; ++x)
        two[static_cast<std::size_t>(x)] = static_cast<Word>(in[x] + in[x + 1]);
    for (int x = 0; x < count + 4; ++x)
        four[static_cast<std::size_t>(x)] =
            static_cast<Word>(two[static_cast<std::size_t>(x)] + two[static_cast<std::size_t>(x + 2)]);
    for (int x = 0; x < count; ++x)
        out[x] = static_cast<Word>(four[static_cast<std::size_t>(x)] + four[static_cast<std::size_t>(x + 4)] +
                                   two[static_cast<std::size_t>(x + 8)] + in[x + 10]);
}

// `in` begins `radius` places before the first result.
ORVO_VECTOR_CLONES void sumAcross(const std::uint8_t* in, Word* out, int radius, int count)
{
    Words values;
    Words box;
    for (int x = 0; x < count + 2 * radius; ++x)
        values[static_cast<std::size_t>(x)] = in[x];
    if (radius == kRadius) {
        addNeighbours(values.data(), box.data(), count + kRadius);
        addNeighbours(box.data(), out, count);
        return;
    }
    for (const auto& [from, to, length] : // narrower than the radius
         {std::tuple(values.data(), box.data(), count + radius), std::tuple(box.data(), out, count)})
        for (int x = 0; x < length; ++x) {
            int sum = 0;
            for (int k = 0; k <= radius; ++k)
                sum += from[x + k];
            to[x] = static_cast<Word>(sum);
        }
}

// The same down the columns as running sums, over lines and then over the boxes.
ORVO_VECTOR_CLONES void advance(Sum* __restrict box, Sum* __restrict sum, const Word* __restrict entering,
                                const Word* __restrict leaving, const Sum* __restrict leavingBox,
                                Sum* __restrict newBox, int count)
{
    for (int x = 0; x < count; ++x) {
        box[x] += static_cast<Sum>(entering[x]) - static_cast<Sum>(leaving[x]);
        sum[x] += box[x] - leavingBox[x];
        newBox[x] = box[x];
    }
}

// Sum of the weights of a triangle.
constexpr int weightOfTriangle(int radius) { return (radius + 1) * (radius + 1); }

// Levels of blurred pixels from their sums, of `whole` weights. The values of the mask are floats, so a value just at a
// level may be rounded below it: `unsure` is 1 there. All other values are further from the next level than the four
// roundings of a value together, 2^-22 of it. Whether there are any.
ORVO_VECTOR_CLONES bool levelsOf(const Sum* __restrict sums, int whole, std::uint8_t* __restrict levels,
                                 std::uint8_t* __restrict unsure, int count)
{
    static_assert(kMostLevel * weightOfTriangle(kRadius) * weightOfTriangle(kRadius) < 1 << 22);
    const float inverse = 1.0f / static_cast<float>(whole);
    int any = 0;
    for (int x = 0; x < count; ++x) {
        const int sum = static_cast<int>(sums[x]);
        const int guess = static_cast<int>(static_cast<float>(sum) * inverse);
        const int beyond = sum - guess * whole;
        const int level = guess + (beyond >= whole ? 1 : 0) - (beyond < 0 ? 1 : 0);
        const int isJust = (sum == level * whole ? 1 : 0) & (level != 0 ? 1 : 0) & (level != kMostLevel ? 1 : 0);
        any |= isJust;
        levels[x] = static_cast<std::uint8_t>(level);
        unsure[x] = static_cast<std::uint8_t>(isJust);
    }
    return any != 0;
}

ORVO_VECTOR_CLONES bool isAnyUsed(const std::uint8_t* levels, int count)
{
    int used = 0;
    for (int x = 0; x < count; ++x)
        used |= levels[x];
    return used != 0;
}

// Marks at full strength above the levels. All of the result or'ed.
ORVO_VECTOR_CLONES std::uint8_t addMarks(const std::uint8_t* __restrict levels, const std::uint8_t* __restrict marks,
                                         std::uint8_t* __restrict out, int count)
{
    int used = 0;
    for (int x = 0; x < count; ++x) {
        out[x] = marks[x] != 0 ? std::uint8_t{kMostLevel} : levels[x];
        used |= out[x];
    }
    return static_cast<std::uint8_t>(used);
}

// The level of one blurred pixel with the roundings of its values. `line(i)`: line `i` under the triangle, from its
// first column on. Sums of floats within this range are exact in double.
template <typename LineOf>
std::uint8_t levelInFloats(const LineOf& line, int across, int down)
{
    static const auto kValues = [] {
        std::array<double, kMostLevel + 1> table{};
        for (int level = 0; level <= kMostLevel; ++level)
            table[static_cast<std::size_t>(level)] = static_cast<double>(valueOf(level));
        return table;
    }();
    const auto weightAt = [](int i, int radius) { return static_cast<double>(std::min(i, 2 * radius - i) + 1); };
    std::array<double, 2 * kRadius + 1> sums{};
    for (int i = 0; i <= 2 * down; ++i) {
        const std::uint8_t* const levels = line(i);
        for (int x = 0; x <= 2 * across; ++x)
            sums[static_cast<std::size_t>(x)] += weightAt(i, down) * kValues[levels[x]];
    }
    double sum = 0.0;
    for (int x = 0; x <= 2 * across; ++x)
        sum +=
            weightAt(x, across) *
            static_cast<double>(static_cast<float>(sums[static_cast<std::size_t>(x)] * (1.0 / weightOfTriangle(down))));
    return static_cast<std::uint8_t>(stepOf(static_cast<float>(sum * (1.0 / weightOfTriangle(across)))));
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
    // Line `i` is that of row top - down + i; box `i` is the sum of down + 1 of them from line `i` on.
    const ManagedPlane<std::uint8_t> around(static_cast<std::size_t>(kWide) * kWide);
    const ManagedPlane<Word> words(static_cast<std::size_t>(kWide) * kTile);
    const ManagedPlane<Sum> boxes(static_cast<std::size_t>(kWide) * kTile);
    const auto aroundAt = [&](int i) { return around.data() + static_cast<std::ptrdiff_t>(i) * kWide; };
    const auto wordsAt = [&](int i) { return words.data() + static_cast<std::ptrdiff_t>(i) * kTile; };
    const auto boxesAt = [&](int i) { return boxes.data() + static_cast<std::ptrdiff_t>(i) * kTile; };
    bool any = false;
    for (int i = 0; i < lines + 2 * down; ++i) {
        const std::uint8_t* const in = from + offset(mirrored(top - down + i, height));
        std::uint8_t* const line = aroundAt(i);
        if (left >= across && left + columns + across <= width)
            std::memcpy(line, in + left - across, static_cast<std::size_t>(wide));
        else
            for (int x = 0; x < wide; ++x)
                line[x] = in[source[static_cast<std::size_t>(x)]];
        any = any || isAnyUsed(line, wide);
    }
    if (!any) { // the levels of its neighbours do not reach it
        clearTile(column, row, to);
        result.used[result.at(column, row)] = 0;
        return;
    }
    for (int i = 0; i < lines + 2 * down; ++i)
        sumAcross(aroundAt(i), wordsAt(i), across, columns);

    const std::array<std::uint8_t, kTile> unmarked{};
    const Words nothing{};
    const Sums none{};
    Sums box{};
    Sums sum{};
    for (int i = 0; i < down; ++i)
        for (int x = 0; x < columns; ++x)
            box[static_cast<std::size_t>(x)] += wordsAt(i)[x];
    std::uint8_t used = 0;
    std::array<std::uint8_t, kTile> levels;
    std::array<std::uint8_t, kTile> unsure;
    for (int i = 0; i < lines + down; ++i) {
        advance(box.data(), sum.data(), wordsAt(i + down), i > 0 ? wordsAt(i - 1) : nothing.data(),
                i > down ? boxesAt(i - down - 1) : none.data(), boxesAt(i), columns);
        const int y = top + i - down;
        if (y < top)
            continue;
        if (levelsOf(sum.data(), weightOfTriangle(across) * weightOfTriangle(down), levels.data(), unsure.data(),
                     columns))
            for (int x = 0; x < columns; ++x)
                if (unsure[static_cast<std::size_t>(x)] != 0)
                    levels[static_cast<std::size_t>(x)] =
                        levelInFloats([&](int k) { return aroundAt(y - top + k) + x; }, across, down);
        std::uint8_t* const out = to + offset(y) + left;
        const std::uint8_t* const mark = isLast ? unmarked.data() : marks(y) + left;
        used = static_cast<std::uint8_t>(used | addMarks(levels.data(), mark, out, columns));
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
