#include "grouping/series.hpp"

#include <algorithm>
#include <cmath>

namespace orvo {
namespace {

// Fewer may be two attempts at one focus.
constexpr std::size_t kFewestFrames = 3;

/// 1/m.
double vergenceOf(const PictureFacts& facts) { return 1.0 / facts.focusDistance; }

/// Stretches in which the focus moves one way.
std::vector<Run> monotonicStretches(const Shots& shots, Run run)
{
    std::vector<Run> stretches;
    int direction = 0;
    for (std::size_t i = run.begin; i < run.end; ++i) {
        const double change = i == run.begin ? 0.0 : vergenceOf(shots.facts(i)) - vergenceOf(shots.facts(i - 1));
        const int turn = change > 0.0 ? 1 : change < 0.0 ? -1 : 0;
        if (i == run.begin || turn == 0 || (direction != 0 && turn != direction)) {
            stretches.push_back({i, i});
            direction = 0;
        } else {
            direction = turn;
        }
        stretches.back().end = i + 1;
    }
    return stretches;
}

bool isFocusMoved(const Shots& shots, Run run)
{
    constexpr double kLeastRange = 0.03; // of the larger distance; an autofocus that repeats itself deviates less
    const double first = shots.facts(run.begin).focusDistance;
    const double last = shots.facts(run.end - 1).focusDistance;
    return run.size() >= kFewestFrames && std::abs(first - last) > kLeastRange * std::max(first, last);
}

// Octaves. The series of the developers' pictures reach 2.4 to 4.5; a burst from the hand with a man who walks through
// the picture reaches 1.4, one without 0.6.
constexpr float kLeastChange = 1.6f;

/// Pictures too blurred to be compared are taken to lie on each other.
float changeBetween(Shots& shots, std::size_t first, std::size_t second)
{
    const auto change = shots.change(first, second);
    return change ? change->sharpness : 0.0f;
}

/// The largest change from the first picture.
float largestChange(Shots& shots, Run run)
{
    float largest = 0.0f;
    for (std::size_t i = run.begin + 1; i < run.end; ++i)
        largest = std::max(largest, changeBetween(shots, run.begin, i));
    return largest;
}

/// Whether the run repeats a series of `frames` pictures.
bool isRepeated(Shots& shots, Run run, std::size_t frames)
{
    constexpr float kSameFocus = 0.45f; // octaves
    for (std::size_t i = run.begin; i + frames < run.end; ++i)
        if (changeBetween(shots, i, i + frames) > kSameFocus)
            return false;
    return largestChange(shots, {run.begin, run.begin + frames}) >= kLeastChange;
}

/// The whole run, or the series that it repeats.
std::vector<Run> stretchesBySharpness(Shots& shots, Run run)
{
    std::size_t frames = kFewestFrames;
    while (frames < run.size() && (run.size() % frames != 0 || !isRepeated(shots, run, frames)))
        ++frames;
    std::vector<Run> stretches;
    for (std::size_t begin = run.begin; begin < run.end; begin += frames)
        stretches.push_back({begin, std::min(begin + frames, run.end)});
    return stretches;
}

void addSingles(Run run, std::optional<float> change, std::vector<FocusPiece>& pieces)
{
    for (std::size_t i = run.begin; i < run.end; ++i)
        pieces.push_back({{i, i + 1}, false, change});
}

} // namespace

bool hasFocusDistances(const Shots& shots, Run run)
{
    bool isChanging = false;
    for (std::size_t i = run.begin; i < run.end; ++i) {
        if (!(shots.facts(i).focusDistance > 0.0))
            return false;
        isChanging = isChanging || shots.facts(i).focusDistance != shots.facts(run.begin).focusDistance;
    }
    return isChanging;
}

std::vector<FocusPiece> focusPieces(Shots& shots, Run run)
{
    std::vector<FocusPiece> pieces;
    if (run.size() < kFewestFrames) {
        addSingles(run, {}, pieces);
    } else if (hasFocusDistances(shots, run)) {
        for (const Run stretch : monotonicStretches(shots, run)) {
            if (isFocusMoved(shots, stretch))
                pieces.push_back({stretch, true, largestChange(shots, stretch)});
            else
                addSingles(stretch, {}, pieces);
        }
    } else {
        for (const Run stretch : stretchesBySharpness(shots, run)) {
            const float change = largestChange(shots, stretch);
            if (stretch.size() >= kFewestFrames && change >= kLeastChange)
                pieces.push_back({stretch, true, change});
            else
                addSingles(stretch, change, pieces);
        }
    }
    return pieces;
}

} // namespace orvo
