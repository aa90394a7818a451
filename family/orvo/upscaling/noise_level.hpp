/// How noisy a picture is.
#pragma once

#include <orvo_core/image_data.hpp>

namespace orvo::details {

/// Weights of the luma on which upscaling looks for structure: near the luminance of the working space's primaries,
/// with some weight left for blue, which has next to none there.
constexpr float kLumaRed = 0.3f;
constexpr float kLumaGreen = 0.6f;
constexpr float kLumaBlue = 0.1f;

/// Standard deviation of the noise of the luma, in values: what the noise estimator of Immerkaer ("Fast noise variance
/// estimation", CVIU 64(2), 1996) tells of blocks of 16 x 16 pixels. Noise is in all of them, so detail is told from it
/// twice: the result is no more than the quietest blocks have, and no more than the median of the blocks that show
/// nothing but white noise (the estimate is all of their variance; detail falls off towards fine scales, so it has
/// more). 0 if fewer than one in 200 blocks are bare like that. Blocks that are quite flat, since clipped or drawn, do
/// not count. At most some 4000 blocks are looked at. The same for any number of threads.
[[nodiscard]] float noiseLevel(const _ImageData<PixelRGB<float>>& picture);

} // namespace orvo::details
