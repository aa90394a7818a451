/// Steeper edges without overshoot.
#pragma once

#include "upscaling/noise_map.hpp"

#include <orvo_common/run_control.hpp>
#include <orvo_core/image_data.hpp>

namespace orvo::details {

/// Moves every value away from the mean around it (5 x 5 samples, 2 apart), but not beyond the range of the 5 x 5
/// samples around it, so that edges become steeper without ringing; like the shock filter of Osher and Rudin (SIAM J.
/// Numer. Anal. 27(4), 1990) in one step. Has little effect where the surrounding values differ by little (noise,
/// smooth places); constants stay. Has none where they differ by no more than `noise` explains, so noise stays as it
/// is. Each channel separately. In place: the rows at the borders of bands are set aside, an eighth of the picture,
/// besides about 76 rows per thread. Parallel; bit-identical for any number of threads. False on cancel; the picture is
/// unfinished then.
[[nodiscard]] bool steepenEdges(_ImageData<PixelRGB<float>>& picture, const NoiseMap& noise, const RunControl& run);

} // namespace orvo::details
