/// Shared by all bracket operations: settings records, and the order of a bracket's files.
#pragma once

#include <orvo_common/export.hpp>
#include <orvo_extensions/failure.hpp>

#include <cstdint>
#include <filesystem>
#include <utility>
#include <vector>

namespace orvo {

/// How frames are aligned.
enum class AlignmentQuality : std::int32_t
{
    /// Registered at a reduced size and resampled with the simplest kernel: brackets to the nearest pixel, focus series
    /// by linear interpolation, which softens fine detail.
    Fast = 0,
    /// Registered to a small fraction of a pixel and resampled with a windowed sinc (Lanczos, ten by ten pixels), which
    /// keeps fine detail and neither rings nor shifts levels. Registration holds, besides the frames, a plane of one
    /// channel of the size of a frame and at most eight of 2 megapixels, resampling one picture, the result.
    Fine = 1
};

namespace BracketSettings {

struct ORVO_EXPORT RawAutoCorrection
{
    RawAutoCorrection();
    RawAutoCorrection(const RawAutoCorrection&) = default;
    RawAutoCorrection& operator=(const RawAutoCorrection&);

    bool chromaticAberrations = false; ///< correct lateral chromatic aberration
    bool lensCorrection = false;       ///< correct distortion and vignetting, for the lens that the metadata name
};

struct ORVO_EXPORT Adjust
{
    Adjust();
    Adjust(const Adjust&) = default;
    Adjust& operator=(const Adjust&);

    bool enabled = true;             ///< align the frames
    std::int32_t referenceIndex = 0; ///< the frame to align to, an index into the paths
    AlignmentQuality quality = AlignmentQuality::Fast;
};

struct ORVO_EXPORT GhostReduction
{
    GhostReduction();
    GhostReduction(const GhostReduction&) = default;
    GhostReduction& operator=(const GhostReduction&);

    bool enabled = true;             ///< remove ghosts of moving subjects
    std::int32_t referenceIndex = 0; ///< the frame whose subjects are kept, an index into the paths
    std::int32_t amount = 0;         ///< a DeghostAmount, 0 (least) to 4 (most)
};

/// makeFocusStack() reads all fields; the other fields of `adjust` and `ghostReduction` have an effect only if their
/// `enabled` is true. exportAligned() reads no field that changes a pixel.
struct ORVO_EXPORT FocusStacking
{
    /// Aligns and does not deghost: deghosting would take the blur in a focus series for motion.
    FocusStacking();
    FocusStacking(const FocusStacking&) = default;
    FocusStacking& operator=(const FocusStacking&);

    RawAutoCorrection rawAutoCorrection;
    Adjust adjust;
    GhostReduction ghostReduction;
};

} // namespace BracketSettings

/// Returns the paths in order of rising exposure, and at the same indices their EVs relative to the middle one. Reads
/// metadata and thumbnails only. A file without a thumbnail is dropped, and lastFailure() gives the reason for the
/// first such file. Files of equal EV keep their order.
[[nodiscard]] ORVO_EXPORT std::pair<std::vector<std::filesystem::path>, std::vector<float>>
getSortedPathsAndEVsFromPaths(const std::vector<std::filesystem::path>& paths);

} // namespace orvo
