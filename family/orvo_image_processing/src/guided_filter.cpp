#include "block_grid.hpp"

#include <orvo_common/memory_manager.hpp>
#include <orvo_core/detail/vector_code.hpp>
#include <orvo_core/parallel.hpp>
#include <orvo_image_processing/guided_filter.hpp>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <vector>

namespace orvo {

namespace detail {

struct GuidedGrid
{
    BlockAxis columns;
    BlockAxis rows;
    [[nodiscard]] std::size_t count() const
    {
        return static_cast<std::size_t>(columns.count) * static_cast<std::size_t>(rows.count);
    }
};

/// For each pixel column: the block to its left, and the share of the one to its right.
struct GuidedColumn
{
    int left, right;
    float share;
};

} // namespace detail

namespace {

using detail::BlockAxis;

// A block is a quarter of the radius, as He and Sun propose; blocks above 16 pixels gain nothing more, because the
// reduced planes already take only a percent of the time.
constexpr float kBlocksPerRadius = 4.0f;
constexpr int kLargestBlock = 16;
// Columns processed together: the data of a block row for them (4 running rows, or 18 rows of coefficients) stays in
// the L1 cache. It would have to be a multiple of every block side if blocks could straddle chunks; see chunkWidth().
constexpr int kChunk = 256;
// An eps as good as infinite for any picture, whose third power is still well within the range of a double.
constexpr float kLargestEps = 1e12f;

// Moments, and later coefficients, per block: nine planes one after another.
enum Moment
{
    kR,
    kG,
    kB,
    kRR,
    kRG,
    kRB,
    kGG,
    kGB,
    kBB,
    kMoments
};
// The 3x3 matrix of coefficients is symmetric (it is a function of the covariance): six coefficients, three offsets.
enum Coefficient
{
    kArr,
    kArg,
    kArb,
    kAgg,
    kAgb,
    kAbb,
    kOr,
    kOg,
    kOb,
    kCoefficients
};
static_assert(static_cast<int>(kMoments) == static_cast<int>(kCoefficients), "coefficients replace the moments");
constexpr int kPlanes = kMoments;

/// Chunks of whole blocks, for the moments.
int chunkWidth(int side) { return kChunk / side * side; }

// ---- moments of blocks ----

/// Sums down the rows of one chunk, separate for each sample of a row: value, square, product with the next sample and
/// with the one after it. Only the products within a pixel are used; computing the others costs less than separating
/// the channels.
struct ColumnSums
{
    alignas(64) float value[3 * kChunk];
    alignas(64) float square[3 * kChunk];
    alignas(64) float next[3 * kChunk];
    alignas(64) float afterNext[3 * kChunk];
};

/// Two rows at a time halve the memory traffic of the sums.
ORVO_VECTOR_CLONES void addTwoRows(ColumnSums& sums, const float* a, const float* b, int samples)
{
    const int products = samples - 2; // the last pixel's products are computed outside the loop
    for (int i = 0; i < products; ++i) {
        sums.value[i] += a[i] + b[i];
        sums.square[i] += a[i] * a[i] + b[i] * b[i];
        sums.next[i] += a[i] * a[i + 1] + b[i] * b[i + 1];
        sums.afterNext[i] += a[i] * a[i + 2] + b[i] * b[i + 2];
    }
    for (int i = products; i < samples; ++i) {
        sums.value[i] += a[i] + b[i];
        sums.square[i] += a[i] * a[i] + b[i] * b[i];
        sums.next[i] += i + 1 < samples ? a[i] * a[i + 1] + b[i] * b[i + 1] : 0.0f;
    }
}

ORVO_VECTOR_CLONES void addOneRow(ColumnSums& sums, const float* a, int samples)
{
    for (int i = 0; i < samples; ++i) {
        sums.value[i] += a[i];
        sums.square[i] += a[i] * a[i];
        sums.next[i] += i + 1 < samples ? a[i] * a[i + 1] : 0.0f;
        sums.afterNext[i] += i + 2 < samples ? a[i] * a[i + 2] : 0.0f;
    }
}

/// The moments of one block from pixels first..last-1 of a chunk.
std::array<float, kMoments> blockMoments(const ColumnSums& sums, int first, int last)
{
    std::array<float, kMoments> m{};
    for (int i = 3 * first; i < 3 * last; i += 3) {
        m[kR] += sums.value[i];
        m[kG] += sums.value[i + 1];
        m[kB] += sums.value[i + 2];
        m[kRR] += sums.square[i];
        m[kGG] += sums.square[i + 1];
        m[kBB] += sums.square[i + 2];
        m[kRG] += sums.next[i];
        m[kGB] += sums.next[i + 1];
        m[kRB] += sums.afterNext[i];
    }
    // One bad sample would spread over every window of the row: running sums never lose it.
    float total = 0.0f;
    for (const float value : m)
        total += value * 0.0f;
    return total == 0.0f ? m : std::array<float, kMoments>{};
}

using Grid = detail::GuidedGrid;

/// `source`: the first row of the block row.
void momentsOfBlockRow(const float* source, const Grid& grid, int blockRow, float* planes)
{
    const auto stride = 3 * static_cast<std::size_t>(grid.columns.size);
    const int side = grid.columns.side;
    const int width = chunkWidth(side);
    ColumnSums sums;
    for (int x = 0; x < grid.columns.size; x += width) {
        const int pixels = std::min(width, grid.columns.size - x);
        const std::size_t bytes = 3 * static_cast<std::size_t>(pixels) * sizeof(float);
        for (float* const row : {sums.value, sums.square, sums.next, sums.afterNext})
            std::memset(row, 0, bytes);
        const int last = grid.rows.last(blockRow) - grid.rows.first(blockRow);
        int y = 0;
        const auto at = [&](int row) {
            return source + static_cast<std::size_t>(row) * stride + 3 * static_cast<std::size_t>(x);
        };
        for (; y + 2 <= last; y += 2)
            addTwoRows(sums, at(y), at(y + 1), 3 * pixels);
        if (y < last)
            addOneRow(sums, at(y), 3 * pixels);
        float* out = planes + static_cast<std::size_t>(blockRow) * static_cast<std::size_t>(grid.columns.count) +
                     static_cast<std::size_t>(x / side);
        for (int first = 0; first < pixels; first += side, ++out) {
            const auto moments = blockMoments(sums, first, std::min(first + side, pixels));
            for (std::size_t k = 0; k < kPlanes; ++k)
                out[k * grid.count()] = moments[k];
        }
    }
}

// ---- coefficients of windows ----

/// Converts the mean moments of one window into the coefficients of q = A p + o, A = (S + eps)^-1 S, o = (1 - A) mean.
/// In double: the determinant of a nearly grey covariance is a small difference of large products.
void solveWindow(float* m, std::size_t step, double eps)
{
    const auto get = [&](Moment k) { return static_cast<double>(m[static_cast<std::size_t>(k) * step]); };
    const double r = get(kR);
    const double g = get(kG);
    const double b = get(kB);
    const double rr = std::max(0.0, get(kRR) - r * r);
    const double gg = std::max(0.0, get(kGG) - g * g);
    const double bb = std::max(0.0, get(kBB) - b * b);
    const double rg = get(kRG) - r * g;
    const double rb = get(kRB) - r * b;
    const double gb = get(kGB) - g * b;
    const double er = rr + eps;
    const double eg = gg + eps;
    const double eb = bb + eps;
    // Cofactors of S + eps.
    const double irr = eg * eb - gb * gb;
    const double irg = rb * gb - rg * eb;
    const double irb = rg * gb - rb * eg;
    const double igg = er * eb - rb * rb;
    const double igb = rg * rb - er * gb;
    const double ibb = er * eg - rg * rg;
    const double determinant = er * irr + rg * irg + rb * irb;
    const double inverse = determinant > 0.0 && std::isfinite(determinant) ? 1.0 / determinant : 0.0;
    const double arr = (irr * rr + irg * rg + irb * rb) * inverse;
    const double arg = (irr * rg + irg * gg + irb * gb) * inverse;
    const double arb = (irr * rb + irg * gb + irb * bb) * inverse;
    const double agg = (irg * rg + igg * gg + igb * gb) * inverse;
    const double agb = (irg * rb + igg * gb + igb * bb) * inverse;
    const double abb = (irb * rb + igb * gb + ibb * bb) * inverse;
    const double values[kCoefficients] = {arr,
                                          arg,
                                          arb,
                                          agg,
                                          agb,
                                          abb,
                                          r - (arr * r + arg * g + arb * b),
                                          g - (arg * r + agg * g + agb * b),
                                          b - (arb * r + agb * g + abb * b)};
    for (std::size_t k = 0; k < kPlanes; ++k)
        m[k * step] = static_cast<float>(values[k]);
}

// ---- application ----

/// Coefficients of one chunk of pixels at the upper block centre, and their change down to the lower one.
struct CoefficientRows
{
    alignas(64) float upper[kPlanes][kChunk];
    alignas(64) float change[kPlanes][kChunk];
};

using ColumnPlace = detail::GuidedColumn;

std::vector<ColumnPlace, ManagedAllocator<ColumnPlace>> placesOf(const BlockAxis& axis)
{
    std::vector<ColumnPlace, ManagedAllocator<ColumnPlace>> places(static_cast<std::size_t>(axis.size));
    for (int x = 0; x < axis.size; ++x) {
        const int after = axis.centresUpTo(x);
        ColumnPlace& place = places[static_cast<std::size_t>(x)];
        place.left = std::max(0, after - 1);
        place.right = std::min(after, axis.count - 1);
        place.share = place.left == place.right ? 0.0f
                                                : (static_cast<float>(x) - axis.centre(place.left)) /
                                                      (axis.centre(place.right) - axis.centre(place.left));
    }
    return places;
}

ORVO_VECTOR_CLONES void spread(float* __restrict upper, float* __restrict change, const float* __restrict above,
                               const float* __restrict below, const ColumnPlace* __restrict places, int pixels)
{
    for (int x = 0; x < pixels; ++x) {
        const ColumnPlace p = places[x];
        const float u = above[p.left] + p.share * (above[p.right] - above[p.left]);
        const float l = below[p.left] + p.share * (below[p.right] - below[p.left]);
        upper[x] = u;
        change[x] = l - u;
    }
}

ORVO_VECTOR_CLONES void applyRow(const CoefficientRows& c, float down, const float* __restrict in,
                                 float* __restrict out, int pixels)
{
    for (int x = 0; x < pixels; ++x) {
        const float r = in[3 * x];
        const float g = in[3 * x + 1];
        const float b = in[3 * x + 2];
        const float arg = c.upper[kArg][x] + down * c.change[kArg][x];
        const float arb = c.upper[kArb][x] + down * c.change[kArb][x];
        const float agb = c.upper[kAgb][x] + down * c.change[kAgb][x];
        out[3 * x] = (c.upper[kArr][x] + down * c.change[kArr][x]) * r + arg * g + arb * b +
                     (c.upper[kOr][x] + down * c.change[kOr][x]);
        out[3 * x + 1] = arg * r + (c.upper[kAgg][x] + down * c.change[kAgg][x]) * g + agb * b +
                         (c.upper[kOg][x] + down * c.change[kOg][x]);
        out[3 * x + 2] = arb * r + agb * g + (c.upper[kAbb][x] + down * c.change[kAbb][x]) * b +
                         (c.upper[kOb][x] + down * c.change[kOb][x]);
    }
}

Grid gridOf(int width, int height, float reach)
{
    const int side = std::clamp(static_cast<int>(reach / kBlocksPerRadius), 1, kLargestBlock);
    return {BlockAxis(width, side), BlockAxis(height, side)};
}

float reachOf(int width, int height, float radius)
{
    return std::floor(std::min(radius, static_cast<float>(std::max(width, height))));
}

} // namespace

struct GuidedFilter::State
{
    State(int width, int height, float radius, float eps_)
        : reach(reachOf(width, height, radius)), eps(static_cast<double>(std::min(eps_, kLargestEps))),
          grid(gridOf(width, height, reach)), planes(grid.count() * kPlanes)
    {}

    float reach;
    double eps;
    Grid grid;
    ManagedPlane<float> planes; // moments, then coefficients
    std::vector<ColumnPlace, ManagedAllocator<ColumnPlace>> places;
};

GuidedFilter::GuidedFilter(int width, int height, float radius, float eps)
    : state(std::make_unique<State>(width, height, radius, eps))
{}

GuidedFilter::~GuidedFilter() = default;

int GuidedFilter::blockRows() const { return state->grid.rows.count; }
int GuidedFilter::firstRow(int blockRow) const { return state->grid.rows.first(blockRow); }
int GuidedFilter::endRow(int blockRow) const { return state->grid.rows.last(blockRow); }

void GuidedFilter::measure(int blockRow, const PixelRGB<float>* rows)
{
    momentsOfBlockRow(&rows->r, state->grid, blockRow, state->planes.data());
}

void GuidedFilter::measureLike(int blockRow, const GuidedFilter& other)
{
    const Grid& grid = state->grid;
    const auto columns = static_cast<std::size_t>(grid.columns.count);
    for (std::size_t k = 0; k < kPlanes; ++k) {
        const std::size_t offset = k * grid.count() + static_cast<std::size_t>(blockRow) * columns;
        std::memcpy(state->planes.data() + offset, other.state->planes.data() + offset, columns * sizeof(float));
    }
}

void GuidedFilter::solve()
{
    const Grid& grid = state->grid;
    float* const planes = state->planes.data();
    detail::meansOfWindows(planes, kPlanes, grid.columns, grid.rows, state->reach);
    forEachRange(grid.count(), [&](std::size_t first, std::size_t last) {
        for (std::size_t i = first; i < last; ++i)
            solveWindow(planes + i, grid.count(), state->eps);
    });
    // The means of the windows that cover a pixel: again sums over blocks, weighted by the pixels of each block.
    const auto weighRow = [&](int y) {
        const auto tall =
            static_cast<float>(grid.rows.last(y % grid.rows.count) - grid.rows.first(y % grid.rows.count));
        float* const row = planes + static_cast<std::size_t>(y) * static_cast<std::size_t>(grid.columns.count);
        for (int x = 0; x < grid.columns.count; ++x)
            row[x] *= tall * static_cast<float>(grid.columns.last(x) - grid.columns.first(x));
    };
    forEachRow(kPlanes * grid.rows.count, weighRow);
    detail::meansOfWindows(planes, kPlanes, grid.columns, grid.rows, state->reach);
    state->places = placesOf(grid.columns);
}

int GuidedFilter::influence() const
{
    // The window of a coefficient, those that are averaged, and the blocks between which a pixel lies.
    return 2 * static_cast<int>(state->reach) + 3 * state->grid.columns.side;
}

int GuidedFilter::tileColumns() const { return (state->grid.columns.size + kChunk - 1) / kChunk; }
int GuidedFilter::tileRows() const { return state->grid.rows.count + 1; }

_Rect<int> GuidedFilter::tile(int column, int row) const
{
    // Row 0 is above the first block centre, row k between centres k - 1 and k, the last below the last centre.
    const BlockAxis& rows = state->grid.rows;
    const auto top = [&](int k) { return k == 0 ? 0 : static_cast<int>(std::ceil(rows.centre(k - 1))); };
    const int first = top(row);
    const int last = row == rows.count ? rows.size : top(row + 1);
    const int x = column * kChunk;
    return {x, first, std::min(kChunk, state->grid.columns.size - x), last - first};
}

void GuidedFilter::apply(int column, int row, const PixelRGB<float>* source, PixelRGB<float>* target,
                         std::size_t sourceStride, std::size_t targetStride) const
{
    const Grid& grid = state->grid;
    const _Rect<int> area = tile(column, row);
    if (area.height <= 0)
        return;
    const int above = std::max(0, row - 1);
    const int below = std::min(row, grid.rows.count - 1);
    const float distance = grid.rows.centre(below) - grid.rows.centre(above);
    const auto blocks = static_cast<std::size_t>(grid.columns.count);
    CoefficientRows rows;
    for (std::size_t k = 0; k < kPlanes; ++k) {
        const float* const plane = state->planes.data() + k * grid.count();
        spread(rows.upper[k], rows.change[k], plane + static_cast<std::size_t>(above) * blocks,
               plane + static_cast<std::size_t>(below) * blocks, state->places.data() + area.x, area.width);
    }
    for (int i = 0; i < area.height; ++i) {
        const float down =
            distance > 0.0f ? (static_cast<float>(area.y + i) - grid.rows.centre(above)) / distance : 0.0f;
        const auto y = static_cast<std::size_t>(i);
        applyRow(rows, down, &source[y * sourceStride].r, &target[y * targetStride].r, area.width);
    }
}

void grfx_guided_filter_rgb_fast(const PixelRGB<float>* source, PixelRGB<float>* target, int width, int height,
                                 float radius, float eps)
{
    if (width <= 0 || height <= 0)
        return;
    const auto stride = static_cast<std::size_t>(width);
    const std::size_t count = stride * static_cast<std::size_t>(height);
    if (!(radius >= 1.0f) || !(eps > 0.0f)) {
        forEachRange(count, [&](std::size_t first, std::size_t last) {
            std::memcpy(target + first, source + first, (last - first) * sizeof(PixelRGB<float>));
        });
        return;
    }
    GuidedFilter filter(width, height, radius, eps);
    forEachRow(filter.blockRows(),
               [&](int row) { filter.measure(row, source + static_cast<std::size_t>(filter.firstRow(row)) * stride); });
    filter.solve();
    forEachRow(filter.tileRows(), [&](int row) {
        for (int column = 0; column < filter.tileColumns(); ++column) {
            const _Rect<int> area = filter.tile(column, row);
            const std::size_t offset = static_cast<std::size_t>(area.y) * stride + static_cast<std::size_t>(area.x);
            filter.apply(column, row, source + offset, target + offset, stride, stride);
        }
    });
}

} // namespace orvo
