/// Steeper edges without overshoot.
#pragma once

#include "upscaling/noise_map.hpp"

#include <orvo_common/run_control.hpp>
#include <orvo_core/image_data.hpp>

namespace orvo::details {

/// Moves every value away from the local mean (5 x 5 samples, 2 apart), but not beyond the local range (5 x 5 samples),
/// so that edges become steeper without ringing; like the shock filter of Osher and Rudin (SIAM J. Numer. Anal. 27(4),
/// 1990) in one step. Small local differences (noise, smooth areas) change little; constants and differences within
/// `noise` do not change at all. Each channel separately. In place: sets aside the rows at the borders of bands, an
/// eighth of the picture, besides about 76 rows per thread. Parallel; bit-identical for any number of threads. Returns
/// false on cancel, with the picture unfinished.
[[nodiscard]] bool steepenEdges(_ImageData<PixelRGB<float>>& picture, const NoiseMap& noise, const RunControl& run);

} // namespace orvo::details
