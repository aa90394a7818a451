#include "filling/patch_filler.hpp"

#include "filling/convergence.hpp"
#include "filling/fill_level.hpp"
#include "filling/hole.hpp"
#include "filling/line_directions.hpp"
#include "filling/patch_field.hpp"
#include "filling/patch_votes.hpp"
#include "filling/peel.hpp"
#include "filling/plane_view.hpp"
#include "filling/seam_colours.hpp"
#include "filling/shifted_pieces.hpp"
#include "filling/smooth_fill.hpp"
#include "filling/source_cost.hpp"

#include <algorithm>
#include <cmath>
#include <optional>
#include <utility>
#include <vector>

namespace orvo {

Filler::~Filler() = default;

std::unique_ptr<Filler> patchFiller() { return std::make_unique<details::PatchFiller>(); }

namespace details {
namespace {

// The search window extends beyond the hole by its longer side, at least by this many pixels: nearby patches match
// better, and small holes need enough candidates.
constexpr int kLeastReach = 192;
// A coarser level follows while the hole is deeper than this, in pixels...
constexpr int kDeepestStart = kPatch / 2;
// ... and the level still has this many sources.
constexpr std::size_t kFewestSources = 400;
constexpr int kMostLevels = 10;
// Wires and scratches have no room for whole pieces, whose search would take most of the time.
constexpr int kShallowest = 16;
// Radius in pixels of the area that measures the texture of a pixel.
constexpr int kTextureRadius = 8;

_Rect<int> windowAround(const Hole& hole)
{
    const _Rect<int>& box = hole.bounds();
    const int reach = std::max({box.width, box.height, kLeastReach});
    const int left = std::max(0, box.x - reach);
    const int top = std::max(0, box.y - reach);
    return {left, top, std::min(hole.size().width, box.x + box.width + reach) - left,
            std::min(hole.size().height, box.y + box.height + reach) - top};
}

int deepest(const FillLevel& level)
{
    int depth = 0;
    const auto count = static_cast<std::size_t>(level.width()) * static_cast<std::size_t>(level.height());
    for (std::size_t i = 0; i < count; ++i)
        if (level.targets[i] != 0)
            depth = std::max<int>(depth, level.depth[i]);
    return depth;
}

std::vector<FillLevel> pyramidOf(const _ImageData<PixelRGB<float>>& picture, const Hole& hole, const _Rect<int>& window,
                                 const PatchFillSettings& settings)
{
    std::vector<FillLevel> levels;
    levels.push_back(finestLevel(picture, hole, window, kTextureRadius, settings.textureGain));
    while (static_cast<int>(levels.size()) < kMostLevels && deepest(levels.back()) > kDeepestStart) {
        FillLevel coarser = coarserLevel(levels.back());
        if (coarser.sourceCount < kFewestSources)
            break;
        levels.push_back(std::move(coarser));
    }
    return levels;
}

bool isSurrounded(const Hole& hole)
{
    const _Rect<int>& box = hole.bounds();
    return box.x > 0 && box.y > 0 && box.x + box.width < hole.size().width && box.y + box.height < hole.size().height;
}

// The finest level that graph cuts handle in time; -1 if there is none, as around a picture that is small beside its
// border.
int labelledLevel(const std::vector<FillLevel>& levels)
{
    const auto holeOf = [](const FillLevel& level) {
        return std::count(level.places.data(), level.places.data() + level.width() * level.height(), Place::Hole);
    };
    for (std::size_t i = 0; i < levels.size(); ++i)
        if (holeOf(levels[i]) <= (i + 1 < levels.size() ? kMostLabelled : kMostLabelledAtCoarsest))
            return static_cast<int>(i);
    return -1;
}

// The distance of the copies relative to the contrast where they lie, so that blurred pictures fit no better.
float misfitOf(const FillLevel& level, const PatchField& field)
{
    double distance = 0.0;
    double contrast = 0.0;
    const auto stride = static_cast<std::size_t>(level.width());
    const auto squared = [&](std::size_t i, std::size_t j) {
        const int step = level.texels[i].g - level.texels[j].g;
        return step * step;
    };
    const auto pixels = stride * static_cast<std::size_t>(level.height());
    for (std::size_t i = 0; i < pixels; ++i)
        if (level.targets[i] != 0) { // a whole patch fits below and beside it
            distance += field.distance[i];
            contrast += squared(i, i + 1) + squared(i, i + stride);
        }
    return static_cast<float>(distance / std::max(contrast, 1.0));
}

// The plane around a hole, if there is one. A border continues what stands at the rim, mostly not one plane.
std::optional<PlaneView> planeAround(const _ImageData<PixelRGB<float>>& picture, const Hole& hole,
                                     const PatchFillSettings& settings)
{
    // Coarser levels suffice for the lines of a large picture, and take less time.
    constexpr int kMostPixels = 1 << 20;
    if (!settings.planes || !isSurrounded(hole))
        return {};
    const _Rect<int> window = windowAround(hole);
    FillLevel level = finestLevel(picture, hole, window, kTextureRadius, settings.textureGain);
    if (level.sourceCount == 0 || deepest(level) <= kShallowest)
        return {};
    int scale = 1;
    for (; level.width() * level.height() > kMostPixels; scale *= 2)
        level = coarserLevel(level);
    const auto point = convergence(level, scale, window, hole.bounds());
    return point ? PlaneView::around(hole, *point) : std::nullopt;
}

// Fills one hole from the coarsest level to the finest.
class PatchRun
{
public:
    PatchRun(const PatchFillSettings& settings_, const RunControl& control_) : settings(settings_), control(control_) {}

    // Paints the hole of `result`, which holds a copy of the picture, and returns how badly the copies fit; nothing if
    // no patch is entirely known.
    std::optional<float> fill(const Hole& hole, _ImageData<PixelRGB<float>>& result)
    {
        const _Rect<int> window = windowAround(hole);
        std::vector<FillLevel> levels = pyramidOf(result, hole, window, settings);
        control.throwIfCancelled();
        if (levels.front().sourceCount == 0)
            return {};
        const bool isDeep = deepest(levels.front()) > kShallowest;
        const int piecesAt = settings.pieces && isDeep ? labelledLevel(levels) : -1;
        count = static_cast<int>(levels.size());
        // Fine enough for thin lines, coarse enough that grain has no direction.
        const LineDirections lines(levels[std::min<std::size_t>(1, levels.size() - 1)]);
        // A shallow hole has a single level and no room for copies of objects.
        std::optional<Rarity> rarity;
        if (count > 1 && settings.rareWeight > 0.0f)
            rarity.emplace(levels.back());
        const auto costAt = [&](const FillLevel& level, int i) {
            const int shift = count - 1 - i;
            const bool rare = rarity && (shift < settings.rareLevels || i == piecesAt);
            return SourceCost(settings, level, lines, rare ? &*rarity : nullptr, shift, !isSurrounded(hole));
        };
        PatchField field = peel(levels.back(), settings, costAt(levels.back(), count - 1));
        control.report(kStarted);
        for (int i = count - 1; i >= 0; --i) {
            FillLevel& level = levels.back();
            const SourceCost sourceCost = costAt(level, i);
            // A level has four times the pixels of the next, so the finest takes about half of the time.
            const float begin = i + 1 == count ? kStarted : shareAfter(i + 1);
            const float middle = i == piecesAt ? 0.5f * (begin + shareAfter(i)) : begin;
            if (i >= piecesAt)
                improve(level, field, sourceCost, settings.peeled, i, {begin, i == piecesAt ? middle : shareAfter(i)});
            if (i == piecesAt)
                field = shiftedPieces(level, field, sourceCost,
                                      isSurrounded(hole) ? settings.pieceShare : settings.borderPieceShare, control);
            if (i <= piecesAt)
                improve(level, field, sourceCost, settings.shifted, i, {middle, shareAfter(i)});
            if (i > 0) {
                PatchField finer = refinedField(levels[static_cast<std::size_t>(i - 1)], level, field);
                std::swap(field, finer);
                levels.pop_back();
                vote(levels.back(), field, settings);
            }
        }
        const float misfit = misfitOf(levels.front(), field);
        voteInFull(levels.front(), field, settings, hole, window, result);
        control.report(kPainted);
        control.throwIfCancelled();
        if (settings.evenSeams) {
            const SeamSteps seams(levels.front(), field, settings, hole, window, result);
            levels.clear();
            seams.evenOut(result);
        }
        return misfit;
    }

private:
    static constexpr float kStarted = 0.05f;
    static constexpr float kPainted = 0.9f;

    // Of the whole run, when level `i` is done.
    static float shareAfter(int i) { return kStarted + (kPainted - kStarted) * std::pow(0.5f, static_cast<float>(i)); }

    struct Share
    {
        float begin;
        float end;
    };

    // Rounds of search and vote at level `i`, which take `share` of the progress.
    void improve(FillLevel& level, PatchField& field, const SourceCost& sourceCost, const Refinement& refinement, int i,
                 Share share)
    {
        const auto [most, least, reach, coherence] = refinement;
        const int rounds = count == 1 ? most : least + (most - least) * i / (count - 1);
        const int radius = reach > 0 ? reach : std::max(level.width(), level.height());
        for (int round = 0; round < rounds; ++round) {
            control.throwIfCancelled();
            search(level, field, settings, sourceCost, radius, coherence, ++stream);
            vote(level, field, settings);
            control.report(share.begin +
                           (share.end - share.begin) * static_cast<float>(round + 1) / static_cast<float>(rounds));
        }
    }

    const PatchFillSettings& settings;
    const RunControl& control;
    int count = 0;
    unsigned stream = settings.seed;
};

// Around a plane in perspective the hole is filled twice, as it is and in the view of the plane, and keeps what fits
// better: lines that converge need not lie in one plane.
void fillHole(const Hole& hole, _ImageData<PixelRGB<float>>& result, const PatchFillSettings& settings,
              const RunControl& control)
{
    // In trials (docs/filling.md) planes fit better by a quarter, scenes of several planes by at most a twentieth.
    constexpr float kClearlyBetter = 0.87f;
    constexpr float kFilledAsIs = 0.35f; // of the time: the view is larger
    const auto cancelled = [&] { return control.cancelled(); };
    const auto view = planeAround(result, hole, settings);
    const float first = view ? kFilledAsIs : 1.0f;
    const RunControl asIs(cancelled, [&](float share) { control.report(first * share); });
    const auto misfit = PatchRun(settings, asIs).fill(hole, result);
    if (!misfit) {
        fillSmoothly(result, hole);
        return;
    }
    if (!view)
        return;
    const RunControl fromAbove(cancelled, [&](float share) { control.report(first + (1.0f - first) * share); });
    const auto warped = view->picture(result, hole);
    const auto better = PatchRun(settings, fromAbove).fill(view->hole(hole), *warped);
    if (better && *better < kClearlyBetter * *misfit)
        view->paint(*warped, hole, result);
}

} // namespace

std::shared_ptr<_ImageData<PixelRGB<float>>> PatchFiller::fill(const _ImageData<PixelRGB<float>>& picture,
                                                               const _ImageData<float>& mask,
                                                               const RunControl& control) const
{
    return keepingFailure([&] {
        const Hole hole(picture.size(), mask);
        auto result = picture.copy({});
        if (!hole.empty())
            fillHole(hole, *result, settings, control);
        control.report(1.0f);
        return result;
    });
}

} // namespace details
} // namespace orvo
