/// How noisy a picture is.
#pragma once

#include <orvo_core/image_data.hpp>

namespace orvo::details {

/// Weights of the luma on which upscaling looks for structure: near the luminance of the working space's primaries,
/// with some weight left for blue, which has next to none there.
constexpr float kLumaRed = 0.3f;
constexpr float kLumaGreen = 0.6f;
constexpr float kLumaBlue = 0.1f;

/// Standard deviation of the noise of the luma, in values: the median over the blocks of 16 x 16 pixels that show
/// nothing else. In a block of bare white noise the variance is what the noise estimator of Immerkaer ("Fast noise
/// variance estimation", CVIU 64(2), 1996) tells; detail has more, since it falls off towards fine scales. 0 if fewer
/// than one in 200 blocks are bare: such a picture is clean, or its noise can be told from detail by nobody. At most
/// some 4000 blocks are looked at. The same for any number of threads.
[[nodiscard]] float noiseLevel(const _ImageData<PixelRGB<float>>& picture);

} // namespace orvo::details
