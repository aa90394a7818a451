#include "filling/shifted_pieces.hpp"

#include "filling/grid_cut.hpp"
#include "filling/patch_distance.hpp"

#include <orvo_core/parallel.hpp>

#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstdlib>
#include <limits>
#include <set>
#include <utility>
#include <vector>

namespace orvo::details {
namespace {

constexpr int kCentre = kPatch / 2;

// Offsets shorter than this share of the longer side only say that neighbours are alike (He, Sun).
constexpr int kShortestShare = 15;
constexpr int kMostCommon = 60; // more offsets change nothing (He, Sun)
// A peak of the histogram of offsets, and what around it counts as the same offset, in pixels.
constexpr double kPeakSigma = 1.4;
constexpr int kPeakReach = 4;
// About half a second on one core. With a fifth of the comparisons, exact offsets are missed.
constexpr std::int64_t kMostComparisons = 60'000'000;
constexpr std::int64_t kMostQueries = 3000;
// Offsets along the axes, in sides of the hole's box. A piece beside the hole is often what lies behind the thing that
// is taken out, even if it repeats too rarely for the histogram; short ones carry a fence or a sill on in steps.
constexpr double kBesideTheHole[] = {0.1, 0.15,  0.2,  0.25,  0.3, 0.35, 0.4, 0.45,
                                     0.5, 0.625, 0.75, 0.875, 1.0, 1.25, 1.5, 2.0};
// Beside a hole from side to side nothing lies, and short offsets would copy people at its rim into an added border.
constexpr double kShortestAcross = 0.5;

// Labels change little after that many rounds over all offsets.
constexpr int kMostSweeps = 3;
constexpr float kNever = 1e6f; // larger than any seam
// Two colours show as a seam by their squared difference, in units in which this difference, in 8-bit steps, counts as
// itself: a line that breaks shows more than any amount of grain...
constexpr float kUsualDifference = 30.0f;
// ... but not without bound: what touches the rim without going on inside must not grow into the hole at any price.
constexpr float kLargestDifference = 120.0f;
// Where nothing is known under one of the offsets: clearly different colours.
constexpr float kUnknownDifference = 64.0f;
// Offsets beside those in use that are tried in the end, in pixels: lines in perspective meet between the common ones.
constexpr int kFineSteps[] = {1, 2, 4};
constexpr int kFineSweeps = 2;
constexpr int kFewestPixels = 20; // of a piece whose offset is worth refining

// Where texture changes no line breaks, so a difference in it shows less than one in colour.
constexpr int kTextureRelief = 2;

constexpr float seamOf(float squaredDifference)
{
    return std::min(squaredDifference, kLargestDifference * kLargestDifference) / kUsualDifference;
}
constexpr float kUnknownSeam = seamOf(kUnknownDifference * kUnknownDifference);

struct Offset
{
    int x = 0;
    int y = 0;

    auto operator<=>(const Offset&) const = default;
};

std::size_t idx(int i) { return static_cast<std::size_t>(i); }

// Half the sides of a box around a patch; sources inside it do not count as similar to it.
using Clearance = _Size<int>;

// For each clearance the source most similar to that at `corner`, the nearest of equal ones; -1 if there is none.
std::array<int, 2> mostSimilar(const FillLevel& level, int corner, const std::array<Clearance, 2>& clearances)
{
    const int width = level.width();
    const WeightedPatch patch = evenPatch(level, corner);
    std::array<int, 2> best{-1, -1};
    runLoop([&]() __attribute__((always_inline)) {
        std::array<int, 2> least{};
        least.fill(std::numeric_limits<int>::max() - 1);
        std::array<int, 2> nearest{};
        nearest.fill(std::numeric_limits<int>::max());
        for (const int other : level.someSources) {
            const int dx = std::abs(other % width - corner % width);
            const int dy = std::abs(other / width - corner / width);
            const auto isBeyond = [&](std::size_t i) { return dx > clearances[i].width || dy > clearances[i].height; };
            const int most = std::max(isBeyond(0) ? least[0] : -1, isBeyond(1) ? least[1] : -1);
            if (most < 0)
                continue;
            const int away = std::max(dx, dy);
            const int distance = patchDistance(patch, level.texels.data() + other, width, most + 1);
            for (std::size_t i = 0; i < best.size(); ++i)
                if (isBeyond(i) && (distance < least[i] || (distance == least[i] && away < nearest[i]))) {
                    least[i] = distance;
                    nearest[i] = away;
                    best[i] = other;
                }
        }
    });
    return best;
}

// The peaks of a histogram of offsets, the highest first.
std::vector<Offset> peaksOf(const cv::Mat_<float>& histogram)
{
    cv::Mat_<float> smooth;
    cv::GaussianBlur(histogram, smooth, {}, kPeakSigma);
    std::vector<Offset> offsets;
    while (offsets.size() < kMostCommon) {
        double most = 0.0;
        cv::Point peak;
        cv::minMaxLoc(smooth, nullptr, &most, nullptr, &peak);
        if (most <= 0.0)
            break;
        constexpr int kSide = 2 * kPeakReach + 1;
        const cv::Rect around =
            cv::Rect(peak.x - kPeakReach, peak.y - kPeakReach, kSide, kSide) & cv::Rect({}, histogram.size());
        // The peak of several offsets may lie between them.
        cv::Point exact;
        cv::minMaxLoc(histogram(around), nullptr, nullptr, nullptr, &exact);
        offsets.push_back({around.x + exact.x - histogram.cols / 2, around.y + exact.y - histogram.rows / 2});
        smooth(around) = 0.0f;
    }
    return offsets;
}

// For each clearance the offsets between similar patches of the known part, the most frequent first; none twice.
std::vector<Offset> commonOffsets(const FillLevel& level, const std::array<Clearance, 2>& clearances)
{
    const int width = level.width();
    const int height = level.height();
    const auto count = static_cast<std::int64_t>(level.someSources.size());
    const std::int64_t queries = std::clamp<std::int64_t>(kMostComparisons / count, 1, std::min(count, kMostQueries));
    const auto query = [&](int n) { return level.someSources[static_cast<std::size_t>(n * count / queries)]; };
    std::vector<std::array<int, 2>> matches(static_cast<std::size_t>(queries));
    forEachRow(static_cast<int>(queries), [&](int n) { matches[idx(n)] = mostSimilar(level, query(n), clearances); });

    std::vector<Offset> offsets;
    for (std::size_t i = 0; i < clearances.size(); ++i) {
        cv::Mat_<float> histogram(2 * height + 1, 2 * width + 1, 0.0f);
        for (int n = 0; n < static_cast<int>(queries); ++n) {
            const int match = matches[idx(n)][i];
            if (match < 0)
                continue;
            const int dx = match % width - query(n) % width;
            const int dy = match / width - query(n) / width;
            histogram(height + dy, width + dx) += 1.0f;
            histogram(height - dy, width - dx) += 1.0f; // likeness goes both ways
        }
        for (const Offset& offset : peaksOf(histogram))
            if (std::find(offsets.begin(), offsets.end(), offset) == offsets.end())
                offsets.push_back(offset);
    }
    return offsets;
}

// An offset for each pixel of the hole, and what the offsets cost together.
struct Labels
{
    std::vector<Offset> offsets;
    double cost = 0.0;
};

// Chooses one offset for each pixel of the hole. No such pixel is nearer than half a patch to the sides of the level,
// so those around it need no check.
class Labelling
{
public:
    Labelling(FillLevel& level_, const SourceCost& sourceCost_, float sourceShare_, const RunControl& control_)
        : level(level_), sourceCost(sourceCost_), sourceShare(sourceShare_), control(control_), width(level_.width()),
          nodeOf(idx(width * level_.height()), -1)
    {
        control.throwIfCancelled();
        int right = 0;
        int bottom = 0;
        int left = width;
        int top = level.height();
        for (int pixel = 0; pixel < width * level.height(); ++pixel) {
            if (level.places[idx(pixel)] != Place::Hole)
                continue;
            nodeOf[idx(pixel)] = static_cast<int>(pixelOf.size());
            pixelOf.push_back(pixel);
            left = std::min(left, pixel % width);
            right = std::max(right, pixel % width);
            top = std::min(top, pixel / width);
            bottom = std::max(bottom, pixel / width);
        }
        const int shortest = std::max(kPatch, std::max(width, level.height()) / kShortestShare);
        const std::array<Clearance, 2> clearances = {
            Clearance{shortest, shortest},
            Clearance{std::max(shortest, (right - left + 1) / 2), std::max(shortest, (bottom - top + 1) / 2)}};
        offsets = commonOffsets(level, clearances);
        const bool across = right - left + 1 >= level.inner().width;
        const bool down = bottom - top + 1 >= level.inner().height;
        for (const double share : kBesideTheHole) {
            // A whole patch farther, so that pieces at the rim have patches around them as well.
            const int dx = static_cast<int>(share * (right - left + kPatch));
            const int dy = static_cast<int>(share * (bottom - top + kPatch));
            if (!across || share >= kShortestAcross)
                offsets.insert(offsets.end(), {{dx, 0}, {-dx, 0}});
            if (!down || share >= kShortestAcross)
                offsets.insert(offsets.end(), {{0, dy}, {0, -dy}});
        }
    }

    // The most common source for each pixel: from what fits the rim, copies of the neighbours remain.
    [[nodiscard]] std::vector<Offset> mostCommonSources() const
    {
        std::vector<Offset> chosen(pixelOf.size());
        forEachRow(static_cast<int>(pixelOf.size()), [&](int node) {
            float least = std::numeric_limits<float>::max();
            for (const Offset& offset : offsets)
                if (const float alone = costOfSource(pixelOf[idx(node)], offset); alone < least) {
                    least = alone;
                    chosen[idx(node)] = offset;
                }
        });
        return chosen;
    }

    // The offsets of a field of matches; where it has none, those of `otherwise`.
    [[nodiscard]] std::vector<Offset> offsetsOf(const PatchField& field, const std::vector<Offset>& otherwise) const
    {
        std::vector<Offset> chosen = otherwise;
        for (std::size_t node = 0; node < pixelOf.size(); ++node) {
            const int corner = pixelOf[node] - kCentre * width - kCentre;
            if (level.targets[idx(corner)] == 0)
                continue; // a pixel of the margin, around which no patch meets the hole of the picture
            const int from = field.source[idx(corner)];
            chosen[node] = {from % width - corner % width, from / width - corner / width};
        }
        return chosen;
    }

    // Gives pixels the common offsets as long as that lowers the sum of all costs.
    [[nodiscard]] Labels improved(std::vector<Offset> chosen) const
    {
        bool changed = true;
        for (int sweep = 0; changed && sweep < kMostSweeps; ++sweep) {
            changed = false;
            for (const Offset& offset : offsets)
                changed = expand(offset, chosen) || changed;
        }
        const double total = costOfAll(chosen);
        return {std::move(chosen), total};
    }

    // The same with offsets a little beside those in use.
    void refine(std::vector<Offset>& chosen) const
    {
        bool changed = true;
        for (int sweep = 0; changed && sweep < kFineSweeps; ++sweep) {
            control.throwIfCancelled();
            changed = false;
            for (const Offset& offset : besideThoseInUse(chosen))
                changed = expand(offset, chosen) || changed;
        }
    }

    // Paints the hole. The returned distances are not measured.
    [[nodiscard]] PatchField paint(const std::vector<Offset>& chosen)
    {
        for (std::size_t node = 0; node < pixelOf.size(); ++node)
            if (const int from = known(pixelOf[node], chosen[node]); from >= 0)
                level.texels[idx(pixelOf[node])] = level.texels[idx(from)];
        PatchField field(level);
        forEachTarget(level, [&](int corner) {
            const int source = sourceOfMiddle(corner, chosen);
            field.source[idx(corner)] = source >= 0 ? source : bestSource(corner);
            field.distance[idx(corner)] = std::numeric_limits<int>::max();
        });
        return field;
    }

private:
    // Where `pixel` copies from under an offset; -1 beyond the level.
    [[nodiscard]] int shifted(int pixel, Offset offset) const
    {
        const int x = pixel % width + offset.x;
        const int y = pixel / width + offset.y;
        return x < 0 || y < 0 || x >= width || y >= level.height() ? -1 : level.at(x, y);
    }
    // The same; -1 also where the content is not known.
    [[nodiscard]] int known(int pixel, Offset offset) const
    {
        const int from = shifted(pixel, offset);
        return from >= 0 && level.places[idx(from)] == Place::Known ? from : -1;
    }
    [[nodiscard]] int source(int corner, Offset offset) const
    {
        const int from = shifted(corner, offset);
        return from >= 0 && level.sources[idx(from)] != 0 ? from : -1;
    }

    // How much the difference of two pixels shows.
    [[nodiscard]] float difference(int a, int b) const
    {
        if (a < 0 || b < 0)
            return kUnknownSeam;
        const Texel& s = level.texels[idx(a)];
        const Texel& t = level.texels[idx(b)];
        const auto square = [](int v) { return v * v; };
        return seamOf(static_cast<float>(square(s.r - t.r) + square(s.g - t.g) + square(s.b - t.b) +
                                         square(s.texture - t.texture) / kTextureRelief));
    }

    // How much a seam shows between the neighbours p and q, copied by the offsets a and b.
    [[nodiscard]] float seam(int p, int q, Offset a, Offset b) const
    {
        if (a == b)
            return 0.0f;
        const int pUnderB = known(p, b);
        const int qUnderA = known(q, a);
        // Each side of the seam in both versions, as far as they are known.
        if (pUnderB < 0 && qUnderA < 0)
            return 2.0f * kUnknownSeam;
        if (pUnderB < 0)
            return 2.0f * difference(qUnderA, known(q, b));
        if (qUnderA < 0)
            return 2.0f * difference(known(p, a), pUnderB);
        return difference(known(p, a), pUnderB) + difference(qUnderA, known(q, b));
    }

    [[nodiscard]] float costOfSource(int pixel, Offset offset) const
    {
        if (known(pixel, offset) < 0)
            return kNever;
        const int corner = pixel - kCentre * width - kCentre;
        const int from = source(corner, offset);
        return from < 0 ? 0.0f
                        : sourceShare * std::sqrt(static_cast<float>(sourceCost(corner, from)) /
                                                  static_cast<float>(kPatchPixels));
    }

    // Of the seams between a pixel and known ones.
    [[nodiscard]] float costOfRim(int pixel, Offset offset) const
    {
        float cost = 0.0f;
        for (const int step : {-1, 1, -width, width}) {
            const int beside = pixel + step;
            if (level.places[idx(beside)] == Place::Known)
                cost += 2.0f * difference(beside, known(beside, offset));
        }
        return cost;
    }
    [[nodiscard]] float cost(int pixel, Offset offset) const
    {
        return costOfSource(pixel, offset) + costOfRim(pixel, offset);
    }
    [[nodiscard]] double costOfAll(const std::vector<Offset>& chosen) const
    {
        double sum = 0.0;
        for (std::size_t node = 0; node < pixelOf.size(); ++node) {
            const int pixel = pixelOf[node];
            sum += cost(pixel, chosen[node]);
            for (const int step : {1, width})
                if (const int other = nodeOf[idx(pixel + step)]; other >= 0)
                    sum += seam(pixel, pixel + step, chosen[node], chosen[idx(other)]);
        }
        return sum;
    }

    // Offsets that nobody has, near those of larger pieces.
    [[nodiscard]] static std::set<Offset> besideThoseInUse(const std::vector<Offset>& chosen)
    {
        std::vector<Offset> sorted = chosen;
        std::sort(sorted.begin(), sorted.end());
        std::set<Offset> beside;
        for (auto first = sorted.begin(); first != sorted.end();) {
            const auto end = std::upper_bound(first, sorted.end(), *first);
            if (end - first >= kFewestPixels)
                for (const int step : kFineSteps)
                    for (const int dy : {-step, 0, step})
                        for (const int dx : {-step, 0, step})
                            if (const Offset near{first->x + dx, first->y + dy};
                                !std::binary_search(sorted.begin(), sorted.end(), near))
                                beside.insert(near);
            first = end;
        }
        return beside;
    }

    // Gives an offset to the pixels for which that lowers the sum of all costs most. Returns whether any changed.
    bool expand(Offset offset, std::vector<Offset>& chosen) const
    {
        GridCut graph(pixelOf.size());
        for (std::size_t node = 0; node < pixelOf.size(); ++node) {
            const int pixel = pixelOf[node];
            graph.addSinkCost(static_cast<int>(node), cost(pixel, offset) - cost(pixel, chosen[node]));
            for (const auto& [step, direction] : {std::pair{1, GridCut::Right}, std::pair{width, GridCut::Down}}) {
                const int other = nodeOf[idx(pixel + step)];
                if (other < 0)
                    continue;
                const float none = seam(pixel, pixel + step, chosen[node], chosen[idx(other)]);
                const float second = seam(pixel, pixel + step, chosen[node], offset);
                const float first = seam(pixel, pixel + step, offset, chosen[idx(other)]);
                graph.addSinkCost(static_cast<int>(node), first - none);
                graph.addSinkCost(other, -first);
                graph.connect(static_cast<int>(node), direction, other, std::max(0.0f, first + second - none));
            }
        }
        graph.cut();
        bool changed = false;
        for (std::size_t node = 0; node < pixelOf.size(); ++node)
            if (graph.onSinkSide(static_cast<int>(node)) && chosen[node] != offset) {
                chosen[node] = offset;
                changed = true;
            }
        return changed;
    }

    // The source of a target by the label nearest to its middle for which there is one; else -1.
    [[nodiscard]] int sourceOfMiddle(int corner, const std::vector<Offset>& chosen) const
    {
        int found = -1;
        int nearest = kPatch;
        for (int y = 0; y < kPatch; ++y)
            for (int x = 0; x < kPatch; ++x) {
                const int node = nodeOf[idx(corner + y * width + x)];
                const int away = std::max(std::abs(x - kCentre), std::abs(y - kCentre));
                if (node < 0 || away >= nearest)
                    continue;
                if (const int from = source(corner, chosen[idx(node)]); from >= 0) {
                    nearest = away;
                    found = from;
                }
            }
        return found;
    }

    // The most similar source among all offsets.
    [[nodiscard]] int bestSource(int corner) const
    {
        const WeightedPatch patch = evenPatch(level, corner);
        int best = level.someSources.front();
        int least = std::numeric_limits<int>::max();
        runLoop([&]() __attribute__((always_inline)) {
            for (const Offset& offset : offsets) {
                const int from = source(corner, offset);
                if (from < 0)
                    continue;
                const int distance = patchDistance(patch, level.texels.data() + from, width, least);
                if (distance < least) {
                    least = distance;
                    best = from;
                }
            }
        });
        return best;
    }

    FillLevel& level;
    const SourceCost& sourceCost;
    const float sourceShare;
    const RunControl& control;
    const int width;
    std::vector<int> nodeOf;  // of each pixel; -1 outside the hole
    std::vector<int> pixelOf; // of each node
    std::vector<Offset> offsets;
};

} // namespace

PatchField shiftedPieces(FillLevel& level, const PatchField& field, const SourceCost& sourceCost, float sourceShare,
                         const RunControl& control)
{
    Labelling labelling(level, sourceCost, sourceShare, control);
    // Expansions end in a local minimum. Two starts that have little in common rarely both end in a bad one.
    std::array<Labels, 2> results;
    const std::vector<Offset> common = labelling.mostCommonSources();
    std::array<std::vector<Offset>, 2> starts = {common, labelling.offsetsOf(field, common)};
    parallelFor(tbb::blocked_range<std::size_t>(0, starts.size(), 1),
                [&](const tbb::blocked_range<std::size_t>& range) {
                    for (std::size_t i = range.begin(); i != range.end(); ++i)
                        results[i] = labelling.improved(std::move(starts[i]));
                });
    control.throwIfCancelled();
    std::vector<Offset>& better = results[results[0].cost < results[1].cost ? 0 : 1].offsets;
    labelling.refine(better);
    return labelling.paint(better);
}

} // namespace orvo::details
