/// Noise reduction by DCT of overlapping blocks.
#pragma once

#include "restoration/noise_spectrum.hpp"
#include "restoration/steps.hpp"

#include <orvo_core/image_data.hpp>

#include <memory>

namespace orvo::details {

/// Returns a copy of `picture` without the noise described by `noise`, channel by channel. A picture with a side below
/// 8 pixels is only copied. Throws FailureError on cancel. Peak: two pictures.
[[nodiscard]] std::shared_ptr<_ImageData<PixelRGB<float>>> withoutNoise(const _ImageData<PixelRGB<float>>& picture,
                                                                        const NoiseSpectrum& noise, const Step& step);

} // namespace orvo::details
