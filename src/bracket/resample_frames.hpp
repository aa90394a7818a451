/// Resamples a short bracket to a regular ladder of exposures.
#pragma once

#include "bracket/frames.hpp"
#include "bracket/rung_pixels.hpp"

#include <orvo_common/run_control.hpp>
#include <orvo_extensions/hdr.hpp>

#include <tuple>
#include <vector>

namespace orvo {

/// Brackets with more frames than this are fine enough to blend as they are.
inline constexpr std::size_t kMostResampledFrames = 3;

/// A ladder whose rungs still share the pixels of their frames.
struct PlannedLadder
{
    std::vector<HDRFrame> rungs;     ///< in order of rising ev
    std::vector<float> shifts;       ///< EV from the frame to its rung, at equal indices
    std::vector<std::size_t> frames; ///< of the rungs, at equal indices
    int ghostIndex = -1;             ///< the last rung from the ghost reference; -1 without ghost reduction
};

/// Plans the ladder of one to three frames sorted by rising ev. The rungs of a single developed frame share a copy of
/// it that has the hue of its highlights back, if so set (HDRSettings::highlightHue). Throws std::runtime_error if
/// their exposure values are not usable.
[[nodiscard]] PlannedLadder planRungs(const std::vector<HDRFrame>& frames, const HDRSettings& settings);

/// The curve that shifts a developed picture by `shift` EV.
[[nodiscard]] RungCurve curveOfShift(float shift, const HDRSettings& settings);

/// Shifts a planned rung to its exposure: in a copy of its pixels, or in place if they are not shared.
void shiftRung(HDRFrame& rung, float shift, const HDRSettings& settings);

/// `frames` are sorted by rising ev. One to three frames give a ladder of 4 to 7 rungs between the ends of the bracket,
/// each filled from the nearest frame shifted to the rung's exposure: raw frames by development, others by the exposure
/// curve; a single one of these may first get the hue of its highlights back (HDRSettings::highlightHue). Four or more
/// frames are used as the ladder: raw ones are developed in place, and the entries share their pixels.
///
/// Result: the ladder, and the rung that represents the ghost reference, -1 if there is none. A cancelled run returns
/// an empty ladder and 0. `unused` is not written. Exposure values that are not usable (not finite) throw
/// std::runtime_error. Peak: the frames and one picture for each rung.
[[nodiscard]] std::tuple<std::vector<HDRFrame>, int> resampleFrames(std::vector<HDRFrame>& frames,
                                                                    const HDRSettings& settings, float& unused);
/// The same, cancelled by `run`.
[[nodiscard]] std::tuple<std::vector<HDRFrame>, int> resampleFrames(std::vector<HDRFrame>& frames,
                                                                    const HDRSettings& settings, const RunControl& run);

} // namespace orvo
