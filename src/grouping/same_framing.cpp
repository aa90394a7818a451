#include "grouping/same_framing.hpp"

#include <algorithm>
#include <cmath>

namespace orvo {
namespace {

// Seconds. A bracket that is set by hand on a tripod takes minutes; what the pictures show decides.
constexpr double kLongestPause = 240.0;
// Seconds between shots of an automatic series, which belong together even where their exposures have no visible detail
// in common.
constexpr double kAutomaticPause = 3.0;
// Frames to look back for one whose exposure is near enough for a comparison.
constexpr std::size_t kLookBack = 5;
// EV between frames of which one may show nothing of what the other does.
constexpr double kFarExposure = 2.5;

bool mayFollow(const PictureFacts& earlier, const PictureFacts& later)
{
    if (earlier.size != later.size || !isSameFocalLength(earlier, later))
        return false;
    const auto& before = earlier.capture.sequenceNumber;
    const auto& now = later.capture.sequenceNumber;
    if (before && now && *now <= *before)
        return false;
    const auto pause = pauseBetween(earlier, later);
    return !pause || *pause <= kLongestPause;
}

/// An automatic bracket between frames that cannot be compared.
bool isWithinAutomaticBracket(const PictureFacts& earlier, const PictureFacts& later, const Framing& framing)
{
    const auto pause = pauseBetween(earlier, later);
    const double difference = std::abs(earlier.ev - later.ev);
    if (!pause || *pause > kAutomaticPause || !earlier.hasExposure || !later.hasExposure ||
        difference < sameExposureEv(earlier, later))
        return false;
    return framing.kind == FramingKind::Unknown ||
           (framing.kind == FramingKind::Unrelated && difference >= kFarExposure);
}

bool isSameView(const Framing& framing)
{
    constexpr double kLargestScale = 1.25; // a lens that breathes strongly
    return framing.kind == FramingKind::Related && framing.overlap >= kSameOverlap && framing.scale < kLargestScale &&
           framing.scale > 1.0 / kLargestScale;
}

/// Whether shot `i` continues a run that begins at `begin`.
bool continues(Shots& shots, std::size_t begin, std::size_t i)
{
    if (!mayFollow(shots.facts(i - 1), shots.facts(i)))
        return false;
    // A pan moves little from one picture to the next.
    const Framing& fromFirst = shots.framing(begin, i);
    if (fromFirst.kind == FramingKind::Related && !isSameView(fromFirst))
        return false;
    // The nearest exposure first: it shows most of the same.
    std::vector<std::size_t> candidates;
    for (std::size_t j = i; j > begin && i - j < kLookBack; --j)
        candidates.push_back(j - 1);
    std::stable_sort(candidates.begin(), candidates.end(), [&](std::size_t a, std::size_t b) {
        return std::abs(shots.facts(a).ev - shots.facts(i).ev) < std::abs(shots.facts(b).ev - shots.facts(i).ev);
    });
    return std::any_of(candidates.begin(), candidates.end(),
                       [&](std::size_t j) { return isSameView(shots.framing(j, i)); }) ||
           isWithinAutomaticBracket(shots.facts(i - 1), shots.facts(i), shots.framing(i - 1, i));
}

/// Whether a later shot shows the view of shot `i` - 1 and that of `i`, whose exposures are too far apart for a
/// comparison.
bool isBridged(Shots& shots, std::size_t i)
{
    for (std::size_t later = i + 1; later < shots.size() && later - i < kLookBack; ++later) {
        const PictureFacts& facts = shots.facts(later);
        if (!mayFollow(shots.facts(later - 1), facts) || !mayFollow(shots.facts(i - 1), shots.facts(i)))
            return false;
        const bool isBetween = std::abs(shots.facts(i).ev - shots.facts(i - 1).ev) >= kFarExposure ||
                               shots.framing(i - 1, i).kind == FramingKind::Unknown;
        if (isBetween && continues(shots, i, later) && isSameView(shots.framing(i - 1, later)))
            return true;
    }
    return false;
}

} // namespace

bool isSameFocalLength(const PictureFacts& a, const PictureFacts& b)
{
    constexpr double kRounding = 0.02;
    const bool areKnown = a.focalLength > 0.0 && b.focalLength > 0.0;
    return !areKnown || std::abs(a.focalLength - b.focalLength) <= kRounding * std::max(a.focalLength, b.focalLength);
}

std::vector<Run> runsOfSameFraming(Shots& shots)
{
    std::vector<Run> runs;
    for (std::size_t i = 0; i < shots.size(); ++i) {
        if (runs.empty() || (!continues(shots, runs.back().begin, i) && !isBridged(shots, i)))
            runs.push_back({i, i});
        runs.back().end = i + 1;
    }
    return runs;
}

} // namespace orvo
