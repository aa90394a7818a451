/// Measures the noise of a picture.
#pragma once

#include <orvo_core/image_data.hpp>

namespace orvo::details {

/// Weights of the luma in which upscaling detects structure: near the luminance of the working space's primaries, with
/// some weight left for blue, which has almost none there.
constexpr float kLumaRed = 0.3f;
constexpr float kLumaGreen = 0.6f;
constexpr float kLumaBlue = 0.1f;

inline float luma(const PixelRGB<float>& p) { return kLumaRed * p.r + kLumaGreen * p.g + kLumaBlue * p.b; }

/// Standard deviation of the noise of the luma, in values: the noise estimator of Immerkaer ("Fast noise variance
/// estimation", CVIU 64(2), 1996) on blocks of 16 x 16 pixels. All blocks have noise, so there are two tests to
/// separate detail from it: the result is at most that of the quietest blocks, and at most the median of the blocks
/// with nothing but white noise (where the estimate equals the whole variance; detail decreases towards fine scales, so
/// it has more variance). 0 if fewer than one in 200 blocks are bare like that. Flat blocks (clipped or drawn) do not
/// count. At most about 4000 blocks are measured. The same for any number of threads.
[[nodiscard]] float noiseLevel(const _ImageData<PixelRGB<float>>& picture);

} // namespace orvo::details
