#include "lens/chromatic_fit.hpp"

#include "common/catmull_rom.hpp"

#include <orvo_common/memory_manager.hpp>
#include <orvo_core/parallel.hpp>

#include <algorithm>
#include <array>
#include <cmath>
#include <optional>
#include <utility>

namespace orvo::details {
namespace {

constexpr int kRadius = 10; // of a patch: wide enough for an edge with its surroundings
constexpr int kSide = 2 * kRadius + 1;
constexpr int kSamples = kSide * kSide;
constexpr double kShiftPerHalfDiagonal = 0.0022; // largest shift searched: strong lenses separate by 0.15 percent
constexpr int kLeastSearch = 2;                  // px, in small pictures
constexpr int kMostSearch = 8;                   // px; beyond it an edge is mistaken for its neighbour
constexpr int kCellsAcross = 48;                 // along the longer side: some 1500 patches at most
constexpr int kSmallestCell = 24;                // px, so that patches overlap by half at most
constexpr double kInnermost = 0.15;     // of half the diagonal: nearer to the centre shifts are too small to measure
constexpr float kLeastGradient = 0.03f; // encoded, from pixel to pixel: below it noise exceeds the edge
constexpr float kSaturated = 0.98f;     // encoded; a clipped edge shifts with its brightness, not with its colour
constexpr int kMostSaturated = kSamples / 50;
constexpr double kLeastCorrelation = 0.9; // between the channels; below it the edge is one of colour
constexpr double kShiftNoise = 0.08;      // px, of a good patch besides its own noise: demosaicing, JPEG
constexpr std::size_t kLeastPatches = 16;
constexpr double kLeastCornerShift = 0.12;  // px; less is invisible, so the picture stays unchanged
constexpr double kMostCornerShare = 0.003;  // of half the diagonal; no lens has more
constexpr double kLeastSignificance = 30.0; // of the F statistic; the one-in-a-million limit is near 15
constexpr double kCubicPrior = 0.003;       // expected size of the cubic term; decides where corners are empty

// Measures in encoded values, where noise is about the same in shadows and lights.
struct Reader
{
    explicit Reader(const _ImageData<PixelRGB<float>>& image_)
        : image(image_), linear(image_.colorProfile() && image_.colorProfile()->isLinear())
    {}

    [[nodiscard]] float encoded(float v) const
    {
        const float kept = v > 0.0f ? std::min(v, 1.5f) : 0.0f; // NaN gives 0
        return linear ? std::sqrt(kept) : kept;
    }
    [[nodiscard]] float green(int x, int y) const { return encoded(image.row(y)[x].g); }
    [[nodiscard]] float other(Channel channel, int x, int y) const
    {
        const PixelRGB<float>& p = image.row(y)[x];
        return encoded(channel == Channel::Red ? p.r : p.b);
    }

    const _ImageData<PixelRGB<float>>& image;
    bool linear;
};

struct Centre
{
    explicit Centre(const _Size<int>& size)
        : x((size.width - 1) * 0.5), y((size.height - 1) * 0.5), halfDiagonal(std::hypot(x, y))
    {}
    double x;
    double y;
    double halfDiagonal;
};

int searchRange(double halfDiagonal)
{
    return std::clamp(static_cast<int>(std::ceil(halfDiagonal * kShiftPerHalfDiagonal)), kLeastSearch, kMostSearch);
}

int patchMargin(double halfDiagonal) { return kRadius + searchRange(halfDiagonal) + 3; } // 3: reach of the cubic

// The position of the strongest radial gradient in a cell.
std::optional<EdgePatch> strongestEdge(const Reader& reader, const Centre& centre, const _Rect<int>& cell)
{
    std::optional<EdgePatch> best;
    float bestSlope = kLeastGradient;
    for (int y = cell.y; y < cell.y + cell.height; ++y) {
        for (int x = cell.x; x < cell.x + cell.width; ++x) {
            const double dx = x - centre.x;
            const double dy = y - centre.y;
            const double radius = std::hypot(dx, dy);
            if (radius < kInnermost * centre.halfDiagonal)
                continue;
            const float slopeX = (reader.green(x + 1, y) - reader.green(x - 1, y)) * 0.5f;
            const float slopeY = (reader.green(x, y + 1) - reader.green(x, y - 1)) * 0.5f;
            const float radial = std::abs(static_cast<float>((slopeX * dx + slopeY * dy) / radius));
            if (radial > bestSlope) {
                bestSlope = radial;
                best = EdgePatch{x, y};
            }
        }
    }
    return best;
}

// A patch of green with a margin, and the same patch of the other channel.
class PatchMatcher
{
public:
    PatchMatcher(const Reader& reader, Channel channel, const EdgePatch& patch, double directionX, double directionY,
                 int mostShift)
        : search(mostShift), reach(kRadius + mostShift + 3), side(2 * reach + 1), dirX(directionX), dirY(directionY),
          green(static_cast<std::size_t>(side) * static_cast<std::size_t>(side)), other(kSamples)
    {
        for (int v = -reach; v <= reach; ++v)
            for (int u = -reach; u <= reach; ++u)
                green[place(u, v)] = reader.green(patch.x + u, patch.y + v);
        std::size_t i = 0;
        for (int v = -kRadius; v <= kRadius; ++v)
            for (int u = -kRadius; u <= kRadius; ++u)
                other[i++] = reader.other(channel, patch.x + u, patch.y + v);
    }

    [[nodiscard]] bool saturated() const
    {
        int count = 0;
        std::size_t i = 0;
        for (int v = -kRadius; v <= kRadius; ++v)
            for (int u = -kRadius; u <= kRadius; ++u, ++i)
                count += green[place(u, v)] > kSaturated || other[i] > kSaturated;
        return count > kMostSaturated;
    }

    struct Shift
    {
        double outwards = 0.0; // px
        double variance = 0.0; // px^2
    };

    // Coarse search, then Gauss-Newton on shift, gain and offset (Lucas and Kanade 1981).
    [[nodiscard]] std::optional<Shift> measure() const
    {
        double shift = coarseShift();
        Shift result;
        constexpr int kSteps = 4;
        for (int step = 0; step < kSteps; ++step) {
            const std::optional<Shift> next = refine(shift);
            if (!next)
                return std::nullopt;
            shift = std::clamp(next->outwards, -static_cast<double>(search), static_cast<double>(search));
            result = *next;
        }
        if (std::abs(result.outwards) > search)
            return std::nullopt;
        return result;
    }

private:
    [[nodiscard]] std::size_t place(int u, int v) const
    {
        return static_cast<std::size_t>(v + reach) * static_cast<std::size_t>(side) +
               static_cast<std::size_t>(u + reach);
    }

    // Green shifted `shift` pixels outwards, over the patch and one sample around it.
    void shifted(double shift, std::array<float, kSamples>& values, std::array<float, kSamples>& slopes) const
    {
        const auto sampleAt = [this](double u, double v) {
            const int left = static_cast<int>(std::floor(u));
            const int top = static_cast<int>(std::floor(v));
            const auto wx = catmullRom(static_cast<float>(u - left));
            const auto wy = catmullRom(static_cast<float>(v - top));
            float sum = 0.0f;
            for (int j = 0; j < 4; ++j) {
                const float* row = &green[place(left - 1, top - 1 + j)];
                sum += wy[static_cast<std::size_t>(j)] *
                       (wx[0] * row[0] + wx[1] * row[1] + wx[2] * row[2] + wx[3] * row[3]);
            }
            return sum;
        };
        std::size_t i = 0;
        for (int v = -kRadius; v <= kRadius; ++v) {
            for (int u = -kRadius; u <= kRadius; ++u, ++i) {
                const double x = u - shift * dirX;
                const double y = v - shift * dirY;
                values[i] = sampleAt(x, y);
                slopes[i] = (sampleAt(x + 0.5 * dirX, y + 0.5 * dirY) - sampleAt(x - 0.5 * dirX, y - 0.5 * dirY));
            }
        }
    }

    [[nodiscard]] double coarseShift() const
    {
        double best = -2.0;
        int bestShift = 0;
        for (int shift = -search; shift <= search; ++shift) {
            const int du = static_cast<int>(std::lround(shift * dirX));
            const int dv = static_cast<int>(std::lround(shift * dirY));
            double g = 0.0, c = 0.0, gg = 0.0, cc = 0.0, gc = 0.0;
            std::size_t i = 0;
            for (int v = -kRadius; v <= kRadius; ++v) {
                for (int u = -kRadius; u <= kRadius; ++u, ++i) {
                    const double a = green[place(u - du, v - dv)];
                    const double b = other[i];
                    g += a, c += b, gg += a * a, cc += b * b, gc += a * b;
                }
            }
            const double spread = (gg - g * g / kSamples) * (cc - c * c / kSamples);
            const double correlation = spread > 0.0 ? (gc - g * c / kSamples) / std::sqrt(spread) : -1.0;
            if (correlation > best) {
                best = correlation;
                bestShift = shift;
            }
        }
        return bestShift;
    }

    // One step for other = gain * green(shift) + offset, linear in the change of the shift.
    [[nodiscard]] std::optional<Shift> refine(double shift) const
    {
        std::array<float, kSamples> values{};
        std::array<float, kSamples> slopes{};
        shifted(shift, values, slopes);
        double sv = 0, ss = 0, so = 0, vv = 0, vs = 0, vo = 0, sl = 0, lo = 0, oo = 0;
        for (std::size_t i = 0; i < kSamples; ++i) {
            const double v = values[i], s = slopes[i], o = other[i];
            sv += v, sl += s, so += o, vv += v * v, vs += v * s, ss += s * s, vo += v * o, lo += s * o, oo += o * o;
        }
        constexpr double n = kSamples;
        // Normal equations with the offset eliminated: gain a and product q = -a * change.
        const double cvv = vv - sv * sv / n, cvs = vs - sv * sl / n, css = ss - sl * sl / n;
        const double cvo = vo - sv * so / n, cso = lo - sl * so / n, coo = oo - so * so / n;
        const double determinant = cvv * css - cvs * cvs;
        if (!(determinant > 1e-9 * cvv * css) || !(coo > 0.0))
            return std::nullopt;
        const double a = (cvo * css - cso * cvs) / determinant;
        const double q = (cso * cvv - cvo * cvs) / determinant;
        const double residual = std::max(0.0, coo - a * cvo - q * cso);
        if (!(a > 0.0) || 1.0 - residual / coo < kLeastCorrelation * kLeastCorrelation)
            return std::nullopt;
        const double change = -q / a;
        const double noise = residual / (n - 3.0);
        return Shift{shift + change, noise * cvv / (determinant * a * a)};
    }

    int search;
    int reach;
    int side;
    double dirX;
    double dirY;
    std::vector<float> green;
    std::vector<float> other;
};

struct Measurement
{
    double radius = 0.0; // px
    double shift = 0.0;  // px
    double weight = 0.0; // 1 / px^2; 0: no measurement
};

Measurement measurePatch(const Reader& reader, Channel channel, const EdgePatch& patch, const Centre& centre)
{
    const double dx = patch.x - centre.x;
    const double dy = patch.y - centre.y;
    const double radius = std::hypot(dx, dy);
    const PatchMatcher matcher(reader, channel, patch, dx / radius, dy / radius, searchRange(centre.halfDiagonal));
    if (matcher.saturated())
        return {};
    const auto shift = matcher.measure();
    if (!shift)
        return {};
    return {radius, shift->outwards, 1.0 / (shift->variance + kShiftNoise * kShiftNoise)};
}

double median(std::vector<double> values)
{
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

// Least squares with the given weights, and a weak prior that the cubic term is small.
RadialScale solve(const std::vector<Measurement>& data, const std::vector<double>& weights, double halfDiagonal)
{
    double aa = 0.0, ab = 0.0, bb = 0.0, ay = 0.0, by = 0.0;
    for (std::size_t i = 0; i < data.size(); ++i) {
        const double share = data[i].radius / halfDiagonal;
        const double a = data[i].radius;
        const double b = data[i].radius * share * share;
        const double w = weights[i];
        aa += w * a * a, ab += w * a * b, bb += w * b * b, ay += w * a * data[i].shift, by += w * b * data[i].shift;
    }
    bb += 1.0 / (kCubicPrior * kCubicPrior);
    const double determinant = aa * bb - ab * ab;
    if (!(determinant > 0.0))
        return {};
    return {(ay * bb - by * ab) / determinant, (by * aa - ay * ab) / determinant};
}

// Iterated reweighting with Tukey's biweight, its scale from the median of the residuals. Starts from a fit with
// Huber's weights about zero.
RadialScale robustFit(const std::vector<Measurement>& data, double halfDiagonal, std::vector<double>& weights)
{
    weights.resize(data.size());
    std::vector<double> size(data.size());
    RadialScale fit;
    constexpr int kRounds = 12;
    for (int round = 0; round < kRounds; ++round) {
        for (std::size_t i = 0; i < data.size(); ++i)
            size[i] = std::abs(data[i].shift - fit.shift(data[i].radius, halfDiagonal));
        const double sigma = std::max(1.4826 * median(size), kShiftNoise);
        for (std::size_t i = 0; i < data.size(); ++i) {
            const double t = size[i] / sigma;
            if (round < 4) {
                weights[i] = data[i].weight * (t <= 1.345 ? 1.0 : 1.345 / t);
            } else {
                const double u = 1.0 - (t / 4.685) * (t / 4.685);
                weights[i] = u > 0.0 ? data[i].weight * u * u : 0.0;
            }
        }
        fit = solve(data, weights, halfDiagonal);
    }
    return fit;
}

// Whether the fit explains the shifts so much better than no shift that chance can be excluded.
bool significant(const std::vector<Measurement>& data, const std::vector<double>& weights, const RadialScale& fit,
                 double halfDiagonal)
{
    double before = 0.0;
    double after = 0.0;
    double total = 0.0;
    double squares = 0.0;
    for (std::size_t i = 0; i < data.size(); ++i) {
        const double rest = data[i].shift - fit.shift(data[i].radius, halfDiagonal);
        before += weights[i] * data[i].shift * data[i].shift;
        after += weights[i] * rest * rest;
        total += weights[i];
        squares += weights[i] * weights[i];
    }
    const double count = squares > 0.0 ? total * total / squares : 0.0; // effective number for equal weights
    if (count < static_cast<double>(kLeastPatches))
        return false;
    // Never better than the precision of a patch.
    const double spread = std::max(after / (count - 2.0), total / count * kShiftNoise * kShiftNoise * 0.05);
    return (before - after) / 2.0 > kLeastSignificance * spread;
}

} // namespace

std::vector<EdgePatch> findEdgePatches(const _ImageData<PixelRGB<float>>& image)
{
    const Centre centre(image.size());
    const int margin = patchMargin(centre.halfDiagonal);
    const int width = image.width() - 2 * margin;
    const int height = image.height() - 2 * margin;
    if (width < kSmallestCell || height < kSmallestCell)
        return {};
    const Reader reader(image);
    const int cell = std::max(kSmallestCell, (std::max(width, height) + kCellsAcross - 1) / kCellsAcross);
    const int columns = width / cell;
    const int rows = height / cell;
    std::vector<std::optional<EdgePatch>> found(static_cast<std::size_t>(columns) * static_cast<std::size_t>(rows));
    forEachRow(rows, [&](int row) {
        for (int column = 0; column < columns; ++column) {
            const auto start = [margin](int index, int count, int length) {
                return margin + static_cast<int>(static_cast<long long>(index) * length / count);
            };
            const int x0 = start(column, columns, width);
            const int y0 = start(row, rows, height);
            const _Rect<int> area{x0, y0, start(column + 1, columns, width) - x0, start(row + 1, rows, height) - y0};
            found[static_cast<std::size_t>(row) * static_cast<std::size_t>(columns) +
                  static_cast<std::size_t>(column)] = strongestEdge(reader, centre, area);
        }
    });
    std::vector<EdgePatch> patches;
    for (const auto& patch : found)
        if (patch)
            patches.push_back(*patch);
    return patches;
}

RadialScale fitRadialScale(const _ImageData<PixelRGB<float>>& image, Channel channel,
                           const std::vector<EdgePatch>& patches)
{
    if (patches.size() < kLeastPatches)
        return {};
    const Reader reader(image);
    const Centre centre(image.size());
    std::vector<Measurement> data(patches.size());
    forEachRow(static_cast<int>(patches.size()), [&](int i) {
        const auto index = static_cast<std::size_t>(i);
        data[index] = measurePatch(reader, channel, patches[index], centre);
    });
    std::erase_if(data, [](const Measurement& m) { return !(m.weight > 0.0); });
    if (data.size() < kLeastPatches)
        return {};
    std::vector<double> weights;
    const RadialScale fit = robustFit(data, centre.halfDiagonal, weights);
    const double corner = std::abs(fit.shift(centre.halfDiagonal, centre.halfDiagonal));
    if (corner < kLeastCornerShift || corner > kMostCornerShare * centre.halfDiagonal ||
        !significant(data, weights, fit, centre.halfDiagonal))
        return {};
    return fit;
}

void undoRadialScale(_ImageData<PixelRGB<float>>& image, Channel channel, const RadialScale& scale)
{
    const int width = image.width();
    const int height = image.height();
    float PixelRGB<float>::*const sample = channel == Channel::Red ? &PixelRGB<float>::r : &PixelRGB<float>::b;
    const ManagedPlane<float> plane(image.pixelCount());
    const auto rowOf = [&](int y) { return plane.data() + static_cast<std::ptrdiff_t>(y) * width; };
    forEachRow(height, [&](int y) {
        for (int x = 0; x < width; ++x)
            rowOf(y)[x] = image.row(y)[x].*sample;
    });
    const Centre centre(image.size());
    const double perSquare = scale.cubic / (centre.halfDiagonal * centre.halfDiagonal);
    forEachRow(height, [&](int y) {
        PixelRGB<float>* const target = image.row(y);
        const double dy = y - centre.y;
        for (int x = 0; x < width; ++x) {
            const double dx = x - centre.x;
            const double factor = scale.constant + perSquare * (dx * dx + dy * dy);
            const double sx = std::clamp(x + dx * factor, 0.0, width - 1.0);
            const double sy = std::clamp(y + dy * factor, 0.0, height - 1.0);
            const int left = static_cast<int>(sx);
            const int top = static_cast<int>(sy);
            const auto wx = catmullRom(static_cast<float>(sx - left));
            const auto wy = catmullRom(static_cast<float>(sy - top));
            float sum = 0.0f;
            for (int j = 0; j < 4; ++j) {
                const float* const row = rowOf(std::clamp(top - 1 + j, 0, height - 1));
                float across = 0.0f;
                for (int i = 0; i < 4; ++i)
                    across += wx[static_cast<std::size_t>(i)] * row[std::clamp(left - 1 + i, 0, width - 1)];
                sum += wy[static_cast<std::size_t>(j)] * across;
            }
            target[x].*sample = sum;
        }
    });
}

} // namespace orvo::details
