#include "frame/call_frame.hpp"
#include "grouping/bracket_pieces.hpp"
#include "grouping/panorama_units.hpp"
#include "grouping/same_framing.hpp"
#include "grouping/series.hpp"
#include "grouping/shots.hpp"

#include <orvo_core/parallel.hpp>
#include <orvo_extensions/picture_groups.hpp>

#include <algorithm>
#include <cmath>
#include <map>
#include <string>
#include <utility>

namespace orvo {
namespace {

using Paths = std::vector<std::filesystem::path>;

struct Reading
{
    std::optional<Shot> shot;
    std::optional<Failure> failure;
};

Reading readShot(const std::filesystem::path& path, std::size_t position)
{
    Reading reading;
    try {
        reading.shot = Shot{readPictureFacts(path, position), readThumbnail(path)};
    } catch (const FailureError& error) {
        if (error.failure().kind == FailureKind::OutOfMemory || error.failure().kind == FailureKind::Cancelled)
            throw;
        reading.failure = error.failure();
    }
    return reading;
}

std::vector<Reading> readAll(const Paths& paths, const RunControl& run)
{
    constexpr std::size_t kAtOnce = 16; // between looks at the cancel flag; enough for all cores
    std::vector<Reading> readings(paths.size());
    for (std::size_t begin = 0; begin < paths.size(); begin += kAtOnce) {
        run.throwIfCancelled();
        const std::size_t count = std::min(kAtOnce, paths.size() - begin);
        forEachItem(count, [&](std::size_t i) { readings[begin + i] = readShot(paths[begin + i], begin + i); });
        run.report(static_cast<float>(begin + count) / static_cast<float>(paths.size()));
    }
    return readings;
}

/// By the camera's times; in the given order if a picture has none.
void sortByCapture(std::vector<Shot>& shots)
{
    const bool areTimed = std::all_of(shots.begin(), shots.end(),
                                      [](const Shot& shot) { return shot.facts.capture.seconds.has_value(); });
    if (areTimed)
        std::stable_sort(shots.begin(), shots.end(), [](const Shot& a, const Shot& b) {
            return *a.facts.capture.seconds < *b.facts.capture.seconds;
        });
}

Unit unitOf(PictureGroupKind kind, Run run) { return {kind, run, run.begin, 0, {}}; }

/// The middle one by exposure, which shows most.
std::size_t middleByExposure(const Shots& shots, Run run)
{
    std::vector<std::size_t> order;
    for (std::size_t i = run.begin; i < run.end; ++i)
        order.push_back(i);
    std::stable_sort(order.begin(), order.end(),
                     [&](std::size_t a, std::size_t b) { return shots.facts(a).ev < shots.facts(b).ev; });
    return order[order.size() / 2];
}

/// Pictures of one view and one exposure: focus series and bursts.
void addEqualExposures(Shots& shots, Run run, std::vector<Unit>& units)
{
    for (const FocusPiece& piece : focusPieces(shots, run)) {
        units.push_back(unitOf(piece.isSeries ? PictureGroupKind::FocusSeries : PictureGroupKind::Single, piece.run));
        units.back().sharpnessChange = piece.sharpnessChange;
        if (!piece.isSeries)
            units.back().alike = run.size() - 1;
    }
}

/// Without exposure data the brightness of whole pictures depends on what they show beside the common part, so all are
/// compared with the middle one. Exposures that are equal differ from it equally, which a chain of neighbours loses.
void measureExposures(Shots& shots, Run run)
{
    const std::size_t middle = middleByExposure(shots, run);
    for (std::size_t i = run.begin; i < run.end; ++i)
        if (i != middle && !shots.facts(i).hasExposure && shots.framing(middle, i).kind == FramingKind::Related)
            if (const auto change = shots.change(middle, i))
                shots.setMeasuredEv(i, shots.facts(middle).ev + static_cast<double>(change->ev));
}

/// Pictures of one view.
void addRun(Shots& shots, Run run, std::vector<Unit>& units)
{
    measureExposures(shots, run);
    std::vector<PictureFacts> facts;
    for (std::size_t i = run.begin; i < run.end; ++i)
        facts.push_back(shots.facts(i));
    std::optional<Run> equal; // single pictures of one exposure so far
    const auto finishEqual = [&] {
        if (equal)
            addEqualExposures(shots, *equal, units);
        equal.reset();
    };
    for (const BracketPiece& piece : bracketPieces(facts)) {
        const Run of{run.begin + piece.run.begin, run.begin + piece.run.end};
        if (piece.isBracket) {
            finishEqual();
            units.push_back(unitOf(PictureGroupKind::Bracket, of));
            units.back().representative = middleByExposure(shots, of);
            continue;
        }
        const bool continues = equal && std::abs(shots.facts(equal->begin).ev - shots.facts(of.begin).ev) <
                                            2.0 * sameExposureEv(shots.facts(equal->begin), shots.facts(of.begin));
        if (!continues)
            finishEqual();
        equal = Run{continues ? equal->begin : of.begin, of.end};
    }
    finishEqual();
}

std::vector<float> relativeEvs(const std::vector<const PictureFacts*>& pictures)
{
    std::vector<double> sorted;
    for (const PictureFacts* each : pictures)
        sorted.push_back(each->ev);
    std::sort(sorted.begin(), sorted.end());
    const double middle = sorted[sorted.size() / 2];
    std::vector<float> evs;
    for (const PictureFacts* each : pictures)
        evs.push_back(static_cast<float>(each->ev - middle));
    return evs;
}

/// Overlap of the neighbours of a run.
std::optional<ValueRange> overlapWithin(Shots& shots, Run run)
{
    std::optional<ValueRange> range;
    for (std::size_t i = run.begin + 1; i < run.end; ++i) {
        const Framing& framing = shots.framing(i - 1, i);
        if (framing.kind != FramingKind::Related)
            continue;
        const auto overlap = static_cast<float>(framing.overlap);
        range = range ? ValueRange{std::min(range->least, overlap), std::max(range->most, overlap)}
                      : ValueRange{overlap, overlap};
    }
    return range;
}

GroupEvidence evidenceOf(const std::vector<const PictureFacts*>& pictures, bool isFocusKnown)
{
    GroupEvidence evidence;
    const auto& first = pictures.front()->capture.seconds;
    const auto& last = pictures.back()->capture.seconds;
    if (first && last)
        evidence.seconds = *last - *first;
    evidence.exposureFromMetadata =
        std::all_of(pictures.begin(), pictures.end(), [](const PictureFacts* each) { return each->hasExposure; });
    evidence.evs = relativeEvs(pictures);
    if (isFocusKnown)
        for (const PictureFacts* each : pictures)
            evidence.focusDistances.push_back(static_cast<float>(each->focusDistance));
    return evidence;
}

PictureGroupKind kindOf(const std::vector<Unit>& units, const JoinedUnits& joined)
{
    const PictureGroupKind kind = units[joined.units.front()].kind;
    if (joined.units.size() == 1)
        return kind;
    return kind == PictureGroupKind::Bracket ? PictureGroupKind::BracketPanorama : PictureGroupKind::Panorama;
}

PictureGroup groupOf(Shots& shots, const std::vector<Unit>& units, const JoinedUnits& joined)
{
    const Unit& first = units[joined.units.front()];
    std::vector<const PictureFacts*> pictures;
    PictureGroup group;
    for (const std::size_t unit : joined.units)
        for (std::size_t i = units[unit].run.begin; i < units[unit].run.end; ++i) {
            pictures.push_back(&shots.facts(i));
            group.paths.push_back(shots.facts(i).path);
        }
    group.kind = kindOf(units, joined);
    group.bracketSize = first.kind == PictureGroupKind::Bracket ? first.run.size() : 0;
    group.evidence =
        evidenceOf(pictures, first.kind == PictureGroupKind::FocusSeries && hasFocusDistances(shots, first.run));
    if (joined.units.size() == 1) {
        group.evidence.overlap = overlapWithin(shots, first.run);
        group.evidence.alike = first.alike;
        group.evidence.sharpnessChange = first.sharpnessChange;
    } else {
        group.evidence.overlap = joined.overlap;
    }
    return group;
}

struct PlacedGroup
{
    std::size_t position = 0; ///< of its first picture among the given paths
    PictureGroup group;
};

std::vector<PlacedGroup> groupsOfCamera(Shots& shots, const RunControl& run)
{
    std::vector<Unit> units;
    for (const Run same : runsOfSameFraming(shots))
        addRun(shots, same, units);
    run.throwIfCancelled();
    std::vector<PlacedGroup> groups;
    for (const JoinedUnits& joined : joinPanoramas(shots, units)) {
        std::size_t position = shots.facts(units[joined.units.front()].run.begin).position;
        for (const std::size_t unit : joined.units)
            for (std::size_t i = units[unit].run.begin; i < units[unit].run.end; ++i)
                position = std::min(position, shots.facts(i).position);
        groups.push_back({position, groupOf(shots, units, joined)});
    }
    return groups;
}

PictureGroups group(const Paths& paths, const RunControl& run)
{
    PictureGroups result;
    std::map<std::string, std::vector<Shot>> cameras;
    for (Reading& reading : readAll(paths, run)) {
        if (reading.failure)
            result.unreadable.push_back(*reading.failure);
        else
            cameras[reading.shot->facts.camera].push_back(std::move(*reading.shot));
    }
    std::vector<PlacedGroup> placed;
    for (auto& [camera, ofCamera] : cameras) {
        sortByCapture(ofCamera);
        Shots shots(std::move(ofCamera));
        run.throwIfCancelled();
        auto groups = groupsOfCamera(shots, run);
        placed.insert(placed.end(), std::make_move_iterator(groups.begin()), std::make_move_iterator(groups.end()));
    }
    std::sort(placed.begin(), placed.end(),
              [](const PlacedGroup& a, const PlacedGroup& b) { return a.position < b.position; });
    for (PlacedGroup& each : placed)
        result.groups.push_back(std::move(each.group));
    return result;
}

} // namespace

PictureGroups groupPictures(const std::vector<std::filesystem::path>& paths, const std::function<void(float)>& progress,
                            const std::function<bool()>& cancel)
{
    const RunControl run(cancel, progress);
    return runInCallFrame("groupPictures", run, [&] { return group(paths, run); });
}

} // namespace orvo
