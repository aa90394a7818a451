#include "filling/peel.hpp"

#include "filling/patch_distance.hpp"

#include <orvo_core/parallel.hpp>

#include <algorithm>
#include <array>
#include <limits>
#include <vector>

namespace orvo::details {
namespace {

constexpr int kCentre = kPatch / 2;
// Limit on the comparisons of a first guess, in all: about a second on one core. With more sources than it allows, each
// patch compares a random subset.
constexpr std::int64_t kMostComparisons = 40'000'000;
constexpr std::int64_t kFewestSources = 256;

std::size_t idx(int i) { return static_cast<std::size_t>(i); }

class Peeling
{
public:
    Peeling(FillLevel& level_, const PatchFillSettings& settings, const SourceCost& sourceCost_)
        : level(level_), seed(settings.seed), rimWeight(settings.rimWeight), sourceCost(sourceCost_),
          painted(idx(level_.width() * level_.height())), field(level_)
    {
        std::int64_t targets = 0;
        for (int i = 0; i < level.width() * level.height(); ++i) {
            painted[idx(i)] = level.places[idx(i)] == Place::Known ? 1 : 0;
            targets += level.targets[idx(i)];
        }
        const auto all = static_cast<std::int64_t>(level.someSources.size());
        attempts = std::min(all, std::max(kFewestSources, kMostComparisons / std::max<std::int64_t>(targets, 1)));
    }

    PatchField run()
    {
        std::vector<int> layer = nextLayer();
        while (!layer.empty()) {
            paint(layer);
            layer = nextLayer();
        }
        matchAll();
        return std::move(field);
    }

private:
    // Pixels of the hole next to painted ones.
    [[nodiscard]] std::vector<int> nextLayer() const
    {
        std::vector<int> layer;
        for (int y = 1; y + 1 < level.height(); ++y)
            for (int x = 1; x + 1 < level.width(); ++x) {
                const int i = level.at(x, y);
                if (level.places[idx(i)] != Place::Hole || painted[idx(i)] != 0)
                    continue;
                bool beside = false;
                for (int dy = -1; dy <= 1; ++dy)
                    for (int dx = -1; dx <= 1; ++dx)
                        beside = beside || painted[idx(i + dy * level.width() + dx)] != 0;
                if (beside)
                    layer.push_back(i);
            }
        return layer;
    }

    [[nodiscard]] WeightedPatch patchAt(int corner) const
    {
        WeightedPatch patch{};
        for (int y = 0; y < kPatch; ++y)
            for (int x = 0; x < kPatch; ++x) {
                const auto i = idx(corner + y * level.width() + x);
                patch.setPixel(idx(x), idx(y), level.texels[i], painted[i], 0); // the texture of the hole is unknown
            }
        return patch;
    }

    ORVO_INLINE void tryAll(int corner, const WeightedPatch& patch, int& best, int& bestDistance) const
    {
        const int width = level.width();
        const auto attempt = [&](int source) {
            // Known pixels weigh 1 here, so the cost shrinks as they do.
            const int cost = sourceCost(corner, source) / rimWeight;
            if (cost >= bestDistance)
                return;
            const int distance = patchDistance(patch, level.texels.data() + source, width, bestDistance - cost) + cost;
            if (distance < bestDistance) {
                bestDistance = distance;
                best = source;
            }
        };
        if (attempts == static_cast<std::int64_t>(level.someSources.size())) {
            for (const int source : level.someSources)
                attempt(source);
            return;
        }
        CountedRandom random(seed, static_cast<unsigned>(corner));
        for (std::int64_t n = 0; n < attempts; ++n)
            attempt(level.someSources[idx(random.below(static_cast<int>(level.someSources.size())))]);
        for (int reach = kPatch; reach >= 1; --reach)
            for (int n = 0; n < kPatch; ++n) {
                const int near =
                    best + (random.below(2 * reach + 1) - reach) * level.width() + random.below(2 * reach + 1) - reach;
                if (near >= 0 && near < level.width() * level.height() && level.sources[idx(near)] != 0)
                    attempt(near);
            }
    }

    // The best source of the patch that begins at `corner`, compared on its painted pixels.
    [[nodiscard]] int bestSource(int corner) const
    {
        const WeightedPatch patch = patchAt(corner);
        int best = level.someSources.front();
        int bestDistance = std::numeric_limits<int>::max();
        runLoop([&]() __attribute__((always_inline)) { tryAll(corner, patch, best, bestDistance); });
        return best;
    }

    void paint(const std::vector<int>& layer)
    {
        const int offset = kCentre * level.width() + kCentre;
        std::vector<int> found(layer.size());
        forEachRow(static_cast<int>(layer.size()), [&](int n) { found[idx(n)] = bestSource(layer[idx(n)] - offset); });
        // Each pixel of the layer becomes the mean of the patches around nearby pixels of the layer.
        const int width = level.width();
        for (std::size_t n = 0; n < layer.size(); ++n) {
            sourceOf[idx(layer[n])] = found[n];
            inLayer[idx(layer[n])] = 1;
        }
        std::vector<Texel> colours(layer.size());
        for (std::size_t n = 0; n < layer.size(); ++n) {
            std::array<int, 4> sum{};
            int weight = 0;
            for (int dy = -kCentre; dy <= kCentre; ++dy)
                for (int dx = -kCentre; dx <= kCentre; ++dx) {
                    const int other = layer[n] + dy * width + dx;
                    if (other < 0 || other >= width * level.height() || inLayer[idx(other)] == 0)
                        continue;
                    const Texel t = level.texels[idx(sourceOf[idx(other)] + offset - dy * width - dx)];
                    const int w = dx == 0 && dy == 0 ? 4 : 1;
                    sum = {sum[0] + w * t.r, sum[1] + w * t.g, sum[2] + w * t.b, sum[3] + w * t.texture};
                    weight += w;
                }
            const auto mean = [&](int s) { return static_cast<std::uint8_t>((s + weight / 2) / weight); };
            colours[n] = {mean(sum[0]), mean(sum[1]), mean(sum[2]), mean(sum[3])};
        }
        for (std::size_t n = 0; n < layer.size(); ++n) {
            level.texels[idx(layer[n])] = colours[n];
            painted[idx(layer[n])] = 1;
            inLayer[idx(layer[n])] = 0;
        }
    }

    // The sources of all targets, once all of them are painted.
    void matchAll()
    {
        forEachTarget(level, [&](int corner) {
            field.source[idx(corner)] = bestSource(corner);
            field.distance[idx(corner)] = std::numeric_limits<int>::max();
        });
    }

    FillLevel& level;
    const unsigned seed;
    const int rimWeight;
    const SourceCost& sourceCost;
    std::int64_t attempts = 0;
    ManagedPlane<std::uint8_t> painted; // 1 where known or painted
    std::vector<int> sourceOf = std::vector<int>(idx(level.width() * level.height()));
    std::vector<std::uint8_t> inLayer = std::vector<std::uint8_t>(idx(level.width() * level.height()));
    PatchField field;
};

} // namespace

PatchField peel(FillLevel& level, const PatchFillSettings& settings, const SourceCost& sourceCost)
{
    return Peeling(level, settings, sourceCost).run();
}

} // namespace orvo::details
