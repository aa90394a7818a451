/// Noise reduction in overlapping blocks of cosines.
#pragma once

#include "restoration/noise_spectrum.hpp"
#include "restoration/steps.hpp"

#include <orvo_core/image_data.hpp>

#include <memory>

namespace orvo::details {

/// A new picture: `picture` with the noise reduced that `noise` finds in it, channel by channel. Empty on cancel. A
/// picture of less than 8 pixels a side is copied. Peak: two pictures.
[[nodiscard]] std::shared_ptr<_ImageData<PixelRGB<float>>> withoutNoise(const _ImageData<PixelRGB<float>>& picture,
                                                                        const NoiseSpectrum& noise, const Step& step);

} // namespace orvo::details
