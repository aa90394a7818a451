/// What all bracket operations share: settings records, and the order of a bracket's files.
#pragma once

#include <orvo_common/export.hpp>
#include <orvo_extensions/failure.hpp>

#include <cstdint>
#include <filesystem>
#include <utility>
#include <vector>

namespace orvo {

namespace BracketSettings {

struct ORVO_EXPORT RawAutoCorrection
{
    RawAutoCorrection();
    RawAutoCorrection(const RawAutoCorrection&) = default;
    RawAutoCorrection& operator=(const RawAutoCorrection&);

    bool chromaticAberrations = false; ///< correct lateral chromatic aberration
    bool lensCorrection = false;       ///< correct distortion and vignetting by the lens of the metadata
};

struct ORVO_EXPORT Adjust
{
    Adjust();
    Adjust(const Adjust&) = default;
    Adjust& operator=(const Adjust&);

    bool enabled = true;             ///< align the frames
    std::int32_t referenceIndex = 0; ///< the frame to align to, an index into the paths
};

struct ORVO_EXPORT GhostReduction
{
    GhostReduction();
    GhostReduction(const GhostReduction&) = default;
    GhostReduction& operator=(const GhostReduction&);

    bool enabled = true;             ///< take out ghosts of moving subjects
    std::int32_t referenceIndex = 0; ///< the frame whose subjects are kept, an index into the paths
    std::int32_t amount = 0;         ///< a DeghostAmount, 0 (least) to 4 (most)
};

/// Read: all by makeFocusStack(), the fields of `adjust` and `ghostReduction` beside `enabled` only where that is true;
/// none that changes a pixel by exportAligned().
struct ORVO_EXPORT FocusStacking
{
    /// Aligns and does not deghost: in a focus series blur would be taken for motion.
    FocusStacking();
    FocusStacking(const FocusStacking&) = default;
    FocusStacking& operator=(const FocusStacking&);

    RawAutoCorrection rawAutoCorrection;
    Adjust adjust;
    GhostReduction ghostReduction;
};

} // namespace BracketSettings

/// The paths in order of rising exposure and their EVs, the middle one being 0, at equal indices. Reads metadata and
/// thumbnails only. A file that has no thumbnail drops out, and lastFailure() says why the first such one
/// did; files of equal EV keep their order.
[[nodiscard]] ORVO_EXPORT std::pair<std::vector<std::filesystem::path>, std::vector<float>>
getSortedPathsAndEVsFromPaths(const std::vector<std::filesystem::path>& paths);

} // namespace orvo
