/// A planned ladder without ghosts, whose rungs are made one at a time.
#pragma once

#include "bracket/deghosting.hpp"
#include "bracket/resample_frames.hpp"

#include <orvo_common/run_control.hpp>

#include <memory>
#include <optional>
#include <vector>

namespace orvo {

/// Shifts each rung to its exposure twice, to compare it and when it is made, so that the ladder needs no memory beside
/// its frames. Developed pictures only.
class DeghostedLadder
{
public:
    /// Compares the rungs with rung `reference`. `ladder` and `settings` must outlive this. Peak: two pictures and
    /// three planes of bytes beside the frames.
    DeghostedLadder(std::vector<HDRFrame>& ladder, const std::vector<float>& shifts, int reference,
                    const HDRSettings& settings, const RunControl& run);

    /// Gives rung `index` its own pixels at its exposure, without ghosts. Once for each rung, unless the run was
    /// cancelled.
    void make(std::size_t index);

private:
    using Picture = _ImageData<PixelRGB<float>>;

    std::vector<HDRFrame>& ladder;
    std::vector<RungCurve> curves;
    std::size_t reference;
    std::shared_ptr<const Picture> referenceFrame; // before its curve
    std::unique_ptr<Deghosting> deghosting;
    std::optional<HighlightHueRecovery> hues; // of the reference frame, if highlights keep theirs
};

} // namespace orvo
