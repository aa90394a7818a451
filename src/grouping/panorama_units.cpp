#include "grouping/panorama_units.hpp"

#include <algorithm>
#include <cmath>

namespace orvo {
namespace {

// Seconds from one view of a panorama to the next one.
constexpr double kLongestPause = 60.0;
// Views to look back for one that overlaps: a row of a panorama in several rows.
constexpr std::size_t kLookBack = 16;
// Two views that share more are one, moved by an unsteady hand.
constexpr double kMostOverlap = 0.75;

bool isSameSide(int a, int b)
{
    constexpr double kCut = 0.02; // scans of one map differ by a few pixels
    return std::abs(a - b) <= kCut * std::max(a, b);
}

/// Of one camera, upright or on its side.
bool isSameSize(_Size<int> a, _Size<int> b)
{
    return (isSameSide(a.width, b.width) && isSameSide(a.height, b.height)) ||
           (isSameSide(a.width, b.height) && isSameSide(a.height, b.width));
}

std::vector<double> stepsOf(const Shots& shots, Run run)
{
    std::vector<double> evs;
    for (std::size_t i = run.begin; i < run.end; ++i)
        evs.push_back(shots.facts(i).ev);
    std::sort(evs.begin(), evs.end());
    std::vector<double> steps;
    for (std::size_t i = 1; i < evs.size(); ++i)
        steps.push_back(evs[i] - evs[i - 1]);
    return steps;
}

bool haveSameSteps(const Shots& shots, const Unit& a, const Unit& b)
{
    constexpr double kDifference = 0.5; // EV
    if (a.run.size() != b.run.size())
        return false;
    if (!shots.facts(a.representative).hasExposure || !shots.facts(b.representative).hasExposure)
        return true; // measured steps depend on the view
    const auto of = stepsOf(shots, a.run);
    const auto other = stepsOf(shots, b.run);
    return std::equal(of.begin(), of.end(), other.begin(),
                      [](double x, double y) { return std::abs(x - y) <= kDifference; });
}

bool mayJoin(const Shots& shots, const Unit& a, const Unit& b)
{
    const PictureFacts& first = shots.facts(a.representative);
    const PictureFacts& second = shots.facts(b.representative);
    return a.kind == b.kind && a.kind != PictureGroupKind::FocusSeries && isSameSize(first.size, second.size) &&
           isSameFocalLength(first, second) && haveSameSteps(shots, a, b);
}

bool areViewsOfOnePlace(const Framing& framing)
{
    constexpr double kLargestScale = 1.4; // the edge of a wide view, and a step forwards
    return framing.kind == FramingKind::Related && framing.scale < kLargestScale && framing.scale > 1.0 / kLargestScale;
}

/// A panorama while it grows.
struct Growing
{
    JoinedUnits joined;
    bool isWider = false; ///< than one view
};

class Joiner
{
public:
    Joiner(Shots& shots_, const std::vector<Unit>& units_) : shots(shots_), units(units_) {}

    void add(std::size_t unit)
    {
        for (std::size_t back = 1; back <= kLookBack && back <= places.size(); ++back) {
            Growing& growing = all[places[places.size() - back]];
            // Pictures that have joined nothing are looked at as direct neighbours and beyond one stray only.
            constexpr std::size_t kStray = 2;
            if (back > kStray && growing.joined.units.size() < 2)
                continue;
            if (!isSoonAfter(growing, unit) || !overlaps(units[unit - back], units[unit]))
                continue;
            note(growing, units[unit - back], units[unit]);
            growing.joined.units.push_back(unit);
            places.push_back(places[places.size() - back]);
            return;
        }
        places.push_back(all.size());
        all.push_back({{{unit}, {}}, false});
    }

    [[nodiscard]] std::vector<JoinedUnits> take()
    {
        std::vector<JoinedUnits> result;
        for (Growing& growing : all) {
            if (growing.joined.units.size() < 2 || isPanorama(growing)) {
                result.push_back(std::move(growing.joined));
                continue;
            }
            for (const std::size_t unit : growing.joined.units)
                result.push_back({{unit}, {}});
        }
        std::sort(result.begin(), result.end(),
                  [](const JoinedUnits& a, const JoinedUnits& b) { return a.units.front() < b.units.front(); });
        return result;
    }

private:
    const Framing& framingOf(const Unit& a, const Unit& b) { return shots.framing(a.representative, b.representative); }

    bool isSoonAfter(const Growing& growing, std::size_t unit) const
    {
        const Unit& last = units[growing.joined.units.back()];
        const auto pause = pauseBetween(shots.facts(last.run.end - 1), shots.facts(units[unit].run.begin));
        return !pause || *pause <= kLongestPause;
    }

    bool overlaps(const Unit& a, const Unit& b) { return mayJoin(shots, a, b) && areViewsOfOnePlace(framingOf(a, b)); }

    void note(Growing& growing, const Unit& a, const Unit& b)
    {
        const auto overlap = framingOf(a, b).overlap;
        growing.isWider = growing.isWider || overlap < kMostOverlap;
        auto& range = growing.joined.overlap;
        const auto share = static_cast<float>(overlap);
        range =
            range ? ValueRange{std::min(range->least, share), std::max(range->most, share)} : ValueRange{share, share};
    }

    /// Neighbours may share nearly everything where the first and the last view do not.
    bool isPanorama(const Growing& growing)
    {
        const Unit& first = units[growing.joined.units.front()];
        const Unit& last = units[growing.joined.units.back()];
        const Framing& framing = framingOf(first, last);
        return growing.isWider || framing.kind == FramingKind::Unrelated ||
               (framing.kind == FramingKind::Related && framing.overlap < kMostOverlap);
    }

    Shots& shots;
    const std::vector<Unit>& units;
    std::vector<Growing> all;
    std::vector<std::size_t> places; ///< of each unit in `all`
};

} // namespace

std::vector<JoinedUnits> joinPanoramas(Shots& shots, const std::vector<Unit>& units)
{
    Joiner joiner(shots, units);
    for (std::size_t unit = 0; unit < units.size(); ++unit)
        joiner.add(unit);
    return joiner.take();
}

} // namespace orvo
