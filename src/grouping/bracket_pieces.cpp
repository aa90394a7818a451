#include "grouping/bracket_pieces.hpp"

#include <algorithm>
#include <cmath>
#include <limits>

namespace orvo {
namespace {

using Pictures = std::span<const PictureFacts>;

// The longest bracket that is looked for; cameras offer up to 9, and film scans of high range have 16.
constexpr std::size_t kLongestBracket = 32;

// Costs relative to that of one usual piece.
constexpr double kUsual = 1.0;
constexpr double kUnusualSize = 1.3;
constexpr double kPair = 1.6; // more than a piece and less than two, so that two frames alone can be a bracket
constexpr double kUneven = 1.0;
constexpr double kPauseInside = 1.0;
constexpr double kRepeated = 0.8; // for each picture of a measured exposure that the bracket has

bool areKnown(Pictures pictures)
{
    return std::all_of(pictures.begin(), pictures.end(), [](const PictureFacts& each) { return each.hasExposure; });
}

/// Pictures whose exposure an earlier one has.
std::size_t countRepeated(Pictures pictures)
{
    std::size_t repeated = 0;
    for (std::size_t i = 0; i < pictures.size(); ++i)
        repeated += std::any_of(pictures.begin(), pictures.begin() + static_cast<std::ptrdiff_t>(i),
                                [&](const PictureFacts& earlier) {
                                    return std::abs(earlier.ev - pictures[i].ev) < sameExposureEv(earlier, pictures[i]);
                                })
                        ? 1
                        : 0;
    return repeated;
}

/// Exposures differ. Measured ones may coincide where the framing of a bracket from the hand changes what is bright.
bool areDifferent(Pictures pictures, std::size_t repeated)
{
    constexpr std::size_t kMostMeasured = 3; // one of so many
    return repeated == 0 || (!areKnown(pictures) && repeated * kMostMeasured <= pictures.size());
}

/// Automatic brackets repeat their biases, even where the light changes between two brackets.
bool areBiasesRepeated(Pictures pictures)
{
    constexpr double kSameBias = 0.1;
    bool isRepeated = false;
    bool isVaried = false;
    for (std::size_t i = 0; i < pictures.size(); ++i)
        for (std::size_t j = i + 1; j < pictures.size(); ++j) {
            const auto& a = pictures[i].capture.exposureBias;
            const auto& b = pictures[j].capture.exposureBias;
            if (!a || !b)
                return false;
            const bool isSame = std::abs(*a - *b) < kSameBias;
            isRepeated = isRepeated || isSame;
            isVaried = isVaried || !isSame;
        }
    return isRepeated && isVaried;
}

/// Exposures that the camera's meter chose freely, as in a burst of a changing scene.
bool isMetered(Pictures pictures)
{
    return std::all_of(pictures.begin(), pictures.end(), [&](const PictureFacts& each) {
        return each.capture.exposureMode == ExposureMode::Auto && each.capture.exposureBias &&
               each.capture.exposureBias == pictures[0].capture.exposureBias;
    });
}

double spreadOf(const std::vector<double>& sorted) { return sorted.back() - sorted.front(); }

bool hasEnoughSpread(Pictures pictures, double spread)
{
    constexpr double kLeastSpread = 0.6;         // EV of three frames at thirds of a stop
    constexpr double kLeastSpreadMeasured = 1.0; // that changing light does not give
    constexpr double kLeastSpreadOfPair = 1.0;   // of two
    constexpr double kLeastSpreadMetered = 1.5;  // that a meter does not give by itself
    if (isMetered(pictures))
        return spread >= kLeastSpreadMetered;
    const double least = pictures.size() == 2  ? kLeastSpreadOfPair
                         : !areKnown(pictures) ? kLeastSpreadMeasured
                                               : kLeastSpread;
    return spread >= least - 0.01; // rounding of times
}

bool areModesMixed(Pictures pictures)
{
    return std::any_of(pictures.begin(), pictures.end(), [&](const PictureFacts& each) {
        return each.capture.exposureMode && pictures[0].capture.exposureMode &&
               each.capture.exposureMode != pictures[0].capture.exposureMode;
    });
}

bool isUneven(Pictures pictures, const std::vector<double>& sorted)
{
    constexpr double kMostUneven = 0.3; // the smallest step by the largest
    if (!areKnown(pictures) || sorted.size() < 3)
        return false;
    double least = std::numeric_limits<double>::max();
    double most = 0.0;
    for (std::size_t i = 1; i < sorted.size(); ++i) {
        least = std::min(least, sorted[i] - sorted[i - 1]);
        most = std::max(most, sorted[i] - sorted[i - 1]);
    }
    return least < kMostUneven * most;
}

bool hasPauseInside(Pictures pictures)
{
    constexpr double kLonger = 3.0;  // times the median pause
    constexpr double kAtLeast = 1.0; // s, the resolution of most cameras' times
    std::vector<double> pauses;
    for (std::size_t i = 1; i < pictures.size(); ++i) {
        const auto pause = pauseBetween(pictures[i - 1], pictures[i]);
        if (!pause)
            return false;
        pauses.push_back(std::max(*pause, 0.0));
    }
    if (pauses.size() < 2)
        return false;
    std::sort(pauses.begin(), pauses.end());
    return pauses.back() > kLonger * pauses[(pauses.size() - 1) / 2] + kAtLeast;
}

/// Infinite if the pictures are no bracket.
double costOf(Pictures pictures)
{
    constexpr double kNone = std::numeric_limits<double>::infinity();
    if (pictures.size() == 1)
        return kUsual;
    std::vector<double> sorted;
    for (const PictureFacts& each : pictures)
        sorted.push_back(each.ev);
    std::sort(sorted.begin(), sorted.end());
    const std::size_t repeated = countRepeated(pictures);
    if (!areDifferent(pictures, repeated) || areBiasesRepeated(pictures) || areModesMixed(pictures) ||
        !hasEnoughSpread(pictures, spreadOf(sorted)))
        return kNone;
    const std::size_t size = pictures.size();
    const bool isUsual = size == 3 || size == 5 || size == 7 || size == 9;
    return (size == 2 ? kPair
            : isUsual ? kUsual
                      : kUnusualSize) +
           (isUneven(pictures, sorted) ? kUneven : 0.0) + (hasPauseInside(pictures) ? kPauseInside : 0.0) +
           kRepeated * static_cast<double>(repeated);
}

} // namespace

std::vector<BracketPiece> bracketPieces(Pictures run)
{
    // From the end, so that the first of equal cuts has the longest first piece.
    std::vector<double> cost(run.size() + 1, 0.0);
    std::vector<std::size_t> length(run.size(), 1);
    for (std::size_t begin = run.size(); begin-- > 0;) {
        cost[begin] = std::numeric_limits<double>::infinity();
        for (std::size_t size = std::min(kLongestBracket, run.size() - begin); size > 0; --size) {
            const double total = costOf(run.subspan(begin, size)) + cost[begin + size];
            if (total < cost[begin]) {
                cost[begin] = total;
                length[begin] = size;
            }
        }
    }
    std::vector<BracketPiece> pieces;
    for (std::size_t begin = 0; begin < run.size(); begin += length[begin])
        pieces.push_back({{begin, begin + length[begin]}, length[begin] > 1});
    return pieces;
}

} // namespace orvo
