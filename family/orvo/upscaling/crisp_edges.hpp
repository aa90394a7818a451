/// Steeper edges without overshoot.
#pragma once

#include "upscaling/noise_map.hpp"

#include <orvo_core/image_data.hpp>

#include <atomic>

namespace orvo::details {

/// Moves every value away from the mean around it (5 x 5 places, 2 apart), but not beyond what the 5 x 5 samples around
/// it hold, so an edge grows steeper and nothing rings; like the shock filter of Osher and Rudin (SIAM J. Numer. Anal.
/// 27(4), 1990) in one step. Where the values around differ by little (noise, smooth places) little happens; constants
/// stay. Where they differ by no more than what `noise` tells of the place explains, nothing happens, so noise stays as
/// it is. Each channel by itself. In place: the rows at the rims of bands are kept aside, an eighth of the picture,
/// besides some 76 rows for each thread. Parallel; the same bits for any number of threads. False on cancel; the
/// picture is unfinished then.
[[nodiscard]] bool steepenEdges(_ImageData<PixelRGB<float>>& picture, const NoiseMap& noise,
                                const std::atomic<bool>* cancel);

} // namespace orvo::details
