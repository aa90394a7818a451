#include "filling/patch_field.hpp"

#include "filling/patch_distance.hpp"
#include "filling/usage_cost.hpp"

#include <orvo_core/parallel.hpp>

#include <algorithm>
#include <limits>
#include <utility>

namespace orvo::details {
namespace {

std::size_t planeSize(const FillLevel& level)
{
    return static_cast<std::size_t>(level.width()) * static_cast<std::size_t>(level.height());
}

struct Match
{
    std::int32_t source;
    std::int32_t distance;
};

// One pass over one row.
class RowSearch
{
public:
    RowSearch(const FillLevel& level_, int rimWeight_, const SourceCost& sourceCost_, const UsageCost& usageCost_,
              int radius_, float coherence_, unsigned stream_)
        : level(level_), rimWeight(rimWeight_), sourceCost(sourceCost_), usageCost(usageCost_),
          count(level_.width() * level_.height()), radius(radius_), coherence(coherence_), stream(stream_)
    {}

    // Reads `before`, the field of the previous pass, and writes `row`. `forward`: from left to right.
    ORVO_INLINE void operator()(int y, const PatchField& before, PatchField& row, bool forward, bool measure) const
    {
        const FillLevel::Span span = level.targetSpans[static_cast<std::size_t>(y)];
        const int step = forward ? 1 : -1;
        const int first = forward ? span.first : span.end - 1;
        const int width = level.width();
        for (int n = 0; n < span.end - span.first; ++n) {
            const int target = level.at(first + n * step, y);
            if (!isTarget(target))
                continue;
            Match best{before.source[idx(target)], before.distance[idx(target)]};
            const WeightedPatch patch = patchAt(target);
            if (measure)
                best.distance =
                    distanceTo(patch, best.source, std::numeric_limits<int>::max()) + costOf(target, best.source);
            propose(patch, target, target - step, row, best); // found by this pass
            propose(patch, target, target + step, before, best);
            propose(patch, target, target - width, before, best);
            propose(patch, target, target + width, before, best);
            lookAround(patch, target, best);
            row.source[idx(target)] = best.source;
            row.distance[idx(target)] = best.distance;
        }
    }

private:
    static std::size_t idx(int i) { return static_cast<std::size_t>(i); }
    [[nodiscard]] bool isTarget(int i) const { return i >= 0 && i < count && level.targets[idx(i)] != 0; }
    [[nodiscard]] bool isSource(int i) const { return i >= 0 && i < count && level.sources[idx(i)] != 0; }

    ORVO_INLINE WeightedPatch patchAt(int target) const
    {
        WeightedPatch patch;
        for (int y = 0; y < kPatch; ++y)
            for (int x = 0; x < kPatchLoad; ++x) {
                const auto i = idx(target + y * level.width() + x);
                const int weight = x >= kPatch ? 0 : level.places[i] == Place::Known ? rimWeight : 1;
                patch.setPixel(idx(x), idx(y), level.texels[i], static_cast<std::int16_t>(weight),
                               static_cast<std::int16_t>(weight));
            }
        return patch;
    }

    ORVO_INLINE int distanceTo(const WeightedPatch& patch, int source, int limit) const
    {
        return patchDistance(patch, level.texels.data() + source, level.width(), limit);
    }

    ORVO_INLINE int costOf(int target, int source) const { return sourceCost(target, source) + usageCost(source); }

    // `handicap` counts against the source in the comparison only.
    ORVO_INLINE void attempt(const WeightedPatch& patch, int target, int source, Match& best, int handicap = 0) const
    {
        if (source == best.source || !isSource(source))
            return;
        const int cost = costOf(target, source);
        const int limit = best.distance - handicap - cost;
        if (limit <= 0)
            return;
        const int distance = distanceTo(patch, source, limit);
        if (distance < limit)
            best = {source, distance + cost};
    }

    // Tries the patch as far from the neighbour's source as the target is from the neighbour.
    ORVO_INLINE void propose(const WeightedPatch& patch, int target, int neighbour, const PatchField& field,
                             Match& best) const
    {
        if (isTarget(neighbour))
            attempt(patch, target, field.source[idx(neighbour)] + target - neighbour, best);
    }

    ORVO_INLINE void lookAround(const WeightedPatch& patch, int target, Match& best) const
    {
        CountedRandom random(stream, static_cast<unsigned>(target));
        // Patches at the rim know what they must match, so they look everywhere.
        const bool atRim = level.known[idx(target)] != 0;
        const auto handicap = atRim ? 0 : static_cast<int>(coherence * static_cast<float>(best.distance));
        for (int reach = atRim ? std::max(level.width(), level.height()) : radius; reach >= 1; reach /= 2) {
            const int x = best.source % level.width() + random.below(2 * reach + 1) - reach;
            const int y = best.source / level.width() + random.below(2 * reach + 1) - reach;
            if (x >= 0 && x < level.width() && y >= 0 && y < level.height())
                attempt(patch, target, level.at(x, y), best, handicap);
        }
    }

    const FillLevel& level;
    const int rimWeight;
    const SourceCost& sourceCost;
    const UsageCost& usageCost;
    const int count;
    const int radius;
    const float coherence;
    const unsigned stream;
};

} // namespace

PatchField::PatchField(const FillLevel& level) : source(planeSize(level)), distance(planeSize(level)) {}

PatchField refinedField(const FillLevel& level, const FillLevel& coarse, const PatchField& field)
{
    PatchField refined(level);
    constexpr int kMargin = FillLevel::kMargin;
    constexpr int kCentre = kPatch / 2;
    forEachRow(level.height(), [&](int y) {
        const FillLevel::Span span = level.targetSpans[static_cast<std::size_t>(y)];
        for (int x = span.first; x < span.end; ++x) {
            const auto target = static_cast<std::size_t>(level.at(x, y));
            if (level.targets[target] == 0)
                continue;
            // The coarse patch at the same place. The large offset makes halves round down.
            constexpr int kFar = 1 << 20;
            const int coarseX = (x - kMargin + kCentre + 2 * kFar) / 2 - kFar - kCentre + kMargin;
            const int coarseY = (y - kMargin + kCentre + 2 * kFar) / 2 - kFar - kCentre + kMargin;
            const auto coarseTarget = static_cast<std::size_t>(coarse.at(coarseX, coarseY));
            const int from = field.source[coarseTarget];
            const int sourceX = x + 2 * (from % coarse.width() - coarseX);
            const int sourceY = y + 2 * (from / coarse.width() - coarseY);
            int source = level.at(sourceX, sourceY);
            int distance = field.distance[coarseTarget];
            const bool inside = sourceX >= 0 && sourceY >= 0 && sourceX < level.width() && sourceY < level.height();
            if (!inside || level.sources[static_cast<std::size_t>(source)] == 0) {
                CountedRandom random(0, static_cast<unsigned>(target));
                source = level.someSources[static_cast<std::size_t>(
                    random.below(static_cast<int>(level.someSources.size())))];
                distance *= 4; // a guess for others to outvote
            }
            refined.source[target] = source;
            refined.distance[target] = distance;
        }
    });
    return refined;
}

void search(const FillLevel& level, PatchField& field, const PatchFillSettings& settings, const SourceCost& sourceCost,
            int radius, float coherence, unsigned stream)
{
    const UsageCost usageCost(settings, level, field);
    PatchField next(level);
    for (int pass = 0; pass < settings.passes; ++pass) {
        const RowSearch row(level, settings.rimWeight, sourceCost, usageCost, radius, coherence,
                            stream * 64 + static_cast<unsigned>(pass));
        forEachRow(level.height(), [&](int y) {
            runLoop([&]() __attribute__((always_inline)) { row(y, field, next, pass % 2 == 0, pass == 0); });
        });
        std::swap(field, next);
    }
}

} // namespace orvo::details
